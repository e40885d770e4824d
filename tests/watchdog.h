#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

namespace velmor::test {

// Ends the process when a test hangs, which a thread that waits for good could not be made to. It
// waits for progress, not for the end: how long that takes, the load of the machine says.
class Watchdog {
 public:
  // A test of many steps has come to the next. Any thread may call it.
  static void NoteProgress() { ++steps; }

 private:
  static constexpr std::chrono::seconds kPatience{120};  // for a step, which takes milliseconds

  void Watch(const std::stop_token& isOver) {
    std::unique_lock lock(_mutex);
    for (unsigned int seen = steps - 1; seen != steps;) {
      seen = steps;
      _nothing.wait_for(lock, isOver, kPatience, [] { return false; });
      if (isOver.stop_requested()) {
        return;
      }
    }
    std::fputs("the test hangs\n", stderr);
    std::abort();
  }

  static inline std::atomic<unsigned int> steps{0};
  // Made here, as a test may count what is allocated while the thread runs.
  std::mutex _mutex;
  std::condition_variable_any _nothing;
  std::jthread _thread{[this](const std::stop_token& isOver) { Watch(isOver); }};
};

}  // namespace velmor::test
