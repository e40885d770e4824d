// lines.cpp: what the golden table is made of; start at AccumulatorLines, KernelLines and
// ForestLines.
#include "lines.h"

#include "../results.h"

#include <velmor/accumulate.h>
#include <velmor/state.h>

#include <cstdio>

namespace velmor::test {
namespace {

constexpr int kMostColumns = 13;

std::string Number(std::size_t number) {
  std::string text = std::to_string(number);
  return text.size() < 2 ? '0' + text : text;
}

// The results of one accumulator, those of a column, a pair or a group in a line.
void AddResults(const std::string& label, const Results& results, Lines& lines) {
  std::string last;
  for (const Result& r : results) {
    const std::string isOf =
        label + ' ' + r.what + ' ' + std::to_string(r.i) + ' ' + std::to_string(r.j);
    if (isOf != last) {
      lines.push_back({isOf, {}});
      last = isOf;
    }
    lines.back().values.push_back(r.value);
  }
}

// The hash with which a state ends, as two numbers of 32 bits, its lowest byte first.
void AddHash(const std::string& label, const std::vector<std::byte>& state, Lines& lines) {
  Line line{label + " state", {static_cast<double>(state.size())}};
  for (const std::size_t fromEnd : {8U, 4U}) {
    std::uint32_t half = 0;
    for (std::size_t i = 4; i-- > 0;) {
      half = half << 8U | std::to_integer<std::uint32_t>(state[state.size() - fromEnd + i]);
    }
    line.values.push_back(half);
  }
  lines.push_back(std::move(line));
}

std::unique_ptr<DataBatch> Batches(const Input& input, std::size_t i, const DataBatch* /*kind*/) {
  return Batch(input.batches[i], static_cast<unsigned int>(input.columns));
}
std::unique_ptr<DataBatchByGroup> Batches(const Input& input, std::size_t i,
                                          const DataBatchByGroup* /*kind*/) {
  return GroupedBatch(input.batches[i], static_cast<unsigned int>(input.columns), kInputGroups);
}

template <class TheBatch = DataBatch, class Make, class Read>
void AddAccumulator(const std::string& label, const Input& input, Make make, Read read,
                    Lines& lines) {
  const auto whole = make();
  const auto part = make();
  const auto add = [&input](auto& accumulator, std::size_t batch) {
    accumulator += *Batches(input, batch, static_cast<const TheBatch*>(nullptr));
  };
  add(*whole, 0);
  add(*whole, 1);
  add(*part, 2);
  *whole += *part;
  AddHash(label, Save(*whole), lines);
  // Where there are thousands of results, the hash stands for them.
  if (input.columns <= kMostColumns) {
    AddResults(label, read(*whole), lines);
  }
}

// The accumulators of one family: over all columns, over the last ones, and of the first ones with
// the others. `code` is the missing code, where there is one.
template <class Matrix, class Symmetric, class Rectangular, class Read, class... Code>
void AddFamily(const std::string& number, const std::string& family, const Input& input, Read read,
               Lines& lines, Code... code) {
  const auto add = [&](const std::string& name, const Block& block, auto make) {
    AddAccumulator(
        number + ' ' + name + family, input, make,
        [&](const auto& accumulator) { return read(accumulator, block); }, lines);
  };
  const int columns = input.columns;
  const int middle = (columns + 1) / 3;
  add("Matrix", {0, 0, columns}, [&] { return std::make_unique<Matrix>(code...); });
  add("SMatrix", {middle, middle, columns},
      [&] { return std::make_unique<Symmetric>(code..., middle, columns); });
  if (middle > 0) {
    add("NSMatrix", {0, middle, columns},
        [&] { return std::make_unique<Rectangular>(code..., 0, middle, columns); });
  }
}

// The records of a host's own, over the first two batches.
void AddRecords(const std::string& number, const Input& input, Lines& lines) {
  WorkArea area;
  area._missingCode = input.missingCode;
  VarStat variable;
  PairStat pair;
  for (const std::size_t i : {0U, 1U}) {
    const auto batch = Batches(input, i, static_cast<const DataBatch*>(nullptr));
    const double* const x = batch->Column(0);
    const double* const y = batch->Column(batch->NColumns() - 1);
    const double* const w = batch->Weights();
    const double* const r = batch->RegWeights();
    const int rows = static_cast<int>(batch->NRows());
    VarStat variablePart;
    variablePart.Init(x, w, r, area, rows);
    variable.Update(variablePart);
    PairStat pairPart;
    pairPart.Init(x, y, w, r, area, rows);
    pair.Update(pairPart);
  }
  lines.push_back({number + " VarStat", Fields(variable)});
  lines.push_back({number + " PairStat", PairFields(pair)});
}

// The kernels' arguments, as arrays and as vectors.
struct Columns {
  Columns(const Input& input, std::size_t mostRows) : missingCode(input.missingCode) {
    const Cases& all = input.batches[0];
    const Cases cases = all.Slice(0, std::min(all.rows.size(), mostRows));
    for (const auto& row : cases.rows) {
      x.push_back(row.front());
      y.push_back(row.back());
    }
    w = cases.weights;
    r = cases.regWeights;
    groups = cases.groups;
    count = static_cast<int>(x.size());
  }
  const double* W() const { return w.empty() ? nullptr : w.data(); }
  const double* R() const { return r.empty() ? nullptr : r.data(); }

