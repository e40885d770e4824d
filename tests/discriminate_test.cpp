// The program discriminate as a user meets it. The build says where the program and the data are:
// DISCRIMINATE_PROGRAM, EXAMPLE_DATA.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "program.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

using Discriminate = InDirectory;

Outcome RunDiscriminate(const std::string& arguments, const std::string& before = "") {
  return RunProgram(DISCRIMINATE_PROGRAM, arguments, before);
}

// The tables from the means on, so without the numbers of cases.
std::string Figures(const Outcome& outcome) {
  EXPECT_EQ(outcome.error, "");
  EXPECT_THAT(outcome.out, HasSubstr("\nMeans\n"));
  const std::size_t begin = outcome.out.find("\nMeans\n");
  return begin == std::string::npos ? "" : outcome.out.substr(begin);
}

// A table with its title.
std::string Table(const std::string& figures, const std::string& title) {
  const std::size_t begin = figures.find('\n' + title + '\n');
  const std::size_t end =
      begin == std::string::npos ? begin : figures.find("\n\n", begin + title.size() + 4);
  return begin == std::string::npos ? "" : figures.substr(begin, end - begin);
}

// What follows a row's name in a table.
std::string Row(const std::string& figures, const std::string& title, const std::string& name) {
  const std::string table = Table(figures, title);
  const std::size_t begin = table.find('\n' + name + ' ');
  return begin == std::string::npos ? "" : table.substr(begin + 1 + name.size());
}

// R's manova and aov give 0.02343863 for Wilks' lambda of all variables and 119.26, 49.16, 1180.2
// and 960.01 for the F of each; lda of its package MASS takes two flowers of versicolor and one of
// virginica for the other. The rest comes from exact rational arithmetic on the file.
TEST_F(Discriminate, AgreesWithThePublishedFiguresOfTheIrises) {
  const Outcome outcome = RunDiscriminate(EXAMPLE_DATA "/iris.csv --group species");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.error, "");
  EXPECT_THAT(outcome.out, StartsWith("150 cases read, 150 used, 0 left out as incomplete\n\n"
                                      "Groups\n\n"
                                      "            cases\n"
                                      "setosa         50\n"
                                      "versicolor     50\n"
                                      "virginica      50\n\n"
                                      "Means\n"));
  const struct {
    const char* table;
    std::vector<const char*> lines;
  } tables[] = {
      {"Means",
       {"setosa             5.006        3.428         1.462        0.246",
        "versicolor         5.936         2.77          4.26        1.326",
        "virginica          6.588        2.974         5.552        2.026"}},
      {"Standard deviations",
       {"setosa           0.35249     0.379064      0.173664     0.105386",
        "virginica        0.63588     0.322497      0.551895      0.27465"}},
      {"Tests of equal means",
       {"              Wilks' lambda        F  df between  df within",
        "sepal_length       0.381294  119.265           2        147",
        "sepal_width        0.599217    49.16           2        147",
        "petal_length      0.0586283  1180.16           2        147",
        "petal_width       0.0711171  960.007           2        147"}},
      {"Pooled covariances within the groups",
       {"sepal_length      0.265008    0.0927211      0.167514    0.0384014",
        "sepal_width      0.0927211     0.115388     0.0552435    0.0327102",
        "petal_length      0.167514    0.0552435      0.185188    0.0426653",
        "petal_width      0.0384014    0.0327102     0.0426653    0.0418816"}},
      {"Covariances in versicolor",
       {"sepal_length      0.266433    0.0851837      0.182898    0.0557796",
        "petal_width      0.0557796    0.0412041      0.073102    0.0391061"}},
      {"Classification functions, equal prior probabilities",
       {"                setosa  versicolor  virginica",
        "sepal_length   23.5442     15.6982    12.4458",
        "sepal_width    23.5879     7.07251    3.68528",
        "petal_length  -16.4306     5.21145    12.7665",
        "petal_width   -17.3984     6.43423    21.0791",
        "(constant)    -86.3085    -72.8526   -104.368"}},
      {"Cases of each group by the group they are taken for",
       {"setosa          50           0          0", "versicolor       0          48          2",
        "virginica        0           1         49"}},
  };
  for (const auto& t : tables) {
    const std::string table = Table(outcome.out, t.table);
    for (const char* const line : t.lines) {
      EXPECT_THAT(table, HasSubstr('\n' + std::string(line))) << t.table;
    }
  }
  EXPECT_THAT(outcome.out, HasSubstr("\nWilks' lambda of all variables together: 0.0234386\n"));
  EXPECT_THAT(outcome.out, EndsWith("\n\ncorrect: 147 of 150, a share of 0.9800\n"));
}

