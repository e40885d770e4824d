// patterns.cpp: presence as bits, and patterns of it; start at Patterns.
#include "ordered/present/patterns.h"

#include "ordered/panels.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <numeric>

namespace velmor::ordered {

namespace {

static_assert(kStripRows % 64 == 0 && kStripRows <= 256);

using EightPlaces = std::array<std::uint8_t, 8>;

// The places of the set bits of each byte, and how many they are.
struct BytePlaces {
  std::array<EightPlaces, 256> places{};
  std::array<std::uint8_t, 256> counts{};
};

constexpr BytePlaces PlacesOfBits() {
  BytePlaces table;
  for (unsigned byte = 0; byte < 256; ++byte) {
    for (unsigned bit = 0; bit < 8; ++bit) {
      if ((byte >> bit & 1U) != 0) {
        table.places[byte][table.counts[byte]++] = static_cast<std::uint8_t>(bit);
      }
    }
  }
  return table;
}

constexpr BytePlaces kBytePlaces = PlacesOfBits();

}  // namespace

Rows RowsOfBoth(const std::uint64_t* a, const std::uint64_t* b, std::size_t rows, RowList& list) {
  // Eight bytes at a time: adding `first` to each of them carries nothing over, and what is written
  // beyond the places of a byte is overwritten by the next ones or not read.
  constexpr std::uint64_t kEachByte = 0x0101010101010101;
  std::size_t count = 0;
  for (std::size_t first = 0; first < rows; first += 8) {
    const auto byte = static_cast<std::uint8_t>((a[first / 64] & b[first / 64]) >> first % 64);
    const std::uint64_t places =
        std::bit_cast<std::uint64_t>(kBytePlaces.places[byte]) + first * kEachByte;
    std::memcpy(list.data() + count, &places, sizeof(places));
    count += kBytePlaces.counts[byte];
  }
  return {count, list.data()};
}

Patterns::Patterns(const Engine& engine, const PairwiseCases& cases, WantedPairs wanted,
                   Workspace& workspace)
    : _engine(engine),
      _rows(cases.rows),
      _wanted(wanted),
      _words((cases.rows + kStripRows - 1) / kStripRows * (kStripRows / 64)),
      _bits(workspace.Take<std::uint64_t>(cases.columns.count * _words)),
      _present(workspace.Take<std::size_t>(cases.columns.count)),
      _sets(workspace.Take<ColumnSet>(cases.columns.count + 2)) {
  const std::size_t columns = cases.columns.count;
  auto* const order = workspace.Take<std::uint32_t>(columns);
  auto* const others = workspace.Take<std::uint32_t>(columns);
  std::fill_n(_bits, columns * _words, std::uint64_t{0});
  for (std::size_t i = 0; i < columns; ++i) {
    _present[i] = engine.Presence(cases.columns[i], _rows, cases.missingCode, _bits + i * _words);
  }
  std::iota(order, order + columns, 0U);
  std::sort(order, order + columns,
            [this](std::uint32_t a, std::uint32_t b) { return IsBefore(a, b); });
  std::size_t nOthers = 0;
  for (std::size_t from = 0, to = 0; from < columns; from = to) {
    while (to < columns && AreOfOneSet(order[from], order[to])) {
      ++to;
    }
    const std::size_t present = _present[order[from]];
    if (present == _rows || (present != 0 && to - from >= kWidePattern)) {
      AddSet({order + from, to - from});
    } else if (present != 0) {
      std::copy(order + from, order + to, others + nOthers);
      nOthers += to - from;
    }
  }
  _wideCount = _setCount;
  std::sort(others, others + nOthers);
  const auto second = static_cast<std::size_t>(
      std::lower_bound(others, others + nOthers, wanted.firstRange) - others);
  for (const auto& range :
       {std::span(others, second), std::span(others + second, nOthers - second)}) {
    if (!range.empty()) {
      AddSet(range);
    }
  }
}

bool Patterns::HaveSameCases(std::size_t a, std::size_t b) const {
  return _present[a] == _present[b] &&
         std::memcmp(Bits(a), Bits(b), _words * sizeof(std::uint64_t)) == 0;
}

// Ranges one after the other, like columns side by side, and in ascending order.
bool Patterns::IsBefore(std::uint32_t a, std::uint32_t b) const {
  const bool isFirstA = a < _wanted.firstRange;
  const bool isFirstB = b < _wanted.firstRange;
  if (isFirstA != isFirstB) {
    return isFirstA;
  }
  if (_present[a] != _present[b]) {
    return _present[a] > _present[b];
  }
  const int order = std::memcmp(Bits(a), Bits(b), _words * sizeof(std::uint64_t));
  return order != 0 ? order < 0 : a < b;
}

void Patterns::AddSet(std::span<const std::uint32_t> columns) {
  const auto panels = static_cast<unsigned>(PanelsOf(_engine, columns.size()));
  _sets[_setCount++] = {columns, _panels, panels, _present[columns[0]] == _rows};
  _panels += panels;
}

}  // namespace velmor::ordered
