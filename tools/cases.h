#pragma once

// The cases of a CSV file: which columns make one up, which cases are used, and a thread's way
// through them. What a host of velmor does between its file and its batches.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <limits>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "csv.h"

namespace csv {

// What a case consists of, as columns of the file, and what it may lack.
struct CaseColumns {
  std::vector<std::size_t> values;
  std::optional<std::size_t> weight;
  std::optional<std::size_t> regWeight;
  std::optional<std::size_t> group;
  std::optional<double> missingCode;  // a value that is missing, as empty ones and NA are
  bool allowsIncomplete = false;      // values may be missing, as long as not all of them are

  bool HasWeights() const { return weight || regWeight; }
};

// The missing code for accumulators of incomplete cases. No value that is present may be equal to
// it, so it is one that hardly ever comes up.
constexpr double kMissingCode = std::numeric_limits<double>::lowest();

// The columns in a list written like a header; without a list all columns but those taken. Throws
// Error when a name in the list is no column's.
std::vector<std::size_t> ListedColumns(const Source& source,
                                       const std::optional<std::string>& names,
                                       const std::set<std::optional<std::size_t>>& taken);
// Throws Error when there are more columns than a velmor accumulator can hold, one comes twice, or
// two have one name.
//   options  what the columns were named in, for the message
void CheckColumns(const Source& source, const std::vector<std::size_t>& columns,
                  const std::string& options);

// A case that is used. Its weights are positive. Where incomplete cases are allowed, the values
// that are missing are NaN and none is kMissingCode; elsewhere none is missing.
struct Case {
  std::vector<double> values;
  double weight = 1.;
  double regWeight = 1.;
  std::string_view group;  // its label; empty without a column of groups
};

struct CaseCounts {
  std::uint64_t read = 0;
  std::uint64_t incomplete = 0;  // left out for what is missing
  std::uint64_t weightless = 0;  // left out for a weight of 0

  std::uint64_t Used() const { return read - incomplete - weightless; }
  CaseCounts& operator+=(const CaseCounts& other);
  bool operator==(const CaseCounts&) const = default;
};

// "150 cases read, 148 used, 2 left out as incomplete", and with weights those of weight 0. Where
// incomplete cases are allowed, those left out are empty or have no weight.
std::string Summary(const CaseCounts& counts, bool hasWeights, bool allowsIncomplete = false);

// How many cases a batch should take: as many as the cache holds, but enough for the merge that
// follows each batch to be a small part of the work, and not more than a batch can number.
//   cacheSize  bytes, as told to the problem
//   rowSize    bytes that a case takes, in all batches of a thread together
//   fewest     cases that cost many times what a merge does
unsigned int BatchRows(std::uint64_t cacheSize, std::uint64_t rowSize, std::size_t columns,
                       std::uint64_t fewest);

// Shows on the terminal how much of a large file has been read. Used by one thread at a time.
class Progress {
 public:
  // passes: how many times the file will be read
  explicit Progress(const std::string& path, unsigned int passes = 1);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Show(std::uint64_t bytesRead);  // in this pass
  void EndPass() { _readBefore += _fileSize; }

 private:
  std::uint64_t _fileSize = 0;  // 0: nothing is shown
  std::uint64_t _readBefore = 0;
  unsigned int _passes;
  std::chrono::steady_clock::time_point _shown;
};

// Of the batches that several threads claim one after the other, the first that has an error. When
// there is one, no more should be claimed; what was claimed before is still looked through, so that
// the error is the same however many threads there are. Used by several threads at once.
class FirstError {
 public:
  bool IsAny() const {
    const std::lock_guard lock(_mutex);
    return _error != nullptr;
  }

  // Calls `action`, which is about the batch of this number, and keeps the Error that it throws
  // unless there is one of a batch before. Returns whether it throws none.
  template <class Action>
  bool Try(std::uint64_t batch, const Action& action) {
    try {
      action();
      return true;
    } catch (const Error&) {
      const std::lock_guard lock(_mutex);
      if (_error == nullptr || batch < _batch) {
        _error = std::current_exception();
        _batch = batch;
      }
      return false;
    }
  }

  // Throws the error if there is one.
  void Rethrow() const {
    if (IsAny()) {
      std::rethrow_exception(_error);
    }
  }

 private:
  mutable std::mutex _mutex;
  std::exception_ptr _error;
  std::uint64_t _batch = 0;  // that it is about
};

// One thread's way through the cases of a file that is shared by several.
class CaseReader {
 public:
  // All must outlive the case reader. Only Claim uses the file and the progress.
  CaseReader(Reader& file, const CaseColumns& columns, Progress& progress);

  // Claims the next cases; false when none is left. One thread at a time: for ReadBatch.
  bool Claim();
  // The same, but no more than `most` records. Returns their number; 0 when none is left.
  std::uint64_t Claim(std::uint64_t most);

  // Goes to the next of the claimed cases that is used; false after the last. Cases that are not
  // used are counted, and looked through all the same for fields that are wrong. Throws Error.
  bool Next();

  // The case that Next went to, always at the same address.
  const Case& Current() const { return _case; }
  const CaseCounts& Counts() const { return _counts; }  // up to there

 private:
  bool TakeCase();
  std::size_t TakeValues();
  std::optional<double> Weight(const std::optional<std::size_t>& column) const;

  Reader& _file;
  const CaseColumns& _columns;
  Progress& _progress;
  Chunk _chunk;
  Parser _parser;
  Case _case;
  CaseCounts _counts;
};

}  // namespace csv
