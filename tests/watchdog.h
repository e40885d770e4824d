#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

namespace velmor::test {

// Ends the process when a test hangs, which a thread that waits for good could not be made to.
class Watchdog {
 public:
  explicit Watchdog(std::chrono::seconds patience = std::chrono::seconds(120))
      : _thread([this, patience] {
          std::unique_lock lock(_mutex);
          if (!_changed.wait_for(lock, patience, [this] { return _isOver; })) {
            std::fputs("the test hangs\n", stderr);
            std::abort();
          }
        }) {}
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

 private:
  std::mutex _mutex;
  std::condition_variable _changed;
  bool _isOver = false;
  std::thread _thread;
};

}  // namespace velmor::test
