// host.cpp: a host of the installed library, in a project of its own; start at main.
//
//   host         uses the library as a host does; ends with 0 if all is as expected
//   host column  asks a batch for a column that it does not have, which ends the process
//   host row     adds a row to a full batch, likewise
#include <velmor/velmor.h>

#include <norvwlib/norvwlib.h>

#include <array>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace {

constexpr std::int64_t kThreads = 2;
constexpr std::int64_t kCacheKilobytes = 48;
std::atomic<int> threadsAsked{0};
std::atomic<int> cacheAsked{0};

}  // namespace

// This host's services; the library's own stand back. atnnxt_ remains the library's.
std::int64_t getthreads_() {
  ++threadsAsked;
  return kThreads;
}

std::int64_t getmcache_() {
  ++cacheAsked;
  return kCacheKilobytes;
}

namespace {

// What a static object of a host counts before main.
const std::uint64_t kCasesBeforeMain = [] {
  velmor::DataBatch batch(1, 1, nullptr, nullptr, nullptr);
  const double value = 1.;
  batch.AddRow(&value);
  velmor::SMatrixListwise matrix;
  matrix += batch;
  return matrix.NRows();
}();

// Statistics of x and 3 - 2x over the cases x = 1, 2, ... kCases.
class Line : public velmor::ProblemBase {
 public:
  static constexpr int kCases = 1000;

  velmor::ProblemPartBase* CreatePart() override {
    ++_parts;
    return new Part(*this);
  }
  const velmor::SMatrixListwise& Result() const { return _result; }
  std::uint64_t CacheSize() const { return _cacheSize; }
  int Parts() const { return _parts; }

 private:
  class Part : public velmor::ProblemPartBase {
   public:
    explicit Part(Line& line) : _line(line) {}

    bool ReadBatch() override {
      _from = _line._next;
      _line._next += static_cast<int>(_batch.MaxRows());
      return _from <= kCases;
    }
    void AccumulateBatch() override {
      _batch.Clear();
      for (int i = _from; i <= kCases && _batch.NRows() < _batch.MaxRows(); ++i) {
        const std::array<double, 2> row{static_cast<double>(i), 3. - 2. * i};
        _batch.AddRow(row.data());
      }
      _matrix += _batch;
    }
    void MergeResult() override { _line._result += _matrix; }

   private:
    Line& _line;
    int _from = 0;
    velmor::DataBatch _batch{2, 64, nullptr, nullptr, nullptr};
    velmor::SMatrixListwise _matrix;
  };

  velmor::SMatrixListwise _result;
  int _next = 1;
  int _parts = 0;
};

// A problem whose parts end the run with the host's own error.
class Failing : public velmor::ProblemBase {
 public:
  velmor::ProblemPartBase* CreatePart() override { return new Part; }

 private:
  class Part : public velmor::ProblemPartBase {
   public:
    bool ReadBatch() override { throw NorvGoToCaller(); }
    void AccumulateBatch() override {}
    void MergeResult() override {}
  };
};

// Prints the expectation when it is not met.
bool Expect(bool met, const char* expectation) {
  if (!met) {
    std::fprintf(stderr, "host: not so: %s\n", expectation);
  }
  return met;
}

bool IsNear(double value, double expected) {
  return std::abs(value - expected) <= 1e-12 * std::abs(expected);
}

bool RunsOnItsServices() {
  Line line;
  velmor::Driver(&line, 0);
  const velmor::SMatrixListwise& result = line.Result();
  constexpr double kSquares = Line::kCases * (Line::kCases * 1. * Line::kCases - 1.) / 12.;
  bool ok = Expect(kCasesBeforeMain == 1, "cases are accumulated before main");
  ok &= Expect(threadsAsked == 1, "the host's getthreads_ is asked");
  ok &= Expect(line.Parts() == kThreads, "a part for each of the host's threads");
  ok &= Expect(cacheAsked == 1, "the host's getmcache_ is asked");
  ok &= Expect(line.CacheSize() == 1024 * kCacheKilobytes, "the host's cache size");
  ok &= Expect(result.NRows() == Line::kCases, "every case counts once");
  ok &= Expect(result.Min(0) == 1. && result.Max(1) == 1., "extremes");
  ok &= Expect(IsNear(result.Mean(0), 500.5) && IsNear(result.Mean(1), -998.), "means");
  ok &= Expect(IsNear(result.CCP(0, 0), kSquares), "sum of squares");
  ok &= Expect(IsNear(result.CCP(0, 1), -2. * kSquares), "cross-product");
  return ok;
}

bool GetsItsError() {
  Failing failing;
  try {
    velmor::Driver(&failing, static_cast<int>(kThreads));
  } catch (const NorvGoToCaller&) {
    return true;
  }
  return Expect(false, "the host's error comes back to it");
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view violation = argc > 1 ? argv[1] : "";
  velmor::DataBatch batch(2, 1, nullptr, nullptr, nullptr);
  if (violation == "column") {
    batch.Column(2);
  } else if (violation == "row") {
    const std::array<double, 2> row{1., 2.};
    batch.AddRow(row.data());
    batch.AddRow(row.data());
  }
  return RunsOnItsServices() && GetsItsError() ? 0 : 1;
}