  Doubles x, y, w, r;
  std::vector<unsigned int> groups;
  double missingCode;
  int count;
};

class KernelWriter {
 public:
  KernelWriter(std::string number, const Input& input, Lines& lines)
      : _number(std::move(number)), _c(input, kAll), _few(input, kFew), _lines(lines) {}

  void AddAll() {
    AddSums();
    AddMeansAndExtremes();
    AddArrays();
    AddGroups();
  }

 private:
  static constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();
  static constexpr std::size_t kFew = 9;

  void Add(const char* kernel, const Doubles& values) {
    _lines.push_back({_number + ' ' + kernel, values});
  }

  void AddSums() {
    Add("Sum", {Sum(_c.x.data(), _c.count), Sum(_c.x)});
    Add("WeightedSum", {WeightedSum(_c.W(), _c.count), WeightedSum(_c.y, _c.w)});
    const double* const x = _c.x.data();
    const double* const y = _c.y.data();
    Add("ProductSum", {ProductSum(x, y, _c.count), ProductSum(_c.x, _c.y),
                       ProductSum(x, y, x, _c.count), ProductSum(_c.x, _c.y, _c.x)});
    Add("CrossProduct", {CrossProduct(x, y, _c.W(), _c.count), CrossProduct(_c.x, _c.y, _c.w)});
  }

  void AddMeansAndExtremes() {
    const double weightSum = WeightedSum(_c.W(), _c.count);
    const double mean = WeightedMean(_c.x.data(), _c.W(), weightSum, _c.count);
    Add("WeightedMean", {mean, WeightedMean(_c.x, _c.w, weightSum)});
    Add("Maxs and Mins",
        {Maxs(_c.x.data(), _c.count), Maxs(_c.x), Mins(_c.x.data(), _c.count), Mins(_c.x)});
    Add("MeanDiff",
        {MeanDiff(mean, weightSum, _c.y[0], 3.), MeanDiff(mean, weightSum, 1., -weightSum)});
    Add("MatrixRow", {static_cast<double>(MatrixRow(static_cast<unsigned int>(_c.count)))});
  }

  // What kernels write: of some cases, which tells as much as of all.
  void AddArrays() {
    Doubles x = _few.x;
    CenterData(x.data(), _few.y[0], _few.count);
    Doubles y = _few.x;
    CenterData(y, _few.y[0]);
    AddJoined("CenterData", {x, y});
    Doubles w = _few.w;
    Doubles r = _few.r;
    if (const double* const u =
            CombineWeights(w.empty() ? nullptr : w.data(), _few.R(), _few.count)) {
      Add("CombineWeights", Doubles(u, u + _few.count));
    }
    w = _few.w;
    CombineWeights(w, r);
    AddJoined("CombineWeights of vectors", {w, r});
    CopyNonmissing(_few.x.data(), _few.W(), _few.R(), _few.missingCode, _few.count, x, w, r);
    AddJoined("CopyNonmissing", {x, w, r});
    CopyCompletePairs(_few.x.data(), _few.y.data(), _few.W(), _few.R(), _few.missingCode,
                      _few.count, x, y, w, r);
    AddJoined("CopyCompletePairs", {x, y, w, r});
  }

  void AddJoined(const char* kernel, const std::vector<Doubles>& parts) {
    Doubles all;
    for (const Doubles& part : parts) {
      Append(all, {static_cast<double>(part.size())});
      Append(all, part);
    }
    Add(kernel, all);
  }

