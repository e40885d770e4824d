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
  static constexpr unsigned kTilePanels = 3;
  static constexpr unsigned kDiagonalLanes = 4;
  static constexpr unsigned kMomentPanels = 2;
  static constexpr unsigned kPairPanels = 2;
  // Up to one and a half panels, of which the second one's lanes would be half empty (12 columns:
  // 237 against 212 parts in a thousand of a Zen 4 core's limit).
  static constexpr unsigned kFewColumns = 12;
  static constexpr bool kMasksAdditions = true;
  static constexpr bool kFoldsBroadcasts = true;
};

}  // namespace

// NOLINTNEXTLINE(cppcoreguidelines-interfaces-global-init): only its address is taken
constinit const Engine kAvx512 = MakeEngine<Avx512>(&kAvx2);

}  // namespace velmor::ordered
