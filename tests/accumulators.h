#pragma once

// All accumulators over one kind of cases, for the tests of what works for each of them alike.

#include "cases.h"

#include <tuple>
#include <type_traits>

namespace velmor::test {

// Five columns with missing values, both kinds of weights and groups.
constexpr double kMissing = -999.;
constexpr unsigned int kColumns = 5;
constexpr unsigned int kGroups = 3;

// An accumulator by its constructor's arguments; bounds that it does not take are not used.
template <class Accumulator>
std::unique_ptr<Accumulator> MakeAccumulator(double missingCode, const std::vector<int>& bounds) {
  const auto make = [&bounds](auto... code) {
    if constexpr (std::is_constructible_v<Accumulator, decltype(code)..., int, int, int>) {
      return std::make_unique<Accumulator>(code..., bounds.at(0), bounds.at(1), bounds.at(2));
    } else if constexpr (std::is_constructible_v<Accumulator, decltype(code)..., int, int>) {
      return std::make_unique<Accumulator>(code..., bounds.at(0), bounds.at(1));
    } else {
      return std::make_unique<Accumulator>(code...);
    }
  };
  if constexpr (requires(const Accumulator& a) { a.MissingCode(); }) {
    return make(missingCode);
  } else {
    return make();
  }
}

// An empty accumulator of each class; MatrixBase stands for one that is known only as that.
template <class Accumulator>
std::unique_ptr<Accumulator> NewAccumulator() {
  constexpr int kLast = kColumns;
  if constexpr (std::is_same_v<Accumulator, MatrixBase>) {
    return NewAccumulator<SMatrixPairwise>();
  } else if constexpr (requires(const Accumulator& a) { a.NGroup(); }) {
    return MakeAccumulator<Accumulator>(kMissing, {kGroups, kLast});
  } else if constexpr (std::is_same_v<Accumulator, SMatrixListwise>) {
    return MakeAccumulator<Accumulator>(kMissing, {0, 0});  // all columns
  } else if constexpr (std::is_same_v<Accumulator, NSMatrixListwise>) {
    return MakeAccumulator<Accumulator>(kMissing, {1, 3, kLast});
  } else if constexpr (std::is_same_v<Accumulator, SMatrixPairwise>) {
    return MakeAccumulator<Accumulator>(kMissing, {1, kLast});
  } else {
    return MakeAccumulator<Accumulator>(kMissing, {0, 2, kLast});
  }
}

template <class Accumulator>
constexpr bool kIsPairwise =
    std::is_same_v<Accumulator, MatrixBase> || std::is_same_v<Accumulator, MatrixPairwise> ||
    std::is_same_v<Accumulator, SMatrixPairwise> || std::is_same_v<Accumulator, NSMatrixPairwise>;

constexpr std::uint32_t kWeightlessSeed = 4;

// Cases made with integers only, so that they are the same everywhere; columns of very different
// size, so that the order in which they are added up shows. With every ninth seed they weigh
// nothing.
inline Cases MixedCases(std::size_t rows, std::uint32_t seed = 1) {
  std::mt19937 random(seed);
  const auto draw = [&random](std::uint32_t n) { return static_cast<double>(random() % n); };
  Cases cases;
  for (std::size_t i = 0; i < rows; ++i) {
    std::vector<double> row{draw(1000) / 7., 1e6 + draw(100) / 3., draw(10) * 1e-5,
                            -draw(999) / 11., draw(2)};
    for (double& value : row) {
      value = random() % 8 == 0 ? kMissing : value;
    }
    cases.rows.push_back(row);
    cases.weights.push_back(seed % 9 == kWeightlessSeed ? 0. : 1. + draw(30) / 7.);
    cases.regWeights.push_back(0.1 + draw(10) / 9.);
    cases.groups.push_back(static_cast<unsigned int>(random() % kGroups));
  }
  return cases;
}

// The cases that the accumulator takes: all, or the complete ones.
template <class Accumulator>
Cases CasesFor(const Cases& all) {
  Cases cases;
  for (std::size_t i = 0; i < all.rows.size(); ++i) {
    const auto& row = all.rows[i];
    if (kIsPairwise<Accumulator> || std::count(row.begin(), row.end(), kMissing) == 0) {
      cases.rows.push_back(row);
      cases.weights.push_back(all.weights[i]);
      cases.regWeights.push_back(all.regWeights[i]);
      cases.groups.push_back(all.groups[i]);
    }
  }
  return cases;
}

// A batch, of the kind that the accumulator takes, of cases that it takes.
template <class Accumulator>
auto BatchFor(const Cases& cases) {
  if constexpr (std::is_same_v<Accumulator, DiscIndividualMatrix>) {
    return GroupedBatch(cases, kColumns, kGroups);
  } else {
    return Batch(cases, kColumns);
  }
}

template <class Accumulator>
std::unique_ptr<Accumulator> Accumulated(const Cases& cases) {
  std::unique_ptr<Accumulator> accumulator = NewAccumulator<Accumulator>();
  *accumulator += *BatchFor<Accumulator>(CasesFor<Accumulator>(cases));
  return accumulator;
}

// In the order of their numbers.
template <class... More>
using ClassesAnd =
    std::tuple<SMatrixListwise, NSMatrixListwise, MatrixListwise, SMatrixPairwise, NSMatrixPairwise,
               MatrixPairwise, DiscriminantMatrix, DiscIndividualMatrix, More...>;
using Classes = ClassesAnd<>;
using Accumulators = ClassesAnd<MatrixBase>;

}  // namespace velmor::test
