// report.cpp: the example programs' output; start at Table::Layout and Run.
#include "report.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <new>
#include <system_error>
#include <utility>

namespace report {
namespace {

// Characters in UTF-8 text: bytes that don't continue one.
std::size_t Length(const std::string& text) {
  const auto begins = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; };
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), begins));
}

int Fail(const char* program, const char* message) {
  std::fprintf(stderr, "%s: %s\n", program, message);
  return 1;
}

}  // namespace

std::string Format(double number, std::chars_format format, int digits) {
  char buffer[400];  // the largest double has 309 digits before the point
  const auto [end, error] =
      std::to_chars(std::begin(buffer), std::end(buffer), number, format, digits);
  const std::string text(buffer, end);
  const bool isMinusZero = text[0] == '-' && text.find_first_not_of("-0.") == std::string::npos;
  return isMinusZero ? text.substr(1) : text;
}

std::string Significant(double number, int digits) {
  return Format(number, std::chars_format::general, digits);
}

void Table::AddRow(std::vector<std::string> cells) {
  _widths.resize(cells.size());
  for (std::size_t column = 0; column < cells.size(); ++column) {
    _widths[column] = std::max(_widths[column], Length(cells[column]));
  }
  _rows.push_back(std::move(cells));
}

std::string Table::Layout() const {
  constexpr std::size_t kWidest = 100;
  constexpr std::size_t kGap = 2;
  std::string text;
  for (std::size_t from = 1, to = 1; from < _widths.size(); from = to) {
    std::size_t width = _widths[0];
    do {
      width += kGap + _widths[to++];
    } while (to < _widths.size() && width + kGap + _widths[to] <= kWidest);
    text += '\n';
    for (const std::vector<std::string>& row : _rows) {
      text += row[0] + Padding(row, 0);
      for (std::size_t column = from; column < to; ++column) {
        text += std::string(kGap, ' ') + Padding(row, column) + row[column];
      }
      text += '\n';
    }
  }
  return text;
}

std::string Table::Padding(const std::vector<std::string>& row, std::size_t column) const {
  return std::string(_widths[column] - Length(row[column]), ' ');
}

void Print(const std::string& text) {
  if (std::fputs(text.c_str(), stdout) == EOF || std::fflush(stdout) == EOF) {
    throw std::system_error(errno, std::generic_category(), "cannot write the tables");
  }
}

int Run(const char* program, const std::function<int()>& body) {
  try {
    const int status = body();
    return std::cout.flush() ? status : Fail(program, "cannot write to standard output");
  } catch (const std::bad_alloc&) {
    return Fail(program, "out of memory");
  } catch (const std::exception& error) {
    return Fail(program, error.what());
  }
}

}  // namespace report
