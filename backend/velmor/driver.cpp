// driver.cpp: runs a problem on the calling thread or over a pool; start at Driver, at the end.
#include <velmor/driver.h>

#include <norvwlib/norvwlib.h>
#include <tkthread/tkthread.h>
#include <velmor/assertion.h>

#include <atomic>
#include <memory>

namespace velmor {

ProblemPartBase::~ProblemPartBase() = default;

ProblemBase::~ProblemBase() = default;

void ProblemBase::SetCacheSize(unsigned long bytes) { _cacheSize = bytes; }

namespace {

// What the tasks of one run share. The flags only go from false to true; they are tested without
// the lock and again under it, so a stale value costs a task one more turn at most.
struct DriverShared {
  tkMutex _readLock;   // around reading and around the deletion of parts
  tkMutex _mergeLock;  // around merging; no task holds both locks
  tkCompleteTask _complete{0};
  std::atomic<bool> _endOfData{false};
  std::atomic<bool> _error{false};
};

// The place to state a preference for a processor. Schedulers know better, so none is stated.
void PreferProcessor(unsigned int /*threadIndex*/) {}

// One pool thread's work: reads and accumulates its part in turns with the others, then merges it.
class ProblemTask : public CallBackObject {
 public:
  ProblemTask() : CallBackObject(nullptr) {}
  ~ProblemTask() override;
  ProblemTask(const ProblemTask&) = delete;
  ProblemTask& operator=(const ProblemTask&) = delete;

  // Creates the task's part, so it runs on the thread that called Driver.
  void Init(DriverShared* shared, ProblemBase* problem, int threadIndex);
  int callback(void* data) override;

 private:
  bool IsOver() const { return _shared->_error || _shared->_endOfData; }
  bool ReadBatch();
  void MergeResult();

  ProblemPartBase* _part = nullptr;  // owned; deleted under the read lock
  DriverShared* _shared = nullptr;
  int _threadIndex = 0;
  bool _isComplete = false;
};

ProblemTask::~ProblemTask() {
  if (!_isComplete) {
    // An exception left callback: Driver's caller gets to know, and the other tasks need not read
    // the rest of the data first.
    _shared->_error = true;
  }
  const tkGuard guard(_shared->_readLock, LockType::exclusive);
  delete _part;
}

void ProblemTask::Init(DriverShared* shared, ProblemBase* problem, int threadIndex) {
  _shared = shared;
  _part = problem->CreatePart();
  VELMOR_ASSERT(_part != nullptr);
  _threadIndex = threadIndex;
}

bool ProblemTask::ReadBatch() {
  const tkGuard guard(_shared->_readLock, LockType::exclusive);
  const bool got = !IsOver() && _part->ReadBatch();
  if (!got) {
    _shared->_endOfData = true;
  }
  return got;
}

void ProblemTask::MergeResult() {
  const tkGuard guard(_shared->_mergeLock, LockType::exclusive);
  _part->MergeResult();
}

int ProblemTask::callback(void* /*data*/) {
  try {
    PreferProcessor(static_cast<unsigned int>(_threadIndex));
    while (!IsOver()) {
      if (ReadBatch()) {
        _part->AccumulateBatch();
      }
    }
    MergeResult();
  } catch (const NorvGoToCaller&) {
    _shared->_error = true;
  }
  _isComplete = true;
  _shared->_complete.completeOperation();
  return 0;
}

void RunOnThisThread(ProblemBase& problem) {
  const std::unique_ptr<ProblemPartBase> part(problem.CreatePart());
  VELMOR_ASSERT(part != nullptr);
  while (part->ReadBatch()) {
    part->AccumulateBatch();
  }
  part->MergeResult();
}

void RunOnPool(ProblemBase& problem, std::uint32_t threads) {
  // Also when an exception passes, the pool goes first, with its tasks, whose destructors take the
  // read lock, and then the locks.
  DriverShared shared;
  shared._complete.set(static_cast<int>(threads));
  tkThreadPool pool(static_cast<int>(threads), 0);
  pool.init();
  pool.startAll();
  try {
    for (std::uint32_t i = 0; i < threads; ++i) {
      auto task = std::make_unique<ProblemTask>();
      task->Init(&shared, &problem, static_cast<int>(i));
      pool.invoke(task.get(), nullptr, ThreadScope::owned);
      static_cast<void>(task.release());  // the pool's from here on
    }
  } catch (...) {
    shared._error = true;  // the tasks that run need not read the rest of the data first
    throw;
  }
  shared._complete.waitAll();
  if (shared._error) {
    atnnxt_();
  }
}

}  // namespace

void Driver(ProblemBase* problem, int threads) {
  VELMOR_ASSERT(problem != nullptr);
  problem->SetCacheSize(static_cast<std::uint64_t>(getmcache_()) << 10U);  // from kilobytes
  const auto count = static_cast<std::uint32_t>(threads > 0 ? threads : getthreads_());
  if (count == 1) {
    RunOnThisThread(*problem);
  } else {
    RunOnPool(*problem, count);
  }
}

}  // namespace velmor
