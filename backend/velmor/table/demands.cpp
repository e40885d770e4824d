// demands.cpp: what a batch asks of a table's values.
#include "table/demands.h"

#include "ordered/fill.h"

#include <limits>

namespace velmor {

void Demands::MarkUnfit(const ColumnView& column, Role role, std::size_t rows, const double* values,
                        std::uint64_t* bits) const {
  if (role == Role::Group) {
    const auto bound = static_cast<double>(groupBound);
    for (std::size_t i = 0; i < rows; ++i) {
      const double x = values[i];
      const bool isGroup = 0. <= x && x < bound && static_cast<unsigned int>(x) == x;
      bits[i / 64] |= std::uint64_t{isGroup ? 0U : 1U} << i % 64;
    }
  } else if (IsOf64BitIntegers(column)) {
    ordered::MarkEqual(values, rows, std::numeric_limits<double>::quiet_NaN(), bits);
  }
  if (role == Role::CodedValue && CodeIsNumber()) {
    ordered::MarkEqual(values, rows, *missingCode, bits);
  }
}

std::string Demands::Refusal(const ColumnView& column, Role role, std::uint64_t row) const {
  double value = 0.;
  std::uint64_t isAbsent = 0;
  std::uint64_t isUnfit = 0;
  ReadColumns({&column, 1}, {row, 1}, {&value, 0, 1});
  MarkAbsent(column, {row, 1}, &value, &isAbsent);
  MarkUnfit(column, role, 1, &value, &isUnfit);
  if (isAbsent != 0) {
    return role == Role::CodedValue && !CodeIsNumber()
               ? "the value is absent, and a missing code that is not a number marks nothing; "
                 "choose a number that no value has"
               : "";
  }
  if (isUnfit == 0) {
    return "";
  }
  const std::string text = Text(column, row);
  if (role == Role::Group) {
    return text + " is no group number; groups are whole numbers below " +
           std::to_string(groupBound);
  }
  if (std::isnan(value)) {
    return "no double is equal to " + text +
           "; mark the value absent, or make the column one of doubles, which rounds it";
  }
  return "the value " + text + " equals the missing code; choose a code that no value has";
}

}  // namespace velmor
