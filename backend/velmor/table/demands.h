#pragma once

// Which of a column's values a batch can't take, and why.

#include "table/columnvalues.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace velmor {

// What a column is for. An absent value's row is left out, but where values are coded, the value is
// written as the missing code.
enum class Role { Value, CodedValue, Weight, Group };

// What a batch asks of values (BatchRows).
struct Demands {
  std::uint64_t groupBound = 0;
  std::optional<double> missingCode;

  bool CodeIsNumber() const { return !std::isnan(*missingCode); }
  // Sets the bits of the rows whose value, if it is present, can't be taken.
  //   values  of the rows, as ReadColumns gives them
  void MarkUnfit(const ColumnView& column, Role role, std::size_t rows, const double* values,
                 std::uint64_t* bits) const;
  // Says why a value is refused; nothing if it isn't.
  std::string Refusal(const ColumnView& column, Role role, std::uint64_t row) const;
};

}  // namespace velmor
