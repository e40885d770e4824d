// The example programs' CSV reader, and the program describe as a user meets it. The build says
// where the program and the data are: DESCRIBE_PROGRAM, EXAMPLE_DATA.
#include "../examples/csv.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

// A directory of its own for the files of a test, with the current directory in it.
class InDirectory : public testing::Test {
 public:
  InDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "describe_testXXXXXX").string();
    _directory = mkdtemp(name.data());
    std::filesystem::current_path(_directory);
  }
  ~InDirectory() override {
    std::filesystem::current_path("/");
    std::filesystem::remove_all(_directory);
  }

 private:
  std::filesystem::path _directory;
};

using Csv = InDirectory;
using Describe = InDirectory;

void Write(const std::string& name, const std::string& text) {
  std::ofstream(name, std::ios::binary) << text;
}

std::string Contents(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The records of x.csv, one a line, as "line|field|field"; then the error, if there is one.
std::string Records(std::size_t blockSize) {
  std::string records;
  try {
    csv::Reader reader("x.csv", blockSize);
    csv::Parser parser(reader.GetSource());
    for (csv::Chunk chunk; reader.Claim(chunk);) {
      parser.Start(chunk);
      while (parser.Next()) {
        const std::string place = parser.Place(0);
        records += place.substr(6, place.find(':', 6) - 6);
        for (std::size_t column = 0; column < parser.NFields(); ++column) {
          records += '|' + std::string(parser.Text(column));
          records += parser.IsMissing(column) ? "*" : "";
        }
        records += '\n';
      }
    }
  } catch (const csv::Error& error) {
    records += error.what();
  }
  return records;
}

TEST_F(Csv, ReadsRecordsWhateverTheBlockSize) {
  const struct {
    const char* name;
    std::string text;
    const char* records;
  } cases[] = {
      {"plain", "a,b\n1,2\n3,4\n", "2|1|2\n3|3|4\n"},
      {"no last line end", "a,b\n1,2\n3,4", "2|1|2\n3|3|4\n"},
      {"CRLF", "a,b\r\n1,2\r\n3,4\r\n", "2|1|2\n3|3|4\n"},
      {"no last LF", "a\r\n1\r", "2|1\n"},
      {"header only", "a,b", ""},
      {"byte order mark", "\xEF\xBB\xBF\"a\",b\n1,2\n", "2|1|2\n"},
      {"blank lines", "\n \r\na,b\n\n1,2\n\r\n\t\n3,4\n\n", "5|1|2\n8|3|4\n"},
      {"missing", "a,b,c\n,NA,\"\"\n\"NA\",N, \n", "2|*|NA*|*\n3|NA*|N|*\n"},
      {"blanks", "a,b\n 1\t, \"2 \" \n", "2|1|2 \n"},
      {"quoted", "a,b\n\"1,5\",\"\"\"x\"\"\"\n", "2|1,5|\"x\"\n"},
      {"quoted line ends", "a,b\n\"1\n\n2\",\"3\r\n4\"\n5,6\n", "2|1\n\n2|3\r\n4\n6|5|6\n"},
      {"quoted header", "\"a\nb\",c\n1,2\n", "3|1|2\n"},
      {"not ASCII", "\xC3\xA4,b\n\xE2\x82\xAC,\xFF\n", "2|\xE2\x82\xAC|\xFF\n"},
      {"empty", "", "x.csv has no header; its first line should name the columns"},
      {"blank", "\n\n", "x.csv has no header; its first line should name the columns"},
      {"too few", "a,b\n1,2\n\n3\n",
       "2|1|2\nx.csv:4: expected 2 fields, as in the header, found 1"},
      {"too many", "a\n1,\n", "x.csv:2: expected 1 fields, as in the header, found 2"},
      {"stray quote", "a,b\n\"\n\",1\n2,3\"\n4,5\n",
       "2|\n|1\nx.csv:4: column 2 (b): a quote out of place in the field that begins on line 4; "
       "put the whole field in quotes and double the quotes in it"},
      {"after a quote", "a,b\n1,\"\n\"2\n\"3\",4\n",
       "x.csv:3: column 2 (b): a quote out of place in the field that begins on line 2; "
       "put the whole field in quotes and double the quotes in it"},
      {"unclosed quote", "a,b\n\"\n1\",\"2\n\n3,4\n",
       "x.csv:3: column 2 (b): the quoted field that begins here never ends"},
      {"unclosed in header", "a,\"b\n1,2\n",
       "x.csv:1: column 2: the quoted field that begins here never ends"},
      {"leading CR", "a\n\r1\n",
       "x.csv:2: a carriage return within the line; lines should end in LF or CRLF"},
      {"lone CR", "a,b\n1,2\r3,4\n",
       "x.csv:2: a carriage return within the line; lines should end in LF or CRLF"},
  };
  for (const auto& c : cases) {
    Write("x.csv", c.text);
    for (const std::size_t blockSize : {1U, 2U, 3U, 5U, 8U, 13U, 1000U}) {
      SCOPED_TRACE(testing::Message() << c.name << ", blocks of " << blockSize);
      EXPECT_EQ(Records(blockSize), c.records);
    }
  }
}

TEST_F(Csv, LimitsTheLengthOfARecord) {
  const std::string tooLong =
      "x.csv:3: the record that begins here does not end within 16 MiB; is a line end or a closing "
      "quote missing?";
  const std::string longest(csv::kMaxRecordSize - 3, '\n');  // without its quotes and line end
  for (const std::size_t blockSize : {1000U, 1U << 22U, 1U << 25U}) {
    Write("x.csv", "a\n0\n\"" + longest + "\"\n1\n");
    EXPECT_TRUE(Records(blockSize) ==
                "2|0\n3|" + longest + '\n' + std::to_string(longest.size() + 4) + "|1\n");
    Write("x.csv", "a\n0\n\"" + longest + ".\"\n1\n");
    EXPECT_EQ(Records(blockSize), "2|0\n" + tooLong);
    csv::Reader reader("x.csv", blockSize);
    csv::Chunk chunk;
    while (reader.Claim(chunk) && !chunk.isCut) {
    }
    EXPECT_FALSE(reader.Claim(chunk));  // the rest of the record is none
  }
}

TEST(CsvNumber, IsDecimalAndFinite) {
  const struct {
    const char* text;
    double number;
  } good[] = {{"0", 0.},      {"-1.5", -1.5},
              {"+2", 2.},     {".5", .5},
              {"1.", 1.},     {"1e3", 1000.},
              {"1E-3", .001}, {"4.9e-324", 0x1p-1074},
              {"007", 7.},    {"1.7976931348623157e308", 0x1.fffffffffffffp+1023}};
  for (const auto& c : good) {
    EXPECT_EQ(csv::ParseNumber(c.text), c.number) << c.text;
  }
  for (const char* const text : {"", "x", "1x", "1 2", "+-1", "++1", "+", "1,5", "0x1", "inf",
                                 "-inf", "nan", "1e999", "1e", "1\n"}) {
    EXPECT_EQ(csv::ParseNumber(text), std::nullopt) << text;
  }
}

struct Outcome {
  int status;
  std::string out;
  std::string error;
};

// What describe does with these arguments, as written in a shell.
Outcome RunProgram(const std::string& arguments, const std::string& before = "") {
  const std::string command = before + "'" DESCRIBE_PROGRAM "' >out 2>error " + arguments;
  // NOLINTNEXTLINE(cert-env33-c,concurrency-mt-unsafe): a shell to redirect; one thread only
  const int status = std::system(command.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Contents("out"), Contents("error")};
}

// The figures come from exact rational arithmetic on the same files.
TEST_F(Describe, AgreesWithExactArithmetic) {
  const struct {
    const char* arguments;
    std::vector<const char*> lines;
  } cases[] = {
      {"penguins.csv --variables bill_depth_mm,body_mass_g",
       {"344 cases read, 342 used, 2 left out as incomplete\n",
        "\nbill_depth_mm  342  17.1512    1.97479     13.1     21.5\n",
        "\nbody_mass_g    342  4201.75    801.955     2700     6300\n", "\nCorrelations\n",
        "\nbody_mass_g          -0.4719       1.0000\n"}},
      {"iris.csv --variables petal_length --with sepal_length,sepal_width",
       {"150 cases read, 150 used, 0 left out", "\npetal_length  150    3.758     1.7653 ",
        "\nsepal_width   150  3.05733   0.435866        2      4.4\n",
        "\npetal_length        0.8718      -0.4284\n"}},
      {"longley.csv --covariance",
       {"\ngnp             16   387698    99394.9   234289   554894\n", "\nCovariances\n",
        "  -115379        484304   1.7641e+06\n"}},
      {"airquality.csv --variables ozone,wind --weight month --regression-weight day --covariance",
       {"153 cases read, 116 used, 37 left out as incomplete, 0 left out for a weight of 0\n"
        "sum of case weights: 835\nsum of combined weights: 12965\n",
        "\nozone  116  42.4126     132.99        1      168\n", "\nwind   -1096.36   181.438\n"}},
      {"airquality.csv --variables ozone,wind --regression-weight day",
       {"\nsum of combined weights: 1802\n", "\nozone  116  41.8857    132.867        1      168\n",
        "\nwind   -0.5989   1.0000\n"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments);
    const Outcome outcome = RunProgram("'" EXAMPLE_DATA "/'" + std::string(c.arguments));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.error, "");
    for (const char* const line : c.lines) {
      EXPECT_THAT(outcome.out, HasSubstr(line));
    }
  }
}

TEST_F(Describe, LaysTablesOut) {
  Write("x.csv", "\xC3\xA4,\"b, c\",w\n1,-3,1\n2,3,.5\n3,-3,0\n,1,1\n");
  EXPECT_EQ(RunProgram("x.csv --variables '\"b, c\",\xC3\xA4' --weight w").out,
            "4 cases read, 2 used, 1 left out as incomplete, 1 left out for a weight of 0\n"
            "sum of case weights: 1.5\n\n"
            "      N     mean  std. dev.  minimum  maximum\n"
            "b, c  2       -1    4.89898       -3        3\n"
            "\xC3\xA4     2  1.33333   0.816497        1        2\n\n"
            "Correlations\n\n"
            "        b, c       \xC3\xA4\n"
            "b, c  1.0000  1.0000\n"
            "\xC3\xA4     1.0000  1.0000\n");
  // Two columns that don't fit side by side, and one of them does not vary.
  const std::string name(60, 'n');
  const std::string blank(60, ' ');
  Write("x.csv", "a," + name + "\n1,5\n2,5\n");
  EXPECT_THAT(
      RunProgram("x.csv").out,
      EndsWith("\n\n" + blank + "       a\na" + blank + " 1.0000\n" + name + "       .\n\n" +
               blank + "  " + name + "\na" + blank + blank + ".\n" + name + blank + " .\n"));
  Write("x.csv", "a,b\n-1,-1\n1,-1\n-1,1\n1,.9999\n");  // a correlation of -0.00002
  EXPECT_THAT(RunProgram("x.csv").out, EndsWith("\na  1.0000  0.0000\nb  0.0000  1.0000\n"));
  Write("x.csv", "a,b\n5,7\n");  // nothing varies, and W is 1
  EXPECT_THAT(RunProgram("x.csv --covariance").out, EndsWith("   a  b\na  .  .\nb  .  .\n"));
  EXPECT_THAT(RunProgram("x.csv").out, HasSubstr("\na  1     5          .        5        5\n"));
}

TEST_F(Describe, ReadsStandardInput) {
  Write("x.csv", "a\n1\n2\n");
  const std::string expected = RunProgram("x.csv").out;
  EXPECT_THAT(expected, StartsWith("2 cases read, 2 used"));
  EXPECT_EQ(RunProgram("-", "cat x.csv | ").out, expected);
  EXPECT_EQ(RunProgram("/dev/stdin", "cat x.csv | ").out, expected);
}

// More chunks than threads, and more cases than a batch has room for.
TEST_F(Describe, GivesTheSameTablesForAnyNumberOfThreads) {
  constexpr int kColumns = 250;
  std::string names = "x0";
  for (int column = 1; column < kColumns; ++column) {
    names += ",x" + std::to_string(column);
  }
  std::mt19937 random(1);
  std::ostringstream text;
  text << "text,w," << names << '\n';
  for (int row = 0; row < 4000; ++row) {
    text << "\"a,\n\"\"text\"\"\"," << random() % 3;
    for (int column = 0; column < kColumns; ++column) {
      random() % 10000 == 0 ? text << ",NA" : text << ",\"1234" << random() % 1000 << "e-3\"";
    }
    text << '\n';
  }
  Write("x.csv", text.str());
  const std::string arguments = "x.csv --weight w --variables " + names + " --threads ";
  const Outcome one = RunProgram(arguments + '1');
  EXPECT_EQ(one.error, "");
  EXPECT_THAT(one.out, StartsWith("4000 cases read, "));
  for (const char* const threads : {"2", "7", "0"}) {
    EXPECT_TRUE(RunProgram(arguments + threads).out == one.out) << threads;
  }
  Write("x.csv", text.str() + "1,2\n");
  for (const char* const threads : {"1", "7"}) {
    EXPECT_EQ(RunProgram(arguments + threads).error,
              "describe: x.csv:8002: expected 252 fields, as in the header, found 2\n");
  }
}

TEST_F(Describe, SaysWhatIsWrong) {
  const struct {
    std::string text;
    const char* arguments;
    const char* error;
  } cases[] = {
      {"a,b\n\n\"x\ny\",z\n", "--threads 2",
       "x.csv:3: column 1 (a): \"x?y\" is not a number; name the columns to describe with "
       "--variables"},
      {"a,b\n\n\"x\ny\",z\n", "--variables b", "x.csv:4: column 2 (b): \"z\" is not a number"},
      {"a,b\nNA,1e999\n", "--variables a --weight b",
       "x.csv:2: column 2 (b): \"1e999\" is not a number"},
      {"a,b\n1,2\n1,-2\n", "--weight b", "x.csv:3: column 2 (b): the weight -2 is negative"},
      {"a,b\n1,2\nNA,-2\n", "--regression-weight b --threads 7",
       "x.csv:3: column 2 (b): the weight -2 is negative"},
      {"a,b\n1,2\n", "--variables a,c", "x.csv: no column is named \"c\"; there are a, b"},
      {"a,b\n1,2\n", "--weight A", "x.csv: no column is named \"A\"; there are a, b"},
      {"a,b,a\n1,2,3\n", "--variables a",
       "x.csv: columns 1 and 3 are both named \"a\"; rename one of them in the header"},
      {"a,b\n1,2\n", "--variables a --with b,a",
       "column a is named twice in --variables and --with"},
      {"a,b\n1,2\n", "--weight a --with b", "x.csv: no column is left to describe"},
      {"a,b\n1,0\n,1\n", "--weight b",
       "x.csv: no case to describe: 2 cases read, 0 used, 1 left out as incomplete, 1 left out for "
       "a weight of 0"},
      {"a,b\n1e308,0\n1.5e308,1\n", "",
       "x.csv: the values of column a are too large or too close together to compute with; "
       "rescale them"},
      {"a,b\n0,0\n1e-300,1\n", "",
       "x.csv: the values of column a are too large or too close together to compute with; "
       "rescale them"},
      {"a,b\n1,1e308\n2,1e308\n", "--weight b",
       "x.csv: the weights are too large to be added up; rescale them"},
      {"a\n1\n2\n", "> /dev/full", "cannot write the tables: No space left on device"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments);
    Write("x.csv", c.text);
    const Outcome outcome = RunProgram("x.csv " + std::string(c.arguments));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.error, "describe: " + std::string(c.error) + '\n');
  }
  EXPECT_EQ(RunProgram("y.csv").error, "describe: cannot open y.csv: No such file or directory\n");
  EXPECT_EQ(RunProgram(".").error, "describe: cannot read .: Is a directory\n");
}

TEST_F(Describe, LeavesUsageToTheOptionsParser) {
  for (const char* const arguments :
       {"", "x.csv --threads -1", "x.csv --varables a", "x.csv y.csv"}) {
    const Outcome outcome = RunProgram(arguments);
    EXPECT_GT(outcome.status, 1) << arguments;
    EXPECT_EQ(outcome.out, "") << arguments;
  }
  EXPECT_EQ(RunProgram("--help").status, 0);
}

}  // namespace
