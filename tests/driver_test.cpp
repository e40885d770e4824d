// The driver's protocol, on one thread and on a pool, undisturbed and with errors at every step.
// This program is a host: it defines the host services itself.
#include <velmor/driver.h>

#include <norvwlib/norvwlib.h>

#include "proof.h"
#include "support.h"
#include "watchdog.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <mutex>
#include <new>
#include <set>
#include <stdexcept>
#include <thread>

namespace {

constexpr std::int64_t kHostCache = 5'000'000'000;  // kilobytes, so more bytes than 32 bits count
std::int64_t hostThreads = 2;
std::atomic<int> threadsAsked{0};
std::atomic<int> errorsReported{0};
bool reportThrows = false;
std::thread::id reportThread;

}  // namespace

std::int64_t getthreads_() {
  ++threadsAsked;
  return hostThreads;
}
std::int64_t getmcache_() { return kHostCache; }
std::int64_t atnnxt_() {
  ++errorsReported;
  reportThread = std::this_thread::get_id();
  return reportThrows ? throw NorvGoToCaller() : 0;
}

namespace velmor::test {
namespace {

enum class Step { create, read, accumulate, merge, destroy };

// What the host does when a part comes to a step for the `turn`-th time, from 0.
using Visit = std::function<void(Step step, int part, int turn)>;

// Held by the one thread that may be inside; a second one is a fault.
class Alone {
 public:
  explicit Alone(std::mutex& inside) : _lock(inside, std::try_to_lock) { EXPECT_TRUE(_lock); }

 private:
  std::unique_lock<std::mutex> _lock;
};

// Waits for nothing, for other threads or for some time, each time otherwise.
void Delay() {
  static std::atomic<unsigned int> turn{0};
  const unsigned int dice = ++turn * 2654435761U >> 24U;
  if (dice < 32) {
    std::this_thread::sleep_for(std::chrono::microseconds(dice));
  } else if (dice < 160) {
    std::this_thread::yield();
  }
}

// Hands out the numbers 1 to `batches`, or numbers without end, and adds up what comes back.
class Numbers : public ProblemBase {
 public:
  static constexpr int kEndless = -1;

  explicit Numbers(int batches, Visit visit = nullptr)
      : _batches(batches), _visit(std::move(visit)) {}

  ProblemPartBase* CreatePart() override {
    EXPECT_EQ(_cacheSize, std::uint64_t{kHostCache} * 1024);
    EXPECT_EQ(_caller, std::this_thread::get_id());
    Arrive(Step::create, created, 0);
    return new Part(*this, created++);
  }

  // Counts of the whole run, to be read after it.
  int created = 0;
  std::atomic<int> alive{0};
  std::atomic<int> ends{0};
  std::int64_t sum = 0;
  std::set<int> mergedParts;
  std::set<std::thread::id> threads;

 private:
  class Part : public ProblemPartBase {
   public:
    Part(Numbers& all, int index) : _all(all), _index(index) { ++_all.alive; }
    ~Part() override {
      const Alone alone(_all._reading);  // deleted under the lock of reading
      _all.Arrive(Step::destroy, _index, 0);
      --_all.alive;
    }

    bool ReadBatch() override {
      const Alone alone(_all._reading);
      EXPECT_EQ(_number, 0) << "read twice";
      EXPECT_EQ(_all.ends, 0) << "read after the end of data";
      Arrive(Step::read);
      _number = _all._next == _all._batches ? 0 : ++_all._next;
      _all.ends += _number == 0 ? 1 : 0;
      return _number != 0;
    }

    void AccumulateBatch() override {
      EXPECT_GT(_number, 0);
      Arrive(Step::accumulate);
      _sum += std::exchange(_number, 0);
    }

    void MergeResult() override {
      const Alone alone(_all._merging);
      EXPECT_EQ(_number, 0);
      Arrive(Step::merge);
      _all.sum += _sum;
      EXPECT_TRUE(_all.mergedParts.insert(_index).second);
      EXPECT_TRUE(_all.threads.insert(_thread).second) << "two parts on one thread";
    }

   private:
    void Arrive(Step step) {
      const auto thread = std::this_thread::get_id();
      EXPECT_EQ(_thread == std::thread::id() ? thread : _thread, thread);
      _thread = thread;
      _all.Arrive(step, _index, _turns[static_cast<std::size_t>(step)]++);
    }

