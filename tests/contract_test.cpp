// Every kernel of every instruction set keeps its contract (ordered/kernels/contract.h): it writes
// what the plain loops give and nothing else, with widths up to some panels, no rows, one, odd
// numbers and those around a strip, which is taken in parts. No array is aligned, each stands
// between guards, and what may not count is NaN: lanes without a column, rows that are not listed.
#include "abreast/lanecases.h"
#include "ordered/chains.h"
#include "ordered/engine.h"
#include "ordered/panels.h"
#include "ordered/tiles.h"

#include "support.h"

#include <bit>
#include <cstring>
#include <deque>

namespace velmor::ordered {
namespace {

using test::Bits;
using test::kInf;
using test::kNaN;
using Doubles = std::vector<double>;

constexpr std::size_t kGuard = 9;
constexpr double kNowhere = -7e77;  // what no argument is and no result

// What an array and its guards hold, and what they should.
struct Array {
  Doubles got, want = got;

  double* At(std::size_t i = 0) { return &got[kGuard + i]; }
  double& Want(std::size_t i = 0) { return want[kGuard + i]; }
};

// Bits of a case's kind; those from the third on are each kernel's own.
enum Kind : unsigned { kListed = 1, kWeighted = 2, kOwn = 4, kOwn2 = 8, kOwn3 = 16, kAllOwn = 60 };

// A case of a kernel.
struct Trial {
  const Engine& engine;
  unsigned width;  // columns; the lanes that are left are NaN
  std::size_t rows;
  unsigned kind;
  std::size_t lanes = engine.panel;
  unsigned panels = (width + engine.panel - 1) / engine.panel;
  std::size_t stride = Row(rows + 1) * lanes + 3;
  std::deque<Array> arrays = {};
  std::vector<std::uint8_t> list = {};
  std::vector<Doubles> x = Columns(0);
  Doubles w = Weights(5);
  const double* weights = Is(kWeighted) ? w.data() : nullptr;

  bool Is(unsigned bit) const { return (kind & bit) != 0; }
  // The i-th row that counts.
  std::size_t Row(std::size_t i) const { return Is(kListed) ? 1 + i + i / 4 : i; }
  // The place of a lane in panels, or in what there is for each of them, of a size.
  std::size_t Place(std::size_t c, std::size_t size) const { return c / lanes * size + c % lanes; }

  // Numbers of one of several sorts.
  Doubles Numbers(unsigned seed, std::size_t count) const {
    std::minstd_rand random(seed * 32 + kind + 1);
    const std::size_t runs[] = {0, 0, 0, 0, 0, seed % 9, seed * 9 % 81, count};
    Doubles numbers(count, 0.1 * (seed + 1));
    for (std::size_t i = runs[(seed + width) % 8]; i < count; ++i) {
      const double u = std::uniform_real_distribution<double>(-1., 1.)(random);
      const double special = i == seed ? kNaN : 1e307 / u;
      const double zero = std::copysign(0., u);
      const double sorts[] = {u, 1e8 + u, 1e-309 * u, special, zero, u, std::round(5. * u), u};
      numbers[i] = sorts[(seed + width) % 8];
    }
    return numbers;
  }
  std::vector<Doubles> Columns(unsigned seed) const {
    std::vector<Doubles> columns(panels * lanes, Doubles(rows, kNaN));
    for (unsigned c = 0; c < width; ++c) {
      columns[c] = Numbers(seed + c, rows);
    }
    return columns;
  }
  // Some negative, some zero.
  Doubles Weights(unsigned seed) const {
    Doubles some(rows);
    std::generate(some.begin(), some.end(), [&] { return ((seed += 7) % 16 - 3.) / 3.; });
    return some;
  }

