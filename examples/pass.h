#pragma once

// A pass of several threads through the cases of a CSV file, as a problem for velmor::Driver.

#include <velmor/driver.h>

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

  const CaseCounts& Counts() const { return _counts; }

 private:
  class Part : public velmor::ProblemPartBase {
   public:
    explicit Part(Pass& pass)
        : _pass(pass),
          _cases(pass._file, pass._columns, pass._progress),
          _share(pass._input, pass._cacheSize) {}

    // Only claims cases: while a thread is here, the others wait.
    bool ReadBatch() override { return _cases.Claim(); }

    void AccumulateBatch() override {
      while (_cases.Next()) {
        _share.Add(_cases.Current());
      }
    }

    void MergeResult() override {
      _share.MergeInto(_pass._result);
      _pass._counts += _cases.Counts();
    }

   private:
    Pass& _pass;
    CaseReader _cases;
    Share _share;
  };

  Reader& _file;
  const CaseColumns& _columns;
  Progress& _progress;
  const Input& _input;
  Result& _result;
  CaseCounts _counts;
};

}  // namespace csv
