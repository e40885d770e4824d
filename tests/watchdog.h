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
  Watchdog() : _thread([this] { Watch(); }) {}
  ~Watchdog() {
    {
      const std::lock_guard lock(_mutex);
      _isOver = true;
    }
    _changed.notify_one();
    _thread.join();
  }
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

  // A test of many steps has come to the next. Any thread may call it.
  static void NoteProgress() { ++_steps; }

 private:
  static constexpr std::chrono::seconds kPatience{120};  // for a step, which takes milliseconds

  void Watch() {
    std::unique_lock lock(_mutex);
    for (unsigned int seen = _steps - 1; seen != _steps;) {
      seen = _steps;
      if (_changed.wait_for(lock, kPatience, [this] { return _isOver; })) {
        return;
      }
    }
    std::fputs("the test hangs\n", stderr);
    std::abort();
  }

  static inline std::atomic<unsigned int> _steps{0};
  std::mutex _mutex;
  std::condition_variable _changed;
  bool _isOver = false;
  std::thread _thread;
};

}  // namespace velmor::test