  Array& New(const Doubles& values) {
    Doubles all(values.size() + 2 * kGuard, kNowhere);
    std::copy(values.begin(), values.end(), &all[kGuard]);
    return arrays.emplace_back(Array{all});
  }
  Array& NewResults(std::size_t count, double value = kNowhere) {
    return New(Doubles(count, value));
  }
  void Same(double got, double want) { NewResults(1, got).Want() = want; }
  std::vector<double*> NewColumns() {
    std::vector<double*> columns;
    std::transform(x.begin(), x.end(), std::back_inserter(columns),
                   [this](const Doubles& values) { return New(values).At(); });
    return columns;
  }
  const double* NewPanels(const std::vector<Doubles>& columns) {
    Doubles all(panels * stride, kNaN);
    for (std::size_t i = 0; i < columns.size() * rows; ++i) {
      all[Place(i / rows, stride) + Row(i % rows) * lanes] = columns[i / rows][i % rows];
    }
    return New(all).At();
  }
  // What there is of each row; null stays null.
  const double* ByRow(const double* values) {
    Doubles all(Row(rows + 1), kNaN);
    for (std::size_t i = 0; values != nullptr && i < rows; ++i) {
      all[Row(i)] = values[i];
    }
    return values != nullptr ? New(all).At() : nullptr;
  }
  Rows Some(std::size_t from, std::size_t to) {
    for (std::size_t i = list.size(); i < rows; ++i) {
      list.push_back(static_cast<std::uint8_t>(Row(i)));
    }
    return {to - from, Is(kListed) ? list.data() + from : nullptr};
  }
  // Calls call(rows of a strip, the row that they are counted from) for each of three strips.
  template <class Call>
  void InStrips(Call call) {
    const std::size_t cut = rows / 3;
    call(Some(0, cut), std::size_t{0});
    call(Some(cut, cut), Is(kListed) ? 0 : cut);
    call(Some(cut, rows), Is(kListed) ? 0 : cut);
  }
};

// Each function calls kernels and says what is wanted, or returns where there is no such case.

void Pack(Trial& t, bool isCentred) {
  if (t.panels != 1) {
    return;
  }
  const Doubles centers = isCentred ? t.Numbers(90, t.lanes) : Doubles(t.lanes);
  const bool isWeighted = isCentred || t.Is(kWeighted);
  const double* const weights = t.New(t.w).At();
  Array& panel = t.NewResults(t.rows * t.lanes);
  Array& weighted = t.NewResults(t.rows * t.lanes);
  isCentred ? t.engine.Center(t.NewPanels(t.x), t.Some(0, t.rows), t.New(centers).At(), weights,
                              panel.At(), weighted.At())
            : t.engine.Pack(t.NewColumns().data(), t.rows, weights, panel.At(),
                            isWeighted ? weighted.At() : nullptr);
  for (std::size_t i = 0; i < t.rows * t.lanes; ++i) {
    panel.Want(i) = t.x[i % t.lanes][i / t.lanes] - centers[i % t.lanes];
    weighted.Want(i) = isWeighted ? t.w[i / t.lanes] * panel.Want(i) : kNowhere;
  }
}

void CenterColumns(Trial& t) {
  const Doubles means = t.Numbers(90, t.x.size());
  const std::vector<double*> columns = t.NewColumns();
  t.engine.CenterColumns(columns.data(), t.width, t.rows, t.New(means).At());
  for (std::size_t c = 0; c < t.width; ++c) {
    CenterData(&t.arrays[c].Want(), means[c], t.rows);
  }
}

void Moments(Trial& t, bool arePanels) {
  Array& moments = t.NewResults(t.x.size() * kMomentFields);
  Array& sum = t.NewResults(1, arePanels ? 0. : kNowhere);
  const double* const weights = t.ByRow(t.weights);
  const double* const panels = t.NewPanels(t.x);
  bool isFirst = true;
  t.InStrips([&](Rows rows, std::size_t from) {
    if (arePanels) {
      t.engine.PanelMoments(panels + from * t.lanes, t.panels, t.stride, rows, From(weights, from),
                            isFirst, moments.At(), sum.At());
      isFirst = isFirst && rows.count == 0;
    } else if (std::exchange(isFirst, false)) {
      t.engine.ColumnMoments(t.NewColumns().data(), t.panels, t.rows, weights, moments.At(),
                             sum.At());
    }
  });
  const double all = WeightedSum(t.weights, t.rows);
  sum.Want() = t.panels > 0 ? all : 0.;
  const std::size_t written = t.rows == 0 ? 0 : t.x.size();
  std::copy(moments.At(), moments.At(written * kMomentFields), &moments.Want());
  for (std::size_t c = 0; c < written; ++c) {
    const std::size_t at = t.Place(c, kMomentFields * t.lanes);
    const double* const x = t.x[c].data();
    t.Same(MeanOf(moments.At(at), t.lanes, all), WeightedMean(x, t.weights, all, t.rows));
    moments.Want(at + kMin * t.lanes) = Mins(x, t.rows);
    moments.Want(at + kMax * t.lanes) = Maxs(x, t.rows);
  }
}

// From kind 32 on, a panel is both operands.
void Products(Trial& t, bool isDiagonal) {
  const unsigned columns = t.kind / kOwn % 8 + 1;
  if (t.panels == 0 || t.panels > (isDiagonal ? 1 : t.engine.tilePanels) || columns > t.lanes) {
    return;
  }
  const std::vector<Doubles> y = t.kind < 32 ? t.Columns(40) : t.x;
  const double* const b = t.NewPanels(t.x);
  const double* const a = t.kind < 32 ? t.NewPanels(y) : b;
  Array& cells = t.NewResults(t.x.size() * t.lanes, 0.);
  t.InStrips([&](Rows rows, std::size_t from) {
    from *= t.lanes;
    isDiagonal ? t.engine.DiagonalProducts(a + from, columns, b + from, rows.count, cells.At())
               : t.engine.Products(a + from, columns, b + from, t.panels, t.stride, rows.count,
                                   cells.At());
  });
  for (std::size_t i = 0; i < (columns + columns % 2) * t.x.size(); ++i) {
    const std::size_t r = i / t.x.size();
    const std::size_t c = i % t.x.size();
    const std::size_t at = t.Place(c, t.lanes * t.lanes) + r * t.lanes;
    const bool isLeftOut = isDiagonal && r < c && *cells.At(at) == 0.;
    cells.Want(at) = isLeftOut ? 0. : ProductSum(y[r].data(), t.x[c].data(), t.rows);
  }
}

// With kOwn sums are not wanted, with kOwn2 squares are not.
void PanelSums(Trial& t) {
  if (t.Is(kOwn) && t.Is(kOwn2)) {
    return;
  }
  const std::vector<unsigned> group(t.rows);
  const std::size_t size = 2 * t.lanes;  // a panel's sums, then its sums of squares
  Array& sums = t.NewResults(2 * t.x.size(), 0.);
  const double* const panels = t.NewPanels(t.x);
  const double* const weights = t.ByRow(t.weights);
  t.InStrips([&](Rows rows, std::size_t from) {
    t.engine.PanelSums(panels + from * t.lanes, t.panels, t.stride, rows, From(weights, from), size,
                       t.Is(kOwn) ? nullptr : sums.At(), t.Is(kOwn2) ? nullptr : sums.At(t.lanes));
  });
  for (std::size_t c = 0; c < t.x.size(); ++c) {
    double both[2] = {};
    GroupWeightedSumX(t.x[c].data(), group.data(), t.weights, &both[0], &both[1], t.rows);
    sums.Want(t.Place(c, size)) = t.Is(kOwn) ? 0. : both[0];
    sums.Want(t.Place(c, size) + t.lanes) = t.Is(kOwn2) ? 0. : both[1];
  }
}

// Returns a missing code, which some of the values become; a NaN marks none.
double Lose(const Trial& t, Doubles& x) {
  const double code = std::array{-99., 0., kInf, kNaN}[t.width % 4];
  for (std::size_t i = t.width % 7; i < x.size() && !std::isnan(code); i += 1 + t.width % 5) {
    x[i] = code;
  }
  return code;
}

void Presence(Trial& t) {
  Doubles x = t.Numbers(t.width / 4, t.rows);
  const double code = Lose(t, x);
  const double* const from = t.New(x).At();
  const std::vector<std::uint64_t> old((t.rows + 63) / 64 + 1, 0x9123456789abcdef);  // and a guard
  auto present = old;
  auto marked = old;
  auto wantPresent = old;
  auto wantMarked = old;
  std::fill(wantPresent.begin(), wantPresent.end() - 1, 0U);
  std::size_t both = 0;
  Doubles values;
  for (std::size_t i = 0; i < t.rows; ++i) {
    const std::uint64_t bit = std::uint64_t{1} << i % 64;
    if (x[i] != code) {
      wantPresent[i / 64] |= bit;
      both += (old[0] & bit) != 0 ? 1 : 0;
      values.push_back(x[i]);
    }
    wantMarked[i / 64] |= x[i] == code || (std::isnan(code) && std::isnan(x[i])) ? bit : 0;
  }
  const std::size_t count = t.engine.Presence(from, t.rows, code, present.data());
  const bool isSameCount = t.engine.CountBoth(present.data(), old.data(), old.size() - 1) == both;
  t.engine.MarkEqual(from, t.rows, code, marked.data());
  const bool areSameBits = present == wantPresent && marked == wantMarked;
  t.Same(count == values.size() && isSameCount && areSameBits ? 1. : 0., 1.);
  if (!values.empty()) {
    Array& extremes = t.NewResults(2, values[0]);
    t.engine.PresentExtremes(from, t.rows, code, extremes.At(0), extremes.At(1));
    extremes.Want(0) = Mins(values.data(), values.size());
    extremes.Want(1) = Maxs(values.data(), values.size());
  }
}

// With kOwn a column is the pairs' first variable, with kOwn2 the panels lack nothing, with kOwn3
// there are case weights and regression weights.
void Pairs(Trial& t) {
  const bool isFirst = t.Is(kOwn);
  Doubles x = t.Numbers(50, t.rows);
  WorkArea area;
  area._missingCode = Lose(t, area._w);
  std::replace(x.begin(), x.end(), area._missingCode, 1.);
  for (unsigned c = 0; c < t.width; ++c) {
    std::replace(t.x[c].begin(), t.x[c].end(), area._missingCode, 1.);
    area._missingCode = t.Is(kOwn2) ? area._missingCode : Lose(t, t.x[c]);
  }
  const Doubles all = t.Weights(2);
  const double* const cases = t.Is(kOwn3) ? all.data() : nullptr;
  Doubles u = t.w;
  CombineWeights(u.data(), cases, t.rows);
  const double* const panels = t.NewPanels(t.x);
  const PairVariable whole{
      t.ByRow(x.data()), {}, t.ByRow(u.data()), t.ByRow(cases), area._missingCode};
  Array& pairs = t.NewResults(t.x.size() * kPairFields, 0.);
  const auto inStrips = [&](auto call) {
    t.InStrips([&](Rows rows, std::size_t from) {
      call(PairVariable{whole.values + from, rows, whole.weights + from,
                        From(whole.caseWeights, from), whole.missingCode},
           panels + from * t.lanes);
    });
  };
  inStrips([&](const PairVariable& some, const double* y) {
    t.engine.PairSums(some, t.Is(kOwn2), y, t.panels, t.stride, pairs.At());
  });
  for (unsigned p = 0; p < t.panels; ++p) {
    t.engine.PairMeans(pairs.At(p * (kPairFields * t.lanes)));
  }
  inStrips([&](const PairVariable& some, const double* y) {
    t.engine.PairProducts(some, isFirst, t.Is(kOwn2), y, t.panels, t.stride, pairs.At());
  });
  std::copy(pairs.At(), pairs.At(t.x.size() * kPairFields), &pairs.Want());
  for (std::size_t c = 0; c < t.x.size(); ++c) {
    const auto want = [&](unsigned field) -> double& {
      return pairs.Want(t.Place(c, kPairFields * t.lanes) + field * t.lanes);
    };
    PairStatData p;
    p.Init((isFirst ? x : t.x[c]).data(), (isFirst ? t.x[c] : x).data(), cases, t.w.data(), area,
           static_cast<int>(t.rows));
    want(kPairWeightSum) = p._regWeightSum;
    want(kPairCaseWeightSum) = cases ? p._weightSum : 0.;
    want(isFirst ? kPairMean0 : kPairMean1) = p._mean0;
    want(isFirst ? kPairMean1 : kPairMean0) = p._mean1;
    want(isFirst ? kPairSquares0 : kPairSquares1) = p._css0;
    want(isFirst ? kPairSquares1 : kPairSquares0) = p._css1;
    want(kPairProducts) = p._cscp;
  }
}

// As many cells as rows. With kOwn they are merged with themselves.
void MergeCells(Trial& t, bool isRow) {
  const Doubles a = t.Numbers(2, t.rows);
  const Doubles b = t.Numbers(3, t.rows);
  const Doubles old = t.Numbers(0, t.rows);
  const Doubles d = t.Is(kOwn) ? old : t.Numbers(1, t.rows);
  Array& cells = t.New(old);
  const double* const from = t.Is(kOwn) ? cells.At() : t.New(d).At();
  isRow ? t.engine.MergeRow(t.New(a).At(), t.New(b).At(), 0.7, -1.3, from, t.rows, cells.At())
        : t.engine.AddCells(from, t.rows, cells.At());
  for (std::size_t i = 0; i < t.rows; ++i) {
    cells.Want(i) = (isRow ? (d[i] + 0.7 * a[i]) + -1.3 * b[i] : d[i]) + old[i];
  }
}

// As many pairs as rows. With kOwn, weights cancel each other or pairs are merged with themselves.
void MergePairs(Trial& t) {
  constexpr std::size_t kFields = 8;
  constexpr std::size_t kWeight = 2;
  std::vector<double*> a;
  std::vector<const double*> b;
  for (unsigned i = 0; i < t.rows; ++i) {
    Array& record = t.New(t.Numbers(i, kFields));
    Doubles other = t.Numbers(i + 1, kFields);
    other[kWeight] = t.Is(kOwn) && i % 3 == 0 ? -record.Want(kWeight) : other[kWeight];
    a.push_back(record.At());
    b.push_back(t.Is(kOwn) && i % 7 == 0 ? a[i] : t.New(other).At());
    PairStatData merged;
    PairStatData d;
    std::copy_n(a[i] + 1, kFields - 1, &merged._weightSum);
    std::copy_n(b[i] + 1, kFields - 1, &d._weightSum);
    d._nRows = 1;
    merged.Update(d);
    std::copy_n(&merged._weightSum, kFields - 1, &record.Want(1));
  }
  t.engine.MergePairs(a.data(), b.data(), t.rows);
}

// As many values as rows, from any address.
void Copy(Trial& t) {
  const Doubles numbers = t.Numbers(0, t.rows + 1);
  const auto* const from = static_cast<const char*>(static_cast<const void*>(numbers.data()));
  Array& to = t.NewResults(t.rows);
  t.engine.Copy(from + t.kind / kOwn, t.rows, to.At());
  std::memcpy(&to.Want(), from + t.kind / kOwn, t.rows * sizeof(double));
}

void Transpose(Trial& t) {
  const std::size_t between = t.rows + 3;
  std::vector<const double*> from;
  Array& to = t.NewResults(t.width * between);
  for (unsigned row = 0; row < t.rows; ++row) {
    from.push_back(t.New(t.Numbers(row, t.width)).At());
    for (std::size_t c = 0; c < t.width; ++c) {
      to.Want(c * between + row) = from[row][c];
    }
  }
  t.engine.Transpose(from.data(), t.rows, t.width, between, to.At());
}

std::ptrdiff_t Distance(std::size_t count) { return static_cast<std::ptrdiff_t>(count); }

// Blocks of rows side by side. With kListed, other rows of each are left out.
struct Blocks {
  Trial& t;
  std::size_t lanes = t.engine.lanes;
  std::vector<Doubles> x = {};  // column c of block l is x[c * lanes + l]
  std::vector<Doubles> w = {};
  const double* weights = nullptr;
  const double* used = nullptr;

