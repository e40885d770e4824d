// What does SMatrixPairwise cost with nothing missing, and where values are missing?
#include "bench.h"

#include "../tests/definition.h"

void bench::Register() {
  static constexpr struct {
    const char* name;
    Cases::GapsOf gapsOf;
  } kPatterns[] = {
      {"complete", [](unsigned) { return Cases::kNoGaps; }},
      {"everywhere", [](unsigned column) { return column; }},
      {"third", [](unsigned column) { return column % 3 == 0 ? column : Cases::kNoGaps; }},
      {"blocks", [](unsigned column) { return column / 8 * 8; }},
  };
  RegisterLimits();
  for (const unsigned p : {48U, 240U}) {
    RegisterSymmetric(p, std::make_shared<Cases>(p));
    for (const auto& pattern : kPatterns) {
      const bool isComplete = &pattern == kPatterns;
      // Complete, a row enters the same cells as a listwise block's; otherwise pairs are counted.
      const std::size_t cells = Triangle(isComplete ? p : p - 1);
      const auto cases = std::make_shared<Cases>(p, pattern.gapsOf);
      const std::string name = "SMatrixPairwise/p:" + std::to_string(p) + '/' + pattern.name;
      ForEachEngine(name,
                    Accumulating(cases, cells, [] { return velmor::SMatrixPairwise(kMissing); }));
      RegisterTimed(name + "/plain", Accumulating(cases, cells, [p] {
                      return velmor::test::Define(velmor::SMatrixPairwise(kMissing), p);
                    }));
    }
  }
}
