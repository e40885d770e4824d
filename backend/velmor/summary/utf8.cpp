// utf8.cpp: which texts are UTF-8; start at IsUtf8.
#include "summary/utf8.h"

#include <bit>

namespace velmor {
namespace {

// The bytes of the character that begins with this one, 0 if none does.
std::size_t CharacterSize(unsigned char first) {
  const auto ones = static_cast<std::size_t>(std::countl_one(first));
  return ones == 0 ? 1 : ones == 1 || ones > 4 ? 0 : ones;
}

// The character at the beginning of a text that is `size` bytes long; -1 if that is none.
int CharacterAt(std::string_view text, std::size_t size) {
  if (size == 1) {
    return static_cast<unsigned char>(text[0]);
  }
  auto character = static_cast<unsigned>(static_cast<unsigned char>(text[0])) & 0x7FU >> size;
  for (std::size_t i = 1; i < size; ++i) {
    const auto byte = static_cast<unsigned>(static_cast<unsigned char>(text[i]));
    if ((byte & 0xC0U) != 0x80U) {
      return -1;
    }
    character = character << 6U | (byte & 0x3FU);
  }
  return static_cast<int>(character);
}

}  // namespace

bool IsUtf8(std::string_view text) {
  constexpr int kLeastOfSize[] = {0, 0, 0x80, 0x800, 0x10000};
  while (!text.empty()) {
    const std::size_t size = CharacterSize(static_cast<unsigned char>(text[0]));
    if (size == 0 || size > text.size()) {
      return false;
    }
    const int character = CharacterAt(text, size);
    const bool isSurrogate = 0xD800 <= character && character < 0xE000;
    if (character < kLeastOfSize[size] || isSurrogate || character > 0x10FFFF) {
      return false;
    }
    text.remove_prefix(size);
  }
  return true;
}

std::string Quoted(std::string_view text) {
  constexpr std::size_t kMost = 80;
  std::size_t size = text.size();
  if (size > kMost) {
    for (size = kMost; (static_cast<unsigned char>(text[size]) & 0xC0U) == 0x80U && size > 0;) {
      --size;  // a character is left whole
    }
  }
  return '"' + std::string(text.substr(0, size)) + (size < text.size() ? "...\"" : "\"");
}

}  // namespace velmor
