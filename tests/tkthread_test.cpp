// The threading layer, through what the driver needs of it.
#include <tkthread/tkthread.h>

#include "support.h"
#include "watchdog.h"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

namespace {

using velmor::test::Watchdog;

// What the tasks of a test share.
struct Trace {
  tkMutex mutex;
  std::multiset<std::thread::id> threads;
  std::vector<void*> data;
  int destroyed = 0;
  std::atomic<int> running{0};
};

// Notes its run and its destruction. Waits until `meet` tasks run at the same time.
class Task : public CallBackObject {
 public:
  Task(Trace& trace, tkCompleteTask& complete, int meet, bool fails = false)
      : CallBackObject(nullptr), _trace(trace), _complete(complete), _meet(meet), _fails(fails) {}
  ~Task() override {
    const tkGuard guard(_trace.mutex, LockType::exclusive);
    ++_trace.destroyed;
  }
  int callback(void* data) override {
    ++_trace.running;
    while (_trace.running < _meet) {
      std::this_thread::yield();
    }
    {
      const tkGuard guard(_trace.mutex, LockType::exclusive);
      _trace.threads.insert(std::this_thread::get_id());
      _trace.data.push_back(data);
    }
    if (_fails) {
      throw std::runtime_error("task");
    }
    _complete.completeOperation();
    return 0;
  }

 private:
  Trace& _trace;
  tkCompleteTask& _complete;
  int _meet;
  bool _fails;
};

TEST(ThreadPool, RunsEachTaskOnceOnAThreadOfItsOwnAndDestroysIt) {
  const Watchdog watchdog;
  for (const int n : {1, 2, 8}) {
    SCOPED_TRACE(n);
    Trace trace;
    tkCompleteTask complete(0);
    complete.set(n);
    {
      tkThreadPool pool(n, 0);
      pool.init();
      pool.startAll();
      for (int i = 0; i < n; ++i) {
        // The first may be through before the second comes; they still meet on distinct threads.
        pool.invoke(new Task(trace, complete, n), &trace, ThreadScope::owned);
      }
      complete.waitAll();
      const tkGuard guard(trace.mutex, LockType::exclusive);
      EXPECT_EQ(trace.threads.size(), static_cast<std::size_t>(n));
      EXPECT_EQ(std::set(trace.threads.begin(), trace.threads.end()).size(), trace.threads.size());
      EXPECT_EQ(trace.threads.count(std::this_thread::get_id()), 0U);
      EXPECT_EQ(trace.data, std::vector<void*>(static_cast<std::size_t>(n), &trace));
    }
    EXPECT_EQ(trace.destroyed, n);
  }
}

TEST(ThreadPool, EndsQueuedTasksBeforeItEnds) {
  const Watchdog watchdog;
  Trace trace;
  tkCompleteTask complete(7);
  {
    tkThreadPool pool(2, 0);
    pool.init();
    pool.startAll();
    for (int i = 0; i < 7; ++i) {
      pool.invoke(new Task(trace, complete, 0), nullptr, ThreadScope::owned);
    }
  }
  EXPECT_EQ(trace.threads.size(), 7U);
  EXPECT_EQ(trace.destroyed, 7);
  complete.waitAll();
}

TEST(ThreadPool, WaitRaisesTheFailureOfItsOwnPoolOnly) {
  const Watchdog watchdog;
  Trace trace;
  tkCompleteTask outerComplete(2);
  tkThreadPool outer(2, 0);
  outer.init();
  outer.startAll();
  outer.invoke(new Task(trace, outerComplete, 2, true), nullptr, ThreadScope::owned);
  outer.invoke(new Task(trace, outerComplete, 2), nullptr, ThreadScope::owned);
  for (const bool fails : {false, true, false}) {
    tkCompleteTask complete(1);
    tkThreadPool inner(1, 0);
    inner.init();
    inner.startAll();
    inner.invoke(new Task(trace, complete, 0, fails), nullptr, ThreadScope::owned);
    if (fails) {
      EXPECT_THROW(complete.waitAll(), std::runtime_error);
    } else {
      EXPECT_NO_THROW(complete.waitAll());
    }
  }
  EXPECT_THROW(outerComplete.waitAll(), std::runtime_error);
}

TEST(ThreadPool, WaitRaisesTheFirstFailure) {
  const Watchdog watchdog;
  class Failing : public CallBackObject {
   public:
    explicit Failing(int number) : CallBackObject(nullptr), _number(number) {}
    int callback(void* /*data*/) override { throw std::out_of_range(std::to_string(_number)); }

   private:
    int _number;
  };
  Trace trace;  // before the pool, whose threads use it to their end
  tkCompleteTask complete(3);
  tkThreadPool pool(1, 0);
  pool.init();
  for (int i = 0; i < 3; ++i) {
    pool.invoke(new Failing(i), nullptr, ThreadScope::owned);
  }
  // One thread, so they fail in their order; the last one is done when a fourth task has run.
  pool.invoke(new Task(trace, complete, 0), nullptr, ThreadScope::owned);
  pool.startAll();
  while (trace.running == 0) {
    std::this_thread::yield();
  }
  try {
    complete.waitAll();
    FAIL();
  } catch (const std::out_of_range& error) {
    EXPECT_STREQ(error.what(), "0");
  }
}

TEST(ThreadPool, WithoutThreadsHasNothingToWaitFor) {
  tkCompleteTask complete(0);
  tkThreadPool pool(0, 0);
  pool.init();
  pool.startAll();
  complete.waitAll();
  Trace trace;
  Task task(trace, complete, 0);
  EXPECT_THROW(pool.invoke(&task, nullptr, ThreadScope::owned), std::logic_error);
  tkThreadPool negative(-1, 0);
  EXPECT_THROW(negative.init(), std::invalid_argument);
}

TEST(ThreadPool, WaitsForOtherThreadsWithoutAPool) {
  const Watchdog watchdog;
  tkCompleteTask complete(1);
  std::thread other([&complete] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // most often it waits by then
    complete.completeOperation();
  });
  complete.waitAll();
  other.join();
}

#ifdef __GLIBC__
// Threads are to have a stack that no address space has room for.
TEST(ThreadPool, SaysWhichThreadCannotBeStarted) {
  pthread_attr_t usual;
  ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
  pthread_attr_t huge;
  pthread_attr_init(&huge);
  pthread_attr_setstacksize(&huge, std::size_t{1} << 60U);
  ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
  tkThreadPool pool(2, 0);
  pool.init();
  EXPECT_EQ(velmor::test::MessageOf<std::system_error>([&pool] { pool.startAll(); }),
            "tkThreadPool: can't start thread 1 of 2: Resource temporarily unavailable");
  pthread_setattr_default_np(&usual);
  pthread_attr_destroy(&huge);
  pthread_attr_destroy(&usual);
}
#endif

TEST(CallBackObject, CarriesItsPointers) {
  Trace trace;
  tkCompleteTask complete(0);
  Task task(trace, complete, 0);
  int message = 0;
  EXPECT_EQ(task.getCallbackData(), nullptr);
  EXPECT_EQ(task.getMsgData(), nullptr);
  task.setCallbackData(&trace);
  task.setMsgData(&message);
  EXPECT_EQ(task.getCallbackData(), &trace);
  EXPECT_EQ(task.getMsgData(), &message);
}

}  // namespace
