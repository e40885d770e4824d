// Fuzzes Summary::Load: bytes are refused with a StateError, or make a summary that has just these
// bytes and can be updated, merged, copied and read. They are tried as they are, and with lengths
// and hashes that fit.
#include <velmor/velmor.h>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "../allocations.h"
#include "input.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <stdexcept>

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

std::optional<Summary> LoadIfAny(const Bytes& bytes) {
  std::optional<Summary> summary;
  const std::size_t before = allocations.bytes;
  try {
    summary = Summary::Load(bytes);
  } catch (const StateError&) {  // NOLINT(bugprone-empty-catch): they are none
  }
  // A column of no name has 12 bytes; here it takes a string and a vector, more than once.
  Require(allocations.bytes - before <= 40 * bytes.size() + 4000,
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

void Update(Summary& summary) {
  const std::vector<double> numbers{1., 0.5, 2., 0.1, 7., 3.};
  TableView table;
  table.rows = numbers.size();
  table.values.resize(summary.Definition().columns.size(), ColumnView(numbers.data()));
  if (summary.Definition().hasWeights) {
    table.weights.emplace(numbers.data());
  }
  if (summary.Definition().hasRegWeights) {
    table.regWeights.emplace(numbers.data());
  }
  summary.Update(table, {1, {}});
}

void Use(const Bytes& bytes) {
  constexpr std::size_t kMostColumns = 40;
  std::optional<Summary> summary = LoadIfAny(bytes);
  if (!summary || summary->Definition().columns.size() > kMostColumns) {
    return;
  }
  Read(*summary);
  try {
    Update(*summary);
    summary->Merge(*summary);
    Update(*summary);
    *summary = Summary::MergeAll({&*summary, &*summary, &*summary});
  } catch (const std::length_error&) {  // NOLINT(bugprone-empty-catch): it has too many rows
  }
  Read(*summary);
  Require(Summary::Load(summary->Save()).Save() == summary->Copy().Save(),
          "what became of a summary is not loaded");
}

}  // namespace
}  // namespace velmor::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t size) {
  using namespace velmor::test;  // NOLINT(google-build-using-namespace)
  Bytes bytes(size);
  std::transform(input, input + size, bytes.begin(), [](auto byte) { return std::byte{byte}; });
  Use(bytes);
  if (size >= kHeadSize) {
    Repair(bytes);
    Use(bytes);
  }
  return 0;
}
