// Fuzzes Load of Summary and GroupSummary: bytes are refused with a StateError, or make a summary
// that has just these bytes and can be updated, merged, copied and read. They are tried as they
// are, and with lengths and hashes that fit.
#include <velmor/velmor.h>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "../allocations.h"
#include "input.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <type_traits>

namespace velmor::test {
namespace {

using Bytes = std::vector<std::byte>;

constexpr std::size_t kSizeAt = 16;
constexpr std::size_t kHeadSize = 72;

void Rehash(std::byte* state, std::uint64_t size) {
  const std::uint64_t hash = XXH64(state, size - sizeof(size), 0);
  std::memcpy(state + (size - sizeof(hash)), &hash, sizeof(hash));
}

// Makes the hashes fit of all states within the bytes, and then of the whole.
void Repair(Bytes& bytes) {
  constexpr unsigned char kMagic[] = {0x89, 'V', 'E', 'L', 'M', 'O', 'R', '\n'};
  const auto isSame = [](std::byte a, unsigned char b) { return a == std::byte{b}; };
  for (auto i = bytes.begin() + kHeadSize; i != bytes.end(); ++i) {
    i = std::search(i, bytes.end(), std::begin(kMagic), std::end(kMagic), isSame);
    const auto left = static_cast<std::uint64_t>(bytes.end() - i);
    if (left <= kHeadSize) {
      break;
    }
    std::uint64_t size = 0;
    std::memcpy(&size, &*i + kSizeAt, sizeof(size));
    if (kHeadSize <= size && size <= left) {
      Rehash(&*i, size);
    }
  }
  const std::uint64_t size = bytes.size();
  std::memcpy(&bytes[kSizeAt], &size, sizeof(size));
  Rehash(bytes.data(), size);
}

template <class Type>
std::optional<Type> LoadIfAny(const Bytes& bytes) {
  std::optional<Type> summary;
  const std::size_t before = allocations.bytes;
  try {
    summary = Type::Load(bytes);
  } catch (const StateError&) {  // NOLINT(bugprone-empty-catch): they are none
  }
  // A column of no name has 12 bytes; here it takes a string and a vector, more than once. A group
  // that is known and has no rows has 16, and takes room for its blocks.
  constexpr std::size_t kMost = std::is_same_v<Type, Summary> ? 40 : 400;
  Require(allocations.bytes - before <= kMost * bytes.size() + 4000,
          "too much memory for a summary of this size");
  Require(!summary || summary->Save() == bytes,
          "a summary has other bytes than it was loaded from");
  return summary;
}

void Read(const Summary& summary) {
  const std::size_t columns = summary.MatrixColumns();
  std::vector<double> entries(summary.MatrixRows() * columns);
  std::vector<std::uint64_t> rows(entries.size());
  summary.CrossProducts(entries.data(), columns);
  summary.Covariances(entries.data(), columns);
  summary.PairWeightSums(entries.data(), columns);
  summary.PairRows(rows.data(), columns);
  summary.Correlations(entries.data(), columns);
  Require(std::none_of(entries.begin(), entries.end(), [](double r) { return std::abs(r) > 1.; }),
          "a correlation beyond 1");
}

void Read(const GroupSummary& summary) {
  const std::size_t columns = summary.Definition().columns.size();
  std::vector<double> entries(columns * columns);
  for (std::size_t group = 0; group < summary.NGroups(); ++group) {
    summary.Covariances(group, entries.data(), columns);
    Require(summary.Column(group, 0).rows == summary.GroupRows(group), "rows of a group");
  }
  summary.TotalProducts(entries.data(), columns);
  summary.Mean(0);
}

constexpr double kNumbers[] = {1., 0.5, 2., 0.1, 7., 3.};

template <class Definition>
TableView TableFor(const Definition& definition) {
  TableView table;
  table.rows = std::size(kNumbers);
  table.values.resize(definition.columns.size(), ColumnView(kNumbers));
  if (definition.hasWeights) {
    table.weights.emplace(kNumbers);
  }
  if constexpr (requires { definition.hasRegWeights; }) {
    if (definition.hasRegWeights) {
      table.regWeights.emplace(kNumbers);
    }
  }
  return table;
}

void Update(Summary& summary) { summary.Update(TableFor(summary.Definition()), {1, {}}); }

void Update(GroupSummary& summary) {
  static constexpr std::int8_t kGroups[] = {0, 1, 1, 0, 2, 1};
  const GroupView groups{ColumnView(kGroups), {"a", "b", "c"}};
  try {
    summary.Update(TableFor(summary.Definition()), groups, {1, {}});
  } catch (const std::invalid_argument&) {  // NOLINT(bugprone-empty-catch): no known groups
  }
}

template <class Type>
void Use(const Bytes& bytes) {
  constexpr std::size_t kMostColumns = 40;
  std::optional<Type> summary = LoadIfAny<Type>(bytes);
  if (!summary || summary->Definition().columns.size() > kMostColumns) {
    return;
  }
  Read(*summary);
  try {
    Update(*summary);
    summary->Merge(*summary);
    Update(*summary);
    *summary = Type::MergeAll({&*summary, &*summary, &*summary});
  } catch (const std::length_error&) {  // NOLINT(bugprone-empty-catch): it has too many rows
  }
  Read(*summary);
  Require(Type::Load(summary->Save()).Save() == summary->Copy().Save(),
          "what became of a summary is not loaded");
}

}  // namespace
}  // namespace velmor::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t size) {
  using namespace velmor::test;  // NOLINT(google-build-using-namespace)
  Bytes bytes(size);
  std::transform(input, input + size, bytes.begin(), [](auto byte) { return std::byte{byte}; });
  Use<velmor::Summary>(bytes);
  Use<velmor::GroupSummary>(bytes);
  if (size >= kHeadSize) {
    Repair(bytes);
    Use<velmor::Summary>(bytes);
    Use<velmor::GroupSummary>(bytes);
  }
  return 0;
}
