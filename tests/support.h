#pragma once

// What several tests share: cases, and calls that fail.

#include "cases.h"
#include "proof.h"

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

// A class's name without its namespace.
template <class Type>
std::string NameOf() {
  const std::string name = testing::internal::GetTypeName<Type>();
  return name.substr(name.rfind(':') + 1);
}

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

// Tells tests/assertion_cases which assertion ended a process: the file and line number with which
// its message begins.
inline bool NoteAssertion(const std::string& message) {
  const std::size_t from = std::string("velmor: ").size();
  return AppendLine("VELMOR_ASSERTIONS", message.substr(from, message.find(": ", from) - from));
}

// Belongs in test suites that are called ...DeathTest: tests/assertion_cases runs those.
inline void ExpectAbort(const Violation& v) {
  SCOPED_TRACE(v.what);
  const std::string end = ": " + v.function + ": assertion failed: " + v.condition + "\n";
  // The line is the child process's, but it is matched, so noted, in this one.
  EXPECT_DEATH(v.call(), testing::AllOf(testing::StartsWith("velmor: backend/" + v.file + ":"),
                                        testing::EndsWith(end), testing::Truly(NoteAssertion)));
}

}  // namespace velmor::test
