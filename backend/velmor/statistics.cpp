// statistics.cpp: the public records and handles. With the public kernels, their Init and Update
// define what the pairwise accumulators' records hold, to the bit.
#include <velmor/kernels.h>
#include <velmor/statistics.h>

#include "ordered/floatenvironment.h"
#include "record/presentcases.h"

namespace velmor {

namespace {

// Count and weight sums of the cases kept in the work area, whose weights become the combined
// ones.
template <class Record>
void TakeTotals(Record& record, WorkArea& work, bool hasRegWeights) {
  record._nRows = static_cast<int>(work._x0.size());
  record._weightSum = work._w.empty() ? static_cast<double>(record._nRows) : Sum(work._w);
  CombineWeights(work._w, work._rw);
  record._regWeightSum = hasRegWeights ? Sum(work._w) : record._weightSum;
}

}  // namespace

VarStatData::VarStatData() : _min(maxvalue), _max(minvalue) {}

void VarStatData::Init(const double* x, const double* w, const double* rw, WorkArea& wa, int n) {
  const DefaultFloatEnvironment environment;
  CopyNonmissing(x, w, rw, wa._missingCode, n, wa._x0, wa._w, wa._rw);
  TakeTotals(*this, wa, rw != nullptr);
  _mean = WeightedMean(wa._x0, wa._w, _regWeightSum);
  _min = Mins(wa._x0);
  _max = Maxs(wa._x0);
  CenterData(wa._x0, _mean);
  _css = CrossProduct(wa._x0, wa._x0, wa._w);
}

void VarStatData::Update(const VarStatData& other) {
  const DefaultFloatEnvironment environment;
  UpdateVariable(*this, other);
}

void PairStatData::Init(const double* x0, const double* x1, const double* w, const double* rw,
                        WorkArea& wa, int n) {
  const DefaultFloatEnvironment environment;
  CopyCompletePairs(x0, x1, w, rw, wa._missingCode, n, wa._x0, wa._x1, wa._w, wa._rw);
  TakeTotals(*this, wa, rw != nullptr);
  _mean0 = WeightedMean(wa._x0, wa._w, _regWeightSum);
  _mean1 = WeightedMean(wa._x1, wa._w, _regWeightSum);
  CenterData(wa._x0, _mean0);
  CenterData(wa._x1, _mean1);
  _css0 = CrossProduct(wa._x0, wa._x0, wa._w);
  _css1 = CrossProduct(wa._x1, wa._x1, wa._w);
  _cscp = CrossProduct(wa._x0, wa._x1, wa._w);
}

void PairStatData::Update(const PairStatData& other) {
  const DefaultFloatEnvironment environment;
  if (other._nRows == 0) {
    return;
  }
  const double a = _regWeightSum;
  const double b = other._regWeightSum;
  const MeanShift shift0 = MergeMean(_mean0, a, other._mean0, b);
  const MeanShift shift1 = MergeMean(_mean1, a, other._mean1, b);
  _css0 = MergedProducts(_css0, a, other._css0, b, shift0, shift0);
  _css1 = MergedProducts(_css1, a, other._css1, b, shift1, shift1);
  _cscp = MergedProducts(_cscp, a, other._cscp, b, shift0, shift1);
  MergeTotals(*this, other);
}

VarStat::VarStat() : _data(std::make_unique<VarStatData>()) {}
VarStat::VarStat(VarStatData* data) : _data(data) {}
VarStat::~VarStat() = default;

void VarStat::Init(const double* x, const double* w, const double* rw, WorkArea& wa, int n) {
  _data->Init(x, w, rw, wa, n);
}

void VarStat::Update(VarStat& other) { _data->Update(*other._data); }

VarStat* VarStat::Copy() const {
  auto copy = std::make_unique<VarStat>();
  *copy->_data = *_data;
  return copy.release();
}

PairStat::PairStat() : _data(std::make_unique<PairStatData>()) {}
PairStat::PairStat(PairStatData* data) : _data(data) {}
PairStat::~PairStat() = default;

void PairStat::Init(const double* x0, const double* x1, const double* w, const double* rw,
                    WorkArea& wa, int n) {
  _data->Init(x0, x1, w, rw, wa, n);
}

void PairStat::Update(PairStat& other) { _data->Update(*other._data); }

PairStat* PairStat::Copy() const {
  auto copy = std::make_unique<PairStat>();
  *copy->_data = *_data;
  return copy.release();
}

}  // namespace velmor
