#pragma once

// Rows that are accumulated for good.

#include <velmor/matrixbase.h>
#include <velmor/summary.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace velmor {

// Rows a part can hold. The blocks of pairs count in an int, so listwise parts end there, too.
constexpr std::uint64_t kMostPartRows = 0x7FFF'FFFF;

// Accumulators of one summary, each over the rows behind those of the one before. There is one as
// long as it can count the rows. A part begins only where the rows of two would be too many for
// one.
class Parts {
 public:
  using Accumulators = std::vector<std::unique_ptr<MatrixBase>>;

  Parts() = default;
  // Throws std::bad_alloc, like the functions below; what they are called for is then of no use.
  Parts Copy(const SummaryDefinition& definition) const;

  // Takes up what is behind. An accumulator of no rows changes nothing.
  void Append(std::unique_ptr<MatrixBase> next);
  // The same of copies of the others, one after the other.
  void Append(const Parts& others, const SummaryDefinition& definition);

  const Accumulators& All() const { return _all; }

 private:
  bool HasRoomFor(const MatrixBase& next) const;

  Accumulators _all;
};

// What is made of `count` operands in a balanced tree over their order: neighbours in twos, and
// these in twos again; one that is left over goes up as it is. Not more than log2(count) of them
// are there at a time.
//   count  at least 1
//   make   returns operand i
//   merge  (left, right) takes the right up into the left
template <class Make, class Merge>
auto BalancedTree(std::size_t count, const Make& make, const Merge& merge) {
  std::vector<decltype(make(count))> trees;  // of 2^k operands each, one for each bit of their sum
  const auto mergeLast = [&trees, &merge] {
    merge(trees[trees.size() - 2], trees.back());
    trees.pop_back();
  };
  for (std::size_t i = 0; i < count; ++i) {
    trees.push_back(make(i));
    for (std::size_t bits = i; (bits & 1U) != 0; bits >>= 1U) {
      mergeLast();
    }
  }
  while (trees.size() > 1) {
    mergeLast();
  }
  return std::move(trees.front());
}

}  // namespace velmor
