// Two processes share the work: each accumulates its blocks into a forest and sends the forest's
// state, and one of them merges. Here both are one process.
//
// Prints
//   sent: 3 nodes
//   of both: 4000 cases, and the bytes of a single run: yes
#include <velmor/accumulate.h>
#include <velmor/state.h>

#include <cstdio>
#include <utility>
#include <vector>

using Forest = velmor::BlockForest<velmor::MatrixListwise>;

constexpr std::size_t kRows = 4000;
constexpr std::size_t kBlockRows = 125;

// Accumulates rows [from, to), which begin a block.
Forest Accumulated(const std::vector<double>& column, std::size_t from, std::size_t to) {
  velmor::TableView table;
  table.rows = to - from;
  table.values.emplace_back(column.data() + from);
  velmor::AccumulateOptions options;
  options.blockRows = kBlockRows;
  options.firstBlock = from / kBlockRows;
  return velmor::Accumulate(table, velmor::MatrixListwise(), options);
}

int main() {
  std::vector<double> column(kRows);
  for (std::size_t i = 0; i < kRows; ++i) {
    column[i] = 1. / static_cast<double>(i + 1);
  }
  constexpr std::size_t kSplit = 14 * kBlockRows;

  // On one machine:
  const Forest first = Accumulated(column, 0, kSplit);
  const std::vector<std::byte> sent = velmor::Save(first);
  std::printf("sent: %d nodes\n", static_cast<int>(first.NNodes()));

  // On another. The bytes need not be trusted: Load throws StateError if they are no state.
  Forest both = Accumulated(column, kSplit, kRows);
  both.Merge(std::move(*velmor::Load<Forest>(sent)));
  const auto result = both.Result();
  const auto single = Accumulated(column, 0, kRows).Result();
  std::printf("of both: %d cases, and the bytes of a single run: %s\n",
              static_cast<int>(result->NRows()),
              velmor::Save(*result) == velmor::Save(*single) ? "yes" : "no");
}
