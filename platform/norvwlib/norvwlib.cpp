// norvwlib.cpp: the defaults of the host services.
#include <norvwlib/norvwlib.h>

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

NorvGoToCaller::~NorvGoToCaller() = default;

const char* NorvGoToCaller::what() const noexcept { return "a host error ended the run"; }

std::int64_t getthreads_() {
  // A cpuset or taskset may have cut down what there is.
  cpu_set_t available;
  if (sched_getaffinity(0, sizeof available, &available) == 0) {
    return CPU_COUNT(&available);
  }
  // More processors than a cpu_set_t has room for.
  return std::max(1U, std::thread::hardware_concurrency());
}

std::int64_t getmcache_() {
  constexpr std::int64_t kUnknown = 1024;
  const std::int64_t kilobytes = sysconf(_SC_LEVEL2_CACHE_SIZE) / 1024;
  return kilobytes > 0 ? kilobytes : kUnknown;
}

std::int64_t atnnxt_() { throw NorvGoToCaller(); }
