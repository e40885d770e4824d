#pragma once

// What an accumulator is, apart from what it holds: what has to agree between two of them before
// they can be merged.

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

namespace velmor {

// The numbers stand in saved states, so they never change.
enum class Kind : std::uint16_t {
  SMatrixListwise = 1,
  NSMatrixListwise = 2,
  MatrixListwise = 3,
  SMatrixPairwise = 4,
  NSMatrixPairwise = 5,
  MatrixPairwise = 6,
  DiscriminantMatrix = 7,
  DiscIndividualMatrix = 8
};

enum class Family { Listwise, Pairwise, ByGroup };

// Which batch columns an accumulator has.
enum class Ranges {
  All,              // every one of its first batch
  One,              // those from one to another; all where it is not told
  OneFromAnywhere,  // the same, and where it is told only the first, the others from there on
  Two,              // two adjacent ranges, neither of them empty
  TwoOrOne,         // two adjacent ranges, of which one can be empty
  Groups            // as many as it has variables
};

// What is known of an accumulator by its kind.
struct KindFacts {
  const char* name;
  Family family;
  Ranges ranges;
  std::uint64_t mostRows;  // cases that it can count
};

// One of the eight kinds' facts.
inline const KindFacts& FactsOf(Kind kind) {
  using std::numeric_limits;
  // The blocks of pairs count as their public records do, in an int.
  static constexpr std::uint64_t kMostOfPairs = numeric_limits<std::int32_t>::max();
  static constexpr std::uint64_t kMostOfBlocks = numeric_limits<std::uint32_t>::max();
  static constexpr std::uint64_t kMostOfAll = numeric_limits<std::uint64_t>::max();
  static constexpr std::array<KindFacts, 8> kFacts{{
      {"SMatrixListwise", Family::Listwise, Ranges::One, kMostOfBlocks},
      {"NSMatrixListwise", Family::Listwise, Ranges::Two, kMostOfBlocks},
      {"MatrixListwise", Family::Listwise, Ranges::All, kMostOfAll},
      {"SMatrixPairwise", Family::Pairwise, Ranges::OneFromAnywhere, kMostOfPairs},
      {"NSMatrixPairwise", Family::Pairwise, Ranges::TwoOrOne, kMostOfPairs},
      {"MatrixPairwise", Family::Pairwise, Ranges::All, kMostOfAll},
      {"DiscriminantMatrix", Family::ByGroup, Ranges::Groups, kMostOfBlocks},
      {"DiscIndividualMatrix", Family::ByGroup, Ranges::Groups, kMostOfBlocks},
  }};
  return kFacts.at(static_cast<std::size_t>(kind) - 1);
}

struct Shape {
  Kind kind{};
  // Of the discriminant kinds {groups, variables, 0}, both 0 while not known. Of the others the
  // block's {Col0, Col1, Col2}, a whole matrix being a block that begins at column 0; Col2 is 0
  // while not known.
  std::array<std::int32_t, 3> bounds{};
  double missingCode = 0.;  // of the pairwise kinds
  bool hasCases = false;
  bool hasRegWeights = false;  // known once there are cases

  const KindFacts& Facts() const { return FactsOf(kind); }
  bool IsPairwise() const { return Facts().family == Family::Pairwise; }
  bool IsByGroup() const { return Facts().family == Family::ByGroup; }
  // Whether the bounds are not known yet.
  bool IsOpen() const { return IsByGroup() ? bounds[0] == 0 && bounds[1] == 0 : bounds[2] == 0; }
  // Whether there are batches that an accumulator of this shape takes, as far as can be said.
  bool IsPossible() const;
  // Columns of the block, or variables; 0 while not known.
  std::int64_t Columns() const;
};

// Whether two missing codes mark the same values.
inline bool IsSameCode(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }

// What keeps accumulators of these shapes from being merged, such as "columns 0 to 3, not 0 to 4":
// a's, not b's. Empty when nothing does.
std::string Difference(const Shape& a, const Shape& b);

// The shape of accumulators of both of these: b's, where a leaves it open. They do not differ.
Shape Joined(Shape a, const Shape& b);

}  // namespace velmor
