// Fuzzes batches and merges of the accumulators that take whole batches: with every engine their
// results are those of the plain definitions.
#include "against_definition.h"

namespace velmor::test {
namespace {

// The accumulators of one family. `code` is the missing code, where there is one.
template <class Matrix, class Symmetric, class Rectangular, class MakeBatch, class... Code>
void ExerciseFamily(Input& input, const CaseShape& shape, MakeBatch makeBatch, Code... code) {
  constexpr bool kIsPairwise = sizeof...(code) != 0;
  const auto exercise = [&](auto make) { Exercise(input, shape, make, makeBatch); };
  // Some of the columns, at least one.
  const int columns = static_cast<int>(shape.columns);
  const int col0 = static_cast<int>(input.Below(shape.columns));
  const int col2 =
      columns - static_cast<int>(input.Below(static_cast<unsigned int>(columns - col0)));
  switch (input.Below(4)) {
    case 0:
      return exercise([&] { return std::make_unique<Matrix>(code...); });
    case 1:
      return exercise([&] { return std::make_unique<Symmetric>(code...); });
    case 2: {
      const bool isOpen = col2 == columns && (kIsPairwise || col0 == 0);
      const int end = isOpen && input.Coin() ? 0 : col2;
      return exercise([&] { return std::make_unique<Symmetric>(code..., col0, end); });
    }
    default: {
      const int col1 = std::min(col0 + static_cast<int>(input.Below(shape.columns)),
                                kIsPairwise ? col2 : columns);
      if (kIsPairwise || (col0 < col1 && col1 < col2)) {  // neither range is empty
        exercise([&] { return std::make_unique<Rectangular>(code..., col0, col1, col2); });
      }
    }
  }
}

// A batch with or without room for more, of which a column may have been asked for on the way.
std::unique_ptr<DataBatch> Filled(const Cases& cases, unsigned int columns, unsigned int room) {
  CurrentCase current;
  auto batch = EmptyBatch<DataBatch>(cases, columns, room, current);
  const std::size_t watched = std::min(cases.rows.size(), std::size_t{2} * room);
  AddRows(*batch, current, cases.Slice(0, watched));
  if (watched < cases.rows.size()) {
    batch->Column(0);
  }
  AddRows(*batch, current, cases.Slice(watched, cases.rows.size()));
  return batch;
}

}  // namespace

void Run(Input& input) {
  constexpr unsigned int kMostColumns[] = {4, 9, 9, 17, 40};
  constexpr double kCodes[] = {-99., kNaN, kInf, 0., -kInf, 1., 5e-324};
  UseAnyEngine(input);
  const unsigned int room = input.OneOf({0U, 1U, 7U, 37U, 1000U});
  CaseShape shape(input, input.OneOf(kMostColumns));
  const auto makeBatch = [&](const Cases& cases) { return Filled(cases, shape.columns, room); };
  switch (input.Below(4)) {
    case 0:
      return ExerciseFamily<MatrixListwise, SMatrixListwise, NSMatrixListwise>(input, shape,
                                                                               makeBatch);
    case 1:
    case 2:
      shape.missingCode = input.OneOf(kCodes);
      return ExerciseFamily<MatrixPairwise, SMatrixPairwise, NSMatrixPairwise>(
          input, shape, makeBatch, *shape.missingCode);
    default:
      shape.groups = 1 + input.Below(input.Coin() && shape.columns < 10 ? 300 : 5);
      return Exercise(
          input, shape,
          [&] {
            return std::make_unique<DiscriminantMatrix>(static_cast<int>(shape.groups),
                                                        static_cast<int>(shape.columns));
          },
          makeBatch);
  }
}

}  // namespace velmor::test
