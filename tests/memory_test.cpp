// Memory that runs out at any point of any operation: the exception arrives, nothing leaks, and
// what was worked on is as it was, so that the operation can be repeated. Start at
// ExpectAllOrNothing.
#include <tkthread/tkthread.h>
#include <velmor/velmor.h>

#include "accumulators.h"
#include "allocations.h"
#include "proof.h"
#include "summarytables.h"
#include "support.h"
#include "watchdog.h"

#include <algorithm>
#include <atomic>
#include <thread>

namespace velmor::test {
namespace {

// A new thread has no scratch memory, and takes what it gets along when it ends.
template <class Call>
void OnNewThread(const Call& call) {
  std::thread([&call] { call(); }).join();
}

// Calls an operation of which one allocation fails: allocation 0 is the first. Returns whether it
// came to that.
//   hasThrown  set to whether std::bad_alloc left the operation
template <class Operation>
bool RunOutOfMemory(int allocation, const Operation& operation, bool& hasThrown) {
  bool isReached = false;
  OnNewThread([&] {
    hasThrown = false;
    allocations.failAfter = allocation;
    try {
      operation();
    } catch (const std::bad_alloc&) {
      hasThrown = true;
    }
    isReached = allocations.failAfter < 0;
    allocations.failAfter = Allocations::kNever;
  });
  return isReached;
}

// Fails each allocation of an operation in turn. The object is then as it was, and takes the
// operation the next time; or the operation could do without the memory, and is complete.
//   make     returns the object
//   operate  takes it
//   observe  returns what there is to be seen of it
// Returns how many allocations there are.
template <class Make, class Operate, class Observe>
int ExpectAllOrNothing(const char* what, const Make& make, const Operate& operate,
                       const Observe& observe) {
  auto complete = make();
  operate(complete);
  const auto after = observe(complete);
  const auto fail = [&](int allocation) {
    SCOPED_TRACE(std::string(what) + ", allocation " + std::to_string(allocation));
    Watchdog::NoteProgress();
    const std::size_t alive = allocations.alive;
    bool isReached = false;
    OnNewThread([&] {
      auto object = make();
      const auto before = observe(object);
      bool hasThrown = false;
      isReached = RunOutOfMemory(
          allocation, [&] { operate(object); }, hasThrown);
      if (hasThrown) {
        EXPECT_EQ(observe(object), before);
        operate(object);
      }
      EXPECT_EQ(observe(object), after);
    });
    EXPECT_EQ(allocations.alive, alive) << "leaks";
    return isReached;
  };
  int failures = 0;
  while (fail(failures)) {
    ++failures;
  }
  CountCases("memory: each allocation failing in turn", static_cast<std::size_t>(failures));
  return failures;
}

template <class Accumulator>
std::unique_ptr<Accumulator> Some(std::uint32_t seed = 1) {
  return Accumulated<Accumulator>(MixedCases(9, seed));
}

// A forest of the blocks.
//   putsOff  it puts their merges off, for lack of memory
template <class Accumulator>
auto Blocks(std::initializer_list<std::uint32_t> blocks, bool putsOff = false) {
  auto forest = std::make_unique<BlockForest<Accumulator>>(9, *NewAccumulator<Accumulator>());
  for (const std::uint32_t block : blocks) {
    auto leaf = Some<Accumulator>(block);
    // The first allocation makes room for the leaf, the next one is a merge's.
    allocations.failAfter = putsOff ? 1 : Allocations::kNever;
    forest->Add(block, std::move(leaf));
    allocations.failAfter = Allocations::kNever;
  }
  return forest;
}

// The state of what is there.
constexpr auto kBytes = [](const auto& pointer) { return pointer ? Save(*pointer) : Bytes(); };

template <class T>
constexpr auto kNone = [] { return std::unique_ptr<T>(); };

template <class Accumulator>
class Memory : public testing::Test {};
TYPED_TEST_SUITE(Memory, TypesOf<Accumulators>::Each);

TYPED_TEST(Memory, AccumulatorsAreAllOrNothing) {
  const auto empty = NewAccumulator<TypeParam>;
  const auto some = [] { return Some<TypeParam>(); };
  const auto weightless = [] { return Some<TypeParam>(kWeightlessSeed); };
  const Cases cases = CasesFor<TypeParam>(MixedCases(40));
  // A batch that a failure leaves half worked on is refilled by the host.
  const auto add = [&cases](std::size_t rows) {
    return [&cases, rows](auto& a) { *a += *BatchFor<TypeParam>(cases.Slice(0, rows)); };
  };
  const auto merge = [other = Some<TypeParam>(2)](auto& a) { *a += *other; };
  const auto saved = Save(*some());

  const int allocationsOfEmpty = ExpectAllOrNothing(
      "construct", kNone<TypeParam>, [&](auto& a) { a = empty(); }, kBytes);
  EXPECT_GT(allocationsOfEmpty, 0);
  ExpectAllOrNothing("first batch", empty, add(1), kBytes);
  ExpectAllOrNothing("larger batch", some, add(cases.rows.size()), kBytes);
  ExpectAllOrNothing("batch after no weight", weightless, add(5), kBytes);
  ExpectAllOrNothing("first merge", empty, merge, kBytes);
  ExpectAllOrNothing("later merge", some, merge, kBytes);
  ExpectAllOrNothing("merge after no weight", weightless, merge, kBytes);
  ExpectAllOrNothing(
      "save", [] { return Bytes(); }, [&](Bytes& b) { b = Save(*weightless()); },
      [](const Bytes& b) { return b; });
  ExpectAllOrNothing(
      "load", kNone<TypeParam>, [&](auto& a) { a = Load<TypeParam>(saved); }, kBytes);
  ExpectAllOrNothing(
      "refuse", kNone<TypeParam>,
      [&](auto&) {
        MessageOf<StateError>([&] { Load<TypeParam>(saved.data(), saved.size() - 1); });
      },
      kBytes);
}

TYPED_TEST(Memory, ForestsAreAllOrNothingOrPutMergesOff) {
  using ForestOfType = BlockForest<TypeParam>;
  const auto saved = Save(*Blocks<TypeParam>({0, 1, 2, 5}));
  ExpectAllOrNothing(
      "construct", kNone<ForestOfType>, [](auto& f) { f = Blocks<TypeParam>({}); }, kBytes);
  ExpectAllOrNothing(
      "load", kNone<ForestOfType>, [&](auto& f) { f = Load<ForestOfType>(saved); }, kBytes);
  for (const bool putsOff : {false, true}) {
    SCOPED_TRACE(putsOff);
    const auto three = [putsOff] { return Blocks<TypeParam>({0, 1, 2}, putsOff); };
    ExpectAllOrNothing(
        "add", three, [](auto& f) { f->Add(3, Some<TypeParam>(3)); }, kBytes);
    ExpectAllOrNothing(
        "refuse", three,
        [](auto& f) { MessageOf<std::invalid_argument>([&] { f->Add(2, Some<TypeParam>()); }); },
        kBytes);
    ExpectAllOrNothing(
        "merge",
        [&] {
          return std::pair(three(), Blocks<TypeParam>({3, 4, 5}, putsOff));
        },
        [](auto& both) { both.first->Merge(std::move(*both.second)); },
        [](const auto& both) { return std::pair(kBytes(both.first), kBytes(both.second)); });
    // What only reads a forest, but for the merges that it makes up for.
    const auto read = [&](const char* what, auto get) {
      ExpectAllOrNothing(
          what, [&] { return std::pair(three(), Bytes()); },
          [&](auto& pair) { pair.second = get(*pair.first); },
          [](const auto& pair) { return std::pair(kBytes(pair.first), pair.second); });
    };
    read("leaf", [](const ForestOfType& f) { return Save(*f.NewLeaf()); });
    read("result", [](const ForestOfType& f) { return Save(*f.Result()); });
    read("save", [](const ForestOfType& f) { return Save(f); });
  }
}

TYPED_TEST(Memory, TablesAreAccumulatedOrNot) {
  using ForestOfType = BlockForest<TypeParam>;
  const Watchdog watchdog;
  const CaseTable table(MixedCases(40), kColumns, {kMissing});
  const TableView view = table.View();
  const auto shape = NewAccumulator<TypeParam>();
  for (const int threads : {1, 2}) {
    SCOPED_TRACE(threads);
    ExpectAllOrNothing(
        "accumulate", kNone<ForestOfType>,
        [&](auto& f) {
          f = std::make_unique<ForestOfType>(Accumulate(view, *shape, {9, 0, threads, {}}));
        },
        kBytes);
  }
}

// Each step of a summary's life, the rows of which end within a block.
TEST(MemoryOf, Summaries) {
  const Watchdog watchdog;
  const MixedTable table(200);
  for (const MissingRule missing : {MissingRule::Pairwise, MissingRule::Listwise}) {
    const SummaryDefinition definition = MixedDefinition(missing, 2, true, true, 6);
    const auto make = [&](std::size_t from, std::size_t to) {
      auto summary = std::make_unique<Summary>(definition);
      summary->Update(table.View(definition, from, to), {1, {}});
      return summary;
    };
    const auto bytes = [](const auto& s) { return s ? s->Save() : Bytes(); };
    const auto some = [&] { return make(0, 10); };
    const auto other = make(10, 31);
    const Bytes saved = other->Save();
    ExpectAllOrNothing(
        "construct", kNone<Summary>, [&](auto& s) { s = make(0, 0); }, bytes);
    for (const std::size_t to : {11U, 60U, 200U}) {
      for (const int threads : {1, 2}) {
        ExpectAllOrNothing(
            "update", some,
            [&](auto& s) {
              s->Update(table.View(definition, 10, to), {threads, {}});
            },
            bytes);
      }
    }
    ExpectAllOrNothing(
        "merge", some, [&](auto& s) { s->Merge(*other); }, bytes);
    const auto replace = [&](const char* what, auto operation) {
      ExpectAllOrNothing(
          what, some, [&](auto& s) { *s = operation(*s); }, bytes);
    };
    replace("merge all", [&](Summary& s) { return Summary::MergeAll({&s, &*other, &s}); });
    replace("copy", [](Summary& s) { return s.Copy(); });
    replace("save and load", [](Summary& s) { return Summary::Load(s.Save()); });
    replace("load", [&](Summary& /*s*/) { return Summary::Load(saved); });
    ExpectAllOrNothing(
        "read", [&] { return std::pair(some(), std::vector<double>(6)); },
        [](auto& both) { both.first->Correlations(both.second.data(), 3); },
        [&](const auto& both) { return std::pair(bytes(both.first), Bits(both.second)); });
  }
}

TEST(MemoryOf, GroupSummaries) {
  const Watchdog watchdog;
  const MixedTable table(200);
  const SummaryDefinition common = MixedDefinition(MissingRule::Listwise, 0, true, false, 4);
  const GroupSummaryDefinition definition{common.columns, true, {}, true, 4};
  const std::string_view texts[] = {"a", "b", "c", "d", "a text that takes memory of its own"};
  std::vector<std::uint8_t> places;
  for (unsigned i = 0; i < 200; ++i) {
    places.push_back(static_cast<std::uint8_t>(i < 20 ? i % 2 : i * i % 5));
  }
  const auto update = [&](GroupSummary& summary, std::size_t from, std::size_t to, int threads) {
    const GroupView groups{ColumnView(places.data() + from), {std::begin(texts), std::end(texts)}};
    summary.Update(table.View(common, from, to), groups, {threads, {}});
  };
  const auto make = [&](std::size_t from, std::size_t to) {
    auto summary = std::make_unique<GroupSummary>(definition);
    update(*summary, from, to, 1);
    return summary;
  };
  const auto bytes = [](const auto& s) { return s ? s->Save() : Bytes(); };
  const auto some = [&] { return make(0, 20); };
  const auto other = make(20, 90);
  const Bytes saved = other->Save();
  ExpectAllOrNothing(
      "construct", kNone<GroupSummary>, [&](auto& s) { s = make(0, 0); }, bytes);
  ExpectAllOrNothing(
      "update", some, [&](auto& s) { update(*s, 20, 200, 1); }, bytes);
  ExpectAllOrNothing(
      "merge", some, [&](auto& s) { s->Merge(*other); }, bytes);
  ExpectAllOrNothing(
      "copy", some, [](auto& s) { *s = s->Copy(); }, bytes);
  ExpectAllOrNothing(
      "load", some, [&](auto& s) { *s = GroupSummary::Load(saved); }, bytes);
}

// Batches of one kind, which `make` makes, are seen through an accumulator that only reads them.
template <class Accumulator, class Make>
void ExpectBatchesAllOrNothing(const Make& make) {
  using Pointer = decltype(make());
  const auto observe = [](const Pointer& batch) {
    Accumulator accumulator(kGroups, kColumns);
    if constexpr (std::is_same_v<Accumulator, DiscIndividualMatrix>) {
      batch->SortByGroup();
    }
    accumulator += *batch;
    return Save(accumulator);
  };
  const CaseTable table(MixedCases(40), kColumns, {kMissing});
  const TableView view = table.View();
  const auto fill = [&view](Pointer& batch) { batch->AddColumns(view, 0, view.rows); };
  ExpectAllOrNothing(
      "construct", [] { return Pointer(); }, [&](Pointer& b) { b = make(); },
      [](const Pointer& b) { return b != nullptr; });
  ExpectAllOrNothing("fill", make, fill, observe);
  const std::int64_t tooExact = (std::int64_t{1} << 53U) + 1;
  TableView refused = view;
  refused.values[2] = ColumnView(&tooExact, 0);
  ExpectAllOrNothing(
      "refuse", make,
      [&](Pointer& b) { MessageOf<std::invalid_argument>([&] { b->AddColumns(refused, 0, 40); }); },
      observe);
  if constexpr (std::is_same_v<Accumulator, DiscIndividualMatrix>) {
    const auto full = [&] {
      Pointer batch = make();
      fill(batch);
      return batch;
    };
    ExpectAllOrNothing(
        "sort", full, [](Pointer& b) { b->SortByGroup(); },
        [](const Pointer& b) { return b->IsSorted(); });
  }
}

TEST(OutOfMemory, LeavesBatchesAsTheyWere) {
  static constexpr double kWeight = 1.;
  static constexpr unsigned int kGroup = 0;
  ExpectBatchesAllOrNothing<DiscriminantMatrix>(
      [] { return std::make_unique<DataBatch>(kColumns, 40, &kWeight, &kWeight, &kGroup); });
  ExpectBatchesAllOrNothing<DiscIndividualMatrix>([] {
    return std::make_unique<DataBatchByGroup>(kColumns, 40, &kWeight, &kWeight, &kGroup, kGroups);
  });
}

template <class Record, class Init, class See>
void ExpectRecordsAllOrNothing(const Init& init, const See& see) {
  const auto make = [] { return std::make_unique<Record>(); };
  const auto observe = [&](const auto& record) {
    return record ? see(*record) : std::vector<double>();
  };
  const auto source = make();
  init(*source);
  ExpectAllOrNothing(
      "construct", kNone<Record>, [&](auto& r) { r = make(); }, observe);
  ExpectAllOrNothing(
      "init", make, [&](auto& r) { init(*r); }, observe);
  ExpectAllOrNothing(
      "copy", kNone<Record>, [&](auto& r) { r.reset(source->Copy()); }, observe);
}

TEST(OutOfMemory, LeavesRecordsAsTheyWere) {
  const double x[] = {1., 2., 5., 7.};
  const double w[] = {1., 3., 4., 2.};
  ExpectRecordsAllOrNothing<VarStat>(
      [&](VarStat& v) {
        WorkArea area;
        v.Init(x, w, w, area, 4);
      },
      [](const VarStat& v) { return Fields(v); });
  ExpectRecordsAllOrNothing<PairStat>(
      [&](PairStat& p) {
        WorkArea area;
        p.Init(x, w, w, w, area, 4);
      },
      [](const PairStat& p) { return Fields(p); });
}

TEST(OutOfMemory, LeavesArraysAsTheyWere) {
  using Array = OwnedArray<double>;
  const auto array = [](double first) {
    Array a(3);
    std::fill_n(static_cast<double*>(a), 3, first);
    return a;
  };
  const auto first = [](const Array& a) { return a ? a[0] : 0.; };
  const Array source = array(2.);
  ExpectAllOrNothing(
      "construct", [] { return Array(); }, [&](Array& a) { a = array(1.); }, first);
  ExpectAllOrNothing(
      "copy", [&] { return array(1.); }, [&](Array& a) { a = Array(source); }, first);
  ExpectAllOrNothing(
      "temporary", [] { return 0.; },
      [](double& length) {
        auto_array<double, 2> a(3);
        length = static_cast<double>(a.end() - a.begin());
      },
      [](double length) { return length; });
}

// Accumulates cases on threads.
class Host : public ProblemBase {
 public:
  explicit Host(const Cases& cases) : _cases(cases) {}
  ProblemPartBase* CreatePart() override { return new Part(*this); }
  unsigned int Rows() const { return _sum.NRows(); }

