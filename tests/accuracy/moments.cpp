// Prints the library's moments of tables that it reads from standard input, for `verify`. A table
// is the number of blocks to accumulate it in, of columns, of rows, and its values row by row. A
// line of moments: the sum of the weights, the columns' means, all centred cross-products.
#include "../cases.h"

#include <velmor/summary.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <string>

int main() {
  using namespace velmor;                 // NOLINT(google-build-using-namespace)
  constexpr std::size_t kPieceRows = 17;  // no block's, and it must not matter
  std::size_t blocks = 0;
  unsigned int columns = 0;
  std::size_t rows = 0;
  while (std::cin >> blocks >> columns >> rows) {
    test::Cases cases;
    cases.rows.assign(rows, std::vector<double>(columns));
    for (auto& row : cases.rows) {
      for (double& value : row) {
        std::cin >> value;
      }
    }
    SummaryDefinition definition;
    definition.missing = MissingRule::Listwise;
    definition.blockRows = (rows + blocks - 1) / blocks;
    for (unsigned int i = 0; i < columns; ++i) {
      definition.columns.push_back({std::to_string(i), {}, false});
    }
    Summary summary(definition);
    for (std::size_t from = 0; from < rows; from += kPieceRows) {
      const test::CaseTable table(cases.Slice(from, std::min(from + kPieceRows, rows)), columns);
      summary.Update(table.View());
    }
    std::printf("%a", summary.RegWeightSum());
    for (unsigned int i = 0; i < columns; ++i) {
      std::printf(" %a", summary.Column(i).mean);
    }
    std::vector<double> products(std::size_t{columns} * columns);
    summary.CrossProducts(products.data(), columns);
    for (const double product : products) {
      std::printf(" %a", product);
    }
    std::printf("\n");
  }
}
