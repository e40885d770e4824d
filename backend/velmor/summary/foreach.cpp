// foreach.cpp: a loop on several threads.
#include "summary/foreach.h"

#include <velmor/driver.h>

#include <algorithm>
#include <stdexcept>

namespace velmor {
namespace {

class Loop : public ProblemBase {
 public:
  Loop(std::size_t count, const std::function<void(std::size_t)>& work)
      : _count(count), _work(work) {}

  ProblemPartBase* CreatePart() override { return new Turns(*this); }
  std::size_t NMerged() const { return _merged; }

 private:
  class Turns : public ProblemPartBase {
   public:
    explicit Turns(Loop& loop) : _loop(loop) {}

    bool ReadBatch() override {
      constexpr std::size_t kTurn = 16;  // enough for a claim to cost nothing beside them
      _from = _loop._claimed;
      _to = std::min(_from + kTurn, _loop._count);
      _loop._claimed = _to;
      return _from < _to;
    }
    void AccumulateBatch() override {
      for (; _from < _to; ++_from, ++_done) {
        _loop._work(_from);
      }
    }
    void MergeResult() override { _loop._merged += _done; }

   private:
    Loop& _loop;
    std::size_t _from = 0;
    std::size_t _to = 0;
    std::size_t _done = 0;
  };

  std::size_t _count;
  const std::function<void(std::size_t)>& _work;
  std::size_t _claimed = 0;
  std::size_t _merged = 0;
};

}  // namespace

void ForEach(std::size_t count, int threads, const std::function<void(std::size_t)>& work) {
  Loop loop(count, work);
  Driver(&loop, threads);
  if (loop.NMerged() != count) {
    throw std::runtime_error("the host ended the run after " + std::to_string(loop.NMerged()) +
                             " of " + std::to_string(count) + " groups");
  }
}

}  // namespace velmor
