// nsmatrixpairwise.cpp: the rectangular pairwise block; start at Data::Update(DataBatch&).
#include <velmor/nsmatrixpairwise.h>

#include "record/pairwise.h"
#include "record/protocol.h"

#include <type_traits>
#include <utility>

namespace velmor {

// _xp holds the rectangle of pairs row by row: columns i of the first range and j of the second at
// (i - _col0) * (_col2 - _col1) + j - _col1, i being the first variable.
struct NSMatrixPairwise::Data : PairwiseBlock {
  static constexpr Kind kKind = Kind::NSMatrixPairwise;
  using PairwiseBlock::PairwiseBlock;
  void Init(DataBatch& data);
  void Update(DataBatch& data);
  void Update(const Data& d);
  Shape GetShape() const { return PairwiseBlock::GetShape(kKind); }
  static std::unique_ptr<NSMatrixPairwise> Make(const Shape& shape) {
    return std::make_unique<NSMatrixPairwise>(shape.missingCode, shape.bounds[0], shape.bounds[1],
                                              shape.bounds[2]);
  }
  template <class Record, class State>
  static void Transfer(Record& my, const Shape& shape, State& state);
};

void NSMatrixPairwise::Data::Init(DataBatch& data) {
  VELMOR_ASSERT(!_xp.size());  // NOLINT(readability-container-size-empty): stable text
  VELMOR_ASSERT(0 <= _col0 && _col0 <= _col1 && _col1 <= _col2 && _col0 < _col2);
  BatchColumns(data, _col0, _col2);  // asserts that the batch has them
  MakeRecords(_col2 - _col0, (_col1 - _col0) * (_col2 - _col1));
  _hasRegWeights = data.HasRegWeights();
  Update(data);
}

void NSMatrixPairwise::Data::Update(DataBatch& data) {
  const auto nCols = static_cast<std::size_t>(_col2 - _col0);
  VELMOR_ASSERT(_hasRegWeights == data.HasRegWeights());
  VELMOR_ASSERT(_varStats.size() == nCols);
  AddRecords(*this, data, _col0, _col2,
             ordered::WantedPairs::Rectangle(static_cast<std::size_t>(_col1 - _col0),
                                             static_cast<std::size_t>(_col2 - _col1)));
  const auto xpi = static_cast<std::int64_t>(_xp.size());
  VELMOR_ASSERT(xpi == (_col1-_col0)*(_col2-_col1));
}

void NSMatrixPairwise::Data::Update(const Data& d) {
  VELMOR_ASSERT(_varStats.size() == d._varStats.size());
  VELMOR_ASSERT(_hasRegWeights == d._hasRegWeights);
  VELMOR_ASSERT(_col0 == d._col0 && _col1 == d._col1 && _col2 == d._col2);
  VELMOR_ASSERT(IsSameCode(_work._missingCode, d._work._missingCode));
  if (d._weightSum == 0.) {
    return;
  }
  const auto xpindex = static_cast<std::int64_t>(MergeRecords(*this, d));
  VELMOR_ASSERT(xpindex == (_col1-_col0)*(_col2-_col1));
  MergeTotals(*this, d);
}

NSMatrixPairwise::NSMatrixPairwise(double missingCode, int col0, int col1, int col2)
    : _my(std::make_unique<Data>(missingCode, col0, col1, col2)) {}
NSMatrixPairwise::~NSMatrixPairwise() = default;

NSMatrixPairwise& NSMatrixPairwise::operator+=(DataBatch& data) {
  AddBatchInPlace(*_my, data);
  return *this;
}

NSMatrixPairwise& NSMatrixPairwise::operator+=(MatrixBase& other) {
  if (const auto* const same = SameClass<NSMatrixPairwise>(other)) {
    MergeRecord(*_my, *same->_my);
  }
  return *this;
}

unsigned int NSMatrixPairwise::NRows() const { return _my->_nRows; }
unsigned int NSMatrixPairwise::NColumns() const {
  return static_cast<unsigned int>(_my->_varStats.size());
}
double NSMatrixPairwise::WeightSum() const { return _my->_weightSum; }
double NSMatrixPairwise::RegWeightSum() const { return _my->_regWeightSum; }
bool NSMatrixPairwise::HasRegWeights() const { return _my->_hasRegWeights; }
double NSMatrixPairwise::MissingCode() const { return _my->_work._missingCode; }
int NSMatrixPairwise::Col0() const { return _my->_col0; }
int NSMatrixPairwise::Col1() const { return _my->_col1; }
int NSMatrixPairwise::Col2() const { return _my->_col2; }

VarStat& NSMatrixPairwise::Var(int col) const {
  VELMOR_ASSERT(col < Col2() && col >= Col0());
  VELMOR_ASSERT(0. < WeightSum());
  return *_my->_varStats[static_cast<std::size_t>(col - Col0())];
}

PairStat& NSMatrixPairwise::Pair(int row, int col) const {
  VELMOR_ASSERT(row < _my->_col2 && row >= _my->_col0);
  VELMOR_ASSERT(col < _my->_col2 && col >= _my->_col0);
  VELMOR_ASSERT(row != col);
  VELMOR_ASSERT(0. < WeightSum());
  if (row > col) {
    std::swap(row, col);
  }
  VELMOR_ASSERT(row < _my->_col1 && col >= _my->_col1);
  return *_my->_xp[static_cast<std::size_t>(std::int64_t{row - Col0()} * (Col2() - Col1()) + col -
                                            Col1())];
}

template <class Record, class State>
void NSMatrixPairwise::Data::Transfer(Record& my, const Shape& shape, State& state) {
  if constexpr (!std::is_const_v<Record>) {
    const std::int64_t pairs =
        std::int64_t{shape.bounds[1] - shape.bounds[0]} * (shape.bounds[2] - shape.bounds[1]);
    ExpectRecords(state, shape.Columns(), pairs);
    my.MakeRecords(shape.Columns(), pairs);
  }
  TransferRecords(my, shape, state);
}

template struct StateOf<NSMatrixPairwise>;

}  // namespace velmor