// R. A. Fisher (1936), The use of multiple measurements in taxonomic problems, Annals of Eugenics
// 7(2), compares two of the species: means in table II, squares and products with 98 degrees of
// freedom in table III, then the solution of "S lambda = versicolor - setosa".
TEST_F(Discriminate, AgreesWithFishersPaper) {
  const std::string iris = Contents(EXAMPLE_DATA "/iris.csv");
  Write("x.csv", iris.substr(0, iris.find("6.3,3.3,6.0,2.5,virginica")));
  const Outcome outcome = RunDiscriminate("x.csv --group species");
  EXPECT_EQ(Table(outcome.out, "Means"),
            "\nMeans\n\n            sepal_length  sepal_width  petal_length  petal_width\n"
            "setosa             5.006        3.428         1.462        0.246\n"
            "versicolor         5.936         2.77          4.26        1.326");
  const struct {
    const char* name;
    double products[4];
    double lambda;
  } variables[] = {{"sepal_length", {19.1434, 9.0356, 9.7634, 3.2394}, -.0311511},
                   {"sepal_width", {9.0356, 11.8658, 4.6232, 2.4746}, -.1839075},
                   {"petal_length", {9.7634, 4.6232, 12.2978, 3.8794}, .2221044},
                   {"petal_width", {3.2394, 2.4746, 3.8794, 2.4604}, .3147370}};
  for (const auto& v : variables) {
    SCOPED_TRACE(v.name);
    std::istringstream covariances(
        Row(outcome.out, "Pooled covariances within the groups", v.name));
    for (const double product : v.products) {
      double covariance = 0.;
      covariances >> covariance;
      EXPECT_NEAR(98. * covariance, product, 1e-4);
    }
    std::istringstream functions(
        Row(outcome.out, "Classification functions, equal prior probabilities", v.name));
    double setosa = 0.;
    double versicolor = 0.;
    functions >> setosa >> versicolor;
    EXPECT_NEAR((versicolor - setosa) / 98., v.lambda, 2e-6);
  }
}

