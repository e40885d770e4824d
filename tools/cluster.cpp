// cluster: describe, with the file's cases shared among several machines; start at Describe.
//
// Every rank reads the file, as it is on its machine or on a disk that all share, and sums up the
// windows that are its own. The forests of all are merged on rank 0, which gives the bits that one
// process gets from the whole file.

#include <CLI/CLI.hpp>
#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "arguments.h"
#include "reduction.h"
#include "report.h"
#include "resultfile.h"
#include "study.h"

namespace {

struct Options {
  std::string file;
  std::string save;  // empty: none
  study::Options study;
};

constexpr const char* kExamples = R"(
Each process that mpirun starts is a rank, with a share of the cases and threads of its own. The file
has to be there, and the same, on every machine. Tables and saved results are those that describe
makes of the file, to the last bit.

Examples:
  mpirun -n 4 cluster airquality.csv --variables ozone,wind,temp --missing pairwise
      four processes on this machine
  mpirun --hostfile machines --map-by node cluster /shared/survey.csv --threads 8 --save survey.result
      one process with eight threads on each of several machines; the result is kept for later)";

void DefineOptions(CLI::App& app, Options& options) {
  app.description("Describes the numeric columns of a CSV file, on several machines at once.");
  app.add_option("FILE", options.file, "CSV file with a header line")
      ->required()
      ->type_name("")
      ->check(arguments::FileName());
  study::DefineOptions(app, options.study);
  options.study.threads = 1;  // more ranks are another way to use all processors
  app.get_option("--threads")->description("Threads of each rank; by default 1");
  app.add_option("--save", options.save, "Keep the result in a file, for describe --load")
      ->type_name("RESULT")
      ->check(arguments::FileName());
  app.footer(study::kExplanation + std::string(kExamples));
}

// What a rank has of the study, and after Reduce rank 0 of all.
struct Share {
  study::Study study;
  study::Forest forest;
  csv::CaseCounts counts;
  std::uint64_t fileSize = 0;
};

Share Read(const cluster::Ranks& ranks, const Options& options) {
  csv::CheckIsFile(options.file, "shared among ranks");
  csv::Reader file(options.file);
  const study::Study study = study::Prepare(file.GetSource(), options.study);
  csv::Progress progress(options.file);
  Share share{study, study::NewForest(study), {}};
  // By turns, so that ranks of the same speed end together wherever the file is hard to parse.
  const auto isMine = [&ranks](std::uint64_t window) {
    return window % static_cast<std::uint64_t>(ranks.Count()) ==
           static_cast<std::uint64_t>(ranks.Own());
  };
  share.counts = study::Read(file, progress, study, isMine, share.forest);
  share.fileSize = file.BytesRead();
  return share;
}

// Throws on all ranks when what they read can't have been the same file.
void CheckSameFile(const cluster::Ranks& ranks, const Share& share) {
  const bool isSame = ranks.IsSame(share.fileSize);
  ranks.Try([&] {
    if (!isSame) {
      throw share.study.Error("here it has " + std::to_string(share.fileSize) +
                              " bytes, for other ranks another number; all need the same file");
    }
  });
}

void Reduce(const cluster::Ranks& ranks, Share& share) {
  cluster::MergeForests(ranks, share.forest);
  csv::CaseCounts& counts = share.counts;
  std::array<std::uint64_t, 3> sums{counts.read, counts.incomplete, counts.weightless};
  ranks.Sum(sums);
  counts = {sums[0], sums[1], sums[2]};
}

void Describe(const cluster::Ranks& ranks, const Options& options) {
  std::optional<Share> share;
  ranks.Try([&] { share = Read(ranks, options); });
  CheckSameFile(ranks, *share);
  Reduce(ranks, *share);
  ranks.Try([&] {
    if (ranks.Own() == 0) {
      const study::Result result{share->study.source, share->study.subject, share->counts,
                                 share->forest.Result()};
      const std::string text = study::Report(result, options.study.report);
      if (!options.save.empty()) {
        study::Save(result, options.save);
      }
      report::Print(text);
    }
  });
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  return cluster::Run(
      "cluster", argc, argv, [&options](CLI::App& app) { DefineOptions(app, options); },
      [&options](const cluster::Ranks& ranks) { Describe(ranks, options); });
}
