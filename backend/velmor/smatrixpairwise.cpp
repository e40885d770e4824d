// smatrixpairwise.cpp: the symmetric pairwise block; start at Data::Update(DataBatch&).
#include <velmor/smatrixpairwise.h>

#include "record/packed.h"
#include "record/pairwise.h"
#include "record/protocol.h"

#include <type_traits>
#include <utility>

namespace velmor {

// _xp holds the pairs of a strictly lower triangle: columns hi > lo at
// MatrixRowCount(hi - _col0) + lo - _col0, hi being the first variable.
struct SMatrixPairwise::Data : PairwiseBlock {
  static constexpr Kind kKind = Kind::SMatrixPairwise;
  Data(double missingCode, int col0, int col2) : PairwiseBlock(missingCode, col0, col0, col2) {}
  void Init(DataBatch& data);
  void Update(DataBatch& data);
  void Update(const Data& d);
  Shape GetShape() const { return PairwiseBlock::GetShape(kKind); }
  static std::unique_ptr<SMatrixPairwise> Make(const Shape& shape) {
    return std::make_unique<SMatrixPairwise>(shape.missingCode, shape.bounds[0], shape.bounds[2]);
  }
  template <class Record, class State>
  static void Transfer(Record& my, const Shape& shape, State& state);
};

void SMatrixPairwise::Data::Init(DataBatch& data) {
  VELMOR_ASSERT(!_xp.size());  // NOLINT(readability-container-size-empty): stable text
  if (_col2 == 0) {
    _col2 = {static_cast<int>(data.NColumns())};
  }
  VELMOR_ASSERT(0 <= _col0 && _col0 < _col2);
  BatchColumns(data, _col0, _col2);  // asserts that the batch has them
  MakeRecords(_col2 - _col0, MatrixRowCount(_col2 - _col0));
  _hasRegWeights = data.HasRegWeights();
  Update(data);
}

void SMatrixPairwise::Data::Update(DataBatch& data) {
  const auto nCols = static_cast<std::size_t>(_col2 - _col0);
  VELMOR_ASSERT(_hasRegWeights == data.HasRegWeights());
  VELMOR_ASSERT(_varStats.size() == nCols);
  AddRecords(*this, data, _col0, _col2, ordered::WantedPairs::Triangle());
}

void SMatrixPairwise::Data::Update(const Data& d) {
  VELMOR_ASSERT(_varStats.size() == d._varStats.size());
  VELMOR_ASSERT(_hasRegWeights == d._hasRegWeights);
  VELMOR_ASSERT(_col0 == d._col0 && _col2 == d._col2);
  VELMOR_ASSERT(IsSameCode(_work._missingCode, d._work._missingCode));
  if (d._weightSum == 0.) {
    return;
  }
  const std::int64_t nCols = _col2 - _col0;
  const auto xpindex = static_cast<std::int64_t>(MergeRecords(*this, d));
  VELMOR_ASSERT(xpindex == MatrixRowCount(nCols));
  MergeTotals(*this, d);
}

SMatrixPairwise::SMatrixPairwise(double missingCode) : SMatrixPairwise(missingCode, 0, 0) {}
SMatrixPairwise::SMatrixPairwise(double missingCode, int col0, int col2)
    : _my(std::make_unique<Data>(missingCode, col0, col2)) {}
SMatrixPairwise::~SMatrixPairwise() = default;

SMatrixPairwise& SMatrixPairwise::operator+=(DataBatch& data) {
  AddBatchInPlace(*_my, data);
  return *this;
}

SMatrixPairwise& SMatrixPairwise::operator+=(MatrixBase& other) {
  if (const auto* const same = SameClass<SMatrixPairwise>(other)) {
    MergeRecord(*_my, *same->_my);
  }
  return *this;
}

unsigned int SMatrixPairwise::NRows() const { return _my->_nRows; }
unsigned int SMatrixPairwise::NColumns() const {
  return static_cast<unsigned int>(_my->_varStats.size());
}
double SMatrixPairwise::WeightSum() const { return _my->_weightSum; }
double SMatrixPairwise::RegWeightSum() const { return _my->_regWeightSum; }
bool SMatrixPairwise::HasRegWeights() const { return _my->_hasRegWeights; }
double SMatrixPairwise::MissingCode() const { return _my->_work._missingCode; }
int SMatrixPairwise::Col0() const { return _my->_col0; }
int SMatrixPairwise::Col1() const { return _my->_col1; }
int SMatrixPairwise::Col2() const { return _my->_col2; }

VarStat& SMatrixPairwise::Var(int col) const {
  VELMOR_ASSERT(col < Col2() && col >= Col0());
  VELMOR_ASSERT(0. < WeightSum());
  return *_my->_varStats[static_cast<std::size_t>(col - Col0())];
}

PairStat& SMatrixPairwise::Pair(int row, int col) const {
  VELMOR_ASSERT(row < _my->_col2 && row >= _my->_col0);
  VELMOR_ASSERT(col < _my->_col2 && col >= _my->_col0);
  VELMOR_ASSERT(row != col);
  VELMOR_ASSERT(0. < WeightSum());
  if (row < col) {
    std::swap(row, col);
  }
  return *_my->_xp[static_cast<std::size_t>(MatrixRowCount(row - Col0()) + col - Col0())];
}

template <class Record, class State>
void SMatrixPairwise::Data::Transfer(Record& my, const Shape& shape, State& state) {
  if constexpr (!std::is_const_v<Record>) {
    const std::int64_t pairs = MatrixRowCount(shape.Columns());
    ExpectRecords(state, shape.Columns(), pairs);
    my.MakeRecords(shape.Columns(), pairs);
  }
  TransferRecords(my, shape, state);
}

template struct StateOf<SMatrixPairwise>;

}  // namespace velmor
