// Every kernel of every instruction set keeps its contract (ordered/kernels/contract.h): it writes
// what the plain loops give and nothing else, with widths up to some panels, no rows, one, odd
// numbers and those around a strip, which is taken in parts. No array is aligned, each stands
// between guards, and what may not count is NaN: lanes without a column, rows that are not listed.
#include "ordered/chains.h"
#include "ordered/engine.h"
#include "ordered/panels.h"
#include "ordered/tiles.h"

#include "support.h"

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
  t.engine.CenterColumns(columns.data(), t.panels * t.engine.panel, t.rows, t.New(means).At());
  for (std::size_t c = 0; c < t.x.size(); ++c) {
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
  sum.Want() = t.panels > 0 ? all : sum.Want();
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

struct Kernel {
  const char* name;
  unsigned kinds;  // the bits that may be set
  void (*run)(Trial& t);
};
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
};

constexpr std::size_t kRows[] = {0, 1, 2, 3, 5, 8, 9, 31, 63, 64, 65, 191, 192, 193};

// Tries all shapes of one kind, and counts those that there are.
void TryKind(const Kernel& kernel, const Engine& engine, unsigned kind, std::size_t& cases) {
  for (unsigned width = 0; width < 34; width += width < 17 ? 1 : 8) {
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
