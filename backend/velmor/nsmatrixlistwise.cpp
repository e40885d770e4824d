// nsmatrixlistwise.cpp: the rectangular listwise block; start at Data::Init(DataBatch&).
#include <velmor/nsmatrixlistwise.h>

#include "record/cells.h"
#include "record/listwise.h"
#include "record/protocol.h"

#include <utility>
#include <vector>

namespace velmor {

struct NSMatrixListwise::Data {
  static constexpr Kind kKind = Kind::NSMatrixListwise;
  Data(int col0, int col1, int col2) : _col0{col0}, _col1{col1}, _col2{col2} {}
  Data Fresh() const { return {_col0, _col1, _col2}; }
  bool IsEmpty() const { return _xp == nullptr; }
  void Init(DataBatch& data);
  void Update(const Data& d);
  Shape GetShape() const { return {kKind, {_col0, _col1, _col2}, 0., !IsEmpty(), _hasRegWeights}; }
  static std::unique_ptr<NSMatrixListwise> Make(const Shape& shape) {
    return std::make_unique<NSMatrixListwise>(shape.bounds[0], shape.bounds[1], shape.bounds[2]);
  }
  template <class Record, class State>
  static void Transfer(Record& my, const Shape& shape, State& state);
  void MergeSquareSums(const Data& d, const MeanMerge& means);

