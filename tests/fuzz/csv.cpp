// Fuzzes the CSV reading of the example programs: whatever a file holds, the ways to read it agree,
// with an error that names the file or with the same cases, and a file without quotes has those
// that a plain reading gives.
#include "../../examples/csv.h"

#include "../../examples/cases.h"
#include "../../examples/window.h"

#include "input.h"

#include <sys/mman.h>
#include <unistd.h>

#include <map>
#include <string_view>

namespace velmor::test {
namespace {

// A file in memory with a path.
class File {
 public:
  File() : _descriptor(memfd_create("fuzzed", 0)) {
    Require(_descriptor >= 0, "no file in memory");
    _path = "/dev/fd/" + std::to_string(_descriptor);
  }

  const std::string& Path() const { return _path; }

  void Replace(std::string_view text) const {
    Require(ftruncate(_descriptor, 0) == 0 && pwrite(_descriptor, text.data(), text.size(), 0) ==
                                                  static_cast<ssize_t>(text.size()),
            "the file in memory is not written");
  }

 private:
  int _descriptor;
  std::string _path;
};

// What cases are made of; of columns, one that the file lacks is none.
struct Choice {
  explicit Choice(Input& input)
      : weight(input.Below(6)),
        regWeight(input.Below(6)),
        group(input.Below(6)),
        allowsIncomplete(input.Coin()) {
    if (input.Coin()) {
      missingCode = input.OneOf({-99., 0., 1.});
    }
  }

  csv::CaseColumns Columns(std::size_t columns) const {
    csv::CaseColumns chosen;
    for (std::size_t column = 0; column < columns; ++column) {
      if (column == weight) {
        chosen.weight = column;
      } else if (column == regWeight) {
        chosen.regWeight = column;
      } else if (column == group && columns > 1) {  // cases have a number at least
        chosen.group = column;
      } else {
        chosen.values.push_back(column);
      }
    }
    chosen.missingCode = missingCode;
    chosen.allowsIncomplete = allowsIncomplete;
    return chosen;
  }

  std::size_t weight, regWeight, group;  // 5 is hardly ever there
  bool allowsIncomplete;
  std::optional<double> missingCode;
};

// What came of reading a file.
struct Outcome {
  std::string error;  // if there is one, all else means nothing
  csv::CaseCounts counts;
  std::map<std::uint64_t, std::vector<std::uint64_t>> cases;  // the used ones by record: their bits

  bool operator==(const Outcome&) const = default;
};

std::vector<double> NumbersOf(const csv::CaseColumns& columns, const csv::Case& current) {
  std::vector<double> numbers = current.values;
  if (columns.weight) {
    numbers.push_back(current.weight);
  }
  if (columns.regWeight) {
    numbers.push_back(current.regWeight);
  }
  return numbers;
}

// Calls read() and returns what it returns, or its error.
template <class Read>
Outcome OutcomeOf(const std::string& path, Read read) {
  try {
    return read();
  } catch (const csv::Error& error) {
    if (!std::string_view(error.what()).starts_with(path)) {
      Fail("an error that does not name the file: " + std::string(error.what()));
    }
    return {error.what(), {}, {}};
  }
}

// Reads chunk by chunk.
Outcome ReadChunks(const std::string& path, const Choice& choice, std::size_t blockSize) {
  return OutcomeOf(path, [&] {
    Outcome outcome;
    csv::Reader reader(path, blockSize);
    const csv::CaseColumns columns = choice.Columns(reader.GetSource().columns.size());
    csv::Progress progress(path);
    csv::CaseReader cases(reader, columns, progress);
    while (cases.Claim()) {
      while (cases.Next()) {
        outcome.cases[cases.Counts().read - 1] = Bits(NumbersOf(columns, cases.Current()));
      }
    }
    outcome.counts = cases.Counts();
    return outcome;
  });
}

// How a file is read in windows.
struct Way {
  explicit Way(Input& input)
      : blockSize(1 + input.Below(40)),
        windowRows(input.OneOf({1000U, 16U, 5U, 2U})),
        threads(input.Below(8) == 7 ? 2 + static_cast<int>(input.Below(2)) : 1),
        skipped(input.Below(4) == 3 ? 1 + input.Below(12) : 0) {}

