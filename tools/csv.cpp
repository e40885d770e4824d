// csv.cpp: the CSV reader of the example programs; start at Reader::Claim and Parser::Next.
#include "csv.h"

#include <csv.h>  // NOLINT(readability-duplicate-include): libcsv's

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <system_error>
#include <utility>

namespace csv {
namespace {

std::uint64_t Count(std::string_view text, char c) {
  return static_cast<std::uint64_t>(std::count(text.begin(), text.end(), c));
}

// Most texts have no quotes, which is found out much faster than how many there are.
bool HasOddQuotes(std::string_view text) {
  const std::size_t first = text.find('"');
  return first != std::string_view::npos && Count(text.substr(first), '"') % 2 == 1;
}

// Where the first record in the text ends, after its line end; the text's size when it has none.
std::size_t FirstRecordEnd(std::string_view text) {
  bool isQuoted = false;
  for (std::size_t begin = 0;;) {
    const std::size_t lineEnd = text.find('\n', begin);
    if (lineEnd == std::string_view::npos) {
      return text.size();
    }
    isQuoted = isQuoted != HasOddQuotes(text.substr(begin, lineEnd - begin));
    begin = lineEnd + 1;
    if (!isQuoted) {
      return begin;
    }
  }
}

// Where the last complete record in the text ends, after its line end; 0 when there is none. The
// text begins with a record. A place is within quotes if the number of quotes before it is odd.
std::size_t LastRecordEnd(std::string_view text) {
  bool isQuoted = HasOddQuotes(text);
  for (std::size_t end = text.size(); end != 0; --end) {
    const char c = text[end - 1];
    if (c == '"') {
      isQuoted = !isQuoted;
    } else if (c == '\n' && !isQuoted) {
      return end;
    }
  }
  return 0;
}

std::string_view WithoutLineEnd(std::string_view record) {
  for (const char c : {'\n', '\r'}) {
    if (record.ends_with(c)) {
      record.remove_suffix(1);
    }
  }
  return record;
}

// A text from the file as a message shows it: in quotes, on one line and not too long.
std::string Quoted(std::string_view text) {
  constexpr std::size_t kLongest = 60;
  const bool isLong = text.size() > kLongest;
  return '"' + Printable(text.substr(0, kLongest)) + (isLong ? "...\"" : "\"");
}

// Whether a record is none because there is nothing on its line.
bool IsBlank(std::string_view record) {
  return WithoutLineEnd(record).find_first_not_of(" \t") == std::string_view::npos;
}

struct Records {
  std::uint64_t count;
  std::size_t end;  // where the last of them ends, after its line end
};

std::string AtLine(const Source& source, std::uint64_t line) {
  return source.name + ':' + std::to_string(line) + ": ";
}

// Reads all of the text as a number, which may be infinite or none. Fails with result_out_of_range
// when no double is near it.
std::errc ReadNumber(std::string_view text, double& number) {
  if (text.starts_with('+') && !text.starts_with("+-")) {
    text.remove_prefix(1);  // from_chars knows no plus sign
  }
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return stop == end ? error : std::errc::invalid_argument;
}

// Whether a record has numbers and nothing else.
bool IsOfNumbers(const Parser& record) {
  std::size_t numbers = 0;
  std::size_t missing = 0;
  for (std::size_t column = 0; column < record.NFields(); ++column) {
    double number = 0.;
    const std::errc error = ReadNumber(record.Text(column), number);
    numbers += error != std::errc::invalid_argument ? 1U : 0U;
    missing += record.IsMissing(column) ? 1U : 0U;
  }
  return numbers != 0 && numbers + missing == record.NFields();
}

// The first records in the text, no more than `most`.
Records FirstRecords(std::string_view text, std::uint64_t most) {
  Records records{0, 0};
  while (records.count < most && records.end < text.size()) {
    const std::string_view rest = text.substr(records.end);
    const std::string_view record = rest.substr(0, FirstRecordEnd(rest));
    records.count += IsBlank(record) ? 0U : 1U;
    records.end += record.size();
  }
  return records;
}

}  // namespace

Error SystemError(const std::string& what, const std::string& name) {
  return Error("cannot " + what + ' ' + name + ": " + std::generic_category().message(errno));
}

Reader::Reader(const std::string& path, std::size_t blockSize)
    : _source{path == "-" ? "standard input" : path, {}},
      _file(path == "-" ? stdin : std::fopen(path.c_str(), "r")),
      _blockSize(blockSize) {
  if (!_file) {
    throw SystemError("open", _source.name);
  }
  ReadHeader();
}

void Reader::ReadHeader() {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  Chunk chunk;
  Parser parser(_source);
  bool hasHeader = false;
  while (!hasHeader && Claim(chunk, 1) != 0) {
    const bool isFilesBeginning = chunk.firstLine == 1;
    if (isFilesBeginning && chunk.text.starts_with(kByteOrderMark)) {
      chunk.text.erase(0, kByteOrderMark.size());
    }
    parser.Start(chunk);
    hasHeader = parser.Next();
  }
  if (!hasHeader) {
    throw Error(_source.name + " has no header; its first line should name the columns");
  }
  if (IsOfNumbers(parser) && chunk.text.find('"') == std::string::npos) {
    throw Error(AtLine(_source, parser.Line()) +
                "only numbers, where the columns should be named; if they are names, put them in "
                "quotes");
  }
  for (std::size_t column = 0; column < parser.NFields(); ++column) {
    _source.columns.emplace_back(parser.Text(column));
  }
  _source.headerLine = parser.Line();
}

bool Reader::Claim(Chunk& chunk) {
  FindRecords();
  Take(chunk, _end);
  return !chunk.text.empty();
}

std::uint64_t Reader::Claim(Chunk& chunk, std::uint64_t most) {
  while (most != 0) {
    FindRecords();
    const std::string_view found = std::string_view(_text).substr(_begin, _end - _begin);
    if (found.empty()) {
      return 0;
    }
    const Records records = _isCut ? Records{1, found.size()} : FirstRecords(found, most);
    Take(chunk, _begin + records.end);
    if (records.count != 0) {
      return records.count;
    }
  }
  return 0;
}

std::uint64_t Reader::Skip(std::uint64_t most) {
  std::uint64_t skipped = 0;
  Chunk chunk;
  while (const std::uint64_t records = Claim(chunk, most - skipped)) {
    skipped += records;
  }
  return skipped;
}

// Reads on, unless there are records that have not been claimed, until there are or the file ends.
void Reader::FindRecords() {
  if (_begin < _end) {
    return;
  }
  _text.erase(0, _begin);
  _begin = _end = 0;
  while (_end == 0 && !_isAtEnd && _text.size() < kMaxRecordSize) {
    ReadMore();
    _end = LastRecordEnd(_text);
  }
  _isCut = _end == 0 && !_isAtEnd;
  if (_isAtEnd || _isCut) {
    _end = _text.size();
    _isAtEnd = true;
  }
}

// Hands out what comes before a place in the text.
void Reader::Take(Chunk& chunk, std::size_t end) {
  chunk.text.assign(_text, _begin, end - _begin);
  chunk.firstLine = _line;
  chunk.isCut = _isCut;
  _begin = end;
  _line += Count(chunk.text, '\n');
}

// Appends a block, or as much again as there is, so that the time for a long record is linear.
void Reader::ReadMore() {
  const std::size_t before = _text.size();
  const std::size_t wanted = std::min(std::max(_blockSize, before), kMaxRecordSize - before);
  _text.resize(before + wanted);
  const std::size_t got = std::fread(_text.data() + before, 1, wanted, _file.get());
  if (std::ferror(_file.get()) != 0) {
    throw SystemError("read", _source.name);
  }
  _text.resize(before + got);
  _bytesRead += got;
  _isAtEnd = got < wanted;
}

void Parser::FreeParser::operator()(csv_parser* parser) const {
  csv_free(parser);
  delete parser;
}

Parser::Parser(const Source& source) : _source(source), _parser(new csv_parser) {
  // Every unquoted line end in a record is reported: records are passed without theirs.
  csv_init(_parser.get(), CSV_STRICT | CSV_STRICT_FINI | CSV_REPALL_NL);
  // Its buffer, one field long, grows by this much at a time, by 128 bytes if it is not told.
  csv_set_blk_size(_parser.get(), kMaxRecordSize / 16);
}

void Parser::Start(const Chunk& chunk) {
  _rest = chunk.text;
  _nextLine = chunk.firstLine;
  _isCut = chunk.isCut;
}

bool Parser::Next() {
  std::string_view record;
  do {
    if (_rest.empty()) {
      return false;
    }
    record = TakeRecord();
  } while (IsBlank(record) && !_isCut);
  Parse(WithoutLineEnd(record));
  const std::size_t expected = _source.columns.size();
  if (expected != 0 && _ends.size() != expected) {
    throw Error(AtLine(_source, _line) + "expected " + std::to_string(expected) +
                " fields, as in the header, found " + std::to_string(_ends.size()));
  }
  return true;
}

std::string_view Parser::TakeRecord() {
  const std::string_view record = _rest.substr(0, FirstRecordEnd(_rest));
  _rest.remove_prefix(record.size());
  _line = _nextLine;
  _nextLine += Count(record, '\n');
  return record;
}

void Parser::Parse(std::string_view record) {
  _text.clear();
  _ends.clear();
  _hasStrayReturn = false;
  // libcsv, being C, passes no exception on, so what it calls finds the memory that it needs.
  _text.reserve(record.size());
  _ends.reserve(Count(record, ',') + 1);
  const std::size_t parsed =
      csv_parse(_parser.get(), record.data(), record.size(), &AddField, &EndRow, this);
  if (csv_error(_parser.get()) == CSV_ENOMEM) {
    throw std::bad_alloc();
  }
  const std::size_t column = NFields();
  if (parsed != record.size()) {
    const std::uint64_t line = _line + Count(record.substr(0, parsed), '\n');
    throw Error(PlaceOf(line, column) + "a quote out of place in the field that begins on line " +
                std::to_string(Line(column)) +
                "; put the whole field in quotes and double the quotes in it");
  }
  if (_hasStrayReturn) {
    throw Error(AtLine(_source, _line) +
                "a carriage return within the line; lines should end in LF or CRLF");
  }
  if (_isCut) {
    throw Error(AtLine(_source, _line) +
                "the record that begins here does not end within 16 MiB; is a line end or a "
                "closing quote missing?");
  }
  if (csv_fini(_parser.get(), &AddField, &EndRow, this) != 0) {
    throw Error(Place(column) + "the quoted field that begins here never ends");
  }
}

void Parser::AddField(void* text, std::size_t size, void* self) noexcept {
  auto& parser = *static_cast<Parser*>(self);
  parser._text.append(static_cast<const char*>(text), size);
  parser._ends.push_back(parser._text.size());
}

void Parser::EndRow(int lineEnd, void* self) noexcept {
  if (lineEnd != -1) {  // which is the end of the text
    static_cast<Parser*>(self)->_hasStrayReturn = true;
  }
}

std::string_view Parser::Text(std::size_t column) const {
  return std::string_view(_text).substr(Begin(column), _ends[column] - Begin(column));
}

bool Parser::IsMissing(std::size_t column) const {
  const std::string_view text = Text(column);
  return text.empty() || text == "NA";
}

std::optional<double> Parser::Number(std::size_t column) const {
  if (IsMissing(column)) {
    return std::nullopt;
  }
  double number = 0.;
  const std::errc error = ReadNumber(Text(column), number);
  if (error == std::errc() && std::isfinite(number)) {
    return number;
  }
  const std::string what = Place(column) + Quoted(Text(column)) + " is ";
  if (error == std::errc::result_out_of_range) {
    const double nearest = std::strtod(std::string(Text(column)).c_str(), nullptr);
    throw Error(what + (std::isinf(nearest) ? "too large" : "too close to zero") + " for a double");
  }
  throw NotANumber(what + (error == std::errc() ? "not a finite number" : "not a number"));
}

std::string Parser::Place(std::size_t column) const { return PlaceOf(Line(column), column); }

std::uint64_t Parser::Line(std::size_t column) const {
  return _line + Count(std::string_view(_text).substr(0, Begin(column)), '\n');
}

std::string Parser::PlaceOf(std::uint64_t line, std::size_t column) const {
  const bool hasName = column < _source.columns.size();
  return AtLine(_source, line) + "column " + std::to_string(column + 1) +
         (hasName ? " (" + Printable(_source.columns[column]) + "): " : ": ");
}

void CheckIsFile(const std::string& path, const std::string& use) {
  std::error_code error;
  if (path == "-" || std::filesystem::is_other(path, error)) {
    throw Error((path == "-" ? "standard input" : path) + " can't be " + use +
                "; write the data to a file first");
  }
}

Error SameName(const Source& source, std::size_t first, std::size_t second) {
  return Error(AtLine(source, source.headerLine) + "columns " + std::to_string(first + 1) +
               " and " + std::to_string(second + 1) + " are both named " +
               Quoted(source.columns[first]) +
               "; rename one of them in the header, or use neither");
}

std::size_t FindColumn(const Source& source, std::string_view name) {
  const auto begin = source.columns.begin();
  const auto end = source.columns.end();
  const auto found = std::find(begin, end, name);
  if (found == end) {
    std::string message = source.name + ": no column is named " + Quoted(name) + "; there are ";
    for (const std::string& column : source.columns) {
      message += Printable(column) + (&column == &source.columns.back() ? "" : ", ");
    }
    throw Error(message);
  }
  const auto again = std::find(found + 1, end, name);
  if (again != end) {
    throw SameName(source, static_cast<std::size_t>(found - begin),
                   static_cast<std::size_t>(again - begin));
  }
  return static_cast<std::size_t>(found - begin);
}

std::vector<std::size_t> FindColumns(const Source& source, const std::string& names) {
  const Source list{Quoted(names), {}};
  const Chunk chunk{names, 1, false};
  Parser parser(list);
  parser.Start(chunk);
  std::vector<std::size_t> columns;
  while (parser.Next()) {
    for (std::size_t i = 0; i < parser.NFields(); ++i) {
      columns.push_back(FindColumn(source, parser.Text(i)));
    }
  }
  return columns;
}

std::optional<double> ParseNumber(std::string_view text) {
  double number = 0.;
  const std::errc error = ReadNumber(text, number);
  return error == std::errc() && std::isfinite(number) ? std::optional(number) : std::nullopt;
}

std::string Printable(std::string_view text) {
  const auto isControl = [](char c) { return (c >= 0 && c < ' ') || c == '\x7F'; };
  std::string printable(text);
  std::replace_if(printable.begin(), printable.end(), isControl, '?');
  return printable;
}

}  // namespace csv
