// matrixlistwise.cpp: the whole listwise matrix; start at Data::Init(DataBatch&).
#include <velmor/matrixlistwise.h>

#include "record/listwise.h"
#include "record/protocol.h"

#include <utility>
#include <vector>

namespace velmor {

struct MatrixListwise::Data {
  static constexpr Kind kKind = Kind::MatrixListwise;
  static Data Fresh() { return {}; }
  // Offset of row i of the triangle. In 64 bits, unlike the kernel of that name.
  static std::size_t MatrixRow(std::size_t i) { return i * (i + 1) / 2; }
  bool IsEmpty() const { return _xp == nullptr; }
  void Init(DataBatch& batch);
  void Update(const Data& d);
  Shape GetShape() const {
    const auto columns = static_cast<std::int32_t>(_means.size());
    return {kKind, {0, 0, columns}, 0., !IsEmpty(), _hasRegWeights};
  }
  static std::unique_ptr<MatrixListwise> Make(const Shape& /*shape*/) {
    return std::make_unique<MatrixListwise>();
  }
  template <class Record, class State>
  static void Transfer(Record& my, const Shape& shape, State& state);

  double _weightSum = 0.;
  double _regWeightSum = 0.;
  std::uint64_t _nRows = 0;
  std::vector<double> _means;  // one per column
  OwnedArray<double> _xp;      // cell (i, j), j <= i, at MatrixRow(i) + j; null while empty
  bool _hasRegWeights = false;
  bool _isWeightless = false;  // the cases weigh nothing, and no other has come
};

void MatrixListwise::Data::Init(DataBatch& batch) {
  VELMOR_ASSERT(!_xp);
  const unsigned int nCols = batch.NColumns();
  const std::size_t nCells = MatrixRow(nCols);
  _means.resize(nCols);
  _xp = OwnedArray<double>(nCells);
  const ordered::Columns columns = BatchColumns(batch, 0, static_cast<int>(nCols));
  const ordered::Cases cases = TakeMoments(*this, batch, columns, nullptr, nullptr);
  const double* const xprow = ordered::CenteredProducts(columns, _means.data(), cases, _xp);
  VELMOR_ASSERT(xprow+nCols == _xp+nCells);
}

void MatrixListwise::Data::Update(const Data& d) {
  VELMOR_ASSERT(_means.size() == d._means.size());
  VELMOR_ASSERT(_hasRegWeights == d._hasRegWeights);
  if (d._weightSum == 0.) {
    return;
  }
  if (_isWeightless) {
    *this = Data(d);
    return;
  }
  const std::size_t nCols = _means.size();
  MeanMerge means(*this, d);
  const std::size_t xpindex = MergeTriangle(*this, d, means);
  VELMOR_ASSERT(xpindex == MatrixRow(nCols));
  means.Finish(*this, d);
}

MatrixListwise::MatrixListwise() : _my(std::make_unique<Data>()) {}
MatrixListwise::~MatrixListwise() = default;

MatrixListwise& MatrixListwise::operator+=(DataBatch& batch) {
  AddBatch(*_my, batch);
  return *this;
}

MatrixListwise& MatrixListwise::operator+=(const MatrixListwise& other) {
  if (other.NRows() != 0) {
    MergeRecord(*_my, *other._my);
  }
  return *this;
}

unsigned int MatrixListwise::NColumns() const {
  return static_cast<unsigned int>(_my->_means.size());
}
std::uint64_t MatrixListwise::NRows() const { return _my->_nRows; }
double MatrixListwise::WeightSum() const { return _my->_weightSum; }
double MatrixListwise::RegWeightSum() const { return _my->_regWeightSum; }
bool MatrixListwise::HasRegWeights() const { return _my->_hasRegWeights; }

double MatrixListwise::Mean(unsigned int col) const {
  VELMOR_ASSERT(col < NColumns());
  VELMOR_ASSERT(0. < WeightSum());
  return _my->_means[col];
}

double MatrixListwise::CCP(unsigned int row, unsigned int col) const {
  VELMOR_ASSERT(row < NColumns());
  VELMOR_ASSERT(col < NColumns());
  VELMOR_ASSERT(0. < WeightSum());
  if (row < col) {
    std::swap(row, col);
  }
  return _my->_xp[Data::MatrixRow(row) + col];
}

template <class Record, class State>
void MatrixListwise::Data::Transfer(Record& my, const Shape& shape, State& state) {
  const auto columns = static_cast<std::size_t>(shape.Columns());
  TransferListwiseTotals(my, shape, state);
  state.Numbers(my._means, columns);
  state.Numbers(my._xp, MatrixRow(columns));
}

template struct StateOf<MatrixListwise>;

}  // namespace velmor
