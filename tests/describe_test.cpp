// The example programs' CSV reader, and the program describe as a user meets it. The build says
// where the program and the data are: DESCRIBE_PROGRAM, EXAMPLE_DATA.
#include "../examples/csv.h"
#include "../examples/resultfile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <velmor/state.h>

#include <csignal>
#include <filesystem>
#include <iterator>
#include <limits>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "program.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

using Csv = InDirectory;
using Describe = InDirectory;

constexpr std::uint64_t kAll = std::numeric_limits<std::uint64_t>::max();

// The records of x.csv but the first ones, one a line, as "line|field|field"; then the error, if
// there is one. Claims are of no more than `most` records.
std::string Records(std::size_t blockSize, std::uint64_t most = kAll, std::uint64_t skipped = 0) {
  std::string records;
  try {
    csv::Reader reader("x.csv", blockSize);
    csv::Parser parser(reader.GetSource());
    EXPECT_EQ(reader.Skip(skipped), skipped);
    csv::Chunk chunk;
    while (std::uint64_t claimed = reader.Claim(chunk, most)) {
      EXPECT_LE(claimed, most);
      parser.Start(chunk);
      for (; parser.Next(); --claimed) {
        const std::string place = parser.Place(0);
        records += place.substr(6, place.find(':', 6) - 6);
        for (std::size_t column = 0; column < parser.NFields(); ++column) {
          records += '|' + std::string(parser.Text(column));
          records += parser.IsMissing(column) ? "*" : "";
        }
        records += '\n';
      }
      EXPECT_EQ(claimed, 0U);
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
      {"numbers first", "\n1,NA,+1e999,\n\"2\",3,4,5\n",
       "x.csv:2: only numbers, where the columns should be named; if they are names, put them in "
       "quotes"},
      {"names of numbers", "1,\"2\"\n3,4\n", "2|3|4\n"},
      {"one name", "1,b\n3,4\n", "2|3|4\n"},
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
      for (const std::uint64_t most : {std::uint64_t{1}, std::uint64_t{2}, kAll}) {
        SCOPED_TRACE(testing::Message()
                     << c.name << ", blocks of " << blockSize << ", claims of " << most);
        EXPECT_EQ(Records(blockSize, most), c.records);
      }
    }
  }
  CountBadInput(std::size(cases));
}

