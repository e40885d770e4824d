// The example programs of several processes: the same bytes from any number of them, and the same
// error. The build says where the programs are: CLUSTER_PROGRAM, DESCRIBE_PROGRAM,
// FINGERPRINT_PROGRAM, REDUCTION_PROGRAM, RANKS_SCRIPT; and EXAMPLES_README.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>
#include <random>
#include <sstream>
#include <string>

#include "program.h"

namespace {

using testing::HasSubstr;

using Cluster = InDirectory;
using Fingerprint = InDirectory;

// What runs a program on so many ranks, to be put before it. A run that hangs is ended.
std::string OnRanks(int ranks) {
  // MPI itself never frees some of its memory, which is no leak of ours.
  return "MPIEXEC_TIMEOUT=100 ASAN_OPTIONS=detect_leaks=0 '" RANKS_SCRIPT "' " +
         std::to_string(ranks) + ' ';
}

// Columns x0, x1, ... with missing values, and of weights u and v.
void WriteCases(const std::string& name, int rows, int columns) {
  std::ostringstream text;
  text << "u,v";
  for (int column = 0; column < columns; ++column) {
    text << ",x" << column;
  }
  std::mt19937 random(1);
  for (int row = 0; row < rows; ++row) {
    text << '\n' << random() % 5 << ',' << random() % 100 << "e-2";
    for (int column = 0; column < columns; ++column) {
      random() % 100 == 0 ? text << ",NA" : text << ',' << random() % 10000 << "e-3";
    }
  }
  Write(name, text.str() + '\n');
}

TEST_F(Cluster, GivesTheBytesOfOneProcess) {
  WriteCases("tall.csv", 3000, 4);
  WriteCases("wide.csv", 600, 200);  // states that are sent in several pieces
  const char* const cases[] = {
      "tall.csv --block-rows 8 --weight u --regression-weight v",
      "tall.csv --block-rows 8 --missing pairwise --weight u --counts",
      "tall.csv --block-rows 8 --variables x0,x1 --with x2,x3 --missing pairwise --weight u",
      "tall.csv --variables x0,x3",  // ranks without cases
      "wide.csv --block-rows 2 --missing pairwise",
  };
  for (const std::string arguments : cases) {
    SCOPED_TRACE(arguments);
    const Outcome one = RunProgram(DESCRIBE_PROGRAM, arguments + " --save one");
    ASSERT_EQ(one.error, "");
    for (const int ranks : {1, 2, 4}) {
      SCOPED_TRACE(ranks);
      std::filesystem::remove("other");
      const Outcome outcome =
          RunProgram(CLUSTER_PROGRAM, arguments + " --threads 2 --save other", OnRanks(ranks));
      EXPECT_EQ(outcome.error, "");
      EXPECT_TRUE(outcome.out == one.out) << outcome.out;
      EXPECT_TRUE(Contents("other") == Contents("one"));
    }
  }
}

TEST_F(Cluster, EndsWithTheErrorOfOneRankOnAll) {
  WriteCases("x.csv", 3000, 4);
  // A window has 512 rows, and line 1 is the header's.
  std::string text = Contents("x.csv");
  std::size_t at = 0;
  for (int line = 1; line < 600; ++line) {
    at = text.find('\n', at) + 1;
  }
  Write("wrong.csv", text.substr(0, at) + "1,1,1,z,1,1\n" + text.substr(at));
  Write("same.csv", "a,a\n1,2\n");
  text = "a,b\n";
  for (int row = 0; row < 64; ++row) {  // as many as a window has with blocks of one row
    text += "1,2\n";
  }
  Write("cut.csv", text + "1,\"2");
  const std::string other = " : -n 1 '" CLUSTER_PROGRAM "' ";  // and its arguments follow
  const struct {
    int ranks;
    std::string arguments;
    const char* error;
  } cases[] = {
      {4, "y.csv", "rank 0: cannot open y.csv: No such file or directory\n"},
      {2, "x.csv" + other + "y.csv", "rank 2: cannot open y.csv: No such file or directory\n"},
      {2, "x.csv" + other + "wrong.csv --variables x0", "rank 0: x.csv: here it has "},
      {2, "wrong.csv --block-rows 8",
       "rank 1: wrong.csv:600: column 4 (x1): \"z\" is not a number"},
      {4, "x.csv --save nowhere/state", "rank 0: cannot open nowhere/state"},
      {2, "x.csv --variables y", "rank 0: x.csv: no column is named \"y\"; "},
      {2, "-",
       "rank 0: standard input can't be shared among ranks; write the data to a file first\n"},
      {2, "/dev/stdin",
       "rank 0: /dev/stdin can't be shared among ranks; write the data to a file first\n"},
      {2, ".", "rank 0: cannot read .: Is a directory\n"},
      {2, "same.csv",
       "rank 0: same.csv:1: columns 1 and 2 are both named \"a\"; rename one of them in the "
       "header, or use neither\n"},
      {2, "cut.csv --block-rows 1",
       "rank 1: cut.csv:66: column 2 (b): the quoted field that begins here never ends\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments);
    const Outcome outcome = RunProgram(CLUSTER_PROGRAM, c.arguments, OnRanks(c.ranks));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.error, HasSubstr("cluster: " + std::string(c.error)));
    // Told once, by rank 0.
    const std::string program = "cluster: ";
    EXPECT_EQ(outcome.error.find(program), outcome.error.rfind(program));
  }
  // mpirun writes the tables of its ranks by itself.
  const Outcome alone =
      RunProgram(CLUSTER_PROGRAM, "x.csv > /dev/full", "ASAN_OPTIONS=detect_leaks=0 ");
  EXPECT_EQ(alone.status, 1);
  EXPECT_EQ(alone.error, "cluster: rank 0: cannot write the tables: No space left on device\n");
  CountBadInput(std::size(cases) + 1);
}

TEST_F(Cluster, LeavesUsageToTheOptionsParserOfOneRank) {
  const struct {
    const char* arguments;
    bool isWrong;
    std::string text;
  } cases[] = {{"x.csv --varables a", true, "--varables"}, {"--help", false, "Usage: cluster"}};
  for (const auto& c : cases) {
    const Outcome outcome = RunProgram(CLUSTER_PROGRAM, c.arguments, OnRanks(3));
    EXPECT_EQ(outcome.status != 0, c.isWrong);
    const std::string& said = c.isWrong ? outcome.error : outcome.out;
    EXPECT_THAT(said, HasSubstr(c.text));
    EXPECT_EQ(said.find(c.text), said.rfind(c.text));
  }
  CountBadInput(1);
}

TEST_F(Cluster, ReducesOrFailsOnAllRanksAlike) {
  for (const int ranks : {1, 2, 3, 7}) {
    SCOPED_TRACE(ranks);
    const Outcome outcome = RunProgram(REDUCTION_PROGRAM, "", OnRanks(ranks));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.error, "");
  }
  const Outcome escape = RunProgram(REDUCTION_PROGRAM, "--escape", OnRanks(3));
  EXPECT_EQ(escape.status, 1);
  EXPECT_THAT(escape.error, HasSubstr("reduction_ranks: rank 2: on purpose\n"));
}

TEST_F(Fingerprint, IsTheSameForAnyNumberOfThreadsAndRanks) {
  // What every machine prints stands there.
  const std::string readme = Contents(EXAMPLES_README);
  const struct {
    std::string before;
    const char* arguments;
  } cases[] = {
      {"ASAN_OPTIONS=detect_leaks=0 ", ""},  // MPI without mpirun
      {OnRanks(1), "--threads 2"},
      {OnRanks(1), "--threads 3"},
      {OnRanks(1), "--threads 7"},
      {OnRanks(1), ""},
      {OnRanks(2), ""},
      {OnRanks(2), "--threads 3"},
      {OnRanks(4), ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.before + c.arguments);
    const Outcome outcome = RunProgram(FINGERPRINT_PROGRAM, c.arguments, c.before);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.error, "");
    EXPECT_THAT(readme, HasSubstr("```\n" + outcome.out + "```\n"));
  }
}

}  // namespace
