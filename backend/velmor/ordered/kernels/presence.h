#pragma once

// Which values are present, as bits. Contract: contract.h.

#include "ordered/kernels/contract.h"
#include "ordered/kernels/vectors.h"

namespace velmor::ordered {

template <class Set>
std::size_t Presence(const double* x, std::size_t rows, double missingCode, std::uint64_t* bits) {
  std::size_t present = 0;
  for (std::size_t first = 0; first < rows; first += 64) {
    const std::size_t count = rows - first < 64 ? rows - first : 64;
    // Most columns lack nothing, which is found faster than where they lack something.
    std::uint64_t absent = 0;
    for (std::size_t i = 0; i < count; ++i) {
      absent += x[first + i] == missingCode ? 1 : 0;
    }
    std::uint64_t word = count == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << count) - 1;
    if (absent != 0) {
      word = 0;
      for (std::size_t i = 0; i < count; ++i) {
        word |= std::uint64_t{x[first + i] != missingCode} << i;
      }
    }
    *bits++ = word;
    present += count - absent;
  }
  return present;
}

// Marks where is(some values) holds.
template <class Set, class Is>
[[gnu::always_inline]] inline void MarkWhere(const double* x, std::size_t rows, Is is,
                                             std::uint64_t* bits) {
  constexpr unsigned kLanes = Set::kLanes;
  Mask<Set> first;
  for (unsigned lane = 0; lane < kLanes; ++lane) {
    first[lane] = std::int64_t{1} << lane;
  }
  for (std::size_t from = 0; from < rows; from += 64, x += 64) {
    const std::size_t count = rows - from < 64 ? rows - from : 64;
    const std::size_t whole = count - count % kLanes;
    Mask<Set> places = first;
    Mask<Set> marked{};
    for (std::size_t i = 0; i < whole; i += kLanes, places <<= kLanes) {
      marked |= is(LoadVector<Set>(x + i)) & places;
    }
    std::uint64_t word = 0;
    for (unsigned lane = 0; lane < kLanes; ++lane) {
      word |= static_cast<std::uint64_t>(marked[lane]);
    }
    for (std::size_t i = whole; i < count; ++i) {
      word |= std::uint64_t{is(Broadcast<Set>(x[i]))[0] != 0} << i;
    }
    *bits++ |= word;
  }
}

template <class Set>
void MarkEqual(const double* x, std::size_t rows, double value, std::uint64_t* bits) {
  const Vector<Set> wanted = Broadcast<Set>(value);
  const auto isEqual = [wanted](Vector<Set> some) { return some == wanted; };
  const auto isNaN = [](Vector<Set> some) {
    return some != some;  // NOLINT(misc-redundant-expression): so only where it is no number
  };
  if (value == value) {
    MarkWhere<Set>(x, rows, isEqual, bits);
  } else {
    MarkWhere<Set>(x, rows, isNaN, bits);
  }
}

template <class Set>
std::size_t CountBoth(const std::uint64_t* a, const std::uint64_t* b, std::size_t words) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < words; ++i) {
    count += static_cast<std::size_t>(__builtin_popcountll(a[i] & b[i]));
  }
  return count;
}

// Which of two equal extremes came first shows only in a zero's sign. An extreme is the value of
// some row, so a zero is found; where zeros are absent, no extreme is one.
template <class Set>
double FirstOfEqual(const double* x, double extreme) {
  if (extreme != 0.) {
    return extreme;
  }
  while (*x != 0.) {
    ++x;
  }
  return *x;
}

template <class Set>
void PresentExtremes(const double* x, std::size_t rows, double missingCode, double* min,
                     double* max) {
  constexpr unsigned kLanes = Set::kLanes;
  const std::size_t whole = rows - rows % kLanes;
  // A lane has every kLanes-th row here: unlike a sum, an extreme does not depend on the order.
  const Vector<Set> missing = Broadcast<Set>(missingCode);
  Vector<Set> lows = Broadcast<Set>(*min);
  Vector<Set> highs = Broadcast<Set>(*max);
  for (std::size_t row = 0; row < whole; row += kLanes) {
    const Vector<Set> values = LoadVector<Set>(x + row);
    const Vector<Set> low = values != missing ? values : lows;
    const Vector<Set> high = values != missing ? values : highs;
    lows = low < lows ? low : lows;
    highs = high > highs ? high : highs;
  }
  double lowest = *min;
  double highest = *max;
  const auto take = [&](double low, double high) {
    lowest = low < lowest ? low : lowest;
    highest = high > highest ? high : highest;
  };
  for (unsigned lane = 0; lane < kLanes; ++lane) {
    take(lows[lane], highs[lane]);
  }
  for (std::size_t row = whole; row < rows; ++row) {
    if (x[row] != missingCode) {
      take(x[row], x[row]);
    }
  }
  *min = FirstOfEqual<Set>(x, lowest);
  *max = FirstOfEqual<Set>(x, highest);
}

}  // namespace velmor::ordered
