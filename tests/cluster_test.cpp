// The example programs of several processes: the same bytes from any number of them, and the same
// error. Most of it is in sessions: tests/programs/cluster.txt.
#include <random>
#include <sstream>
#include <string>

#include "session.h"

namespace {

class Cluster : public InDirectory {
 public:
  Cluster() {
    // NOLINTBEGIN(concurrency-mt-unsafe): there is one thread
    setenv("MPIEXEC_TIMEOUT", "100", 1);          // ends a run that hangs
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // MPI never frees some of its memory
    // NOLINTEND(concurrency-mt-unsafe)
  }
};

TEST_F(Cluster, DoesWhatTheSessionsSay) { Session::RunAll(SESSIONS "/cluster.txt"); }

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

void ExpectTheBytesOfOneProcess(const std::string& arguments) {
  const Outcome one = Shell("describe " + arguments + " --save one");
  EXPECT_EQ(one.error, "");
  const auto expectSame = [&](const std::string& ranks) {
    const Outcome outcome = Shell("rm -f other; ranks " + ranks + " cluster " + arguments +
                                  " --threads 2 --save other");
    EXPECT_EQ(outcome.error, "") << arguments << ranks;
    EXPECT_TRUE(outcome.out == one.out) << arguments << ranks << outcome.out;
    EXPECT_TRUE(Contents("other") == Contents("one")) << arguments << ranks;
  };
  expectSame("1");
  expectSame("2");
  expectSame("4");
}

TEST_F(Cluster, GivesTheBytesOfOneProcess) {
  WriteCases("tall.csv", 3000, 4);
  WriteCases("wide.csv", 600, 200);  // states that are sent in several pieces
  for (const char* const arguments :
       {"tall.csv --block-rows 8 --weight u --regression-weight v",
        "tall.csv --block-rows 8 --missing pairwise --weight u --counts",
        "tall.csv --block-rows 8 --variables x0,x1 --with x2,x3 --missing pairwise --weight u",
        "tall.csv --variables x0,x3",  // ranks without cases
        "wide.csv --block-rows 2 --missing pairwise"}) {
    ExpectTheBytesOfOneProcess(arguments);
  }
}

}  // namespace