  explicit Blocks(Trial& trial) : t(trial) {
    std::vector<Doubles> masks(lanes, Doubles(t.rows));
    for (unsigned i = 0; i < t.width * lanes; ++i) {
      x.push_back(t.Numbers(i, t.rows));
    }
    for (unsigned l = 0; l < lanes; ++l) {
      w.push_back(t.Is(kWeighted) ? t.Weights(l) : Doubles(t.rows, 1.));
      for (std::size_t row = 0; row < t.rows; ++row) {
        masks[l][row] = IsUsed(l, row) ? std::bit_cast<double>(~std::uint64_t{0}) : 0.;
      }
    }
    weights = t.Is(kWeighted) ? t.New(Abreast(w)).At() : nullptr;
    used = t.Is(kListed) ? t.New(Abreast(masks)).At() : nullptr;
  }
  bool IsUsed(std::size_t lane, std::size_t row) const {
    return !t.Is(kListed) || (lane != 1 && (row + lane) % 3 != 0);
  }
  Doubles Used(const Doubles& values, std::size_t lane) const {
    Doubles some;
    for (std::size_t row = 0; row < t.rows; ++row) {
      if (IsUsed(lane, row)) {
        some.push_back(values[row]);
      }
    }
    return some;
  }
  // What blocks have, column by column and row by row, with a vector in each place.
  Doubles Abreast(const std::vector<Doubles>& blocks, std::size_t between = 0) const {
    Doubles all(blocks.size() / lanes * (t.rows * lanes + between), kNaN);
    for (std::size_t i = 0; i < blocks.size() * t.rows; ++i) {
      const std::size_t block = i / t.rows;
      all[block / lanes * (t.rows * lanes + between) + i % t.rows * lanes + block % lanes] =
          blocks[block][i % t.rows];
    }
    return all;
  }
  // Calls call(rows, the first one) for each of three strips.
  template <class Call>
  void InStrips(Call call) const {
    const std::size_t cuts[] = {0, t.rows / 3, t.rows / 3, t.rows};
    for (std::size_t i = 0; i < 3; ++i) {
      const std::size_t at = cuts[i] * lanes;
      call(RowsAbreast{cuts[i + 1] - cuts[i], From(weights, at), From(used, at)}, cuts[i]);
    }
  }
};

// The columns from row `from` on where they lie, some lines between them.
std::vector<LyingColumn> Lying(Blocks& b, std::size_t from) {
  std::vector<LyingColumn> columns;
  for (std::size_t i = 0; i < b.x.size(); i += b.lanes) {
    const std::size_t stride = b.t.rows + i % 3;
    Doubles all(b.lanes * stride, kNaN);
    for (std::size_t lane = 0; lane < b.lanes; ++lane) {
      std::copy(b.x[i + lane].begin(), b.x[i + lane].end(), all.begin() + Distance(lane * stride));
    }
    columns.push_back({b.t.New(all).At(from), stride, 8});
  }
  return columns;
}

// Likewise turned.
std::vector<const double*> Turned(Blocks& b, std::size_t from) {
  std::vector<const double*> columns;
  for (std::size_t i = 0; i < b.x.size(); i += b.lanes) {
    const auto first = b.x.begin() + Distance(i);
    columns.push_back(b.t.New(b.Abreast({first, first + Distance(b.lanes)})).At(from * b.lanes));
  }
  return columns;
}

void TurnAbreast(Trial& t) {
  Blocks b(t);
  const std::vector<Doubles> first(b.x.begin(), b.x.begin() + Distance(t.width > 0 ? b.lanes : 0));
  Array& turned = t.NewResults(first.size() * t.rows);
  if (t.width > 0) {
    t.engine.TurnAbreast(Lying(b, 0)[0], t.rows, turned.At());
  }
  const Doubles want = b.Abreast(first);
  std::copy(want.begin(), want.end(), &turned.Want());
}

void MomentsAbreast(Trial& t, bool areTurned) {
  Blocks b(t);
  const std::size_t size = kAbreastFields * b.lanes;
  Array& moments = t.NewResults(t.width * size, 0.);
  Array& sums = t.NewResults(b.lanes, 0.);
  b.InStrips([&](const RowsAbreast& rows, std::size_t from) {
    areTurned ? t.engine.TurnedMoments(Turned(b, from).data(), t.width, rows, moments.At())
              : t.engine.MomentsAbreast(Lying(b, from).data(), t.width, rows, moments.At());
    t.engine.SumAbreast(rows, sums.At());
  });
  Array& means = t.NewResults(t.width * b.lanes);
  FinishMeans(t.engine, moments.At(), t.width, sums.At(), means.At());
  std::copy(moments.At(), moments.At(t.width * size), &moments.Want());
  for (std::size_t i = 0; i < b.x.size() + b.lanes; ++i) {
    const std::size_t lane = i % b.lanes;
    const Doubles w = b.Used(b.w[lane], lane);
    sums.Want(lane) = WeightedSum(w.data(), w.size());
    if (i < b.x.size()) {
      const Doubles x = b.Used(b.x[i], lane);
      const bool isEmpty = x.empty();
      double* const want = &moments.Want(i / b.lanes * size + lane);
      want[kAbreastMin * b.lanes] = isEmpty ? 0. : Mins(x.data(), x.size());
      want[kAbreastMax * b.lanes] = isEmpty ? 0. : Maxs(x.data(), x.size());
      means.Want(i) = isEmpty ? 0. : WeightedMean(x.data(), w.data(), sums.Want(lane), x.size());
    }
  }
}

void DistancesAbreast(Trial& t, bool areTurned) {
  Blocks b(t);
  const std::size_t stride = t.rows * b.lanes + 3;
  const Doubles means = t.Numbers(90, b.x.size());
  Array& distances = t.NewResults(t.width * stride);
  Array& weighted = t.NewResults(t.width * stride);
  const RowsAbreast rows{t.rows, b.weights, b.used};
  const double* const from = t.New(means).At();
  areTurned ? t.engine.TurnedDistances(Turned(b, 0).data(), t.width, rows, from, stride,
                                       distances.At(), weighted.At())
            : t.engine.DistancesAbreast(Lying(b, 0).data(), t.width, rows, from, stride,
                                        distances.At(), weighted.At());
  for (std::size_t i = 0; i < b.x.size() * t.rows; ++i) {
    const std::size_t block = i / t.rows;
    const std::size_t row = i % t.rows;
    const std::size_t lane = block % b.lanes;
    const std::size_t at = block / b.lanes * stride + row * b.lanes + lane;
    const double distance = b.x[block][row] - means[block];
    distances.Want(at) = b.IsUsed(lane, row) ? distance : 0.;
    weighted.Want(at) = !t.Is(kWeighted)      ? kNowhere
                        : b.IsUsed(lane, row) ? b.w[lane][row] * distance
                                              : 0.;
  }
}

// With kOwn a triangle, with kOwn2 squares; with kOwn3 columns by themselves.
void ProductsAbreast(Trial& t) {
  Blocks b(t);
  const bool isTriangle = t.Is(kOwn);
  const bool areSquares = t.Is(kOwn2);
  const unsigned columns = isTriangle || areSquares ? t.width : t.width / 2 + 1;
  if (t.width == 0 || (isTriangle && areSquares)) {
    return;
  }
  const std::size_t stride = t.rows * b.lanes + 5;
  std::vector<Doubles> y = b.x;
  std::rotate(y.begin(), y.begin() + (t.Is(kOwn3) ? 0 : 1), y.end());
  const double* const atX = t.New(b.Abreast(b.x, 5)).At();
  const double* const atY = t.Is(kOwn3) ? atX : t.New(b.Abreast(y, 5)).At();
  const std::size_t count = isTriangle   ? t.width * (t.width + std::size_t{1}) / 2
                            : areSquares ? t.width
                                         : std::size_t{t.width} * columns;
  Array& cells = t.NewResults(count * b.lanes, 0.);
  b.InStrips([&](const RowsAbreast& rows, std::size_t from) {
    from *= b.lanes;
    areSquares
        ? t.engine.SquaresAbreast(atX + from, atY + from, columns, stride, rows.count, cells.At())
        : t.engine.ProductsAbreast(atX + from, t.width, atY + from, columns, isTriangle, stride,
                                   rows.count, cells.At());
  });
  std::size_t at = 0;
  for (std::size_t i = 0; i < t.width; ++i) {
    const std::size_t last = isTriangle || areSquares ? i : columns - 1;
    for (std::size_t j = areSquares ? i : 0; j <= last; ++j) {
      for (std::size_t lane = 0; lane < b.lanes; ++lane) {
        cells.Want(at++) =
            ProductSum(b.x[i * b.lanes + lane].data(), y[j * b.lanes + lane].data(), t.rows);
      }
    }
  }
}

// What a block has of its columns: means, extremes, squares and cells.
struct PlainBlock {
  static constexpr unsigned kFields = 5;
  double weight = 0.;
  Doubles fields[kFields] = {};

