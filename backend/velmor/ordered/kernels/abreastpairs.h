#pragma once

// Pairs of columns in blocks side by side: a lane is a block, and selects the rows in which both
// columns are present there. Contract: contract.h.

#include "ordered/kernels/abreast.h"
#include "ordered/kernels/contract.h"
#include "ordered/kernels/vectors.h"

namespace velmor::ordered {

template <class Set>
void PresentAbreast(const double* a, const double* b, double missingCode, std::size_t rows,
                    double* masks) {
  for (std::size_t i = 0; i < rows * Set::kLanes; i += Set::kLanes) {
    const Mask<Set> isPresent =
        (LoadVector<Set>(a + i) != missingCode) & (LoadVector<Set>(b + i) != missingCode);
    StoreMask<Set>(isPresent, masks + i);
  }
}

template <class Set>
void CountAbreast(const std::uint64_t* a, const std::uint64_t* b, std::size_t words,
                  double* counts) {
  for (unsigned lane = 0; lane < Set::kLanes; ++lane, a += words, b += words) {
    std::int64_t count = 0;
    for (std::size_t i = 0; i < words; ++i) {
      count += __builtin_popcountll(a[i] & b[i]);
    }
    counts[lane] = static_cast<double>(count);
  }
}

// A pair's fields.
template <class Set>
struct PairFields {
  double* fields;

