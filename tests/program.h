#pragma once

// For the tests of the example programs: a directory for a test's files, and running a program.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

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
  int status;
  std::string out;
  std::string error;
};

// What a program does with these arguments, as written in a shell; `before` is put before it.
inline Outcome RunProgram(const std::string& program, const std::string& arguments,
                          const std::string& before = "") {
  const std::string command = before + '\'' + program + "' >out 2>error " + arguments;
  // NOLINTNEXTLINE(cert-env33-c,concurrency-mt-unsafe): a shell to redirect; one thread only
  const int status = std::system(command.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Contents("out"), Contents("error")};
}
