#pragma once

// What the programs ask of their arguments beyond what CLI11 does.

#include <CLI/CLI.hpp>
#include <cstdint>

namespace arguments {

// A whole number in decimal digits, so that 010 is ten: CLI11 alone takes it for eight, as it takes
// 0x10 for sixteen. For Option::transform.
CLI::Validator WholeNumber(std::uint64_t least, std::uint64_t most);

// A name that a file can have: not an empty one. For Option::check.
CLI::Validator FileName();

}  // namespace arguments
