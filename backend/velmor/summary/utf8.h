#pragma once

#include <string>
#include <string_view>

namespace velmor {

// Whether a text is well-formed UTF-8: no overlong form, no surrogate, nothing above U+10FFFF.
bool IsUtf8(std::string_view text);

// A text for a message: in quotes, and cut where it is long.
std::string Quoted(std::string_view text);

}  // namespace velmor
