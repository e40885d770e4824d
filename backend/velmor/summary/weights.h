#pragma once

// The weights of a table's rows, looked at before a summary takes the rows in.

#include <velmor/tableview.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

namespace velmor {

// Goes through the weights from the first row on, and counts the rows that are left out because of
// them. It is quick where the rows' values are read soon after, as then the weights are in the
// cache.
class WeightCheck {
 public:
  // The views have the host's marks only: a weight of 0 is not absent.
  //   isSkipped  says of rows that their weights don't matter; none if null
  explicit WeightCheck(const TableView& table,
                       std::function<bool(std::uint64_t row)> isSkipped = nullptr)
      : _table(table), _isSkipped(std::move(isSkipped)) {}

  // Goes on to before this row; a row that has been looked at already changes nothing. Throws
  // std::invalid_argument about the first row with a weight that is negative, infinite or not a
  // number, or with weights whose product is not a positive double.
  void GoTo(std::uint64_t row);

  std::uint64_t WithoutWeight() const { return _withoutWeight; }
  std::uint64_t Weightless() const { return _weightless; }

 private:
  void Take(std::uint64_t first, std::size_t count);
  void TakeRow(std::uint64_t row, bool isAbsent, double weight, double regWeight);

  const TableView& _table;
  std::function<bool(std::uint64_t)> _isSkipped;
  std::uint64_t _next = 0;
  std::uint64_t _withoutWeight = 0;
  std::uint64_t _weightless = 0;
};

}  // namespace velmor
