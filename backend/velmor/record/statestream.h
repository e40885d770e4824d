#pragma once

// The bytes of a state, written and read: little-endian numbers one after the other. Writer and
// reader have the same operations, so that each record is described once for both
// (docs/state-format.md is the format). What a reader finds is not trusted.

#include <velmor/owned_array.h>

#include <bit>
#include <cmath>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace velmor {

static_assert(std::numeric_limits<double>::is_iec559);

class StateWriter {
 public:
  template <std::integral Integer>
  void Number(Integer number) {
    const auto bits = static_cast<std::make_unsigned_t<Integer>>(number);
    const std::size_t at = _bytes.size();
    _bytes.resize(at + sizeof(bits));
    for (std::size_t i = 0; i < sizeof(bits); ++i) {
      _bytes[at + i] = static_cast<std::byte>(bits >> (8 * i));
    }
  }
  // Every NaN is one pattern, as equal results have equal bytes.
  void Number(double number) {
    constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
    Number(std::bit_cast<std::uint64_t>(std::isnan(number) ? kNaN : number));
  }

  // In 64 bits.
  template <std::integral Integer>
  void Count(Integer count, std::uint64_t /*most*/) {
    Number(static_cast<std::uint64_t>(count));
  }
  void Flag(bool flag) { Number(flag ? std::uint64_t{1} : std::uint64_t{0}); }
  // An array whose length the reader knows.
  void Numbers(const double* numbers, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      Number(numbers[i]);
    }
  }
  void Numbers(const std::vector<double>& numbers, std::size_t count) {
    Numbers(numbers.data(), count);
  }
  void Bytes(std::span<const std::byte> bytes) {
    _bytes.insert(_bytes.end(), bytes.begin(), bytes.end());
  }
  // Questions that only a reader has.
  static void Expect(std::uint64_t /*count*/, std::size_t /*size*/) {}
  static void Check(bool /*holds*/, const char* /*what*/) {}

  // The bytes written, with their number, which stands at `sizeAt`, and their hash at the end.
  std::vector<std::byte> Finish(std::size_t sizeAt);

 private:
  std::vector<std::byte> _bytes;
};

class StateReader {
 public:
  explicit StateReader(std::span<const std::byte> bytes) : _bytes(bytes) {}

  // Throws StateError unless the last bytes are the hash of the others. The hash does not count as
  // a part of the state from then on.
  void CheckHash();

  template <std::integral Integer>
  void Number(Integer& number) {
    Expect(1, sizeof(number));
    std::make_unsigned_t<Integer> bits = 0;
    for (std::size_t i = 0; i < sizeof(bits); ++i) {
      bits = static_cast<decltype(bits)>(bits | static_cast<decltype(bits)>(_bytes[_at + i])
                                                    << (8 * i));
    }
    number = static_cast<Integer>(bits);
    _at += sizeof(bits);
  }
  void Number(double& number) {
    std::uint64_t bits = 0;
    Number(bits);
    number = std::bit_cast<double>(bits);
    constexpr auto kNaN = std::bit_cast<std::uint64_t>(std::numeric_limits<double>::quiet_NaN());
    Check(!std::isnan(number) || bits == kNaN, "a NaN that is not written as one");
  }

  template <std::integral Integer>
  void Count(Integer& count, std::uint64_t most) {
    std::uint64_t found = 0;
    Number(found);
    Check(found <= most && std::in_range<Integer>(found), "a count is too large");
    count = static_cast<Integer>(found);
  }
  void Flag(bool& flag) {
    std::uint64_t found = 0;
    Number(found);
    Check(found <= 1, "a flag is neither 0 nor 1");
    flag = found == 1;
  }
  void Numbers(std::vector<double>& numbers, std::size_t count) {
    Expect(count, sizeof(double));
    numbers.resize(count);
    ReadNumbers(numbers);
  }
  void Numbers(OwnedArray<double>& numbers, std::size_t count) {
    Expect(count, sizeof(double));
    numbers = OwnedArray<double>(count);
    ReadNumbers({static_cast<double*>(numbers), count});
  }

  std::span<const std::byte> Bytes(std::uint64_t count) {
    Expect(count, 1);
    const auto bytes = _bytes.subspan(_at, static_cast<std::size_t>(count));
    _at += bytes.size();
    return bytes;
  }

  // Throws StateError unless `count` items of so many bytes are left. Asked before memory is taken
  // for the items.
  void Expect(std::uint64_t count, std::size_t size) const {
    if (count > (_bytes.size() - _at) / size) {
      Fail("the state ends too early");
    }
  }
  // Throws StateError unless the condition holds for what was read last.
  void Check(bool holds, const char* what) const {
    if (!holds) {
      Fail(what);
    }
  }
  [[noreturn]] void Fail(const std::string& what) const;

  std::size_t Size() const { return _bytes.size(); }
  bool IsAtEnd() const { return _at == _bytes.size(); }

 private:
  void ReadNumbers(std::span<double> numbers) {
    for (double& number : numbers) {
      Number(number);
    }
  }

  std::span<const std::byte> _bytes;
  std::size_t _at = 0;
};

}  // namespace velmor
