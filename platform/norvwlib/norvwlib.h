#pragma once

// The services that velmor asks of its host. The library defines each with a working default; a
// host that wants another defines the function itself, with this declaration in sight, and the
// definition in the executable is the one that counts.

#include <cstdint>
#include <exception>

#pragma GCC visibility push(default)

// A host's error, raised by a host's part to end a run. On a pool thread it stops the other parts
// at their next turn; see velmor::Driver.
class NorvGoToCaller : public std::exception {
 public:
  NorvGoToCaller() noexcept = default;
  NorvGoToCaller(const NorvGoToCaller&) noexcept = default;
  NorvGoToCaller& operator=(const NorvGoToCaller&) noexcept = default;
  ~NorvGoToCaller() override;
  const char* what() const noexcept override;
};

extern "C" {

// Threads to use when a run is not told. Default: the processors that the calling thread may run
// on, at least 1.
std::int64_t getthreads_();

// Cache memory that a run may use, in kilobytes. Default: the second-level cache of one core, 1024
// where its size is not known.
std::int64_t getmcache_();

// Called on the thread that called Driver, after a pooled run in which a part raised
// NorvGoToCaller. Its result is not used. Default: throws NorvGoToCaller to Driver's caller, so
// that no error is lost.
std::int64_t atnnxt_();
}

#pragma GCC visibility pop
