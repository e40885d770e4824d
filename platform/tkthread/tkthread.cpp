// tkthread.cpp: the pool, its workers and the completion counter; start at Worker::Run.
#include <tkthread/tkthread.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <utility>

namespace {

// Counts the completions and failures of all runs; waitAll sleeps until it changes. The counters,
// whose layout hosts know, have no room for something of their own, and these events are rare: one
// for each task. A plain word can be slept on when the process exits or forks: a condition variable
// could not be destroyed then, and in the child it would wait for threads that are not there.
std::atomic<unsigned int> events{0};
static_assert(std::is_trivially_destructible_v<decltype(events)>);

void TellWaiting() {
  ++events;
  events.notify_all();
}

thread_local tkThreadPoolBase* innermostPool = nullptr;

}  // namespace

msgBaseData::~msgBaseData() = default;
void* msgBaseData::getMsgData() const { return _msgData; }
void msgBaseData::setMsgData(void* data) { _msgData = data; }

CallBackObject::CallBackObject(void* data) : _callbackData(data) {}
CallBackObject::~CallBackObject() = default;
void CallBackObject::setCallbackData(void* data) { _callbackData = data; }
void* CallBackObject::getCallbackData() const { return _callbackData; }

tkGuard::tkGuard(tkMutex& mutex, LockType /*type*/) : _lock(mutex._mutex) {}
tkGuard::~tkGuard() = default;

// A thread with a queue of its own: tasks handed out in turn then run on distinct threads even if
// the first ends before the last is queued.
class tkThreadPoolBase::Worker {
 public:
  // first  the pool's first worker; null for that one
  Worker(tkThreadPoolBase& pool, Worker* first)
      : _pool(pool), _first(first ? *first : *this), _thread([this] { Run(); }) {}

  ~Worker() {
    {
      const std::lock_guard lock(_mutex);
      _ending = true;
    }
    _changed.notify_one();
    _thread.join();
  }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  // The first exception that left a task of the pool, or null.
  static std::exception_ptr FailureOf(const tkThreadPoolBase& pool) {
    if (pool._workers.empty()) {
      return nullptr;
    }
    const std::lock_guard lock(pool._workers.front()->_failureMutex);
    return pool._failure;
  }

  void Queue(CallBackObject* task, void* data) {
    {
      const std::lock_guard lock(_mutex);
      _queue.push_back({nullptr, data});
      _queue.back().task.reset(task);  // owned only once nothing can throw any more
    }
    _changed.notify_one();
  }

 private:
  struct Job {
    std::unique_ptr<CallBackObject> task;
    void* data;
  };

  void Run() {
    std::unique_lock lock(_mutex);
    while (true) {
      _changed.wait(lock, [this] { return _ending || !_queue.empty(); });
      if (_queue.empty()) {
        return;
      }
      Job job = std::move(_queue.front());
      _queue.pop_front();
      lock.unlock();
      try {
        job.task->callback(job.data);
      } catch (...) {
        {
          const std::lock_guard failureLock(_first._failureMutex);
          _pool.KeepFailure(std::current_exception());
        }
        TellWaiting();
      }
      job.task.reset();
      lock.lock();
    }
  }

  tkThreadPoolBase& _pool;
  Worker& _first;
  std::mutex _failureMutex;  // of the first worker: around the pool's failure
  std::mutex _mutex;         // around the queue and whether it ends
  std::condition_variable _changed;
  std::deque<Job> _queue;
  bool _ending = false;
  std::thread _thread;  // the last to come, as it uses all others
};

tkThreadPoolBase::tkThreadPoolBase(int threads)
    : _threads(threads), _outer(std::exchange(innermostPool, this)) {}

tkThreadPoolBase::~tkThreadPoolBase() {
  while (!_workers.empty()) {
    _workers.pop_back();  // the first one at the end, as the others use its lock
  }
  innermostPool = _outer;
}

// NOLINTNEXTLINE(readability-make-member-function-const): hosts have its name, which says that
void tkThreadPoolBase::init() {
  if (_threads < 0) {
    throw std::invalid_argument("tkThreadPool: there can't be " + std::to_string(_threads) +
                                " threads");
  }
}

void tkThreadPoolBase::startAll() {
  int started = 0;
  try {
    // Each thread runs before memory is taken for the next, so that the system's limit on threads
    // ends this, not the memory of billions of workers.
    for (; started < _threads; ++started) {
      Worker* const first = _workers.empty() ? nullptr : _workers.front().get();
      _workers.push_back(std::make_unique<Worker>(*this, first));
    }
  } catch (const std::system_error& error) {
    throw std::system_error(error.code(), "tkThreadPool: can't start thread " +
                                              std::to_string(started + 1) + " of " +
                                              std::to_string(_threads));
  }
}

void tkThreadPoolBase::invoke(CallBackObject* task, void* data, ThreadScope /*scope*/) {
  if (_workers.empty()) {
    throw std::logic_error("tkThreadPool: a task was invoked on a pool without threads");
  }
  _workers[_nextWorker]->Queue(task, data);
  _nextWorker = (_nextWorker + 1) % _workers.size();
}

// The lock of the failure is held.
void tkThreadPoolBase::KeepFailure(std::exception_ptr failure) {
  if (!_failure) {
    _failure = std::move(failure);
  }
}

tkThreadPool::tkThreadPool(int threads, int /*options*/) : tkThreadPoolBase(threads) {}
tkThreadPool::~tkThreadPool() = default;

tkCompleteTask::tkCompleteTask(int count) : _open(count) {}
tkCompleteTask::~tkCompleteTask() = default;

void tkCompleteTask::set(int count) { _open = count; }

void tkCompleteTask::completeOperation() {
  --std::atomic_ref(_open);  // the last one's waiting thread may now destroy the counter
  TellWaiting();
}

void tkCompleteTask::waitAll() {
  const tkThreadPoolBase* const pool = innermostPool;
  for (bool isOver = false; !isOver;) {
    const unsigned int seen = events;
    isOver = std::atomic_ref(_open) <= 0;
    if (const auto failure = pool ? tkThreadPoolBase::Worker::FailureOf(*pool) : nullptr) {
      std::rethrow_exception(failure);
    }
    if (!isOver) {
      events.wait(seen);
    }
  }
}
