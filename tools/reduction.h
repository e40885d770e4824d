#pragma once

// A run that several processes share, on one machine or many. MPI starts them and numbers them from
// 0: their ranks. Every rank goes through the same steps, and all know how each step ended before
// the next, so that an error on one is an error on all and none waits for what never comes.

#include <velmor/state.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <new>
#include <span>
#include <utility>
#include <vector>

namespace cluster {

// Room for a message that needs no memory, which may be what is lacking. Longer ones are cut.
using Message = std::array<char, 1024>;

// What ended a run, the same on every rank, such as
// "rank 2: cannot open x.csv: No such file or directory".
class Error : public std::exception {
 public:
  Error(int rank, const Message& what) noexcept;
  const char* what() const noexcept override { return _text.data(); }

 private:
  std::array<char, std::tuple_size_v<Message> + 24> _text{};  // with the rank before it
};

// How a rank's part of a step went.
class Attempt {
 public:
  // Calls `action`, unless something has failed before. Keeps what it throws.
  template <class Action>
  void Try(const Action& action) {
    if (!_failed) {
      try {
        action();
      } catch (const std::bad_alloc&) {
        Fail("out of memory");
      } catch (const std::exception& error) {
        Fail(error.what());
      }
    }
  }

  bool Failed() const { return _failed; }
  const Message& What() const { return _what; }

 private:
  void Fail(const char* what) noexcept;

  bool _failed = false;
  Message _what{};
};

// The ranks of a run, seen from one of them. What is said to be done by all ranks, every one has to
// call, in the same order and on the thread that made its Ranks. An error of MPI itself, such as a
// lost connection, ends all processes at once.
class Ranks {
 public:
  // MPI runs for as long as this exists; there is one in a process.
  Ranks();
  ~Ranks();
  Ranks(const Ranks&) = delete;
  Ranks& operator=(const Ranks&) = delete;

  int Own() const { return _own; }  // from 0
  int Count() const { return _count; }

  // A step by all ranks: calls `action`. Throws Error on all when it threw on one or more: what it
  // threw on the lowest of these.
  template <class Action>
  void Try(const Action& action) const {
    Attempt attempt;
    attempt.Try(action);
    Agree(attempt);
  }

  // Brings the states of all ranks to rank 0, along a binary tree, by all ranks: each merges what
  // it is sent, then sends what it has, at most once. O(log Count()) messages one after the other.
  // Throws Error on all when `save` or `merge` threw on one, or memory for a state was lacking.
  void Reduce(const std::function<std::vector<std::byte>()>& save,
              const std::function<void(const std::vector<std::byte>&)>& merge) const;

  // Replaces each number by its sum over the ranks, by all.
  void Sum(std::span<std::uint64_t> numbers) const;

  // Whether all ranks have the same number, by all.
  bool IsSame(std::uint64_t number) const;

 private:
  void Agree(const Attempt& attempt) const;

  int _own = 0;
  int _count = 1;
};

// Merges the forests of all ranks, which cover different blocks, into that of rank 0, by all ranks.
// What the others then have is of no use. Memory: on each rank its own forest, another's, and the
// bytes of one. Throws Error as Reduce does.
template <class Accumulator>
void MergeForests(const Ranks& ranks, velmor::BlockForest<Accumulator>& forest) {
  using Forest = velmor::BlockForest<Accumulator>;
  ranks.Reduce([&forest] { return velmor::Save(forest); },
               [&forest](const std::vector<std::byte>& state) {
                 forest.Merge(std::move(*velmor::Load<Forest>(state)));
               });
}

// Runs a program as one rank of a run and returns its exit status, which is 1 after an Error that
// rank 0 has printed as "program: what is wrong". Anything else that is thrown is this rank's
// alone, and ends all processes at once.
//   define  defines the program's options, before they are taken from the arguments
//   body    comes after that
int Run(const char* program, int argc, char** argv, const std::function<void(CLI::App&)>& define,
        const std::function<void(const Ranks&)>& body);

}  // namespace cluster
