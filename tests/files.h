#pragma once

// Files as a whole.

#include <fstream>
#include <iterator>
#include <string>

inline void Write(const std::string& name, const std::string& text) {
  std::ofstream(name, std::ios::binary) << text;
}

inline std::string Contents(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}
