// How many digits are right on data sets with certified results, beside the textbook's formulas;
// docs/accuracy.md explains it and has the table. Where they are: ACCURACY_DATA, ACCURACY_DOCUMENT.
#include <velmor/velmor.h>

#include "files.h"
#include "proof.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace velmor::test {
namespace {

using Column = std::vector<double>;
using Columns = std::vector<Column>;

struct DataSet {
  std::string name;
  std::string model;  // as tests/accuracy/README.md has it
  Column certified;
  Columns columns;  // y first
};

// A file's values, in the columns that its first line names. Commas count as blanks.
Columns ReadColumns(const std::string& path) {
  std::string text = Contents(path);
  std::replace(text.begin(), text.end(), ',', ' ');
  std::istringstream lines(text);
  std::string line;
  std::getline(lines, line);
  std::istringstream names(line);
  Columns columns;
  for (std::string name; names >> name;) {
    columns.emplace_back();
  }
  std::size_t values = 0;
  for (double value = 0.; lines >> value; ++values) {
    columns[values % columns.size()].push_back(value);
  }
  EXPECT_TRUE(values > 0 && lines.eof()) << path;
  return columns;
}

std::vector<DataSet> DataSets() {
  std::vector<DataSet> sets;
  std::istringstream lines(Contents(ACCURACY_DATA "/certified.txt"));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    DataSet& set = sets.emplace_back();
    words >> set.name >> set.model;
    for (double value = 0.; words >> value;) {
      set.certified.push_back(value);
    }
    set.columns =
        ReadColumns(set.name == "Longley" ? ACCURACY_DATA "/../../examples/data/longley.csv"
                                          : ACCURACY_DATA "/" + set.name + ".txt");
  }
  return sets;
}

// The columns of the set's model: of a polynomial x stands for its powers.
Columns ModelColumns(const DataSet& set, Columns columns) {
  const std::size_t predictors = set.certified.size() - (set.model == "regression" ? 1 : 0);
  while (set.model != "summary" && columns.size() <= predictors) {
    Column power = columns.back();
    std::transform(power.begin(), power.end(), columns[1].begin(), power.begin(),
                   std::multiplies<>());
    columns.push_back(std::move(power));
  }
  return columns;
}

struct Moments {
  double cases;
  Column means;
  Columns products;  // centred
};

// The means of all columns, and each cell of the products from its row and column.
template <class Mean, class Product>
Moments Fill(double cases, std::size_t columns, Mean mean, Product product) {
  Moments m{cases, Column(columns), Columns(columns, Column(columns))};
  for (std::size_t c = 0; c < columns; ++c) {
    m.means[c] = mean(c);
  }
  for (std::size_t r = 0; r < columns; ++r) {
    for (std::size_t c = 0; c < columns; ++c) {
      m.products[r][c] = product(r, c, m);
    }
  }
  return m;
}

Moments InBlocks(const Columns& columns, std::size_t blocks) {
  TableView table;
  table.rows = columns[0].size();
  for (const Column& column : columns) {
    table.values.emplace_back(column.data());
  }
  AccumulateOptions options;
  options.blockRows = (table.rows + blocks - 1) / blocks;
  const auto result = Accumulate(table, MatrixListwise(), options).Result();
  const auto number = [](std::size_t c) { return static_cast<unsigned int>(c); };
  return Fill(
      result->RegWeightSum(), columns.size(), [&](auto c) { return result->Mean(number(c)); },
      [&](auto r, auto c, const auto&) { return result->CCP(number(r), number(c)); });
}

double Mean(const Column& x) {
  double sum = 0.;
  for (const double value : x) {
    sum += value;
  }
  return sum / static_cast<double>(x.size());
}

// Sum of (x - centerX) * (y - centerY).
double ProductSum(const Column& x, double centerX, const Column& y, double centerY) {
  double sum = 0.;
  for (std::size_t i = 0; i < x.size(); ++i) {
    sum += (x[i] - centerX) * (y[i] - centerY);
  }
  return sum;
}

Moments TwoPasses(const Columns& columns) {
  return Fill(
      static_cast<double>(columns[0].size()), columns.size(),
      [&](auto c) { return Mean(columns[c]); },
      [&](auto r, auto c, const Moments& m) {
        return ProductSum(columns[r], m.means[r], columns[c], m.means[c]);
      });
}

// Sums of x, y and x * y, from which the centred products follow on paper.
Moments OnePass(const Columns& columns) {
  return Fill(
      static_cast<double>(columns[0].size()), columns.size(),
      [&](auto c) { return Mean(columns[c]); },
      [&](auto r, auto c, const Moments& m) {
        return ProductSum(columns[r], 0., columns[c], 0.) - m.cases * m.means[r] * m.means[c];
      });
}

// The solution of symmetric, positive definite equations, by elimination in their order.
Column Solve(Columns a, Column b) {
  const std::size_t n = b.size();
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t r = i + 1; r < n; ++r) {
      const double factor = a[r][i] / a[i][i];
      for (std::size_t c = i; c < n; ++c) {
        a[r][c] -= factor * a[i][c];
      }
      b[r] -= factor * b[i];
    }
  }
  for (std::size_t i = n; i-- > 0;) {
    for (std::size_t c = i + 1; c < n; ++c) {
      b[i] -= a[i][c] * b[c];
    }
    b[i] /= a[i][i];
  }
  return b;
}

