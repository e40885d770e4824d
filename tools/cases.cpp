// cases.cpp: from the records of a CSV file to cases; start at CaseReader::TakeCase.
#include "cases.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>

namespace csv {

std::vector<std::size_t> ListedColumns(const Source& source,
                                       const std::optional<std::string>& names,
                                       const std::set<std::optional<std::size_t>>& taken) {
  if (names) {
    return FindColumns(source, *names);
  }
  std::vector<std::size_t> columns;
  for (std::size_t column = 0; column < source.columns.size(); ++column) {
    if (!taken.contains(column)) {
      columns.push_back(column);
    }
  }
  return columns;
}

void CheckColumns(const Source& source, const std::vector<std::size_t>& columns,
                  const std::string& options) {
  // Beyond this a matrix takes more than 8 GiB, on each thread.
  constexpr std::size_t kMostColumns = 46340;
  if (columns.size() > kMostColumns) {
    throw Error(source.name + ": " + std::to_string(columns.size()) +
                " columns are too many; choose " + std::to_string(kMostColumns) +
                " of them or fewer with --variables");
  }
  std::map<std::string_view, std::size_t> seen;
  for (const std::size_t column : columns) {
    const auto [place, isNew] = seen.emplace(source.columns[column], column);
    if (!isNew && place->second != column) {
      throw SameName(source, place->second, column);
    }
    if (!isNew) {
      throw Error("column " + Printable(source.columns[column]) + " is named twice in " + options);
    }
  }
}

CaseCounts& CaseCounts::operator+=(const CaseCounts& other) {
  read += other.read;
  incomplete += other.incomplete;
  weightless += other.weightless;
  return *this;
}

std::string Summary(const CaseCounts& counts, bool hasWeights, bool allowsIncomplete) {
  std::string reason = "incomplete";
  if (allowsIncomplete) {
    reason = hasWeights ? "empty or without a weight" : "empty";
  }
  std::string text = std::to_string(counts.read) + " cases read, " + std::to_string(counts.Used()) +
                     " used, " + std::to_string(counts.incomplete) + " left out as " + reason;
  if (hasWeights) {
    text += ", " + std::to_string(counts.weightless) + " left out for a weight of 0";
  }
  return text;
}

unsigned int BatchRows(std::uint64_t cacheSize, std::uint64_t rowSize, std::size_t columns,
                       std::uint64_t fewest) {
  const std::uint64_t most = UINT32_MAX / (columns + 1);
  return static_cast<unsigned int>(std::clamp(cacheSize / rowSize, std::min(fewest, most), most));
}

Progress::Progress(const std::string& path, unsigned int passes) : _passes(passes) {
  constexpr std::uintmax_t kLarge = 64U << 20U;
  std::error_code error;
  if (isatty(STDERR_FILENO) == 1 && std::filesystem::is_regular_file(path, error)) {
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    _fileSize = !error && size >= kLarge ? size : 0;
  }
}

Progress::~Progress() {
  if (_fileSize != 0) {
    std::fputs("\r      \r", stderr);
  }
}

void Progress::Show(std::uint64_t bytesRead) {
  const auto now = std::chrono::steady_clock::now();
  if (_fileSize != 0 && now - _shown >= std::chrono::milliseconds(250)) {
    const std::uint64_t percent = 100 * (_readBefore + bytesRead) / (_fileSize * _passes);
    std::fprintf(stderr, "\r%3d %%", static_cast<int>(percent));
    _shown = now;
  }
}

CaseReader::CaseReader(Reader& file, const CaseColumns& columns, Progress& progress)
    : _file(file), _columns(columns), _progress(progress), _parser(file.GetSource()) {
  _case.values.resize(columns.values.size());
}

bool CaseReader::Claim() {
  _progress.Show(_file.BytesRead());
  const bool isAny = _file.Claim(_chunk);
  _parser.Start(_chunk);
  return isAny;
}

std::uint64_t CaseReader::Claim(std::uint64_t most) {
  _progress.Show(_file.BytesRead());
  const std::uint64_t records = _file.Claim(_chunk, most);
  _parser.Start(_chunk);
  return records;
}

bool CaseReader::Next() {
  while (_parser.Next()) {
    ++_counts.read;
    if (TakeCase()) {
      return true;
    }
  }
  return false;
}

// Reads the current record as a case. Returns whether it is used.
bool CaseReader::TakeCase() {
  const std::optional<double> weight = Weight(_columns.weight);
  const std::optional<double> regWeight = Weight(_columns.regWeight);
  const std::size_t present = TakeValues();
  const bool isEnough = _columns.allowsIncomplete ? present > 0 : present == _columns.values.size();
  if (!isEnough || !weight || !regWeight ||
      (_columns.group && _parser.IsMissing(*_columns.group))) {
    ++_counts.incomplete;
    return false;
  }
  _case.weight = *weight;
  _case.regWeight = *regWeight;
  _case.group = _columns.group ? _parser.Text(*_columns.group) : std::string_view();
  if (_case.weight * _case.regWeight == 0.) {
    // It would count in no mean, yet in the extremes and in the number of cases.
    ++_counts.weightless;
    return false;
  }
  return true;
}

// Reads the current record's values. Returns how many are present.
std::size_t CaseReader::TakeValues() {
  std::size_t present = 0;
  for (std::size_t i = 0; i < _case.values.size(); ++i) {
    const std::size_t column = _columns.values[i];
    const std::optional<double> value = _parser.Number(column);
    const bool isPresent = value && value != _columns.missingCode;
    if (isPresent && *value == kMissingCode && _columns.allowsIncomplete) {
      throw Error(_parser.Place(column) + "the value " + std::string(_parser.Text(column)) +
                  " can't be told from a missing one; if it stands for one, name it with "
                  "--missing-code, otherwise rescale the column");
    }
    _case.values[i] = isPresent ? *value : std::numeric_limits<double>::quiet_NaN();
    present += isPresent ? 1U : 0U;
  }
  return present;
}

std::optional<double> CaseReader::Weight(const std::optional<std::size_t>& column) const {
  if (!column) {
    return 1.;
  }
  std::optional<double> weight;
  try {
    weight = _parser.Number(*column);
  } catch (const NotANumber& error) {
    throw Error(error.what());  // choosing other variables would not help, as it does for a value
  }
  if (weight && *weight < 0.) {
    throw Error(_parser.Place(*column) + "the weight " + std::string(_parser.Text(*column)) +
                " is negative");
  }
  return weight;
}

}  // namespace csv
