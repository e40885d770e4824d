#pragma once

// The CSV reader of the example programs, made for several threads: one Reader hands out a file's
// records in chunks, which takes a read and a look for the last line end; each thread has a Parser
// of its own, which does the rest.
//
// A file begins with a header, the names of its columns. Fields are separated by commas and may
// stand in quotes; a quoted field may hold commas, line ends and doubled quotes. Lines end in LF
// or CRLF, the last one may lack its end. Blank lines, a UTF-8 byte order mark and blanks around
// a field do not count. A field that is empty or NA is missing. A first line of numbers, none of
// them in quotes, is taken for a header that was forgotten.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

struct csv_parser;  // libcsv's

namespace csv {

// The longest record, line ends in it included. A forgotten quote costs this much memory, not the
// whole file's size.
constexpr std::size_t kMaxRecordSize = std::size_t{16} << 20U;

// What is wrong with a file: which one, and the line and column if it is about one, such as
// "iris.csv:2: column 5 (species): a quote out of place".
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A field that ought to be a number and is neither that nor missing.
class NotANumber : public Error {
 public:
  using Error::Error;
};

// Where records come from, for messages about them.
struct Source {
  std::string name;
  std::vector<std::string> columns;  // empty: not known, records have any number of fields
  std::uint64_t headerLine = 1;      // the line on which these names begin
};

// Whole records, as they stand in the file.
struct Chunk {
  std::string text;
  std::uint64_t firstLine = 1;  // number of the text's first line in the file, counted from 1
  bool isCut = false;           // the text is the beginning of a record that is too long
};

// An open file. Used by one thread at a time.
class Reader {
 public:
  // Opens a file, "-" for standard input, and reads its header.
  //   blockSize  bytes to read at a time; a chunk is about as long
  // Throws Error.
  explicit Reader(const std::string& path, std::size_t blockSize = std::size_t{256} << 10U);

  const Source& GetSource() const { return _source; }
  std::uint64_t BytesRead() const { return _bytesRead; }

  // Takes the next records out of the file; false when there are none left. Holds no more of the
  // file than one chunk and one incomplete record. Throws Error when the file can't be read.
  bool Claim(Chunk& chunk);

  // The same, but no more than `most` records. Returns their number, as Parser::Next will count
  // them; 0 when there are none left.
  std::uint64_t Claim(Chunk& chunk, std::uint64_t most);

  // Passes over the next records, `most` of them if there are so many. Returns their number.
  std::uint64_t Skip(std::uint64_t most);

 private:
  struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  void ReadHeader();
  void FindRecords();
  void Take(Chunk& chunk, std::size_t end);
  void ReadMore();

  Source _source;
  std::unique_ptr<std::FILE, CloseFile> _file;
  std::size_t _blockSize;
  std::uint64_t _bytesRead = 0;
  bool _isAtEnd = false;
  // Claimed records, others, which begin at _begin and are whole up to _end, and the beginning of
  // one more. What is claimed goes when more is read, so that a claim costs no more than it takes.
  std::string _text;
  std::size_t _begin = 0;
  std::size_t _end = 0;
  std::uint64_t _line = 1;  // on which _begin is
  bool _isCut = false;      // the record at _begin is too long
};

// Splits a chunk into records, and these into fields. Allocates only for a record that is longer
// than those before. Not used again after it has thrown.
class Parser {
 public:
  // The source must outlive the parser.
  explicit Parser(const Source& source);

  // Turns to a chunk, which must stay as it is until the next one.
  void Start(const Chunk& chunk);

  // Goes to the next record; false after the last one. Throws Error about quotes, about a carriage
  // return within a line, or when the number of fields differs from that of the columns.
  bool Next();

  // The current record. Columns are counted from 0 here, from 1 in messages.
  std::size_t NFields() const { return _ends.size(); }
  std::string_view Text(std::size_t column) const;
  bool IsMissing(std::size_t column) const;
  // The field as a finite number, nothing when it is missing. Throws NotANumber, or Error when it
  // is a number beyond the range of a double.
  std::optional<double> Number(std::size_t column) const;
  // "file:line: column 5 (species): ": the place of a field, its line being the one it begins on.
  std::string Place(std::size_t column) const;
  std::uint64_t Line() const { return _line; }  // on which the record begins

 private:
  struct FreeParser {
    void operator()(csv_parser* parser) const;
  };

  static void AddField(void* text, std::size_t size, void* self) noexcept;
  static void EndRow(int lineEnd, void* self) noexcept;
  std::string_view TakeRecord();
  void Parse(std::string_view record);
  std::size_t Begin(std::size_t column) const { return column == 0 ? 0 : _ends[column - 1]; }
  std::uint64_t Line(std::size_t column) const;
  std::string PlaceOf(std::uint64_t line, std::size_t column) const;

  const Source& _source;
  std::unique_ptr<csv_parser, FreeParser> _parser;
  std::string_view _rest;
  std::uint64_t _nextLine = 1;  // the line on which _rest begins
  bool _isCut = false;
  std::uint64_t _line = 1;         // the line on which the current record begins
  std::string _text;               // the current record's fields, one after the other
  std::vector<std::size_t> _ends;  // where each of them ends in _text
  bool _hasStrayReturn = false;
};

// What the system says is wrong: "cannot open iris.csv: No such file or directory".
Error SystemError(const std::string& what, const std::string& name);

// Throws Error when what the path names can be read only once, as standard input, "-", and pipes.
//   use  what it can't be, such as "read three times"
void CheckIsFile(const std::string& path, const std::string& use);

// That two columns have one name, so that it does not tell which of them is meant.
Error SameName(const Source& source, std::size_t first, std::size_t second);

// The column of that name. Throws Error when there is none or more than one.
std::size_t FindColumn(const Source& source, std::string_view name);
// The columns named in a list that is written like a header. Throws Error as above.
std::vector<std::size_t> FindColumns(const Source& source, const std::string& names);

// A decimal number such as -1, +.5 or 2e-3, all of the text, finite; nothing otherwise.
std::optional<double> ParseNumber(std::string_view text);

// The text with each control character replaced by '?', so that it stays on its line.
std::string Printable(std::string_view text);

}  // namespace csv
