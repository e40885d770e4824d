// The example programs of one process, as a user meets them, and what they stand on. Most of it is
// in sessions: tests/programs.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <velmor/state.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <functional>
#include <limits>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "../tools/cases.h"
#include "../tools/csv.h"
#include "../tools/resultfile.h"
#include "session.h"

namespace {

using testing::HasSubstr;

using Csv = InDirectory;
using Describe = InDirectory;
using Discriminate = InDirectory;

constexpr std::uint64_t kAll = std::numeric_limits<std::uint64_t>::max();

// The records of x.csv but the first ones, each as "line|field|field\n"; then the error, if there
// is one. Claims are of no more than `most` records.
std::vector<std::string> Records(std::size_t blockSize, std::uint64_t most = kAll,
                                 std::uint64_t skipped = 0) {
  std::vector<std::string> records;
  try {
    csv::Reader reader("x.csv", blockSize);
    csv::Parser parser(reader.GetSource());
    EXPECT_EQ(reader.Skip(skipped), skipped);
    csv::Chunk chunk;
    while (std::uint64_t claimed = reader.Claim(chunk, most)) {
      EXPECT_LE(claimed, most);
      parser.Start(chunk);
      for (; parser.Next(); --claimed) {
        std::string& record = records.emplace_back(std::to_string(parser.Line()));
        for (std::size_t column = 0; column < parser.NFields(); ++column) {
          record.append("|").append(parser.Text(column));
          record += parser.IsMissing(column) ? "*" : "";
        }
        record += '\n';
      }
      EXPECT_EQ(claimed, 0U);
    }
  } catch (const csv::Error& error) {
    records.emplace_back(error.what()) += '\n';
  }
  return records;
}

// The same for all sizes of blocks and claims, and for records that are skipped.
std::string AllRecords(const std::string& /*arguments*/) {
  const std::vector<std::string> records = Records(1000);
  const bool isWrong = !records.empty() && records.back().starts_with("x.csv");
  for (const std::size_t blockSize : {1U, 2U, 3U, 5U, 8U, 13U, 1000U}) {
    for (const std::uint64_t most : {std::uint64_t{1}, std::uint64_t{2}, kAll}) {
      for (std::size_t skipped = 0; skipped <= (isWrong ? 0 : records.size()); ++skipped) {
        const auto rest = records.begin() + static_cast<std::ptrdiff_t>(skipped);
        EXPECT_EQ(Records(blockSize, most, skipped), std::vector(rest, records.end()))
            << "blocks of " << blockSize << ", claims of " << most << ", skipped: " << skipped;
      }
    }
  }
  std::string text;
  for (const std::string& record : records) {
    text += record;
  }
  return text.empty() ? "none\n" : text;
}

std::string Numbers(const std::string& texts) {
  std::istringstream words(texts);
  std::ostringstream numbers;
  numbers.precision(std::numeric_limits<double>::max_digits10);
  for (std::string word; words >> word;) {
    const std::optional<double> number = csv::ParseNumber(word);
    numbers << (numbers.tellp() == 0 ? "" : " ");
    number ? numbers << *number : numbers << '?';
  }
  return numbers.str() + '\n';
}

TEST_F(Csv, ReadsRecordsAndNumbersAsTheSessionsSay) {
  const int commands =
      Session::RunAll(SESSIONS "/csv.txt", {{"records", AllRecords}, {"numbers", Numbers}});
  CountBadInput(static_cast<std::size_t>(commands));
}

TEST_F(Csv, SkipsNoMoreThanThereIsAndReadsNoMoreForIt) {
  Write("x.csv", "a\n1\n2\n3\n" + std::string(10000, '\n'));
  csv::Reader reader("x.csv", 100);
  EXPECT_EQ(reader.Skip(1), 1U);
  EXPECT_EQ(reader.Skip(1), 1U);
  EXPECT_EQ(reader.BytesRead(), 100U);
  EXPECT_EQ(reader.Skip(2), 1U);
  EXPECT_EQ(reader.Skip(1), 0U);
}

TEST_F(Csv, LimitsTheLengthOfARecord) {
  const std::string wrong =
      "x.csv:3: the record that begins here does not end within 16 MiB; is a line end or a closing "
      "quote missing?\n";
  const std::string longest(csv::kMaxRecordSize - 3, '\n');  // without its quotes and line end
  const std::string line = std::to_string(longest.size() + 4);
  for (const std::size_t blockSize : {1000U, 1U << 22U, 1U << 25U}) {
    Write("x.csv", "a\n0\n\"" + longest + "\"\n1\n");
    EXPECT_TRUE(Records(blockSize) ==
                (std::vector<std::string>{"2|0\n", "3|" + longest + '\n', line + "|1\n"}));
    for (const std::string& tooLong : {'"' + longest + ".\"\n1\n",
                                       // and then perhaps a value
                                       std::string(longest.size() + 4, ' ')}) {
      Write("x.csv", "a\n0\n" + tooLong);
      EXPECT_EQ(Records(blockSize), (std::vector<std::string>{"2|0\n", wrong}));
      // The rest of the record is none.
      EXPECT_EQ(csv::Reader("x.csv", blockSize).Skip(kAll), 2U);
    }
  }
}

// After a long record there are as many bytes in memory.
TEST_F(Csv, AClaimCostsWhatItTakes) {
  constexpr std::uint64_t kRows = 500'000;
  const std::size_t longRecord = 9'000'000;
  std::string text = "a\n\"" + std::string(longRecord, '.') + "\"\n";
  for (std::uint64_t row = 0; row < kRows; ++row) {
    text += "1\n";
  }
  Write("x.csv", text);
  csv::Reader reader("x.csv");
  csv::Chunk chunk;
  std::uint64_t records = 0;
  const std::clock_t begin = std::clock();
  while (reader.Claim(chunk, 1) != 0) {
    ++records;
    ASSERT_LT(std::clock() - begin, 30 * CLOCKS_PER_SEC) << records;
  }
  EXPECT_EQ(records, kRows + 1);
}

TEST(FirstError, IsThatOfTheFirstBatchWhicheverIsFoundFirst) {
  for (const std::vector<std::uint64_t>& batches :
       {std::vector<std::uint64_t>{3, 1, 2}, {1, 2, 3}, {2, 3, 1}}) {
    csv::FirstError error;
    EXPECT_NO_THROW(error.Rethrow());
    for (const std::uint64_t batch : batches) {
      EXPECT_FALSE(error.Try(batch, [batch] { throw csv::Error(std::to_string(batch)); }));
      EXPECT_TRUE(error.Try(0, [] {}));
    }
    EXPECT_THAT([&error] { error.Rethrow(); },
                testing::ThrowsMessage<csv::Error>(testing::Eq("1")));
  }
}

TEST_F(Describe, DoesWhatTheSessionsSay) { Session::RunAll(SESSIONS "/describe.txt"); }

TEST_F(Discriminate, DoesWhatTheSessionsSay) { Session::RunAll(SESSIONS "/discriminate.txt"); }

// Expects the same output, and the same file of a command that writes x.result, on any number of
// threads. Returns the output.
std::string OutputOnAnyThreads(const std::string& command) {
  const Outcome one = Shell(command + " --threads 1");
  const std::string saved = Contents("x.result");
  for (const char* const threads : {"2", "3", "7", "0"}) {
    const Outcome outcome = Shell(command + " --threads " + threads);
    EXPECT_EQ(outcome.error, one.error) << command << threads;
    EXPECT_TRUE(outcome.out == one.out) << command << threads << outcome.out;
    EXPECT_TRUE(Contents("x.result") == saved) << command << threads;
  }
  return one.out + one.error;
}

// x0,x1,...
std::string ColumnNames(int number) {
  std::string names = "x0";
  for (int column = 1; column < number; ++column) {
    names += ",x" + std::to_string(column);
  }
  return names;
}

// More chunks than threads, more cases than a block has room for, and than a window where blocks
// are small.
TEST_F(Describe, GivesTheSameResultForAnyNumberOfThreads) {
  const std::string names = ColumnNames(250);
  std::mt19937 random(1);
  std::ostringstream text;
  text << "text,w," << names << '\n';
  for (int row = 0; row < 4000; ++row) {
    text << "\"a,\n\"\"text\"\"\"," << random() % 3;
    for (int column = 0; column < 250; ++column) {
      random() % 1000 == 0 ? text << ",NA" : text << ",\"1234" << random() % 1000 << "e-3\"";
    }
    text << (row % 7 == 0 ? "\n\n" : "\n");
  }
  Write("x.csv", text.str());
  const std::string listwise =
      "describe x.csv --weight w --save x.result --variables " + names + " --block-rows ";
  const std::string pairwise =
      "describe x.csv --save x.result --missing pairwise --counts --with x99 --regression-weight w "
      "--variables " +
      names.substr(0, names.find(",x99")) + " --block-rows ";
  for (const std::string& command : {listwise, pairwise}) {
    for (const char* const rows : {"7", "4096"}) {
      EXPECT_THAT(OutputOnAnyThreads(command + rows), HasSubstr("4000 cases read, "));
    }
  }
  Write("x.csv", text.str() + "1,2\n" + text.str() + "\n\"\n");
  EXPECT_EQ(OutputOnAnyThreads(listwise + "4096"),
            "describe: x.csv:8574: expected 252 fields, as in the header, found 2\n");
}

// More chunks and batches than threads; groups that begin late, missing values, weights of 0; and
// two columns so near to each other that the last bits of their sums would be seen in the tables.
TEST_F(Discriminate, GivesTheSameTablesForAnyNumberOfThreads) {
  std::mt19937 random(1);
  std::ostringstream text;
  text << "a,b,c,near a,weight,group\n";
  int usedOfLast = 0;
  for (int row = 0; row < 60000; ++row) {
    const auto group = random() % (row < 40000 ? 3 : 5);
    const auto a = random() % 1000 + 100 * group;
    text << a << ".123456,\"" << random() % 1000 << "\",";
    const bool isMissing = random() % 1000 == 0;
    isMissing ? text << "NA" : text << random() % 1000 + 50 * (group % 2) << "e-3";
    const auto weight = random() % 3;
    text << ',' << a << ".1" << random() % 10 << ",." << weight << ",\"group\n" << group << "\"\n";
    usedOfLast += group == 4 && !isMissing && weight != 0 ? 1 : 0;
  }
  Write("x.csv", text.str());
  EXPECT_THAT(OutputOnAnyThreads("discriminate x.csv --group group --weight weight"),
              HasSubstr("\ngroup?4   " + std::to_string(usedOfLast) + "  "));
}

// Two chunks have errors. Those of the second are found before or after those of the first.
TEST_F(Csv, TellsTheFirstErrorOnAnyNumberOfThreads) {
  const struct {
    int first;
    int second;
  } cases[] = {{125002, 131100}, {10, 250000}};
  for (const auto& c : cases) {
    std::string text = "v,g\n";
    for (int line = 2; line <= 300000; ++line) {
      text += line == c.first || line >= c.second ? ".,b\n" : "1,a\n";
    }
    Write("x.csv", text);
    const std::string error =
        ": x.csv:" + std::to_string(c.first) + ": column 1 (v): \".\" is not a number\n";
    EXPECT_EQ(OutputOnAnyThreads("describe x.csv --variables v"), "describe" + error);
    EXPECT_EQ(OutputOnAnyThreads("discriminate x.csv --group g --variables v"),
              "discriminate" + error);
  }
}

TEST_F(Describe, TrustsNoByteThatItLoads) {
  Write("x.csv", "a,b,w\n1,2,1\n2,1,4\n");
  Shell("describe x.csv --weight w --save x");
  const std::string saved = Contents("x");
  ASSERT_EQ(study::Load({"x"}).counts.read, 2U);
  for (std::size_t at = 0; at < saved.size(); ++at) {
    std::string changed = saved;
    changed[at] = static_cast<char>(changed[at] ^ (at % 2 == 0 ? 1 : '\x10'));
    for (const std::string& text :
         {changed, saved.substr(0, at), saved + changed.substr(0, at + 1)}) {
      Write("y", text);
      EXPECT_THROW(study::Load({"y"}), csv::Error) << at;
    }
  }
}

// A result of one case of one column.
study::Result ResultOfOne(const study::Subject& subject, double weight) {
  const double value = 1.;
  velmor::DataBatch batch(1, 1, &weight, nullptr, nullptr);
  batch.AddRow(&value);
  study::Result result{"", subject, {1, 0, 0}, NewAccumulator(subject)};
  *result.sums += batch;
  return result;
}

// Results that no file of cases gives: cases without weight are left out of it, for example.
TEST_F(Describe, RefusesResultsThatCannotBe) {
  study::Result result = ResultOfOne({{"a"}, 1, false, "w", std::nullopt}, 0.);
  study::Save(result, "x");
  EXPECT_EQ(Shell("describe --load x").error,
            "describe: x: the weights of the cases used add up to nothing\n");
  const struct {
    std::size_t variables = 0;
    csv::CaseCounts counts;
  } cases[] = {{0, {1, 0, 0}}, {1, {1, 2, 0}}, {1, {2, 1, 2}}, {1, {2, 0, 0}}};
  for (const auto& c : cases) {
    result.subject.variables = c.variables;
    result.counts = c.counts;
    study::Save(result, "x");
    EXPECT_EQ(Shell("describe --load x").error,
              "describe: x: the lines at its beginning do not fit the sums behind them\n");
  }
  CountBadInput(1 + std::size(cases));
}

TEST_F(Describe, RefusesMoreCasesThanAreCounted) {
  study::Result result = ResultOfOne({{"a"}, 1, true, "w", std::nullopt}, 1.);
  for (; result.counts.read < std::uint64_t{1} << 30U; result.counts.read *= 2) {
    *result.sums += *velmor::Load<velmor::MatrixBase>(velmor::Save(*result.sums));
  }
  study::Save(result, "x");
  EXPECT_THAT(Shell("describe --load x").out, HasSubstr("1073741824 cases read, "));
  EXPECT_EQ(Shell("describe --load x x").error,
            "describe: x: more cases than this accumulator can count, 2147483647\n");
  CountBadInput(1);
}

// The calls for the disk by this program, with the names of their files, and one that shall fail.
// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)
std::vector<std::string> diskCalls;
std::string failingCall;
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

int NoteCall(const std::string& call, const std::function<long()>& system) {
  diskCalls.push_back(call);
  errno = EIO;
  return call == failingCall ? -1 : static_cast<int>(system());
}

TEST_F(Describe, NamesAResultWhenItIsOnTheDisk) {
  const study::Result result = ResultOfOne({{"a"}, 1, false, std::nullopt, std::nullopt}, 1.);
  const std::string folder = std::filesystem::current_path().filename().string();
  const std::vector<std::string> calls{"fsync x.part", "rename x.part", "fsync " + folder};
  for (const std::string& failing : calls) {
    Write("x", "as it was");
    diskCalls.clear();
    failingCall = failing;
    EXPECT_THROW(study::Save(result, "x"), csv::Error) << failing;
    EXPECT_EQ(Contents("x") == "as it was", failing != calls.back()) << failing;
    EXPECT_FALSE(std::filesystem::exists("x.part")) << failing;
  }
  EXPECT_EQ(diskCalls, calls);
  CountBadInput(calls.size());
}

// The reader of tables that are more than a pipe holds goes away after a byte: the signal for that
// ends the program, or an error where it is ignored.
TEST_F(Describe, FailsWithoutAReader) {
  const std::string names = ColumnNames(200);
  Write("x.csv", names + "\n1" + std::string(199, ',') + '\n');
  std::string text = "g,a,b,c,d\n";
  for (int row = 0; row < 1000; ++row) {
    text += std::to_string(row / 4);
    for (int column = 0; column < 4; ++column) {
      text += ',' + std::to_string(row * (row + column) % (7 + column));
    }
    text += '\n';
  }
  Write("g.csv", text);
  const auto expectFailure = [](const std::string& command) {
    const std::string pipe = "rm -f pipe; mkfifo pipe; head -c 1 <pipe >first & ";
    const Outcome ended = Shell(pipe + "env --default-signal=PIPE " + command + " >pipe");
    EXPECT_EQ(ended.status, 128 + SIGPIPE) << command;
    EXPECT_EQ(ended.error, "");
    const Outcome failed = Shell(pipe + "trap '' PIPE; " + command + " >pipe");
    EXPECT_EQ(failed.status, 1) << command;
    EXPECT_THAT(failed.error, testing::EndsWith(": cannot write the tables: Broken pipe\n"));
    CountBadInput(2);
  };
  expectFailure("describe x.csv --missing pairwise");
  expectFailure("discriminate g.csv --group g --threads 2");
}

// Interrupted while it reads a pipe: after all of the file, but not its end.
TEST_F(Describe, EndsWhenInterrupted) {
  std::string text = "a,b\n";
  for (int row = 0; row < 100000; ++row) {
    text += "1234.5,678.9\n";
  }
  Write("x.csv", text);
  const auto expectEnd = [](const std::string& signal, int number, const std::string& threads) {
    const Outcome outcome =
        Shell("rm -f pipe; mkfifo pipe; { cat x.csv; kill -" + signal +
              " $(cat id); timeout 20 tail --pid=$(cat id) -s .02 -f /dev/null; } >pipe & "
              "env --default-signal sh -c 'echo $$ >id; exec describe pipe --save result "
              "--block-rows 100 --threads " +
              threads + "'");
    EXPECT_EQ(outcome.status, 128 + number) << threads;
    EXPECT_EQ(outcome.out, "");
    EXPECT_FALSE(std::filesystem::exists("result"));
    EXPECT_FALSE(std::filesystem::exists("result.part"));
    CountBadInput(1);
  };
  for (const char* const threads : {"1", "4"}) {
    expectEnd("INT", SIGINT, threads);
    expectEnd("TERM", SIGTERM, threads);
    expectEnd("HUP", SIGHUP, threads);
  }
}

TEST_F(Describe, SaysThatMemoryRanOut) {
  const std::string limit = "ulimit -v 1000000; describe ";  // in KiB, a block has more
  if (Shell(limit + "--help").status != 0) {
    GTEST_SKIP() << "the program itself needs more, as with a sanitizer";
  }
  Write("x.csv", "a,b\n1,2\n");
  const Outcome outcome = Shell(limit + "x.csv --threads 1 --block-rows 67108864");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.error, "describe: out of memory\n");
  CountBadInput(1);
}

}  // namespace

// In place of the C library's, for this program.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
int fsync(int descriptor) {
  const auto name = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor));
  return NoteCall("fsync " + name.filename().string(),
                  [=] { return syscall(SYS_fsync, descriptor); });
}
int rename(const char* from, const char* to) noexcept {
  return NoteCall("rename " + std::string(from),
                  [=] { return syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0); });
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
