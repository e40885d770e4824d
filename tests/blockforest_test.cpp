// Forests: the same bytes in whatever way their blocks come, and refusals that name the block.
#include <velmor/velmor.h>

#include "accumulators.h"
#include "support.h"
#include "watchdog.h"

#include <atomic>
#include <bit>
#include <numeric>
#include <thread>

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
      }
      forests[0].Merge(std::move(forests[1]));
      forests[2].Merge(std::move(forests[0]));
      EXPECT_EQ(forests[2].NBlocks(), blocks);
      EXPECT_EQ(Save(forests[0]), Save(this->Empty()));
      EXPECT_EQ(Save(*forests[2].Result()), expected);
      forests[0] = std::move(forests[2]);
      EXPECT_EQ(Save(*forests[0].Result()), expected) << "the second time";
      std::shuffle(order.begin(), order.end(), random);
    }
  }
}

TYPED_TEST(Forest, HasTheSameBytesFromSeveralThreads) {
  constexpr std::uint64_t kBlocks = 101;
  const Watchdog watchdog;
  auto one = this->Empty();
  for (std::uint64_t block = 0; block < kBlocks; ++block) {
    one.Add(block, this->Leaf(block));
    EXPECT_LE(one.NNodes(), 7U);  // log2(101) and 1
  }
  for (const unsigned int threads : {2U, 7U}) {
    auto forest = this->Empty();
    std::atomic<std::uint64_t> next = 0;
    std::vector<std::thread> pool;
    for (unsigned int i = 0; i < threads; ++i) {
      pool.emplace_back([&] {
        for (std::uint64_t block = next++; block < kBlocks; block = next++) {
          forest.Add(block, this->Leaf(block));
        }
      });
    }
    for (std::thread& thread : pool) {
      thread.join();
    }
    EXPECT_EQ(Save(forest), Save(one));
  }
}

using Listwise = BlockForest<SMatrixListwise>;

std::unique_ptr<SMatrixListwise> ListwiseLeaf(unsigned int columns, std::size_t rows,
                                              bool hasRegWeights = true) {
  Cases cases = MixedCases(rows);
  if (!hasRegWeights) {
    cases.regWeights.clear();
  }
  auto leaf = std::make_unique<SMatrixListwise>();
  *leaf += *Batch(cases, columns);
  return leaf;
}

