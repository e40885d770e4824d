#pragma once

// A pass of several threads through the cases of a CSV file, as a problem for velmor::Driver.

#include <velmor/driver.h>

#include <cstdint>
#include <map>
#include <mutex>

#include "cases.h"
#include "csv.h"

namespace csv {

// Share is what a thread makes of its share of the cases. Every thread has one of its own, made
// with Share(input). It has
//   Input, Result              types; Input is only read
//   Add(const Case&)           takes a case that is used, at the same address each time
//   Result Take()              what came of the cases since it was taken before
//   Append(Result&, Result&)   brings the former, which came of a batch, to the latter, which came
//                              of all batches before it: called in their order, so that results do
//                              not depend on the threads
template <class Share>
class Pass : public velmor::ProblemBase {
 public:
  using Input = typename Share::Input;
  using Result = typename Share::Result;

  // All must outlive the pass.
  Pass(Reader& file, const CaseColumns& columns, Progress& progress, const Input& input,
       Result& result)
      : _file(file), _columns(columns), _progress(progress), _input(input), _result(result) {}

  velmor::ProblemPartBase* CreatePart() override { return new Part(*this); }

  // The counts of all cases, after the pass. Throws the first error in the file if there is one.
  const CaseCounts& Counts() const {
    _error.Rethrow();
    return _counts;
  }

 private:
  class Part : public velmor::ProblemPartBase {
   public:
    explicit Part(Pass& pass)
        : _pass(pass), _cases(pass._file, pass._columns, pass._progress), _share(pass._input) {}

    // Only claims cases: while a thread is here, the others wait.
    bool ReadBatch() override {
      bool isAny = false;
      if (!_pass._error.IsAny()) {
        _batch = _pass._batches++;
        _pass._error.Try(_batch, [&] { isAny = _cases.Claim(); });
      }
      return isAny;
    }

    void AccumulateBatch() override {
      const auto add = [this] {
        while (_cases.Next()) {
          _share.Add(_cases.Current());
        }
      };
      if (_pass._error.Try(_batch, add)) {
        _pass.Append(_batch, _share);
      }
    }

    void MergeResult() override { _pass._counts += _cases.Counts(); }

   private:
    Pass& _pass;
    CaseReader _cases;
    Share _share;
    std::uint64_t _batch = 0;  // the one claimed last
  };

  // Appends what came of a batch, and of those behind it that waited for it.
  void Append(std::uint64_t batch, Share& share) {
    const std::lock_guard lock(_mutex);
    _waiting.emplace(batch, share.Take());
    const auto append = [&] { share.Append(_waiting.begin()->second, _result); };
    while (!_waiting.empty() && _waiting.begin()->first == _appended &&
           _error.Try(_appended, append)) {
      _waiting.erase(_waiting.begin());
      ++_appended;
    }
  }

  Reader& _file;
  const CaseColumns& _columns;
  Progress& _progress;
  const Input& _input;
  Result& _result;
  CaseCounts _counts;
  std::uint64_t _batches = 0;  // claimed
  FirstError _error;
  std::mutex _mutex;                         // of what follows, and of the result
  std::map<std::uint64_t, Result> _waiting;  // for batches before them
  std::uint64_t _appended = 0;               // batches
};

}  // namespace csv
