// What cluster_test runs on several ranks: reductions that fail in every way on each of them.
// Status 0 says that all ended as they should, on all ranks. With --escape an error leaves one rank
// alone.
#include <cstddef>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "../tools/reduction.h"

namespace {

using State = std::vector<std::byte>;  // the ranks that it has come from

enum class Failure { None, InSave, InMerge, OutOfMemory };

// A reduction that fails on one rank, if it comes by there.
class Reduction {
 public:
  Reduction(const cluster::Ranks& ranks, Failure failure, int where)
      : _ranks(ranks),
        _failure(ranks.Own() == where ? failure : Failure::None),
        _where(where),
        _state(1, static_cast<std::byte>(ranks.Own())) {}

  void Check() {
    std::string error;
    try {
      _ranks.Reduce([this] { return Save(); }, [this](const State& state) { Merge(state); });
    } catch (const cluster::Error& e) {
      error = e.what();
    }
    std::uint64_t failed = _hasFailed ? 1 : 0;
    _ranks.Sum({&failed, 1});
    const std::string rank = "rank " + std::to_string(_where) + ": ";
    Expect(failed == 1 ? error == rank + "on purpose" || error == rank + "out of memory"
                       : error.empty());
    for (int i = 0; failed == 0 && _ranks.Own() == 0 && i < _ranks.Count(); ++i) {
      Expect(_state.at(static_cast<std::size_t>(i)) == static_cast<std::byte>(i));
    }
  }

 private:
  static void Expect(bool isTrue) {
    if (!isTrue) {
      throw std::logic_error("a reduction has not ended as it should");
    }
  }

  State Save() {
    if (_failure == Failure::OutOfMemory) {
      _hasFailed = true;
      throw std::bad_alloc();
    }
    FailIf(Failure::InSave);
    return _state;
  }

  void Merge(const State& state) {
    FailIf(Failure::InMerge);
    _state.insert(_state.end(), state.begin(), state.end());
  }

  void FailIf(Failure failure) {
    if (_failure == failure) {
      _hasFailed = true;
      throw std::runtime_error("on purpose");
    }
  }

  const cluster::Ranks& _ranks;
  Failure _failure;
  int _where;
  bool _hasFailed = false;
  State _state;
};

void CheckReductions(const cluster::Ranks& ranks, bool escapes) {
  for (int where = 0; where < ranks.Count(); ++where) {
    for (const Failure failure :
         {Failure::None, Failure::InSave, Failure::InMerge, Failure::OutOfMemory}) {
      Reduction(ranks, failure, where).Check();
    }
  }
  if (escapes && ranks.Own() == ranks.Count() - 1) {
    throw std::runtime_error("on purpose");
  }
  ranks.Try([] {});  // where the others wait for the one that is gone
}

}  // namespace

int main(int argc, char** argv) {
  bool escapes = false;
  return cluster::Run(
      "reduction_ranks", argc, argv,
      [&escapes](CLI::App& app) { app.add_flag("--escape", escapes); },
      [&escapes](const cluster::Ranks& ranks) { CheckReductions(ranks, escapes); });
}
