#pragma once

// The cases of a CSV file in memory, a part of the file at a time, so that a file of any size takes
// no more memory than a window. What a host of velmor does that accumulates tables.

#include <velmor/tableview.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "cases.h"
#include "csv.h"

namespace csv {

// Some cases that stand one after the other in a file: a row for each record, used or not.
class Window {
 public:
  // Memory: mostRows rows of the columns, taken up as they are filled.
  //   columns  what a case is made of; they must outlive the window
  Window(const CaseColumns& columns, std::uint64_t mostRows);

  // Replaces the cases by the file's next ones, as many as there is room for, and parses them on
  // several threads, as many as velmor::Driver makes of the number. Returns their counts.
  // Throws Error about the first record of them that has an error.
  CaseCounts Read(Reader& file, Progress& progress, int threads);

  // The rows, with the columns' weights. A record that is not used has no value, nor a weight.
  velmor::TableView View() const;

 private:
  class Filling;
  class Part;

  double* Row(std::uint64_t row) { return _numbers.get() + row * _width; }
  void Set(std::uint64_t row, const Case& current);
  void Clear(std::uint64_t from, std::uint64_t to);

  const CaseColumns& _columns;
  std::uint64_t _mostRows;
  std::uint64_t _rows = 0;
  std::size_t _width;                  // numbers in a row: the values, then the weights
  std::unique_ptr<double[]> _numbers;  // row by row; NaN is what is missing
};

}  // namespace csv
