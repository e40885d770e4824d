// States: what is saved is loaded, bytes written by earlier versions are read, and no bytes
// whatever do harm.
#include <velmor/velmor.h>

#include "accumulators.h"
#include "statebytes.h"
#include "support.h"

#include <cfenv>
#include <cstring>

namespace velmor::test {
namespace {

template <class Accumulator>
BlockForest<Accumulator> SomeForest() {
  BlockForest<Accumulator> forest(6, *NewAccumulator<Accumulator>());
  for (const std::uint32_t block : {0U, 1U, 2U, 5U, 6U, 8U, 13U}) {
    forest.Add(block, Accumulated<Accumulator>(MixedCases(block == 5 ? 0 : 6, block)));
  }
  return forest;
}

constexpr unsigned long long kSignallingNaN = 0x7FF0'0000'0000'0001ULL;

// Sums of squares overflow, an infinite and a NaN value make means NaN of either sign; a column of
// signalling NaN has such extremes.
Cases CasesBeyondNumbers() {
  Cases cases = MixedCases(12);
  cases.rows[1] = {kInf, 1e200, -kInf, -0., kNaN};
  cases.rows[2] = {-kInf, -1e200, -kInf, -0., -kNaN};
  for (auto& row : cases.rows) {
    row[2] = std::bit_cast<double>(kSignallingNaN);
  }
  return cases;
}

template <class Accumulator>
class State : public testing::Test {};
TYPED_TEST_SUITE(State, TypesOf<Accumulators>::Each);

TYPED_TEST(State, IsLoadedAsItWasSaved) {
  for (const Cases& cases :
       {Cases{}, MixedCases(30), CasesBeyondNumbers(), MixedCases(6, kWeightlessSeed)}) {
    const auto accumulator = Accumulated<TypeParam>(cases);
    std::feclearexcept(FE_ALL_EXCEPT);
    const auto loaded = Load<TypeParam>(Save(*accumulator));
    EXPECT_EQ(std::fetestexcept(FE_ALL_EXCEPT), 0);
    EXPECT_EQ(Save(*loaded), Save(*accumulator));
    // It goes on like the other.
    for (TypeParam* const each : {accumulator.get(), loaded.get()}) {
      *each += *BatchFor<TypeParam>(CasesFor<TypeParam>(MixedCases(9, 2)));
      *each += *Accumulated<TypeParam>(MixedCases(9, 3));
    }
    EXPECT_EQ(Save(*loaded), Save(*accumulator));
    // By those who know it only as a MatrixBase, too.
    if constexpr (std::is_base_of_v<MatrixBase, TypeParam>) {
      const MatrixBase& base = *accumulator;
      EXPECT_EQ(Save(base), Save(*accumulator));
      EXPECT_EQ(Save(*Load<MatrixBase>(Save(base))), Save(base));
      const BlockForest<MatrixBase> empty(6, *NewAccumulator<TypeParam>());
      EXPECT_EQ(Save(*Load<BlockForest<MatrixBase>>(Save(empty))), Save(empty));
    }
  }
}

TYPED_TEST(State, KeepsForestsThatCanGrow) {
  auto forest = SomeForest<TypeParam>();
  const auto loaded = Load<BlockForest<TypeParam>>(Save(forest));
  for (BlockForest<TypeParam>* const each : {&forest, loaded.get()}) {
    each->Add(4, Accumulated<TypeParam>(MixedCases(6, 4)));
    each->Add(3, Accumulated<TypeParam>(MixedCases(6, 3)));
    EXPECT_EQ(each->NBlocks(), 9U);
  }
  EXPECT_EQ(loaded->NRows(), forest.NRows());
  EXPECT_EQ(Save(*loaded), Save(forest));
  const BlockForest<TypeParam> empty(6, *NewAccumulator<TypeParam>());
  EXPECT_EQ(Save(*Load<BlockForest<TypeParam>>(Save(empty))), Save(empty));
}

TYPED_TEST(State, IsRefusedForAnyOtherByte) {
  ExpectEachByteToCount(Save(*Accumulated<TypeParam>(MixedCases(20))),
                        [](const Bytes& bytes) { Load<TypeParam>(bytes); });
  ExpectEachByteToCount(Save(SomeForest<TypeParam>()),
                        [](const Bytes& bytes) { Load<BlockForest<TypeParam>>(bytes); });
}

// Values of bytes, and what is said of them.
TEST(StateErrors, SayWhatIsWrong) {
  BlockForest<SMatrixListwise> forest(6, SMatrixListwise());
  forest.Add(1, Accumulated<SMatrixListwise>(MixedCases(6)));
  const struct {
    std::size_t at;
    unsigned char value;
    std::string message;
  } cases[] = {
      {0, 'V', "not a state: it does not begin like one"},
      {8, 2, "a state of format version 2, which this version of the library does not read"},
      {12, 1, "the state is wrong before byte 24: this is not the state of a forest"},
      {14, 2,
       "the state is wrong before byte 24: this is the state of an accumulator of another class"},
      {16, 0, "the state has 368 bytes and should have 256"},
      {24, 4, "the state is wrong before byte 28: unknown flags"},
      {28, 5, "the state is wrong before byte 40: bounds that no accumulator has"},
      {39, 0x7F, "the state is wrong before byte 120: the state ends too early"},
      {48, 0, "the state is wrong before byte 56: the rows of a block"},
      {48, 1,
       "the state is wrong before byte 360: block 1 has too many cases: 4, where a block has 1 "
       "rows"},
      {56, 1, "the state is wrong before byte 360: a number of cases that the blocks can't have"},
      {57, 1, "the state is wrong before byte 360: a number of cases that the blocks can't have"},
      {64, 2, "the state is wrong before byte 360: the state ends too early"},
      {72, 64, "the state is wrong before byte 88: an impossible node"},
      {88, 0, "the state is wrong before byte 96: a record of no cases"},
  };
  for (const auto& c : cases) {
    Bytes bytes = Save(forest);
    bytes[c.at] = std::byte{c.value};
    Rehash(bytes);
    EXPECT_EQ(MessageOf<StateError>([&] { Load<BlockForest<SMatrixListwise>>(bytes); }), c.message);
  }
}

TEST(StateErrors, SayWhichShapeIsNone) {
  const std::string bounds = "the state is wrong before byte 40: bounds that no accumulator has";
  const struct {
    std::unique_ptr<MatrixBase> accumulator;
    std::vector<std::size_t> at;
    unsigned char value;
    std::string message;
  } cases[] = {
      {NewAccumulator<SMatrixListwise>(), {14}, 2, bounds},  // two ranges, but not known which
      {NewAccumulator<SMatrixListwise>(), {32}, 1, bounds},
      {std::make_unique<DiscriminantMatrix>(), {36}, 1, bounds},
      {NewAccumulator<NSMatrixPairwise>(), {28, 32, 36}, 2, bounds},  // no column
      {NewAccumulator<NSMatrixPairwise>(), {31}, 0xFF, bounds},       // a negative one
      {NewAccumulator<NSMatrixListwise>(), {31}, 0xFF, bounds},
      {Accumulated<DiscriminantMatrix>(MixedCases(6)),
       {24},
       3,
       "the state is wrong before byte 28: unknown flags"},  // regression weights
      {NewAccumulator<SMatrixListwise>(),
       {14},
       99,
       "the state is wrong before byte 24: this is the state of an accumulator of another class"},
  };
  for (const auto& c : cases) {
    Bytes bytes = Save(*c.accumulator);
    for (const std::size_t at : c.at) {
      bytes[at] = std::byte{c.value};
    }
    Rehash(bytes);
    EXPECT_EQ(MessageOf<StateError>([&] { Load<MatrixBase>(bytes); }), c.message);
  }
}

// Of the first two columns, the first is never present. The state's records are those of these
// columns and of their pair, from byte 112 on.
template <class Matrix>
void TryFieldsOfEmptyRecords(Matrix matrix, std::size_t variableSize) {
  Cases cases = MixedCases(3);
  for (auto& row : cases.rows) {
    row = {kMissing, 1.};
  }
  matrix += *Batch(cases);
  const Bytes valid = Save(matrix);
  const auto tryFields = [&valid](std::size_t record, std::size_t size) {
    for (std::size_t at = record + 8; at < record + size; at += 8) {
      for (const double value : {1., -1., kNaN}) {
        SCOPED_TRACE(testing::Message() << "byte " << at << ": " << value);
        Bytes bytes = valid;
        std::memcpy(&bytes[at], &value, sizeof value);
        Rehash(bytes);
        EXPECT_THAT(MessageOf<StateError>([&] { Load<Matrix>(bytes); }),
                    testing::EndsWith(": a record of no cases that is not empty"));
      }
    }
  };
  constexpr std::size_t kRecords = 112;
  tryFields(kRecords, variableSize);
  tryFields(kRecords + 2 * variableSize, 64);
}

TEST(StateErrors, ARecordOfNoCasesIsEmptyInEachField) {
  TryFieldsOfEmptyRecords(MatrixPairwise(kMissing), 40);
  TryFieldsOfEmptyRecords(SMatrixPairwise(kMissing, 0, 2), 56);
  TryFieldsOfEmptyRecords(NSMatrixPairwise(kMissing, 0, 1, 2), 56);
}

TEST(StateErrors, LoadedForestsCountNoMoreThanTheyCan) {
  const std::uint64_t most = 0x7FFF'FFFF;
  const SMatrixPairwise shape(kMissing, 1, 5);
  BlockForest<SMatrixPairwise> small(most, shape);
  small.Add(0, Accumulated<SMatrixPairwise>(MixedCases(6)));
  Bytes bytes = Save(small);
  for (const std::size_t at : {56U, 88U}) {  // the cases of all and of the node
    std::memcpy(&bytes[at], &most, sizeof most);
  }
  Rehash(bytes);
  const auto full = Load<BlockForest<SMatrixPairwise>>(bytes);
  BlockForest<SMatrixPairwise> next(most, shape);
  next.Add(1, Accumulated<SMatrixPairwise>(MixedCases(6)));
  const std::string message = "more cases than this accumulator can count, 2147483647";
  EXPECT_EQ(MessageOf<std::length_error>([&] { full->Merge(std::move(next)); }), message);
  EXPECT_EQ(MessageOf<std::length_error>(
                [&] { full->Add(1, Accumulated<SMatrixPairwise>(MixedCases(6))); }),
            message);
  EXPECT_EQ(Save(*full), bytes);
  EXPECT_EQ(next.NBlocks(), 1U);
}

TEST(StateDeathTest, RefusesWhatNoBatchFits) {
  ExpectAbort({"no column", [] { Save(SMatrixListwise(3, 3)); }, "velmor/state.cpp", "Save",
               "shape.IsPossible()"});
}

TYPED_TEST(State, HasTheBytesThatItAlwaysHad) {
  if constexpr (!std::is_same_v<TypeParam, MatrixBase>) {
    const std::string name = NameOf<TypeParam>();
    const auto check = [](const std::string& file, const auto& state) {
      using Type = std::decay_t<decltype(state)>;
      ExpectGolden(file + ".1.state", Save(state),
                   [](const Bytes& b) { return Save(*Load<Type>(b)); });
    };
    check(name, *Accumulated<TypeParam>(MixedCases(30)));
    check(name + "Forest", SomeForest<TypeParam>());
  }
}

}  // namespace
}  // namespace velmor::test
