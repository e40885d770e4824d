// smatrixlistwise.cpp: the symmetric listwise block; start at Data::Init(DataBatch&).
#include <velmor/smatrixlistwise.h>

#include "record/cells.h"
#include "record/listwise.h"
#include "record/packed.h"
#include "record/protocol.h"

#include <utility>
#include <vector>

namespace velmor {

struct SMatrixListwise::Data {
  static constexpr Kind kKind = Kind::SMatrixListwise;
  Data(int col0, int col2) : _col0(col0), _col1(col0), _col2(col2) {}
  Data Fresh() const { return {_col0, _col2}; }
  bool IsEmpty() const { return _xp == nullptr; }
  void Init(DataBatch& data);
  void Update(const Data& d);
  Shape GetShape() const { return {kKind, {_col0, _col1, _col2}, 0., !IsEmpty(), _hasRegWeights}; }
  static std::unique_ptr<SMatrixListwise> Make(const Shape& shape) {
    return std::make_unique<SMatrixListwise>(shape.bounds[0], shape.bounds[2]);
  }
  template <class Record, class State>
  static void Transfer(Record& my, const Shape& shape, State& state);

  double _weightSum = 0.;
  double _regWeightSum = 0.;
  unsigned int _nRows = 0;
  std::vector<double> _means;  // one per block column, like the next two
  std::vector<double> _mins;
  std::vector<double> _maxs;
  int _col0;
  int _col1;
  int _col2;               // 0 until the first batch where the block is all its columns
  OwnedArray<double> _xp;  // cell (r, c), c <= r, at MatrixRowCount(r+1) + c; null while empty
  bool _hasRegWeights = false;
  bool _isWeightless = false;  // the cases weigh nothing, and no other has come
};

void SMatrixListwise::Data::Init(DataBatch& data) {
  VELMOR_ASSERT(!_xp);
  int nCols = static_cast<int>(data.NColumns());
  if (_col2 == 0) {
    VELMOR_ASSERT(_col0 == 0 && _col1 == 0);
    _col2 = nCols;
  } else {
    VELMOR_ASSERT(_col0==_col1 && _col0>=0);
    VELMOR_ASSERT(_col2 <= nCols && _col2>_col0);
  }
  nCols = _col2 - _col0;  // the block's from here on
  const std::int64_t nCells = MatrixRowCount(nCols + 1);
  _means.resize(static_cast<std::size_t>(nCols));
  _mins.resize(_means.size());
  _maxs.resize(_means.size());
  _xp = OwnedArray<double>(static_cast<std::size_t>(nCells));
  const ordered::Columns columns = BatchColumns(data, _col0, _col2);
  const ordered::Cases cases = TakeMoments(*this, data, columns, _mins.data(), _maxs.data());
  const double* const xprow = ordered::CenteredProducts(columns, _means.data(), cases, _xp);
  VELMOR_ASSERT(xprow+nCols == _xp+nCells);
}

void SMatrixListwise::Data::Update(const Data& d) {
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
  const int nCols = _col2 - _col0;
  MeanMerge means(*this, d);
  ordered::MergeExtremes(d._mins.data(), d._maxs.data(), _means.size(), _mins.data(), _maxs.data());
  const auto xpindex = static_cast<std::int64_t>(MergeTriangle(*this, d, means));
  VELMOR_ASSERT(xpindex == MatrixRowCount(nCols+1));
  means.Finish(*this, d);
}

SMatrixListwise::SMatrixListwise() : SMatrixListwise(0, 0) {}
SMatrixListwise::SMatrixListwise(int col0, int col2) : _my(std::make_unique<Data>(col0, col2)) {}
SMatrixListwise::~SMatrixListwise() = default;

SMatrixListwise& SMatrixListwise::operator+=(DataBatch& data) {
  AddBatch(*_my, data);
  return *this;
}

SMatrixListwise& SMatrixListwise::operator+=(MatrixBase& other) {
  if (const auto* const same = SameClass<SMatrixListwise>(other)) {
    MergeRecord(*_my, *same->_my);
  }
  return *this;
}

unsigned int SMatrixListwise::NColumns() const {
  return static_cast<unsigned int>(_my->_means.size());
}
unsigned int SMatrixListwise::NRows() const { return _my->_nRows; }
double SMatrixListwise::WeightSum() const { return _my->_weightSum; }
bool SMatrixListwise::HasRegWeights() const { return _my->_hasRegWeights; }
double SMatrixListwise::RegWeightSum() const { return _my->_regWeightSum; }
int SMatrixListwise::Col0() const { return _my->_col0; }
int SMatrixListwise::Col1() const { return _my->_col1; }
int SMatrixListwise::Col2() const { return _my->_col2; }

double SMatrixListwise::Mean(int c) const {
  VELMOR_ASSERT(c < _my->_col2 && c >= _my->_col0);
  VELMOR_ASSERT(0. < WeightSum());
  return _my->_means[static_cast<std::size_t>(c - _my->_col0)];
}

double SMatrixListwise::Min(int c) const {
  VELMOR_ASSERT(c < _my->_col2 && c >= _my->_col0);
  VELMOR_ASSERT(0. < WeightSum());
  return _my->_mins[static_cast<std::size_t>(c - _my->_col0)];
}

double SMatrixListwise::Max(int c) const {
  VELMOR_ASSERT(c < _my->_col2 && c >= _my->_col0);
  VELMOR_ASSERT(!_my->IsEmpty());
  return _my->_maxs[static_cast<std::size_t>(c - _my->_col0)];
}

double SMatrixListwise::CCP(int row, int col) const {
  VELMOR_ASSERT(row < _my->_col2 && row >= _my->_col0);
  VELMOR_ASSERT(col < _my->_col2 && col >= _my->_col0);
  VELMOR_ASSERT(0. < WeightSum());
  int r = row - _my->_col0;
  int c = col - _my->_col1;
  if (r < c) {
    std::swap(r, c);
  }
  return _my->_xp[MatrixRowCount(r + 1) + c];
}

const double* CellsOf(const SMatrixListwise& matrix) { return Internals::DataOf(matrix)._xp; }

template <class Record, class State>
void SMatrixListwise::Data::Transfer(Record& my, const Shape& shape, State& state) {
  const auto columns = static_cast<std::size_t>(shape.Columns());
  TransferListwiseTotals(my, shape, state);
  state.Numbers(my._means, columns);
  state.Numbers(my._mins, columns);
  state.Numbers(my._maxs, columns);
  state.Numbers(my._xp,
                static_cast<std::size_t>(MatrixRowCount(std::int64_t{shape.Columns()} + 1)));
}

template struct StateOf<SMatrixListwise>;

}  // namespace velmor