  void AddGroups() {
    Doubles sums(std::size_t{kInputGroups} * 2);
    double* const squares = sums.data() + kInputGroups;
    Doubles weights(kInputGroups);
    double total = 0.;
    if (_c.w.empty()) {
      GroupWeightedSumX(_c.x.data(), _c.groups.data(), sums.data(), squares, _c.count);
      WeightByGroup(_c.groups.data(), weights, total, _c.count);
    } else {
      GroupWeightedSumX(_c.x.data(), _c.groups.data(), _c.W(), sums.data(), squares, _c.count);
      WeightByGroup(_c.groups.data(), _c.W(), weights, total, _c.count);
    }
    Add("GroupWeightedSumX", sums);
    Append(weights, {total});
    Add("WeightByGroup", weights);
  }

  std::string _number;
  Columns _c;
  Columns _few;
  Lines& _lines;
};

}  // namespace

Lines AccumulatorLines(const std::vector<Input>& inputs) {
  const auto listwise = [](const auto& a, const Block& block) { return ReadListwise(a, block); };
  const auto pairwise = [](const auto& a, const Block& block) { return ReadPairwise(a, block); };
  constexpr int kGroups = kInputGroups;
  Lines lines;
  for (std::size_t n = 0; n < inputs.size(); ++n) {
    const std::string number = Number(n);
    const Input& input = inputs[n];
    AddFamily<MatrixListwise, SMatrixListwise, NSMatrixListwise>(number, "Listwise", input,
                                                                 listwise, lines);
    AddFamily<MatrixPairwise, SMatrixPairwise, NSMatrixPairwise>(
        number, "Pairwise", input, pairwise, lines, input.missingCode);
    AddAccumulator(
        number + " DiscriminantMatrix", input,
        [&] { return std::make_unique<DiscriminantMatrix>(kGroups, input.columns); },
        ReadSums<DiscriminantMatrix>, lines);
    AddAccumulator<DataBatchByGroup>(
        number + " DiscIndividualMatrix", input,
        [&] { return std::make_unique<DiscIndividualMatrix>(kGroups, input.columns); },
        ReadSums<DiscIndividualMatrix>, lines);
    AddRecords(number, input, lines);
  }
  return lines;
}

Lines KernelLines(const std::vector<Input>& inputs) {
  Lines lines;
  for (std::size_t n = 0; n < inputs.size(); ++n) {
    KernelWriter(Number(n), inputs[n], lines).AddAll();
  }
  return lines;
}

Lines ForestLines(const TypedTable& table, int threads) {
  Lines lines;
  AccumulateOptions options;
  options.blockRows = TypedTable::kBlockRows;
  options.threads = threads;
  const TableView view = table.View();
  const int columns = static_cast<int>(view.values.size());
  const auto add = [&](const std::string& label, const auto& shape, auto read) {
    const auto forest = Accumulate(view, shape, options);
    AddHash("forest " + label + " forest's", Save(forest), lines);
    const auto result = forest.Result();
    AddHash("forest " + label, Save(*result), lines);
    AddResults("forest " + label, read(*result), lines);
  };
  const auto listwise = [](const Block& block) {
    return [block](const auto& a) { return ReadListwise(a, block); };
  };
  const auto pairwise = [](const Block& block) {
    return [block](const auto& a) { return ReadPairwise(a, block); };
  };
  constexpr double kCode = TypedTable::kMissingCode;
  constexpr int kGroups = kInputGroups;
  add("MatrixListwise", MatrixListwise(), listwise({0, 0, columns}));
  add("SMatrixListwise", SMatrixListwise(0, columns), listwise({0, 0, columns}));
  add("NSMatrixListwise", NSMatrixListwise(0, 2, columns), listwise({0, 2, columns}));
  add("MatrixPairwise", MatrixPairwise(kCode), pairwise({0, 0, columns}));
  add("SMatrixPairwise", SMatrixPairwise(kCode, 0, columns), pairwise({0, 0, columns}));
  add("NSMatrixPairwise", NSMatrixPairwise(kCode, 0, 2, columns), pairwise({0, 2, columns}));
  add("DiscriminantMatrix", DiscriminantMatrix(kGroups, columns), ReadSums<DiscriminantMatrix>);
  add("DiscIndividualMatrix", DiscIndividualMatrix(kGroups, columns),
      ReadSums<DiscIndividualMatrix>);
  return lines;
}

std::string Text(const Line& line) {
  std::string text = line.label + ':';
  for (const double value : line.values) {
    char number[40];
    std::snprintf(number, sizeof(number), " %a", value);
    text += std::isnan(value) ? " nan" : number;
  }
  return text;
}

}  // namespace velmor::test
