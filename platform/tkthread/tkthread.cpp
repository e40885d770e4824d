// tkthread.cpp: the pool, its workers and the completion counter; start at Worker::Run.
#include <tkthread/tkthread.h>

#include <condition_variable>
#include <deque>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

namespace {

// What waitAll waits for, a completion or a failure, happens once per task, so one monitor serves
// every counter and every pool of the process.
struct Monitor {
  std::mutex mutex;
  std::condition_variable changed;
};

Monitor& TheMonitor() {
  static Monitor monitor;
  return monitor;
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
  explicit Worker(tkThreadPoolBase& pool) : _pool(pool) {}

  ~Worker() {
    if (_thread.joinable()) {
      {
        const std::lock_guard lock(_mutex);
        _ending = true;
      }
      _changed.notify_one();
      _thread.join();
    }
  }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  void Start() {
    _thread = std::thread([this] { Run(); });
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
        _pool.KeepFailure(std::current_exception());
      }
      job.task.reset();
      lock.lock();
    }
  }

  tkThreadPoolBase& _pool;
  std::mutex _mutex;
  std::condition_variable _changed;
  std::deque<Job> _queue;
  bool _ending = false;
  std::thread _thread;
};

tkThreadPoolBase::tkThreadPoolBase(int threads)
    : _threads(threads), _outer(std::exchange(innermostPool, this)) {}

tkThreadPoolBase::~tkThreadPoolBase() {
  _workers.clear();
  innermostPool = _outer;
}

void tkThreadPoolBase::init() {
  if (_threads < 0) {
    throw std::invalid_argument("tkThreadPool: there can't be " + std::to_string(_threads) +
                                " threads");
  }
  for (int i = 0; i < _threads; ++i) {
    _workers.push_back(std::make_unique<Worker>(*this));
  }
}

void tkThreadPoolBase::startAll() {
  int started = 0;
  try {
    for (const auto& worker : _workers) {
      worker->Start();
      ++started;
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

void tkThreadPoolBase::KeepFailure(std::exception_ptr failure) {
  {
    const std::lock_guard lock(TheMonitor().mutex);
    if (!_failure) {
      _failure = std::move(failure);
    }
  }
  TheMonitor().changed.notify_all();
}

tkThreadPool::tkThreadPool(int threads, int /*options*/) : tkThreadPoolBase(threads) {}
tkThreadPool::~tkThreadPool() = default;

tkCompleteTask::tkCompleteTask(int count) : _open(count) {}
tkCompleteTask::~tkCompleteTask() = default;

void tkCompleteTask::set(int count) { _open = count; }

void tkCompleteTask::completeOperation() {
  {
    const std::lock_guard lock(TheMonitor().mutex);
    --_open;
  }
  TheMonitor().changed.notify_all();
}

void tkCompleteTask::waitAll() {
  const tkThreadPoolBase* const pool = innermostPool;
  const auto failed = [pool] { return pool != nullptr && pool->_failure; };
  std::unique_lock lock(TheMonitor().mutex);
  TheMonitor().changed.wait(lock, [this, failed] { return _open <= 0 || failed(); });
  if (failed()) {
    std::rethrow_exception(pool->_failure);
  }
}
