#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <string>

namespace velmor::test {

// Appends a line to the file that a variable of the environment names; without it does nothing.
inline bool AppendLine(const char* variable, const std::string& line) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing changes the environment
  const char* const file = std::getenv(variable);
  return file == nullptr || std::ofstream(file, std::ios::app) << line << '\n';
}

// Tells scripts/prove how many cases of a promise a test has tried, by a line with a tab between
// the two. Does nothing where a test has failed, which proves nothing. Call it after the last case;
// cases of the same promise add up.
inline void CountCases(const std::string& promise, std::size_t cases) {
  if (!testing::UnitTest::GetInstance()->Failed()) {
    EXPECT_TRUE(AppendLine("VELMOR_PROOF", promise + '\t' + std::to_string(cases)));
  }
}

}  // namespace velmor::test
