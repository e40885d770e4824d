// The example programs of one process, as a user meets them.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "../examples/csv.h"
#include "../examples/resultfile.h"
#include "session.h"

namespace {

using Csv = InDirectory;
using Describe = InDirectory;
using Discriminate = InDirectory;

TEST_F(Describe, DoesWhatTheSessionsSay) { Session::RunAll(SESSIONS "/describe.txt"); }

TEST_F(Discriminate, DoesWhatTheSessionsSay) { Session::RunAll(SESSIONS "/discriminate.txt"); }

// After a long record there are as many bytes in memory.
TEST_F(Csv, AClaimCostsWhatItTakes) {
  constexpr std::uint64_t kRows = 500'000;
  std::string text = "a\n\"" + std::string(9'000'000, '.') + "\"\n";
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

// What the test's own calls of the disk were, by the names of their files, and one that fails.
std::vector<std::string> g_calls;
std::string g_failing;

int Call(const std::string& call, const std::function<long()>& system) {
  g_calls.push_back(call);
  if (call == g_failing) {
    errno = EIO;
    return -1;
  }
  return static_cast<int>(system());
}

std::string NameOf(int descriptor) {
  return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor))
      .filename()
      .string();
}

}  // namespace

// In place of the C library's, for study::Save in this program.
int fsync(int descriptor) {
  return Call("fsync " + NameOf(descriptor), [=] { return syscall(SYS_fsync, descriptor); });
}
int rename(const char* from, const char* to) noexcept {
  return Call("rename " + std::string(from),
              [=] { return syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0); });
}

namespace {

// A result of one case of one column.
study::Result ResultOfOne(const study::Subject& subject, double weight) {
  const double value = 1.;
  velmor::DataBatch batch(1, 1, &weight, nullptr, nullptr);
  batch.AddRow(&value);
  study::Result result{"", subject, {1, 0, 0}, NewAccumulator(subject)};
  *result.sums += batch;
  return result;
}

TEST_F(Describe, NamesAResultWhenItIsOnTheDisk) {
  const study::Result result = ResultOfOne({{"a"}, 1, false, std::nullopt, std::nullopt}, 1.);
  const std::string folder = std::filesystem::current_path().filename().string();
  const std::vector<std::string> calls{"fsync x.part", "rename x.part", "fsync " + folder};
  for (const std::string& failing : calls) {
    Write("x", "as it was");
    g_calls.clear();
    g_failing = failing;
    EXPECT_THROW(study::Save(result, "x"), csv::Error) << failing;
    EXPECT_EQ(Contents("x") == "as it was", failing != calls.back()) << failing;
    EXPECT_FALSE(std::filesystem::exists("x.part")) << failing;
  }
  EXPECT_EQ(g_calls, calls);
  CountBadInput(calls.size());
}

}  // namespace
