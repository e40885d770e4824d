// The driver's protocol, on one thread and on a pool, undisturbed and with errors at every step.
// This program is a host: it defines the host services itself.
#include <velmor/driver.h>

#include <norvwlib/norvwlib.h>

#include "proof.h"
#include "support.h"
#include "watchdog.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <mutex>
#include <new>
#include <optional>
#include <set>
#include <stdexcept>
#include <thread>

namespace {

std::int64_t hostThreads = 2;
std::int64_t hostCache = 64;
std::atomic<int> threadsAsked{0};
std::atomic<int> errorsReported{0};
bool reportThrows = false;
std::thread::id reportThread;

}  // namespace

std::int64_t getthreads_() {
  ++threadsAsked;
  return hostThreads;
}
std::int64_t getmcache_() { return hostCache; }
std::int64_t atnnxt_() {
  ++errorsReported;
  reportThread = std::this_thread::get_id();
  if (reportThrows) {
    throw NorvGoToCaller();
  }
  return 0;
}

namespace velmor::test {
namespace {

enum class Step { create, read, accumulate, merge };
enum class Kind { host, memory, other };

// An error that a part raises at a step, when it gets there for the `turn`-th time, from 0.
struct Fault {
  static constexpr int kNoPart = -1;
  static constexpr int kEveryPart = -2;

  Step step = Step::create;
  Kind kind = Kind::host;
  int part = kNoPart;
  int turn = 0;

  void RaiseAt(Step at, int atPart, int atTurn = 0) const {
    if (at != step || (atPart != part && part != kEveryPart) || atTurn != turn) {
      return;
    }
    switch (kind) {
      case Kind::host:
        throw NorvGoToCaller();
      case Kind::memory:
        throw std::bad_alloc();
      case Kind::other:
        throw std::runtime_error("other error");
    }
  }
};

// Tells how many threads are inside; a second one is a fault.
class Alone {
 public:
  explicit Alone(std::atomic<int>& inside) : _inside(inside) { EXPECT_EQ(++_inside, 1); }
  ~Alone() { --_inside; }
  Alone(const Alone&) = delete;
  Alone& operator=(const Alone&) = delete;

 private:
  std::atomic<int>& _inside;
};

// Hands out the numbers 1 to `batches`, or numbers without end, and adds up what comes back.
class Numbers : public ProblemBase {
 public:
  static constexpr int kEndless = -1;

  // delays  seed of what every step waits for: nothing, other threads, some time
  explicit Numbers(int batches, Fault fault = {}, unsigned int delays = 0)
      : _batches(batches), _fault(fault), _delays(delays) {}

  ProblemPartBase* CreatePart() override;

  std::uint64_t CacheSize() const { return _cacheSize; }

  // Counts of the whole run, to be read after it.
  int created = 0;
  std::atomic<int> alive{0};
  std::atomic<int> ends{0};
  int merged = 0;
  std::int64_t sum = 0;
  std::set<int> mergedParts;
  std::set<std::thread::id> threads;

 private:
  class Part;

  void Delay() {
    const unsigned int dice = (_turn++ + _delays) * 2654435761U >> 24U;
    if (dice < 32) {
      std::this_thread::sleep_for(std::chrono::microseconds(dice));
    } else if (dice < 160) {
      std::this_thread::yield();
    }
  }

  int _batches;
  Fault _fault;
  unsigned int _delays;
  std::atomic<unsigned int> _turn{0};
  int _next = 0;
  std::thread::id _creator;
  std::atomic<int> _reading{0};
  std::atomic<int> _merging{0};
};

class Numbers::Part : public ProblemPartBase {
 public:
  Part(Numbers& all, int index) : _all(all), _index(index) { ++_all.alive; }
  ~Part() override {
    const Alone alone(_all._reading);  // deleted under the lock of reading
    _all.Delay();
    EXPECT_GE(--_all.alive, 0);
  }

  bool ReadBatch() override {
    const Alone alone(_all._reading);
    StayOnOneThread();
    EXPECT_FALSE(_hasBatch);
    EXPECT_EQ(_all.ends, 0) << "read after the end of data";
    Arrive(Step::read);
    if (_all._next == _all._batches) {
      ++_all.ends;
      return false;
    }
    _number = ++_all._next;
    _hasBatch = true;
    return true;
  }

  void AccumulateBatch() override {
    StayOnOneThread();
    EXPECT_TRUE(std::exchange(_hasBatch, false));
    Arrive(Step::accumulate);
    _sum += _number;
  }

  void MergeResult() override {
    const Alone alone(_all._merging);
    StayOnOneThread();
    EXPECT_FALSE(_hasBatch);
    Arrive(Step::merge);
    ++_all.merged;
    _all.sum += _sum;
    EXPECT_TRUE(_all.mergedParts.insert(_index).second);
    EXPECT_TRUE(_all.threads.insert(*_thread).second) << "two parts on one thread";
  }

 private:
  void StayOnOneThread() {
    if (!_thread) {
      _thread = std::this_thread::get_id();
    }
    EXPECT_EQ(*_thread, std::this_thread::get_id());
  }