TEST_F(Csv, SkipsRecords) {
  Write("x.csv", "a,b\n\n1,\"\n\n2\"\n\n \n3,4\n5,6\n\n7,8");
  const std::vector<std::string> records{"3|1|\n\n2\n", "8|3|4\n", "9|5|6\n", "11|7|8\n"};
  for (const std::size_t blockSize : {1U, 7U, 1000U}) {
    std::string rest;
    for (std::size_t skipped = records.size(); skipped != 0;) {
      rest.insert(0, records[--skipped]);
      EXPECT_EQ(Records(blockSize, 2, skipped), rest);
    }
    csv::Reader reader("x.csv", blockSize);
    EXPECT_EQ(reader.Skip(5), 4U);
    EXPECT_EQ(reader.Skip(1), 0U);
  }
  // One by one, and no more is read than that takes.
  Write("x.csv", "a\n1\n2\n3\n" + std::string(10000, '\n'));
  csv::Reader reader("x.csv", 100);
  for (int skipped = 0; skipped < 3; ++skipped) {
    EXPECT_EQ(reader.Skip(1), 1U);
    EXPECT_EQ(reader.BytesRead(), 100U);
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
    Write("x.csv", "a\n0\n" + std::string(longest.size() + 4, ' '));  // and then perhaps a value
    EXPECT_EQ(Records(blockSize), "2|0\n" + tooLong);
    Write("x.csv", "a\n0\n\"" + longest + ".\"\n1\n");
    csv::Reader reader("x.csv", blockSize);
    csv::Chunk chunk;
    while (reader.Claim(chunk) && !chunk.isCut) {
    }
    EXPECT_FALSE(reader.Claim(chunk));  // the rest of the record is none
    EXPECT_EQ(csv::Reader("x.csv", blockSize).Skip(kAll), 2U);
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

// x0,x1,...
std::string ColumnNames(int number) {
  std::string names = "x0";
  for (int column = 1; column < number; ++column) {
    names += ",x" + std::to_string(column);
  }
  return names;
}

Outcome RunDescribe(const std::string& arguments, const std::string& before = "") {
  return RunProgram(DESCRIBE_PROGRAM, arguments, before);
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
      {"airquality.csv --variables ozone,solar_r,wind,temp --missing pairwise --counts",
       {"153 cases read, 153 used, 0 left out as empty\n\n",
        "\nozone    116  42.1293    32.9879        1      168\n",
        "\nsolar_r  146  185.932    90.0584        7      334\n",
        "\nwind     153  9.95752      3.523      1.7     20.7\n",
        "\nozone     1.0000   0.3483  -0.6015   0.6984\n",
        "\nsolar_r   0.3483   1.0000  -0.0568   0.2758\n",
        "\ntemp      0.6984   0.2758  -0.4580   1.0000\n\nNumbers of cases\n",
        "\nozone      116      111   116   116\nsolar_r    111      146   146   146\n"}},
      {"airquality.csv --variables ozone,wind,temp --missing pairwise --weight solar_r "
       "--covariance",
       {"153 cases read, 146 used, 7 left out as empty or without a weight, 0 left out for a "
        "weight "
        "of 0\nsum of case weights: 27146\n",
        "\nozone  111   47.765    34.0219        1      168\n",
        "\nwind   146  9.90757    3.43186      1.7     20.7\n",
        "\nozone   1157.49  -76.5369   212.946\nwind   -76.5369   11.7777  -13.1774\n"}},
      {"airquality.csv --variables ozone,solar_r,wind --missing pairwise --regression-weight day",
       {"\nsum of combined weights: 2418\n",
        "\nsolar_r  146    178.6    368.497        7      334\n",
        "\nozone     1.0000   0.3770  -0.5989\nsolar_r   0.3770   1.0000  -0.0585\n"}},
      {"airquality.csv --variables ozone,solar_r --with wind,temp --missing pairwise --covariance "
       "--counts --weight month --regression-weight day",
       {"\nsum of case weights: 1070\nsum of combined weights: 16895\n",
        "\nsolar_r  146  178.303    356.296        7      334\n",
        "\nwind     153  9.92656     13.645      1.7     20.7\n",
        "\nozone    -1096.36  3386.66\nsolar_r  -354.749  4263.07\n",
        "\nozone     116   116\nsolar_r   146   146\n"}},
      {"penguins.csv --variables bill_depth_mm,body_mass_g --with year --missing pairwise",
       {"344 cases read, 344 used, 0 left out as empty\n",
        "\nbill_depth_mm  342  17.1512    1.97479     13.1     21.5\n",
        "\nyear           344  2008.03   0.818356     2007     2009\n",
        "\nbill_depth_mm  -0.0604\nbody_mass_g     0.0422\n"}},
      {"penguins.csv --variables bill_length_mm,body_mass_g --missing pairwise --weight year",
       {"344 cases read, 342 used, 2 left out as empty or without a weight, ",
        "\nsum of case weights: 686746\n",
        "\nbody_mass_g     342  4201.77    800.786     2700     6300\n",
        "\nbody_mass_g             0.5951       1.0000\n"}},
  };
  for (const auto& c : cases) {
    for (const char* const how : {"", " --block-rows 1 --threads 3"}) {
      SCOPED_TRACE(std::string(c.arguments) + how);
      const Outcome outcome = RunDescribe("'" EXAMPLE_DATA "/'" + std::string(c.arguments) + how);
      EXPECT_EQ(outcome.status, 0);
      EXPECT_EQ(outcome.error, "");
      for (const char* const line : c.lines) {
        EXPECT_THAT(outcome.out, HasSubstr(line));
      }
    }
  }
}

TEST_F(Describe, LaysTablesOut) {
  Write("x.csv", "\xC3\xA4,\"b, c\",w\n1,-3,1\n2,3,.5\n3,-3,0\n,1,1\n");
  EXPECT_EQ(RunDescribe("x.csv --variables '\"b, c\",\xC3\xA4' --weight w").out,
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
      RunDescribe("x.csv").out,
      EndsWith("\n\n" + blank + "       a\na" + blank + " 1.0000\n" + name + "       .\n\n" +
               blank + "  " + name + "\na" + blank + blank + ".\n" + name + blank + " .\n"));
  Write("x.csv", "a,b\n-1,-1\n1,-1\n-1,1\n1,.9999\n");  // a correlation of -0.00002
  EXPECT_THAT(RunDescribe("x.csv").out, EndsWith("\na  1.0000  0.0000\nb  0.0000  1.0000\n"));
  Write("x.csv", "a,b\n5,7\n");  // nothing varies, and W is 1
  EXPECT_THAT(RunDescribe("x.csv --covariance").out, EndsWith("   a  b\na  .  .\nb  .  .\n"));
  EXPECT_THAT(RunDescribe("x.csv").out, HasSubstr("\na  1     5          .        5        5\n"));
}

TEST_F(Describe, GivesEachPairItsOwnCases) {
  // One pair has one case, two have none.
  Write("x.csv", "a,b,c\n1,NA,\n2,4,\n,5,NA\n,7,\n,,\n");
  EXPECT_EQ(RunDescribe("x.csv --missing pairwise --counts").out,
            "5 cases read, 4 used, 1 left out as empty\n\n"
            "   N     mean  std. dev.  minimum  maximum\n"
            "a  2      1.5   0.707107        1        2\n"
            "b  3  5.33333    1.52753        4        7\n"
            "c  0        .          .        .        .\n\n"
            "Correlations\n\n"
            "        a       b  c\n"
            "a  1.0000       .  .\n"
            "b       .  1.0000  .\n"
            "c       .       .  .\n\n"
            "Numbers of cases\n\n"
            "   a  b  c\n"
            "a  2  1  0\n"
            "b  1  3  0\n"
            "c  0  0  0\n");
  EXPECT_THAT(RunDescribe("x.csv --variables a --with b,c --missing pairwise --covariance").out,
              EndsWith("\n\nCovariances\n\n   b  c\na  .  .\n"));
  // What one column lacks leaves the others as they are.
  EXPECT_THAT(RunDescribe("x.csv --variables b,c --missing pairwise").out,
              StartsWith("5 cases read, 3 used, 2 left out as empty\n"));
  EXPECT_THAT(RunDescribe("x.csv --variables a,b --counts").out,
              EndsWith("\n\nNumbers of cases\n\n   a  b\na  1  1\nb  1  1\n"));
}

TEST_F(Describe, TakesACodeForMissing) {
  std::string text = Contents(EXAMPLE_DATA "/airquality.csv");
  const std::vector<std::string> codes{"-99", "NA", "-9.9e1", "\"-99.0\"", ""};
  std::size_t missing = 0;
  for (std::size_t at = 0; (at = text.find("NA", at)) != std::string::npos; ++missing) {
    const std::string& code = codes[missing % codes.size()];
    text.replace(at, 2, code);
    at += code.size();
  }
  ASSERT_EQ(missing, 44U);
  Write("coded.csv", text);
  for (const char* const options :
       {"", " --missing pairwise --counts", " --variables ozone --with solar_r --missing pairwise",
        " --missing pairwise --weight month"}) {
    SCOPED_TRACE(options);
    const Outcome expected =
        RunDescribe("'" EXAMPLE_DATA "/airquality.csv'" + std::string(options));
    EXPECT_THAT(expected.out, StartsWith("153 cases read, "));
    EXPECT_EQ(RunDescribe("coded.csv --missing-code -99" + std::string(options)).out, expected.out);
    EXPECT_NE(RunDescribe("coded.csv" + std::string(options)).out, expected.out);
  }
  // In weights it is a number.
  Write("x.csv", "a,w\n2,2\n3,1\n5,2\n");
  for (const char* const how : {"listwise", "pairwise"}) {
    EXPECT_THAT(RunDescribe("x.csv --weight w --missing-code 2 --missing " + std::string(how)).out,
                HasSubstr("\nsum of case weights: 3\n\n   N     mean  std. dev.  minimum  maximum\n"
                          "a  2  4.33333     1.1547        3        5\n"));
  }
  // A code that is the number taken without one.
  Write("x.csv", "a,b\n-1.7976931348623157e308,2\n3,1\n5,2\n");
  EXPECT_THAT(RunDescribe("x.csv --missing-code -1.7976931348623157e308 --missing pairwise").out,
              HasSubstr("\na  2        4    1.41421        3        5\n"));
}

TEST_F(Describe, ReadsStandardInput) {
  Write("x.csv", "a\n1\n2\n");
  const std::string expected = RunDescribe("x.csv").out;
  EXPECT_THAT(expected, StartsWith("2 cases read, 2 used"));
  EXPECT_EQ(RunDescribe("-", "cat x.csv | ").out, expected);
  EXPECT_EQ(RunDescribe("/dev/stdin", "cat x.csv | ").out, expected);
}

// More chunks than threads, more cases than a block has room for, and than a window where blocks
// are small. The first of several errors is the one that is reported.
TEST_F(Describe, GivesTheSameResultForAnyNumberOfThreads) {
  constexpr int kColumns = 250;
  const std::string names = ColumnNames(kColumns);
  std::mt19937 random(1);
  std::ostringstream text;
  text << "text,w," << names << '\n';
  for (int row = 0; row < 4000; ++row) {
    text << "\"a,\n\"\"text\"\"\"," << random() % 3;
    for (int column = 0; column < kColumns; ++column) {
      random() % 1000 == 0 ? text << ",NA" : text << ",\"1234" << random() % 1000 << "e-3\"";
    }
    text << (row % 7 == 0 ? "\n\n" : "\n");
  }
  Write("x.csv", text.str());
  const std::string listwise = "x.csv --weight w --save one --variables " + names;
  const std::string pairwise =
      "x.csv --save one --missing pairwise --counts --with x99 --regression-weight w --variables " +
      names.substr(0, names.find(",x99"));
  for (const std::string& how :
       {listwise, listwise + " --block-rows 7", pairwise, pairwise + " --block-rows 7"}) {
    const Outcome one = RunDescribe(how + " --threads 1");
    EXPECT_EQ(one.error, "");
    EXPECT_THAT(one.out, StartsWith("4000 cases read, "));
    const std::string saved = Contents("one");
    for (const char* const threads : {"2", "3", "7", "0"}) {
      EXPECT_TRUE(RunDescribe(how + " --threads " + threads).out == one.out) << threads;
      EXPECT_TRUE(Contents("one") == saved) << threads;
    }
  }
  Write("x.csv", text.str() + "1,2\n" + text.str() + "\n\"\n");
  // The chunk after the first error begins with others, which are found sooner.
  std::string digits = "a\n";
  for (int row = 0; row < 300000; ++row) {
    digits += row < 125000 ? "1\n" : ".\n";
  }
  Write("y.csv", digits);
  for (const char* const threads : {"1", "2", "7"}) {
    EXPECT_EQ(RunDescribe(listwise + " --threads " + threads).error,
              "describe: x.csv:8574: expected 252 fields, as in the header, found 2\n");
    EXPECT_EQ(RunDescribe(std::string("y.csv --variables a --threads ") + threads).error,
              "describe: y.csv:125002: column 1 (a): \".\" is not a number\n");
  }
}

std::string Lines(const std::string& text, std::size_t from, std::size_t to) {
  std::istringstream stream(text);
  std::string lines;
  std::string line;
  for (std::size_t number = 0; number < to && std::getline(stream, line); ++number) {
    if (number >= from) {
      lines.append(line).append("\n");
    }
  }
  return lines;
}

// The parts are two blocks each, so that merging them makes the tree that all blocks make.
TEST_F(Describe, LoadsWhatItSaved) {
  const std::string text = Contents(EXAMPLE_DATA "/airquality.csv");
  Write("all.csv", Lines(text, 0, 1 + 96));
  for (std::size_t part = 0; part < 3; ++part) {
    Write(std::to_string(part) + ".csv",
          Lines(text, 0, 1) + Lines(text, 1 + 32 * part, 1 + 32 * (part + 1)));
  }
  for (const char* const how :
       {"", "--missing pairwise", "--missing pairwise --weight month --variables ozone,solar_r",
        "--missing pairwise --regression-weight day --variables ozone,solar_r",
        "--weight day --regression-weight month --variables ozone,temp --with wind,solar_r"}) {
    SCOPED_TRACE(how);
    const auto describe = [how](const std::string& name) {
      std::ostringstream arguments;
      arguments << name << ".csv --block-rows 16 --counts --save " << name << ' ' << how;
      return RunDescribe(arguments.str()).out;
    };
    const std::string all = describe("all");
    EXPECT_THAT(all, StartsWith("96 cases read, "));
    EXPECT_EQ(RunDescribe("--load all --save again --counts").out, all);
    EXPECT_TRUE(Contents("again") == Contents("all"));
    for (const char* const part : {"0", "1", "2"}) {
      describe(part);
    }
    EXPECT_EQ(RunDescribe("--counts --load 0 1 2 --save merged").out, all);
    EXPECT_TRUE(Contents("merged") == Contents("all"));
    EXPECT_EQ(RunDescribe("--load merged --covariance").out,
              RunDescribe("all.csv --covariance " + std::string(how)).out);
  }
  // More than is read at a time.
  Write("wide.csv", ColumnNames(60) + "\n1" + std::string(59, ',') + '\n');
  const std::string wide = RunDescribe("wide.csv --missing pairwise --save wide").out;
  EXPECT_GT(Contents("wide").size(), std::size_t{1} << 16U);
  EXPECT_EQ(RunDescribe("--load wide").out, wide);
  // Names as they are found in files.
  Write("x.csv", "\"b, \"\"c\"\"\n\n\",,NA\n1,2,1\n2,1,4\n");
  const std::string tables = RunDescribe("x.csv --with '' --weight NA --save x").out;
  EXPECT_THAT(tables, HasSubstr("\nb, \"c\"??  "));
  EXPECT_EQ(RunDescribe("--load x").out, tables);
}

TEST_F(Describe, TrustsNoByteThatItLoads) {
  Write("x.csv", "a,b,w\n1,2,1\n2,1,4\n");
  RunDescribe("x.csv --weight w --save x");
  const std::string saved = Contents("x");
  ASSERT_EQ(study::Load({"x"}).counts.read, 2U);
  EXPECT_FALSE(std::filesystem::exists("x.part"));
  for (std::size_t at = 0; at < saved.size(); ++at) {
    SCOPED_TRACE(at);
    std::string changed = saved;
    changed[at] = static_cast<char>(changed[at] ^ (at % 2 == 0 ? 1 : '\x10'));
    for (const std::string& text :
         {changed, saved.substr(0, at), saved + changed.substr(0, at + 1)}) {
      Write("y", text);
      EXPECT_THROW(study::Load({"y"}), csv::Error);
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
  EXPECT_EQ(RunDescribe("--load x").error,
            "describe: x: the weights of the cases used add up to nothing\n");
  const struct {
    std::size_t variables = 0;
    csv::CaseCounts counts;
  } cases[] = {{0, {1, 0, 0}}, {1, {1, 2, 0}}, {1, {2, 1, 2}}, {1, {2, 0, 0}}};
  for (const auto& c : cases) {
    result.subject.variables = c.variables;
    result.counts = c.counts;
    study::Save(result, "x");
    EXPECT_EQ(RunDescribe("--load x").error,
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
  EXPECT_THAT(RunDescribe("--load x").out, StartsWith("1073741824 cases read, "));
  EXPECT_EQ(RunDescribe("--load x x").error,
            "describe: x: more cases than this accumulator can count, 2147483647\n");
  CountBadInput(1);
}

TEST_F(Describe, ReadsNoMoreOfWhatIsNoResult) {
  // What writes it ends by SIGPIPE.
  const Outcome outcome =
      RunDescribe("--load pipe || wait $!",
                  "mkfifo pipe; env --default-signal=PIPE head -c 10000000 /dev/zero >pipe & ");
  EXPECT_EQ(outcome.error,
            "describe: pipe: this is not a result that --save of this version has written\n");
  EXPECT_EQ(outcome.status, 128 + SIGPIPE);
  CountBadInput(1);
}

TEST_F(Describe, SaysWhatCannotBeLoaded) {
  Write("x.csv", "a,b,w\n1,2,1\n2,1,4\n,2,0\n");
  RunDescribe("x.csv --variables a,b --save a");
  const std::string saved = Contents("a");
  const std::size_t sums = saved.find("\n\n") + 2;
  const std::string whichChanged = "the lines at its beginning have been changed or cut";
  const struct {
    const char* how;   // makes b of x.csv,
    std::string text;  // or else what is in b
    std::string error;
  } cases[] = {
      {"", "a,b\n1,2\n", "b: this is not a result that --save of this version has written"},
      {"", "", "b: this is not a result that --save of this version has written"},
      {"", "describe 2" + saved.substr(10),
       "b: this is not a result that --save of this version has written"},
      {"", saved.substr(0, 40), "b: " + whichChanged},
      {"", "describe 1\n\n" + saved.substr(11), "b: " + whichChanged},
      {"", "describe 1\nvariables,\"", "b: " + whichChanged},
      {"", saved.substr(0, saved.size() - 1), "b: "},
      {"", saved.substr(0, sums), "b: "},
      {"--variables a,b --missing pairwise", "",
       "b: its treatment of missing values is pairwise, that of a is listwise"},
      {"--variables a,b --weight w", "", "b: its column of case weights is w, that of a is none"},
      {"--variables a,b --regression-weight w", "",
       "b: its column of regression weights is w, that of a is none"},
      {"--variables a,b,w", "", "b: its number of columns is 3, that of a is 2"},
      {"--variables a --with b", "", "b: its number of variables is 1, that of a is 2"},
      {"--variables a,w", "", "b: its column 2 is w, that of a is b"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.error);
    Write("b", c.text);
    if (*c.how != '\0') {
      ASSERT_EQ(RunDescribe("x.csv --save b " + std::string(c.how)).error, "");
    }
    const Outcome outcome = RunDescribe("--load a b");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.error, StartsWith("describe: " + c.error));
  }
  // Lines before the sums of something else.
  Write("y.csv", "a,b\n1,2\n2,1\n1,1\n");
  for (const char* const other :
       {"x.csv --variables a,b --missing pairwise", "x.csv --variables b,w --with a", "y.csv"}) {
    RunDescribe(std::string(other) + " --save b");
    const std::string text = Contents("b");
    Write("b", saved.substr(0, sums) + text.substr(text.find("\n\n") + 2));
    EXPECT_EQ(RunDescribe("--load b").error,
              "describe: b: the lines at its beginning do not fit the sums behind them\n")
        << other;
  }
  CountBadInput(std::size(cases) + 3);
}

TEST_F(Describe, SavesAllOrNothing) {
  Write("x.csv", "a\n1\n2\n");
  Write("y.csv", "a\n1\n.\n");
  Write("wide.csv", ColumnNames(40) + "\n1" + std::string(39, ',') + '\n');
  Write("result", "as it was");
  const struct {
    const char* before;
    const char* arguments;
    const char* error;
  } cases[] = {
      {"trap '' XFSZ; ulimit -f 1; ", "wide.csv --missing pairwise --save result",
       "cannot write result: File too large"},
      {"", "y.csv --variables a --save result", "y.csv:3: column 1 (a): \".\" is not a number"},
      {"", "x.csv --save no/result", "cannot open no/result.part: No such file or directory"},
      {"", "x.csv --save /dev/full", "cannot write /dev/full: this is no ordinary file"},
      {"", "x.csv --save .", "cannot write .: this is no ordinary file"},
      {"ln -s nowhere link; ", "x.csv --save link", "cannot write link: No such file or directory"},
      {"", "--load . --save result", "cannot read .: Is a directory"},
      {"", "--load no --save result", "cannot open no: No such file or directory"},
      {"", "--load result --save result",
       "result: this is not a result that --save of this version has written"},
  };
  for (const auto& c : cases) {
    const Outcome outcome = RunDescribe(c.arguments, c.before);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.error, "describe: " + std::string(c.error) + '\n');
    EXPECT_EQ(Contents("result"), "as it was");
    EXPECT_FALSE(std::filesystem::exists("result.part"));
  }
  // What a link leads to is replaced, not the link.
  EXPECT_EQ(RunDescribe("x.csv --save to", "ln -s result to; ").error, "");
  EXPECT_TRUE(std::filesystem::is_symlink("to"));
  EXPECT_EQ(RunDescribe("--load result").out, RunDescribe("x.csv").out);
  Write("result", "as it was");
  // A file that is not ours.
  Write("result.part", "mine");
  EXPECT_EQ(RunDescribe("x.csv --save result").error,
            "describe: cannot open result.part: File exists\n");
  EXPECT_EQ(Contents("result.part"), "mine");
  CountBadInput(std::size(cases) + 1);
}

TEST_F(Describe, FailsWithoutAReader) {
  Write("x.csv", ColumnNames(200) + "\n1" + std::string(199, ',') + '\n');
  ExpectFailureWithoutAReader(DESCRIBE_PROGRAM, "x.csv --missing pairwise");
}

TEST_F(Describe, EndsWhenInterrupted) {
  std::string text = "a,b\n";
  for (int row = 0; row < 100000; ++row) {
    text += "1234.5,678.9\n";
  }
  Write("x.csv", text);
  const struct {
    const char* name;
    int number;
  } signals[] = {{"INT", SIGINT}, {"TERM", SIGTERM}, {"HUP", SIGHUP}};
  for (const auto& signal : signals) {
    for (const std::string threads : {"1", "4"}) {
      SCOPED_TRACE(signal.name + (" with threads: " + threads));
      const Outcome outcome = RunInterrupted(
          DESCRIBE_PROGRAM, "pipe --save result --block-rows 100 --threads " + threads, "x.csv",
          signal.name);
      EXPECT_EQ(outcome.status, 128 + signal.number);
      EXPECT_EQ(outcome.out, "");
      EXPECT_FALSE(std::filesystem::exists("result"));
      EXPECT_FALSE(std::filesystem::exists("result.part"));
    }
  }
  CountBadInput(2 * std::size(signals));
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
      {"1,2\n3,4\n", "",
       "x.csv:1: only numbers, where the columns should be named; if they are names, put them in "
       "quotes"},
      {"a,b\n1,2\n3", "", "x.csv:3: expected 2 fields, as in the header, found 1"},
      {"a,b\n1,2\n3,\"4", "",
       "x.csv:3: column 2 (b): the quoted field that begins here never ends"},
      {"a,b\nNA,1e999\n", "--weight b",
       "x.csv:2: column 2 (b): \"1e999\" is too large for a double"},
      {"a,b\n1,-1e999\n", "", "x.csv:2: column 2 (b): \"-1e999\" is too large for a double"},
      {"a,b\n1,-1e-999\n", "",
       "x.csv:2: column 2 (b): \"-1e-999\" is too close to zero for a double"},
      {"a,b\n1,2\n,z\n", "--weight b", "x.csv:3: column 2 (b): \"z\" is not a number"},
      {"a,b\n1,2\n1,inf\n", "--weight b", "x.csv:3: column 2 (b): \"inf\" is not a finite number"},
      {"a,b\n1,2\n1,NaN\n", "--regression-weight b --missing pairwise",
       "x.csv:3: column 2 (b): \"NaN\" is not a finite number"},
      {"a,b\n1,2\n1,-2\n", "--weight b", "x.csv:3: column 2 (b): the weight -2 is negative"},
      {"a,b\n1,2\nNA,-2\n", "--regression-weight b --threads 7",
       "x.csv:3: column 2 (b): the weight -2 is negative"},
      {"a,b\n1,2\n", "--variables a,c", "x.csv: no column is named \"c\"; there are a, b"},
      {"a,b\n1,2\n", "--weight A", "x.csv: no column is named \"A\"; there are a, b"},
      {"\na,b,a\n1,2,3\n", "--variables a",
       "x.csv:2: columns 1 and 3 are both named \"a\"; rename one of them in the header, or use "
       "neither"},
      {"b,a,a\n1,2,3\n", "",
       "x.csv:1: columns 2 and 3 are both named \"a\"; rename one of them in the header, or use "
       "neither"},
      {"a,,\n1,2,\n", "--weight a",
       "x.csv:1: columns 2 and 3 are both named \"\"; rename one of them in the header, or use "
       "neither"},
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
      {"a,b\n1,2\n-1.7976931348623157e308,3\n", "--missing pairwise --threads 2",
       "x.csv:3: column 1 (a): the value -1.7976931348623157e308 can't be told from a missing one; "
       "if it stands for one, name it with --missing-code, otherwise rescale the column"},
      {"a,b\n1,2\n-1.7976931348623157e308,3\n", "--missing pairwise --missing-code 3",
       "x.csv:3: column 1 (a): the value -1.7976931348623157e308 can't be told from a missing one; "
       "if it stands for one, name it with --missing-code, otherwise rescale the column"},
      {"a,b\n1,2\n-1.7976931348623157e308,3\n", "",
       "x.csv: the values of column a are too large or too close together to compute with; "
       "rescale them"},
      {"a,b\n1,2\n", "--block-rows 4294967295",
       "x.csv: blocks of 4294967295 rows and 2 columns take more than 1 GiB; --block-rows can be "
       "67108864 at most"},
      {"a,b\n,\nNA,-99\n", "--missing pairwise --missing-code -99",
       "x.csv: no case to describe: 2 cases read, 0 used, 2 left out as empty"},
      {"a,b\n1,0\n2,\n,1\n", "--missing pairwise --weight b",
       "x.csv: no case to describe: 3 cases read, 0 used, 2 left out as empty or without a weight, "
       "1 left out for a weight of 0"},
      {"a,b\n1,-99\n", "--missing-code -99 --weight b",
       "x.csv:2: column 2 (b): the weight -99 is negative"},
      {"a,b,c\n,1,1e308\n2,,1e308\n", "--missing pairwise --weight c",
       "x.csv: the weights are too large to be added up; rescale them"},
      {"a,b,c\n1,1e200,1e200\n2,1,1\n", "--weight b --regression-weight c",
       "x.csv: the weights are too large to be added up; rescale them"},
      {ColumnNames(46341) + '\n', "",
       "x.csv: 46341 columns are too many; choose 46340 of them or fewer with --variables"},
      {"a,b\n1,\n,1\n", "--regression-weight b",
       "x.csv: no case to describe: 2 cases read, 0 used, 2 left out as incomplete, 0 left out for "
       "a weight of 0"},
      {"a\n1\n2\n", "> /dev/full", "cannot write the tables: No space left on device"},
      {"a\n1\n2\n", ">&-", "cannot write the tables: Bad file descriptor"},
      {"", "--help > /dev/full", "cannot write to standard output"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments);
    Write("x.csv", c.text);
    const Outcome outcome = RunDescribe("x.csv " + std::string(c.arguments));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.error, "describe: " + std::string(c.error) + '\n');
  }
  EXPECT_EQ(RunDescribe("y.csv").error, "describe: cannot open y.csv: No such file or directory\n");
  EXPECT_EQ(RunDescribe(".").error, "describe: cannot read .: Is a directory\n");
  EXPECT_EQ(RunDescribe("/proc/self/mem").error,
            "describe: cannot read /proc/self/mem: Input/output error\n");
  // Of two columns of one name that are not used, nothing is wrong.
  Write("x.csv", "a,b,b\n1,2,x\n");
  EXPECT_EQ(RunDescribe("x.csv --variables a").error, "");
  CountBadInput(std::size(cases) + 4);
}

TEST_F(Describe, SaysThatMemoryRanOut) {
  const std::string limit = "ulimit -v 1000000; ";  // in KiB, a block has more
  if (RunDescribe("--help", limit).status != 0) {
    GTEST_SKIP() << "the program itself needs more, as with a sanitizer";
  }
  Write("x.csv", "a,b\n1,2\n");
  const Outcome outcome = RunDescribe("x.csv --threads 1 --block-rows 67108864", limit);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.error, "describe: out of memory\n");
  CountBadInput(1);
}

TEST_F(Describe, LeavesUsageToTheOptionsParser) {
  for (const char* const arguments :
       {"", "x.csv --threads -1", "x.csv --varables a", "x.csv y.csv", "x.csv --missing both",
        "x.csv --missing-code", "x.csv --missing-code NA", "x.csv --missing-code 0x1",
        "x.csv --block-rows 0", "x.csv --block-rows -1", "x.csv --block-rows 1.5",
        "x.csv --block-rows 4294967296", "x.csv --save", "--load", "x.csv --load a",
        "--load a --variables x", "--threads 2 --load a", "--save a"}) {
    const Outcome outcome = RunDescribe(arguments);
    EXPECT_GT(outcome.status, 1) << arguments;
    EXPECT_EQ(outcome.out, "") << arguments;
  }
  EXPECT_EQ(RunDescribe("--help").status, 0);
}

}  // namespace
