#pragma once

// The cases of the golden table: seeded, and made of whole numbers and powers of 2 only, so that
// they are the same on every machine.

#include "../cases.h"

#include <array>
#include <vector>

namespace velmor::test {

constexpr unsigned int kInputGroups = 3;

// Three batches: two for one accumulator and one for another.
struct Input {
  int columns = 0;
  double missingCode = 0.;
  std::array<Cases, 3> batches;
};

// Each kind of values with each kind of weights, in shapes around the edges of panels, tiles and
// blocks of rows.
std::vector<Input> MakeInputs();

// A table with a column of every type of value, whose blocks are accumulated on several threads.
class TypedTable {
 public:
  static constexpr std::uint64_t kRows = 421;
  static constexpr std::uint64_t kBlockRows = 16;  // the last block is shorter
  static constexpr double kMissingCode = -1e300;

  explicit TypedTable(std::uint32_t seed);
  TableView View() const;

 private:
  struct Row {
    double number;
    float single;
    std::int8_t int8;
    std::int64_t int64;
    std::uint64_t uint64;
    bool truth;
    double weight;
    float regWeight;
    std::uint16_t group;
  };
  std::vector<Row> _rows;
};

}  // namespace velmor::test
