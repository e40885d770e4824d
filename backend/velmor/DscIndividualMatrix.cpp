// DscIndividualMatrix.cpp: a triangle of products for each group; start at
// Data::Init(DataBatchByGroup&).
#include <velmor/DscIndividualMatrix.h>

#include "ordered/chains.h"
#include "ordered/merges.h"
#include "ordered/productmatrix.h"
#include "record/packed.h"
#include "record/protocol.h"
#include "record/transfer.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace velmor {

struct DiscIndividualMatrix::Data {
  static constexpr Kind kKind = Kind::DiscIndividualMatrix;
  Data(int nGroup, int nVar) : _nGroup(nGroup), _nVar(nVar) {
    VELMOR_ASSERT(0 <= nGroup && 0 <= nVar);
  }
  Data Fresh() const { return {_nGroup, _nVar}; }
  bool IsEmpty() const { return _TSSP == nullptr; }
  void Init(DataBatchByGroup& batch);
  void Update(const Data& d);
  Shape GetShape() const { return {kKind, {_nGroup, _nVar, 0}, 0., !IsEmpty(), false}; }
  static std::unique_ptr<DiscIndividualMatrix> Make(const Shape& shape) {
    return std::make_unique<DiscIndividualMatrix>(shape.bounds[0], shape.bounds[1]);
  }
  template <class Record, class State>
  static void Transfer(Record& my, const Shape& shape, State& state);

  // Items of a group: a triangle of products, a sum for each variable, the weight.
  std::int64_t ProductItems() const { return MatrixRowCount(std::int64_t{_nVar} + 1); }
  std::int64_t Items() const { return ProductItems() + _nVar + 1; }
  std::size_t Cell(std::int64_t item, int group) const {
    return static_cast<std::size_t>(item) * static_cast<std::size_t>(_nGroup) +
           static_cast<std::size_t>(group);
  }
  std::size_t Cells() const { return Cell(Items(), 0); }

  OwnedArray<double> _TSSP;  // item q of group g at Cell(q, g); null while empty
  int _nGroup;
  int _nVar;
  double _weightSum = 0.;
  unsigned int _nRows = 0;
};

void DiscIndividualMatrix::Data::Init(DataBatchByGroup& batch) {
  VELMOR_ASSERT(!_TSSP);
  const int nCols = static_cast<int>(batch.NColumns());
  VELMOR_ASSERT(nCols == _nVar);
  VELMOR_ASSERT(batch.IsSorted());
  VELMOR_ASSERT(batch.NGroups() <= static_cast<unsigned int>(_nGroup));
  const std::int64_t nCellsCrossProduct = ProductItems();
  std::vector<double> items(static_cast<std::size_t>(Items()));  // of one group
  _TSSP = OwnedArray<double>(Cells());
  std::fill_n(static_cast<double*>(_TSSP), Cells(), 0.);
  _nRows = batch.NRows();
  _weightSum = ordered::WeightedSum(batch.Weights(), batch.NRows());
  std::size_t offset = 0;
  for (int group = 0; group < static_cast<int>(batch.NGroups()); ++group) {
    const ordered::Cases cases{batch.groupCount(static_cast<unsigned int>(group)),
                               batch.HasWeights() ? batch.Weights() + offset : nullptr};
    const ordered::Columns columns{batch.Column(0) + offset, batch.MaxRows(), batch.NColumns()};
    const double* const lastRow =
        ordered::ProductsAndSums(columns, cases, items.data(), items.data() + nCellsCrossProduct);
    const std::int64_t tsspIndex = lastRow + nCols - items.data();
    VELMOR_ASSERT(tsspIndex == nCellsCrossProduct);
    items.back() = ordered::WeightedSum(cases.weights, cases.rows);
    for (std::int64_t item = 0; item < Items(); ++item) {
      _TSSP[Cell(item, group)] = items[static_cast<std::size_t>(item)];
    }
    offset += cases.rows;
  }
}

void DiscIndividualMatrix::Data::Update(const Data& d) {
  VELMOR_ASSERT(_nVar == d._nVar && _nGroup == d._nGroup);
  if (d._weightSum == 0.) {
    return;
  }
  ordered::AddCells(d._TSSP, Cells(), _TSSP);
  _weightSum = d._weightSum + _weightSum;
  _nRows += d._nRows;
}

DiscIndividualMatrix::DiscIndividualMatrix() : DiscIndividualMatrix(0, 0) {}
DiscIndividualMatrix::DiscIndividualMatrix(int nGroup, int nVar)
    : _my(std::make_unique<Data>(nGroup, nVar)) {}
DiscIndividualMatrix::~DiscIndividualMatrix() = default;

DiscIndividualMatrix& DiscIndividualMatrix::operator+=(DataBatchByGroup& data) {
  AddBatch(*_my, data);
  return *this;
}

DiscIndividualMatrix& DiscIndividualMatrix::operator+=(MatrixBase& other) {
  if (const auto* const same = SameClass<DiscIndividualMatrix>(other)) {
    MergeRecord(*_my, *same->_my);
  }
  return *this;
}

unsigned int DiscIndividualMatrix::NRows() const { return _my->_nRows; }
double DiscIndividualMatrix::WeightSum() const { return _my->_weightSum; }
int DiscIndividualMatrix::NVar() const { return _my->_nVar; }
int DiscIndividualMatrix::NGroup() const { return _my->_nGroup; }

double DiscIndividualMatrix::TSSP(int tsspIndex, int groupVal) const {
  const std::int64_t countMatrix = _my->Items();
  VELMOR_ASSERT(0 <= tsspIndex && tsspIndex < countMatrix);
  VELMOR_ASSERT(groupVal < NGroup() && groupVal >= 0);
  VELMOR_ASSERT(0. < WeightSum());
  return _my->_TSSP[_my->Cell(tsspIndex, groupVal)];
}

double DiscIndividualMatrix::TSSP(int row, int col, int groupVal) const {
  VELMOR_ASSERT(row <= NVar() && row >= 0);
  VELMOR_ASSERT(col <= NVar() && col >= 0);
  VELMOR_ASSERT(groupVal < NGroup() && groupVal >= 0);
  VELMOR_ASSERT(0. < WeightSum());
  VELMOR_ASSERT(row != col);
  if (row < col) {
    std::swap(row, col);
  }
  return _my->_TSSP[_my->Cell(MatrixRowCount(row) + col, groupVal)];
}

template <class Record, class State>
void DiscIndividualMatrix::Data::Transfer(Record& my, const Shape& shape, State& state) {
  TransferTotals(my, shape, state);
  // Before the cells are counted, whose number need not fit 64 bits.
  state.Expect(static_cast<std::uint64_t>(my.Items()),
               sizeof(double) * static_cast<std::size_t>(my._nGroup));
  state.Numbers(my._TSSP, my.Cells());
}

template struct StateOf<DiscIndividualMatrix>;

}  // namespace velmor
