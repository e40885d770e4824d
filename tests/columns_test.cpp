// AddColumns of both kinds of batches: which values of which types it takes, which rows it leaves
// out, what it refuses. That it appends what AddRow would have appended, from any table, is tried
// by fuzz/columns.cpp.
#include <velmor/databatch.h>
#include <velmor/databatchbygroup.h>

#include "columntypes.h"
#include "ordered/workspace.h"
#include "support.h"

#include <cstring>

#ifdef __SSE2__
#include <xmmintrin.h>
#endif

namespace velmor::test {
namespace {

using Doubles = std::vector<double>;

TableView Table(std::uint64_t rows, std::vector<ColumnView> values) {
  TableView table;
  table.rows = rows;
  table.values = std::move(values);
  return table;
}

// What a batch of one column has of a table of one.
Doubles Taken(const TableView& table, std::optional<double> missingCode = std::nullopt) {
  DataBatch batch(1, 100, nullptr, nullptr, nullptr);
  const unsigned int added = batch.AddColumns(table, 0, table.rows, missingCode);
  EXPECT_EQ(added, batch.NRows());
  return {batch.Column(0), batch.Column(0) + batch.NRows()};
}

TEST(Columns, EveryTypeGivesItsValuesHoweverTheyLie) {
  const struct {
    ValueType type;
    Doubles values;
  } types[] = {
      {ValueType::Double, {0.1, -kInf, kNaN, 5e-324, -0., 1e308}},
      {ValueType::Float, {0.5, -kInf, kNaN, 0x1p-149, -0., 0x1.fffffep127}},
      {ValueType::Int8, {-128, 127, 0, 5}},
      {ValueType::Int16, {-32768, 32767, 0, 5}},
      {ValueType::Int32, {-0x1p31, 0x1p31 - 1, 0, -1}},
      {ValueType::Int64,
       {-0x1p63, 0x1p63 - 1024, -1, 0, 0x1p53, 0x1p32, -0x1p32 - 1, 1 - 0x1p53, 0x1p53 + 2}},
      {ValueType::UInt8, {255, 0, 128}},
      {ValueType::UInt16, {65535, 0, 32768}},
      {ValueType::UInt32, {0x1p32 - 1, 0, 0x1p31}},
      {ValueType::UInt64, {0x1p64 - 2048, 0, 0x1p63, 0x1p53, 0x1p53 + 2, 0x1p32 - 1, 0x1p33 + 1}},
      {ValueType::Bool, {0, 1, 1}}};
  static_assert(std::size(types) == kColumnTypes);
  for (const auto& t : types) {
    for (const std::size_t gap : {0U, 3U, 16U}) {
      WithType(t.type, [&](auto type) {
        EXPECT_EQ(ValueTypeOf<decltype(type)>(), t.type);
        const std::size_t stride = sizeof(type) + gap;
        std::vector<std::byte> memory(stride * t.values.size());
        for (std::size_t row = 0; row < t.values.size(); ++row) {
          const auto value = static_cast<decltype(type)>(t.values[row]);
          std::memcpy(&memory[row * stride], &value, sizeof(value));
        }
        if (t.type == ValueType::Bool) {
          memory[stride] = std::byte{0x80};  // true as any byte but 0
        }
        ColumnView column;
        column.type = t.type;
        column.data = memory.data();
        column.stride = static_cast<std::ptrdiff_t>(stride);
        EXPECT_EQ(Bits(Taken(Table(t.values.size(), {column}))), Bits(t.values)) << int(t.type);
      });
    }
  }
}

// Without a missing code the others are left out, with one they become the code.
TEST(Columns, AnyMarkMakesAValueAbsent) {
  const Doubles doubles{1., kNaN, -9., 0., -0., 8., kInf, 5e-324, -kInf};
  constexpr std::int64_t kWide = std::int64_t{1} << 53U;
  const std::int64_t integers[] = {-9, kWide, kWide + 1, 7, 3};
  const std::uint8_t bitmap[] = {0b10101000, 0b00001011};
  const auto marked = [&](auto column, bool nanIsAbsent, const Doubles& codes, int offset = -1) {
    column.nanIsAbsent = nanIsAbsent;
    column.absentCodes = codes;
    column.validity = offset < 0 ? nullptr : bitmap;
    column.validityOffset = static_cast<std::uint64_t>(std::max(offset, 0));
    return column;
  };
  const ColumnView ofDoubles(doubles.data());
  const struct {
    const char* name;
    ColumnView column;
    std::string present;
  } cases[] = {
      {"no mark", ofDoubles, "111111111"},
      {"NaN", marked(ofDoubles, true, {}), "101111111"},
      {"a code", marked(ofDoubles, false, {-9.}), "110111111"},
      {"zero has two signs, NaN is no code", marked(ofDoubles, false, {0., kNaN}), "111001111"},
      {"eight codes, NaN", marked(ofDoubles, true, {1., 2., 3., 4., 5., 6., 8., kInf}),
       "001110011"},
      {"bits", marked(ofDoubles, false, {}, 3), "101011101"},
      {"bits, NaN, a code", marked(ofDoubles, true, {8.}, 3), "101010101"},
      {"integers", marked(ColumnView(integers), true, {0x1p53, -9.}, 8), "00010"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Doubles kept;
    Doubles coded;
    for (std::size_t row = 0; row < c.present.size(); ++row) {
      const bool isDouble = c.column.type == ValueType::Double;
      const double value = isDouble ? doubles[row] : static_cast<double>(integers[row]);
      coded.push_back(c.present[row] == '1' ? value : -2.);
      kept.resize(kept.size() + (c.present[row] == '1' ? 1 : 0), value);
    }
    const TableView table = Table(c.present.size(), {c.column});
    EXPECT_EQ(Bits(Taken(table)), Bits(kept));
    EXPECT_EQ(Bits(Taken(table, -2.)), Bits(coded));
  }
}

const double kPlain[] = {1., 2., 3.};

// Three rows of two columns, weights and groups.
TableView PlainTable() {
  TableView table = Table(3, {ColumnView(kPlain), ColumnView(kPlain)});
  table.weights = table.regWeights = table.groups = ColumnView(kPlain);
  return table;
}

// A column of it, by the name that messages have for it.
ColumnView& Named(TableView& table, const std::string& name) {
  return name == "case weights"         ? *table.weights
         : name == "regression weights" ? *table.regWeights
         : name == "groups"             ? *table.groups
                                        : table.values[name == "column 0" ? 0 : 1];
}

// Two values that can be taken anywhere, and a third.
struct Ending {
  template <class T>
  explicit Ending(T value, Doubles absentCodes = {}) {
    const T values[] = {T{0}, T{1}, value};
    std::memcpy(memory.data(), values, sizeof(values));
    view = ColumnView(static_cast<const T*>(nullptr));
    view.nanIsAbsent = !absentCodes.empty();
    view.absentCodes = std::move(absentCodes);
  }
  ColumnView View() const {
    ColumnView column = view;
    column.data = memory.data();
    return column;
  }

  std::array<std::byte, 3 * sizeof(double)> memory{};
  ColumnView view;
};

TEST(RefusedColumns, LeaveTheBatchAsItWas) {
  constexpr std::int64_t kWide = (std::int64_t{1} << 53U) + 1;
  constexpr unsigned int kGroups = 4;
  const std::string equal = " equals the missing code; choose a code that no value has";
  const std::string rounds =
      "; mark the value absent, or make the column one of doubles, which rounds it";
  const std::string noGroup = " is no group number; groups are whole numbers below ";
  const std::optional<double> none;
  const struct {
    std::string name;
    Ending column;
    std::optional<double> missingCode;
    std::string message;
  } cases[] = {
      {"column 1", Ending(std::uint8_t{9}), 9., "the value 9" + equal},
      {"column 0", Ending(-.5), -.5, "the value -0.5" + equal},
      {"column 1", Ending(kNaN, {7.}), kNaN,
       "the value is absent, and a missing code that is not a number marks nothing; choose a "
       "number that no value has"},
      {"column 1", Ending(kWide), none, "no double is equal to 9007199254740993" + rounds},
      {"column 0", Ending(~std::uint64_t{0}, {0x1p64}), 0x1p64,
       "no double is equal to 18446744073709551615" + rounds},
      {"case weights", Ending(-kWide), none, "no double is equal to -9007199254740993" + rounds},
      {"groups", Ending(2.5), none, "2.5" + noGroup},
      {"groups", Ending(std::int8_t{-1}), none, "-1" + noGroup},
      {"groups", Ending(0x1p32F), none, "4294967296" + noGroup},
      {"groups", Ending(kNaN), none, "nan" + noGroup},
  };
  const CurrentCase current{0., 0., 3};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name + c.message);
    TableView table = PlainTable();
    DataBatch batch(2, 6, &current.weight, &current.regWeight, &current.group);
    DataBatchByGroup byGroup(2, 6, &current.weight, &current.regWeight, &current.group, kGroups);
    batch.AddColumns(table, 0, 1);
    batch.AddRow(kPlain);
    byGroup.AddColumns(table, 0, 2);
    byGroup.SortByGroup();
    const auto before = std::pair(Contents(batch), Contents(byGroup));
    Named(table, c.name) = c.column.View();
    const std::string message = "row 2, " + c.name + ": " + c.message;
    EXPECT_EQ(
        MessageOf<std::invalid_argument>([&] { batch.AddColumns(table, 0, 3, c.missingCode); }),
        message + (c.name == "groups" ? "4294967296" : ""));
    if (!c.missingCode) {
      EXPECT_EQ(MessageOf<std::invalid_argument>([&] { byGroup.AddColumns(table, 0, 3); }),
                message + (c.name == "groups" ? "4" : ""));
    }
    EXPECT_EQ(std::pair(Contents(batch), Contents(byGroup)), before);
    EXPECT_TRUE(byGroup.IsSorted());
    // A row that is not used may hold anything.
    const std::uint8_t firstTwo = 0b011;
    table.weights->validity = &firstTwo;
    EXPECT_EQ(batch.AddColumns(table, 0, 3, c.missingCode), 2U);
    EXPECT_EQ(batch.NRows(), 4U);
  }
}

TEST(RefusedColumnsDeathTest, OfAnotherShape) {
  const CurrentCase current;
  DataBatch batch(2, 3, &current.weight, &current.regWeight, &current.group);
  batch.AddRow(kPlain);
  const struct {
    std::string condition;
    std::function<void(TableView&)> change;
    std::uint64_t from = 0;
    std::uint64_t to = 1;
  } cases[] = {
      {"from <= to && to <= table.rows", {}, 2, 1},
      {"from <= to && to <= table.rows", {}, 2, 4},
      {"to - from <= batch.maxRows - batch.rows", {}, 0, 3},
      {"table.values.size() == batch.columns", [](TableView& t) { t.values.pop_back(); }},
      {"table.weights.has_value() == (batch.weights != nullptr)",
       [](TableView& t) { t.weights.reset(); }},
      {"table.regWeights.has_value() == (batch.regWeights != nullptr)",
       [](TableView& t) { t.regWeights.reset(); }},
      {"table.groups.has_value() == (batch.groups != nullptr)",
       [](TableView& t) { t.groups.reset(); }},
      {"!isRead || column.data != nullptr", [](TableView& t) { t.values[1].data = nullptr; }},
      {"column.type <= ValueType::Bool", [](TableView& t) { t.weights->type = ValueType{11}; }},
      {"column.absentCodes.size() <= ColumnView::kMostAbsentCodes",
       [](TableView& t) { t.groups->absentCodes.resize(9); }},
  };
  for (const auto& c : cases) {
    TableView table = PlainTable();
    if (c.change) {
      c.change(table);
    }
    const bool isOfColumn = c.condition.find("column.") != std::string::npos;
    ExpectAbort({c.condition, [&] { batch.AddColumns(table, c.from, c.to); },
                 "velmor/table/tablecopy.cpp", isOfColumn ? "AssertFits" : "CopyRows",
                 c.condition});
  }
  // Without rows, nothing is read.
  TableView empty = PlainTable();
  empty.values[0].data = nullptr;
  EXPECT_EQ(batch.AddColumns(empty, 3, 3), 0U);
}

TEST(Workspace, AnInnerOneLeavesTheOuterOnesArrays) {
  constexpr std::size_t kCount = 5000;  // more than the first chunk has left, after that one
  ordered::Workspace outer;
  auto* const first = outer.Take<double>(100);
  std::fill_n(first, 100, 1.);
  for (int repeat = 0; repeat < 2; ++repeat) {
    ordered::Workspace inner;
    std::fill_n(inner.Take<double>(kCount), kCount, 2.);
  }
  std::fill_n(outer.Take<double>(kCount), kCount, 3.);
  EXPECT_EQ(std::count(first, first + 100, 1.), 100);
}

#ifdef __SSE2__
TEST(Columns, TakeSubnormalsWhereTheHostFlushesThem) {
  const float small[] = {0x1p-149F, 0.F, 0x1p-140F};
  ColumnView column(small);
  column.absentCodes = {0.};
  const unsigned int mode = _mm_getcsr();
  _mm_setcsr(mode | 0x8040U);
  const Doubles taken = Taken(Table(3, {column}));
  _mm_setcsr(mode);
  EXPECT_EQ(Bits(taken), Bits(Doubles{0x1p-149, 0x1p-140}));
}
#endif

}  // namespace
}  // namespace velmor::test
