// accumulate.cpp: a table's blocks, run through Driver into a forest; start at Accumulate.
#include <velmor/accumulate.h>
#include <velmor/databatch.h>
#include <velmor/databatchbygroup.h>
#include <velmor/driver.h>

#include "abreast/listwise.h"
#include "abreast/pairwise.h"
#include "abreast/plan.h"
#include "accumulators.h"
#include "forest.h"
#include "ordered/engine.h"
#include "record/internals.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <exception>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>
#include <utility>

namespace velmor {

// Zen 5, weighted cases, 10^9 cells a second in blocks of 248 and 504 rows side by side and of 1
// MiB one by one: 24 columns 11.7, 12.5, 9.8; 48: 17.8, 19.3, 17.4; 64: 21.9, 23.6, 20.9;
// 96: 24.9, 25.9,
// 25. Pairs with a tenth missing: 12 columns 1.8, 2.0, 1.2; 48: 3.2, 3.7, 3.6. Pairs of columns
// that lack the same cases in eights are slower than in larger blocks: 24 columns 4.3 and not 5.6,
// 48: 4.9 and not 6.9.
std::uint64_t DefaultBlockRows(std::size_t columns) {
  constexpr std::size_t kFewColumns = 64;
  constexpr std::size_t kRowsOfFewColumns = 504;
  VELMOR_ASSERT(0 < columns);
  return columns <= kFewColumns ? kRowsOfFewColumns : DefaultBlockRowsByGroup(columns);
}

std::uint64_t DefaultBlockRowsByGroup(std::size_t columns) {
  constexpr std::size_t kValues = std::size_t{1} << 17U;
  constexpr std::size_t kFewestRows = 512;
  VELMOR_ASSERT(0 < columns);
  return std::max(kValues / columns, kFewestRows);
}

namespace {

// Throws std::invalid_argument unless an empty accumulator of the shape can take the table's
// columns.
void CheckTable(const TableView& table, const Shape& shape) {
  const auto columns = static_cast<std::int64_t>(table.values.size());
  const auto refuse = [](const std::string& what) {
    throw std::invalid_argument("the table does not fit the accumulator: " + what);
  };
  if (columns == 0 || columns > std::numeric_limits<std::int32_t>::max()) {
    refuse("it has " + std::to_string(columns) + " columns of values");
  }
  if (!shape.IsPossible() || (shape.IsByGroup() && shape.IsOpen())) {
    refuse("no table has the accumulator's bounds");
  }
  if (shape.IsByGroup() && !table.groups) {
    refuse("it has no column of groups");
  }
  const std::int64_t needed = shape.IsByGroup() ? shape.bounds[1]
                              : shape.IsOpen()  ? std::int64_t{shape.bounds[0]} + 1
                                                : shape.bounds[2];
  if (columns < needed || (shape.IsByGroup() && columns != needed)) {
    refuse("it has " + std::to_string(columns) + " columns of values, not " +
           std::to_string(needed));
  }
}

// A thread's batch, of the kind that the accumulator takes.
class TableBatch {
 public:
  TableBatch(const TableView& table, const Shape& shape, unsigned int rows)
      : _table(table), _shape(shape) {
    const auto columns = static_cast<unsigned int>(table.values.size());
    const double* const weight = table.weights ? &kWeight : nullptr;
    const double* const regWeight = table.regWeights ? &kWeight : nullptr;
    const unsigned int* const group = table.groups ? &kGroup : nullptr;
    if (shape.kind == Kind::DiscIndividualMatrix) {
      _byGroup.emplace(columns, rows, weight, regWeight, group, NGroups());
    } else {
      _batch.emplace(columns, rows, weight, regWeight, group);
    }
  }

  // Accumulates rows [from, to) of the table.
  template <class Accumulator>
  void AccumulateRows(std::uint64_t from, std::uint64_t to, Accumulator& accumulator) {
    if constexpr (requires { accumulator += *_byGroup; }) {
      if (_byGroup) {
        _byGroup->Clear();
        _byGroup->AddColumns(_table, from, to);
        _byGroup->SortByGroup();
        accumulator += *_byGroup;
        return;
      }
    }
    _batch->Clear();
    _batch->AddColumns(_table, from, to,
                       _shape.IsPairwise() ? std::optional(_shape.missingCode) : std::nullopt,
                       _shape.IsByGroup() ? NGroups() : DataBatch::kMostGroups);
    accumulator += *_batch;
  }

 private:
  unsigned int NGroups() const { return static_cast<unsigned int>(_shape.bounds[0]); }

