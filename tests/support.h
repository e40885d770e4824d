#pragma once

// What several tests share: cases, and calls that fail.

#include "cases.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>

namespace velmor::test {

// A tuple's types, as a typed test suite takes them.
template <class Tuple>
struct TypesOf;
template <class... Types>
struct TypesOf<std::tuple<Types...>> {
  using Each = testing::Types<Types...>;
};

// The message of what the call throws.
template <class Error, class Call>
std::string MessageOf(Call call) {
  try {
    call();
  } catch (const Error& error) {
    return error.what();
  }
  ADD_FAILURE() << "nothing was thrown";
  return {};
}

// A call that breaks a contract, and the line that it ends the process with.
struct Violation {
  std::string what;
  std::function<void()> call;
  std::string file;
  std::string function;
  std::string condition;
};

inline void ExpectAbort(const Violation& v) {
  SCOPED_TRACE(v.what);
  EXPECT_DEATH(v.call(),
               testing::AllOf(testing::StartsWith("velmor: backend/" + v.file + ":"),
                              testing::EndsWith(": " + v.function +
                                                ": assertion failed: " + v.condition + "\n")));
}

}  // namespace velmor::test
