#pragma once

// The engines that are built: the baseline, and those of the instruction sets that a processor of
// the build's target may have.

#include "ordered/kernels/contract.h"

namespace velmor::ordered {

extern const Engine kBaseline;
extern const Engine kAvx2;  // x86-64 only, like the next
extern const Engine kAvx512;

}  // namespace velmor::ordered
