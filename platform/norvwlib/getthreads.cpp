// getthreads.cpp: the default of getthreads_.
#include <norvwlib/norvwlib.h>

#include <sched.h>

#include <algorithm>
#include <thread>

std::int64_t getthreads_() {
  // A cpuset or taskset may have cut down what there is.
  cpu_set_t available;
  if (sched_getaffinity(0, sizeof available, &available) == 0) {
    return CPU_COUNT(&available);
  }
  // More processors than a cpu_set_t has room for.
  return std::max(1U, std::thread::hardware_concurrency());
}