  // Where a host that adds rows one by one keeps the current one's. Never read here.
  static constexpr double kWeight = 1.;
  static constexpr unsigned int kGroup = 0;

  const TableView& _table;
  const Shape& _shape;
  std::optional<DataBatch> _batch;
  std::optional<DataBatchByGroup> _byGroup;
};

template <class Accumulator>
class Run : public ProblemBase {
 public:
  Run(const TableView& table, const Shape& shape, const AccumulateOptions& options,
      BlockForest<Accumulator>& forest)
      : _table(table),
        _shape(shape),
        _options(options),
        _forest(forest),
        _blockRows(forest.BlockRows()),
        _blocks(table.rows / _blockRows + (table.rows % _blockRows == 0 ? 0 : 1)) {
    VELMOR_ASSERT(_blocks <= kMostBlocks && options.firstBlock <= kMostBlocks - _blocks);
    if (!shape.IsByGroup()) {
      _table.groups.reset();  // which it would not use
    }
    if (_closedShape.IsOpen()) {
      _closedShape.bounds[2] = static_cast<std::int32_t>(table.values.size());
    }
  }

  ProblemPartBase* CreatePart() override {
    ++_parts;
    return new Part(*this);
  }

  // Throws unless all went well.
  void CheckEnd() const {
    if (_error) {
      std::rethrow_exception(_error);
    }
    if (_forest.NBlocks() != _blocks) {
      throw std::runtime_error("the host ended the run after " + std::to_string(_forest.NBlocks()) +
                               " of " + std::to_string(_blocks) + " blocks");
    }
  }

 private:
  struct Claimed {
    std::uint64_t first;
    unsigned blocks;
    const ordered::Engine* engine;  // that takes them side by side; null: one by one
  };

  class Part : public ProblemPartBase {
   public:
    explicit Part(Run& run)
        : _run(run),
          _batch(run._table, run._shape,
                 static_cast<unsigned int>(
                     std::clamp<std::uint64_t>(run._table.rows, 1, run._blockRows))) {}

    // An error is kept for Accumulate's caller: the driver would tell the host of a NorvGoToCaller.
    bool ReadBatch() override {
      try {
        _claimed = _run.Claim();
        return _claimed.blocks != 0;
      } catch (...) {
        _run.TakeError(_run._next);
        return false;
      }
    }

    void AccumulateBatch() override {
      try {
        if (_claimed.engine == nullptr) {
          AccumulateBlocks(_claimed.blocks);
        } else if (_run._shape.IsPairwise()) {
          AccumulateGroups<PairwiseBlocks>();
        } else {
          AccumulateGroups<ListwiseBlocks>();
        }
      } catch (...) {
        _run.TakeError(_claimed.first);
      }
    }

    void MergeResult() override {}

   private:
    void Pass(unsigned count) {
      _claimed.first += count;
      _claimed.blocks -= count;
    }

    // The first `count` of the blocks claimed, one by one.
    void AccumulateBlocks(unsigned count) {
      for (; count > 0; --count) {
        const std::uint64_t block = _claimed.first;
        std::unique_ptr<Accumulator> leaf = _run._forest.NewLeaf();
        _batch.AccumulateRows(_run.FirstRow(block), _run.FirstRow(block + 1), *leaf);
        _run._forest.Add(_run._options.firstBlock + block, std::move(leaf));
        Pass(1);
      }
    }

    // All blocks claimed, in groups side by side. A group in which a value can't be taken goes one
    // by one, which tells the first such value.
    template <class Blocks>
    void AccumulateGroups() {
      const unsigned lanes = _claimed.engine->lanes;
      Blocks blocks(*_claimed.engine, _run._table, _run._closedShape, _run._blockRows);
      while (_claimed.blocks > 0) {
        if (blocks.Accumulate(_run.FirstRow(_claimed.first), _claimed.blocks > lanes)) {
          InsertGroup(blocks, lanes);
          Pass(lanes);
        } else {
          AccumulateBlocks(lanes);
        }
      }
    }

    template <class Blocks>
    void InsertGroup(Blocks& blocks, unsigned lanes) {
      const std::uint64_t first = _run._options.firstBlock + _claimed.first;
      if (blocks.Merge()) {
        Insert({first, static_cast<unsigned int>(std::countr_zero(lanes))}, blocks.Block(0));
        return;
      }
      for (unsigned lane = 0; lane < lanes; ++lane) {
        Insert({first + lane, 0}, blocks.Block(lane));
      }
    }

