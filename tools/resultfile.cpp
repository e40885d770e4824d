// resultfile.cpp: results of studies in files; start at Save and Load, at the end.
#include "resultfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <velmor/blockforest.h>
#include <velmor/state.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "csv.h"

namespace study {
namespace {

constexpr const char* kFormatLine = "describe 1\n";

using Names = std::vector<std::string>;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

File Open(const std::string& path, const char* mode) {
  File file(std::fopen(path.c_str(), mode));
  if (!file) {
    throw csv::SystemError("open", path);
  }
  return file;
}

// What stdio has no call for.
class Descriptor {
 public:
  Descriptor(const std::string& path, int flags) : _number(open(path.c_str(), flags | O_CLOEXEC)) {}
  ~Descriptor() {
    if (IsOpen()) {
      close(_number);
    }
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  bool IsOpen() const { return _number >= 0; }
  int Get() const { return _number; }

 private:
  int _number;
};

// The mode of a file that may be written, nothing when there is none.
std::optional<mode_t> ModeOf(const std::string& path) {
  const Descriptor file(path, O_WRONLY);
  struct stat status {};
  if (file.IsOpen() && fstat(file.Get(), &status) == 0) {
    return status.st_mode & 07777U;
  }
  if (errno != ENOENT) {
    throw csv::SystemError("write", path);
  }
  return std::nullopt;
}

// A file that goes by another name until all of it is on the disk, and is removed if it never is. A
// file that has that name already is not ours: it is left alone, and an error.
class NewFile {
 public:
  explicit NewFile(std::string path) : _path(std::move(path)), _file(Open(PartPath(), "wbx")) {}

