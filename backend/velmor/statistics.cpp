// statistics.cpp: the public records and handles. With the public kernels, their Init and Update
// define what the pairwise accumulators' records hold, to the bit.
#include <velmor/kernels.h>
#include <velmor/statistics.h>

#include "ordered/floatenvironment.h"
#include "record/presentmerge.h"

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

// What squares can be when all values are c, to first order in u = 2^-53. The Init of a batch gives
// the mean c and squares of 0.
//
// Means. A merge into a record of no case rounds a product and a quotient, so it moves a mean by up
// to 2u|c|. Any other merge leaves it between the two means: their difference t is exact, the shift
// is t times a share below 1 with a relative error of 3u, too little to pass the other mean when
// the sum is rounded. With up to 32 of the former, means are within 64u|c| of c, and |t| <=
// 128u|c|.
//
// Squares. A merge of weights a and b, which are shares p and q of a + b, adds a d^2 + b e^2. There
// d = q t; and |e| <= |t|, but also |e| <= 2p|t|, since no double is nearer to the unrounded mean
// than the one that it is rounded to. For b <= a that is at most b t^2 (p q + 1), for a < b at most
// a t^2 (q + 4p) q, either way 4/3 min(a, b) t^2. Summed over all merges of N batches, min(a, b) is
// at most W/2 log2(N), W being the weight of all: with h(p) the entropy of a choice between p and
// q, which is at least 2 min(p, q), the sum of (a + b) h(p) is W times the entropy of the batches'
// shares, at most log2(N). A merge into a record of no case adds b e^2 <= b (2u c)^2, 32 of them
// 128 W (u c)^2. With N < 2^64 the squares are at most W (838 u c)^2.
bool Varies(double squares, double mean, double weight) {
  const DefaultFloatEnvironment environment;
  constexpr double kLeastSpread = 0x1p-43;  // 1024u, so that other roundings do not matter
  const double least = kLeastSpread * mean;
  return squares > (weight * least) * least;
}

}  // namespace velmor