// The figures come from exact rational arithmetic on the same files.
TEST_F(Discriminate, TakesVariablesWeightsAndPriors) {
  const struct {
    const char* arguments;
    std::vector<const char*> texts;
  } cases[] = {
      {"penguins.csv --group species --variables "
       "bill_length_mm,bill_depth_mm,flipper_length_mm,body_mass_g --priors sizes",
       {"344 cases read, 342 used, 2 left out as incomplete\n",
        "\nbody_mass_g             0.330328  343.626           2        339\n",
        "\nWilks' lambda of all variables together: 0.0187854\n",
        "\nbody_mass_g        -0.0437551  -0.0489447  -0.0343022\n",
        "\n(constant)           -510.366    -559.204    -599.462\n",
        "\nAdelie        150          1       0\nChinstrap       3         65       0\n"}},
      {"airquality.csv --group month --variables ozone,wind --weight day --priors sizes",
       {"153 cases read, 116 used, 37 left out as incomplete, 0 left out for a weight of 0\n",
        "\n   cases  weight\n5     26     403\n6      9     129\n",
        "\nozone        0.69506  197.097           4       1797\n", "\nwind   -112.102   11.7958\n",
        "\n(constant)  -13.3326  -15.9803  -13.3394  ",
        "\n9   99  0   24    7  308\n\ncorrect: 872 of 1802, a share of 0.4839\n"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments);
    const Outcome outcome = RunDiscriminate(EXAMPLE_DATA "/" + std::string(c.arguments));
    EXPECT_EQ(outcome.error, "");
    for (const char* const text : c.texts) {
      EXPECT_THAT(outcome.out, HasSubstr(text));
    }
  }
}

// Centring raw sums would lose all digits here.
TEST_F(Discriminate, KeepsItsDigitsFarFromZero) {
  std::istringstream iris(Contents(EXAMPLE_DATA "/iris.csv"));
  std::string text;
  std::getline(iris, text);
  for (std::string line; std::getline(iris, line);) {
    text += "\n9000000" + line;  // 9 million centimetres more of sepal
  }
  Write("x.csv", text);
  const Outcome far = RunDiscriminate("x.csv --group species");
  const Outcome near = RunDiscriminate(EXAMPLE_DATA "/iris.csv --group species");
  for (const char* const table :
       {"Standard deviations", "Tests of equal means", "Pooled covariances within the groups",
        "Covariances in virginica", "Cases of each group by the group they are taken for"}) {
    EXPECT_EQ(Table(Figures(far), table), Table(Figures(near), table));
  }
}

TEST_F(Discriminate, TakesAWeightForSoManyCases) {
  Write("weighted.csv", "x,g,y,n\n1,a,2,2\n2,a,5,1\n4,a,3,3\n3,b,1,1\n5,b,4,2\n7,b,3,1\n9,b,9,0\n");
  Write("rows.csv",
        "x,g,y\n1,a,2\n1,a,2\n2,a,5\n4,a,3\n4,a,3\n4,a,3\n3,b,1\n5,b,4\n5,b,4\n7,b,3\n");
  for (const char* const options : {"", " --priors sizes"}) {
    const Outcome weighted =
        RunDiscriminate("weighted.csv --group g --weight n" + std::string(options));
    EXPECT_THAT(weighted.out, StartsWith("7 cases read, 6 used, 0 left out as incomplete, "
                                         "1 left out for a weight of 0\n\nGroups\n\n"
                                         "   cases  weight\na      3       6\nb      3       4\n"));
    EXPECT_EQ(Figures(weighted),
              Figures(RunDiscriminate("rows.csv --group g" + std::string(options))));
  }
}

TEST_F(Discriminate, OrdersGroupsByNameAndShowsWhatIsNotDefinedAsADot) {
  Write("x.csv", "g,v\n\xC3\xA4,1\n\"c, d\",3\n\"c, d\",6\nB,3\nNA,5\n,6\n\xC3\xA4,NA\n");
  EXPECT_EQ(RunDiscriminate("x.csv --group g").out,
            "7 cases read, 4 used, 3 left out as incomplete\n\n"
            "Groups\n\n      cases\nB         1\nc, d      2\n\xC3\xA4         1\n\n"
            "Means\n\n        v\nB       3\nc, d  4.5\n\xC3\xA4       1\n\n"
            "Standard deviations\n\n"
            "            v\nB           .\nc, d  2.12132\n\xC3\xA4           .\n\n"
            "Tests of equal means\n\n"
            "   Wilks' lambda         F  df between  df within\n"
            "v       0.352941  0.916667           2          1\n\n"
            "Wilks' lambda of all variables together: 0.352941\n\n"
            "Pooled covariances within the groups\n\n     v\nv  4.5\n\n"
            "Covariances in B\n\n   v\nv  .\n\n"
            "Covariances in c, d\n\n     v\nv  4.5\n\n"
            "Covariances in \xC3\xA4\n\n   v\nv  .\n\n"
            "Classification functions, equal prior probabilities\n\n"
            "                   B      c, d         \xC3\xA4\n"
            "v           0.666667         1  0.222222\n"
            "(constant)  -2.09861  -3.34861  -1.20972\n\n"
            "Cases of each group by the group they are taken for\n\n"
            "      B  c, d  \xC3\xA4\n"
            "B     1     0  0\n"
            "c, d  1     1  0\n"
            "\xC3\xA4     0     0  1\n\n"
            "correct: 3 of 4, a share of 0.7500\n");
}

TEST_F(Discriminate, AsksForMoreThanOneCaseOfWeightInAGroup) {
  Write("x.csv", "x,g,w\n1,a,.25\n2,a,.5\n3,b,.5\n5,b,.5\n7,c,4\n9,c,5\n");
  const Outcome outcome = RunDiscriminate("x.csv --group g --weight w");
  EXPECT_EQ(Table(outcome.out, "Standard deviations"),
            "\nStandard deviations\n\n         x\na        .\nb        .\nc  1.05409");
  EXPECT_THAT(Table(outcome.out, "Tests of equal means"), EndsWith("           2       7.75"));
}

// More chunks and batches than threads; groups that begin late, missing values, weights of 0; and
// two columns so near to each other that the last bits of their sums would be seen in the tables.
TEST_F(Discriminate, GivesTheSameTablesForAnyNumberOfThreads) {
  std::mt19937 random(1);
  std::ostringstream text;
  text << "a,b,c,near a,weight,group\n";
  for (int row = 0; row < 60000; ++row) {
    const auto group = random() % (row < 40000 ? 3 : 5);
    const double a = static_cast<double>(random() % 1000 + 100 * group);
    text << a << ".123456,\"" << random() % 1000 << "\",";
    random() % 1000 == 0 ? text << "NA" : text << random() % 1000 + 50 * (group % 2) << "e-3";
    text << ',' << a << ".1" << random() % 10 << ",." << random() % 3 << ",\"group\n"
         << group << "\"\n";
  }
  Write("x.csv", text.str());
  const std::string arguments = "x.csv --group group --weight weight --threads ";
  const Outcome one = RunDiscriminate(arguments + '1');
  EXPECT_THAT(one.out, StartsWith("60000 cases read, "));
  EXPECT_THAT(one.out, HasSubstr("\ngroup?4  "));
  EXPECT_EQ(one.error, "");
  for (const char* const threads : {"2", "7", "0"}) {
    EXPECT_EQ(RunDiscriminate(arguments + threads).out, one.out) << threads;
  }
  // The chunk after the first error begins with others, which are found sooner.
  std::string digits = "g,v\n";
  for (int row = 0; row < 300000; ++row) {
    digits += row < 125000 ? "a,1\n" : "b,.\n";
  }
  Write("x.csv", digits);
  for (const char* const threads : {"1", "2", "7"}) {
    EXPECT_EQ(
        RunDiscriminate(std::string("x.csv --group g --variables v --threads ") + threads).error,
        "discriminate: x.csv:125002: column 2 (v): \".\" is not a number\n");
  }
}

TEST_F(Discriminate, SaysWhatIsWrong) {
  std::string many = "g,v\n";
  for (int group = 0; group <= 1000; ++group) {
    many += std::to_string(group) + ",1\n";
  }
  const struct {
    std::string text;
    const char* arguments;
    const char* error;
  } cases[] = {
      {"g,v\na,1\n", "--group h", "x.csv: no column is named \"h\"; there are g, v"},
      {"g,v,w\na,1,1\n", "--group g --weight u",
       "x.csv: no column is named \"u\"; there are g, v, w"},
      {"g,v\na,1\n", "--group g --variables v,v", "column v is named twice in --variables"},
      {"g,v\na,1\n", "--group g --weight v",
       "x.csv: no column is left to tell the groups apart by"},
      {"g,v\na,1\nb,x\n", "--group g",
       "x.csv:3: column 2 (v): \"x\" is not a number; name the columns of numbers with "
       "--variables"},
      {"g,v\na,1\nNA,x\n", "--group g --variables v",
       "x.csv:3: column 2 (v): \"x\" is not a number"},
      {"", "--group g", "x.csv has no header; its first line should name the columns"},
      {"\n \n\n", "--group g", "x.csv has no header; its first line should name the columns"},
      {"1,2\n1,3\n2,4\n2,6\n", "--group 1",
       "x.csv:1: only numbers, where the columns should be named; if they are names, put them in "
       "quotes"},
      {"g,v\na,1\na,2\nb", "--group g", "x.csv:4: expected 2 fields, as in the header, found 1"},
      {"g,v\na,1\na,2\nb,\"3", "--group g",
       "x.csv:4: column 2 (v): the quoted field that begins here never ends"},
      {"g,v,v\na,1,2\n", "--group g",
       "x.csv:1: columns 2 and 3 are both named \"v\"; rename one of them in the header, or use "
       "neither"},
      {"g,v,g\na,1,b\n", "--group g",
       "x.csv:1: columns 1 and 3 are both named \"g\"; rename one of them in the header, or use "
       "neither"},
      {"g,v\na,1e999\n", "--group g", "x.csv:2: column 2 (v): \"1e999\" is too large for a double"},
      {"g,v,w\na,1,-1\n", "--group g --weight w",
       "x.csv:2: column 3 (w): the weight -1 is negative"},
      {"g,v,w\na,1,\na,1,x\n", "--group g --weight w",
       "x.csv:3: column 3 (w): \"x\" is not a number"},
      {"g,v,w\na,1,-inf\n", "--group g --weight w",
       "x.csv:2: column 3 (w): \"-inf\" is not a finite number"},
      {"g,v,w\n,,nan\n", "--group g --weight w",
       "x.csv:2: column 3 (w): \"nan\" is not a finite number"},
      {"g,v\n,1\na,\n", "--group g",
       "x.csv: no case to analyse: 2 cases read, 0 used, 2 left out as incomplete"},
      {"g,v,w\na,1,1\na,2,1\nb,1,0\nc,NA,1\n", "--group g --weight w",
       "x.csv: the 2 cases used are all in one group, a; it takes two or more"},
      {"g,v\na,1\nb,2\n", "--group g",
       "x.csv: the 2 cases used, in 2 groups, are too few for 1 columns; it takes 3, as many as "
       "groups and columns together"},
      {many, "--group g --threads 2",
       "x.csv: there are more than 1000 groups; is --group the right column?"},
      // Neither 0.1 nor 0.3 is a binary fraction, and so their sums are inexact.
      {"g,v,u\na,1,.1\na,2,.1\na,4,.1\nb,3,.3\nb,1,.3\nb,4,.3\n", "--group g",
       "x.csv: column u does not vary within the groups, or too little to compute with; leave it "
       "out or rescale it"},
      {"g,v,u,t\na,.1,.2,.3\na,.3,.1,.4\na,.7,.7,1.4\nb,.2,.4,9.6\nb,.4,.1,9.5\n", "--group g",
       "x.csv: column t is a combination of the columns before it within the groups, or too close "
       "to one to compute with; leave one of them out"},
      {"g,v\na,0\na,1e-300\nb,1\n", "--group g",
       "x.csv: column v does not vary within the groups, or too little to compute with; leave it "
       "out or rescale it"},
      {"g,v\na,0\na,1e200\nb,1\n", "--group g",
       "x.csv: the values of column v are too large to compute with; rescale them"},
      {"g,v\na,0\na,1e-150\nb,1e10\n", "--group g",
       "x.csv: the means are too large, in standard deviations, to compute with"},
      {"g,v\na,0\na,1e-150\nb,1e6\n", "--group g",  // they are not, but their squares are
       "x.csv: the means are too large, in standard deviations, to compute with"},
      {"g,v,w\na,0,1e308\na,1,1e308\nb,1,1\n", "--group g --weight w",
       "x.csv: the weights are too large to be added up; rescale them"},
      {"g,v\na,1\na,2\nb,1\n", "--group g > /dev/full",
       "cannot write the tables: No space left on device"},
      {"", "--help > /dev/full", "cannot write to standard output"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.error);
    Write("x.csv", c.text);
    const Outcome outcome = RunDiscriminate("x.csv " + std::string(c.arguments));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.error, "discriminate: " + std::string(c.error) + '\n');
  }
  CountBadInput(std::size(cases));
}