  double _weightSum = 0.;
  double _regWeightSum = 0.;
  unsigned int _nRows = 0;
  std::vector<double> _css;  // one per column of both ranges, like the next three
  std::vector<double> _means;
  std::vector<double> _mins;
  std::vector<double> _maxs;
  Bound _col0;
  Bound _col1;
  Bound _col2;
  // Row r, column c of the rectangle at r * (_col2 - _col1) + c; null while empty.
  OwnedArray<double> _xp;
  bool _hasRegWeights = false;
  bool _isWeightless = false;  // the cases weigh nothing, and no other has come
};

void NSMatrixListwise::Data::Init(DataBatch& data) {
  VELMOR_ASSERT(!_xp);
  VELMOR_ASSERT(_col0<_col1 && _col1<_col2);
  VELMOR_ASSERT(_col2 <= (int)data.NColumns());
  const ordered::Columns columns = BatchColumns(data, _col0, _col2);
  const std::int64_t i = _col1 - _col0;  // rows and columns of the rectangle
  const std::int64_t j = _col2 - _col1;
  _css.resize(static_cast<std::size_t>(i + j));
  _means.resize(_css.size());
  _mins.resize(_css.size());
  _maxs.resize(_css.size());
  _xp = OwnedArray<double>(static_cast<std::size_t>(i * j));
  const ordered::Cases cases = TakeMoments(*this, data, columns, _mins.data(), _maxs.data());
  const double* const xprow = ordered::RectangularProducts(BatchColumns(data, _col0, _col1),
                                                           BatchColumns(data, _col1, _col2),
                                                           _means.data(), cases, _css.data(), _xp);
  VELMOR_ASSERT(xprow == _xp+i*j);
}

void NSMatrixListwise::Data::Update(const Data& d) {
  VELMOR_ASSERT(_means.size() == d._means.size());
  VELMOR_ASSERT(_hasRegWeights == d._hasRegWeights);
  VELMOR_ASSERT(_col0 == d._col0 && _col1 == d._col1 && _col2 == d._col2);
  if (d._weightSum == 0.) {
    return;
  }
  if (_isWeightless) {
    *this = Data(d);
    return;
  }
  MeanMerge means(*this, d);
  ordered::MergeExtremes(d._mins.data(), d._maxs.data(), _means.size(), _mins.data(), _maxs.data());
  MergeSquareSums(d, means);
  // Unlike in a triangle, a row's factor takes the shift of its mean from the merged mean.
  const auto rows = static_cast<std::size_t>(_col1 - _col0);
  const ordered::Shifts ofRows = means.Shifts(0);
  std::int64_t xpindex = 0;
  for (std::int64_t row = 0; row < _col1 - _col0; ++row) {
    ordered::MergeRow(means.Shifts(rows), _regWeightSum * ofRows.ofA[row],
                      d._regWeightSum * ofRows.ofB[row], d._xp + xpindex,
                      static_cast<std::size_t>(_col2 - _col1), _xp + xpindex);
    xpindex += _col2 - _col1;
    VELMOR_ASSERT(xpindex == (row+1)*(_col2-_col1));
  }
  VELMOR_ASSERT(xpindex == (_col1-_col0)*(_col2-_col1));
  means.Finish(*this, d);
}

// Unlike a cell's, a square sum's terms are taken as square times weight.
void NSMatrixListwise::Data::MergeSquareSums(const Data& d, const MeanMerge& means) {
  for (std::size_t i = 0; i < _css.size(); ++i) {
    const double shift = ordered::MeanDiff(_means[i], _regWeightSum, d._means[i], d._regWeightSum);
    const double shiftOfD = means.Shifts(i).ofB[0];
    _css[i] =
        ((d._css[i] + (shift * shift) * _regWeightSum) + (shiftOfD * shiftOfD) * d._regWeightSum) +
        _css[i];
  }
}

NSMatrixListwise::NSMatrixListwise(int col0, int col1, int col2)
    : _my(std::make_unique<Data>(col0, col1, col2)) {}
NSMatrixListwise::~NSMatrixListwise() = default;

NSMatrixListwise& NSMatrixListwise::operator+=(DataBatch& data) {
  AddBatch(*_my, data);
  return *this;
}

NSMatrixListwise& NSMatrixListwise::operator+=(MatrixBase& other) {
  if (const auto* const same = SameClass<NSMatrixListwise>(other)) {
    MergeRecord(*_my, *same->_my);
  }
  return *this;
}

unsigned int NSMatrixListwise::NColumns() const {
  return static_cast<unsigned int>(_my->_means.size());
}
unsigned int NSMatrixListwise::NRows() const { return _my->_nRows; }
double NSMatrixListwise::WeightSum() const { return _my->_weightSum; }
bool NSMatrixListwise::HasRegWeights() const { return _my->_hasRegWeights; }
double NSMatrixListwise::RegWeightSum() const { return _my->_regWeightSum; }
int NSMatrixListwise::Col0() const { return _my->_col0; }
int NSMatrixListwise::Col1() const { return _my->_col1; }
int NSMatrixListwise::Col2() const { return _my->_col2; }

double NSMatrixListwise::Mean(int c) const {
  VELMOR_ASSERT(c < _my->_col2 && c >= _my->_col0);
  VELMOR_ASSERT(0. < WeightSum());
  return _my->_means[static_cast<std::size_t>(c - _my->_col0)];
}

double NSMatrixListwise::Min(int c) const {
  VELMOR_ASSERT(c < _my->_col2 && c >= _my->_col0);
  VELMOR_ASSERT(0. < WeightSum());
  return _my->_mins[static_cast<std::size_t>(c - _my->_col0)];
}

double NSMatrixListwise::Max(int c) const {
  VELMOR_ASSERT(c < _my->_col2 && c >= _my->_col0);
  VELMOR_ASSERT(!_my->IsEmpty());
  return _my->_maxs[static_cast<std::size_t>(c - _my->_col0)];
}

double NSMatrixListwise::CCP(int row, int col) const {
  VELMOR_ASSERT(row < _my->_col2 && row >= _my->_col0);
  VELMOR_ASSERT(col < _my->_col2 && col >= _my->_col0);
  VELMOR_ASSERT(0. < WeightSum());
  if (row == col) {
    return _my->_css[static_cast<std::size_t>(row - _my->_col0)];
  }
  if (row > col) {
    std::swap(row, col);
  }
  VELMOR_ASSERT(row < _my->_col1 && col >= _my->_col1);
  return _my->_xp[(row - _my->_col0) * (_my->_col2 - _my->_col1) + col - _my->_col1];
}

const double* CellsOf(const NSMatrixListwise& matrix) { return Internals::DataOf(matrix)._xp; }

template <class Record, class State>
void NSMatrixListwise::Data::Transfer(Record& my, const Shape& shape, State& state) {
  const auto columns = static_cast<std::size_t>(shape.Columns());
  const auto rows = static_cast<std::size_t>(shape.bounds[1] - shape.bounds[0]);
  TransferListwiseTotals(my, shape, state);
  state.Numbers(my._means, columns);
  state.Numbers(my._css, columns);
  state.Numbers(my._mins, columns);
  state.Numbers(my._maxs, columns);
  state.Numbers(my._xp, rows * (columns - rows));
}

template struct StateOf<NSMatrixListwise>;

}  // namespace velmor
