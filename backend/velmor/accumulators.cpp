// accumulators.cpp: from a MatrixBase to its own class, by the list of classes.
#include "accumulators.h"

#include <stdexcept>
#include <type_traits>

namespace velmor {

namespace {

// Calls visit.operator()<Heir>() for each class that derives from MatrixBase until it returns true.
// Returns whether one did.
template <class... Classes, class Visit>
bool AnyHeir(ClassList<Classes...> /*all*/, Visit visit) {
  const auto tryClass = [&]<class Class>(const Class* /*tag*/) {
    if constexpr (std::is_base_of_v<MatrixBase, Class> && !std::is_same_v<MatrixBase, Class>) {
      return visit.template operator()<Class>();
    } else {
      return false;
    }
  };
  return (tryClass(static_cast<const Classes*>(nullptr)) || ...);
}

// Calls use with the accumulator as what it is.
template <class Use>
void WithHeir(const MatrixBase& accumulator, Use use) {
  const bool wasUsed = AnyHeir(AllAccumulators(), [&]<class Heir>() {
    const auto* const heir = dynamic_cast<const Heir*>(&accumulator);
    return heir != nullptr && (use(*heir), true);
  });
  if (!wasUsed) {
    throw std::invalid_argument("an accumulator of a class that is not the library's");
  }
}

// What make.operator()<Heir>() returns for the class of that kind; null when there is none.
template <class Make>
std::unique_ptr<MatrixBase> MadeHeir(Kind kind, Make make) {
  std::unique_ptr<MatrixBase> made;
  AnyHeir(AllAccumulators(), [&]<class Heir>() {
    return StateOf<Heir>::Is(kind) && (made = make.template operator()<Heir>(), true);
  });
  return made;
}

}  // namespace

bool StateOf<MatrixBase>::Is(Kind kind) {
  return AnyHeir(AllAccumulators(), [kind]<class Heir>() { return StateOf<Heir>::Is(kind); });
}

Shape StateOf<MatrixBase>::GetShape(const MatrixBase& accumulator) {
  Shape shape;
  WithHeir(accumulator,
           [&shape]<class Heir>(const Heir& heir) { shape = StateOf<Heir>::GetShape(heir); });
  return shape;
}

std::unique_ptr<MatrixBase> StateOf<MatrixBase>::Make(const Shape& shape) {
  return MadeHeir(shape.kind, [&shape]<class Heir>() { return StateOf<Heir>::Make(shape); });
}

std::unique_ptr<MatrixBase> StateOf<MatrixBase>::Of(const Shape& shape,
                                                    const ListwiseTotals& totals) {
  return MadeHeir(shape.kind, [&]<class Heir>() { return StateOf<Heir>::Of(shape, totals); });
}

std::unique_ptr<MatrixBase> StateOf<MatrixBase>::Of(const Shape& shape,
                                                    const PairwiseTotals& totals) {
  return MadeHeir(shape.kind, [&]<class Heir>() { return StateOf<Heir>::Of(shape, totals); });
}

void StateOf<MatrixBase>::Write(const MatrixBase& accumulator, StateWriter& state) {
  WithHeir(accumulator,
           [&state]<class Heir>(const Heir& heir) { StateOf<Heir>::Write(heir, state); });
}

std::unique_ptr<MatrixBase> StateOf<MatrixBase>::Read(const Shape& shape, StateReader& state) {
  return MadeHeir(shape.kind, [&]<class Heir>() { return StateOf<Heir>::Read(shape, state); });
}

}  // namespace velmor
