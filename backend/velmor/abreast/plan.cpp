// plan.cpp: when blocks side by side are quicker; the sets of kernels have the measured bounds.
#include "abreast/plan.h"

#include <algorithm>

namespace velmor {

AbreastPlan::AbreastPlan(const TableView& table, const Shape& shape, std::uint64_t blockRows) {
  if (shape.IsByGroup()) {
    return;
  }
  const unsigned active = ordered::Active().lanes;
  const std::uint64_t columns = table.values.size();
  for (const ordered::Engine* const engine : ordered::Available()) {
    const ordered::AbreastBounds& bounds = engine->abreast;
    const unsigned mostColumns =
        shape.IsPairwise() ? bounds.mostColumnsPairwise : bounds.mostColumnsListwise;
    // Two lanes are slower than one block after the other by wider vectors.
    if (engine->lanes <= active && engine->lanes >= std::min(active, 4U) &&
        columns <= mostColumns && blockRows <= bounds.mostValues / columns) {
      _engines.push_back(engine);
    }
  }
}

const ordered::Engine* AbreastPlan::EngineFor(std::uint64_t block, std::uint64_t whole) const {
  const auto found =
      std::find_if(_engines.rbegin(), _engines.rend(), [=](const ordered::Engine* engine) {
        return block % engine->lanes == 0 && engine->lanes <= whole;
      });
  return found == _engines.rend() ? nullptr : *found;
}

}  // namespace velmor
