#pragma once

// Merges of two results, over rows of cells, means, extremes and pairs. Nothing is allocated.

#include <array>
#include <cstddef>
#include <cstdint>

namespace velmor::ordered {

// cells[i] = d[i] + cells[i], i < count.
void AddCells(const double* d, std::size_t count, double* cells);

// The means of one side of a merge, with the sum of the weights that they stand for.
struct SideMeans {
  const double* means;
  double weight;
};

// merged[i] = a.means[i] + MeanDiff(a.means[i], a.weight, b.means[i], b.weight), i < count.
void MergeMeans(SideMeans a, SideMeans b, std::size_t count, double* merged);

// Merges b's extremes into a's: an extreme of b's replaces a's where it is strictly further out.
void MergeExtremes(const double* minsB, const double* maxsB, std::size_t count, double* minsA,
                   double* maxsA);

// The statistics of a pair of variables over the cases in which both are present. Every record of a
// pair has these members in these places; the public PairStatData counts in 32 bits.
struct PairRecord {
  std::uint64_t _nRows = 0;
  double _weightSum = 0.;
  double _regWeightSum = 0.;
  double _mean0 = 0.;
  double _mean1 = 0.;
  double _css0 = 0.;
  double _css1 = 0.;
  double _cscp = 0.;
};

// Whether a record has them there.
template <class Record>
constexpr bool IsPairRecord() {
  return sizeof(Record) == sizeof(PairRecord) && offsetof(Record, _nRows) == 0 &&
         offsetof(Record, _weightSum) == offsetof(PairRecord, _weightSum) &&
         offsetof(Record, _regWeightSum) == offsetof(PairRecord, _regWeightSum) &&
         offsetof(Record, _mean0) == offsetof(PairRecord, _mean0) &&
         offsetof(Record, _mean1) == offsetof(PairRecord, _mean1) &&
         offsetof(Record, _css0) == offsetof(PairRecord, _css0) &&
         offsetof(Record, _css1) == offsetof(PairRecord, _css1) &&
         offsetof(Record, _cscp) == offsetof(PairRecord, _cscp);
}

// A pair's record as the eight doubles' room that it is.
template <class Record>
double* RoomOf(Record& record) {
  static_assert(IsPairRecord<Record>());
  return static_cast<double*>(static_cast<void*>(&record));
}
template <class Record>
const double* RoomOf(const Record& record) {
  static_assert(IsPairRecord<Record>());
  return static_cast<const double*>(static_cast<const void*>(&record));
}

// Merges pairs into records as PairStatData::Update does, some at a time. The counts of cases are
// the caller's to add; pairs without a case are left out.
class PairMerges {
 public:
  PairMerges() = default;
  PairMerges(const PairMerges&) = delete;
  PairMerges& operator=(const PairMerges&) = delete;
  ~PairMerges() { Merge(); }

  // Merges the pair into the record now or later, at the latest in the destructor; until then both
  // have to stay where they are. Of the records that are added no two are the same.
  void Add(double* record, const double* pair) {
    MergeIfFull();
    _records[_count] = record;
    _pairs[_count++] = pair;
  }
  // A place for the pair that is added next.
  PairRecord& NextPair() {
    MergeIfFull();
    return _room[_count];
  }

 private:
  static constexpr std::size_t kAtOnce = 64;

  void MergeIfFull() {
    if (_count == kAtOnce) {
      Merge();
    }
  }
  void Merge();

  std::size_t _count = 0;
  std::array<double*, kAtOnce> _records{};
  std::array<const double*, kAtOnce> _pairs{};
  std::array<PairRecord, kAtOnce> _room{};
};

// How far the merged means are from each side's means.
struct Shifts {
  const double* ofA;  // merged mean - a's mean
  const double* ofB;
};

// Merges one row of centred cross-products:
//   cellsA[j] = ((cellsB[j] + factorA * ofA[j]) + factorB * ofB[j]) + cellsA[j],  j < count.
// factorA, factorB  each side's weight times the shift of its mean in the row's column
void MergeRow(Shifts shifts, double factorA, double factorB, const double* cellsB,
              std::size_t count, double* cellsA);

}  // namespace velmor::ordered
