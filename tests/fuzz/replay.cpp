// Without libFuzzer: NAME_fuzz DIRECTORY [RANDOM-INPUTS] tries the inputs that the directory holds,
// then some that chance makes, and says which one it is at.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

int main(int argc, char** argv) {
  int inputs = 0;
  const auto tryInput = [&inputs](const auto& name, const std::vector<std::uint8_t>& bytes) {
    std::cout << name << std::endl;  // NOLINT(performance-avoid-endl): the next step may end it all
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    ++inputs;
  };
  for (const auto& entry : std::filesystem::directory_iterator(argc > 1 ? argv[1] : "")) {
    std::ifstream file(entry.path(), std::ios::binary);
    tryInput(entry.path(), {std::istreambuf_iterator<char>(file), {}});
  }
  std::mt19937 random(1);
  const int chances = argc > 2 ? std::atoi(argv[2]) : 0;  // NOLINT(cert-err34-c): 0 if none
  for (int i = 0; i < chances; ++i) {
    std::vector<std::uint8_t> bytes(random() % 512);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random()); });
    tryInput("chance's " + std::to_string(i), bytes);
  }
  return inputs > 0 ? 0 : 1;
}
