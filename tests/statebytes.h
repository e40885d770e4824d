#pragma once

// What tests of saved states do with bytes.

#include <velmor/stateerror.h>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "support.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace velmor::test {

using Bytes = std::vector<std::byte>;

// The hash made to fit the bytes before it.
inline void Rehash(Bytes& bytes) {
  VELMOR_ASSERT(bytes.data() != nullptr);
  const std::uint64_t hash = XXH64(bytes.data(), bytes.size() - sizeof hash, 0);
  std::memcpy(bytes.data() + bytes.size() - sizeof hash, &hash, sizeof hash);
}

// No byte can be left out, added or changed. What bytes of someone who knows the hash can do is
// tried by the fuzzers.
template <class LoadBytes>
void ExpectEachByteToCount(const Bytes& valid, const LoadBytes& load) {
  for (std::size_t at = 0; at < valid.size(); ++at) {
    const auto end = valid.begin() + static_cast<std::ptrdiff_t>(at);
    EXPECT_THROW(load(Bytes(valid.begin(), end)), StateError) << at << " bytes";
    Bytes changed = valid;
    changed[at] ^= static_cast<std::byte>(1U << at % 8);
    EXPECT_THROW(load(changed), StateError) << "byte " << at;
  }
  Bytes more = valid;
  more.push_back(std::byte{0});
  EXPECT_THROW(load(more), StateError);
}

// The bytes are those of a file that was written by version 1 of the format, here, and are the same
// when they are loaded and saved. VELMOR_WRITE_GOLDEN writes files that are not there.
template <class Again>
void ExpectGolden(const std::string& file, const Bytes& bytes, const Again& loadedAndSaved) {
  const auto path = std::filesystem::path(GOLDEN_STATES) / file;
  if (std::getenv("VELMOR_WRITE_GOLDEN") && !exists(path)) {  // NOLINT(concurrency-mt-unsafe)
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),  // NOLINT(*-reinterpret-cast)
               static_cast<std::streamsize>(bytes.size()));
  }
  std::ifstream stream(path, std::ios::binary);
  ASSERT_TRUE(stream) << path;
  Bytes golden;
  for (auto i = std::istreambuf_iterator<char>(stream); i != std::istreambuf_iterator<char>();
       ++i) {
    golden.push_back(static_cast<std::byte>(*i));
  }
  EXPECT_EQ(bytes, golden);
  EXPECT_EQ(loadedAndSaved(golden), golden);
}

}  // namespace velmor::test
