#pragma once

// A pass of several threads through the cases of a CSV file, as a problem for velmor::Driver.

#include <velmor/driver.h>

#include <cstdint>

#include "cases.h"
#include "csv.h"

namespace csv {

// Share is what a thread makes of its share of the cases. Every thread has one of its own, made
// with Share(input, cacheSize), cacheSize being the bytes of cache it may use. It has
//   Input, Result              types; Input is only read
//   Add(const Case&)           takes a case that is used, at the same address each time
//   MergeInto(Result&)         brings what came of its cases to the result of all
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
        : _pass(pass),
          _cases(pass._file, pass._columns, pass._progress),
          _share(pass._input, pass._cacheSize) {}

    // Only claims cases: while a thread is here, the others wait.
    bool ReadBatch() override {
      bool isAny = false;
      if (!_error.IsAny()) {
        _batch = _pass._batches++;
        _error.Try(_batch, [&] { isAny = _cases.Claim(); });
      }
      return isAny;
    }

    void AccumulateBatch() override {
      _error.Try(_batch, [this] {
        while (_cases.Next()) {
          _share.Add(_cases.Current());
        }
      });
    }

    void MergeResult() override {
      _pass._error.Merge(_error);
      if (!_pass._error.IsAny()) {
        _share.MergeInto(_pass._result);
        _pass._counts += _cases.Counts();
      }
    }

   private:
    Pass& _pass;
    CaseReader _cases;
    Share _share;
    std::uint64_t _batch = 0;  // the one claimed last
    FirstError _error;
  };

  Reader& _file;
  const CaseColumns& _columns;
  Progress& _progress;
  const Input& _input;
  Result& _result;
  CaseCounts _counts;
  std::uint64_t _batches = 0;  // claimed
  FirstError _error;
};

}  // namespace csv