 private:
  class Part : public ProblemPartBase {
   public:
    explicit Part(Host& all) : _all(all) {}
    bool ReadBatch() override {
      _from = _all._read;
      _all._read = std::min(_from + 4, _all._cases.rows.size());
      return _from < _all._read;
    }
    void AccumulateBatch() override { _part += *Batch(_all._cases.Slice(_from, _from + 4)); }
    void MergeResult() override { _all._sum += _part; }

   private:
    Host& _all;
    std::size_t _from = 0;
    SMatrixPairwise _part{kMissing};
  };

  const Cases& _cases;
  std::size_t _read = 0;
  SMatrixPairwise _sum{kMissing};
};

TEST(OutOfMemory, IsTheDriversErrorAndLeaksNothing) {
  const Watchdog watchdog;
  const Cases cases = MixedCases(40);
  for (const int threads : {1, 2}) {
    SCOPED_TRACE(threads);
    const auto run = [&](unsigned int& rows) {
      Host host(cases);
      velmor::Driver(&host, threads);
      rows = host.Rows();
    };
    ExpectAllOrNothing(
        "run", [] { return 0U; }, run, [](unsigned int rows) { return rows; });
  }
}

// Data without an end, or none. They need no memory.
class Endless : public ProblemBase {
 public:
  explicit Endless(bool hasData) : _hasData(hasData) {}
  ProblemPartBase* CreatePart() override { return new Part(_hasData); }

