// pairwise.cpp: the records that both kinds of pairwise blocks keep.
#include "pairwise.h"

namespace velmor {

PairwiseBlock::PairwiseBlock(const PairwiseBlock& d)
    : _weightSum(d._weightSum),
      _regWeightSum(d._regWeightSum),
      _nRows(d._nRows),
      _hasRegWeights(d._hasRegWeights),
      _col0(d._col0),
      _col1(d._col1),
      _col2(d._col2) {
  _work._missingCode = d._work._missingCode;
  for (const auto& variable : d._varStats) {
    _varStats.emplace_back(variable->Copy());
  }
  for (const auto& pair : d._xp) {
    _xp.emplace_back(pair->Copy());
  }
}

void PairwiseBlock::MakeRecords(int columns, int pairs) {
  std::vector<std::unique_ptr<VarStat>> varStats(static_cast<std::size_t>(columns));
  std::vector<std::unique_ptr<PairStat>> xp(static_cast<std::size_t>(pairs));
  std::generate(varStats.begin(), varStats.end(), std::make_unique<VarStat>);
  std::generate(xp.begin(), xp.end(), std::make_unique<PairStat>);
  _varStats = std::move(varStats);
  _xp = std::move(xp);
}

}  // namespace velmor
