#pragma once

// Numbers of rows that a summary has been given.

#include <velmor/summary.h>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace velmor {

// Rows that a summary can be given. Sums of counts below it do not overflow.
constexpr std::uint64_t kMostRowsOfSummary = std::uint64_t{1} << 60U;

inline std::uint64_t Total(const SummaryRows& rows) {
  return rows.used + rows.withoutWeight + rows.weightless + rows.incomplete;
}

inline SummaryRows Sum(const SummaryRows& a, const SummaryRows& b) {
  return {a.used + b.used, a.withoutWeight + b.withoutWeight, a.weightless + b.weightless,
          a.incomplete + b.incomplete};
}

// Throws std::length_error when a summary of so many rows can't be given so many more.
inline void CheckRoom(std::uint64_t rows, std::uint64_t more) {
  if (rows > kMostRowsOfSummary || more > kMostRowsOfSummary - rows) {
    throw std::length_error("more rows than a summary can count, " +
                            std::to_string(kMostRowsOfSummary));
  }
}

}  // namespace velmor
