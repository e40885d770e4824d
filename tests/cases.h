#pragma once

// Cases for accumulators and the bits of their results; needs no test framework, so that programs
// for other machines can be built with it.

#include <velmor/velmor.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <utility>
#include <vector>

namespace velmor::test {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// The bits of a double; every NaN is one pattern.
inline std::uint64_t Bits(double x) {
  return std::bit_cast<std::uint64_t>(std::isnan(x) ? kNaN : x);
}

inline std::vector<std::uint64_t> Bits(const std::vector<double>& xs) {
  std::vector<std::uint64_t> bits(xs.size());
  std::transform(xs.begin(), xs.end(), bits.begin(), [](double x) { return Bits(x); });
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

// Cases without values.
inline Cases RandomWeights(std::mt19937& random, std::size_t rows, bool weighted,
                           bool regWeighted) {
  std::uniform_real_distribution<double> weight(0.1, 2.);
  Cases cases;
  for (const auto& [isWanted, weights] :
       {std::pair{weighted, &cases.weights}, {regWeighted, &cases.regWeights}}) {
    weights->resize(isWanted ? rows : 0);
    std::generate(weights->begin(), weights->end(), [&] { return weight(random); });
  }
  return cases;
}

// Accumulates the cases cut up at random: into parts, which are merged, of a few batches each, some
// of which may be empty.
template <class Accumulator, class Make, class MakeBatch>
void AccumulateSplit(std::mt19937 random, const Cases& cases, Make make, MakeBatch makeBatch,
                     Accumulator& whole) {
  const std::size_t rows = cases.rows.size();
  for (std::size_t from = 0; from < rows;) {
    auto part = make();
    for (auto batches = 1 + random() % 3; batches > 0; --batches) {
      const std::size_t to = std::min<std::size_t>(rows, from + random() % 30);
      *part += *makeBatch(cases.Slice(from, to));
      from = to;
    }
    whole += *part;
  }
}

// The statistics of two columns over the cases in which both are present, in two passes and in
// extended precision.
struct PairMoments {
  int nRows = 0;
  long double weightSum = 0.;
  long double mean0 = 0.;
  long double mean1 = 0.;
  long double cscp = 0.;
};

inline PairMoments TwoPasses(const Cases& cases, std::size_t column0, std::size_t column1,
                             double missingCode = kNaN) {
  const auto forEach = [&](auto use) {
    for (std::size_t i = 0; i < cases.rows.size(); ++i) {
      const double x = cases.rows[i][column0];
      const double y = cases.rows[i][column1];
      if (x != missingCode && y != missingCode) {
        use(x, y,
            (cases.weights.empty() ? 1.L : cases.weights[i]) *
                (cases.regWeights.empty() ? 1.L : cases.regWeights[i]));
      }
    }
  };
  PairMoments m;
  forEach([&m](double x, double y, long double u) {
    ++m.nRows;
    m.weightSum += u;
    m.mean0 += u * x;
    m.mean1 += u * y;
  });
  m.mean0 /= m.weightSum;
  m.mean1 /= m.weightSum;
  forEach([&m](double x, double y, long double u) { m.cscp += u * (x - m.mean0) * (y - m.mean1); });
  return m;
}

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

}  // namespace velmor::test
