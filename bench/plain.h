#pragma once

// The definition: plain loops over the public kernels and records, batch by batch, each batch's
// result merged into what came before. Batches have case weights at most.

#include <velmor/velmor.h>

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace bench {

// What SMatrixListwise keeps of a block of all columns.
class PlainListwise {
 public:
  PlainListwise& operator+=(velmor::DataBatch& batch) {
    PlainListwise part;
    part.Init(batch);
    if (_cells.empty()) {
      *this = std::move(part);
    } else {
      Merge(part);
    }
    return *this;
  }

 private:
  void Init(velmor::DataBatch& batch) {
    const int n = static_cast<int>(batch.NRows());
    const double* const w = batch.Weights();
    _weight = velmor::WeightedSum(w, n);
    for (unsigned i = 0; i < batch.NColumns(); ++i) {
      double* const x = batch.Column(i);
      _means.push_back(velmor::WeightedMean(x, w, _weight, n));
      _mins.push_back(velmor::Mins(x, n));
      _maxs.push_back(velmor::Maxs(x, n));
      velmor::CenterData(x, _means.back(), n);
      for (unsigned j = 0; j <= i; ++j) {
        _cells.push_back(velmor::CrossProduct(x, batch.Column(j), w, n));
      }
    }
  }

  void Merge(const PlainListwise& b) {
    const std::size_t columns = _means.size();
    std::vector<double> shifts(columns);
    std::vector<double> merged(columns);
    for (std::size_t i = 0; i < columns; ++i) {
      shifts[i] = velmor::MeanDiff(_means[i], _weight, b._means[i], b._weight);
      merged[i] = _means[i] + shifts[i];
      _mins[i] = _mins[i] > b._mins[i] ? b._mins[i] : _mins[i];
      _maxs[i] = b._maxs[i] > _maxs[i] ? b._maxs[i] : _maxs[i];
    }
    std::size_t cell = 0;
    for (std::size_t i = 0; i < columns; ++i) {
      const double factor = _weight * shifts[i];
      const double factorB = b._weight * (merged[i] - b._means[i]);
      for (std::size_t j = 0; j <= i; ++j, ++cell) {
        _cells[cell] = ((b._cells[cell] + factor * (merged[j] - _means[j])) +
                        factorB * (merged[j] - b._means[j])) +
                       _cells[cell];
      }
    }
    _means = std::move(merged);
    _weight = b._weight + _weight;
  }

  double _weight = 0.;
  std::vector<double> _means;
  std::vector<double> _mins;
  std::vector<double> _maxs;
  std::vector<double> _cells;  // a packed lower triangle
};

// What SMatrixPairwise keeps of a block of all columns.
class PlainPairwise {
 public:
  explicit PlainPairwise(double missingCode) { _work._missingCode = missingCode; }

  PlainPairwise& operator+=(velmor::DataBatch& batch) {
    const int n = static_cast<int>(batch.NRows());
    const unsigned columns = batch.NColumns();
    const double* const w = batch.Weights();
    _weight = velmor::WeightedSum(w, n) + _weight;
    _variables.resize(columns);
    _pairs.resize(std::size_t{columns} * (columns - 1) / 2);
    auto pair = _pairs.begin();
    for (unsigned i = 0; i < columns; ++i) {
      velmor::VarStatData variable;
      variable.Init(batch.Column(i), w, nullptr, _work, n);
      _variables[i].Update(variable);
      for (unsigned j = 0; j < i; ++j) {
        velmor::PairStatData ofBatch;
        ofBatch.Init(batch.Column(i), batch.Column(j), w, nullptr, _work, n);
        (pair++)->Update(ofBatch);
      }
    }
    return *this;
  }

 private:
  double _weight = 0.;
  std::vector<velmor::VarStatData> _variables;
  std::vector<velmor::PairStatData> _pairs;  // a packed strictly lower triangle
  velmor::WorkArea _work;
};

}  // namespace bench
