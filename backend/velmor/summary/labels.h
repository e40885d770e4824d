#pragma once

// The labels of groups, numbered in their order.

#include <velmor/groupsummary.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace velmor {

class Labels {
 public:
  static constexpr std::uint32_t kNone = 0xFFFF'FFFF;

  std::size_t Count() const { return _labels.size(); }
  const std::vector<GroupLabel>& All() const { return _labels; }

  // The number of a label, kNone if it has none.
  std::uint32_t Find(std::int64_t label) const;
  std::uint32_t Find(std::string_view label) const;
  std::uint32_t Find(const GroupLabel& label) const;

  // The number of a label, which gets the next one if it has none. Throws std::bad_alloc, and
  // std::length_error when no number is left.
  std::uint32_t Add(GroupLabel label);

  // Drops the labels from this number on.
  void GoBackTo(std::size_t count) noexcept;

 private:
  std::vector<GroupLabel> _labels;
  std::unordered_map<std::int64_t, std::uint32_t> _integers;
  std::map<std::string, std::uint32_t, std::less<>> _texts;
};

// The group of each row of a table, looked up in labels.
class GroupLookup {
 public:
  // Unknown labels are added, unless no others are allowed.
  //   labels  of one kind
  GroupLookup(const GroupView& view, bool hasTexts, bool areFixed, Labels& labels);

  // Numbers of the groups of rows [first, first + numbers.size()); kNone for those of no group.
  // Throws std::invalid_argument about the first row whose label can't be taken.
  void Read(std::uint64_t first, std::vector<std::uint32_t>& numbers);

 private:
  std::uint32_t NumberOf(std::uint64_t row);
  std::uint32_t NumberOfText(std::int64_t place, std::uint64_t row);

  const GroupView& _view;
  bool _hasTexts;
  bool _areFixed;
  Labels& _labels;
  std::int64_t _lastLabel = 0;           // as rows of a group often come together
  std::uint32_t _last = Labels::kNone;   // its number
  std::vector<std::uint32_t> _ofPlaces;  // numbers of the texts, as far as they were looked up
};

}  // namespace velmor