    Numbers& _all;
    int _index;
    std::array<int, 4> _turns{};
    int _number = 0;
    std::int64_t _sum = 0;
    std::thread::id _thread;
  };

  void Arrive(Step step, int part, int turn) const {
    Delay();
    if (_visit) {
      _visit(step, part, turn);
    }
  }

  int _batches;
  Visit _visit;
  std::thread::id _caller = std::this_thread::get_id();
  int _next = 0;
  std::mutex _reading;
  std::mutex _merging;
};

TEST(DriverTest, EveryCaseIsReadOnceAndEveryPartMergedOnce) {
  const Watchdog watchdog;
  for (const int threads : {1, 2, 3, 8}) {
    for (const int batches : {0, 1, 5, 300}) {
      for (const int requested : {threads, 0, -3}) {  // the host is asked unless it is told
        SCOPED_TRACE(testing::Message() << threads << " threads, " << batches << " batches, "
                                        << requested << " requested");
        hostThreads = threads;
        threadsAsked = 0;
        Numbers problem(batches);
        Driver(&problem, requested);
        EXPECT_EQ(threadsAsked, requested > 0 ? 0 : 1);
        EXPECT_EQ(problem.created, threads);
        EXPECT_EQ(problem.mergedParts.size(), static_cast<std::size_t>(threads));
        EXPECT_EQ(problem.sum, std::int64_t{batches} * (batches + 1) / 2);
        EXPECT_EQ(problem.ends, 1);
        EXPECT_EQ(problem.alive, 0);
        EXPECT_EQ(problem.threads.count(std::this_thread::get_id()), threads == 1 ? 1U : 0U);
      }
    }
  }
  EXPECT_EQ(errorsReported, 0);
}

TEST(DriverTest, ReadsNothingOnNoThreadsAndRefusesFewer) {
  Numbers problem(10);
  hostThreads = 0;
  Driver(&problem, -1);
  EXPECT_EQ(problem.created, 0);
  hostThreads = -1;
  EXPECT_THROW(Driver(&problem, 0), std::invalid_argument);
}

constexpr int kEveryPart = -1;
const std::exception_ptr kHostError = std::make_exception_ptr(NorvGoToCaller());
const std::exception_ptr kNoMemory = std::make_exception_ptr(std::bad_alloc());
const std::exception_ptr kOtherError = std::make_exception_ptr(std::runtime_error("other"));

// Runs a problem of which a part throws at a step when it gets there for the `turn`-th time.
void ExpectStopped(Step step, int turn, int part, int threads, const std::exception_ptr& error) {
  SCOPED_TRACE(testing::Message() << "step " << static_cast<int>(step) << ", turn " << turn
                                  << ", part " << part << " of " << threads << ", host's error "
                                  << (error == kHostError));
  errorsReported = 0;
  // Data do not end by themselves where a part fails before it merges: the others have to be
  // stopped.
  Numbers problem(step == Step::merge ? 5 : Numbers::kEndless, [&](Step at, int by, int when) {
    if (at == step && when == turn && (by == part || part == kEveryPart)) {
      std::rethrow_exception(error);
    }
  });
  std::exception_ptr raised;
  try {
    Driver(&problem, threads);
  } catch (...) {
    raised = std::current_exception();
  }
  EXPECT_EQ(problem.alive, 0);
  EXPECT_EQ(problem.mergedParts.count(part), 0U);
  // On a pool thread the host's own error is reported, not raised.
  if (error == kHostError && threads > 1 && step != Step::create) {
    EXPECT_EQ(errorsReported, 1);
    EXPECT_EQ(reportThread, std::this_thread::get_id());
    EXPECT_EQ(raised != nullptr, reportThrows);
    const auto others = static_cast<std::size_t>(threads - 1);  // they merge
    EXPECT_LE(problem.mergedParts.size(), others);
    EXPECT_TRUE(problem.mergedParts.size() == others || part == kEveryPart);
  } else {
    EXPECT_EQ(errorsReported, 0);
    EXPECT_EQ(raised, error);
  }
  Watchdog::NoteProgress();
}

// Ten thousand short runs.
TEST(DriverTest, AnErrorAtAnyStepOfAnyTaskStopsTheRun) {
  const Watchdog watchdog;
  const std::pair<Step, int> places[] = {{Step::create, 0},     {Step::read, 0},
                                         {Step::read, 2},       {Step::accumulate, 0},
                                         {Step::accumulate, 1}, {Step::merge, 0}};
  std::size_t runs = 0;
  for (; runs < 10'000; reportThrows = !reportThrows) {
    for (const int threads : {1, 2, 8}) {
      for (int part = kEveryPart; part < threads; ++part) {
        for (const auto& [step, turn] : places) {
          for (const auto& error : {kHostError, kNoMemory, kOtherError}) {
            ExpectStopped(step, turn, part, threads, error);
            ++runs;
          }
        }
      }
    }
  }
  CountCases("driver: errors at every step of every task", runs);
}

// Parts stop reading and accumulating until another one has come to a given place.
TEST(DriverTest, PartsAccumulateAtTheSameTimeAndWhileOthersAreMade) {
  const Watchdog watchdog;
  for (const Step waiting : {Step::accumulate, Step::create}) {
    std::atomic<int> accumulating{0};
    Numbers problem(2, [&](Step step, int part, int /*turn*/) {
      accumulating += step == Step::accumulate ? 1 : 0;
      while (step == waiting && accumulating < (step == Step::create ? part : 2)) {
        std::this_thread::yield();
      }
    });
    Driver(&problem, 2);
  }
}

TEST(DriverTest, RunsWithinPartsAndOnSeveralThreadsAtOnce) {
  const Watchdog watchdog;
  const auto runInner = [](Step /*step*/, int /*part*/, int /*turn*/) {
    Numbers inner(50);
    Driver(&inner, 2);
    EXPECT_EQ(inner.sum, 1275);
    ExpectStopped(Step::read, 0, 1, 2, kOtherError);
  };
  std::jthread hosts[3];
  for (std::jthread& host : hosts) {
    host = std::jthread([&runInner] {
      for (const int threads : {1, 2}) {
        Numbers problem(2, runInner);
        Driver(&problem, threads);
        EXPECT_EQ(problem.sum, 3);
      }
    });
  }
}

TEST(DriverDeathTest, RefusesNoProblemAndNoPart) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  struct NoPart : ProblemBase {
    ProblemPartBase* CreatePart() override { return nullptr; }
  } problem;
  const std::string file = "velmor/driver.cpp";
  ExpectAbort({"no problem", [] { Driver(nullptr, 1); }, file, "Driver", "problem != nullptr"});
  ExpectAbort(
      {"no part", [&] { Driver(&problem, 1); }, file, "RunOnThisThread", "part != nullptr"});
  ExpectAbort(
      {"no part on a pool", [&] { Driver(&problem, 2); }, file, "Init", "_part != nullptr"});
}

// A run on a pool that goes on until the process ends. A part of it makes the call, most often when
// Driver waits.
void RunForGood(const std::function<void()>& call) {
  alarm(60);
  Numbers problem(1, [&call](Step step, int /*part*/, int /*turn*/) {
    if (step == Step::accumulate) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      call();
      for (;;) {
        pause();
      }
    }
  });
  Driver(&problem, 2);
}

