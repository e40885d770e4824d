// pairwise.cpp: the records that both kinds of pairwise blocks keep.
#include "record/pairwise.h"

#include <algorithm>

namespace velmor {

PairwiseBlock::PairwiseBlock(const PairwiseBlock& d)
    : _weightSum(d._weightSum),
      _regWeightSum(d._regWeightSum),
      _nRows(d._nRows),
      _work(d._work),
      _hasRegWeights(d._hasRegWeights),
      _col0(d._col0),
      _col1(d._col1),
      _col2(d._col2) {
  // With the room reserved, nothing comes between a copy and its owner.
  _varStats.reserve(d._varStats.size());
  for (const auto& variable : d._varStats) {
    _varStats.emplace_back(variable->Copy());
  }
  _xp.reserve(d._xp.size());
  for (const auto& pair : d._xp) {
    _xp.emplace_back(pair->Copy());
  }
}

void PairwiseBlock::MakeRecords(std::int64_t columns, std::int64_t pairs) {
  _varStats.resize(static_cast<std::size_t>(columns));
  std::generate(_varStats.begin(), _varStats.end(), std::make_unique<VarStat>);
  _xp.resize(static_cast<std::size_t>(pairs));
  std::generate(_xp.begin(), _xp.end(), std::make_unique<PairStat>);
}

}  // namespace velmor
