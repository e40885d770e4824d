// avx512.cpp: vectors of eight doubles in 32 registers.
#if !defined(__AVX2__) || !defined(__POPCNT__) || !defined(__AVX512F__) || \
    !defined(__AVX512DQ__) || !defined(__AVX512BW__) || !defined(__AVX512VL__)
#error "to be compiled with -mavx2 -mpopcnt -mavx512f -mavx512dq -mavx512bw -mavx512vl"
#endif

#include "ordered/kernels/makeengine.h"
#include "ordered/kernels/sets.h"

namespace velmor::ordered {
namespace {

struct Avx512 {
  static constexpr const char* kName = "avx512";
  static constexpr unsigned kLanes = 8;
  static constexpr unsigned kPanel = 8;
  // Of 32 registers the 8 by 3 sums take 24. Zen 5, 10^9 cells a second in tiles of one, two and
  // three panels: 55, 57, 54. Zen 4: 28.5 with three (products.h).
  static constexpr unsigned kTilePanels = 3;
  // Half the work where a core takes 512 bits in two turns, as Zen 4: by reasoning. Zen 5, which
  // does not, 10^9 wanted cells a second: 28.5 with four lanes, 31.4 with eight.
  static constexpr unsigned kDiagonalLanes = 4;
  // Zen 5, 10^9 values a second with one to four panels: moments 11.8, 16.5, 17.7, 14.9, sums
  // 16.2, 20.5, 22.5, 19.6.
  static constexpr unsigned kMomentPanels = 2;
  // Zen 5, 10^9 pairs a second with one to four panels: sums 9.7, 14.6, 16.1, 13.5, products 9.2,
  // 9.8, 10.1, 10.0.
  static constexpr unsigned kPairPanels = 2;
  // Up to half a panel. Cores whose 512-bit units are whole lose by taking more columns with four
  // lanes. Zen 5, 10^9 cells a second with four lanes and without: 5 columns 3.6, 4.6, 8: 7.4, 9.4,
  // 12: 9.3, 11.6; pairs with a tenth missing 0.67, 0.79, 1.1, 1.5, 1.4, 2.1. Sapphire Rapids:
  // pairwise 21 to 33 % more without, with 6 to 12 columns.
  // Zen 4, which takes 512 bits in two turns, would gain with 12 columns: 237 against 212 parts in
  // a thousand of the core's limit.
  static constexpr unsigned kFewColumns = 4;
  // Zen 5: one, two and four alike. Where an addition takes four cycles, one column waits for
  // itself.
  static constexpr unsigned kColumnsAbreast = 2;
  // Zen 5, 10^9 cells a second of 48 columns with 4 by 4, 5 by 5 and 6 by 6 columns: 19.3, 18.3,
  // 18.3.
  static constexpr unsigned kTileAbreast = 4;
  // Of 32 registers the 5 vectors of each pair take 20: by reasoning.
  static constexpr unsigned kPairsAbreast = 4;
  // Zen 5, blocks of 504 rows, side by side as a multiple of one by one, listwise with weights: 2.2
  // with 4 columns, 1.8 with 12, 1.3 with 48, 1.06 with 96, 1.0 with 128; pairwise, a tenth
  // missing: 2.1, 2.0, 1.4, 1.4 with 96.
  static constexpr AbreastBounds kAbreast = {96, 96, 49152};
  static constexpr bool kMasksAdditions = true;
  static constexpr bool kFoldsBroadcasts = true;
};

}  // namespace

// NOLINTNEXTLINE(cppcoreguidelines-interfaces-global-init): only its address is taken
constinit const Engine kAvx512 = MakeEngine<Avx512>(&kAvx2);

}  // namespace velmor::ordered
