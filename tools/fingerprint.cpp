// fingerprint: a hash of each accumulator over made-up cases; start at main, at the end.
//
// Its output is the same on every machine, with every compiler and on any number of threads and
// ranks, so two machines that print the same compute the same.

#include <velmor/velmor.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "arguments.h"
#include "reduction.h"
#include "report.h"

namespace {

constexpr std::uint64_t kRows = 20011;  // the last block is shorter
constexpr std::uint64_t kBlockRows = 64;
// Rows that a rank takes at a time.
constexpr std::uint64_t kTurnRows = 8 * kBlockRows;
constexpr int kGroups = 5;
constexpr double kMissingCode = std::numeric_limits<double>::lowest();

// A case: each type of value once. The columns differ in scale, and some within themselves, so that
// sums round differently in another order.
struct Row {
  double large;
  double uneven;
  float single;
  std::int8_t int8;
  std::int16_t int16;
  std::int32_t int32;
  std::int64_t int64;
  std::uint8_t uint8;
  std::uint16_t uint16;
  std::uint32_t uint32;
  std::uint64_t uint64;
  bool truth;
  double weight;
  float regWeight;
  std::uint8_t group;
};

constexpr double kUnevenAbsent = -9.;
constexpr std::int8_t kInt8Absent = -100;
constexpr std::int32_t kInt32Absent = -1;
constexpr std::uint16_t kUInt16Absent = 65535;
constexpr float kRegWeightAbsent = -1.F;
constexpr std::uint8_t kGroupAbsent = 99;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

class Data {
 public:
  Data() : _rows(kRows), _validity(kRows / 8 + 1) {
    for (std::uint64_t i = 0; i < kRows; ++i) {
      _rows[i] = MakeRow();
      _validity[i / 8] |= static_cast<std::uint8_t>((IsAbsent() ? 0U : 1U) << i % 8);
    }
  }

  // Rows [from, to).
  velmor::TableView Table(std::uint64_t from, std::uint64_t to) const {
    const Row& first = _rows[from];
    const auto column = [](const auto& value, std::vector<double> absentCodes = {}) {
      velmor::ColumnView view(&value, sizeof(Row));
      view.absentCodes = std::move(absentCodes);
      return view;
    };
    velmor::TableView table;
    table.rows = to - from;
    table.values = {column(first.large),
                    column(first.uneven, {kUnevenAbsent}),
                    column(first.single),
                    column(first.int8, {kInt8Absent}),
                    column(first.int16),
                    column(first.int32, {kInt32Absent, kInt32Absent - 1}),
                    column(first.int64),
                    column(first.uint8),
                    column(first.uint16, {kUInt16Absent}),
                    column(first.uint32),
                    column(first.uint64),
                    column(first.truth)};
    table.values[0].nanIsAbsent = true;
    table.values[2].validity = _validity.data();
    table.values[2].validityOffset = from;
    table.weights = column(first.weight);
    table.weights->nanIsAbsent = true;
    table.regWeights = column(first.regWeight, {kRegWeightAbsent});
    table.groups = column(first.group, {kGroupAbsent});
    return table;
  }

 private:
  // What follows is whole numbers, times powers of 2: no machine rounds any of it.
  std::uint64_t Below(std::uint64_t bound) { return _random() % bound; }
  bool IsAbsent() { return Below(60) == 0; }

  template <class T>
  T Number(std::uint64_t bound, std::int64_t least = 0) {
    return static_cast<T>(least + static_cast<std::int64_t>(Below(bound)));
  }

  Row MakeRow() {
    constexpr std::uint64_t kMost = std::uint64_t{1} << 53U;  // that a double can count to
    Row row{};
    row.large = IsAbsent() ? kNaN : Number<double>(1U << 20U, std::int64_t{1} << 50U) * 0x1p-12;
    row.uneven = Number<double>(1U << 20U) * (Below(2) == 0 ? 0x1p-40 : 0x1p20);
    row.uneven = IsAbsent() ? kUnevenAbsent : row.uneven;
    row.single = Number<float>(1U << 24U) * 0x1p-30F;
    row.int8 = IsAbsent() ? kInt8Absent : Number<std::int8_t>(200, -99);
    row.int16 = Number<std::int16_t>(1U << 16U, -(1 << 15));
    row.int32 = IsAbsent() ? Number<std::int32_t>(2, kInt32Absent - 1) : Number<std::int32_t>(1000);
    row.int64 = Number<std::int64_t>(kMost, -(std::int64_t{1} << 52U));
    row.uint8 = Number<std::uint8_t>(4);
    row.uint16 = IsAbsent() ? kUInt16Absent : Number<std::uint16_t>(3, 65000);
    row.uint32 = Number<std::uint32_t>(std::uint64_t{1} << 32U);
    row.uint64 = Number<std::uint64_t>(kMost);
    row.truth = Below(3) == 0;
    row.weight = IsAbsent() ? kNaN : Number<double>(1U << 12U, 1) * 0x1p-10;
    row.regWeight = IsAbsent() ? kRegWeightAbsent : Number<float>(100, 1) * 0x1p-3F;
    row.group = IsAbsent() ? kGroupAbsent : Number<std::uint8_t>(kGroups);
    return row;
  }