  double ShiftTo(const Doubles& merged, std::size_t i) const { return merged[i] - fields[0][i]; }
  // Merges d into this one. A rectangle's first range has fewer columns than there are.
  void Merge(const PlainBlock& d, std::size_t firstRange) {
    const PlainBlock old = *this;
    Doubles& merged = fields[0];
    Doubles shift = merged;
    const bool isTriangle = firstRange == merged.size();
    for (std::size_t i = 0; i < merged.size(); ++i) {
      shift[i] = MeanDiff(merged[i], weight, d.fields[0][i], d.weight);
      merged[i] = merged[i] + shift[i];
      fields[1][i] = std::min(fields[1][i], d.fields[1][i]);
      fields[2][i] = std::max(fields[2][i], d.fields[2][i]);
      const double shiftD = d.ShiftTo(merged, i);
      fields[3][i] =
          ((d.fields[3][i] + (shift[i] * shift[i]) * weight) + (shiftD * shiftD) * d.weight) +
          old.fields[3][i];
    }
    std::size_t cell = 0;
    for (std::size_t i = 0; i < firstRange; ++i) {
      const double factor = weight * (isTriangle ? shift[i] : old.ShiftTo(merged, i));
      const double factorD = d.weight * d.ShiftTo(merged, i);
      const std::size_t end = isTriangle ? i + 1 : merged.size();
      for (std::size_t j = isTriangle ? 0 : firstRange; j < end; ++j, ++cell) {
        fields[4][cell] = ((d.fields[4][cell] + factor * old.ShiftTo(merged, j)) +
                           factorD * d.ShiftTo(merged, j)) +
                          old.fields[4][cell];
      }
    }
    weight = weight + d.weight;
  }
};

// Merges what lanes have into the first one's.
template <class Merge>
void MergeLanes(std::size_t lanes, Merge merge) {
  for (std::size_t step = 1; step < lanes; step *= 2) {
    for (std::size_t lane = 0; lane < lanes; lane += 2 * step) {
      merge(lane, lane + step);
    }
  }
}

// With kOwn a rectangle, with kOwn2 no extremes. Only the first lane counts then.
void MergeAbreast(Trial& t) {
  const std::size_t lanes = t.engine.lanes;
  const std::size_t columns = t.width;
  const bool isRectangle = t.Is(kOwn) && columns > 1;
  const std::size_t firstRange = isRectangle ? columns / 2 : columns;
  const std::size_t cells =
      isRectangle ? firstRange * (columns - firstRange) : columns * (columns + 1) / 2;
  Doubles weights = t.Numbers(4, lanes);
  weights[1] = t.rows % 2 != 0 ? -weights[0] : weights[1];
  std::vector<PlainBlock> blocks;
  for (const double weight : weights) {
    blocks.push_back({weight});
  }
  Array* got[PlainBlock::kFields] = {};
  double* at[PlainBlock::kFields] = {};
  for (unsigned f = 0; f < PlainBlock::kFields; ++f) {
    const Doubles numbers =
        t.Numbers(f + static_cast<unsigned>(t.rows), (f == 4 ? cells : columns) * lanes);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      blocks[i % lanes].fields[f].push_back(numbers[i]);
    }
    got[f] = &t.New(numbers);
    at[f] = (f == 3 ? isRectangle : f == 0 || f == 4 || !t.Is(kOwn2)) ? got[f]->At() : nullptr;
  }
  std::vector<Doubles> scratch(3, Doubles(columns * lanes + 1));
  t.engine.MergeAbreast({t.width, static_cast<unsigned>(firstRange), at[0], at[1], at[2], at[3],
                         at[4], scratch[0].data(), scratch[1].data(), scratch[2].data()},
                        t.New(weights).At());
  MergeLanes(lanes, [&](auto a, auto b) { blocks[a].Merge(blocks[b], firstRange); });
  for (unsigned f = 0; f < PlainBlock::kFields; ++f) {
    for (std::size_t i = 0; at[f] != nullptr && i < blocks[0].fields[f].size() * lanes; ++i) {
      got[f]->Want(i) = i % lanes == 0 ? blocks[0].fields[f][i / lanes] : at[f][i];
    }
  }
}

// One column's pairs with others. With kOwn there are case weights beside regression weights.
struct PairBlocks : Blocks {
  std::size_t words = (t.rows + 63) / 64;
  WorkArea area = {};
  std::vector<Doubles> cases = {};
  Array& fields = t.NewResults(std::size_t{t.width} * kPairFieldsAbreast * lanes, 0.);
  std::vector<PairAbreast> pairs = {};
  std::vector<Doubles> first = {};

