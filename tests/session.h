#pragma once

// For the tests of the example programs: shell commands in a directory of their own; and sessions,
// text files of such commands and what should come of them. The beginning of a line says what it
// is:
//
//   [name]      begins a session, in an empty directory
//   # ...       is a remark
//   < f text    writes the file f
//   $ command   is run by a shell, or by the test if its first word is one of the test's commands
//
// and then about the command, which should succeed with nothing on standard error if none of the
// last three follows:
//
//   | line      standard output consists of these lines
//   ~ text      standard output has this text
//   =           standard output is that of the command before
//   ! line      it fails with status 1, no output, and this line on standard error
//   !~ text     the same with this text among others, once
//   ? text      it refuses its arguments: a status above 1, no output, this text on standard error
//
// In texts, but not in commands, \n, \r, \t, \\ and \x41 are what they are in C++, but \x has two
// digits.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>

#include "files.h"
#include "proof.h"

// A directory of its own for the files of a test, with the current directory in it. Commands find
// the programs by their names, the examples' data in $data, and in $drop what makes root heed
// modes.
class InDirectory : public testing::Test {
 public:
  InDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "velmor_testXXXXXX").string();
    _directory = mkdtemp(name.data());
    std::filesystem::current_path(_directory);
    // NOLINTBEGIN(concurrency-mt-unsafe): there is one thread
    static const std::string path = PROGRAMS ":" + std::string(std::getenv("PATH"));
    setenv("PATH", path.c_str(), 1);
    setenv("data", EXAMPLE_DATA, 1);
    setenv("drop", geteuid() == 0 ? "setpriv --bounding-set -dac_override" : "", 1);
    // NOLINTEND(concurrency-mt-unsafe)
  }
  ~InDirectory() override {
    std::filesystem::current_path("/");
    std::filesystem::remove_all(_directory);
  }

 private:
  std::filesystem::path _directory;
};

struct Outcome {
  int status = 0;  // 128 and the signal's number for a program that a signal ended
  std::string out;
  std::string error;
};

inline Outcome Shell(const std::string& command) {
  // NOLINTNEXTLINE(cert-env33-c,concurrency-mt-unsafe): a shell to redirect; there is one thread
  const int status = std::system(("{ " + command + "\n} >.out 2>.error").c_str());
  return {WEXITSTATUS(status), Contents(".out"), Contents(".error")};
}

inline void CountBadInput(std::size_t cases) {
  velmor::test::CountCases("examples: bad input, pipes and interrupts", cases);
}

class Session {
 public:
  // The test's own commands: what they print, given their arguments.
  using Commands = std::map<std::string, std::function<std::string(const std::string&)>>;

  // Runs all sessions in a file. Returns how many commands there were.
  static int RunAll(const std::string& file, const Commands& commands = {}) {
    Session session(commands);
    std::ifstream lines(file);
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
      const testing::ScopedTrace place(file.c_str(), ++number, session._name);
      session.Take(line);
    }
    session.EndCommand();
    EXPECT_FALSE(session._name.empty()) << "no session in " << file;
    CountBadInput(session._failures);
    return session._commandCount;
  }

 private:
  explicit Session(const Commands& commands) : _commands(commands) {}

  void Take(const std::string& line) {
    const std::string mark = line.substr(0, line.find(' '));
    const std::string raw = line.substr(std::min(mark.size() + 1, line.size()));
    const std::string text = mark == "$" ? raw : Unescaped(raw);
    if (mark.starts_with('[')) {
      EndCommand();
      _name = line;
      std::filesystem::current_path(_base);
      std::filesystem::create_directory(std::to_string(++_sessions));
      std::filesystem::current_path(std::to_string(_sessions));
    } else if (mark == "<") {
      const std::size_t end = std::min(text.find(' '), text.size());
      Write(text.substr(0, end), text.substr(std::min(end + 1, text.size())));
    } else if (mark == "$") {
      EndCommand();
      RunCommand(text);
    } else if (!mark.empty() && mark != "#") {
      Expect(mark, text);
    }
  }

  void RunCommand(const std::string& text) {
    const auto own = _commands.find(text.substr(0, text.find(' ')));
    _outBefore = _outcome.out;
    _outcome = own == _commands.end() ? Shell(text)
                                      : Outcome{0, own->second(text.substr(own->first.size())), ""};
    _command = text;
    ++_commandCount;
    _lines.clear();
    _isFailure = false;
  }

  void Expect(const std::string& mark, const std::string& text) {
    const std::string& error = _outcome.error;
    const std::size_t place = error.find(text);
    if (mark == "|") {
      _lines += text + '\n';
    } else if (mark == "~") {
      EXPECT_THAT(_outcome.out, testing::HasSubstr(text)) << _command;
    } else if (mark == "=") {
      EXPECT_EQ(_outcome.out, _outBefore) << _command;
    } else if (mark == "!" || mark == "!~" || mark == "?") {
      EXPECT_TRUE(mark == "?" ? _outcome.status > 1 : _outcome.status == 1) << _outcome.status;
      EXPECT_EQ(_outcome.out, "");
      EXPECT_TRUE(mark == "!" ? error == text + '\n' : place != std::string::npos) << error;
      EXPECT_TRUE(mark != "!~" || error.rfind(text) == place) << error;
      _isFailure = true;
      ++_failures;
    } else {
      ADD_FAILURE() << "what is " << mark << '?';
    }
  }

  // What can be said about a command when there is no more about it.
  void EndCommand() {
    if (!_isFailure) {
      EXPECT_EQ(_outcome.status, 0) << _command;
      EXPECT_EQ(_outcome.error, "") << _command;
    }
    if (!_lines.empty()) {
      EXPECT_EQ(_outcome.out, _lines) << _command;
    }
  }

  static std::string Unescaped(const std::string& text) {
    const std::map<char, char> escapes{{'n', '\n'}, {'r', '\r'}, {'t', '\t'}, {'\\', '\\'}};
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (text[i] != '\\') {
        plain += text[i];
      } else if (text.at(++i) == 'x') {
        plain += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
        i += 2;
      } else {
        plain += escapes.at(text[i]);
      }
    }
    return plain;
  }

  const Commands& _commands;
  std::filesystem::path _base = std::filesystem::current_path();
  std::string _name;
  int _sessions = 0;
  std::string _command;
  int _commandCount = 0;
  Outcome _outcome;
  std::string _outBefore;
  std::string _lines;  // that standard output should consist of, if there are any
  bool _isFailure = false;
  std::size_t _failures = 0;
};
