// What does SMatrixPairwise cost with nothing missing, and where values are missing? And where a
// column begins with equal values, or consists of them?
#include "bench.h"

#include "../tests/definition.h"

#include <cmath>

void bench::Register() {
  constexpr Cases::GapsOf kEverywhere = [](unsigned column) { return column; };
  constexpr Cases::ValueOf kUniform = [](unsigned, unsigned, double uniform) { return uniform; };
  constexpr unsigned kColumn = 20;
  static constexpr struct {
    const char* name;
    Cases::GapsOf gapsOf;
    Cases::ValueOf valueOf;
  } kPatterns[] = {
      {"complete", [](unsigned) { return Cases::kNoGaps; }, kUniform},
      {"everywhere", kEverywhere, kUniform},
      {"third", [](unsigned column) { return column % 3 == 0 ? column : Cases::kNoGaps; },
       kUniform},
      {"blocks", [](unsigned column) { return column / 8 * 8; }, kUniform},
      {"constant", kEverywhere,
       [](unsigned, unsigned column, double uniform) { return column == kColumn ? .1 : uniform; }},
      {"sorted", kEverywhere,
       [](unsigned row, unsigned column, double uniform) {
         return column == kColumn ? std::floor(4. * row / kRows) : uniform;
       }},
  };
  RegisterLimits();
  for (const unsigned p : {48U, 240U}) {
    RegisterSymmetric(p, std::make_shared<Cases>(p));
    for (const auto& pattern : kPatterns) {
      const bool isComplete = &pattern == kPatterns;
      // Complete, a row enters the same cells as a listwise block's; otherwise pairs are counted.
      const std::size_t cells = Triangle(isComplete ? p : p - 1);
      const auto cases = std::make_shared<Cases>(p, pattern.gapsOf, pattern.valueOf);
      const std::string name = "SMatrixPairwise/p:" + std::to_string(p) + '/' + pattern.name;
      ForEachEngine(name,
                    Accumulating(cases, cells, [] { return velmor::SMatrixPairwise(kMissing); }));
      RegisterTimed(name + "/plain", Accumulating(cases, cells, [p] {
                      return velmor::test::Define(velmor::SMatrixPairwise(kMissing), p);
                    }));
    }
  }
}