  std::mt19937_64 _random{1};  // its numbers are the standard's
  std::vector<Row> _rows;
  std::vector<std::uint8_t> _validity;  // of the column `single`
};

// The hash with which a state ends, of all bytes before it; its lowest byte comes first.
std::uint64_t Hash(const std::vector<std::byte>& state) {
  std::uint64_t hash = 0;
  for (std::size_t i = 1; i <= sizeof(hash); ++i) {
    hash = hash << 8U | static_cast<std::uint64_t>(state[state.size() - i]);
  }
  return hash;
}

struct Fingerprints {
  const cluster::Ranks& ranks;
  const Data& data;
  int threads;
  std::string text;  // on rank 0

  // Accumulates this rank's share, then takes up those of all.
  template <class Accumulator>
  void Add(const char* name, const Accumulator& shape) {
    velmor::BlockForest<Accumulator> forest(kBlockRows, shape);
    ranks.Try([&] { AccumulateShare(shape, forest); });
    cluster::MergeForests(ranks, forest);
    ranks.Try([&] {
      if (ranks.Own() == 0) {
        const auto result = forest.Result();
        char line[80];
        std::snprintf(line, sizeof(line), "%-20s %6" PRIu64 " cases  %016" PRIx64 "\n", name,
                      std::uint64_t{result->NRows()}, Hash(velmor::Save(*result)));
        text += line;
      }
    });
  }

  template <class Accumulator>
  void AccumulateShare(const Accumulator& shape, velmor::BlockForest<Accumulator>& forest) const {
    velmor::AccumulateOptions options;
    options.blockRows = kBlockRows;
    options.threads = threads;
    const auto own = static_cast<std::uint64_t>(ranks.Own());
    const auto count = static_cast<std::uint64_t>(ranks.Count());
    for (std::uint64_t from = own * kTurnRows; from < kRows; from += count * kTurnRows) {
      const velmor::TableView table = data.Table(from, std::min(from + kTurnRows, kRows));
      options.firstBlock = from / kBlockRows;
      forest.Merge(velmor::Accumulate(table, shape, options));
    }
  }
};

void PrintFingerprints(const cluster::Ranks& ranks, int threads) {
  const Data data;
  constexpr int kFirst = 4;  // columns of the first range, where there are two
  const auto columns = static_cast<int>(data.Table(0, 1).values.size());
  Fingerprints prints{ranks, data, threads, {}};
  prints.Add("SMatrixListwise", velmor::SMatrixListwise(0, columns));
  prints.Add("NSMatrixListwise", velmor::NSMatrixListwise(0, kFirst, columns));
  prints.Add("MatrixListwise", velmor::MatrixListwise());
  prints.Add("SMatrixPairwise", velmor::SMatrixPairwise(kMissingCode, 0, columns));
  prints.Add("NSMatrixPairwise", velmor::NSMatrixPairwise(kMissingCode, 0, kFirst, columns));
  prints.Add("MatrixPairwise", velmor::MatrixPairwise(kMissingCode));
  prints.Add("DiscriminantMatrix", velmor::DiscriminantMatrix(kGroups, columns));
  prints.Add("DiscIndividualMatrix", velmor::DiscIndividualMatrix(kGroups, columns));
  ranks.Try([&] { report::Print(prints.text); });
}

void DefineOptions(CLI::App& app, int& threads) {
  app.description("Prints a hash of the state of each accumulator over the same made-up cases.");
  app.add_option("--threads", threads, "Threads of each rank; by default 1")
      ->type_name("N")
      ->transform(arguments::WholeNumber(0, 1024));
  app.footer(R"(
Machines that print the same compute the same, to the last bit. Several of them can also share the
work, which must not change what is printed:
  mpirun -n 4 fingerprint --threads 2)");
}

}  // namespace

int main(int argc, char** argv) {
  int threads = 1;
  return cluster::Run(
      "fingerprint", argc, argv, [&threads](CLI::App& app) { DefineOptions(app, threads); },
      [&threads](const cluster::Ranks& ranks) { PrintFingerprints(ranks, threads); });
}
