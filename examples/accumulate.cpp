// Columns in memory with missing values, into an accumulator of one's choice.
//
// Prints
//   all 2000 rows: 1800 with a temperature, 1600 with wind, 1440 with both
//   complete rows only: 1440
#include <velmor/accumulate.h>

#include <cstdint>
#include <cstdio>
#include <vector>

int main() {
  constexpr std::size_t kRows = 2000;
  constexpr double kNoTemperature = -99.;
  std::vector<double> temperature(kRows);
  std::vector<std::int16_t> wind(kRows);
  std::vector<std::uint8_t> hasWind(kRows / 8);  // a bit for each row
  for (std::size_t i = 0; i < kRows; ++i) {
    temperature[i] = i % 10 == 0 ? kNoTemperature : static_cast<double>(i % 37);
    wind[i] = static_cast<std::int16_t>(i % 23);
    const bool isThere = i / 10 % 5 != 0;
    hasWind[i / 8] = static_cast<std::uint8_t>(hasWind[i / 8] | (isThere ? 1 : 0) << i % 8);
  }

  velmor::TableView table;
  table.rows = kRows;
  table.values.emplace_back(temperature.data()).absentCodes = {kNoTemperature};
  table.values.emplace_back(wind.data()).validity = hasWind.data();

  // The pairwise accumulators are told by a number which values are missing: one that no value has.
  const auto pairwise = velmor::Accumulate(table, velmor::SMatrixPairwise(-1e300)).Result();
  std::printf("all %u rows: %d with a temperature, %d with wind, %d with both\n", pairwise->NRows(),
              pairwise->Var(0).NRows(), pairwise->Var(1).NRows(), pairwise->Pair(0, 1).NRows());

  const auto listwise = velmor::Accumulate(table, velmor::SMatrixListwise()).Result();
  std::printf("complete rows only: %u\n", listwise->NRows());
}
