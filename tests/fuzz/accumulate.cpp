// Fuzzes batches and merges of the accumulators that take whole batches: with every engine their
// results are those of the plain definitions.
#include "ordered/engine.h"

#include "against_definition.h"

namespace velmor::test {
namespace {

// Some of the columns, at least one.
Block DrawColumns(Input& input, unsigned int columns) {
  const auto all = static_cast<int>(columns);
  const auto col0 = static_cast<int>(input.Below(columns));
  return {col0, col0, all - static_cast<int>(input.Below(static_cast<unsigned int>(all - col0)))};
}

// The accumulators of one family. `code` is the missing code, where there is one.
template <class Definition, class Matrix, class Symmetric, class Rectangular, class MakeBatch,
          class Read, class... Code>
void ExerciseFamily(Input& input, const CaseShape& shape, MakeBatch makeBatch, Read read,
                    Code... code) {
  constexpr bool kIsPairwise = sizeof...(code) != 0;
  const auto exercise = [&](const Block& block, bool hasExtremes, auto make) {
    Exercise(input, shape, Definition(block, hasExtremes, code...), make, makeBatch,
             [&](const auto& a) { return read(a, block); });
  };
  const Block whole{0, 0, static_cast<int>(shape.columns)};
  Block block = DrawColumns(input, shape.columns);
  switch (input.Below(4)) {
    case 0:
      return exercise(whole, false, [&] { return std::make_unique<Matrix>(code...); });
    case 1:
      return exercise(whole, true, [&] { return std::make_unique<Symmetric>(code...); });
    case 2: {
      const bool isOpen = block.col2 == whole.col2 && (kIsPairwise || block.col0 == 0);
      const int col2 = isOpen && input.Coin() ? 0 : block.col2;
      return exercise(block, true,
                      [&] { return std::make_unique<Symmetric>(code..., block.col0, col2); });
    }
    default:
      block.col1 = block.col0 + static_cast<int>(input.Below(shape.columns));
      if (!kIsPairwise && (block.col1 == block.col0 || block.col2 <= block.col1)) {
        return;  // either range would be empty
      }
      block.col1 = std::min(block.col1, block.col2);
      const auto make = [&code..., col0 = block.col0, col1 = block.col1, col2 = block.col2] {
        return std::make_unique<Rectangular>(code..., col0, col1, col2);
      };
      // A definition with an empty first range would be that of a triangle.
      block.col1 = block.IsRectangle() ? block.col1 : block.col2;
      return exercise(block, true, make);
  }
}

// A batch with or without room for more, of which a column may have been asked for on the way.
std::unique_ptr<DataBatch> Filled(const Cases& cases, unsigned int columns, unsigned int room) {
  Host host;
  const auto rows = static_cast<unsigned int>(cases.rows.size());
  auto batch = std::make_unique<DataBatch>(columns, std::max(1U, rows + room),
                                           cases.weights.empty() ? nullptr : &host.weight,
                                           cases.regWeights.empty() ? nullptr : &host.regWeight,
                                           cases.groups.empty() ? nullptr : &host.group);
  for (unsigned int row = 0; row < rows; ++row) {
    if (row == 2 * room) {
      batch->Column(0);
    }
    host.Take(cases, row);
    batch->AddRow(cases.rows[row].data());
  }
  return batch;
}

}  // namespace

void Run(Input& input) {
  constexpr unsigned int kMostColumns[] = {4, 9, 9, 17, 40};
  constexpr double kCodes[] = {-99., kNaN, kInf, 0., -kInf, 1., 5e-324};
  ordered::Use(
      *ordered::Available()[input.Below(static_cast<unsigned int>(ordered::Available().size()))]);
  const unsigned int room = input.OneOf({0U, 1U, 7U, 37U, 1000U});
  CaseShape shape(input, input.OneOf(kMostColumns));
  const auto makeBatch = [&](const Cases& cases) { return Filled(cases, shape.columns, room); };
  switch (input.Below(4)) {
    case 0:
      return ExerciseFamily<ListwiseDefinition, MatrixListwise, SMatrixListwise, NSMatrixListwise>(
          input, shape, makeBatch,
          [](const auto& a, const Block& block) { return ReadListwise(a, block); });
    case 1:
    case 2:
      shape.missingCode = input.OneOf(kCodes);
      return ExerciseFamily<PairwiseDefinition, MatrixPairwise, SMatrixPairwise, NSMatrixPairwise>(
          input, shape, makeBatch,
          [](const auto& a, const Block& block) { return ReadPairwise(a, block); },
          *shape.missingCode);
    default:
      shape.groups = 1 + input.Below(input.Coin() && shape.columns < 10 ? 300 : 5);
      return Exercise(
          input, shape, SumsDefinition<DataBatch>(shape.groups),
          [&] {
            return std::make_unique<DiscriminantMatrix>(static_cast<int>(shape.groups),
                                                        static_cast<int>(shape.columns));
          },
          makeBatch, ReadSums<DiscriminantMatrix>);
  }
}

}  // namespace velmor::test
