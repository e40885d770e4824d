// shape.cpp: which accumulators belong together; start at Difference.
#include "record/shape.h"

#include <limits>
#include <sstream>

namespace velmor {

namespace {

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
  const Ranges ranges = Facts().ranges;
  if (IsOpen()) {
    const bool isTold = ranges == Ranges::Two || ranges == Ranges::TwoOrOne;
    const bool beginsRightly = first == 0 || (ranges == Ranges::OneFromAnywhere && first > 0);
    return !hasCases && !isTold && beginsRightly && first == second && third == 0;
  }
  switch (ranges) {
    case Ranges::All:
      return first == 0 && second == 0 && third > 0 && hasCases;
    case Ranges::One:
    case Ranges::OneFromAnywhere:
      return 0 <= first && first == second && second < third;
    case Ranges::Two:
      return 0 <= first && first < second && second < third;
    case Ranges::TwoOrOne:
      return 0 <= first && first <= second && second <= third && first < third;
    case Ranges::Groups:
      return first > 0 && second > 0 && third == 0;
  }
  return false;
}

std::string Difference(const Shape& a, const Shape& b) {
  if (a.kind != b.kind) {
    return std::string("a ") + a.Facts().name + ", not a " + b.Facts().name;
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
