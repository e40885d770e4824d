// packedbatch.cpp: a batch's columns in panels, pattern by pattern; start at PackedBatch.
#include "ordered/present/packedbatch.h"

#include "ordered/panels.h"

#include <algorithm>
#include <array>

namespace velmor::ordered {

PackedBatch::PackedBatch(const Engine& e, const PairwiseCases& c, WantedPairs w,
                         Workspace& workspace)
    : engine(e),
      cases(c),
      wanted(w),
      patterns(e, c, w, workspace),
      weights(c.weights ? c.weights : c.regWeights),
      stride(std::min(kStripRows, (c.rows + 7) / 8 * 8) * e.panel),
      columns(workspace.Take<const double*>(std::size_t{patterns.Panels()} * e.panel)),
      panels(workspace.Take<double>(patterns.Panels() * stride)) {
  for (const auto sets : {patterns.Wide(), patterns.Others()}) {
    for (const ColumnSet& set : sets) {
      for (std::size_t i = 0; i < std::size_t{set.panels} * e.panel; ++i) {
        columns[std::size_t{set.firstPanel} * e.panel + i] =
            c.columns[set.columns[ColumnInPlace(i, set.columns.size())]];
      }
    }
  }
  if (weights == nullptr || HasBothWeights()) {
    auto* const combined = workspace.Take<double>(cases.rows);
    for (std::size_t i = 0; i < cases.rows; ++i) {
      combined[i] = HasBothWeights() ? cases.weights[i] * cases.regWeights[i] : 1.;
    }
    weights = combined;
  }
}

double PackedBatch::WeightSum(const CommonCases& common) const {
  return cases.weights == nullptr ? static_cast<double>(common.rows)
         : HasBothWeights()       ? common.caseWeightSum
                                  : common.weightSum;
}

Extremes PackedBatch::ExtremesOf(std::size_t column) const {
  const double* const x = cases.columns[column];
  const double* const end = x + cases.rows;
  const double first = *std::find_if(x, end, [this](double v) { return v != cases.missingCode; });
  Extremes extremes{first, first};
  engine.PresentExtremes(x, cases.rows, cases.missingCode, &extremes.min, &extremes.max);
  return extremes;
}

void PackedBatch::Pack(Strip strip) const {
  for (unsigned panel = 0; panel < patterns.Panels(); ++panel) {
    std::array<const double*, kMaxPanel> ofPanel{};
    for (std::size_t i = 0; i < engine.panel; ++i) {
      ofPanel[i] = columns[std::size_t{panel} * engine.panel + i] + strip.from;
    }
    engine.Pack(ofPanel.data(), strip.rows, nullptr, panels + panel * stride, nullptr);
  }
}

}  // namespace velmor::ordered
