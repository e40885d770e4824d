#pragma once

// For the tests of the example programs: a directory for a test's files, and running a program.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "proof.h"

// A directory of its own for the files of a test, with the current directory in it.
class InDirectory : public testing::Test {
 public:
  InDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "velmor_testXXXXXX").string();
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

inline void Write(const std::string& name, const std::string& text) {
  std::ofstream(name, std::ios::binary) << text;
}

inline std::string Contents(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

struct Outcome {
  int status;  // as a shell has it: 128 and the signal's number for a program that it ended
  std::string out;
  std::string error;
};

// What a program does with these arguments, as written in a shell; `before` is put before it.
inline Outcome RunProgram(const std::string& program, const std::string& arguments,
                          const std::string& before = "") {
  const std::string command = before + '\'' + program + "' >out 2>error " + arguments;
  // NOLINTNEXTLINE(cert-env33-c,concurrency-mt-unsafe): a shell to redirect; one thread only
  const int status = std::system(command.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), Contents("out"),
          Contents("error")};
}

inline void CountBadInput(std::size_t cases) {
  velmor::test::CountCases("examples: bad input, pipes and interrupts", cases);
}

// Expects a program to fail when the reader of its tables, which are more than a pipe holds, goes
// away after a byte: by the signal for that, or with an error where that signal is ignored.
inline void ExpectFailureWithoutAReader(const std::string& program, const std::string& arguments) {
  const struct {
    const char* before;
    int status;
    std::string error;
  } cases[] = {
      {"env --default-signal=PIPE ", 128 + SIGPIPE, ""},
      {"trap '' PIPE; ", 1,
       std::filesystem::path(program).filename().string() +
           ": cannot write the tables: Broken pipe\n"},
  };
  for (const auto& c : cases) {
    const Outcome outcome =
        RunProgram(program, arguments + " >pipe",
                   "rm -f pipe; mkfifo pipe; head -c 1 <pipe >first & " + std::string(c.before));
    EXPECT_EQ(outcome.status, c.status);
    EXPECT_EQ(outcome.error, c.error);
  }
  CountBadInput(std::size(cases));
}

// What a program does with "pipe" among its arguments, from which it reads a file, when a signal
// comes in the middle of that: after all of the file, but not its end.
inline Outcome RunInterrupted(const std::string& program, const std::string& arguments,
                              const std::string& file, const std::string& signal) {
  return RunProgram(
      program, arguments,
      "rm -f pipe; mkfifo pipe; { cat " + file + "; kill -" + signal +
          " $(cat id); timeout 20 tail --pid=$(cat id) -s .02 -f /dev/null; } >pipe & "
          "env --default-signal sh -c 'echo $$ >id; exec \"$0\" \"$@\"' ");
}
