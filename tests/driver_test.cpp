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
#include <new>
#include <set>
#include <span>
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
  if (reportThrows) {
    throw NorvGoToCaller();
  }
  return 0;
}

namespace velmor::test {
namespace {

enum class Step { create, read, accumulate, merge, destroy };

// What the host does when a part comes to a step for the `turn`-th time, from 0.
using Visit = std::function<void(Step step, int part, int turn)>;

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

  explicit Numbers(
      int batches, Visit visit = [](Step, int, int) {})
      : _batches(batches), _visit(std::move(visit)) {}

  ProblemPartBase* CreatePart() override {
    EXPECT_EQ(_cacheSize, std::uint64_t{kHostCache} * 1024);
    EXPECT_EQ(_caller, std::this_thread::get_id());
    _visit(Step::create, created, 0);
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
      _all._visit(Step::destroy, _index, 0);
      --_all.alive;
    }

    bool ReadBatch() override {
      const Alone alone(_all._reading);
      EXPECT_EQ(_number, 0) << "read twice";
      EXPECT_EQ(_all.ends, 0) << "read after the end of data";
      Arrive(Step::read);
      if (_all._next == _all._batches) {
        ++_all.ends;
        return false;
      }
      _number = ++_all._next;
      return true;
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
      if (_thread == std::thread::id()) {
        _thread = std::this_thread::get_id();
      }
      EXPECT_EQ(_thread, std::this_thread::get_id());
      _all._visit(step, _index, _turns[static_cast<std::size_t>(step)]++);
    }

    Numbers& _all;
    int _index;
    std::array<int, 4> _turns{};
    int _number = 0;
    std::int64_t _sum = 0;
    std::thread::id _thread;
  };

  int _batches;
  Visit _visit;
  std::thread::id _caller = std::this_thread::get_id();
  int _next = 0;
  std::atomic<int> _reading{0};
  std::atomic<int> _merging{0};
};

// At every step, waits for nothing, for other threads or for some time.
class Delays {
 public:
  explicit Delays(unsigned int seed) : _turn(seed) {}
  void Delay() {
    const unsigned int dice = _turn++ * 2654435761U >> 24U;
    if (dice < 32) {
      std::this_thread::sleep_for(std::chrono::microseconds(dice));
    } else if (dice < 160) {
      std::this_thread::yield();
    }
  }

 private:
  std::atomic<unsigned int> _turn;
};

class DriverTest : public testing::Test {
 protected:
  DriverTest() {
    hostThreads = 2;
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
      SCOPED_TRACE(testing::Message() << threads << " threads, " << batches << " batches");
      Delays delays(static_cast<unsigned int>(batches));
      Numbers problem(batches, [&](Step, int, int) { delays.Delay(); });
      Driver(&problem, threads);
      EXPECT_EQ(problem.created, threads);
      EXPECT_EQ(problem.mergedParts.size(), static_cast<std::size_t>(threads));
      EXPECT_EQ(problem.sum, std::int64_t{batches} * (batches + 1) / 2);
      EXPECT_EQ(problem.ends, 1);
      EXPECT_EQ(problem.alive, 0);
      EXPECT_EQ(problem.threads.count(std::this_thread::get_id()), threads == 1 ? 1U : 0U);
    }
  }
  EXPECT_EQ(threadsAsked, 0);
  EXPECT_EQ(errorsReported, 0);
}

TEST_F(DriverTest, AsksTheHostWhenItIsNotToldTheThreads) {
  const struct {
    int requested;
    std::int64_t answer;
    std::int64_t sum;
  } cases[] = {{0, 1, 55}, {-3, 1, 55}, {0, 3, 55}, {-1, 0, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.answer);
    hostThreads = c.answer;
    threadsAsked = 0;
    Numbers problem(10);
    Driver(&problem, c.requested);
    EXPECT_EQ(threadsAsked, 1);
    EXPECT_EQ(problem.mergedParts.size(), static_cast<std::size_t>(c.answer));
    EXPECT_EQ(problem.sum, c.sum);
  }
  hostThreads = -1;
  Numbers problem(10);
  EXPECT_THROW(Driver(&problem, 0), std::invalid_argument);
}

// What a part throws at a step when it gets there for the `turn`-th time.
struct Fault {
  static constexpr int kEveryPart = -1;
  struct Error {
    void (*raise)();
    std::string message;
  };
  static inline const Error kHost{[] { throw NorvGoToCaller(); }, NorvGoToCaller().what()};
  static inline const Error kMemory{[] { throw std::bad_alloc(); }, std::bad_alloc().what()};
  static inline const Error kOther{[] { throw std::runtime_error("other"); }, "other"};

  Step step;
  const Error& error;
  int part;
  int turn = 0;

  void RaiseAt(Step at, int atPart, int atTurn) const {
    if (at == step && (atPart == part || part == kEveryPart) && atTurn == turn) {
      error.raise();
    }
  }
};

void ExpectStopped(const Fault& fault, int threads, unsigned int seed) {
  SCOPED_TRACE(testing::Message() << "step " << static_cast<int>(fault.step) << ", "
                                  << fault.error.message << ", part " << fault.part << " of "
                                  << threads << ", turn " << fault.turn << ", delays " << seed);
  errorsReported = 0;
  Delays delays(seed);
  // Data do not end by themselves where a part fails before it merges: the others have to be
  // stopped.
  Numbers problem(fault.step == Step::merge ? 5 : Numbers::kEndless,
                  [&](Step step, int part, int turn) {
                    delays.Delay();
                    fault.RaiseAt(step, part, turn);
                  });
  // On a pool thread the host's own error is reported, not raised.
  const bool isReported =
      &fault.error == &Fault::kHost && threads > 1 && fault.step != Step::create;
  std::string raised;
  try {
    Driver(&problem, threads);
  } catch (const std::exception& error) {
    raised = error.what();
  }
  EXPECT_EQ(raised, isReported ? "" : fault.error.message);
  EXPECT_EQ(errorsReported, isReported ? 1 : 0);
  EXPECT_EQ(problem.alive, 0);
  EXPECT_EQ(problem.mergedParts.count(fault.part), 0U);
  if (isReported) {
    EXPECT_EQ(reportThread, std::this_thread::get_id());
    // The others merge.
    const auto others = static_cast<std::size_t>(threads - 1);
    EXPECT_LE(problem.mergedParts.size(), others);
    EXPECT_TRUE(problem.mergedParts.size() == others || fault.part == Fault::kEveryPart);
  }
  Watchdog::NoteProgress();
}

