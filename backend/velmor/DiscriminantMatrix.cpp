// DiscriminantMatrix.cpp: sums by group and total products; start at Data::Init(DataBatch&).
#include <velmor/DiscriminantMatrix.h>

#include "ordered/chains.h"
#include "ordered/groupsums.h"
#include "ordered/merges.h"
#include "record/batchcolumns.h"
#include "record/packed.h"
#include "record/protocol.h"
#include "record/transfer.h"

#include <utility>
#include <vector>

namespace velmor {

struct DiscriminantMatrix::Data {
  static constexpr Kind kKind = Kind::DiscriminantMatrix;
  Data(int nGroup, int nVar) : _nGroup(nGroup), _nVar(nVar) {
    VELMOR_ASSERT(0 <= nGroup && 0 <= nVar);
  }
  Data Fresh() const { return {_nGroup, _nVar}; }
  bool IsEmpty() const { return _TSSP == nullptr; }
  void Init(DataBatch& batch);
  void Update(const Data& d);
  Shape GetShape() const { return {kKind, {_nGroup, _nVar, 0}, 0., !IsEmpty(), false}; }
  static std::unique_ptr<DiscriminantMatrix> Make(const Shape& shape) {
    return std::make_unique<DiscriminantMatrix>(shape.bounds[0], shape.bounds[1]);
  }
  template <class Record, class State>
  static void Transfer(Record& my, const Shape& shape, State& state);

  std::size_t Groups() const { return static_cast<std::size_t>(_nGroup); }
  std::size_t GroupCells() const { return Groups() * static_cast<std::size_t>(_nVar); }
  // The place of a group's sum of a variable.
  std::size_t Cell(int group, int var) const {
    return Groups() * static_cast<std::size_t>(var) + static_cast<std::size_t>(group);
  }
  std::size_t ProductCells() const { return static_cast<std::size_t>(MatrixRowCount(_nVar)); }

  std::vector<double> _sumW;
  OwnedArray<double> _sumX1;  // group g of variable v at Cell(g, v); null while empty
  OwnedArray<double> _sumX2;  // likewise
  OwnedArray<double> _TSSP;   // variables r > c at MatrixRowCount(r) + c; null while empty
  int _nGroup;
  int _nVar;
  double _weightSum = 0.;
  unsigned int _nRows = 0;
};

void DiscriminantMatrix::Data::Init(DataBatch& batch) {
  VELMOR_ASSERT((!_sumX1)&&(!_sumX2)&&(!_TSSP));
  const int nCols = static_cast<int>(batch.NColumns());
  VELMOR_ASSERT(nCols == _nVar);
  VELMOR_ASSERT(batch.Groups() != nullptr);
  VELMOR_ASSERT(batch.MaxGroupSeen() < Groups());
  _sumW.assign(Groups(), 0.);
  _sumX1 = OwnedArray<double>(GroupCells());
  _sumX2 = OwnedArray<double>(GroupCells());
  _TSSP = OwnedArray<double>(ProductCells());
  _nRows = batch.NRows();
  const ordered::Cases cases{batch.NRows(), batch.Weights()};
  const ordered::Columns columns = BatchColumns(batch, 0, nCols);
  ordered::WeightByGroup(batch.Groups(), cases.weights, _sumW, _weightSum, cases.rows);
  const std::size_t tsspIndex = ordered::ProductsAndGroupSums(
      columns, cases, {batch.Groups(), Groups(), _sumX1, _sumX2}, _TSSP);
  const std::size_t nCellsTSSP = ProductCells();
  VELMOR_ASSERT(tsspIndex == nCellsTSSP);
}

void DiscriminantMatrix::Data::Update(const Data& d) {
  VELMOR_ASSERT(_nVar == d._nVar && _nGroup == d._nGroup);
  if (d._weightSum == 0.) {
    return;
  }
  ordered::AddCells(d._sumW.data(), Groups(), _sumW.data());
  ordered::AddCells(d._sumX1, GroupCells(), _sumX1);
  ordered::AddCells(d._sumX2, GroupCells(), _sumX2);
  ordered::AddCells(d._TSSP, ProductCells(), _TSSP);
  _weightSum = d._weightSum + _weightSum;
  _nRows += d._nRows;
}

DiscriminantMatrix::DiscriminantMatrix() : DiscriminantMatrix(0, 0) {}
DiscriminantMatrix::DiscriminantMatrix(int nGroup, int nVar)
    : _my(std::make_unique<Data>(nGroup, nVar)) {}
DiscriminantMatrix::~DiscriminantMatrix() = default;

DiscriminantMatrix& DiscriminantMatrix::operator+=(DataBatch& data) {
  AddBatch(*_my, data);
  return *this;
}

DiscriminantMatrix& DiscriminantMatrix::operator+=(MatrixBase& other) {
  if (const auto* const same = SameClass<DiscriminantMatrix>(other)) {
    if (_my->_TSSP) {
      VELMOR_ASSERT(_my->_sumX1 && _my->_sumX2);
    } else {
      VELMOR_ASSERT(!(_my->_sumX1)&&!(_my->_sumX2));
    }
    MergeRecord(*_my, *same->_my);
  }
  return *this;
}

unsigned int DiscriminantMatrix::NRows() const { return _my->_nRows; }
double DiscriminantMatrix::WeightSum() const { return _my->_weightSum; }
int DiscriminantMatrix::NVar() const { return _my->_nVar; }
int DiscriminantMatrix::NGroup() const { return _my->_nGroup; }

double DiscriminantMatrix::sumW(int c) const {
  VELMOR_ASSERT(c < NGroup() && c >= 0);
  VELMOR_ASSERT(0. < WeightSum());
  return _my->_sumW[static_cast<std::size_t>(c)];
}

double DiscriminantMatrix::sumX1(int group, int var) const {
  VELMOR_ASSERT(group < NGroup() && group >= 0);
  VELMOR_ASSERT(var < NVar() && var >= 0);
  VELMOR_ASSERT(0. < WeightSum());
  return _my->_sumX1[_my->Cell(group, var)];
}

double DiscriminantMatrix::sumX2(int group, int var) const {
  VELMOR_ASSERT(group < NGroup() && group >= 0);
  VELMOR_ASSERT(var < NVar() && var >= 0);
  VELMOR_ASSERT(0. < WeightSum());
  return _my->_sumX2[_my->Cell(group, var)];
}

double DiscriminantMatrix::TSSP(int row, int col) const {
  VELMOR_ASSERT(row < NVar() && row >= 0);
  VELMOR_ASSERT(col < NVar() && col >= 0);
  VELMOR_ASSERT(0. < WeightSum());
  VELMOR_ASSERT(row != col);
  if (row < col) {
    std::swap(row, col);
  }
  return _my->_TSSP[MatrixRowCount(row) + col];
}

template <class Record, class State>
void DiscriminantMatrix::Data::Transfer(Record& my, const Shape& shape, State& state) {
  TransferTotals(my, shape, state);
  state.Numbers(my._sumW, my.Groups());
  state.Numbers(my._sumX1, my.GroupCells());
  state.Numbers(my._sumX2, my.GroupCells());
  state.Numbers(my._TSSP, my.ProductCells());
}

template struct StateOf<DiscriminantMatrix>;

}  // namespace velmor
