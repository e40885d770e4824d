// tablecopy.cpp: rows of a host's table into a batch; start at CopyRows.
#include "table/tablecopy.h"

#include <velmor/assertion.h>

#include "ordered/fill.h"
#include "ordered/floatenvironment.h"
#include "ordered/workspace.h"
#include "table/columnvalues.h"
#include "table/demands.h"

#include <algorithm>
#include <array>
#include <bit>
#include <span>
#include <stdexcept>
#include <string>

namespace velmor {
namespace {

// Rows are taken a stretch at a time, column by column: pieces of 32 KiB are long enough to be
// copied at the speed of memory. Columns that are side by side are taken together, in pieces of a
// stretch that go through all steps while they are in the second-level cache; so are the stretches
// themselves for a batch that keeps rows.
constexpr std::size_t kMostStretchRows = 4096;
constexpr std::size_t kMostPieceRows = 512;
constexpr std::size_t kPieceValues = std::size_t{1} << 15U;

// A multiple of 64, so that a piece's bits begin with a word.
std::size_t PieceRows(std::size_t columns) {
  return std::clamp(kPieceValues / columns / 64 * 64, std::size_t{64}, kMostPieceRows);
}

using StretchBits = std::array<std::uint64_t, kMostStretchRows / 64>;

class RowCopy {
 public:
  RowCopy(const TableView& table, const BatchRows& batch)
      : _table(table),
        _batch(batch),
        _demands{batch.groupBound, batch.missingCode},
        _valueRole(batch.missingCode ? Role::CodedValue : Role::Value),
        _copiesRows(batch.isByRow && batch.columns > 1 &&
                    SideBySide(table.values) == batch.columns),
        _stretchRows(batch.isByRow ? PieceRows(batch.columns) : kMostStretchRows),
        _groups(_workspace.Take<double>(table.groups ? _stretchRows : 0)),
        _kept(_workspace.Take<std::uint16_t>(_stretchRows)) {
    if (_batch.isByRow) {
      // Columns of their own. A cache line more than the rows need, as columns whose distance is a
      // power of two would share their sets of a cache.
      const std::size_t stride = _stretchRows + 8;
      _columns = {_workspace.Take<double>(stride * batch.columns), stride, batch.columns};
      _columnAddresses = _workspace.Take<const double*>(batch.columns);
      for (std::size_t i = 0; i < batch.columns; ++i) {
        _columnAddresses[i] = _columns[i];
      }
    }
  }

  std::size_t StretchRows() const { return _stretchRows; }

  // Copies up to StretchRows() rows to row `at` of the batch and behind it. Returns how many.
  std::size_t Copy(RowRange rows, std::size_t at) {
    if (!_batch.isByRow) {
      _columns = {_batch.values + at, _batch.maxRows, _batch.columns};
    }
    _leftOut = {};
    _refused = {};
    ForEachOther(at, [&](const ColumnView& column, Role role, const char* /*name*/, double* to) {
      Read({&column, 1}, role, rows, {to, 0, 1});
    });
    if (!_copiesRows || std::any_of(_table.values.begin(), _table.values.end(), HasMarks)) {
      const std::span<const ColumnView> columns = _table.values;
      for (std::size_t i = 0, count = 0; i < columns.size(); i += count) {
        count = SideBySide(columns.subspan(i));
        Read(columns.subspan(i, count), _valueRole, rows, {_columns[i], _columns.stride, count});
      }
    }
    ThrowIfRefused(rows.first);
    const std::size_t kept = LeaveOut(rows.count, at);
    if (_copiesRows) {
      for (std::size_t i = 0; i < kept; ++i) {
        const std::size_t row = kept < rows.count ? _kept[i] : i;
        std::copy_n(ValuesOfRow(_table.values[0], rows.first + row), _batch.columns,
                    _batch.values + (at + i) * _batch.columns);
      }
    } else if (_batch.isByRow) {
      ordered::Transpose(_columnAddresses, _columns.count,
                         {_batch.values + at * _batch.columns, _batch.columns, kept});
    }
    if (_table.groups) {
      std::transform(_groups, _groups + kept, _batch.groups + at,
                     [](double group) { return static_cast<unsigned int>(group); });
    }
    return kept;
  }

 private:
  // Calls visit(column, role, name, where its values go) for the weights and groups that there are.
  template <class Visit>
  void ForEachOther(std::size_t at, Visit visit) const {
    if (_table.weights) {
      visit(*_table.weights, Role::Weight, "case weights", _batch.weights + at);
    }
    if (_table.regWeights) {
      visit(*_table.regWeights, Role::Weight, "regression weights", _batch.regWeights + at);
    }
    if (_table.groups) {
      visit(*_table.groups, Role::Group, "groups", _groups);
    }
  }

  // Reads columns that are side by side, finds out which rows are to be left out or refused because
  // of them, and codes what is absent.
  void Read(std::span<const ColumnView> columns, Role role, RowRange rows, ordered::Columns to) {
    const std::size_t pieceRows =
        columns.size() == 1 ? kMostStretchRows : PieceRows(columns.size());
    for (std::size_t from = 0; from < rows.count; from += pieceRows) {
      const RowRange piece{rows.first + from, std::min(pieceRows, rows.count - from)};
      ReadColumns(columns, piece, {to.first + from, to.stride, to.count});
      for (std::size_t i = 0; i < columns.size(); ++i) {
        Examine(columns[i], role, piece, from / 64, to[i] + from);
      }
    }
  }

