// Prints the library's moments of tables that it reads from standard input, for `verify`. A table
// is the number of blocks to accumulate it in, of columns, of rows, and its values row by row. A
// line of moments: the sum of the weights, the columns' means, all centred cross-products.
#include "../cases.h"

#include <velmor/accumulate.h>

#include <cstdio>
#include <iostream>

int main() {
  using namespace velmor;  // NOLINT(google-build-using-namespace)
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
    const test::CaseTable table(std::move(cases), columns);
    AccumulateOptions options;
    options.blockRows = (rows + blocks - 1) / blocks;
    const auto result = Accumulate(table.View(), MatrixListwise(), options).Result();
    std::printf("%a", result->RegWeightSum());
    for (unsigned int i = 0; i < columns; ++i) {
      std::printf(" %a", result->Mean(i));
    }
    for (unsigned int cell = 0; cell < columns * columns; ++cell) {
      std::printf(" %a", result->CCP(cell / columns, cell % columns));
    }
    std::printf("\n");
  }
}