  ~NewFile() {
    if (_isPart) {
      std::remove(PartPath().c_str());
    }
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  void SetMode(mode_t mode) {
    if (fchmod(fileno(_file.get()), mode) != 0) {
      throw csv::SystemError("write", _path);
    }
  }

  void Write(std::span<const std::byte> bytes) {
    if (std::fwrite(bytes.data(), 1, bytes.size(), _file.get()) != bytes.size()) {
      throw csv::SystemError("write", _path);
    }
  }

  // If the machine stops, the name leads to what it led to before or to all of the file: that has
  // to be on the disk before its name is, and the name before anyone is told of it.
  void Finish() {
    if (std::fflush(_file.get()) != 0 || fsync(fileno(_file.get())) != 0 ||
        std::fclose(_file.release()) != 0 || std::rename(PartPath().c_str(), _path.c_str()) != 0) {
      throw csv::SystemError("write", _path);
    }
    _isPart = false;
    const std::string folder = std::filesystem::path(_path).parent_path().string();
    const Descriptor names(folder.empty() ? "." : folder, O_RDONLY | O_DIRECTORY);
    // Some file systems have nothing to do for names, and say EINVAL.
    if (!names.IsOpen() || (fsync(names.Get()) != 0 && errno != EINVAL)) {
      throw csv::SystemError("write", _path);
    }
  }

 private:
  std::string PartPath() const { return _path + ".part"; }

  std::string _path;
  File _file;
  bool _isPart = true;
};

// A record: a keyword, then names, each in quotes.
std::string Line(const std::string& keyword, const Names& names) {
  std::string line = keyword;
  for (const std::string& name : names) {
    line += ",\"";
    for (const char c : name) {
      line.append(c == '"' ? 2 : 1, c);
    }
    line += '"';
  }
  return line + '\n';
}

Names Listed(const std::optional<std::string>& name) { return name ? Names{*name} : Names{}; }

// 64 bits of FNV-1a as hexadecimal digits. No change of a single byte leaves them as they are.
std::string Check(std::string_view text) {
  std::uint64_t hash = 0xcbf29ce484222325U;
  for (const char c : text) {
    hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
  }
  std::array<char, 17> digits{};
  std::snprintf(digits.data(), digits.size(), "%016" PRIx64, hash);
  return digits.data();
}

// What comes before the bytes of the sums.
std::string Head(const Subject& subject, const csv::CaseCounts& counts) {
  const auto related = subject.columns.begin() + subject.NVariables();
  const std::string head = kFormatLine + Line("variables", {subject.columns.begin(), related}) +
                           Line("with", {related, subject.columns.end()}) +
                           Line("missing", {subject.isPairwise ? "pairwise" : "listwise"}) +
                           Line("weight", Listed(subject.weight)) +
                           Line("regression weight", Listed(subject.regWeight)) + "cases," +
                           std::to_string(counts.read) + ',' + std::to_string(counts.incomplete) +
                           ',' + std::to_string(counts.weightless) + '\n';
  return head + "check," + Check(head) + "\n\n";
}

// The next record's fields, without the first one, its keyword.
Names TakeFields(csv::Parser& parser) {
  Names fields;
  if (parser.Next()) {
    for (std::size_t i = 1; i < parser.NFields(); ++i) {
      fields.emplace_back(parser.Text(i));
    }
  }
  return fields;
}

std::optional<std::string> NameIn(const Names& fields) {
  return fields.empty() ? std::nullopt : std::optional(fields.front());
}

std::uint64_t Number(const std::string& field) {
  std::uint64_t number = 0;
  std::from_chars(field.data(), field.data() + field.size(), number);
  return number;
}

// Takes the head apart, as far as it is one.
void TakeHead(csv::Parser& parser, Result& result) {
  Subject& subject = result.subject;
  TakeFields(parser);
  subject.columns = TakeFields(parser);
  subject.variables = subject.columns.size();
  const Names related = TakeFields(parser);
  subject.columns.insert(subject.columns.end(), related.begin(), related.end());
  subject.isPairwise = TakeFields(parser) == Names{"pairwise"};
  subject.weight = NameIn(TakeFields(parser));
  subject.regWeight = NameIn(TakeFields(parser));
  Names counts = TakeFields(parser);
  counts.resize(3);
  result.counts = {Number(counts[0]), Number(counts[1]), Number(counts[2])};
  TakeFields(parser);
}

// Whether these can be the sums of so many cases of the subject.
bool HasSumsOf(const Result& result) {
  const auto& [read, incomplete, weightless] = result.counts;
  if (result.subject.variables == 0 || incomplete > read || weightless > read - incomplete) {
    return false;
  }
  // Where only a weight could have said that an empty case is left out, it is in.
  const bool hasAll = result.subject.isPairwise && !result.subject.HasWeights();
  return result.sums->NRows() == (hasAll ? read : result.counts.Used());
}

// Reads a file: all of a result, and of another as much as shows that it is none, since that may
// have no end.
std::string ReadAll(const std::string& path) {
  const File file = Open(path, "rb");
  std::string text;
  constexpr std::size_t kBlockSize = std::size_t{1} << 16U;
  std::size_t got = 0;
  do {
    const std::size_t before = text.size();
    text.resize(before + kBlockSize);
    got = std::fread(text.data() + before, 1, kBlockSize, file.get());
    text.resize(before + got);
  } while (got == kBlockSize && text.starts_with(kFormatLine));
  if (std::ferror(file.get()) != 0) {
    throw csv::SystemError("read", path);
  }
  return text;
}

Result LoadOne(const std::string& path) {
  Result result{path, {}, {}, nullptr};
  const csv::Chunk file{ReadAll(path), 1, false};
  const std::string_view text = file.text;
  if (!text.starts_with(kFormatLine)) {
    throw result.Error("this is not a result that --save of this version has written");
  }
  const csv::Source source{path, {}};
  csv::Parser parser(source);
  parser.Start(file);
  const auto hasChanged = [&result] {
    return result.Error("the lines at its beginning have been changed or cut");
  };
  try {
    TakeHead(parser, result);
  } catch (const csv::Error&) {
    throw hasChanged();
  }
  // For what was found there is one head only.
  const std::string head = Head(result.subject, result.counts);
  if (!text.starts_with(head)) {
    throw hasChanged();
  }
  const auto sums = std::as_bytes(std::span(text).subspan(head.size()));
  try {
    result.sums = velmor::Load<velmor::MatrixBase>(sums.data(), sums.size());
  } catch (const velmor::StateError& error) {
    throw result.Error(error.what());
  }
  if (!HasSumsOf(result)) {
    throw result.Error("the lines at its beginning do not fit the sums behind them");
  }
  return result;
}

// What results have in common that can be merged, and what it is called.
std::vector<std::pair<std::string, std::string>> Properties(const Subject& subject) {
  std::vector<std::pair<std::string, std::string>> properties{
      {"treatment of missing values", subject.isPairwise ? "pairwise" : "listwise"},
      {"column of case weights", subject.weight.value_or("none")},
      {"column of regression weights", subject.regWeight.value_or("none")},
      {"number of columns", std::to_string(subject.columns.size())},
      {"number of variables", std::to_string(subject.variables)}};
  for (const std::string& name : subject.columns) {
    const std::size_t number = properties.size() - 4;
    properties.emplace_back("column " + std::to_string(number), name);
  }
  return properties;
}

void CheckBelongsTo(const Result& first, const Result& other) {
  const auto wanted = Properties(first.subject);
  const auto found = Properties(other.subject);
  const auto [want, have] = std::mismatch(wanted.begin(), wanted.end(), found.begin(), found.end());
  if (have != found.end()) {
    throw other.Error("its " + have->first + " is " + csv::Printable(have->second) + ", that of " +
                      first.source + " is " + csv::Printable(want->second));
  }
}

// Results are merged like blocks: pair by pair, in the order of their numbers.
void Add(std::uint64_t number, Result& result, velmor::BlockForest<velmor::MatrixBase>& forest) {
  try {
    forest.Add(number, std::move(result.sums));
  } catch (const std::invalid_argument&) {
    throw result.Error("the lines at its beginning do not fit the sums behind them");
  } catch (const std::length_error& error) {
    throw result.Error(error.what());
  }
}

}  // namespace

void Save(const Result& result, const std::string& path) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    throw csv::Error("cannot write " + path + ": this is no ordinary file");
  }
  const std::string head = Head(result.subject, result.counts);
  // Where a link leads to, so that it stays one.
  const bool isLink = std::filesystem::is_symlink(path);
  const std::string place = isLink ? std::filesystem::canonical(path, error).string() : path;
  if (isLink && error) {
    throw csv::Error("cannot write " + path + ": " + error.message());
  }
  const std::optional<mode_t> mode = ModeOf(place);
  NewFile file(place);
  if (mode) {
    file.SetMode(*mode);
  }
  file.Write(std::as_bytes(std::span(head)));
  file.Write(velmor::Save(*result.sums));
  file.Finish();
}

Result Load(const std::vector<std::string>& paths) {
  Result all = LoadOne(paths.front());
  constexpr std::uint64_t kMostRows = std::numeric_limits<std::uint32_t>::max();  // of one file
  velmor::BlockForest<velmor::MatrixBase> forest(kMostRows, *NewAccumulator(all.subject));
  Add(0, all, forest);
  std::string sources = all.source;
  for (std::size_t i = 1; i < paths.size(); ++i) {
    Result next = LoadOne(paths[i]);
    CheckBelongsTo(all, next);
    Add(i, next, forest);
    all.counts += next.counts;
    sources += ", " + next.source;
  }
  all.source = sources;
  all.sums = forest.Result();
  return all;
}

}  // namespace study
