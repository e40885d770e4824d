// sequence.cpp: rows into blocks, and blocks into forests; start at Sequence::Take.
#include "summary/sequence.h"

#include <velmor/accumulate.h>
#include <velmor/state.h>

#include "forest.h"
#include "record/internals.h"
#include "summary/definition.h"

#include <algorithm>
#include <bit>
#include <stdexcept>
#include <string>
#include <utility>

namespace velmor {

// Rows on their way. What is built is kept aside until nothing can fail any more.
class Sequence::Update {
 public:
  Update(Sequence& rows, const TableView& table, const UpdateOptions& options)
      : _rows(rows),
        _table(table),
        _options(options),
        _stage(rows._stage.GetEnd()),
        _blocks(rows._forests.back().NBlocks()) {
    _forests.push_back(rows.NewForest());
  }
  ~Update() {
    if (!_isDone) {
      _rows._stage.GoBackTo(_stage);
      _rows._spare.Clear();
    }
  }
  Update(const Update&) = delete;
  Update& operator=(const Update&) = delete;

  // The rows that go with those on the stage, whole stages of blocks, and the rows behind these.
  std::uint64_t TakeAll() {
    const std::uint64_t before = _rows._stage.NUsed();
    Report(0);
    if (_rows._stage.NRows() != 0) {
      FillStage();
    }
    TakeStages();
    Stage& next = _isStageTaken ? _rows._spare : _rows._stage;
    next.Append(_table, _next, _table.rows);
    Report(_table.rows);
    Finish();
    return _usedOfForests + _rows._stage.NUsed() - before;
  }

 private:
  // Says once how many rows have been taken.
  void Report(std::uint64_t rows) {
    const bool isNew = std::exchange(_reported, rows) != rows;
    if (isNew && _options.progress && !_options.progress(rows)) {
      throw Cancelled("the update was cancelled after " + std::to_string(rows) + " of " +
                      std::to_string(_table.rows) + " rows");
    }
  }

  // Adds to the rows on the stage. A full stage is accumulated, and left as it is until the end.
  void FillStage() {
    Stage& stage = _rows._stage;
    const std::uint64_t end = std::min(_table.rows, stage.MostRows() - stage.NRows());
    stage.Append(_table, 0, end);
    _next = end;
    if (stage.NRows() < stage.MostRows()) {
      return;
    }
    std::vector<std::uint8_t> isUsed;
    Keep(_rows.Accumulated(stage.View(isUsed), _blocks, {1, {}}), stage.NBlocks());
    _isStageTaken = true;
  }

  // Takes the blocks that fill whole stages, straight from the table.
  void TakeStages() {
    const std::uint64_t blockRows = _rows._definition->blockRows;
    const std::uint64_t stageBlocks = _rows._stage.NBlocks();
    if (_rows._stage.NRows() != 0 && !_isStageTaken) {
      return;
    }
    for (;;) {
      const std::uint64_t whole = (_table.rows - _next) / blockRows / stageBlocks * stageBlocks;
      const std::uint64_t blocks = std::min(whole, _rows._forestBlocks - _blocks);
      if (blocks == 0) {
        return;
      }
      TableView rows = RowsFrom(_table, _next);
      rows.rows = blocks * blockRows;
      UpdateOptions options{_options.threads, {}};
      if (_options.progress) {
        options.progress = [this](std::uint64_t done) {
          Report(_next + done);
          return true;
        };
      }
      try {
        Keep(_rows.Accumulated(rows, _blocks, options), blocks);
      } catch (const std::invalid_argument&) {
        ThrowRefusal(_next, _next + rows.rows);
        throw;
      }
      _next += rows.rows;
    }
  }

  // Throws what is said of the first of these rows that can't be taken, by its number in the table.
  void ThrowRefusal(std::uint64_t from, std::uint64_t to) const {
    Stage stage(*_rows._definition);
    for (; from < to; from += stage.MostRows()) {
      stage.Clear();
      stage.Append(_table, from, std::min(to, from + stage.MostRows()));
    }
  }

  // Keeps the forest of the next blocks.
  void Keep(Forest&& forest, std::uint64_t blocks) {
    _usedOfForests += forest.NRows();
    _forests.back().Merge(std::move(forest));
    _blocks += blocks;
    if (_blocks == _rows._forestBlocks) {
      _forests.push_back(_rows.NewForest());
      _blocks = 0;
    }
  }

  // The last step that can fail is the merge, which does all or nothing.
  void Finish() {
    std::vector<Forest>& forests = _rows._forests;
    forests.reserve(forests.size() + _forests.size() - 1);
    forests.back().Merge(std::move(_forests.front()));
    std::move(_forests.begin() + 1, _forests.end(), std::back_inserter(forests));
    if (_isStageTaken) {
      std::swap(_rows._stage, _rows._spare);
      _rows._spare.Clear();
    }
    _isDone = true;
  }

  Sequence& _rows;
  const TableView& _table;
  const UpdateOptions& _options;
  Stage::End _stage;             // of the stage, before
  std::vector<Forest> _forests;  // blocks to be merged into the last forest, then further forests
  std::uint64_t _blocks;         // in the forest that the next ones belong to
  std::uint64_t _next = 0;       // row to be taken
  std::uint64_t _usedOfForests = 0;
  std::uint64_t _reported = ~std::uint64_t{0};  // rows
  bool _isStageTaken = false;                   // the stage's rows are in the forests
  bool _isDone = false;
};

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

std::uint64_t Sequence::Take(const TableView& table, const UpdateOptions& options) {
  return Update(*this, table, options).TakeAll();
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
