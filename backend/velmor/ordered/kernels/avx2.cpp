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
  static constexpr unsigned kTilePanels = 2;
  static constexpr unsigned kDiagonalLanes = 4;
  static constexpr unsigned kMomentPanels = 3;
  static constexpr unsigned kPairPanels = 2;
  static constexpr unsigned kFewColumns = 0;
  static constexpr bool kMasksAdditions = false;
  static constexpr bool kFoldsBroadcasts = false;
};

}  // namespace

constinit const Engine kAvx2 = MakeEngine<Avx2>();

}  // namespace velmor::ordered
