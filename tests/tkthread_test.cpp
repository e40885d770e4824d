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

namespace velmor::test {
namespace {

class Task : public CallBackObject {
 public:
  using Call = std::function<void(void* data)>;
  static inline std::atomic<int> alive{0};

  explicit Task(Call call) : CallBackObject(nullptr), _call(std::move(call)) { ++alive; }
  ~Task() override { --alive; }
  int callback(void* data) override {
    _call(data);
    return 0;
  }

 private:
  Call _call;
};

// A pool at work, and a counter for its tasks.
struct Pool {
  Pool(int threads, int count) : complete(count), pool(threads, 0) {
    pool.init();
    pool.startAll();
  }
  void Invoke(Task::Call call, void* data = nullptr) {
    pool.invoke(new Task(std::move(call)), data, ThreadScope::owned);
  }

  Watchdog watchdog;
  tkCompleteTask complete;
  tkThreadPool pool;
};

void Fail(const std::string& what) { throw std::out_of_range(what); }

void WaitUntil(const std::atomic<int>& number, int least) {
  while (number < least) {
    std::this_thread::yield();
  }
}

TEST(ThreadPool, RunsQueuedTasksBeforeItEnds) {
  std::atomic<int> ended{0};
  {
    Pool pool(2, 7);
    for (int i = 0; i < 7; ++i) {
      const auto call = [&, i](void* data) {
        EXPECT_EQ(data, &ended);
        std::this_thread::sleep_for(std::chrono::milliseconds(i % 2 * 5));
        ++ended;
        Fail("late");  // on the second thread when the first one has ended
      };
      pool.Invoke(call, &ended);
    }
  }
  EXPECT_EQ(ended, 7);
  EXPECT_EQ(Task::alive, 0);
}

// What waiting raises; nothing if it is over.
std::string Raised(Pool& pool) {
  try {
    pool.complete.waitAll();
    return "";
  } catch (const std::out_of_range& error) {
    return error.what();
  }
}

TEST(ThreadPool, WaitRaisesTheFirstFailureOfItsOwnPool) {
  std::atomic<int> ended{0};
  Pool outer(1, 3);  // one thread, so they fail in their order
  outer.Invoke([](void*) { Fail("first"); });
  outer.Invoke([](void*) { Fail("second"); });
  outer.Invoke([&](void*) { ++ended; });
  WaitUntil(ended, 1);
  for (const bool fails : {false, true, false}) {
    Pool inner(1, 1);
    inner.Invoke([&](void*) { return fails ? Fail("inner") : inner.complete.completeOperation(); });
    EXPECT_EQ(Raised(inner), fails ? "inner" : "");
  }
  EXPECT_EQ(Raised(outer), "first");
}

TEST(ThreadPool, WithoutThreadsHasNothingToWaitFor) {
  Pool pool(0, 0);
  pool.complete.waitAll();
  Task task([](void*) {});
  EXPECT_THROW(pool.pool.invoke(&task, nullptr, ThreadScope::owned), std::logic_error);
  EXPECT_THROW(Pool(-1, 0), std::invalid_argument);
}

TEST(ThreadPool, WaitsForOtherThreadsWithoutAPool) {
  const Watchdog watchdog;
  tkCompleteTask complete(1);
  const std::jthread other([&complete] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // most often it waits by then
    complete.completeOperation();
  });
  complete.waitAll();
}

#ifdef __GLIBC__
// Threads are to have a stack that no address space has room for. Records of all of them would take
// gigabytes.
TEST(ThreadPool, SaysWhichThreadCannotBeStartedBeforeMemoryRunsOut) {
  pthread_attr_t usual;
  ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
  pthread_attr_t huge;
  pthread_attr_init(&huge);
  pthread_attr_setstacksize(&huge, std::size_t{1} << 60U);
  ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
  tkThreadPool pool(2'000'000'000, 0);
  pool.init();
  EXPECT_EQ(MessageOf<std::system_error>([&pool] { pool.startAll(); }),
            "tkThreadPool: can't start thread 1 of 2000000000: Resource temporarily unavailable");
  pthread_setattr_default_np(&usual);
  pthread_attr_destroy(&huge);
  pthread_attr_destroy(&usual);
}
#endif

TEST(CallBackObject, CarriesItsPointers) {
  Task task([](void*) {});
  EXPECT_EQ(task.getCallbackData(), nullptr);
  EXPECT_EQ(task.getMsgData(), nullptr);
  int data[2] = {};
  task.setCallbackData(&data[0]);
  task.setMsgData(&data[1]);
  EXPECT_EQ(task.getCallbackData(), &data[0]);
  EXPECT_EQ(task.getMsgData(), &data[1]);
}

}  // namespace
}  // namespace velmor::test
