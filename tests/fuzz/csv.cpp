// Fuzzes the CSV reading of the example programs: whatever a file holds, the ways to read it agree,
// with an error that names the file or with the same cases, and a file without quotes has the
// records that a plain reading gives.
#include "../tools/csv.h"

#include "../tools/cases.h"
#include "../tools/window.h"

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

// How a file is read.
struct Way {
  std::size_t blockSize;
  std::uint64_t windowRows;
  int threads = 1;
  std::uint64_t skipped = 0;  // records
};

Way DrawWay(Input& input) {
  Way way{1 + input.Below(40), input.OneOf({1000U, 16U, 5U, 2U})};
  way.threads = input.Below(8) == 7 ? 2 + static_cast<int>(input.Below(2)) : 1;
  way.skipped = input.Below(4) == 3 ? 1 + input.Below(12) : 0;
  return way;
}

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

Outcome ReadCases(const std::string& path, const Choice& choice, const Way& way) {
  try {
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
  } catch (const csv::Error& error) {
    Require(std::string_view(error.what()).starts_with(path), "an error names the file");
    return {error.what(), {}, {}};
  }
}

// The outcome without the first records and what is counted of them.
Outcome Without(Outcome outcome, std::uint64_t records) {
  outcome.cases.erase(outcome.cases.begin(), outcome.cases.lower_bound(records));
  outcome.counts = {outcome.counts.read, 0, 0};
  return outcome;
}

using Records = std::vector<std::vector<std::string>>;

std::vector<std::string_view> Split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (std::size_t end = 0; end != std::string_view::npos;) {
    end = text.find(separator);
    parts.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return parts;
}

// The records of a file without quotes as a plain reading has them, the header first; nothing when
// one is wrong.
std::optional<Records> PlainRecords(std::string_view text) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  text.remove_prefix(text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0);
  Records records;
  for (std::string_view line : Split(text, '\n')) {
    line.remove_suffix(line.ends_with('\r') ? 1 : 0);
    if (line.find_first_not_of(" \t") == std::string_view::npos) {
      continue;
    }
    std::vector<std::string>& fields = records.emplace_back();
    for (const std::string_view field : Split(line, ',')) {
      const std::size_t first = std::min(field.find_first_not_of(" \t"), field.size());
      fields.emplace_back(field.substr(first, field.find_last_not_of(" \t") + 1 - first));
    }
    if (line.find('\r') != std::string_view::npos || fields.size() != records[0].size()) {
      return std::nullopt;
    }
  }
  return records.empty() ? std::nullopt : std::optional(records);
}

// The same by the reader.
std::optional<Records> ReadRecords(const std::string& path) {
  try {
    csv::Reader reader(path);
    Records records{reader.GetSource().columns};
    csv::Parser parser(reader.GetSource());
    csv::Chunk chunk;
    while (reader.Claim(chunk)) {
      parser.Start(chunk);
      while (parser.Next()) {
        std::vector<std::string>& fields = records.emplace_back();
        for (std::size_t column = 0; column < parser.NFields(); ++column) {
          fields.emplace_back(parser.Text(column));
        }
      }
    }
    return records;
  } catch (const csv::Error&) {
    return std::nullopt;
  }
}

}  // namespace

void Run(Input& input) {
  static const File file;
  const Choice choice(input);
  const Way way = DrawWay(input);
  const std::size_t beyond = input.Below(2);
  const std::string text = input.Rest();
  file.Replace(text);
  const Way inOne{std::max<std::size_t>(1, text.size() + beyond), text.size() + 1};
  const Outcome whole = ReadCases(file.Path(), choice, inOne);
  const Outcome parts = ReadCases(file.Path(), choice, way);
  if (way.skipped == 0) {
    Require(parts == whole, "\"" + parts.error + "\" in parts, \"" + whole.error + "\" in one");
  } else if (whole.error.empty()) {
    Require(Without(parts, way.skipped) == Without(whole, way.skipped),
            "other cases behind skipped records, or " + parts.error);
  }
  // What counts as a header of numbers is not decided here.
  const bool isOfNumbers = whole.error.find("only numbers") != std::string::npos;
  if (!isOfNumbers && text.find('"') == std::string::npos) {
    Require(ReadRecords(file.Path()) == PlainRecords(text), "other records than read plainly");
  }
}

}  // namespace velmor::test

// Instead of libcsv's, so that a parser's buffer grows from the little that it has if it is not
// told: with a megabyte for each, all time would go into mapping memory.
// NOLINTNEXTLINE(*-reserved-identifier,readability-identifier-naming): the linker's name for it
extern "C" void __wrap_csv_set_blk_size(csv_parser* /*parser*/, std::size_t /*size*/) {}