  explicit PairBlocks(Trial& trial) : Blocks(trial) {
    for (unsigned i = 0; i < lanes + x.size(); ++i) {
      Doubles& values = i < lanes ? first.emplace_back(t.Numbers(70 + i, t.rows)) : x[i - lanes];
      area._missingCode = Lose(t, values);
      std::rotate(values.begin(), values.begin() + Distance(i % (t.rows + 1)), values.end());
    }
    for (unsigned lane = 0; lane < lanes; ++lane) {
      cases.push_back(t.Weights(lane + 2));
    }
  }
  const double* Turned(const Doubles* blocks) const {
    return t.New(Abreast(std::vector<Doubles>(blocks, blocks + lanes))).At();
  }
  std::vector<std::uint64_t> WordsOf(const Doubles* blocks) const {
    std::vector<std::uint64_t> all(lanes * words + 1);
    for (std::size_t lane = 0; lane < lanes; ++lane) {
      t.engine.Presence(blocks[lane].data(), t.rows, area._missingCode, &all[lane * words]);
    }
    return all;
  }
  // Makes the pairs' fields, with their counts.
  void Count() {
    for (std::size_t c = 0; c < t.width; ++c) {
      pairs.push_back({Turned(&x[c * lanes]), fields.At(c * kPairFieldsAbreast * lanes)});
      t.engine.CountAbreast(WordsOf(first.data()).data(), WordsOf(&x[c * lanes]).data(), words,
                            pairs[c].fields);
    }
  }
  // Takes all rows into sums, or into products.
  template <class Kernel>
  void Take(Kernel kernel) {
    std::vector<Doubles> u = w;
    for (std::size_t lane = 0; lane < lanes; ++lane) {
      CombineWeights(u[lane].data(), cases[lane].data(), t.rows);
    }
    const double* const all = t.Is(kOwn) ? t.New(Abreast(u)).At() : weights;
    const double* const ofCases = t.Is(kOwn) ? t.New(Abreast(cases)).At() : nullptr;
    const double* const values = Turned(first.data());
    InStrips([&](const RowsAbreast& rows, std::size_t from) {
      kernel({from, from + rows.count, all, ofCases, area._missingCode}, values, pairs.data(),
             t.width);
    });
  }
  // Without weights, their sums are the caller's.
  void SumCounts() const {
    for (const PairAbreast& pair : pairs) {
      for (std::size_t i = 0; i < lanes; ++i) {
        pair.fields[kLaneWeight * lanes + i] = pair.fields[kLaneRows * lanes + i];
        pair.fields[kLaneCaseWeight * lanes + i] = pair.fields[kLaneRows * lanes + i];
      }
    }
  }
  PairStatData Plain(std::size_t pair, std::size_t lane) {
    PairStatData p;
    p.Init(first[lane].data(), x[pair * lanes + lane].data(),
           t.Is(kOwn) ? cases[lane].data() : nullptr, t.Is(kWeighted) ? w[lane].data() : nullptr,
           area, static_cast<int>(t.rows));
    p._weightSum = t.Is(kWeighted) && !t.Is(kOwn) ? 0. : p._weightSum;
    return p;
  }
  void Want(Array& array, std::size_t pair, std::size_t lane, const PairStatData& p) const {
    const double numbers[] = {static_cast<double>(p._nRows),
                              p._weightSum,
                              p._regWeightSum,
                              p._mean0,
                              p._mean1,
                              p._css0,
                              p._css1,
                              p._cscp};
    for (std::size_t f = 0; f < std::size(numbers); ++f) {
      array.Want((pair * kPairFieldsAbreast + f) * lanes + lane) = numbers[f];
    }
  }
};

void PairsAbreast(Trial& t) {
  if (t.Is(kOwn) && !t.Is(kWeighted)) {
    return;
  }
  PairBlocks b(t);
  b.Count();
  b.Take(t.engine.PairSumsAbreast);
  if (!t.Is(kWeighted)) {
    b.SumCounts();
  }
  t.engine.PairMeansAbreast(b.pairs.data(), t.width);
  b.Take(t.engine.PairProductsAbreast);
  // What other fields hold then means nothing.
  const auto copyOf = [&](Array& array) {
    array.want = array.got;
    return Doubles(array.At(), array.At(std::size_t{t.width} * kPairFieldsAbreast * b.lanes));
  };
  Array& fresh = t.New(copyOf(b.fields));
  t.engine.FreshPairs(fresh.At(), t.width);
  Array& merged = t.New(copyOf(fresh));
  t.engine.MergePairsAbreast(merged.At(), t.width);
  copyOf(merged);
  for (std::size_t pair = 0; pair < t.width; ++pair) {
    std::vector<PairStatData> records(b.lanes);
    for (std::size_t lane = 0; lane < b.lanes; ++lane) {
      const PairStatData plain = b.Plain(pair, lane);
      b.Want(b.fields, pair, lane, plain);
      records[lane].Update(plain);
      b.Want(fresh, pair, lane, records[lane]);
    }
    MergeLanes(b.lanes, [&](auto to, auto from) { records[to].Update(records[from]); });
    b.Want(merged, pair, 0, records[0]);
  }
}

// As many rows as there are; which of them two columns have in each block.
void PresentAbreast(Trial& t) {
  Blocks b(t);
  if (t.width < 2) {
    return;
  }
  double code = 0.;
  for (Doubles& values : b.x) {
    code = Lose(t, values);
    std::rotate(values.begin(), values.begin() + (t.rows > 1 ? 1 : 0), values.end());
  }
  std::rotate(b.x.begin(), b.x.begin() + 1, b.x.end());
  const auto first = b.x.begin();
  const auto second = first + Distance(b.lanes);
  const Doubles x = b.Abreast({first, second});
  const Doubles y = b.Abreast({second, second + Distance(b.lanes)});
  Array& masks = t.NewResults(x.size());
  t.engine.PresentAbreast(t.New(x).At(), t.New(y).At(), code, t.rows, masks.At());
  for (std::size_t i = 0; i < x.size(); ++i) {
    masks.Want(i) = x[i] != code && y[i] != code ? kNaN : 0.;
  }
}

struct Kernel {
  const char* name = nullptr;
  unsigned kinds = 0;  // the bits that may be set
  void (*run)(Trial& t) = nullptr;
  unsigned widths = 34;
};
constexpr unsigned kTiles = 10;  // columns of some tiles of blocks abreast
const Kernel kKernels[] = {
    {"Pack", kWeighted, [](Trial& t) { Pack(t, false); }},
    {"Center", kListed, [](Trial& t) { Pack(t, true); }},
    {"CenterColumns", 0, CenterColumns},
    {"ColumnMoments", kWeighted, [](Trial& t) { Moments(t, false); }},
    {"PanelMoments", kListed | kWeighted, [](Trial& t) { Moments(t, true); }},
    {"Products", kAllOwn, [](Trial& t) { Products(t, false); }},
    {"DiagonalProducts", kAllOwn, [](Trial& t) { Products(t, true); }},
    {"PanelSums", kListed | kWeighted | kOwn | kOwn2, PanelSums},
    {"Presence, MarkEqual, CountBoth, PresentExtremes", 0, Presence},
    {"PairSums, PairMeans, PairProducts", kListed | kOwn | kOwn2 | kOwn3, Pairs},
    {"AddCells", kOwn, [](Trial& t) { MergeCells(t, false); }},
    {"MergeRow", kOwn, [](Trial& t) { MergeCells(t, true); }},
    {"MergePairs", kOwn, MergePairs},
    {"Copy", kOwn | kOwn2 | kOwn3, Copy},
    {"Transpose", 0, Transpose},
    {"TurnAbreast", 0, TurnAbreast, kTiles},
    {"SumAbreast, MomentsAbreast", kListed | kWeighted, [](Trial& t) { MomentsAbreast(t, false); },
     kTiles},
    {"TurnedMoments", kListed | kWeighted, [](Trial& t) { MomentsAbreast(t, true); }, kTiles},
    {"DistancesAbreast", kListed | kWeighted, [](Trial& t) { DistancesAbreast(t, false); }, kTiles},
    {"TurnedDistances", kListed | kWeighted, [](Trial& t) { DistancesAbreast(t, true); }, kTiles},
    {"ProductsAbreast, SquaresAbreast", kOwn | kOwn2 | kOwn3, ProductsAbreast, kTiles},
    {"MergeAbreast", kOwn | kOwn2, MergeAbreast, kTiles},
    {"PresentAbreast", 0, PresentAbreast, kTiles},
    {"The others of pairs abreast", kWeighted | kOwn, PairsAbreast, kTiles},
};

constexpr std::size_t kRows[] = {0, 1, 2, 3, 5, 8, 9, 31, 63, 64, 65, 191, 192, 193};

// Tries all shapes of one kind, and counts those that there are.
void TryKind(const Kernel& kernel, const Engine& engine, unsigned kind, std::size_t& cases) {
  for (unsigned width = 0; width < kernel.widths; width += width < 17 ? 1 : 8) {
    for (const std::size_t rows : kRows) {
      Trial trial{engine, width, rows, kind};
      kernel.run(trial);
      cases += trial.arrays.empty() ? 0 : 1;
      for (const Array& array : trial.arrays) {
        ASSERT_EQ(Bits(array.got), Bits(array.want))
            << kernel.name << ", width " << width << ", rows " << rows << ", kind " << kind;
      }
    }
  }
}

class ContractTest : public testing::TestWithParam<const Engine*> {};

TEST_P(ContractTest, KernelsWriteWhatThePlainLoopsGiveAndNothingElse) {
  std::size_t cases = 0;
  for (const Kernel& kernel : kKernels) {
    for (unsigned kind = 0; kind <= kernel.kinds; ++kind) {
      if ((kind & ~kernel.kinds) == 0) {
        TryKind(kernel, *GetParam(), kind, cases);
      }
    }
  }
  test::CountCases("kernels: every set, width and edge", cases);
}

INSTANTIATE_TEST_SUITE_P(Sets, ContractTest, testing::ValuesIn(Available()),
                         [](const auto& test) { return std::string(test.param->name); });

}  // namespace
}  // namespace velmor::ordered