  std::size_t blockSize;
  std::uint64_t windowRows;
  int threads;
  std::uint64_t skipped;  // records
};

// Adds the rows of a window that have any number, which are those of the cases that are used.
void AddCases(const TableView& table, Outcome& outcome) {
  std::vector<ColumnView> columns = table.values;
  for (const auto& weights : {table.weights, table.regWeights}) {
    if (weights) {
      columns.push_back(*weights);
    }
  }
  for (std::uint64_t row = 0; row < table.rows; ++row) {
    std::vector<double> numbers;
    for (const ColumnView& column : columns) {
      const auto* const first = static_cast<const double*>(column.data);
      const auto stride = static_cast<std::size_t>(column.stride) / sizeof(double);
      numbers.push_back(first[row * stride]);
    }
    if (!std::all_of(numbers.begin(), numbers.end(), [](double x) { return std::isnan(x); })) {
      outcome.cases[outcome.counts.read + row] = Bits(numbers);
    }
  }
}

Outcome ReadWindows(const std::string& path, const Choice& choice, const Way& way) {
  return OutcomeOf(path, [&] {
    Outcome outcome;
    csv::Reader reader(path, way.blockSize);
    const csv::CaseColumns columns = choice.Columns(reader.GetSource().columns.size());
    csv::Progress progress(path);
    csv::Window window(columns, way.windowRows);
    outcome.counts.read = reader.Skip(way.skipped);
    for (;;) {
      const csv::CaseCounts counts = window.Read(reader, progress, way.threads);
      const TableView table = window.View();
      Require(table.rows == counts.read, "a row for each record");
      if (counts.read == 0) {
        return outcome;
      }
      AddCases(table, outcome);
      outcome.counts += counts;
    }
  });
}

// The outcome without the first records and what is counted of them.
Outcome Without(Outcome outcome, std::uint64_t records) {
  outcome.cases.erase(outcome.cases.begin(), outcome.cases.lower_bound(records));
  outcome.counts = {outcome.counts.read, 0, 0};
  return outcome;
}

std::string Text(const Outcome& outcome) {
  return outcome.error.empty() ? csv::Summary(outcome.counts, true) : outcome.error;
}

void RequireSame(const Outcome& outcome, const Outcome& expected, const char* what) {
  if (outcome != expected) {
    Fail("\"" + Text(outcome) + "\", " + what + ": \"" + Text(expected) + '"');
  }
}

// A file without quotes, read plainly: whole, line by line, field by field.
class PlainReading {
 public:
  PlainReading(std::string_view text, const Choice& choice) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (text.starts_with(kByteOrderMark)) {
      text.remove_prefix(kByteOrderMark.size());
    }
    std::vector<std::string> header;
    for (const std::string_view line : Split(text, '\n')) {
      std::string_view record = line;
      if (record.ends_with('\r')) {
        record.remove_suffix(1);
      }
      if (record.find_first_not_of(" \t") == std::string_view::npos) {
        continue;
      }
      std::vector<std::string> fields;
      for (const std::string_view field : Split(record, ',')) {
        fields.push_back(Trimmed(field));
      }
      _isWrong = _isWrong || record.find('\r') != std::string_view::npos;
      if (header.empty()) {
        header = std::move(fields);
        _columns = choice.Columns(header.size());
        continue;
      }
      if (_isWrong || fields.size() != header.size()) {
        _isWrong = true;
        return;
      }
      TakeCase(fields);
    }
    _isWrong = _isWrong || header.empty();
    // Whether a header could be numbers is not decided here.
    _isDoubtful = _isDoubtful || (!header.empty() && !HasName(header));
  }

  // Whether the outcome can be that of this file.
  bool Agrees(const Outcome& outcome) const {
    return _isDoubtful || (_isWrong ? !outcome.error.empty() : outcome == _outcome);
  }

 private:
  static std::vector<std::string_view> Split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (;;) {
      const std::size_t end = text.find(separator);
      parts.push_back(text.substr(0, end));
      if (end == std::string_view::npos) {
        return parts;
      }
      text.remove_prefix(end + 1);
    }
  }

