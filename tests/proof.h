#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <string>

namespace velmor::test {

// Tells scripts/prove how many cases of a promise a test has tried: appends a line, the promise and
// the number with a tab between them, to the file that the environment's VELMOR_PROOF names. Does
// nothing without it, nor where a test has failed, which proves nothing. Call it after the last
// case; cases of the same promise add up.
inline void CountCases(const std::string& promise, std::size_t cases) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing changes the environment
  const char* const file = std::getenv("VELMOR_PROOF");
  if (file && !testing::UnitTest::GetInstance()->Failed()) {
    std::ofstream(file, std::ios::app) << promise << '\t' << cases << '\n';
  }
}

}  // namespace velmor::test
