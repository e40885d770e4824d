#pragma once

// Which engine is used: a table of kernels for one instruction set (kernels/contract.h).

#include "ordered/kernels/contract.h"

#include <vector>

namespace velmor::ordered {

// The engines that this machine can run, the fastest last.
std::vector<const Engine*> Available();

// The engine in use: chosen once, at the first call, as the fastest that the processor and the
// operating system support.
const Engine& Active();

// For tests and benchmarks: uses one of the available engines from here on. No accumulator may be
// at work meanwhile.
void Use(const Engine& engine);

}  // namespace velmor::ordered
