#pragma once

// What an accumulator is, apart from what it holds. It has to agree before two accumulators can be
// merged.

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
  All,              // all columns of its first batch
  One,              // a range of columns; all columns where no range is given
  OneFromAnywhere,  // a range of columns; where only its first is given, all from there on
  Two,              // two adjacent ranges; neither is empty
  TwoOrOne,         // two adjacent ranges; one can be empty
  Groups            // as many columns as it has variables
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
  // Discriminant kinds: {groups, variables, 0}, both 0 while not known. Other kinds: the block's
  // {Col0, Col1, Col2}, a whole matrix being a block that begins at column 0; Col2 is 0 while not
  // known.
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

// What keeps accumulators of these shapes from being merged, as a's, not b's: "missing code -9, not
// -99". Empty when nothing does.
std::string Difference(const Shape& a, const Shape& b);

// The shape of what is merged from accumulators of these shapes, which have no Difference: a's, and
// b's where a's is open.
Shape Joined(Shape a, const Shape& b);

}  // namespace velmor
