#pragma once

// Everything that an accumulator's accessors return, in the order of its definition (definition.h).

#include "definition.h"

#include <array>
#include <type_traits>

namespace velmor::test {

// What an accumulator's accessors return, each with its name. Without a positive weight they may
// only be asked for totals.
struct Result {
  const char* what;
  int i, j;
  double value;
};

struct Results : std::vector<Result> {
  template <class Fields>
  void Add(const char* what, int i, int j, const Fields& values) {
    for (const double value : values) {
      push_back({what, i, j, value});
    }
  }
};

template <class Accumulator, class Column, class Pair>
Results ReadBlock(const Accumulator& a, const Block& block, Column column, Pair pair) {
  Results results;
  results.Add("total", 0, 0,
              std::array{static_cast<double>(a.NRows()), a.WeightSum(), a.RegWeightSum()});
  if (0. < a.WeightSum()) {
    using Number = std::conditional_t<std::is_base_of_v<MatrixBase, Accumulator>, int, unsigned>;
    for (int c = block.col0; c < block.col2; ++c) {
      results.Add("column", c, c, column(static_cast<Number>(c)));
    }
    block.ForEachPair([&](int i, int j) {
      results.Add("pair", i, j, pair(static_cast<Number>(i), static_cast<Number>(j)));
    });
  }
  return results;
}

template <class Accumulator>
Results ReadListwise(const Accumulator& a, const Block& block) {
  const auto column = [&a](auto c) {
    if constexpr (requires { a.Min(c); }) {
      return std::array{a.Mean(c), a.CCP(c, c), a.Min(c), a.Max(c)};
    } else {
      return std::array{a.Mean(c), a.CCP(c, c)};
    }
  };
  return ReadBlock(a, block, column, [&a](auto i, auto j) { return std::array{a.CCP(i, j)}; });
}

template <class Accumulator>
Results ReadPairwise(const Accumulator& a, const Block& block) {
  return ReadBlock(
      a, block, [&a](auto c) { return Fields(a.Var(c)); },
      [&a](auto i, auto j) { return PairFields(a.Pair(i, j)); });
}

template <class Accumulator>
Results ReadSums(const Accumulator& a) {
  Results results{
      {{"total", 0, 0, static_cast<double>(a.NRows())}, {"total", 1, 1, a.WeightSum()}}};
  if (!(0. < a.WeightSum())) {
    return results;
  }
  if constexpr (requires { a.sumW(0); }) {
    for (int g = 0; g < a.NGroup(); ++g) {
      results.push_back({"weight of group", g, g, a.sumW(g)});
    }
    for (int c = 0; c < a.NVar(); ++c) {
      for (int g = 0; g < a.NGroup(); ++g) {
        results.push_back({"sum of group and column", g, c, a.sumX1(g, c)});
      }
      for (int g = 0; g < a.NGroup(); ++g) {
        results.push_back({"square sum of group and column", g, c, a.sumX2(g, c)});
      }
    }
    Block{0, 0, a.NVar()}.ForEachPair([&](int i, int j) {
      results.push_back({"pair", i, j, a.TSSP(i, j)});
    });
  } else {
    const int items = (a.NVar() + 1) * (a.NVar() + 2) / 2;
    for (int g = 0; g < a.NGroup(); ++g) {
      for (int item = 0; item < items; ++item) {
        results.push_back({"group and item", g, item, a.TSSP(item, g)});
      }
    }
  }
  return results;
}

}  // namespace velmor::test
