// window.cpp: cases of a CSV file in memory; start at Window::Read and its parts.
#include "window.h"

#include <velmor/driver.h>

#include <algorithm>
#include <limits>

namespace csv {

// All records of the window. Their rows are numbered as they are claimed, one thread at a time, and
// filled by all threads.
class Window::Filling : public velmor::ProblemBase {
 public:
  Filling(Window& window, Reader& file, Progress& progress)
      : _window(window), _file(file), _progress(progress) {}

  velmor::ProblemPartBase* CreatePart() override;

  std::uint64_t Rows() const { return _rows; }

  // The counts of all, or the first record's error.
  const CaseCounts& Counts() const {
    _error.Rethrow();
    return _counts;
  }

 private:
  friend class Part;

  Window& _window;
  Reader& _file;
  Progress& _progress;
  std::uint64_t _rows = 0;  // claimed
  CaseCounts _counts;
  FirstError _error;  // batches go by their first rows
};

class Window::Part : public velmor::ProblemPartBase {
 public:
  explicit Part(Filling& filling)
      : _filling(filling), _cases(filling._file, filling._window._columns, filling._progress) {}

  bool ReadBatch() override {
    if (_filling._error.IsAny()) {
      return false;
    }
    _firstRow = _filling._rows;
    _filling._error.Try(_firstRow, [this] {
      _filling._rows += _cases.Claim(_filling._window._mostRows - _firstRow);
    });
    _endRow = _filling._rows;
    return _firstRow < _endRow;
  }

  void AccumulateBatch() override {
    _filling._error.Try(_firstRow, [this] { Parse(); });
  }

  void MergeResult() override { _filling._counts += _cases.Counts(); }

 private:
  void Parse() {
    const std::uint64_t readBefore = _cases.Counts().read;
    std::uint64_t next = _firstRow;
    while (_cases.Next()) {
      const std::uint64_t row = _firstRow + (_cases.Counts().read - readBefore) - 1;
      _filling._window.Clear(next, row);
      _filling._window.Set(row, _cases.Current());
      next = row + 1;
    }
    _filling._window.Clear(next, _endRow);
  }

  Filling& _filling;
  CaseReader _cases;
  std::uint64_t _firstRow = 0;  // of the records claimed last
  std::uint64_t _endRow = 0;
};

velmor::ProblemPartBase* Window::Filling::CreatePart() { return new Part(*this); }

Window::Window(const CaseColumns& columns, std::uint64_t mostRows)
    : _columns(columns),
      _mostRows(mostRows),
      _width(columns.values.size() + (columns.weight ? 1U : 0U) + (columns.regWeight ? 1U : 0U)),
      _numbers(std::make_unique_for_overwrite<double[]>(mostRows * _width)) {}

CaseCounts Window::Read(Reader& file, Progress& progress, int threads) {
  Filling filling(*this, file, progress);
  velmor::Driver(&filling, threads);
  _rows = filling.Rows();
  return filling.Counts();
}

velmor::TableView Window::View() const {
  const double* place = _numbers.get();
  const auto nextColumn = [this, &place] {
    velmor::ColumnView column(place++, static_cast<std::ptrdiff_t>(_width * sizeof(double)));
    column.nanIsAbsent = true;
    return column;
  };
  velmor::TableView table;
  table.rows = _rows;
  for (std::size_t i = 0; i < _columns.values.size(); ++i) {
    table.values.push_back(nextColumn());
  }
  if (_columns.weight) {
    table.weights = nextColumn();
  }
  if (_columns.regWeight) {
    table.regWeights = nextColumn();
  }
  return table;
}

void Window::Set(std::uint64_t row, const Case& current) {
  double* place = std::copy(current.values.begin(), current.values.end(), Row(row));
  if (_columns.weight) {
    *place++ = current.weight;
  }
  if (_columns.regWeight) {
    *place = current.regWeight;
  }
}

void Window::Clear(std::uint64_t from, std::uint64_t to) {
  std::fill(Row(from), Row(to), std::numeric_limits<double>::quiet_NaN());
}

}  // namespace csv
