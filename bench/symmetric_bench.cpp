// How near does SMatrixListwise come to what the core can do, from few columns to many?
#include "bench.h"

#include "../tests/definition.h"

void bench::Register() {
  RegisterLimits();
  for (const unsigned p : {4U, 12U, 48U, 240U, 960U}) {
    const auto cases = std::make_shared<Cases>(p);
    RegisterSymmetric(p, cases);
    RegisterTimed("SMatrixListwise/p:" + std::to_string(p) + "/plain",
                  Accumulating(cases, Triangle(p),
                               [p] { return velmor::test::Define(velmor::SMatrixListwise(), p); }));
  }
}
