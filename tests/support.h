#pragma once

// What several tests share: bits of doubles, batches from rows, assertion failures.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <velmor/velmor.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace velmor::test {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// The bits of a double; every NaN is one pattern.
inline std::uint64_t Bits(double x) {
  return std::bit_cast<std::uint64_t>(std::isnan(x) ? kNaN : x);
}

inline std::vector<std::uint64_t> Bits(const std::vector<double>& xs) {
  std::vector<std::uint64_t> bits;
  for (const double x : xs) {
    bits.push_back(Bits(x));
  }
  return bits;
}

// A data set: values of all columns case by case, weights where they are not empty.
struct Cases {
  std::vector<std::vector<double>> rows;
  std::vector<double> weights;
  std::vector<double> regWeights;
  std::vector<unsigned int> groups;

  // Cases [from, to).
  Cases Slice(std::size_t from, std::size_t to) const {
    const auto cut = [from, to](const auto& all) {
      using Vector = std::decay_t<decltype(all)>;
      return all.empty() ? Vector() : Vector(all.data() + from, all.data() + to);
    };
    return {cut(rows), cut(weights), cut(regWeights), cut(groups)};
  }
};

// A batch that holds the cases. No more can be added to it.
inline std::unique_ptr<DataBatch> Batch(const Cases& cases, unsigned int columns) {
  double weight = 0.;
  double regWeight = 0.;
  unsigned int group = 0;
  auto batch = std::make_unique<DataBatch>(
      columns, static_cast<unsigned int>(cases.rows.size()) + 1,
      cases.weights.empty() ? nullptr : &weight, cases.regWeights.empty() ? nullptr : &regWeight,
      cases.groups.empty() ? nullptr : &group);
  for (std::size_t i = 0; i < cases.rows.size(); ++i) {
    weight = cases.weights.empty() ? 0. : cases.weights[i];
    regWeight = cases.regWeights.empty() ? 0. : cases.regWeights[i];
    group = cases.groups.empty() ? 0 : cases.groups[i];
    batch->AddRow(cases.rows[i].data());
  }
  return batch;
}

inline std::unique_ptr<DataBatch> Batch(const Cases& cases) {
  return Batch(cases, static_cast<unsigned int>(cases.rows.at(0).size()));
}

// A batch of grouped cases, sorted unless told otherwise. No more can be added to it.
inline std::unique_ptr<DataBatchByGroup> GroupedBatch(const Cases& cases, unsigned int columns,
                                                      unsigned int nGroups, bool sorted = true) {
  double weight = 0.;
  unsigned int group = 0;
  auto batch = std::make_unique<DataBatchByGroup>(
      columns, static_cast<unsigned int>(cases.rows.size()) + 1,
      cases.weights.empty() ? nullptr : &weight, nullptr, &group, nGroups);
  for (std::size_t i = 0; i < cases.rows.size(); ++i) {
    weight = cases.weights.empty() ? 0. : cases.weights[i];
    group = cases.groups[i];
    std::copy(cases.rows[i].begin(), cases.rows[i].end(), batch->NextRow());
    batch->AddRow();
  }
  if (sorted) {
    batch->SortByGroup();
  }
  return batch;
}

// Every field of a record, of both kinds of records.
template <class Variable>
std::vector<double> Fields(const Variable& v) {
  std::vector<double> fields{static_cast<double>(v.NRows()), v.WeightSum(), v.RegWeightSum(),
                             v.Mean(), v.CSS()};
  if constexpr (requires { v.Min(); }) {
    fields.insert(fields.end(), {v.Min(), v.Max()});
  }
  return fields;
}

template <class Pair>
std::vector<double> PairFields(const Pair& p) {
  return {static_cast<double>(p.NRows()),
          p.WeightSum(),
          p.RegWeightSum(),
          p.Mean0(),
          p.Mean1(),
          p.CSS0(),
          p.CSS1(),
          p.CSCP()};
}

// A call that breaks a contract, and the line that it ends the process with.
struct Violation {
  std::string what;
  std::function<void()> call;
  std::string file;
  std::string function;
  std::string condition;
};

inline void ExpectAbort(const Violation& v) {
  SCOPED_TRACE(v.what);
  EXPECT_DEATH(v.call(),
               testing::AllOf(testing::StartsWith("velmor: backend/" + v.file + ":"),
                              testing::EndsWith(": " + v.function +
                                                ": assertion failed: " + v.condition + "\n")));
}

}  // namespace velmor::test
