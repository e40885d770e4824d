#pragma once

#include "ordered/engine.h"

#include "input.h"

namespace velmor::test {

// Computes with any engine of the machine from now on.
inline void UseAnyEngine(Input& input) {
  const std::vector<const ordered::Engine*> engines = ordered::Available();
  ordered::Use(*engines[input.Below(static_cast<unsigned int>(engines.size()))]);
}

}  // namespace velmor::test