// Ten thousand short runs.
TEST_F(DriverTest, AnErrorAtAnyStepOfAnyTaskStopsTheRun) {
  const std::pair<Step, int> places[] = {{Step::create, 0},     {Step::read, 0},
                                         {Step::read, 2},       {Step::accumulate, 0},
                                         {Step::accumulate, 1}, {Step::merge, 0}};
  std::size_t runs = 0;
  for (unsigned int seed = 0; runs < 10'000; ++seed) {
    for (const int threads : {1, 2, 8}) {
      for (int part = Fault::kEveryPart; part < threads; ++part) {
        for (const auto* const error : {&Fault::kHost, &Fault::kMemory, &Fault::kOther}) {
          for (const auto& [step, turn] : places) {
            ExpectStopped({step, *error, part, turn}, threads, seed);
            ++runs;
          }
        }
      }
    }
  }
  CountCases("driver: errors at every step of every task", runs);
}

TEST_F(DriverTest, AHostThatRaisesWhenItIsToldReachesTheCaller) {
  reportThrows = true;
  const Fault fault{Step::accumulate, Fault::kHost, 1};
  Numbers problem(Numbers::kEndless, [&](Step s, int p, int t) { fault.RaiseAt(s, p, t); });
  EXPECT_THROW(Driver(&problem, 3), NorvGoToCaller);
  EXPECT_EQ(errorsReported, 1);
  EXPECT_EQ(problem.alive, 0);
}

// Parts stop reading and accumulating until another one has come to a given place.
TEST_F(DriverTest, PartsAccumulateAtTheSameTimeAndWhileOthersAreMade) {
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

TEST_F(DriverTest, RunsWithinPartsAndOnSeveralThreadsAtOnce) {
  const auto runInner = [](Step /*step*/, int /*part*/, int /*turn*/) {
    Numbers inner(50);
    Driver(&inner, 2);
    EXPECT_EQ(inner.sum, 1275);
    const Fault fault{Step::read, Fault::kOther, 1};
    Numbers failing(Numbers::kEndless, [&](Step s, int p, int t) { fault.RaiseAt(s, p, t); });
    EXPECT_THROW(Driver(&failing, 2), std::runtime_error);
  };
  std::vector<std::thread> hosts(3);
  for (std::thread& host : hosts) {
    host = std::thread([&runInner] {
      for (const int threads : {1, 2}) {
        Numbers problem(2, runInner);
        Driver(&problem, threads);
        EXPECT_EQ(problem.sum, 3);
      }
    });
  }
  for (std::thread& host : hosts) {
    host.join();
  }
}

class DriverDeathTest : public testing::Test {
 protected:
  DriverDeathTest() { testing::GTEST_FLAG(death_test_style) = "threadsafe"; }
};

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
  for (const Violation& v : violations) {
    ExpectAbort(v);
  }
}

// Calls it on a part of a run on a pool, which goes on until the process ends.
void OnPoolForGood(const std::function<void()>& call) {
  Numbers problem(1, [&call](Step step, int /*part*/, int /*turn*/) {
    if (step == Step::accumulate) {
      std::this_thread::sleep_for(
          std::chrono::milliseconds(20));  // most often Driver waits by then
      call();
      for (;;) {
        pause();
      }
    }
  });
  Driver(&problem, 2);
}

// Calls it while another thread is in Driver and waits for its pool.
void BesideARun(const std::function<void()>& call) {
  std::atomic<bool> isRunning{false};
  std::thread([&] { OnPoolForGood([&] { isRunning = true; }); }).detach();
  while (!isRunning) {
    std::this_thread::yield();
  }
  call();
}

// The exit status of a child process of this one that calls it; 0 if something else ended it.
int StatusOfFork(const std::function<int()>& call) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    _exit(call());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 0;
}

TEST_F(DriverDeathTest, ARunDoesNotKeepTheProcessFromEndingNorItsForksFromRunning) {
  const auto exit = [] { std::exit(7); };  // NOLINT(concurrency-mt-unsafe): this is the test
  const auto sumOfRuns = [] {
    int sum = 0;
    for (int i = 0; i < 20; ++i) {
      Numbers numbers(3);
      Driver(&numbers, 2);
      sum += static_cast<int>(numbers.sum);
    }
    return sum;
  };
  const struct {
    const char* what;
    std::function<void()> call;
    int status;
  } cases[] = {
    {"exit in a part", [&] { OnPoolForGood(exit); }, 7},
    {"exit beside a run", [&] { BesideARun(exit); }, 7},
    {"fork beside a run", [&] { BesideARun([&] { _exit(StatusOfFork(sumOfRuns)); }); }, 120},
  };
  for (const auto& c : std::span(cases).first(CAN_FORK ? 3 : 2)) {
    SCOPED_TRACE(c.what);
    EXPECT_EXIT(
        {
          alarm(60);
          c.call();
        },
        testing::ExitedWithCode(c.status), "");
  }
}

}  // namespace
}  // namespace velmor::test