TEST(Forest, RefusesWhatDoesNotBelongIn) {
  Listwise forest(4, SMatrixListwise());
  for (const std::uint64_t block : {4U, 5U, 9U}) {
    forest.Add(block, ListwiseLeaf(3, 4));
  }
  const auto before = Save(forest);
  const auto forestWith = [](std::uint64_t blockRows, std::uint64_t block, auto leaf) {
    Listwise other(blockRows, SMatrixListwise());
    other.Add(block, std::move(leaf));
    return other;
  };
  const struct {
    std::string message;
    std::function<void()> call;
  } cases[] = {
      {"block 9 is there already; each block is added once",
       [&] { forest.Add(9, ListwiseLeaf(3, 4)); }},
      {"block 5 is there already; each block is added once",
       [&] { forest.Add(5, ListwiseLeaf(3, 4)); }},
      {"block 4 is there already; each block is added once",
       [&] { forest.Merge(forestWith(4, 4, ListwiseLeaf(3, 4))); }},
      {"block 0 does not belong to the others: it has columns from 0 to before 4, not columns from "
       "0 to before 3",
       [&] { forest.Add(0, ListwiseLeaf(4, 4)); }},
      {"block 0 does not belong to the others: it has no regression weights, not some",
       [&] { forest.Add(0, ListwiseLeaf(3, 4, false)); }},
      {"block 0 does not belong to the others: no batch fits its bounds",
       [] { Listwise(4, SMatrixListwise()).Add(0, std::make_unique<SMatrixListwise>(0, -1)); }},
      {"block 0 does not belong to the others: it has regression weights, not none",
       [&] {
         Listwise other = forestWith(4, 1, ListwiseLeaf(3, 4, false));
         other.Add(0, ListwiseLeaf(3, 4));
       }},
      {"block 0 has too many cases: 5, where a block has 4 rows",
       [&] { forest.Add(0, ListwiseLeaf(3, 5)); }},
      {"the forest does not belong to this one: it has blocks of 5 rows, not of 4",
       [&] { forest.Merge(forestWith(5, 0, ListwiseLeaf(3, 4))); }},
      {"the forest does not belong to this one: it has columns from 0 to before 4, not columns "
       "from "
       "0 to before 3",
       [&] { forest.Merge(forestWith(4, 0, ListwiseLeaf(4, 4))); }},
      {"block 0 is missing", [&] { forest.Result(); }},
      {"block 2 is missing",
       [&] {
         Listwise gap(4, SMatrixListwise());
         for (const std::uint64_t block : {0U, 1U, 4U, 5U}) {
           gap.Add(block, ListwiseLeaf(3, 4));
         }
         gap.Result();
       }},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(MessageOf<std::invalid_argument>(c.call), c.message);
    EXPECT_EQ(Save(forest), before);
  }
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
  const struct {
    std::string message;
    std::unique_ptr<MatrixBase> leaf;
    std::unique_ptr<MatrixBase> shape = NewAccumulator<MatrixBase>();
  } cases[] = {
      {"a SMatrixListwise, not a SMatrixPairwise", std::make_unique<SMatrixListwise>(1, 5)},
      {"columns from 0 to before 5, not columns from 1 to before 5",
       std::make_unique<SMatrixPairwise>(kMissing, 0, 5)},
      {"columns from 2 on, not columns from 1 to before 5",
       std::make_unique<SMatrixPairwise>(kMissing, 2, 0)},
      {"missing code -9, not -999", std::make_unique<SMatrixPairwise>(-9., 1, 5)},
      {"missing code nan, not -999", std::make_unique<SMatrixPairwise>(kNaN, 1, 5)},
      {"a NSMatrixPairwise, not a SMatrixPairwise",
       std::make_unique<NSMatrixPairwise>(kMissing, 1, 2, 5)},
      {"a DiscriminantMatrix, not a SMatrixPairwise", std::make_unique<DiscriminantMatrix>(3, 5)},
      {"a DiscIndividualMatrix, not a SMatrixPairwise",
       std::make_unique<DiscIndividualMatrix>(3, 5)},
      {"3 groups and 5 variables, not 2 groups and 5 variables",
       std::make_unique<DiscriminantMatrix>(3, 5), std::make_unique<DiscriminantMatrix>(2, 5)},
      {"columns from 0 and from 1 to before 3, not columns from 0 and from 2 to before 3",
       std::make_unique<NSMatrixListwise>(0, 1, 3), std::make_unique<NSMatrixListwise>(0, 2, 3)},
  };
  for (const auto& c : cases) {
    BlockForest<MatrixBase> forest(1, *c.shape);
    BlockForest<MatrixBase> other(1, *c.leaf);
    EXPECT_EQ(MessageOf<std::invalid_argument>([&] { forest.Merge(std::move(other)); }),
              "the forest does not belong to this one: it has " + c.message);
  }
  EXPECT_EQ(MessageOf<std::invalid_argument>([] { BlockForest<MatrixBase>(1, ForeignMatrix()); }),
            "an accumulator of a class that is not the library's");
}

TEST(ForestDeathTest, RefusesWhatNoForestTakes) {
  const std::string file = "velmor/blockforest.cpp";
  Listwise forest(1, SMatrixListwise());
  const Violation violations[] = {
      {"no rows", [] { Listwise(0, SMatrixListwise()); }, file, "BlockForest", "0 < blockRows"},
      {"impossible bounds", [] { Listwise(1, SMatrixListwise(3, 3)); }, file, "BlockForest",
       "empty.IsPossible()"},
      {"no leaf", [&] { forest.Add(0, nullptr); }, file, "Add", "leaf != nullptr"},
      {"a block too high", [&] { forest.Add(std::uint64_t{1} << 63U, forest.NewLeaf()); }, file,
       "Add", "block < kMostBlocks"},
      {"itself", [&] { forest.Merge(std::move(forest)); }, file, "Merge", "_my != other._my"},
  };
  for (const Violation& v : violations) {
    ExpectAbort(v);
  }
}

}  // namespace
}  // namespace velmor::test
