// avx2.cpp: vectors of four doubles in 16 registers.
#if !defined(__AVX2__) || !defined(__POPCNT__)
#error "to be compiled with -mavx2 -mpopcnt"
#endif

#include "ordered/kernels/makeengine.h"
#include "ordered/kernels/sets.h"

namespace velmor::ordered {
namespace {

struct Avx2 {
  static constexpr const char* kName = "avx2";
  static constexpr unsigned kLanes = 4;
  static constexpr unsigned kPanel = 4;
  // Of 16 registers the 4 by 2 sums take eight; three panels leave one too few for the operands.
  // Zen 5, 10^9 cells a second in tiles of one, two and three panels: 24.6, 30.7, 31.7.
  static constexpr unsigned kTilePanels = 2;
  // Narrower vectors do the same work on a panel as wide as a register: by reasoning.
  static constexpr unsigned kDiagonalLanes = 4;
  // Zen 5, 10^9 values a second with one to four panels: moments 6.2, 9.0, 9.3, 9.5, sums 7.4,
  // 11.7, 12.6, 13.2.
  static constexpr unsigned kMomentPanels = 3;
  // Zen 5, 10^9 pairs a second with one to four panels: sums 5.1, 6.0, 6.5, 5.2, products 4.1, 4.1,
  // 4.0, 4.1.
  static constexpr unsigned kPairPanels = 2;
  static constexpr unsigned kFewColumns = 0;
  // As with AVX-512; of 16 registers the moments take six and turning four.
  static constexpr unsigned kColumnsAbreast = 2;
  // As many as fit: of 16 registers the sums take nine, the distances four.
  static constexpr unsigned kTileAbreast = 3;
  // As many as nearly fit, with 5 vectors each.
  static constexpr unsigned kPairsAbreast = 2;
  // Zen 5, blocks of 504 rows, side by side as a multiple of one by one, listwise with weights: 1.9
  // with 4 columns, 1.6 with 12, 1.2 with 48 and with 96; pairwise, a tenth missing: 1.7, 1.5, 1.3
  // and 1.2.
  static constexpr AbreastBounds kAbreast = {96, 96, 49152};
  static constexpr bool kMasksAdditions = false;
  static constexpr bool kFoldsBroadcasts = false;
};

}  // namespace

constinit const Engine kAvx2 = MakeEngine<Avx2>();

}  // namespace velmor::ordered