  double* At(unsigned field) const { return fields + field * Set::kLanes; }
  Vector<Set> Get(unsigned field) const { return LoadVector<Set>(At(field)); }
  Mask<Set> GetMask(unsigned field) const { return LoadMask<Set>(At(field)); }
  void Put(unsigned field, Vector<Set> v) const { StoreVector<Set>(v, At(field)); }
  void PutMask(unsigned field, Mask<Set> mask) const { StoreMask<Set>(mask, At(field)); }
};

// The rows of a pair while a lane may be in a leading run of either column: up to the end of the
// first eight after which none is. Returns the row that comes next.
template <class Set, bool kWeighted>
std::size_t TakePairRuns(const PairRowsAbreast& rows, const double* x, const double* y,
                         PairFields<Set> pair) {
  Mask<Set> ended0 = pair.GetMask(kLaneEnded0);
  Mask<Set> ended1 = pair.GetMask(kLaneEnded1);
  if (HoldsEverywhere<Set>(ended0 & ended1)) {
    return rows.from;
  }
  Mask<Set> started = pair.GetMask(kLaneStarted);
  Vector<Set> runValue0 = pair.Get(kLaneRunValue0);
  Vector<Set> runValue1 = pair.Get(kLaneRunValue1);
  Vector<Set> runWeight0 = pair.Get(kLaneRunWeight0);
  Vector<Set> runWeight1 = pair.Get(kLaneRunWeight1);
  Vector<Set> weight = pair.Get(kLaneWeight);
  Vector<Set> sum0 = pair.Get(kLaneSum0);
  Vector<Set> sum1 = pair.Get(kLaneSum1);
  std::size_t row = rows.from;
  for (; row < rows.to; ++row) {
    if (row % 8 == 0 && HoldsEverywhere<Set>(ended0 & ended1)) {
      break;
    }
    const std::size_t at = row * Set::kLanes;
    const Vector<Set> u = kWeighted ? LoadVector<Set>(rows.weights + at) : Broadcast<Set>(1.);
    const Vector<Set> x0 = LoadVector<Set>(x + at);
    const Vector<Set> x1 = LoadVector<Set>(y + at);
    const Mask<Set> isPresent = (x0 != rows.missingCode) & (x1 != rows.missingCode);
    const Mask<Set> starts = isPresent & ~started;
    started = started | starts;
    runValue0 = starts ? x0 : runValue0;
    runValue1 = starts ? x1 : runValue1;
    ended0 = ended0 | (isPresent & ~(x0 == runValue0));
    ended1 = ended1 | (isPresent & ~(x1 == runValue1));
    runWeight0 = AddWhere<Set>(isPresent & ~ended0, u, runWeight0);
    runWeight1 = AddWhere<Set>(isPresent & ~ended1, u, runWeight1);
    sum0 = AddWhere<Set>(isPresent & ended0, u * x0, sum0);
    sum1 = AddWhere<Set>(isPresent & ended1, u * x1, sum1);
    if constexpr (kWeighted) {
      weight = AddWhere<Set>(isPresent, u, weight);
    }
  }
  pair.PutMask(kLaneEnded0, ended0);
  pair.PutMask(kLaneEnded1, ended1);
  pair.PutMask(kLaneStarted, started);
  pair.Put(kLaneRunValue0, runValue0);
  pair.Put(kLaneRunValue1, runValue1);
  pair.Put(kLaneRunWeight0, runWeight0);
  pair.Put(kLaneRunWeight1, runWeight1);
  pair.Put(kLaneWeight, weight);
  pair.Put(kLaneSum0, sum0);
  pair.Put(kLaneSum1, sum1);
  return row;
}

// One column by kPairs others, from a row on by which all runs have ended.
template <class Set, unsigned kPairs, bool kWeighted>
void TakePairSums(const PairRowsAbreast& rows, std::size_t from, const double* x,
                  const PairAbreast* pairs) {
  Vector<Set> weight[kPairs];
  Vector<Set> sum0[kPairs];
  Vector<Set> sum1[kPairs];
#pragma GCC unroll 8
  for (unsigned p = 0; p < kPairs; ++p) {
    const PairFields<Set> pair{pairs[p].fields};
    weight[p] = pair.Get(kLaneWeight);
    sum0[p] = pair.Get(kLaneSum0);
    sum1[p] = pair.Get(kLaneSum1);
  }
  for (std::size_t row = from; row < rows.to; ++row) {
    const std::size_t at = row * Set::kLanes;
    const Vector<Set> x0 = LoadVector<Set>(x + at);
    const Mask<Set> hasFirst = x0 != rows.missingCode;
    const Vector<Set> u = kWeighted ? LoadVector<Set>(rows.weights + at) : Broadcast<Set>(1.);
    const Vector<Set> term0 = kWeighted ? u * x0 : x0;
#pragma GCC unroll 8
    for (unsigned p = 0; p < kPairs; ++p) {
      const Vector<Set> x1 = LoadVector<Set>(pairs[p].values + at);
      const Mask<Set> isPresent = hasFirst & (x1 != rows.missingCode);
      if constexpr (kWeighted) {
        weight[p] = AddWhere<Set>(isPresent, u, weight[p]);
      }
      sum0[p] = AddWhere<Set>(isPresent, term0, sum0[p]);
      sum1[p] = AddWhere<Set>(isPresent, kWeighted ? u * x1 : x1, sum1[p]);
    }
  }
#pragma GCC unroll 8
  for (unsigned p = 0; p < kPairs; ++p) {
    const PairFields<Set> pair{pairs[p].fields};
    pair.Put(kLaneWeight, weight[p]);
    pair.Put(kLaneSum0, sum0[p]);
    pair.Put(kLaneSum1, sum1[p]);
  }
}

template <class Set, bool kWeighted>
void TakeAllPairSums(const PairRowsAbreast& rows, const double* x, const PairAbreast* pairs,
                     unsigned count) {
  constexpr unsigned kTile = Set::kPairsAbreast;
  for (unsigned p = 0; p < count;) {
    std::size_t next[kTile] = {};
    const unsigned some = count - p < kTile ? count - p : kTile;
    bool haveRuns = false;
    for (unsigned i = 0; i < some; ++i) {
      next[i] = TakePairRuns<Set, kWeighted>(rows, x, pairs[p + i].values, {pairs[p + i].fields});
      haveRuns = haveRuns || next[i] != rows.from;
    }
    if (some == kTile && !haveRuns) {
      TakePairSums<Set, kTile, kWeighted>(rows, rows.from, x, pairs + p);
    } else {
      for (unsigned i = 0; i < some; ++i) {
        TakePairSums<Set, 1, kWeighted>(rows, next[i], x, pairs + p + i);
      }
    }
    p += some;
  }
}

template <class Set>
void PairSumsAbreast(const PairRowsAbreast& rows, const double* x, const PairAbreast* pairs,
                     unsigned count) {
  const auto take =
      rows.weights != nullptr ? TakeAllPairSums<Set, true> : TakeAllPairSums<Set, false>;
  take(rows, x, pairs, count);
  for (unsigned p = 0; rows.caseWeights != nullptr && p < count; ++p) {
    const PairFields<Set> pair{pairs[p].fields};
    Vector<Set> sum = pair.Get(kLaneCaseWeight);
    for (std::size_t at = rows.from * Set::kLanes; at < rows.to * Set::kLanes; at += Set::kLanes) {
      const Mask<Set> isPresent = (LoadVector<Set>(x + at) != rows.missingCode) &
                                  (LoadVector<Set>(pairs[p].values + at) != rows.missingCode);
      sum = AddWhere<Set>(isPresent, LoadVector<Set>(rows.caseWeights + at), sum);
    }
    pair.Put(kLaneCaseWeight, sum);
  }
}

template <class Set>
void PairMeansAbreast(const PairAbreast* pairs, unsigned count) {
  const auto mean = [](PairFields<Set> pair, unsigned sum, unsigned value, unsigned weight,
                       unsigned ended, Vector<Set> weightSum) {
    const Vector<Set> first = pair.Get(value);
    const Vector<Set> quotient = (pair.Get(sum) + pair.Get(weight) * first) / weightSum;
    return pair.GetMask(ended) ? quotient : first;
  };
  for (unsigned p = 0; p < count; ++p) {
    const PairFields<Set> pair{pairs[p].fields};
    const Vector<Set> weight = pair.Get(kLaneWeight);
    const Vector<Set> mean0 =
        mean(pair, kLaneSum0, kLaneRunValue0, kLaneRunWeight0, kLaneEnded0, weight);
    const Vector<Set> mean1 =
        mean(pair, kLaneSum1, kLaneRunValue1, kLaneRunWeight1, kLaneEnded1, weight);
    pair.Put(kLaneMean0, mean0);
    pair.Put(kLaneMean1, mean1);
    pair.Put(kLaneSquares0, Vector<Set>{});
    pair.Put(kLaneSquares1, Vector<Set>{});
    pair.Put(kLaneProducts, Vector<Set>{});
  }
}

template <class Set, unsigned kPairs, bool kWeighted>
void TakePairProducts(const PairRowsAbreast& rows, const double* x, const PairAbreast* pairs) {
  Vector<Set> mean0[kPairs];
  Vector<Set> mean1[kPairs];
  Vector<Set> squares0[kPairs];
  Vector<Set> squares1[kPairs];
  Vector<Set> products[kPairs];
#pragma GCC unroll 8
  for (unsigned p = 0; p < kPairs; ++p) {
    const PairFields<Set> pair{pairs[p].fields};
    mean0[p] = pair.Get(kLaneMean0);
    mean1[p] = pair.Get(kLaneMean1);
    squares0[p] = pair.Get(kLaneSquares0);
    squares1[p] = pair.Get(kLaneSquares1);
    products[p] = pair.Get(kLaneProducts);
  }
  for (std::size_t at = rows.from * Set::kLanes; at < rows.to * Set::kLanes; at += Set::kLanes) {
    const Vector<Set> x0 = LoadVector<Set>(x + at);
    const Mask<Set> hasFirst = x0 != rows.missingCode;
    const Vector<Set> u = kWeighted ? LoadVector<Set>(rows.weights + at) : Broadcast<Set>(1.);
#pragma GCC unroll 8
    for (unsigned p = 0; p < kPairs; ++p) {
      const Vector<Set> x1 = LoadVector<Set>(pairs[p].values + at);
      const Mask<Set> isPresent = hasFirst & (x1 != rows.missingCode);
      const Vector<Set> d0 = x0 - mean0[p];
      const Vector<Set> d1 = x1 - mean1[p];
      const Vector<Set> weighted0 = kWeighted ? u * d0 : d0;
      const Vector<Set> weighted1 = kWeighted ? u * d1 : d1;
      squares0[p] = AddWhere<Set>(isPresent, weighted0 * d0, squares0[p]);
      squares1[p] = AddWhere<Set>(isPresent, weighted1 * d1, squares1[p]);
      products[p] = AddWhere<Set>(isPresent, weighted0 * d1, products[p]);
    }
  }
#pragma GCC unroll 8
  for (unsigned p = 0; p < kPairs; ++p) {
    const PairFields<Set> pair{pairs[p].fields};
    pair.Put(kLaneSquares0, squares0[p]);
    pair.Put(kLaneSquares1, squares1[p]);
    pair.Put(kLaneProducts, products[p]);
  }
}

template <class Set>
void PairProductsAbreast(const PairRowsAbreast& rows, const double* x, const PairAbreast* pairs,
                         unsigned count) {
  constexpr unsigned kTile = Set::kPairsAbreast;
  const bool isWeighted = rows.weights != nullptr;
  const auto some =
      isWeighted ? TakePairProducts<Set, kTile, true> : TakePairProducts<Set, kTile, false>;
  const auto one = isWeighted ? TakePairProducts<Set, 1, true> : TakePairProducts<Set, 1, false>;
  unsigned p = 0;
  for (; p + kTile <= count; p += kTile) {
    some(rows, x, pairs + p);
  }
  for (; p < count; ++p) {
    one(rows, x, pairs + p);
  }
}

// One variable's shift in a merge: of a's mean as it was before it was rounded into the merged
// mean, and of b's mean.
template <class Set>
struct LaneShift {
  Vector<Set> ofA;
  Vector<Set> ofB;
};

// Merges pairs b into a, lane by lane, where b has cases.
template <class Set>
struct PairMerge {
  Vector<Set> weightA;
  Vector<Set> weightB;

