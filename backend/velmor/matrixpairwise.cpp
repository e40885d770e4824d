// matrixpairwise.cpp: the whole pairwise matrix; start at Data::Update(DataBatch&).
#include <velmor/matrixpairwise.h>

#include "record/pairwise.h"
#include "record/protocol.h"

#include <type_traits>
#include <utility>

namespace velmor {

struct VarStatsData {
  std::uint64_t _nRows = 0;
  double _weightSum = 0.;
  double _regWeightSum = 0.;
  double _mean = 0.;
  double _css = 0.;
};

struct PairStatsData : ordered::PairRecord {};

struct MatrixPairwise::Data {
  static constexpr Kind kKind = Kind::MatrixPairwise;
  explicit Data(double missingCode) : _work{missingCode} {}
  // Offset of row i of a strictly lower triangle, i(i-1)/2.
  static std::size_t MatrixRow(std::size_t i) { return i * (i - 1) / 2; }
  bool IsEmpty() const { return _varStats.empty(); }
  void MakeRecords(std::int64_t columns, std::int64_t pairs) {
    _varStats.resize(static_cast<std::size_t>(columns));
    _xp.resize(static_cast<std::size_t>(pairs));
  }
  void Init(DataBatch& data);
  void Update(DataBatch& data);
  void Update(const Data& d);
  Shape GetShape() const {
    const auto columns = static_cast<std::int32_t>(_varStats.size());
    return {kKind, {0, 0, columns}, _work._missingCode, !IsEmpty(), _hasRegWeights};
  }
  static std::unique_ptr<MatrixPairwise> Make(const Shape& shape) {
    return std::make_unique<MatrixPairwise>(shape.missingCode);
  }
  template <class Record, class State>
  static void Transfer(Record& my, const Shape& shape, State& state);

  double _weightSum = 0.;
  double _regWeightSum = 0.;
  std::uint64_t _nRows = 0;
  std::vector<VarStatsData> _varStats;
  std::vector<PairStatsData> _xp;  // columns i > j at MatrixRow(i) + j, i being the first variable
  MissingValues _work;
  bool _hasRegWeights = false;
};

void MatrixPairwise::Data::Init(DataBatch& data) {
  VELMOR_ASSERT(!_xp.size());  // NOLINT(readability-container-size-empty): stable text
  _varStats.resize(data.NColumns());
  _xp.resize(MatrixRow(data.NColumns()));
  _hasRegWeights = data.HasRegWeights();
  Update(data);
}

void MatrixPairwise::Data::Update(DataBatch& data) {
  const unsigned int nCols = data.NColumns();
  VELMOR_ASSERT(_hasRegWeights == data.HasRegWeights());
  VELMOR_ASSERT(_varStats.size() == nCols);
  AddRecords(*this, data, 0, static_cast<int>(nCols), ordered::WantedPairs::Triangle());
}

void MatrixPairwise::Data::Update(const Data& d) {
  VELMOR_ASSERT(_varStats.size() == d._varStats.size());
  VELMOR_ASSERT(_hasRegWeights == d._hasRegWeights);
  VELMOR_ASSERT(IsSameCode(_work._missingCode, d._work._missingCode));
  if (d._weightSum == 0.) {
    return;
  }
  const std::size_t nCols = _varStats.size();
  const std::size_t xpindex = MergeRecords(*this, d);
  VELMOR_ASSERT(xpindex == MatrixRow(nCols));
  MergeTotals(*this, d);
}

std::uint64_t VarStats::NRows() const { return _data->_nRows; }
double VarStats::WeightSum() const { return _data->_weightSum; }
double VarStats::RegWeightSum() const { return _data->_regWeightSum; }
double VarStats::Mean() const { return _data->_mean; }
double VarStats::CSS() const { return _data->_css; }

std::uint64_t PairStats::NRows() const { return _data->_nRows; }
double PairStats::WeightSum() const { return _data->_weightSum; }
double PairStats::RegWeightSum() const { return _data->_regWeightSum; }
double PairStats::Mean0() const { return _data->_mean0; }
double PairStats::Mean1() const { return _data->_mean1; }
double PairStats::CSS0() const { return _data->_css0; }
double PairStats::CSS1() const { return _data->_css1; }
double PairStats::CSCP() const { return _data->_cscp; }

MatrixPairwise::MatrixPairwise(const double& missingCode)
    : _my(std::make_unique<Data>(missingCode)) {}
MatrixPairwise::~MatrixPairwise() = default;

MatrixPairwise& MatrixPairwise::operator+=(DataBatch& batch) {
  AddBatchInPlace(*_my, batch);
  return *this;
}

MatrixPairwise& MatrixPairwise::operator+=(const MatrixPairwise& other) {
  if (other.NRows() != 0) {
    MergeRecord(*_my, *other._my);
  }
  return *this;
}

unsigned int MatrixPairwise::NColumns() const {
  return static_cast<unsigned int>(_my->_varStats.size());
}
std::uint64_t MatrixPairwise::NRows() const { return _my->_nRows; }
double MatrixPairwise::WeightSum() const { return _my->_weightSum; }
double MatrixPairwise::RegWeightSum() const { return _my->_regWeightSum; }
bool MatrixPairwise::HasRegWeights() const { return _my->_hasRegWeights; }
double MatrixPairwise::MissingCode() const { return _my->_work._missingCode; }

VarStats MatrixPairwise::Var(unsigned int col) const {
  VELMOR_ASSERT(col < NColumns());
  VELMOR_ASSERT(0. < WeightSum());
  return VarStats(&_my->_varStats[col]);
}

PairStats MatrixPairwise::Pair(unsigned int row, unsigned int col) const {
  VELMOR_ASSERT(row < NColumns());
  VELMOR_ASSERT(col < NColumns());
  VELMOR_ASSERT(row != col);
  VELMOR_ASSERT(0. < WeightSum());
  if (row < col) {
    std::swap(row, col);
  }
  return PairStats(&_my->_xp[Data::MatrixRow(row) + col]);
}

template <class Record, class State>
void MatrixPairwise::Data::Transfer(Record& my, const Shape& shape, State& state) {
  if constexpr (!std::is_const_v<Record>) {
    const auto columns = static_cast<std::size_t>(shape.Columns());
    ExpectRecords(state, shape.Columns(), static_cast<std::int64_t>(MatrixRow(columns)));
    my._varStats.resize(columns);
    my._xp.resize(MatrixRow(columns));
  }
  TransferRecords(my, shape, state);
}

template struct StateOf<MatrixPairwise>;

}  // namespace velmor