  //   word  of the stretch's bits, the first of the piece
  void Examine(const ColumnView& column, Role role, RowRange piece, std::size_t word,
               double* values) {
    const bool canBeUnfit =
        role == Role::CodedValue || role == Role::Group || IsOf64BitIntegers(column);
    if (!canBeUnfit && !HasMarks(column)) {
      return;  // a tenth of the time that copying the column takes
    }
    const std::size_t words = (piece.count + 63) / 64;
    StretchBits absent;  // NOLINT(*-member-init): as many words are set as are used
    StretchBits unfit;   // NOLINT(*-member-init)
    std::fill_n(absent.begin(), words, 0);
    std::fill_n(unfit.begin(), words, 0);
    MarkAbsent(column, piece, values, absent.data());
    _demands.MarkUnfit(column, role, piece.count, values, unfit.data());
    const bool isCoded = role == Role::CodedValue;
    for (std::size_t i = 0; i < words; ++i) {
      _refused[word + i] |= unfit[i] & ~absent[i];
      if (!isCoded) {
        _leftOut[word + i] |= absent[i];
      } else if (!_demands.CodeIsNumber()) {
        _refused[word + i] |= absent[i];
      }
      for (std::uint64_t bits = isCoded ? absent[i] : 0; bits != 0; bits &= bits - 1) {
        values[64 * i + static_cast<std::size_t>(std::countr_zero(bits))] = *_batch.missingCode;
      }
    }
  }

  // Rows that are left out are not refused.
  //   first  the stretch's first row
  void ThrowIfRefused(std::uint64_t first) const {
    for (std::size_t i = 0; i < _refused.size(); ++i) {
      if (const std::uint64_t refused = _refused[i] & ~_leftOut[i]; refused != 0) {
        const auto place = static_cast<std::uint64_t>(std::countr_zero(refused));
        throw std::invalid_argument(Refusal(first + 64 * i + place));
      }
    }
  }

  // Says of a row that is refused which of its values is the reason.
  std::string Refusal(std::uint64_t row) const {
    std::string reason;
    const auto look = [&](const ColumnView& column, Role role, const std::string& name) {
      if (reason.empty()) {
        reason = _demands.Refusal(column, role, row);
        reason.insert(0, reason.empty() ? "" : ", " + name + ": ");
      }
    };
    for (std::size_t i = 0; i < _table.values.size(); ++i) {
      look(_table.values[i], _valueRole, "column " + std::to_string(i));
    }
    ForEachOther(0, [&](const ColumnView& column, Role role, const char* name, const double*
                        /*to*/) { look(column, role, name); });
    return "row " + std::to_string(row) + reason;
  }

  // Closes the gaps of the rows that are left out. Returns the number of those kept.
  std::size_t LeaveOut(std::size_t rows, std::size_t at) {
    if (_leftOut == StretchBits{}) {
      return rows;
    }
    std::size_t kept = 0;
    for (std::size_t row = 0; row < rows; ++row) {
      _kept[kept] = static_cast<std::uint16_t>(row);
      kept += (_leftOut[row / 64] >> row % 64 & 1U) ^ 1U;
    }
    const auto closeGaps = [&](double* values) {
      for (std::size_t i = 0; i < kept; ++i) {
        values[i] = values[_kept[i]];
      }
    };
    ForEachOther(at, [&](const ColumnView& /*column*/, Role /*role*/, const char* /*name*/,
                         double* to) { closeGaps(to); });
    for (std::size_t i = 0; !_copiesRows && i < _columns.count; ++i) {
      closeGaps(_columns[i]);
    }
    return kept;
  }

  const TableView& _table;
  const BatchRows& _batch;
  Demands _demands;
  Role _valueRole;
  bool _copiesRows;  // a table of rows into a batch of rows
  std::size_t _stretchRows;
  ordered::Workspace _workspace;
  double* _groups;              // of the stretch, like all below
  std::uint16_t* _kept;         // the rows that are not left out, if any is left out
  ordered::Columns _columns{};  // the values
  const double** _columnAddresses = nullptr;
  StretchBits _leftOut{};
  StretchBits _refused{};
};

void AssertFits(const ColumnView& column, bool isRead) {
  VELMOR_ASSERT(!isRead || column.data != nullptr);
  VELMOR_ASSERT(column.type <= ValueType::Bool);
  VELMOR_ASSERT(column.absentCodes.size() <= ColumnView::kMostAbsentCodes);
}

}  // namespace

std::size_t CopyRows(const TableView& table, std::uint64_t from, std::uint64_t to,
                     const BatchRows& batch) {
  VELMOR_ASSERT(from <= to && to <= table.rows);
  VELMOR_ASSERT(to - from <= batch.maxRows - batch.rows);
  VELMOR_ASSERT(table.values.size() == batch.columns);
  VELMOR_ASSERT(table.weights.has_value() == (batch.weights != nullptr));
  VELMOR_ASSERT(table.regWeights.has_value() == (batch.regWeights != nullptr));
  VELMOR_ASSERT(table.groups.has_value() == (batch.groups != nullptr));
  for (const ColumnView& column : table.values) {
    AssertFits(column, from < to);
  }
  for (const auto* const other : {&table.weights, &table.regWeights, &table.groups}) {
    if (*other) {
      AssertFits(**other, from < to);
    }
  }
  const DefaultFloatEnvironment environment;
  RowCopy copy(table, batch);
  std::size_t copied = 0;
  for (std::uint64_t row = from; row < to; row += copy.StretchRows()) {
    const auto rows = std::min<std::uint64_t>(copy.StretchRows(), to - row);
    copied += copy.Copy({row, rows}, batch.rows + copied);
  }
  return copied;
}

}  // namespace velmor
