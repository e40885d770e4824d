// statestream.cpp: the hash at the end of a state, and what is said of one that is wrong.
#include "record/statestream.h"

#include <velmor/assertion.h>
#include <velmor/stateerror.h>

// Debian's libxxhash-dev; all of it is compiled in here.
#define XXH_INLINE_ALL
#include <xxhash.h>

#include <algorithm>
#include <utility>

namespace velmor {

namespace {

constexpr std::size_t kHashSize = sizeof(std::uint64_t);

std::uint64_t Hash(std::span<const std::byte> bytes) {
  const std::byte* const first = bytes.data();
  VELMOR_ASSERT(first != nullptr);
  return XXH64(first, bytes.size(), 0);
}

}  // namespace

std::vector<std::byte> StateWriter::Finish(std::size_t sizeAt) {
  StateWriter size;
  size.Number(std::uint64_t{_bytes.size() + kHashSize});
  std::copy(size._bytes.begin(), size._bytes.end(),
            _bytes.begin() + static_cast<std::ptrdiff_t>(sizeAt));
  Number(Hash(_bytes));
  return std::move(_bytes);
}

void StateReader::CheckHash() {
  Expect(1, kHashSize);
  StateReader hash(_bytes.last(kHashSize));
  _bytes = _bytes.first(_bytes.size() - kHashSize);
  std::uint64_t expected = 0;
  hash.Number(expected);
  if (expected != Hash(_bytes)) {
    throw StateError("the state has been changed since it was saved: its hash is another");
  }
}

void StateReader::Fail(const std::string& what) const {
  throw StateError("the state is wrong before byte " + std::to_string(_at) + ": " + what);
}

}  // namespace velmor
