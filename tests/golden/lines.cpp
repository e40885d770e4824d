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

// Writes the lines of an input's accumulators.
class AccumulatorWriter {
 public:
  AccumulatorWriter(std::string number, const Input& input, const Run& run, Lines& lines)
      : _number(std::move(number)), _input(input), _run(run), _lines(lines) {}

  void AddAll() {
    constexpr int kGroups = kInputGroups;
    AddFamily<MatrixListwise, SMatrixListwise, NSMatrixListwise>("Listwise");
    AddFamily<MatrixPairwise, SMatrixPairwise, NSMatrixPairwise>("Pairwise", _input.missingCode);
    Add<DataBatch>("DiscriminantMatrix",
                   [this] { return DiscriminantMatrix(kGroups, _input.columns); });
    Add<DataBatchByGroup>("DiscIndividualMatrix",
                          [this] { return DiscIndividualMatrix(kGroups, _input.columns); });
    AddRecords();
  }

 private:
  template <class Kind>
  std::unique_ptr<Kind> MakeBatch(std::size_t i) const {
    const auto columns = static_cast<unsigned int>(_input.columns);
    if constexpr (std::is_same_v<Kind, DataBatch>) {
      return Batch(_input.batches[i], columns);
    } else {
      return GroupedBatch(_input.batches[i], columns, kInputGroups);
    }
  }

  template <class Kind, class Make>
  void Add(const std::string& name, Make make) {
    auto whole = make();
    auto part = make();
    const std::unique_ptr<Kind> batches[] = {MakeBatch<Kind>(0), MakeBatch<Kind>(1),
                                             MakeBatch<Kind>(2)};
    std::vector<std::byte> state;
    _run([&] {
      whole += *batches[0];
      whole += *batches[1];
      part += *batches[2];
      whole += part;
      state = Save(whole);
    });
    const std::string label = _number + ' ' + name;
    AddHash(label, state, _lines);
    // Where there are thousands of results, the hash stands for them.
    if (_input.columns <= kMostColumns) {
      AddResults(label, Read(whole), _lines);
    }
  }

  // The accumulators of one family: over all columns, over the last ones, and of the first ones
  // with the others. `code` is the missing code, where there is one.
  template <class Matrix, class Symmetric, class Rectangular, class... Code>
  void AddFamily(const std::string& family, Code... code) {
    const int columns = _input.columns;
    const int middle = (columns + 1) / 3;
    Add<DataBatch>("Matrix" + family, [&] { return Matrix(code...); });
    Add<DataBatch>("SMatrix" + family, [&] { return Symmetric(code..., middle, columns); });
    if (middle > 0) {
      Add<DataBatch>("NSMatrix" + family, [&] { return Rectangular(code..., 0, middle, columns); });
    }
  }

  // The records of a host's own, over the first two batches.
  void AddRecords() {
    WorkArea area;
    area._missingCode = _input.missingCode;
    VarStat variable;
    PairStat pair;
    for (const std::size_t i : {0U, 1U}) {
      const auto batch = MakeBatch<DataBatch>(i);
      const double* const x = batch->Column(0);
      const double* const y = batch->Column(batch->NColumns() - 1);
      const double* const w = batch->Weights();
      const double* const r = batch->RegWeights();
      const int rows = static_cast<int>(batch->NRows());
      _run([&] {
        VarStat variablePart;
        variablePart.Init(x, w, r, area, rows);
        variable.Update(variablePart);
        PairStat pairPart;
        pairPart.Init(x, y, w, r, area, rows);
        pair.Update(pairPart);
      });
    }
    _lines.push_back({_number + " VarStat", Fields(variable)});
    _lines.push_back({_number + " PairStat", Fields(pair)});
  }

  std::string _number;
  const Input& _input;
  const Run& _run;
  Lines& _lines;
};

// The kernels' arguments, as arrays and as vectors.
struct Columns {
  Columns(const Input& input, std::size_t mostRows)
      : Columns(input,
                input.batches[0].Slice(0, std::min(input.batches[0].rows.size(), mostRows))) {}
  Columns(const Input& input, const Cases& cases)
      : w(cases.weights),
        r(cases.regWeights),
        groups(cases.groups),
        missingCode(input.missingCode),
        count(static_cast<int>(cases.rows.size())) {
    for (const auto& row : cases.rows) {
      x.push_back(row.front());
      y.push_back(row.back());
    }
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

Lines AccumulatorLines(const std::vector<Input>& inputs, const Run& run) {
  Lines lines;
  for (std::size_t n = 0; n < inputs.size(); ++n) {
    AccumulatorWriter(Number(n), inputs[n], run, lines).AddAll();
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

Lines ForestLines(const TypedTable& table, int threads, const Run& run) {
  Lines lines;
  AccumulateOptions options;
  options.blockRows = TypedTable::kBlockRows;
  options.threads = threads;
  const TableView view = table.View();
  const int columns = static_cast<int>(view.values.size());
  const auto add = [&](const std::string& label, const auto& shape) {
    decltype(Accumulate(view, shape, options).Result()) result;
    std::vector<std::byte> forestState;
    std::vector<std::byte> state;
    run([&] {
      const auto forest = Accumulate(view, shape, options);
      forestState = Save(forest);
      result = forest.Result();
      state = Save(*result);
    });
    AddHash("forest " + label + " forest's", forestState, lines);
    AddHash("forest " + label, state, lines);
    AddResults("forest " + label, Read(*result), lines);
  };
  constexpr double kCode = TypedTable::kMissingCode;
  constexpr int kGroups = kInputGroups;
  add("MatrixListwise", MatrixListwise());
  add("SMatrixListwise", SMatrixListwise(0, columns));
  add("NSMatrixListwise", NSMatrixListwise(0, 2, columns));
  add("MatrixPairwise", MatrixPairwise(kCode));
  add("SMatrixPairwise", SMatrixPairwise(kCode, 0, columns));
  add("NSMatrixPairwise", NSMatrixPairwise(kCode, 0, 2, columns));
  add("DiscriminantMatrix", DiscriminantMatrix(kGroups, columns));
  add("DiscIndividualMatrix", DiscIndividualMatrix(kGroups, columns));
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
