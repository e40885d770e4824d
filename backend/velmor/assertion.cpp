// assertion.cpp: the one place where a violated contract ends the process.
#include <velmor/assertion.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace velmor {

void AssertionFailed(const char* file, int line, const char* function,
                     const char* condition) noexcept {
  // The build gives the library's sources paths within this tree, so any other path is that of a
  // public header, in this build or in a host's own.
  std::string_view path = file;
  std::string_view directory;
  if (!path.starts_with("backend/velmor/")) {
    directory = "backend/tables/velmor/";
    path.remove_prefix(path.rfind('/') + 1);
  }
  std::fprintf(stderr, "velmor: %.*s%.*s:%d: %s: assertion failed: %s\n",
               static_cast<int>(directory.size()), directory.data(), static_cast<int>(path.size()),
               path.data(), line, function, condition);
  std::abort();
}

}  // namespace velmor
