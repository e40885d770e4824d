// describe: means, spread and correlations of the columns of a CSV file; start at main, at the end.
//
// A complete host of velmor: Describe leads from the file, or from results that were saved, to the
// tables. study.cpp shows how cases are accumulated, resultfile.cpp how sums are kept in files.

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "arguments.h"
#include "csv.h"
#include "report.h"
#include "resultfile.h"
#include "study.h"

namespace {

struct Options {
  std::string file;
  std::vector<std::string> load;
  std::optional<std::string> save;
  study::Options study;
};

constexpr const char* kResultFiles = R"(
--save keeps the result in a file, as exactly as it was computed. --load merges results in the order
of their files and shows them as if all their cases had come from one file; they must be of the same
columns, weights and treatment of missing values. Cases that are divided among files are in other
blocks, so last bits can differ from those of a single file.
)";

constexpr const char* kExamples = R"(
Examples:
  describe iris.csv --variables sepal_length,sepal_width,petal_length,petal_width
      four means and standard deviations, and a 4 by 4 table of correlations
  describe airquality.csv --variables ozone --with solar_r,wind,temp --covariance
      how ozone varies with three others, and nothing among those three
  describe airquality.csv --variables ozone,solar_r,wind,temp --missing pairwise --counts
      of 153 days, 37 lack ozone, 7 lack solar_r and 2 of these both: ozone and solar_r correlate by
      0.3483 over 111 days, ozone and wind by -0.6015 over 116, wind and temp by -0.4580 over 153
  zcat survey.csv.gz | describe - --weight households --missing-code -99 --threads 4
      all columns of a compressed file but households, which says how many each row stands for
  describe may.csv --save may.result; describe june.csv --save june.result
  describe --load may.result june.result --counts
      two months, and both of them together, without their files being read again)";

void DefineOptions(CLI::App& app, Options& options) {
  std::vector<CLI::Option*> ofFile{
      app.add_option("FILE", options.file, "CSV file with a header line, - for standard input")
          ->type_name("")
          ->check(arguments::FileName())};
  for (CLI::Option* const option : study::DefineOptions(app, options.study)) {
    ofFile.push_back(option);
  }
  app.add_option("--save", options.save, "Keep the result in a file, for --load")
      ->type_name("RESULT")
      ->check(arguments::FileName());
  app.add_option("--load", options.load, "Show results that were saved, instead of FILE's")
      ->type_name("RESULT")
      ->check(arguments::FileName());
  // Not left to Option::excludes, which would fill the help with all their names.
  app.final_callback([ofFile, &options] {
    if (options.load.empty() && ofFile.front()->empty()) {
      throw CLI::RequiredError("FILE");
    }
    for (const CLI::Option* const option : ofFile) {
      if (!options.load.empty() && !option->empty()) {
        throw CLI::ExcludesError("--load", option->get_name());
      }
    }
  });
  app.footer(std::string(study::kExplanation) + kResultFiles + kExamples);
}

study::Result ReadFile(const Options& options) {
  csv::Reader reader(options.file);
  const study::Study study = study::Prepare(reader.GetSource(), options.study);
  csv::Progress progress(options.file);
  study::Forest forest = study::NewForest(study);
  const auto isMine = [](std::uint64_t /*window*/) { return true; };
  const csv::CaseCounts counts = study::Read(reader, progress, study, isMine, forest);
  return {study.source, study.subject, counts, forest.Result()};
}

std::string Describe(const Options& options) {
  const study::Result result = options.load.empty() ? ReadFile(options) : study::Load(options.load);
  std::string tables = study::Report(result, options.study.report);
  if (options.save) {
    study::Save(result, *options.save);
  }
  return tables;
}

}  // namespace

int main(int argc, char** argv) {
  return report::Run("describe", [argc, argv] {
    Options options;
    CLI::App app("Describes the numeric columns of a CSV file and how they vary together.",
                 "describe");
    DefineOptions(app, options);
    CLI11_PARSE(app, argc, argv);
    report::Print(Describe(options));
    return 0;
  });
}