  static std::string Trimmed(std::string_view field) {
    const std::size_t first = field.find_first_not_of(" \t");
    return first == std::string_view::npos
               ? std::string()
               : std::string(field.substr(first, field.find_last_not_of(" \t") - first + 1));
  }

  // Whether a field begins with a letter that no infinity, NaN or missing value begins with.
  static bool HasName(const std::vector<std::string>& header) {
    return std::any_of(header.begin(), header.end(), [](const std::string& name) {
      return std::string_view("abcdefghjklmopqrstuvwxyz").find(name.substr(0, 1)) !=
                 std::string_view::npos &&
             !name.empty();
    });
  }

  // Nothing where it is missing.
  std::optional<double> Number(const std::string& field) {
    if (field.empty() || field == "NA") {
      return std::nullopt;
    }
    const bool isDecimal = field.find_first_not_of("0123456789+-.eE") == std::string::npos;
    char* end = nullptr;
    const double number = std::strtod(field.c_str(), &end);
    _isWrong = _isWrong || !isDecimal || end != field.c_str() + field.size() || std::isinf(number);
    // Whether that is zero or too small for a double is not decided here.
    _isDoubtful = _isDoubtful || (std::abs(number) < std::numeric_limits<double>::min() &&
                                  field.find_first_of("123456789") != std::string::npos);
    return number;
  }

  double Weight(const std::vector<std::string>& fields, std::optional<std::size_t> column,
                bool& isComplete) {
    const std::optional<double> weight = column ? Number(fields[*column]) : 1.;
    isComplete = isComplete && weight;
    _isWrong = _isWrong || weight.value_or(0.) < 0.;
    return weight.value_or(0.);
  }

  void TakeCase(const std::vector<std::string>& fields) {
    csv::Case current;
    bool hasWeights = true;
    current.weight = Weight(fields, _columns.weight, hasWeights);
    current.regWeight = Weight(fields, _columns.regWeight, hasWeights);
    std::size_t present = 0;
    for (const std::size_t column : _columns.values) {
      std::optional<double> value = Number(fields[column]);
      if (value == _columns.missingCode) {
        value.reset();
      }
      _isWrong = _isWrong || (_columns.allowsIncomplete && value == csv::kMissingCode);
      present += value ? 1U : 0U;
      current.values.push_back(value.value_or(kNaN));
    }
    const std::string group = _columns.group ? fields[*_columns.group] : "any";
    const bool isEnough =
        _columns.allowsIncomplete ? present > 0 : present == current.values.size();
    const std::uint64_t record = _outcome.counts.read++;
    if (!isEnough || !hasWeights || group.empty() || group == "NA") {
      ++_outcome.counts.incomplete;
    } else if (current.weight * current.regWeight == 0.) {
      ++_outcome.counts.weightless;
    } else {
      _outcome.cases[record] = Bits(NumbersOf(_columns, current));
    }
  }

  csv::CaseColumns _columns;
  bool _isWrong = false;
  bool _isDoubtful = false;
  Outcome _outcome;
};

}  // namespace

void Run(Input& input) {
  static const File file;
  const Choice choice(input);
  const Way way(input);
  const std::size_t beyond = input.Below(2);
  const std::string text = input.Rest();
  file.Replace(text);
  const Outcome whole =
      ReadChunks(file.Path(), choice, std::max<std::size_t>(1, text.size() + beyond));
  const Outcome parts = ReadWindows(file.Path(), choice, way);
  if (way.skipped == 0) {
    RequireSame(parts, whole, "in parts, not whole");
  } else if (whole.error.empty()) {
    RequireSame(Without(parts, way.skipped), Without(whole, way.skipped), "behind skipped records");
  }
  if (text.find('"') == std::string::npos) {
    Require(PlainReading(text, choice).Agrees(whole), "another outcome than read plainly");
  }
}

}  // namespace velmor::test

// Instead of libcsv's, so that a parser's buffer grows from the little that it has if it is not
// told: with a megabyte for each, all time would go into mapping memory.
// NOLINTNEXTLINE(*-reserved-identifier,readability-identifier-naming): the linker's name for it
extern "C" void __wrap_csv_set_blk_size(csv_parser* /*parser*/, std::size_t /*size*/) {}
