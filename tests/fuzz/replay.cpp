// Without libFuzzer: NAME_fuzz DIRECTORY [CHANGED-INPUTS] tries the inputs that the directory
// holds, then some of them as chance changes them, and says which one it is at.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

// Overwrites some bytes with others, or with a copy of what is elsewhere.
static void Change(std::mt19937& random, Bytes& bytes) {
  for (auto changes = 1 + random() % 4; changes > 0; --changes) {
    constexpr std::uint8_t kEdges[] = {0x00, 0x01, 0x7F, 0x80, 0xFF};
    const std::size_t at = random() % bytes.size();
    const std::size_t from = random() % bytes.size();
    const std::size_t size = std::min<std::size_t>(8, bytes.size() - std::max(at, from));
    const auto kind = random() % 3;
    if (kind == 0) {
      std::copy_n(Bytes(bytes).data() + from, size, bytes.data() + at);
    } else {
      bytes[at] = kind == 1 ? kEdges[random() % 5] : static_cast<std::uint8_t>(random());
    }
  }
}

int main(int argc, char** argv) {
  std::vector<Bytes> inputs;
  const auto tryInput = [](const auto& name, const Bytes& bytes) {
    std::cout << name << std::endl;  // NOLINT(performance-avoid-endl): the next step may end it all
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  };
  std::vector<std::filesystem::path> paths;
  for (const auto& entry : std::filesystem::directory_iterator(argc > 1 ? argv[1] : "")) {
    paths.push_back(entry.path());
  }
  std::sort(paths.begin(), paths.end());
  for (const auto& path : paths) {
    std::ifstream file(path, std::ios::binary);
    inputs.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    tryInput(path, inputs.back());
  }
  std::mt19937 random(1);
  const int changed = argc > 2 ? std::atoi(argv[2]) : 0;  // NOLINT(cert-err34-c): 0 if none
  for (int i = 0; i < changed; ++i) {
    const std::size_t of = random() % inputs.size();
    Bytes bytes = inputs[of];
    if (!bytes.empty()) {
      Change(random, bytes);
    }
    tryInput("changed " + paths[of].string() + ", " + std::to_string(i), bytes);
  }
  return inputs.empty() ? 1 : 0;
}
