// In a build that counts coverage each program and shared library links this, so that a process
// writes its counts also when a test makes it abort, and none when a test limits what it may write.
#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <string>

extern "C" void __gcov_dump();  // NOLINT: the compiler's, one in each program and library

namespace {

struct sigaction previous;

void WriteCounts(int signal) {
  __gcov_dump();
  if (previous.sa_handler != SIG_DFL && previous.sa_handler != SIG_IGN) {
    previous.sa_handler(signal);  // that of the next library
  }
}  // and abort() goes on

[[gnu::constructor]] void WriteCountsOnAbort() {
  struct sigaction action = {};
  action.sa_handler = WriteCounts;
  sigaction(SIGABRT, &action, &previous);
}

// Runs before the counts are written, which has a higher priority. Where a test has limited the
// size of files, they would spoil those of other processes; so they go beside the errors of
// counting.
[[gnu::destructor]] void LeaveCountsWhole() {
  rlimit size = {};
  getrlimit(RLIMIT_FSIZE, &size);
  const char* const errors = std::getenv("GCOV_ERROR_FILE");  // NOLINT(concurrency-mt-unsafe)
  if (size.rlim_cur != RLIM_INFINITY && errors != nullptr) {
    const std::string elsewhere = std::string(errors) + ".limited";
    setenv("GCOV_PREFIX", elsewhere.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    setenv("GCOV_ERROR_FILE", "/dev/null", 1);    // NOLINT(concurrency-mt-unsafe)
  }
}

}  // namespace