  void Arrive(Step step) {
    _all.Delay();
    _all._fault.RaiseAt(step, _index, _turns[static_cast<std::size_t>(step)]++);
  }

  Numbers& _all;
  int _index;
  std::array<int, 4> _turns{};
  bool _hasBatch = false;
  int _number = 0;
  std::int64_t _sum = 0;
  std::optional<std::thread::id> _thread;
};

ProblemPartBase* Numbers::CreatePart() {
  if (created == 0) {
    _creator = std::this_thread::get_id();
    EXPECT_GT(_cacheSize, 0U);
  }
  EXPECT_EQ(_creator, std::this_thread::get_id());
  Delay();
  _fault.RaiseAt(Step::create, created);
  return new Part(*this, created++);
}

class DriverTest : public testing::Test {
 protected:
  DriverTest() {
    hostThreads = 2;
    hostCache = 64;
    threadsAsked = 0;
    errorsReported = 0;
    reportThrows = false;
  }

 private:
  Watchdog _watchdog;
};

TEST_F(DriverTest, EveryCaseIsReadOnceAndEveryPartMergedOnce) {
  for (const int threads : {1, 2, 3, 8}) {
    for (const int batches : {0, 1, 5, 300}) {
      for (const unsigned int delays : {1U, 2U}) {
        SCOPED_TRACE(testing::Message() << threads << " threads, " << batches << " batches");
        Numbers problem(batches, {}, delays);
        Driver(&problem, threads);
        EXPECT_EQ(problem.created, threads);
        EXPECT_EQ(problem.merged, threads);
        EXPECT_EQ(problem.sum, std::int64_t{batches} * (batches + 1) / 2);
        EXPECT_EQ(problem.ends, 1);
        EXPECT_EQ(problem.alive, 0);
        EXPECT_EQ(problem.threads.count(std::this_thread::get_id()), threads == 1 ? 1U : 0U);
      }
    }
  }
  EXPECT_EQ(threadsAsked, 0);
  EXPECT_EQ(errorsReported, 0);
}

TEST_F(DriverTest, AsksTheHostWhenItIsNotToldTheThreads) {
  const struct {
    int requested;
    std::int64_t answer;
    int parts;
    std::int64_t sum;
  } cases[] = {{0, 1, 1, 55}, {-3, 1, 1, 55}, {0, 3, 3, 55}, {-1, 0, 0, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.answer);
    hostThreads = c.answer;
    threadsAsked = 0;
    Numbers problem(10);
    Driver(&problem, c.requested);
    EXPECT_EQ(threadsAsked, 1);
    EXPECT_EQ(problem.merged, c.parts);
    EXPECT_EQ(problem.sum, c.sum);
  }
  hostThreads = -1;
  Numbers problem(10);
  EXPECT_THROW(Driver(&problem, 0), std::invalid_argument);
}

TEST_F(DriverTest, TellsTheHostsCacheInBytesBeforeItAsksForParts) {
  for (const std::int64_t kilobytes : {std::int64_t{64}, std::int64_t{5'000'000'000}}) {
    for (const int threads : {1, 2}) {
      hostCache = kilobytes;
      Numbers problem(1);
      Driver(&problem, threads);
      EXPECT_EQ(problem.CacheSize(), static_cast<std::uint64_t>(kilobytes) * 1024);
    }
  }
}

void ExpectStopped(const Fault& fault, int threads, unsigned int delays) {
  SCOPED_TRACE(testing::Message() << "step " << static_cast<int>(fault.step) << ", kind "
                                  << static_cast<int>(fault.kind) << ", part " << fault.part
                                  << " of " << threads << ", turn " << fault.turn << ", delays "
                                  << delays);
  errorsReported = 0;
  // Data do not end by themselves where a part fails before it merges: the others have to be
  // stopped.
  Numbers problem(fault.step == Step::merge ? 5 : Numbers::kEndless, fault, delays);
  // On a pool thread the host's own error is reported, not raised.
  const bool isReported = fault.kind == Kind::host && threads > 1 && fault.step != Step::create;
  std::string raised;
  try {
    Driver(&problem, threads);
  } catch (const NorvGoToCaller&) {
    raised = "host error";
  } catch (const std::bad_alloc&) {
    raised = "no memory";
  } catch (const std::runtime_error& error) {
    raised = error.what();
  }
  const std::string raisedByKind[] = {isReported ? "" : "host error", "no memory", "other error"};
  EXPECT_EQ(raised, raisedByKind[static_cast<int>(fault.kind)]);
  EXPECT_EQ(errorsReported, isReported ? 1 : 0);
  EXPECT_EQ(problem.alive, 0);
  EXPECT_EQ(problem.mergedParts.count(fault.part), 0U);
  if (isReported) {
    EXPECT_EQ(reportThread, std::this_thread::get_id());
    // The others merge.
    EXPECT_LT(problem.merged, threads);
    EXPECT_TRUE(problem.merged == threads - 1 || fault.part == Fault::kEveryPart);
  }
}

// Ten thousand short runs.
TEST_F(DriverTest, AnErrorAtAnyStepOfAnyTaskStopsTheRun) {
  std::vector<std::pair<Fault, int>> faults;  // with the number of threads
  for (const int threads : {1, 2, 8}) {
    for (int part = Fault::kEveryPart; part < threads; ++part) {
      if (part == Fault::kNoPart) {
        continue;
      }
      for (const Kind kind : {Kind::host, Kind::memory, Kind::other}) {
        for (const Step step : {Step::create, Step::read, Step::accumulate, Step::merge}) {
          faults.push_back({{step, kind, part}, threads});
        }
        faults.push_back({{Step::read, kind, part, 2}, threads});
        faults.push_back({{Step::accumulate, kind, part, 1}, threads});
      }
    }
  }
  std::size_t runs = 0;
  for (unsigned int delays = 0; runs < 10'000; ++delays) {
    for (const auto& [fault, threads] : faults) {
      ExpectStopped(fault, threads, delays);
      ++runs;
    }
  }
  CountCases("driver: errors at every step of every task", runs);
}

TEST_F(DriverTest, AHostThatRaisesWhenItIsToldReachesTheCaller) {
  reportThrows = true;
  Numbers problem(Numbers::kEndless, {Step::accumulate, Kind::host, 1});
  EXPECT_THROW(Driver(&problem, 3), NorvGoToCaller);
  EXPECT_EQ(errorsReported, 1);
  EXPECT_EQ(problem.alive, 0);
}

// Parts that stop reading and accumulating until another one has come to a given place.
class Rendezvous : public ProblemBase {
 public:
  explicit Rendezvous(bool inCreatePart) : _inCreatePart(inCreatePart) {}
  ProblemPartBase* CreatePart() override {
    if (_inCreatePart && _created == 1) {
      WaitFor(1);
    }
    ++_created;
    return new Part(*this);
  }

 private:
  class Part : public ProblemPartBase {
   public:
    explicit Part(Rendezvous& all) : _all(all) {}
    bool ReadBatch() override { return _all._batches++ < 2; }
    void AccumulateBatch() override {
      ++_all._accumulating;
      if (!_all._inCreatePart) {
        _all.WaitFor(2);
      }
    }
    void MergeResult() override {}

   private:
    Rendezvous& _all;
  };

  void WaitFor(int accumulating) const {
    while (_accumulating < accumulating) {
      std::this_thread::yield();
    }
  }

  bool _inCreatePart;
  int _created = 0;
  int _batches = 0;
  std::atomic<int> _accumulating{0};
};

TEST_F(DriverTest, PartsAccumulateAtTheSameTimeAndWhileOthersAreMade) {
  for (const bool inCreatePart : {false, true}) {
    Rendezvous problem(inCreatePart);
    Driver(&problem, 2);
  }
}

using DriverDeathTest = DriverTest;

TEST_F(DriverDeathTest, RefusesNoProblemAndNoPart) {
  class NoPart : public ProblemBase {
   public:
    ProblemPartBase* CreatePart() override { return nullptr; }
  };
  NoPart problem;
  const Violation violations[] = {
      {"no problem", [] { Driver(nullptr, 1); }, "velmor/driver.cpp", "Driver",
       "problem != nullptr"},
      {"no part", [&] { Driver(&problem, 1); }, "velmor/driver.cpp", "RunOnThisThread",
       "part != nullptr"},
      {"no part on a pool", [&] { Driver(&problem, 2); }, "velmor/driver.cpp", "Init",
       "_part != nullptr"},
  };
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  for (const Violation& v : violations) {
    ExpectAbort(v);
  }
}

// A problem whose parts each run a problem of their own on a pool.
class Nested : public ProblemBase {
 public:
  ProblemPartBase* CreatePart() override {
    RunInner();
    return new Part(*this);
  }
  std::atomic<int> runs{0};

 private:
  class Part : public ProblemPartBase {
   public:
    explicit Part(Nested& all) : _all(all) {}
    bool ReadBatch() override { return std::exchange(_hasMore, false); }
    void AccumulateBatch() override { _all.RunInner(); }
    void MergeResult() override { _all.RunInner(); }

   private:
    Nested& _all;
    bool _hasMore = true;
  };

  void RunInner() {
    Numbers inner(50);
    Driver(&inner, 2);
    EXPECT_EQ(inner.sum, 1275);
    Numbers failing(Numbers::kEndless, {Step::read, Kind::other, 1});
    EXPECT_THROW(Driver(&failing, 2), std::runtime_error);
    ++runs;
  }
};

TEST_F(DriverTest, RunsWithinPartsAndOnSeveralThreadsAtOnce) {
  std::vector<std::thread> hosts(3);
  for (std::thread& host : hosts) {
    host = std::thread([] {
      for (const int threads : {1, 2}) {
        Nested problem;
        Driver(&problem, threads);
        EXPECT_GE(problem.runs, 2 * threads + 1);
      }
    });
  }
  for (std::thread& host : hosts) {
    host.join();
  }
}

}  // namespace
}  // namespace velmor::test
