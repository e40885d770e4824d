// golden: computes every kind of result and compares it with a table that is kept; start at main,
// at the end.
//
// Every build of the library for every machine has to give the bits of the table: with each
// instruction set, in whatever floating-point environment, on any number of threads.
#include "environments.h"
#include "lines.h"

#include "ordered/engine.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

namespace velmor::test {
namespace {

constexpr int kThreads[] = {1, 2, 3, 8};

class Comparison {
 public:
  explicit Comparison(std::vector<std::string> expected) : _expected(std::move(expected)) {}

  // Compares lines with those of the table from `first` on.
  void Compare(const std::string& way, const Lines& lines, std::size_t first) {
    for (std::size_t i = 0; i < lines.size(); ++i) {
      const std::string text = Text(lines[i]);
      const bool isThere = first + i < _expected.size();
      if (!isThere || text != _expected[first + i]) {
        std::string message = way;
        message.append(":\n  got      ").append(text).append("\n  expected ");
        Fail(message.append(isThere ? _expected[first + i] : "the table's end"));
      }
      _results += lines[i].values.size();
    }
  }

  void Fail(const std::string& message) {
    constexpr std::size_t kMostShown = 20;
    if (++_failures <= kMostShown) {
      std::cerr << message << '\n';
    }
  }

  std::size_t Failures() const { return _failures; }
  std::size_t Results() const { return _results; }

 private:
  std::vector<std::string> _expected;
  std::size_t _failures = 0;
  std::size_t _results = 0;
};

struct Inputs {
  std::vector<Input> cases = MakeInputs();
  TypedTable table{1};
};

Lines Joined(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// The lines of the table.
Lines WholeTable(const Inputs& inputs) {
  const Run run = [](const auto& operation) { operation(); };
  return Joined(Joined(KernelLines(inputs.cases), AccumulatorLines(inputs.cases, run)),
                ForestLines(inputs.table, 1, run));
}

// What the table's lines are computed from, for programs that compute them otherwise (verify): of
// each input the number of columns and the missing code, then four arrays for each batch.
void PrintInputs() {
  const auto print = [](const char* what, const auto& values) {
    std::cout << Text({what, {values.begin(), values.end()}}) << '\n';
  };
  for (const Input& input : MakeInputs()) {
    print("input", std::array{static_cast<double>(input.columns), input.missingCode});
    for (const Cases& cases : input.batches) {
      std::vector<double> values;
      for (const auto& row : cases.rows) {
        values.insert(values.end(), row.begin(), row.end());
      }
      print("values", values);
      print("case weights", cases.weights);
      print("regression weights", cases.regWeights);
      print("groups", cases.groups);
    }
  }
}

bool Rewrite(const char* path) {
  std::ofstream file(path);
  for (const Line& line : WholeTable(Inputs())) {
    file << Text(line) << '\n';
  }
  return static_cast<bool>(file.flush());
}

std::vector<std::string> ReadTable(const char* path) {
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    lines.push_back(line);
  }
  return lines;
}

// Compares what an instruction set computes in an environment, on the calling thread and several.
// Returns how many lines of the table that are.
std::size_t CompareIn(const Environment& environment, const std::string& way, const Inputs& inputs,
                      std::size_t first, Comparison& comparison) {
  bool isKept = true;
  const Run run = [&](const auto& operation) { isKept &= RunIn(environment, operation); };
  const Lines accumulators = AccumulatorLines(inputs.cases, run);
  comparison.Compare(way, accumulators, first);
  const std::size_t forests = first + accumulators.size();
  std::size_t end = forests;
  for (const int threads : kThreads) {
    const Lines lines = ForestLines(inputs.table, threads, run);
    comparison.Compare(way + ", " + std::to_string(threads) + " threads", lines, forests);
    end = forests + lines.size();
  }
  if (!isKept) {
    comparison.Fail(way + ": the environment is not as it was");
  }
  return end;
}

bool CompareAll(const char* path) {
  const Inputs inputs;
  std::vector<std::string> table = ReadTable(path);
  const std::size_t size = table.size();
  Comparison comparison(std::move(table));
  const Lines kernels = KernelLines(inputs.cases);
  comparison.Compare("kernels", kernels, 0);
  std::size_t end = 0;
  for (const ordered::Engine* engine : ordered::Available()) {
    ordered::Use(*engine);
    for (const Environment& environment : Environments()) {
      const std::string way = std::string(engine->name) + ", " + environment.name;
      end = CompareIn(environment, way, inputs, kernels.size(), comparison);
    }
  }
  if (end != size) {
    comparison.Fail("the table has " + std::to_string(size) + " lines, not " + std::to_string(end));
  }
  std::cout << comparison.Results() << " results in " << ordered::Available().size() << " x "
            << Environments().size() << " x " << std::size(kThreads)
            << " ways (instruction sets, environments, numbers of threads), "
            << comparison.Failures() << " lines differ\n";
  return comparison.Failures() == 0;
}

}  // namespace
}  // namespace velmor::test

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--inputs") == 0) {
    velmor::test::PrintInputs();
    return 0;
  }
  if (argc == 2 && argv[1][0] != '-') {
    return velmor::test::CompareAll(argv[1]) ? 0 : 1;
  }
  if (argc == 3 && std::strcmp(argv[1], "--rewrite") == 0) {
    if (velmor::test::Rewrite(argv[2])) {
      return 0;
    }
    std::cerr << "golden: can't write " << argv[2] << '\n';
    return 1;
  }
  std::cerr
      << "Usage: golden [--rewrite] TABLE | --inputs\n"
         "Compares every kind of result with the table's, bit for bit.\n"
         "  --inputs   prints what the results are computed from\n"
         "  --rewrite  writes the table anew: a change of what all hosts get, to be reviewed\n";
  return 2;
}
