#pragma once

// Vectors of doubles as the kernels see them.
//
// Everything here and in the kernels is named after the instruction set that it is compiled for,
// the Set, and no function of the standard library is called. The linker keeps one copy of a
// function that several files define, and an AVX-512 copy would then be everyone's.

#include "ordered/kernels/contract.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace velmor::ordered {

template <class Set, unsigned kLanes = Set::kLanes>
struct VectorOf {
  // Lane by lane, each rounded as a scalar is. A comparison has -1 in a lane where it holds, else
  // 0.
  using Type [[gnu::vector_size(kLanes * sizeof(double))]] = double;
  using Mask [[gnu::vector_size(kLanes * sizeof(double))]] = std::int64_t;
};

template <class Set, unsigned kLanes = Set::kLanes>
using Vector = typename VectorOf<Set, kLanes>::Type;
template <class Set>
using Mask = typename VectorOf<Set>::Mask;

// From and to anywhere among doubles.
template <class Set, unsigned kLanes = Set::kLanes>
[[gnu::always_inline]] inline Vector<Set, kLanes> LoadVector(const double* x) {
  Vector<Set, kLanes> vector;
  __builtin_memcpy(&vector, x, sizeof(vector));
  return vector;
}

template <class Set, unsigned kLanes = Set::kLanes>
[[gnu::always_inline]] inline void StoreVector(Vector<Set, kLanes> vector, double* x) {
  __builtin_memcpy(x, &vector, sizeof(vector));
}

// A mask is kept among doubles as the bits that it is.
template <class Set>
[[gnu::always_inline]] inline Mask<Set> LoadMask(const double* x) {
  return __builtin_bit_cast(Mask<Set>, LoadVector<Set>(x));
}

template <class Set>
[[gnu::always_inline]] inline void StoreMask(Mask<Set> mask, double* x) {
  StoreVector<Set>(__builtin_bit_cast(Vector<Set>, mask), x);
}

template <class Set, unsigned kLanes = Set::kLanes>
[[gnu::always_inline]] inline Vector<Set, kLanes> Broadcast(double x) {
  return x - Vector<Set, kLanes>{};  // x - 0 is x for every x, -0 too
}

// sum + term where the mask holds, the sum elsewhere. A running sum that began at +0 is never -0,
// so adding +0 leaves it as it is, to the bit: what a set without masked additions does.
template <class Set>
[[gnu::always_inline]] inline Vector<Set> AddWhere(Mask<Set> mask, Vector<Set> term,
                                                   Vector<Set> sum) {
  if constexpr (Set::kMasksAdditions) {
    return mask ? term + sum : sum;
  }
  return (mask ? term : Vector<Set>{}) + sum;
}

template <class Set>
[[gnu::always_inline]] inline bool HoldsEverywhere(Mask<Set> mask) {
  std::int64_t all = -1;
  for (unsigned lane = 0; lane < Set::kLanes; ++lane) {
    all &= mask[lane];
  }
  return all != 0;
}

template <class Set>
[[gnu::always_inline]] inline bool HoldsAnywhere(Mask<Set> mask) {
  std::int64_t any = 0;
  for (unsigned lane = 0; lane < Set::kLanes; ++lane) {
    any |= mask[lane];
  }
  return any != 0;
}

template <class Set>
[[gnu::always_inline]] inline std::size_t RowAt(Rows rows, std::size_t i) {
  return rows.list ? rows.list[i] : i;
}

// Calls call(some, p) for as many panels from p on as there are in kTogether, and call(one, p) for
// each that is left.
template <class Set, unsigned kTogether, class Take, class Call>
[[gnu::always_inline]] inline void TakePanels(unsigned count, Take some, Take one, Call call) {
  for (unsigned p = 0; p < count;) {
    const bool takesSome = count - p >= kTogether;
    call(takesSome ? some : one, std::size_t{p});
    p += takesSome ? kTogether : 1;
  }
}

// A step of a transposition: of every square of 2 * kStep lanes, cut into quarters, the two off the
// diagonal change places.
template <class Set, unsigned kStep, unsigned... kLane>
[[gnu::always_inline]] inline void ExchangeQuarters(
    Vector<Set> (&v)[Set::kLanes], std::integer_sequence<unsigned, kLane...> /*all*/) {
  constexpr unsigned kLanes = Set::kLanes;
#pragma GCC unroll 8
  for (unsigned i = 0; i < kLanes; ++i) {
    if ((i & kStep) == 0) {
      const Vector<Set> upper = v[i];
      const Vector<Set> lower = v[i + kStep];
      v[i] = __builtin_shufflevector(upper, lower,
                                     ((kLane & kStep) ? kLanes + kLane - kStep : kLane)...);
      v[i + kStep] = __builtin_shufflevector(upper, lower,
                                             ((kLane & kStep) ? kLanes + kLane : kLane + kStep)...);
    }
  }
}

// Lane j of vector i becomes lane i of vector j.
template <class Set>
[[gnu::always_inline]] inline void TransposeVectors(Vector<Set> (&v)[Set::kLanes]) {
  constexpr auto kAll = std::make_integer_sequence<unsigned, Set::kLanes>{};
  ExchangeQuarters<Set, 1>(v, kAll);
  if constexpr (Set::kLanes >= 4) {
    ExchangeQuarters<Set, 2>(v, kAll);
  }
  if constexpr (Set::kLanes >= 8) {
    ExchangeQuarters<Set, 4>(v, kAll);
  }
}

// A square of values: lane j of vector i is the value at place `at` + i of the j-th of kLanes
// arrays.
template <class Set>
[[gnu::always_inline]] inline void LoadTransposed(const double* const* from, std::size_t at,
                                                  Vector<Set> (&v)[Set::kLanes]) {
#pragma GCC unroll 8
  for (unsigned i = 0; i < Set::kLanes; ++i) {
    v[i] = LoadVector<Set>(from[i] + at);
  }
  TransposeVectors<Set>(v);
}

}  // namespace velmor::ordered
