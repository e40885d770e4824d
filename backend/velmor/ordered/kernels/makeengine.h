#pragma once

// All kernels of one instruction set. A file that compiles this for its Set, with the compiler's
// options for it, makes a set; the Set says
//   kName           the engine's name
//   kLanes          lanes of a register
//   kPanel          columns of a panel
//   kTilePanels     panels of a product tile, kPanel rows of which fit into the registers
//   kDiagonalLanes  the narrowest vectors that a diagonal tile takes
//   kMomentPanels, kPairPanels  panels taken at once where each lane has a chain or more of its
//                   own: as many as hide an addition's latency and still fit into the registers
//   kColumnsAbreast  columns of blocks abreast whose moments are taken at once
//   kTileAbreast    columns by columns of a tile of blocks abreast that fit into the registers
//   kPairsAbreast   pairs of a column that are taken at once, whose sums fit into the registers
//   kAbreast        up to which sizes blocks are quicker side by side
//   kFewColumns     most columns of a problem that the narrower set takes, if there is one
//   kMasksAdditions   whether an addition can leave lanes as they are
//   kFoldsBroadcasts  whether a multiplication can broadcast its operand from memory

#include "ordered/kernels/abreast.h"
#include "ordered/kernels/abreastpairs.h"
#include "ordered/kernels/contract.h"
#include "ordered/kernels/merging.h"
#include "ordered/kernels/moments.h"
#include "ordered/kernels/packing.h"
#include "ordered/kernels/pairs.h"
#include "ordered/kernels/presence.h"
#include "ordered/kernels/products.h"
#include "ordered/kernels/sums.h"
#include "ordered/kernels/transposition.h"

namespace velmor::ordered {

template <class Set>
constexpr Engine MakeEngine(const Engine* narrower = nullptr) {
  static_assert(Set::kPanel <= kMaxPanel && Set::kTilePanels <= 3);
  return {Set::kName,
          Set::kPanel,
          Set::kTilePanels,
          Set::kDiagonalLanes < Set::kPanel,
          narrower,
          Set::kFewColumns,
          Pack<Set>,
          CenterColumns<Set>,
          Center<Set>,
          ColumnMoments<Set>,
          PanelMoments<Set>,
          Products<Set>,
          DiagonalProducts<Set>,
          PanelSums<Set>,
          Presence<Set>,
          CountBoth<Set>,
          MarkEqual<Set>,
          PresentExtremes<Set>,
          PairSums<Set>,
          PairMeans<Set>,
          PairProducts<Set>,
          AddCells<Set>,
          MergeRow<Set>,
          MergePairs<Set>,
          Copy<Set>,
          Transpose<Set>,
          Set::kLanes,
          Set::kAbreast,
          TurnAbreast<Set>,
          SumAbreast<Set>,
          MomentsAbreast<Set>,
          DistancesAbreast<Set>,
          ProductsAbreast<Set>,
          TurnedMoments<Set>,
          TurnedDistances<Set>,
          SquaresAbreast<Set>,
          MergeAbreast<Set>,
          PresentAbreast<Set>,
          CountAbreast<Set>,
          PairSumsAbreast<Set>,
          PairMeansAbreast<Set>,
          PairProductsAbreast<Set>,
          FreshPairs<Set>,
          MergePairsAbreast<Set>};
}

}  // namespace velmor::ordered
