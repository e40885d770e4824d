// labels.cpp: which group a row belongs to; start at GroupLookup::Read.
#include "summary/labels.h"

#include "summary/utf8.h"
#include "table/columnvalues.h"

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace velmor {
namespace {

template <class Map, class Key>
std::uint32_t NumberIn(const Map& map, const Key& key) {
  const auto found = map.find(key);
  return found == map.end() ? Labels::kNone : found->second;
}

[[noreturn]] void RefuseLabel(std::uint64_t row, const std::string& what) {
  throw std::invalid_argument("row " + std::to_string(row) + ", groups: " + what);
}

}  // namespace

std::uint32_t Labels::Find(std::int64_t label) const { return NumberIn(_integers, label); }
std::uint32_t Labels::Find(std::string_view label) const { return NumberIn(_texts, label); }
std::uint32_t Labels::Find(const GroupLabel& label) const {
  const auto* const text = std::get_if<std::string>(&label);
  return text != nullptr ? Find(std::string_view(*text)) : Find(*std::get_if<std::int64_t>(&label));
}

std::uint32_t Labels::Add(GroupLabel label) {
  const std::uint32_t known = Find(label);
  if (known != kNone) {
    return known;
  }
  if (_labels.size() >= kNone) {
    throw std::length_error("more groups than can be numbered");
  }
  const auto number = static_cast<std::uint32_t>(_labels.size());
  _labels.push_back(std::move(label));
  try {
    if (const auto* const text = std::get_if<std::string>(&_labels.back())) {
      _texts.emplace(*text, number);
    } else {
      _integers.emplace(*std::get_if<std::int64_t>(&_labels.back()), number);
    }
  } catch (...) {
    _labels.pop_back();
    throw;
  }
  return number;
}

void Labels::GoBackTo(std::size_t count) noexcept {
  for (; _labels.size() > count; _labels.pop_back()) {
    if (const auto* const text = std::get_if<std::string>(&_labels.back())) {
      _texts.erase(*text);
    } else {
      _integers.erase(*std::get_if<std::int64_t>(&_labels.back()));
    }
  }
}

GroupLookup::GroupLookup(const GroupView& view, bool hasTexts, bool areFixed, Labels& labels)
    : _view(view),
      _hasTexts(hasTexts),
      _areFixed(areFixed),
      _labels(labels),
      _ofPlaces(view.texts.size(), Labels::kNone) {}

void GroupLookup::Read(std::uint64_t first, std::vector<std::uint32_t>& numbers) {
  constexpr std::size_t kStretchRows = 512;
  std::array<double, kStretchRows> values;  // NOLINT(*-member-init): as many are set as are read
  for (std::size_t from = 0; from < numbers.size(); from += kStretchRows) {
    const RowRange rows{first + from, std::min(kStretchRows, numbers.size() - from)};
    std::array<std::uint64_t, kStretchRows / 64> absent{};
    if (HasMarks(_view.numbers)) {
      ReadColumns({&_view.numbers, 1}, rows, {values.data(), 0, 1});
      MarkAbsent(_view.numbers, rows, values.data(), absent.data());
    }
    for (std::size_t i = 0; i < rows.count; ++i) {
      const bool isAbsent = (absent[i / 64] >> i % 64 & 1U) != 0;
      numbers[from + i] = isAbsent ? Labels::kNone : NumberOf(rows.first + i);
    }
  }
}

std::uint32_t GroupLookup::NumberOf(std::uint64_t row) {
  const std::optional<std::int64_t> value = IntegerAt(_view.numbers, row);
  if (!value) {
    RefuseLabel(row, Text(_view.numbers, row) + " is no integer of 64 bits with a sign");
  }
  if (_hasTexts) {
    return NumberOfText(*value, row);
  }
  if (*value == _lastLabel && _last != Labels::kNone) {
    return _last;
  }
  const std::uint32_t known = _labels.Find(*value);
  if (known == Labels::kNone && _areFixed) {
    RefuseLabel(row, std::to_string(*value) + " is none of the groups");
  }
  _last = known != Labels::kNone ? known : _labels.Add(*value);
  _lastLabel = *value;
  return _last;
}

std::uint32_t GroupLookup::NumberOfText(std::int64_t place, std::uint64_t row) {
  if (place < 0 || static_cast<std::uint64_t>(place) >= _ofPlaces.size()) {
    RefuseLabel(row, "there is no text " + std::to_string(place));
  }
  std::uint32_t& number = _ofPlaces[static_cast<std::size_t>(place)];
  if (number == Labels::kNone) {
    const std::string_view text = _view.texts[static_cast<std::size_t>(place)];
    if (!IsUtf8(text)) {
      RefuseLabel(row, "the label is not UTF-8");
    }
    number = _labels.Find(text);
    if (number == Labels::kNone && _areFixed) {
      RefuseLabel(row, Quoted(text) + " is none of the groups");
    }
    number = number != Labels::kNone ? number : _labels.Add(std::string(text));
  }
  return number;
}

}  // namespace velmor
