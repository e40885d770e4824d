// baseline.cpp: vectors of two doubles, which every processor we build for has: SSE2, NEON.
#include "ordered/kernels/makeengine.h"
#include "ordered/kernels/sets.h"

namespace velmor::ordered {
namespace {

struct Baseline {
  static constexpr const char* kName = "baseline";
  static constexpr unsigned kLanes = 2;
  static constexpr unsigned kPanel = 4;
  static constexpr unsigned kTilePanels = 1;
  static constexpr unsigned kDiagonalLanes = 2;
  static constexpr unsigned kMomentPanels = 2;
  static constexpr unsigned kPairPanels = 1;
  static constexpr unsigned kFewColumns = 0;
  static constexpr bool kMasksAdditions = false;
  static constexpr bool kFoldsBroadcasts = false;
};

}  // namespace

constinit const Engine kBaseline = MakeEngine<Baseline>();

}  // namespace velmor::ordered