 private:
  class Part : public ProblemPartBase {
   public:
    explicit Part(bool hasData) : _hasData(hasData) {}
    bool ReadBatch() override { return _hasData; }
    void AccumulateBatch() override {}
    void MergeResult() override {}

   private:
    bool _hasData;
  };

  bool _hasData;
};

// The tasks that run when memory runs out for another one don't read on.
TEST(OutOfMemory, StopsTheDriverBeforeTheEndOfData) {
  const Watchdog watchdog;
  const auto run = [](bool hasData) {
    Endless problem(hasData);
    velmor::Driver(&problem, 3);
  };
  bool hasThrown = false;
  for (int allocation = 0; RunOutOfMemory(
           allocation, [&] { run(false); }, hasThrown);
       ++allocation) {
    SCOPED_TRACE(allocation);
    ASSERT_TRUE(hasThrown);
    RunOutOfMemory(
        allocation, [&] { run(true); }, hasThrown);
    EXPECT_TRUE(hasThrown);
  }
}

// A pairwise accumulator keeps little more than its records' numbers, and allocates nothing once it
// has seen its largest batch.
template <class Accumulator>
void ExpectThrift(const std::vector<int>& bounds, std::size_t pairs) {
  constexpr std::size_t kWide = 100;
  Cases cases;
  for (int i = 0; i < 1000; ++i) {
    cases.rows.emplace_back(kWide, i % 3 == 0 ? kMissing : i);
    cases.weights.push_back(1. + i);
  }
  cases.regWeights = cases.weights;
  const auto largest = Batch(cases);
  const auto smaller = Batch(cases.Slice(3, 9));
  const auto accumulator = MakeAccumulator<Accumulator>(kMissing, bounds);
  const auto copy = MakeAccumulator<Accumulator>(kMissing, bounds);
  const std::size_t most = 128 * (pairs + kWide);
  const std::size_t bytes = allocations.bytes;
  *accumulator += *largest;
  EXPECT_LE(allocations.bytes - bytes, most);
  const std::size_t count = allocations.count + allocations.scratch;
  *accumulator += *largest;
  *accumulator += *smaller;
  EXPECT_EQ(allocations.count + allocations.scratch, count);
  *copy += *accumulator;
  EXPECT_LE(allocations.bytes - bytes, 2 * most);
}

TEST(PairwiseMemory, IsAsPromisedAndTakenOnceForTheLargestBatch) {
  ExpectThrift<SMatrixPairwise>({0, 100}, 4950);
  ExpectThrift<NSMatrixPairwise>({0, 45, 100}, 2475);
  ExpectThrift<MatrixPairwise>({}, 4950);
}

// A few columns against many take scratch memory for these columns, not for all pairs of the many,
// whatever cases they lack.
TEST(PairwiseMemory, IsSmallForFewColumnsAgainstMany) {
  constexpr int kMany = 4000;
  constexpr int kRows = 64;
  // The columns of a class lack the same two cases.
  int (*const classes[])(int column) = {
      [](int) { return -1; }, [](int column) { return column; },
      [](int column) { return column / 3; },
      [](int column) { return column % 2 == 0 ? column / 6 : 1000 + column / 2; }};
  for (const auto classOf : classes) {
    Cases cases;
    for (int row = 0; row < kRows; ++row) {
      auto& values = cases.rows.emplace_back();
      for (int column = 0; column < kMany; ++column) {
        const int k = classOf(column);
        const bool isMissing = k >= 0 && (k % kRows == row || k / kRows == row);
        values.push_back(isMissing ? kMissing : row % 7 + column);
      }
    }
    const auto batch = Batch(cases);
    for (const int first : {1, kMany - 1}) {
      OnNewThread([&] {
        const std::size_t bytes = allocations.scratchBytes;
        NSMatrixPairwise rectangle(kMissing, 0, first, kMany);
        rectangle += *batch;
        EXPECT_LE(allocations.scratchBytes - bytes, std::size_t{8192} * kMany);
      });
    }
  }
}

// What the pool takes it runs and destroys; what it does not take stays the caller's.
struct Tasks {
  Tasks() = default;
  Tasks(const Tasks&) = delete;
  Tasks& operator=(const Tasks&) = delete;
  ~Tasks() { EXPECT_EQ(run, taken); }

  tkCompleteTask complete{0};
  std::atomic<int> run{0};
  int taken = 0;
};

class Task : public CallBackObject {
 public:
  explicit Task(Tasks& all) : CallBackObject(nullptr), _all(all) {}
  int callback(void* /*data*/) override {
    ++_all.run;
    _all.complete.completeOperation();
    return 0;
  }

 private:
  Tasks& _all;
};

TEST(OutOfMemory, LosesNoTaskOfThePool) {
  const Watchdog watchdog;
  constexpr int kTasks = 100;  // more than a queue has room for at first
  const auto runAll = [](int& run) {
    Tasks tasks;
    tasks.complete.set(kTasks);
    tkThreadPool pool(2, 0);
    pool.init();
    pool.startAll();
    while (tasks.taken < kTasks) {
      auto task = std::make_unique<Task>(tasks);
      pool.invoke(task.get(), nullptr, ThreadScope::owned);
      static_cast<void>(task.release());
      ++tasks.taken;
    }
    tasks.complete.waitAll();
    run = tasks.run;
  };
  ExpectAllOrNothing(
      "run", [] { return 0; }, runAll, [](int run) { return run; });
}

}  // namespace
}  // namespace velmor::test
