// stateof.cpp: an accumulator that is known only as a MatrixBase; each call goes to its own class.
#include "record/stateof.h"

#include <velmor/DiscriminantMatrix.h>
#include <velmor/DscIndividualMatrix.h>
#include <velmor/nsmatrixlistwise.h>
#include <velmor/nsmatrixpairwise.h>
#include <velmor/smatrixlistwise.h>
#include <velmor/smatrixpairwise.h>

#include <stdexcept>

namespace velmor {

namespace {

template <class... Accumulators>
struct Classes {
  // Calls use with the accumulator as what it is.
  template <class Use>
  static void With(const MatrixBase& accumulator, Use use) {
    const auto tryClass = [&](const auto* same) { return same != nullptr && (use(*same), true); };
    if (!(tryClass(dynamic_cast<const Accumulators*>(&accumulator)) || ...)) {
      throw std::invalid_argument("an accumulator of a class that is not the library's");
    }
  }
  // Takes what make returns for the class of that kind, make being a template over the class; null
  // when the kind is none of them.
  template <class Make>
  static std::unique_ptr<MatrixBase> Made(Kind kind, Make make) {
    std::unique_ptr<MatrixBase> made;
    static_cast<void>(((StateOf<Accumulators>::Is(kind) &&
                        (made = make.template operator()<Accumulators>(), true)) ||
                       ...));
    return made;
  }
  static bool Have(Kind kind) { return (StateOf<Accumulators>::Is(kind) || ...); }
};

using Heirs = Classes<SMatrixListwise, NSMatrixListwise, SMatrixPairwise, NSMatrixPairwise,
                      DiscriminantMatrix, DiscIndividualMatrix>;

}  // namespace

bool StateOf<MatrixBase>::Is(Kind kind) { return Heirs::Have(kind); }

Shape StateOf<MatrixBase>::GetShape(const MatrixBase& accumulator) {
  Shape shape;
  Heirs::With(accumulator,
              [&shape]<class Heir>(const Heir& heir) { shape = StateOf<Heir>::GetShape(heir); });
  return shape;
}

std::unique_ptr<MatrixBase> StateOf<MatrixBase>::Make(const Shape& shape) {
  return Heirs::Made(shape.kind, [&shape]<class Heir>() { return StateOf<Heir>::Make(shape); });
}

void StateOf<MatrixBase>::Write(const MatrixBase& accumulator, StateWriter& state) {
  Heirs::With(accumulator,
              [&state]<class Heir>(const Heir& heir) { StateOf<Heir>::Write(heir, state); });
}

std::unique_ptr<MatrixBase> StateOf<MatrixBase>::Read(const Shape& shape, StateReader& state) {
  return Heirs::Made(shape.kind, [&]<class Heir>() { return StateOf<Heir>::Read(shape, state); });
}

}  // namespace velmor
