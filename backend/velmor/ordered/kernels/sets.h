#pragma once

// The engines that are built; of the processors' own, those that the build's target can have.

#include "ordered/kernels/contract.h"

namespace velmor::ordered {

extern const Engine kBaseline;
extern const Engine kAvx2;  // x86-64 only, like the next
extern const Engine kAvx512;

}  // namespace velmor::ordered
