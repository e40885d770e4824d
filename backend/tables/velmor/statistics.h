#pragma once

#include <limits>
#include <memory>
#include <vector>

#pragma GCC visibility push(default)
namespace velmor {

// Statistics of one variable over the cases in which it is present, and of a pair of variables over
// the cases in which both are present, as the pairwise accumulators keep them. A host can use them
// directly: Init from columns, Update with a record over other cases.
//
// A value is absent when it equals the missing code, and only then: a NaN value is present, and a
// NaN code marks nothing. A case's weight never makes it absent. u is a case's combined weight
// (databatch.h). Init and Update compute in the default floating-point environment and restore the
// caller's. Records are used by one thread at a time.

// Scratch for Init: vectors that keep their capacity from call to call. What they hold between
// calls means nothing. One area serves one Init at a time.
struct WorkArea {
  std::vector<double> _x0;  // present values of the variable, or of a pair's first variable
  std::vector<double> _x1;  // present values of a pair's second variable
  std::vector<double> _w;   // the values' case weights, then their combined weights
  std::vector<double> _rw;  // the values' regression weights
  // A value that equals it is absent.
  double _missingCode = std::numeric_limits<double>::quiet_NaN();
};

// The statistics of one variable.
struct VarStatData {
  // A record of no case.
  VarStatData();

  // Replaces every field with the statistics of x[0] to x[n-1].
  //   x       n values
  //   w, rw   n case weights and n regression weights, null when there are none
  //   wa      lends its vectors and its missing code
  //   n       number of cases, not negative
  // O(n); allocates only while wa's vectors grow to n. Throws std::bad_alloc, leaving the record
  // as it was.
  void Init(const double* x, const double* w, const double* rw, WorkArea& wa, int n);

  // Merges the statistics of other cases. A record of no case changes nothing. O(1).
  void Update(const VarStatData& other);

  int _nRows = 0;             // cases in which the variable is present
  double _weightSum = 0.;     // sum of their case weights; without case weights their number
  double _regWeightSum = 0.;  // sum of u
  double _mean = 0.;          // sum of u * x over _regWeightSum
  double _css = 0.;           // sum of u * (x - mean)^2
  // maxvalue and minvalue while no case counts. With a NaN among the values the extremes depend on
  // how the cases were cut into batches, and mean nothing.
  double _min;
  double _max;
};

// The statistics of two variables over the cases in which both are present.
struct PairStatData {
  // As VarStatData's Init and Update, of the cases in which x0[i] and x1[i] are present.
  void Init(const double* x0, const double* x1, const double* w, const double* rw, WorkArea& wa,
            int n);
  void Update(const PairStatData& other);

  int _nRows = 0;
  double _weightSum = 0.;
  double _regWeightSum = 0.;
  double _mean0 = 0.;
  double _mean1 = 0.;
  double _css0 = 0.;  // sum of u * (x0 - mean0)^2
  double _css1 = 0.;
  double _cscp = 0.;  // sum of u * (x0 - mean0) * (x1 - mean1)
};

// A handle that owns a variable's record. Not copied or assigned; Copy makes another.
class VarStat {
 public:
  VarStat();
  // Takes ownership of `data`. A handle given null can only be destroyed.
  explicit VarStat(VarStatData* data);
  ~VarStat();
  VarStat(const VarStat&) = delete;
  VarStat& operator=(const VarStat&) = delete;

  int NRows() const { return _data->_nRows; }
  double WeightSum() const { return _data->_weightSum; }
  double RegWeightSum() const { return _data->_regWeightSum; }
  double Mean() const { return _data->_mean; }
  double CSS() const { return _data->_css; }
  double Min() const { return _data->_min; }
  double Max() const { return _data->_max; }

  // The record's Init and Update.
  void Init(const double* x, const double* w, const double* rw, WorkArea& wa, int n);
  void Update(VarStat& other);

  // The record, still owned by this handle.
  VarStatData* Data() { return _data.get(); }

  // A new handle with a record of its own, equal to this one. The caller owns it.
  VarStat* Copy() const;

 private:
  std::unique_ptr<VarStatData> _data;
};

// A handle that owns a pair's record, like VarStat.
class PairStat {
 public:
  PairStat();
  // Takes ownership of `data`. A handle given null can only be destroyed.
  explicit PairStat(PairStatData* data);
  ~PairStat();
  PairStat(const PairStat&) = delete;
  PairStat& operator=(const PairStat&) = delete;

  int NRows() const { return _data->_nRows; }
  double WeightSum() const { return _data->_weightSum; }
  double RegWeightSum() const { return _data->_regWeightSum; }
  double Mean0() const { return _data->_mean0; }
  double Mean1() const { return _data->_mean1; }
  double CSS0() const { return _data->_css0; }
  double CSS1() const { return _data->_css1; }
  double CSCP() const { return _data->_cscp; }

  void Init(const double* x0, const double* x1, const double* w, const double* rw, WorkArea& wa,
            int n);
  void Update(PairStat& other);
  PairStatData* Data() { return _data.get(); }
  PairStat* Copy() const;

 private:
  std::unique_ptr<PairStatData> _data;
};

// Whether the squares of a record say that its values differ. Where all are equal, squares are
// exactly 0 after an Init, but merges round: even one into a record of no case takes the mean as
// (mean * weight) / weight, so that three times 0.1 can have a mean beside 0.1 and squares of
// 6e-34. This is true for squares beyond all that merges leave of equal values, which is where the
// standard deviation sqrt(squares / weight) is larger than 2^-43 of |mean|, some 1e-13. A smaller
// spread can't be told from none by squares. Extremes tell it exactly: values differ if min < max.
//
// For weights that are not negative, any number of batches merged in any order, 32 of the merges
// that a batch passes through being into records of no case, and products of mean and weight that
// are no subnormal numbers. False with a NaN.
//   squares  of a variable or of one of a pair: CSS(), CSS0(), CSS1()
//   mean     Mean(), Mean0() or Mean1()
//   weight   RegWeightSum()
bool Varies(double squares, double mean, double weight);

}  // namespace velmor
#pragma GCC visibility pop
