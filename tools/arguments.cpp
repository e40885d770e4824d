#include "arguments.h"

#include <charconv>
#include <string>
#include <system_error>

namespace arguments {

CLI::Validator WholeNumber(std::uint64_t least, std::uint64_t most) {
  const auto read = [least, most](std::string& text) {
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number < least || number > most) {
      return '"' + text + "\" is not a whole number from " + std::to_string(least) + " to " +
             std::to_string(most);
    }
    text = std::to_string(number);
    return std::string();
  };
  return {read, ""};
}

CLI::Validator FileName() {
  const auto check = [](const std::string& name) {
    return std::string(name.empty() ? "a file's name can't be empty" : "");
  };
  return {check, ""};
}

}  // namespace arguments
