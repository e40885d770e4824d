// Forests: the same bytes in whatever way their blocks come, and refusals that name the block.
#include <velmor/velmor.h>

#include "accumulators.h"
#include "support.h"

#include <bit>
#include <numeric>

namespace velmor::test {
namespace {

constexpr std::uint64_t kBlockRows = 7;

template <class Accumulator>
class Forest : public testing::Test {
 public:
  static BlockForest<Accumulator> Empty() {
    return BlockForest<Accumulator>(kBlockRows, *NewAccumulator<Accumulator>());
  }

  // Every fifth block is empty.
  static std::unique_ptr<Accumulator> Leaf(std::uint64_t block) {
    const auto seed = static_cast<std::uint32_t>(block);
    return Accumulated<Accumulator>(MixedCases(block % 5 == 2 ? 0 : kBlockRows, seed));
  }

  // The definition: a complete tree whose blocks from `blocks` on are empty, level by level.
  static std::unique_ptr<Accumulator> Tree(std::uint64_t blocks) {
    std::vector<std::unique_ptr<Accumulator>> level(std::bit_ceil(blocks));
    for (std::uint64_t block = 0; block < level.size(); ++block) {
      level[block] = block < blocks ? Leaf(block) : NewAccumulator<Accumulator>();
    }
    for (; level.size() > 1; level.resize(level.size() / 2)) {
      for (std::size_t i = 0; i < level.size() / 2; ++i) {
        *level[2 * i] += *level[2 * i + 1];
        level[i] = std::move(level[2 * i]);
      }
    }
    return std::move(level[0]);
  }
};
TYPED_TEST_SUITE(Forest, TypesOf<Accumulators>::Each);

TYPED_TEST(Forest, HasTheSameBytesInWhateverOrderBlocksCome) {
  std::mt19937 random(1);
  for (const std::uint64_t blocks : {0U, 1U, 2U, 3U, 7U, 8U, 21U}) {
    SCOPED_TRACE(blocks);
    const auto expected = Save(*this->Tree(blocks));
    std::vector<std::uint64_t> order(blocks);
    std::iota(order.begin(), order.end(), std::uint64_t{0});
    for (int trial = 0; trial < 5; ++trial) {
      // Shared out among three forests, all blocks of some of which may be missing.
      BlockForest<TypeParam> forests[] = {this->Empty(), this->Empty(), this->Empty()};
      for (const std::uint64_t block : order) {
        forests[trial == 0 ? 0 : random() % 3].Add(block, this->Leaf(block));
        EXPECT_TRUE(trial != 0 || forests[0].NNodes() <= std::bit_width(blocks));
      }
      forests[0].Merge(std::move(forests[1]));
      forests[2].Merge(std::move(forests[0]));
      EXPECT_EQ(forests[2].NBlocks(), blocks);
      EXPECT_EQ(forests[2].NNodes(), static_cast<std::size_t>(std::popcount(blocks)));
      EXPECT_EQ(Save(forests[0]), Save(this->Empty()));
      EXPECT_EQ(Save(*forests[2].Result()), expected);
      forests[0] = std::move(forests[2]);
      EXPECT_EQ(Save(*forests[0].Result()), expected) << "the second time";
      std::shuffle(order.begin(), order.end(), random);
    }
  }
}

using Listwise = BlockForest<SMatrixListwise>;

void AddTo(Listwise& forest, std::uint64_t block, unsigned int columns = 3, std::size_t rows = 4,
           bool hasRegWeights = true) {
  Cases cases = MixedCases(rows);
  cases.regWeights.resize(hasRegWeights ? rows : 0);
  auto leaf = std::make_unique<SMatrixListwise>();
  *leaf += *Batch(cases, columns);
  forest.Add(block, std::move(leaf));
}

Listwise ForestOf(std::initializer_list<std::uint64_t> blocks, std::uint64_t blockRows = 4,
                  unsigned int columns = 3, bool hasRegWeights = true) {
  Listwise forest(blockRows, SMatrixListwise());
  for (const std::uint64_t block : blocks) {
    AddTo(forest, block, columns, 4, hasRegWeights);
  }
  return forest;
}

TEST(Forest, RefusesWhatDoesNotBelongIn) {
  Listwise forest = ForestOf({4, 5, 9});
  const auto before = Save(forest);
  const auto expect = [&](const std::string& message, const auto& call) {
    EXPECT_EQ(MessageOf<std::invalid_argument>(call), message);
    EXPECT_EQ(Save(forest), before);
  };
  const std::string isThere = " is there already; each block is added once";
  expect("block 9" + isThere, [&] { AddTo(forest, 9); });
  expect("block 5" + isThere, [&] { AddTo(forest, 5); });
  expect("block 4" + isThere, [&] { forest.Merge(ForestOf({4})); });
  expect("block 0 has too many cases: 5, where a block has 4 rows",
         [&] { AddTo(forest, 0, 3, 5); });
  const std::string block = "block 0 does not belong to the others: ";
  const std::string whole = "the forest does not belong to this one: ";
  const std::string columns = "it has columns from 0 to before 4, not columns from 0 to before 3";
  expect(block + columns, [&] { AddTo(forest, 0, 4); });
  expect(whole + columns, [&] { forest.Merge(ForestOf({0}, 4, 4)); });
  expect(whole + "it has blocks of 5 rows, not of 4", [&] { forest.Merge(ForestOf({0}, 5)); });
  expect(block + "it has no regression weights, not some", [&] { AddTo(forest, 0, 3, 4, false); });
  expect(block + "it has regression weights, not none", [&] {
    Listwise without = ForestOf({1}, 4, 3, false);
    AddTo(without, 0);
  });
  expect(block + "no batch fits its bounds",
         [] { ForestOf({}).Add(0, std::make_unique<SMatrixListwise>(0, -1)); });
  expect("block 0 is missing", [&] { forest.Result(); });
  expect("block 2 is missing", [] { ForestOf({0, 1, 4, 5}).Result(); });
}

TEST(Forest, TakesTheGroupsOverFromWhatComes) {
  BlockForest<MatrixBase> open(1, DiscriminantMatrix());
  BlockForest<MatrixBase> known(1, DiscriminantMatrix(3, 5));
  known.Merge(BlockForest<MatrixBase>(1, DiscriminantMatrix()));
  open.Merge(std::move(known));
  EXPECT_THROW(open.Merge(BlockForest<MatrixBase>(1, DiscriminantMatrix(2, 5))),
               std::invalid_argument);
}

// An accumulator that a host made up.
class ForeignMatrix : public MatrixBase {
 public:
  unsigned int NRows() const override { return 0; }
  MatrixBase& operator+=(DataBatch& /*data*/) override { return *this; }
  MatrixBase& operator+=(MatrixBase& /*other*/) override { return *this; }
};

TEST(Forest, RefusesOtherAccumulators) {
  const auto expect = [](const std::string& message, const MatrixBase& theirs,
                         const MatrixBase& ours) {
    BlockForest<MatrixBase> forest(1, ours);
    BlockForest<MatrixBase> other(1, theirs);
    EXPECT_EQ(MessageOf<std::invalid_argument>([&] { forest.Merge(std::move(other)); }),
              "the forest does not belong to this one: it has " + message);
  };
  const SMatrixPairwise ours(kMissing, 1, 5);
  const std::string thisClass = ", not a SMatrixPairwise";
  expect("a NSMatrixPairwise" + thisClass, NSMatrixPairwise(kMissing, 1, 2, 5), ours);
  expect("a DiscriminantMatrix" + thisClass, DiscriminantMatrix(3, 5), ours);
  const std::string columns = ", not columns from 1 to before 5";
  expect("columns from 0 to before 5" + columns, SMatrixPairwise(kMissing, 0, 5), ours);
  expect("columns from 2 on" + columns, SMatrixPairwise(kMissing, 2, 0), ours);
  expect("missing code -9, not -999", SMatrixPairwise(-9., 1, 5), ours);
  expect("missing code nan, not -999", SMatrixPairwise(kNaN, 1, 5), ours);
  expect("3 groups and 5 variables, not 2 groups and 5 variables", DiscriminantMatrix(3, 5),
         DiscriminantMatrix(2, 5));
  expect("columns from 0 and from 1 to before 3, not columns from 0 and from 2 to before 3",
         NSMatrixListwise(0, 1, 3), NSMatrixListwise(0, 2, 3));
  EXPECT_EQ(MessageOf<std::invalid_argument>([] { BlockForest<MatrixBase>(1, ForeignMatrix()); }),
            "an accumulator of a class that is not the library's");
}

TEST(ForestDeathTest, RefusesWhatNoForestTakes) {
  const std::string file = "velmor/blockforest.cpp";
  Listwise forest(1, SMatrixListwise());
  ExpectAbort(
      {"no rows", [] { Listwise(0, SMatrixListwise()); }, file, "BlockForest", "0 < blockRows"});
  ExpectAbort({"impossible bounds", [] { Listwise(1, SMatrixListwise(3, 3)); }, file, "BlockForest",
               "empty.IsPossible()"});
  ExpectAbort({"no leaf", [&] { forest.Add(0, nullptr); }, file, "Add", "leaf != nullptr"});
  ExpectAbort({"too high", [&] { forest.Add(std::uint64_t{1} << 63U, forest.NewLeaf()); }, file,
               "Add", "block < kMostBlocks"});
  ExpectAbort(
      {"itself", [&] { forest.Merge(std::move(forest)); }, file, "Merge", "_my != other._my"});
}

}  // namespace
}  // namespace velmor::test
