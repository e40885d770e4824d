#pragma once

// Contract checks. They are on in every build: a violated precondition ends the process with one
// line on standard error,
//   velmor: backend/velmor/databatch.cpp:57: AddRow: assertion failed: _nRows < _maxRows
// The path is the one in this library's source tree, wherever it was built or installed.

#pragma GCC visibility push(default)
namespace velmor {

// Prints the line above and aborts.
//   file  __FILE__ of the check: a path that begins with "backend/velmor/" stands as it is; any
//         other path is a public header's, wherever that was compiled from
[[noreturn]] void AssertionFailed(const char* file, int line, const char* function,
                                  const char* condition) noexcept;

}  // namespace velmor
#pragma GCC visibility pop

// A macro because the message quotes the condition as it is written. Expands to an expression.
#define VELMOR_ASSERT(condition) \
  ((condition) ? void() : ::velmor::AssertionFailed(__FILE__, __LINE__, __func__, #condition))
