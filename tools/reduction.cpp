// reduction.cpp: what ranks tell each other through MPI; start at Ranks::Reduce and Ranks::Agree.
#include "reduction.h"

#include <mpi.h>

#include <algorithm>
#include <cstdio>
#include <ostream>

namespace cluster {
namespace {

// MPI counts with int. From this size on a message's own cost does not show.
constexpr std::size_t kPiece = std::size_t{1} << 20U;
constexpr int kTag = 0;

template <class Step>
void InPieces(std::size_t size, const Step& step) {
  for (std::size_t at = 0; at < size; at += kPiece) {
    step(at, static_cast<int>(std::min(kPiece, size - at)));
  }
}

// Sends a state, when the receiver has room for it. No bytes stand for none.
void Send(int to, const std::vector<std::byte>& state) {
  const std::uint64_t size = state.size();
  MPI_Send(&size, 1, MPI_UINT64_T, to, kTag, MPI_COMM_WORLD);
  unsigned char isWanted = 0;
  MPI_Recv(&isWanted, 1, MPI_UNSIGNED_CHAR, to, kTag, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
  if (isWanted != 0) {
    InPieces(state.size(), [&](std::size_t at, int count) {
      MPI_Send(&state[at], count, MPI_BYTE, to, kTag, MPI_COMM_WORLD);
    });
  }
}

// The counterpart of Send. Returns no bytes when none were sent or the attempt failed.
std::vector<std::byte> Receive(int from, Attempt& attempt) {
  std::uint64_t size = 0;
  MPI_Recv(&size, 1, MPI_UINT64_T, from, kTag, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
  std::vector<std::byte> state;
  attempt.Try([&] { state.resize(size); });
  const unsigned char isWanted = state.empty() ? 0 : 1;
  MPI_Send(&isWanted, 1, MPI_UNSIGNED_CHAR, from, kTag, MPI_COMM_WORLD);
  InPieces(state.size(), [&](std::size_t at, int count) {
    MPI_Recv(&state[at], count, MPI_BYTE, from, kTag, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
  });
  return state;
}

}  // namespace

Error::Error(int rank, const Message& what) noexcept {
  std::snprintf(_text.data(), _text.size(), "rank %d: %s", rank, what.data());
}

void Attempt::Fail(const char* what) noexcept {
  _failed = true;
  std::snprintf(_what.data(), _what.size(), "%s", what);
}

Ranks::Ranks() {
  // Threads may run, but only the one that made this talks to MPI.
  int threads = MPI_THREAD_SINGLE;
  MPI_Init_thread(nullptr, nullptr, MPI_THREAD_FUNNELED, &threads);
  if (threads < MPI_THREAD_FUNNELED) {
    std::fputs("this MPI does not allow threads beside the one that calls it\n", stderr);
    MPI_Abort(MPI_COMM_WORLD, 1);
  }
  MPI_Comm_rank(MPI_COMM_WORLD, &_own);
  MPI_Comm_size(MPI_COMM_WORLD, &_count);
}

Ranks::~Ranks() { MPI_Finalize(); }

void Ranks::Reduce(const std::function<std::vector<std::byte>()>& save,
                   const std::function<void(const std::vector<std::byte>&)>& merge) const {
  Attempt attempt;
  // Before the turn of distance d the ranks that are multiples of d hold what their d - 1 followers
  // had. A failed attempt sends and receives like others, but no states.
  for (int distance = 1; distance < _count; distance *= 2) {
    if (_own % (2 * distance) != 0) {
      std::vector<std::byte> state;
      attempt.Try([&] { state = save(); });
      Send(_own - distance, state);
      break;
    }
    if (_own + distance < _count) {
      const std::vector<std::byte> state = Receive(_own + distance, attempt);
      if (!state.empty()) {
        attempt.Try([&] { merge(state); });
      }
    }
  }
  Agree(attempt);
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): MPI runs while there is a Ranks
void Ranks::Sum(std::span<std::uint64_t> numbers) const {
  MPI_Allreduce(MPI_IN_PLACE, numbers.data(), static_cast<int>(numbers.size()), MPI_UINT64_T,
                MPI_SUM, MPI_COMM_WORLD);
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): as above
bool Ranks::IsSame(std::uint64_t number) const {
  std::array<std::uint64_t, 2> least{number, ~number};  // and the complement of the greatest
  MPI_Allreduce(MPI_IN_PLACE, least.data(), 2, MPI_UINT64_T, MPI_MIN, MPI_COMM_WORLD);
  return least[0] == ~least[1];
}

// Throws the error of the lowest rank whose attempt failed, if there is one.
void Ranks::Agree(const Attempt& attempt) const {
  int failed = attempt.Failed() ? _own : _count;
  MPI_Allreduce(MPI_IN_PLACE, &failed, 1, MPI_INT, MPI_MIN, MPI_COMM_WORLD);
  if (failed != _count) {
    Message what = attempt.What();
    MPI_Bcast(what.data(), static_cast<int>(what.size()), MPI_CHAR, failed, MPI_COMM_WORLD);
    throw Error(failed, what);
  }
}

int Run(const char* program, int argc, char** argv, const std::function<void(CLI::App&)>& define,
        const std::function<void(const Ranks&)>& body) {
  const Ranks ranks;
  try {
    CLI::App app("", program);
    define(app);
    try {
      app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {  // --help, too; on all ranks, as all get one command
      std::ostream none(nullptr);
      return ranks.Own() == 0 ? app.exit(error) : app.exit(error, none, none);
    }
    body(ranks);
    return 0;
  } catch (const Error& error) {
    if (ranks.Own() == 0) {
      std::fprintf(stderr, "%s: %s\n", program, error.what());
    }
    return 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: rank %d: %s\n", program, ranks.Own(), error.what());
  } catch (...) {
    std::fprintf(stderr, "%s: rank %d: an exception of unknown type\n", program, ranks.Own());
  }
  MPI_Abort(MPI_COMM_WORLD, 1);
  return 1;
}

}  // namespace cluster
