// sequence.cpp: rows into blocks, and blocks into forests; start at Sequence::Update::Add.
#include "summary/sequence.h"

#include <velmor/accumulate.h>
#include <velmor/state.h>

#include "forest.h"
#include "record/internals.h"
#include "summary/definition.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>

namespace velmor {

// Says once how many of a table's rows have been taken.
class Sequence::Update::Report {
 public:
  Report(const TableView& table, const UpdateOptions& options) : _table(table), _options(options) {}

  bool IsWanted() const { return static_cast<bool>(_options.progress); }
  void operator()(std::uint64_t rows) {
    const bool isNew = std::exchange(_reported, rows) != rows;
    if (isNew && IsWanted() && !_options.progress(rows)) {
      throw Cancelled("the update was cancelled after " + std::to_string(rows) + " of " +
                      std::to_string(_table.rows) + " rows");
    }
  }

 private:
  const TableView& _table;
  const UpdateOptions& _options;
  std::uint64_t _reported = ~std::uint64_t{0};
};

Sequence::Update::Update(Sequence& rows)
    : _rows(rows),
      _stage(rows._stage.GetEnd()),
      _usedBefore(rows._stage.NUsed()),
      _blocks(rows._forests.back().NBlocks()) {}

Sequence::Update::~Update() {
  if (!_isDone) {
    _rows._stage.GoBackTo(_stage);
    _rows._spare.Clear();
  }
}

// The rows that go with those on the stage, whole stages of blocks, and the rows behind these.
void Sequence::Update::Add(const TableView& table, const UpdateOptions& options) {
  Report report(table, options);
  report(0);
  std::uint64_t next = FillStage(table);
  if (Current().NRows() == 0) {
    next = TakeStages(table, next, options.threads, report);
  }
  Current().Append(table, next, table.rows);
  report(table.rows);
}

// Adds rows to those on a stage, if there are any. A full stage is accumulated. Returns the number
// of rows taken.
std::uint64_t Sequence::Update::FillStage(const TableView& table) {
  Stage& stage = Current();
  if (stage.NRows() == 0) {
    return 0;
  }
  const std::uint64_t end = std::min(table.rows, stage.MostRows() - stage.NRows());
  stage.Append(table, 0, end);
  if (stage.NRows() == stage.MostRows()) {
    std::vector<std::uint8_t> isUsed;
    Keep(_rows.Accumulated(stage.View(isUsed), _blocks, {1, {}}), stage.NBlocks());
    if (_isStageTaken) {
      stage.Clear();
    }
    _isStageTaken = true;  // and is left as it is until the end
  }
  return end;
}

// Takes the blocks that fill whole stages, straight from the table. Returns the row behind them.
std::uint64_t Sequence::Update::TakeStages(const TableView& table, std::uint64_t next, int threads,
                                           Report& report) {
  const std::uint64_t blockRows = _rows._definition->blockRows;
  const std::uint64_t stageBlocks = _rows._stage.NBlocks();
  for (;;) {
    const std::uint64_t whole = (table.rows - next) / blockRows / stageBlocks * stageBlocks;
    const std::uint64_t blocks = std::min(whole, _rows._forestBlocks - _blocks);
    if (blocks == 0) {
      return next;
    }
    TableView rows = RowsFrom(table, next);
    rows.rows = blocks * blockRows;
    UpdateOptions options{threads, {}};
    bool isReporting = false;  // still, when it was left by an exception
    if (report.IsWanted()) {
      options.progress = [&](std::uint64_t done) {
        isReporting = true;
        report(next + done);
        isReporting = false;
        return true;
      };
    }
    try {
      Keep(_rows.Accumulated(rows, _blocks, options), blocks);
    } catch (const std::invalid_argument&) {
      if (isReporting) {
        throw;  // the host's, or about a weight
      }
      ThrowRefusal(*_rows._definition, table, next, next + rows.rows);
      throw;
    }
    next += rows.rows;
  }
}

// Keeps the forest of the next blocks.
void Sequence::Update::Keep(Forest forest, std::uint64_t blocks) {
  if (_forests.empty()) {
    _forests.push_back(_rows.NewForest());
  }
  _usedOfForests += forest.NRows();
  _forests.back().Merge(std::move(forest));
  _blocks += blocks;
  if (_blocks == _rows._forestBlocks) {
    _forests.push_back(_rows.NewForest());
    _blocks = 0;
  }
}

std::uint64_t Sequence::Update::NUsed() const {
  const Stage& current = _isStageTaken ? _rows._spare : _rows._stage;
  return _usedOfForests + current.NUsed() - _usedBefore;
}

void Sequence::Update::Prepare() {
  _rows._forests.reserve(_rows._forests.size() + _forests.size());
}

// The forests belong to each other, so that their merge has nothing to refuse, and it takes no
// memory but for merges of nodes, which can be put off.
void Sequence::Update::Commit() noexcept {
  if (!_forests.empty()) {
    _rows._forests.back().Merge(std::move(_forests.front()));
    std::move(_forests.begin() + 1, _forests.end(), std::back_inserter(_rows._forests));
  }
  if (_isStageTaken) {
    std::swap(_rows._stage, _rows._spare);
    _rows._spare.Clear();
  }
  _isDone = true;
}

Sequence::Sequence(const SummaryDefinition& definition, Parts parts)
    : _definition(&definition),
      _forestBlocks(std::bit_floor(kMostPartRows / definition.blockRows)),
      _parts(std::move(parts)),
      _stage(definition),
      _spare(definition) {
  _forests.push_back(NewForest());
}

Sequence Sequence::Copy(const SummaryDefinition& definition) const {
  Sequence copy(definition, _parts.Copy(definition));
  copy._forests.clear();
  for (const Forest& forest : _forests) {
    const std::vector<std::byte> state = Save(forest);
    copy._forests.push_back(std::move(*Load<Forest>(state.data(), state.size())));
  }
  if (_stage.NRows() != 0) {
    std::vector<std::uint8_t> isUsed;
    copy._stage.Append(_stage.View(isUsed), 0, _stage.NRows());
  }
  return copy;
}

Parts Sequence::Close() const {
  Parts closed = _parts.Copy(*_definition);
  for (const Forest& forest : _forests) {
    std::unique_ptr<MatrixBase> behind = NewAccumulator(*_definition);
    if (&forest == &_forests.back() && _stage.NRows() != 0) {
      std::vector<std::uint8_t> isUsed;
      const Forest last = Accumulated(_stage.View(isUsed), forest.NBlocks(), {1, {}});
      behind = Internals::DataOf(last).Fold(std::move(behind));
    }
    closed.Append(Internals::DataOf(forest).Fold(std::move(behind)));
  }
  return closed;
}

Sequence::Forest Sequence::NewForest() const {
  return {_definition->blockRows, *NewAccumulator(*_definition)};
}

Sequence::Forest Sequence::Accumulated(const TableView& table, std::uint64_t firstBlock,
                                       const UpdateOptions& options) const {
  AccumulateOptions all;
  all.blockRows = _definition->blockRows;
  all.firstBlock = firstBlock;
  all.threads = options.threads;
  all.progress = options.progress;
  return Accumulate(table, *NewAccumulator(*_definition), all);
}

}  // namespace velmor
