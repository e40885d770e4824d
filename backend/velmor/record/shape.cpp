// shape.cpp: which accumulators belong together; start at Difference.
#include "record/shape.h"

#include <limits>
#include <sstream>

namespace velmor {

namespace {

const char* NameOf(Kind kind) {
  switch (kind) {
    case Kind::SMatrixListwise:
      return "SMatrixListwise";
    case Kind::NSMatrixListwise:
      return "NSMatrixListwise";
    case Kind::MatrixListwise:
      return "MatrixListwise";
    case Kind::SMatrixPairwise:
      return "SMatrixPairwise";
    case Kind::NSMatrixPairwise:
      return "NSMatrixPairwise";
    case Kind::MatrixPairwise:
      return "MatrixPairwise";
    case Kind::DiscriminantMatrix:
      return "DiscriminantMatrix";
    case Kind::DiscIndividualMatrix:
      return "DiscIndividualMatrix";
  }
  return "no accumulator";
}

std::string BoundsText(const Shape& shape) {
  const auto& [first, second, third] = shape.bounds;
  std::ostringstream text;
  if (shape.IsByGroup()) {
    text << first << " groups and " << second << " variables";
  } else {
    text << "columns from " << first;
    if (first < second) {
      text << " and from " << second;
    }
    text << (shape.IsOpen() ? " on" : " to before " + std::to_string(third));
  }
  return text.str();
}

bool HasBoundsOf(const Shape& a, const Shape& b) {
  const bool isOpen = a.IsOpen() || b.IsOpen();
  const bool beginAlike = a.bounds[0] == b.bounds[0] && a.bounds[1] == b.bounds[1];
  return a.bounds == b.bounds || (isOpen && (a.IsByGroup() || beginAlike));
}

std::string CodeText(double code) {
  std::ostringstream text;
  text.precision(std::numeric_limits<double>::max_digits10);
  text << code;
  return text.str();
}

}  // namespace

std::int64_t Shape::Columns() const {
  return IsByGroup() ? bounds[1] : IsOpen() ? 0 : std::int64_t{bounds[2]} - bounds[0];
}

bool Shape::IsPossible() const {
  const auto& [first, second, third] = bounds;
  if (IsOpen()) {
    const bool hasRanges = kind == Kind::NSMatrixListwise || kind == Kind::NSMatrixPairwise;
    const bool beginsAnywhere = kind == Kind::SMatrixPairwise && first >= 0;
    return !hasCases && !hasRanges && first == second && third == 0 &&
           (first == 0 || beginsAnywhere);
  }
  switch (kind) {
    case Kind::SMatrixListwise:
    case Kind::SMatrixPairwise:
      return 0 <= first && first == second && second < third;
    case Kind::NSMatrixListwise:
      return 0 <= first && first < second && second < third;
    case Kind::NSMatrixPairwise:
      return 0 <= first && first <= second && second <= third && first < third;
    case Kind::MatrixListwise:
    case Kind::MatrixPairwise:
      return first == 0 && second == 0 && third > 0 && hasCases;
    case Kind::DiscriminantMatrix:
    case Kind::DiscIndividualMatrix:
      return first > 0 && second > 0 && third == 0;
  }
  return false;
}

std::uint64_t Shape::MostRows() const {
  switch (kind) {
    case Kind::MatrixListwise:
    case Kind::MatrixPairwise:
      return std::numeric_limits<std::uint64_t>::max();
    case Kind::SMatrixPairwise:
    case Kind::NSMatrixPairwise:
      return std::numeric_limits<std::int32_t>::max();  // as its records of pairs count
    default:
      return std::numeric_limits<std::uint32_t>::max();
  }
}

std::string Difference(const Shape& a, const Shape& b) {
  if (a.kind != b.kind) {
    return std::string("a ") + NameOf(a.kind) + ", not a " + NameOf(b.kind);
  }
  if (!HasBoundsOf(a, b)) {
    return BoundsText(a) + ", not " + BoundsText(b);
  }
  if (!IsSameCode(a.missingCode, b.missingCode)) {
    return "missing code " + CodeText(a.missingCode) + ", not " + CodeText(b.missingCode);
  }
  if (a.hasCases && b.hasCases && a.hasRegWeights != b.hasRegWeights) {
    return a.hasRegWeights ? "regression weights, not none" : "no regression weights, not some";
  }
  return {};
}

Shape Joined(Shape a, const Shape& b) {
  if (a.IsOpen()) {
    a.bounds = b.bounds;
  }
  a.hasCases = a.hasCases || b.hasCases;
  a.hasRegWeights = a.hasRegWeights || b.hasRegWeights;
  return a;
}

}  // namespace velmor