  [[gnu::always_inline]] LaneShift<Set> MergeMean(Vector<Set>& mean, Vector<Set> meanB) const {
    const Vector<Set> sum = weightA + weightB;
    const Vector<Set> quotient = ((meanB - mean) * weightB) / sum;
    const Vector<Set> shift = sum == 0. ? Vector<Set>{} : quotient;
    mean = mean + shift;
    return {shift, meanB - mean};
  }
  [[gnu::always_inline]] Vector<Set> Merged(Vector<Set> a, Vector<Set> b,
                                            const LaneShift<Set>& first,
                                            const LaneShift<Set>& second) const {
    return ((b + (weightA * first.ofA) * second.ofA) + (weightB * first.ofB) * second.ofB) + a;
  }
};

template <class Set>
[[gnu::always_inline]] inline void MergePairLanes(const Vector<Set> (&a)[kPairRecordFieldsAbreast],
                                                  const Vector<Set> (&b)[kPairRecordFieldsAbreast],
                                                  PairFields<Set> to) {
  const Mask<Set> hasCases = b[kLaneRows] != 0.;
  const PairMerge<Set> merge{a[kLaneWeight], b[kLaneWeight]};
  Vector<Set> mean0 = a[kLaneMean0];
  Vector<Set> mean1 = a[kLaneMean1];
  const LaneShift<Set> shift0 = merge.MergeMean(mean0, b[kLaneMean0]);
  const LaneShift<Set> shift1 = merge.MergeMean(mean1, b[kLaneMean1]);
  const auto put = [&](unsigned field, Vector<Set> merged) {
    to.Put(field, hasCases ? merged : a[field]);
  };
  const auto putMerged = [&](unsigned field, const LaneShift<Set>& first,
                             const LaneShift<Set>& second) {
    put(field, merge.Merged(a[field], b[field], first, second));
  };
  putMerged(kLaneSquares0, shift0, shift0);
  putMerged(kLaneSquares1, shift1, shift1);
  putMerged(kLaneProducts, shift0, shift1);
  put(kLaneMean0, mean0);
  put(kLaneMean1, mean1);
  put(kLaneRows, b[kLaneRows] + a[kLaneRows]);
  put(kLaneCaseWeight, b[kLaneCaseWeight] + a[kLaneCaseWeight]);
  put(kLaneWeight, b[kLaneWeight] + a[kLaneWeight]);
}

template <class Set>
void FreshPairs(double* records, std::size_t count) {
  constexpr Vector<Set> kEmpty[kPairRecordFieldsAbreast] = {};
  for (std::size_t i = 0; i < count; ++i) {
    const PairFields<Set> record{records + i * kPairFieldsAbreast * Set::kLanes};
    Vector<Set> batch[kPairRecordFieldsAbreast];
    for (unsigned f = 0; f < kPairRecordFieldsAbreast; ++f) {
      batch[f] = record.Get(f);
    }
    MergePairLanes<Set>(kEmpty, batch, record);
  }
}

template <class Set, unsigned kStep>
void MergePairNeighbours(PairFields<Set> record) {
  constexpr auto kAll = std::make_integer_sequence<unsigned, Set::kLanes>{};
  Vector<Set> a[kPairRecordFieldsAbreast];
  Vector<Set> b[kPairRecordFieldsAbreast];
  for (unsigned f = 0; f < kPairRecordFieldsAbreast; ++f) {
    a[f] = record.Get(f);
    b[f] = Neighbours<Set, kStep>(a[f], kAll);
  }
  MergePairLanes<Set>(a, b, record);
}

template <class Set>
void MergePairsAbreast(double* records, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const PairFields<Set> record{records + i * kPairFieldsAbreast * Set::kLanes};
    MergePairNeighbours<Set, 1>(record);
    if constexpr (Set::kLanes >= 4) {
      MergePairNeighbours<Set, 2>(record);
    }
    if constexpr (Set::kLanes >= 8) {
      MergePairNeighbours<Set, 4>(record);
    }
  }
}

}  // namespace velmor::ordered
