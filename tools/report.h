#pragma once

// What the example programs print and how they end: numbers, tables, errors.

#include <charconv>
#include <functional>
#include <string>
#include <vector>

namespace report {

// A number as text; `digits` are significant ones, or decimals in the fixed format. Zero has no
// sign.
std::string Format(double number, std::chars_format format, int digits);
std::string Significant(double number, int digits = 6);

// A table of texts: row names to the left, columns to the right. Where the columns don't fit side
// by side they go on below, under the row names again.
class Table {
 public:
  // Every row has as many cells as the first, and at least two.
  void AddRow(std::vector<std::string> cells);

  // The table's lines, after a blank one.
  std::string Layout() const;

 private:
  std::string Padding(const std::vector<std::string>& row, std::size_t column) const;

  std::vector<std::vector<std::string>> _rows;
  std::vector<std::size_t> _widths;
};

// Writes to standard output. Throws std::system_error when not all of it could be written.
void Print(const std::string& text);

// Runs a program's body and returns its exit status: what the body returns; or 1, after
// "program: what is wrong" on standard error, when it throws or has not been able to write to
// std::cout, as a parser of options does for --help.
int Run(const char* program, const std::function<int()>& body);

}  // namespace report
