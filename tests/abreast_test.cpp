// Blocks that are taken side by side, against the same blocks one by one.
#include "ordered/engine.h"

#include <gmock/gmock.h>
#include <velmor/velmor.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

namespace velmor {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kMissing = -999.125;

// Tables of every kind of values, layout, mark and weight, by chance.
class RandomTable {
 public:
  explicit RandomTable(std::uint32_t seed) : _random(seed) {
    const std::size_t columns = 1 + Below(Chance(4) ? 40 : 13);
    view.rows = Below(blockRows * 40);
    _values.resize(columns * view.rows + 1);
    std::generate(_values.begin(), _values.end(), [this] { return Value(); });
    if (Chance(3)) {  // a column that is constant
      std::fill_n(_values.begin(), view.rows, 0.1);
    }
    if (Chance(2)) {  // columns that lack the same rows
      for (std::size_t i = 0; i + 1 < _values.size(); ++i) {
        const std::size_t pattern = i / view.rows / 4;
        _values[i] = (i % view.rows * 31 + pattern * 17) % 11 == 0 ? kNaN : _values[i];
      }
    }
    _floats.assign(_values.begin(), _values.end());
    _integers.resize(_values.size());
    std::generate(_integers.begin(), _integers.end(), [this] { return Below(1000); });
    _validity.resize(view.rows / 8 + 3);
    std::generate(_validity.begin(), _validity.end(),
                  [this] { return static_cast<std::uint8_t>(Chance(8) ? Below(256) : 255); });
    AddColumns(columns);
    AddWeights();
  }

  std::size_t Below(std::size_t n) { return _random() % n; }

 private:
  bool Chance(std::size_t n) { return Below(n) == 0; }

  std::mt19937 _random;

 public:
  std::uint64_t blockRows = 1 + Below(Chance(2) ? 20 : 150);
  std::uint64_t firstBlock = Chance(3) ? Below(20) : 0;
  TableView view;

 private:
  double Value() {
    const double x = (static_cast<double>(Below(2'000'001)) - 1e6) / 7.;
    if (_kind == 0 && Chance(100)) {
      return kInf;
    }
    if (_kind == 1 && Chance(100)) {
      return kNaN;
    }
    if (_kind == 2) {  // ties and zeros of both signs
      return std::copysign(static_cast<double>(Below(2)), Chance(2) ? 1. : -1.);
    }
    return _kind == 3 ? x * 0x1p-1040 : x;
  }

  void AddColumns(std::size_t columns) {
    const bool isByRow = Chance(4);
    const bool isMixed = Chance(3);
    const bool isMarked = Chance(2);
    for (std::size_t c = 0; c < columns; ++c) {
      const std::size_t first = c * view.rows;
      if (isByRow) {
        view.values.emplace_back(&_values[c], static_cast<std::ptrdiff_t>(columns * 8));
      } else if (isMixed && c % 3 == 0) {
        view.values.emplace_back(&_floats[first]);
      } else if (isMixed && c % 3 == 1) {
        view.values.emplace_back(&_integers[first]);
      } else {
        view.values.emplace_back(&_values[first]);
      }
      ColumnView& column = view.values.back();
      column.nanIsAbsent = isMarked;
      if (isMarked && c % 4 == 0) {
        column.absentCodes = {0.1, 7.};
      }
      if (isMarked && c % 5 == 0) {
        column.validity = _validity.data();
        column.validityOffset = c % 7;
      }
    }
  }

  // Some weights are negative, and some blocks weigh nothing.
  void AddWeights() {
    const bool areZero = Chance(3);
    for (std::size_t row = 0; row <= view.rows; ++row) {
      const bool isZero = areZero && (row / blockRows % 5 == 0 || Chance(3));
      _weights.push_back(isZero ? 0. : (static_cast<double>(Below(100)) - 10.) / 4.);
      _regWeights.push_back(static_cast<double>(1 + Below(100)) / 8.);
    }
    if (Chance(2)) {
      view.weights.emplace(_weights.data());
      if (Chance(2)) {
        view.weights->absentCodes = {0.};
      }
    }
    if (Chance(2)) {
      view.regWeights.emplace(_regWeights.data());
    }
  }

  std::size_t _kind = Below(6);  // of values
  std::vector<double> _values;
  std::vector<float> _floats;
  std::vector<std::int64_t> _integers;
  std::vector<std::uint8_t> _validity;
  std::vector<double> _weights;
  std::vector<double> _regWeights;
};

template <class Accumulator>
void ExpectTheBitsOfBatches(const RandomTable& table, const Accumulator& shape,
                            std::optional<double> missingCode = std::nullopt) {
  const TableView& view = table.view;
  const double weight = 0.;
  BlockForest<Accumulator> expected(table.blockRows, shape);
  for (std::uint64_t row = 0, block = 0; row < view.rows; row += table.blockRows, ++block) {
    DataBatch batch(static_cast<unsigned int>(view.values.size()),
                    static_cast<unsigned int>(table.blockRows), view.weights ? &weight : nullptr,
                    view.regWeights ? &weight : nullptr, nullptr);
    batch.AddColumns(view, row, std::min(view.rows, row + table.blockRows), missingCode);
    auto leaf = expected.NewLeaf();
    *leaf += batch;
    expected.Add(table.firstBlock + block, std::move(leaf));
  }
  for (const int threads : {1, 3}) {
    const auto forest = Accumulate(view, shape, {table.blockRows, table.firstBlock, threads, {}});
    EXPECT_EQ(Save(forest), Save(expected)) << threads << " threads";
  }
}

TEST(BlocksSideBySide, HaveTheBitsOfBlocksOneByOne) {
  for (const ordered::Engine* const engine : ordered::Available()) {
    ordered::Use(*engine);
    for (std::uint32_t seed = 0; seed < 60; ++seed) {
      SCOPED_TRACE(std::string(engine->name) + ", table " + std::to_string(seed));
      RandomTable table(seed);
      const auto columns = static_cast<int>(table.view.values.size());
      const auto below = [&](int n) {
        return static_cast<int>(table.Below(static_cast<std::size_t>(n)));
      };
      const int first = below(columns);
      const int last = first + 1 + below(columns - first);
      const int middle = first + below(last - first + 1);
      ExpectTheBitsOfBatches(table, MatrixListwise());
      ExpectTheBitsOfBatches(table, SMatrixListwise());
      ExpectTheBitsOfBatches(table, SMatrixListwise(first, last));
      ExpectTheBitsOfBatches(table, MatrixPairwise(kMissing), kMissing);
      ExpectTheBitsOfBatches(table, SMatrixPairwise(kMissing, first, last), kMissing);
      ExpectTheBitsOfBatches(table, NSMatrixPairwise(kMissing, first, middle, last), kMissing);
      ExpectTheBitsOfBatches<MatrixBase>(table, SMatrixPairwise(kMissing), kMissing);
      if (first < middle && middle < last) {
        ExpectTheBitsOfBatches(table, NSMatrixListwise(first, middle, last));
      }
    }
  }
  ordered::Use(*ordered::Available().back());
}

}  // namespace
}  // namespace velmor
