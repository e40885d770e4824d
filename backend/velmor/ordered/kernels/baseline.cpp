// baseline.cpp: vectors of two doubles, which every processor we build for has: SSE2, NEON.
#include "ordered/kernels/makeengine.h"
#include "ordered/kernels/sets.h"

namespace velmor::ordered {
namespace {

struct Baseline {
  static constexpr const char* kName = "baseline";
  static constexpr unsigned kLanes = 2;
  static constexpr unsigned kPanel = 4;
  // Zen 5, 10^9 cells a second: 11.2 in a tile of one panel, 10.8 of two.
  static constexpr unsigned kTilePanels = 1;
  // Zen 5, 10^9 wanted cells a second: 8.6, without narrower vectors 7.1.
  static constexpr unsigned kDiagonalLanes = 2;
  // Zen 5, 10^9 values a second with one to four panels: moments 4.5, 4.4, 4.9, 5.1, sums 5.1, 6.4,
  // 6.3, 5.4.
  static constexpr unsigned kMomentPanels = 2;
  // Zen 5, 10^9 pairs a second with one to four panels: sums 2.8, 2.6, 2.9, 3.1, products 1.9, 1.8,
  // 1.8, 1.8.
  static constexpr unsigned kPairPanels = 1;
  static constexpr unsigned kFewColumns = 0;
  // As with AVX2, whose registers are as many, the next two as well.
  static constexpr unsigned kColumnsAbreast = 2;
  static constexpr unsigned kTileAbreast = 3;
  static constexpr unsigned kPairsAbreast = 2;
  // Zen 5, blocks of 504 rows, side by side as a multiple of one by one, listwise with weights: 1.6
  // with 4 and with 12 columns, 1.4 with 48 and with 96; pairwise, a tenth missing: 1.02 to 1.08.
  static constexpr AbreastBounds kAbreast = {96, 96, 49152};
  static constexpr bool kMasksAdditions = false;
  static constexpr bool kFoldsBroadcasts = false;
};

}  // namespace

constinit const Engine kBaseline = MakeEngine<Baseline>();

}  // namespace velmor::ordered
