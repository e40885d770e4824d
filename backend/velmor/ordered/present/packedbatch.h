#pragma once

// A batch as the tasks of pairwise deletion read it.

#include "ordered/engine.h"
#include "ordered/kernels/tuning.h"
#include "ordered/present/patterns.h"
#include "ordered/present/presentcases.h"
#include "ordered/workspace.h"

#include <cstddef>

namespace velmor::ordered {

// Adjacent rows of a batch, kStripRows at most.
struct Strip {
  std::size_t from;
  std::size_t rows;
};

// The cases that variables or pairs have in common, and the sums of their weights.
struct CommonCases {
  std::size_t rows = 0;
  double weightSum = 0.;  // of the combined weights
  double caseWeightSum = 0.;
};

struct Extremes {
  double min;
  double max;
};

struct PackedBatch {
  // Takes the memory, finds the patterns and combines the weights. `cases` has to live as long.
  PackedBatch(const Engine& engine, const PairwiseCases& cases, WantedPairs wanted,
              Workspace& workspace);

  const double* Panel(std::size_t panel) const { return panels + panel * stride; }
  bool HasBothWeights() const { return cases.weights != nullptr && cases.regWeights != nullptr; }
  // What a record has: the sum of the case weights, without case weights the count.
  double WeightSum(const CommonCases& common) const;
  // Over the cases in which the column is present. There is one at least.
  Extremes ExtremesOf(std::size_t column) const;

  // Fills the panels of all column sets from a strip.
  void Pack(Strip strip) const;

  const Engine& engine;
  const PairwiseCases& cases;
  WantedPairs wanted;
  Patterns patterns;
  const double* weights;   // the combined weights; without weights all 1
  std::size_t stride;      // from a panel to the next, in doubles; a batch may have few rows
  const double** columns;  // of each panel, set by set, the last one filling its last panel up
  double* panels;          // of a strip, as `columns`
};

}  // namespace velmor::ordered