// What is certified, from the normal equations of a regression; one through the origin takes the
// products as they are without centring.
Column Results(const std::string& model, const Moments& m) {
  if (model == "summary") {
    return {m.means[0], std::sqrt(m.products[0][0] / (m.cases - 1.))};
  }
  const bool isCentred = model == "regression";
  Columns a;
  Column b;
  for (std::size_t r = 1; r < m.means.size(); ++r) {
    Column row = m.products[r];
    for (std::size_t c = 0; c < row.size(); ++c) {
      row[c] += isCentred ? 0. : m.cases * m.means[r] * m.means[c];
    }
    b.push_back(row[0]);
    a.emplace_back(row.begin() + 1, row.end());
  }
  Column coefficients = Solve(std::move(a), std::move(b));
  if (isCentred) {
    double constant = m.means[0];
    for (std::size_t i = 0; i < coefficients.size(); ++i) {
      constant -= coefficients[i] * m.means[i + 1];
    }
    coefficients.insert(coefficients.begin(), constant);
  }
  return coefficients;
}

// The log relative error, from 0 (fewer than one digit, or no number) to 15.
double Digits(double result, double certified) {
  const double digits = -std::log10(std::fabs(result - certified) / std::fabs(certified));
  return digits >= 1. ? std::min(digits, 15.) : 0.;
}

// A line of the table: figures of a data set, for each method the digits of the least accurate one.
enum Method { OneBlock, EightBlocks, BlockACase, TwoPass, OnePassOnly, LastBitsMoved, kMethods };
struct Line {
  std::string name;
  std::size_t from, to;  // certified values
  std::array<double, kMethods> digits;

  void Take(Method method, const Column& results, const Column& certified) {
    for (std::size_t i = from; i < to; ++i) {
      digits[method] = std::min(digits[method], Digits(results[i], certified[i]));
    }
  }
};

// Each value is left, or moved to the double above or below it.
Columns WithMovedBits(Columns columns, unsigned int seed) {
  std::mt19937 random(seed);
  for (Column& column : columns) {
    for (double& value : column) {
      const auto way = random() % 3;
      value = way == 0 ? value : std::nextafter(value, way == 1 ? HUGE_VAL : -HUGE_VAL);
    }
  }
  return columns;
}

std::vector<Line> LinesOf(const DataSet& set) {
  std::array<double, kMethods> most{};
  most.fill(15.);
  std::vector<Line> lines;
  if (set.model == "summary") {
    lines = {{set.name + " | mean", 0, 1, most}, {set.name + " | standard deviation", 1, 2, most}};
  } else {
    const std::size_t count = set.certified.size();
    lines = {{set.name + " | " + std::to_string(count) + (count == 1 ? " slope" : " coefficients"),
              0, count, most}};
  }
  const auto take = [&](Method method, const Moments& moments) {
    const Column results = Results(set.model, moments);
    for (Line& line : lines) {
      line.Take(method, results, set.certified);
    }
  };
  const Columns columns = ModelColumns(set, set.columns);
  take(OneBlock, InBlocks(columns, 1));
  take(EightBlocks, InBlocks(columns, 8));
  take(BlockACase, InBlocks(columns, columns[0].size()));
  take(TwoPass, TwoPasses(columns));
  take(OnePassOnly, OnePass(columns));
  take(LastBitsMoved, TwoPasses(columns));
  for (unsigned int seed = 1; seed <= 32; ++seed) {
    take(LastBitsMoved, TwoPasses(ModelColumns(set, WithMovedBits(set.columns, seed))));
  }
  return lines;
}

std::vector<Line> AllLines() {
  std::vector<Line> all;
  for (const DataSet& set : DataSets()) {
    for (Line& line : LinesOf(set)) {
      all.push_back(std::move(line));
    }
  }
  return all;
}

TEST(Accuracy, IsThatOfTwoPassesOnCertifiedData) {
  std::size_t figures = 0;
  for (const Line& line : AllLines()) {
    SCOPED_TRACE(line.name);
    EXPECT_GE(line.digits[OneBlock], line.digits[TwoPass]);
    // Other splits round other last bits.
    for (const Method split : {EightBlocks, BlockACase}) {
      EXPECT_GE(std::round(line.digits[split]), std::round(line.digits[LastBitsMoved]));
    }
    figures += (line.to - line.from) * 3;
  }
  ASSERT_EQ(figures, 3U * 73U);
  CountCases("accuracy: certified data sets", figures);
}

std::string Table() {
  std::string table =
      "| data set | certified | one block | 8 blocks | a block a case | two passes | one pass | "
      "last bits moved |\n|---|---|---:|---:|---:|---:|---:|---:|\n";
  for (const Line& line : AllLines()) {
    table += "| " + line.name;
    for (const double digits : line.digits) {
      std::array<char, 32> text{};
      std::snprintf(text.data(), text.size(), " | %.1f", digits);
      table += text.data();
    }
    table += " |\n";
  }
  return table;
}

// With VELMOR_WRITE_TABLE in the environment the table is written there first.
TEST(Accuracy, IsWhatTheDocumentShows) {
  const std::string begin = "<!-- table: accuracy -->\n";
  std::string document = Contents(ACCURACY_DOCUMENT);
  const std::size_t from = document.find(begin);
  const std::size_t to = document.find("<!-- end -->", from);
  ASSERT_NE(to, std::string::npos) << "no place for the table in " ACCURACY_DOCUMENT;
  const std::string table = begin + Table();
  if (std::getenv("VELMOR_WRITE_TABLE")) {  // NOLINT(concurrency-mt-unsafe): one thread only
    Write(ACCURACY_DOCUMENT, document.replace(from, to - from, table));
  }
  EXPECT_NE(Contents(ACCURACY_DOCUMENT).find(table + "<!-- end -->"), std::string::npos)
      << "VELMOR_WRITE_TABLE=1 writes the table into " ACCURACY_DOCUMENT ":\n"
      << table;
}

}  // namespace
}  // namespace velmor::test