    // Adds the statistics of these blocks to the forest, as their node.
    template <class Totals>
    void Insert(BlockRange blocks, const Totals& totals) {
      Internals::DataOf(_run._forest)
          .Insert(blocks, totals.rows == 0 ? _run._forest.NewLeaf()
                                           : StateOf<Accumulator>::Of(_run._closedShape, totals));
    }

    Run& _run;
    TableBatch _batch;
    Claimed _claimed{};
  };

  std::uint64_t FirstRow(std::uint64_t block) const {
    return block < _blocks ? block * _blockRows : _table.rows;
  }

  // Claims the next block, or some groups that are taken side by side; none when none is left or
  // wanted.
  Claimed Claim() {
    if (HasError()) {
      return {};
    }
    if (_next == _blocks) {
      ReportProgress(_next);
      return {};
    }
    const std::uint64_t whole = _table.rows / _blockRows - _next;
    const ordered::Engine* const engine = _plan.EngineFor(_options.firstBlock + _next, whole);
    const unsigned count = engine != nullptr ? engine->lanes * Groups(whole / engine->lanes) : 1;
    for (unsigned i = 0; i < count; ++i) {
      ReportProgress(_next + i);
    }
    return {std::exchange(_next, _next + count), count, engine};
  }

  // How many of the groups that are left a thread claims: several, since the values of the next one
  // are asked for ahead of time, but so few that all threads end together.
  unsigned Groups(std::uint64_t left) const {
    constexpr std::uint64_t kMost = 8;
    return static_cast<unsigned>(
        std::clamp<std::uint64_t>(left / (std::uint64_t{2} * _parts), 1, kMost));
  }

  // Before a block is taken, or when none is left.
  void ReportProgress(std::uint64_t block) const {
    const std::uint64_t rows = FirstRow(block);
    if (_options.progress && !_options.progress(rows)) {
      throw Cancelled("the run was cancelled after " + std::to_string(rows) + " of " +
                      std::to_string(_table.rows) + " rows");
    }
  }

  bool HasError() {
    const std::lock_guard lock(_errorMutex);
    return _error != nullptr;
  }

  // Keeps the current exception if its block, or the block that was to be claimed, is the first
  // that has one. Blocks are claimed in order and those claimed are finished, so that is the first
  // in the table, on any number of threads.
  void TakeError(std::uint64_t block) {
    const std::lock_guard lock(_errorMutex);
    if (!_error || block < _errorBlock) {
      _error = std::current_exception();
      _errorBlock = block;
    }
  }

  TableView _table;
  const Shape& _shape;
  Shape _closedShape = _shape;  // with bounds
  const AccumulateOptions& _options;
  BlockForest<Accumulator>& _forest;
  std::uint64_t _blockRows;
  std::uint64_t _blocks;
  AbreastPlan _plan{_table, _shape, _blockRows};
  std::uint64_t _next = 0;  // block, under the driver's read lock
  std::atomic<unsigned> _parts = 0;
  std::mutex _errorMutex;  // around the next two
  std::exception_ptr _error;
  std::uint64_t _errorBlock = 0;
};

}  // namespace

template <class Accumulator>
BlockForest<Accumulator> Accumulate(const TableView& table, const Accumulator& shape,
                                    const AccumulateOptions& options) {
  const Shape shapeOfAll = EmptyShapeOf(shape);
  CheckTable(table, shapeOfAll);
  const std::uint64_t blockRows = options.blockRows != 0 ? options.blockRows
                                  : shapeOfAll.IsByGroup()
                                      ? DefaultBlockRowsByGroup(table.values.size())
                                      : DefaultBlockRows(table.values.size());
  VELMOR_ASSERT(blockRows <= std::numeric_limits<unsigned int>::max());
  BlockForest<Accumulator> forest(blockRows, shape);
  Run<Accumulator> run(table, shapeOfAll, options, forest);
  Driver(&run, options.threads);
  run.CheckEnd();
  return forest;
}

namespace {

template <class Accumulator>
using Accumulates = BlockForest<Accumulator> (*)(const TableView&, const Accumulator&,
                                                 const AccumulateOptions&);

template <class... Accumulators>
constexpr auto AccumulateFunctions(ClassList<Accumulators...> /*all*/) {
  return std::tuple(Accumulates<Accumulators>(Accumulate)...);
}

[[gnu::used]] constexpr auto kAccumulateFunctions = AccumulateFunctions(AllAccumulators());

}  // namespace

}  // namespace velmor
