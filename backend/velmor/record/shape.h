#pragma once

// What an accumulator is, apart from what it holds: what has to agree between two of them before
// they can be merged.

#include <array>
#include <cmath>
#include <cstdint>
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

struct Shape {
  Kind kind{};
  // Of the discriminant kinds {groups, variables, 0}, both 0 while not known. Of the others the
  // block's {Col0, Col1, Col2}, a whole matrix being a block that begins at column 0; Col2 is 0
  // while not known.
  std::array<std::int32_t, 3> bounds{};
  double missingCode = 0.;  // of the pairwise kinds
  bool hasCases = false;
  bool hasRegWeights = false;  // known once there are cases

  bool IsPairwise() const {
    return kind == Kind::SMatrixPairwise || kind == Kind::NSMatrixPairwise ||
           kind == Kind::MatrixPairwise;
  }
  bool IsByGroup() const {
    return kind == Kind::DiscriminantMatrix || kind == Kind::DiscIndividualMatrix;
  }
  // Whether the bounds are not known yet.
  bool IsOpen() const { return IsByGroup() ? bounds[0] == 0 && bounds[1] == 0 : bounds[2] == 0; }
  // Whether there are batches that an accumulator of this shape takes, as far as can be said.
  bool IsPossible() const;
  // Columns of the block, or variables; 0 while not known.
  std::int64_t Columns() const;

  // How many cases an accumulator of this kind can count.
  std::uint64_t MostRows() const;
};

// Whether two missing codes mark the same values.
inline bool IsSameCode(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }

// What keeps accumulators of these shapes from being merged, such as "columns 0 to 3, not 0 to 4":
// a's, not b's. Empty when nothing does.
std::string Difference(const Shape& a, const Shape& b);

// The shape of accumulators of both of these: b's, where a leaves it open. They do not differ.
Shape Joined(Shape a, const Shape& b);

}  // namespace velmor