// Makes the call while another thread is in Driver.
void BesideARun(const std::function<void()>& call) {
  std::atomic<bool> isRunning{false};
  std::thread([&] { RunForGood([&] { isRunning = true; }); }).detach();
  while (!isRunning) {
    std::this_thread::yield();
  }
  call();
}

TEST(DriverDeathTest, ARunDoesNotKeepTheProcessFromEndingNorItsForksFromRunning) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  const testing::ExitedWithCode isRight(7);
  const auto exit = [] { std::exit(7); };  // NOLINT(concurrency-mt-unsafe): this is the test
  EXPECT_EXIT(RunForGood(exit), isRight, "");
  EXPECT_EXIT(BesideARun(exit), isRight, "");
  const auto forkAndRun = [] {
    int status = 0;
    if (fork() == 0) {
      alarm(60);
      for (int i = 0; i < 20; ++i) {
        Numbers numbers(3);
        Driver(&numbers, 2);
        status += static_cast<int>(numbers.sum);
      }
      _exit(status == 120 ? 7 : 1);
    }
    wait(&status);
    _exit(WEXITSTATUS(status));
  };
  if (CAN_FORK) {
    EXPECT_EXIT(BesideARun(forkAndRun), isRight, "");
  }
}

}  // namespace
}  // namespace velmor::test
