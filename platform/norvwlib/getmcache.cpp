// getmcache.cpp: the default of getmcache_.
#include <norvwlib/norvwlib.h>

#include <unistd.h>

std::int64_t getmcache_() {
  constexpr std::int64_t kUnknown = 1024;
  const std::int64_t kilobytes = sysconf(_SC_LEVEL2_CACHE_SIZE) / 1024;
  return kilobytes > 0 ? kilobytes : kUnknown;
}
