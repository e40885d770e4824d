// How near does the merge of two accumulators come to the bandwidth of the memory it goes through?
#include "bench.h"

void bench::Register() {
  constexpr unsigned kColumns = 960;
  RegisterBandwidth(Triangle(kColumns));
  ForEachEngine("Merge/p:960",
                [cases = std::make_shared<Cases>(kColumns)](benchmark::State& state) {
                  velmor::SMatrixListwise a;
                  velmor::SMatrixListwise b;
                  for (velmor::SMatrixListwise* const side : {&a, &b}) {
                    *side += cases->Refilled();
                  }
                  Time(
                      state, static_cast<double>(Triangle(kColumns)), [] {}, [&] { a += b; });
                });
}
