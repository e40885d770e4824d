#pragma once

// Threads as velmor's driver uses them: a pool whose threads each run the tasks handed to them, a
// counter of completed tasks to wait on, a mutex and its guard. Built on the standard library.

#include <cstddef>
#include <exception>
#include <memory>
#include <mutex>
#include <vector>

#pragma GCC visibility push(default)

// Carries a message's data, a pointer that this library only keeps.
class msgBaseData {
 public:
  msgBaseData() = default;
  virtual ~msgBaseData();
  msgBaseData(const msgBaseData&) = delete;
  msgBaseData& operator=(const msgBaseData&) = delete;
  virtual void* getMsgData() const;
  virtual void setMsgData(void* data);

 private:
  void* _msgData = nullptr;
};

// A piece of work for a pool, implemented by the pool's user.
class CallBackObject : public msgBaseData {
 public:
  // data  the task's own data, a pointer that this library only keeps
  explicit CallBackObject(void* data);
  ~CallBackObject() override;
  virtual void setCallbackData(void* data);
  virtual void* getCallbackData() const;
  // The work. A pool thread calls it once, with the data that was given to invoke.
  virtual int callback(void* data) = 0;

 private:
  void* _callbackData;
};

// Who destroys a task. Owned: the pool, once it has run.
enum class ThreadScope : int { owned = 1 };

// How a mutex is held. Exclusive: by one thread at a time.
enum class LockType : int { exclusive = 1 };

class tkMutex {
 public:
  tkMutex() = default;
  tkMutex(const tkMutex&) = delete;
  tkMutex& operator=(const tkMutex&) = delete;

 private:
  friend class tkGuard;
  std::mutex _mutex;
};

// Holds a mutex for as long as it lives. Not recursive.
class tkGuard {
 public:
  tkGuard(tkMutex& mutex, LockType type);
  ~tkGuard();
  tkGuard(const tkGuard&) = delete;
  tkGuard& operator=(const tkGuard&) = delete;

 private:
  std::lock_guard<std::mutex> _lock;
};

// A pool of threads. It belongs to the thread that builds it: that thread invokes tasks, waits for
// them and destroys the pool, an inner pool before an outer one.
//
// A task whose callback throws does not take its thread or the process with it: the pool keeps the
// first such exception, and waitAll raises it on the pool's own thread.
class tkThreadPoolBase {
 public:
  tkThreadPoolBase(const tkThreadPoolBase&) = delete;
  tkThreadPoolBase& operator=(const tkThreadPoolBase&) = delete;

  // Checks the number of threads. Call it once, then startAll.
  // Throws std::invalid_argument for a negative number.
  void init();

  // Starts the threads, one after the other; tasks can be invoked then. Memory: a thread's stack
  // and about a kilobyte for each that was started. Throws std::system_error that says which one
  // can't be started, std::bad_alloc; destroy the pool then.
  void startAll();

  // Queues a task, which a pool thread runs by calling task->callback(data) once. Tasks go to the
  // threads in turn, so that as many tasks as threads run at the same time on distinct threads.
  // The pool then owns the task and destroys it right after its run. Throws std::logic_error for
  // a pool without threads, std::bad_alloc; the task is then still the caller's.
  void invoke(CallBackObject* task, void* data, ThreadScope scope);

 protected:
  explicit tkThreadPoolBase(int threads);
  // Lets the threads that were started run what is still queued, then ends them.
  ~tkThreadPoolBase();

 private:
  friend class tkCompleteTask;
  class [[gnu::visibility("hidden")]] Worker;

  void KeepFailure(std::exception_ptr failure);

  int _threads;
  std::vector<std::unique_ptr<Worker>> _workers;
  std::size_t _nextWorker = 0;
  std::exception_ptr _failure;
  tkThreadPoolBase* _outer;  // the pool that this thread built before
};

class tkThreadPool : public tkThreadPoolBase {
 public:
  // A pool of `threads` threads. options: 0, there are no others.
  tkThreadPool(int threads, int options);
  ~tkThreadPool();
};

// Counts completed tasks and lets a thread wait for the last one.
class tkCompleteTask {
 public:
  // count  completions to wait for
  explicit tkCompleteTask(int count);
  ~tkCompleteTask();
  tkCompleteTask(const tkCompleteTask&) = delete;
  tkCompleteTask& operator=(const tkCompleteTask&) = delete;

  // Sets the completions to wait for. Not while tasks are running.
  void set(int count);

  // One task more is complete. Any thread may call it.
  void completeOperation();

  // Waits until completeOperation was called as often as set asked. Raises, instead of waiting on,
  // the first exception that left a task of this thread's innermost pool.
  void waitAll();

 private:
  int _open;
};

#pragma GCC visibility pop