TEST_F(Discriminate, FailsWithoutAReader) {
  std::string text = "g,a,b,c,d\n";
  for (int row = 0; row < 1000; ++row) {
    text += std::to_string(row / 4);
    for (int column = 0; column < 4; ++column) {
      text += ',' + std::to_string(row * (row + column) % (7 + column));
    }
    text += '\n';
  }
  Write("x.csv", text);
  ExpectFailureWithoutAReader(DISCRIMINATE_PROGRAM, "x.csv --group g --threads 2");
}

TEST_F(Discriminate, NeedsAFileThatCanBeReadAgain) {
  Write("x.csv", "g,v\na,1\na,2\nb,1\n");
  const std::string expected = RunDiscriminate("x.csv --group g").out;
  EXPECT_THAT(expected, StartsWith("3 cases read, 3 used"));
  EXPECT_EQ(RunDiscriminate("/dev/stdin --group g < x.csv").out, expected);
  const struct {
    const char* arguments;
    const char* error;
  } cases[] = {
      {"- --group g", "standard input can't be read three times; write the data to a file first"},
      {"/dev/stdin --group g",
       "/dev/stdin can't be read three times; write the data to a file first"},
      {"y.csv --group g", "cannot open y.csv: No such file or directory"},
      {"pipe --group g", "pipe can't be read three times; write the data to a file first"},
      {". --group g", "cannot read .: Is a directory"},
  };
  ASSERT_EQ(mkfifo("pipe", S_IRUSR | S_IWUSR), 0);
  for (const auto& c : cases) {
    const Outcome outcome = RunDiscriminate(c.arguments, "cat x.csv | ");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.error, "discriminate: " + std::string(c.error) + '\n');
  }
  CountBadInput(std::size(cases));
}

TEST_F(Discriminate, LeavesUsageToTheOptionsParser) {
  for (const char* const arguments : {"", "x.csv", "--group g", "x.csv --group g --priors none",
                                      "x.csv --group g --threads -1"}) {
    const Outcome outcome = RunDiscriminate(arguments);
    EXPECT_GT(outcome.status, 1) << arguments;
    EXPECT_EQ(outcome.out, "") << arguments;
  }
  EXPECT_EQ(RunDiscriminate("--help").status, 0);
}

}  // namespace
