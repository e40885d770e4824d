#pragma once

// Everything that an accumulator's accessors return, in the order of its definition (definition.h),
// and an accumulator beside its definition.

#include "definition.h"

#include <cstdio>
#include <string>

namespace velmor::test {

// What an accessor returns: of which columns, or of which group and column or item.
struct Result {
  const char* what;
  int i, j;
  double value;
};

struct Results : std::vector<Result> {
  void Add(const char* what, int i, int j, const Doubles& values) {
    for (const double value : values) {
      push_back({what, i, j, value});
    }
  }
};

// Means and cells, or records.
template <class Accumulator>
void ReadBlock(const Accumulator& a, Results& results) {
  using Number = std::conditional_t<std::is_base_of_v<MatrixBase, Accumulator>, int, unsigned>;
  const Block block = BlockOf(a, a.NColumns());
  for (int i = block.col0; i < block.col2; ++i) {
    const auto c = static_cast<Number>(i);
    if constexpr (requires { a.Var(c); }) {
      results.Add("column", i, i, Fields(a.Var(c)));
    } else if constexpr (requires { a.Min(c); }) {
      results.Add("column", i, i, {a.Mean(c), a.CCP(c, c), a.Min(c), a.Max(c)});
    } else {
      results.Add("column", i, i, {a.Mean(c), a.CCP(c, c)});
    }
  }
  block.ForEachPair([&](int i, int j) {
    const auto row = static_cast<Number>(i);
    const auto col = static_cast<Number>(j);
    if constexpr (requires { a.Pair(row, col); }) {
      results.Add("pair", i, j, Fields(a.Pair(row, col)));
    } else {
      results.Add("pair", i, j, {a.CCP(row, col)});
    }
  });
}

inline void ReadSums(const DiscriminantMatrix& a, Results& results) {
  for (int g = 0; g < a.NGroup(); ++g) {
    results.Add("weight of group", g, g, {a.sumW(g)});
  }
  for (int c = 0; c < a.NVar(); ++c) {
    for (int g = 0; g < a.NGroup(); ++g) {
      results.Add("sum of group and column", g, c, {a.sumX1(g, c)});
    }
    for (int g = 0; g < a.NGroup(); ++g) {
      results.Add("square sum of group and column", g, c, {a.sumX2(g, c)});
    }
  }
  Block{0, 0, a.NVar(), false}.ForEachPair(
      [&](int i, int j) { results.Add("pair", i, j, {a.TSSP(i, j)}); });
}

inline void ReadSums(const DiscIndividualMatrix& a, Results& results) {
  const int items = (a.NVar() + 1) * (a.NVar() + 2) / 2;
  for (int g = 0; g < a.NGroup(); ++g) {
    for (int item = 0; item < items; ++item) {
      results.Add("group and item", g, item, {a.TSSP(item, g)});
    }
  }
}

// Without a positive weight accessors may only be asked for totals.
template <class Accumulator>
Results Read(const Accumulator& a) {
  Results results;
  const auto rows = static_cast<double>(a.NRows());
  if constexpr (requires { a.NGroup(); }) {
    results = {{{"total", 0, 0, rows}, {"total", 1, 1, a.WeightSum()}}};
  } else {
    results.Add("total", 0, 0, {rows, a.WeightSum(), a.RegWeightSum()});
  }
  if (0. < a.WeightSum()) {
    if constexpr (requires { a.NGroup(); }) {
      ReadSums(a, results);
    } else {
      ReadBlock(a, results);
    }
  }
  return results;
}

// An accumulator and what it should be. Each step returns what differs then, "" if nothing does.
template <class Accumulator>
class Defined {
 public:
  // Of batches of so many columns.
  Defined(std::unique_ptr<Accumulator> empty, unsigned int columns)
      : _accumulator(std::move(empty)), _definition(Define(*_accumulator, columns)) {}

  // Adds a batch, a second one like it being for the definition.
  //   run  calls the operation that it is given, in the environment that is to be tried
  template <class SomeBatch, class Run>
  std::string Add(SomeBatch& batch, SomeBatch& plain, Run run) {
    if (plain.NRows() != 0) {
      _definition += plain;
    }
    run([&] { *_accumulator += batch; });
    return Contents(batch) == Contents(plain) ? Difference() : "another batch is left";
  }

  template <class Run>
  std::string Merge(const Defined& other, Run run) {
    _definition += other._definition;
    run([&] { *_accumulator += *other._accumulator; });
    return Difference();
  }

  std::string Difference() const {
    const Results results = Read(*_accumulator);
    const Doubles expected = _definition.Results();
    if (results.size() != expected.size() && 0. < _accumulator->WeightSum()) {
      return "another number of results";
    }
    for (std::size_t k = 0; k < results.size(); ++k) {
      const Result& r = results[k];
      if (Bits(r.value) != Bits(expected[k])) {
        std::array<char, 200> text{};
        std::snprintf(text.data(), text.size(), "%s %d, %d (result %zu) is %a, not %a", r.what, r.i,
                      r.j, k, r.value, expected[k]);
        return text.data();
      }
    }
    return "";
  }

  const Accumulator& Get() const { return *_accumulator; }

 private:
  std::unique_ptr<Accumulator> _accumulator;
  decltype(Define(std::declval<Accumulator>(), 0)) _definition;
};

}  // namespace velmor::test
