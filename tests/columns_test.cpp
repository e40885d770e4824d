// AddColumns of both kinds of batches: it appends what AddRow would have appended, to the bit and
// with every engine; what it leaves out; what it refuses.
#include <velmor/databatch.h>
#include <velmor/databatchbygroup.h>

#include "ordered/engine.h"
#include "ordered/workspace.h"
#include "support.h"

#include <cstring>
#include <deque>
#include <numeric>
#include <string_view>
#include <tuple>

#ifdef __SSE2__
#include <xmmintrin.h>
#endif

namespace velmor::test {
namespace {

using Doubles = std::vector<double>;

// In the order of ValueType.
using Types = std::tuple<double, float, std::int8_t, std::int16_t, std::int32_t, std::int64_t,
                         std::uint8_t, std::uint16_t, std::uint32_t, std::uint64_t, bool>;
constexpr std::size_t kTypes = std::tuple_size_v<Types>;

// Calls visit(T()), T being the type's C++ type.
template <class Visit>
void WithType(ValueType type, Visit visit) {
  [&]<std::size_t... kPlace>(std::index_sequence<kPlace...>) {
    ((kPlace == static_cast<std::size_t>(type) ? visit(std::tuple_element_t<kPlace, Types>())
                                               : void()),
     ...);
  }
  (std::make_index_sequence<kTypes>());
}

// Rows are `spread` values and `gap` bytes apart; the memory begins `offset` bytes off alignment.
struct Layout {
  const char* name;
  std::ptrdiff_t spread, gap, offset;
};
constexpr Layout kLayouts[] = {
    {"contiguous", 1, 0, 0},       {"unaligned", 1, 0, 1},  {"apart", 3, 0, 0},
    {"unaligned, apart", 1, 3, 0}, {"backwards", -1, 0, 0}, {"unaligned, backwards", -2, -1, 3},
    {"one value for all", 0, 0, 0}};

// A column and its memory.
class Column {
 public:
  Column(ValueType type, std::size_t rows, const Layout& layout = kLayouts[0])
      : values(rows), absent(rows) {
    WithType(type, [&](auto x) {
      _size = sizeof(x);
      EXPECT_EQ(ValueTypeOf<decltype(x)>(), type);
    });
    view.type = type;
    view.stride = layout.spread * static_cast<std::ptrdiff_t>(_size) + layout.gap;
    const auto bytes = std::abs(view.stride) * static_cast<std::ptrdiff_t>(rows);
    _memory.resize(static_cast<std::size_t>(bytes + layout.offset) + _size);
    _first = layout.offset + (view.stride < 0 ? bytes + view.stride : 0);
    view.data = _memory.data() + _first;
  }

  void Store(std::size_t row, double value) {
    WithType(view.type, [&](auto x) {
      x = static_cast<decltype(x)>(value);
      std::memcpy(Address(row), &x, sizeof(x));
    });
    values[row] = value;
  }
  void StoreBits(std::size_t row, std::uint64_t bits) { std::memcpy(Address(row), &bits, _size); }

  // A bitmap whose first bits are not this column's.
  void Hide(const std::vector<bool>& rows, std::size_t offset) {
    _bitmap.assign((offset + rows.size() + 7) / 8, 0);
    for (std::size_t bit = 0; bit < offset + rows.size(); ++bit) {
      const bool isPresent = bit < offset ? bit % 3 == 0 : !rows[bit - offset];
      _bitmap[bit / 8] =
          static_cast<std::uint8_t>(_bitmap[bit / 8] | (isPresent ? 1 : 0) << bit % 8);
    }
    view.validity = _bitmap.data();
    view.validityOffset = offset;
  }

  ColumnView view;
  Doubles values;
  std::vector<bool> absent;

 private:
  std::byte* Address(std::size_t row) {
    return _memory.data() + _first + view.stride * static_cast<std::ptrdiff_t>(row);
  }

  std::size_t _size = 0;
  std::ptrdiff_t _first = 0;
  std::vector<std::byte> _memory;
  std::vector<std::uint8_t> _bitmap;
};

TableView Table(std::uint64_t rows, std::vector<ColumnView> values) {
  TableView table;
  table.rows = rows;
  table.values = std::move(values);
  return table;
}

Doubles Values(DataBatch& batch, unsigned int column = 0) {
  return {batch.Column(column), batch.Column(column) + batch.NRows()};
}

class Columns : public testing::TestWithParam<const ordered::Engine*> {
 protected:
  void SetUp() override { ordered::Use(*GetParam()); }
  void TearDown() override { ordered::Use(*ordered::Available().back()); }
};
INSTANTIATE_TEST_SUITE_P(Engines, Columns, testing::ValuesIn(ordered::Available()),
                         [](const auto& engine) { return engine.param->name; });

TEST(ColumnTypes, EveryTypeAndLayoutGivesItsValues) {
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
  static_assert(std::size(types) == kTypes);
  for (const auto& t : types) {
    for (const Layout& layout : kLayouts) {
      SCOPED_TRACE(std::string(layout.name) + ", type " + std::to_string(int(t.type)));
      constexpr unsigned int kRows = 70;
      Column column(t.type, kRows, layout);
      for (std::size_t row = 0; row < kRows; ++row) {
        column.Store(row, layout.spread == 0 ? t.values[0] : t.values[row % t.values.size()]);
      }
      if (t.type == ValueType::Bool && layout.spread != 0) {
        column.StoreBits(1, 0x8080808080808080);  // true as any byte but 0
      }
      DataBatch batch(1, kRows, nullptr, nullptr, nullptr);
      EXPECT_EQ(batch.AddColumns(Table(kRows, {column.view}), 0, kRows), kRows);
      EXPECT_EQ(Bits(Values(batch)), Bits(column.values));
    }
  }
}

// Columns of doubles in one piece of memory, of which some are side by side in each row.
TEST(ColumnTypes, ColumnsMayLieAnywhereInTheSameMemory) {
  Doubles memory(100);
  std::iota(memory.begin(), memory.end(), 1.);
  struct Bytes {
    std::ptrdiff_t first, stride;
  };
  const struct {
    const char* name;
    std::vector<Bytes> columns;
  } cases[] = {
      {"side by side", {{0, 32}, {8, 32}, {16, 32}}},
      {"apart", {{0, 48}, {8, 48}, {24, 48}, {32, 48}}},
      {"of other strides", {{0, 48}, {8, 24}, {16, 48}, {24, 48}}},
      {"backwards", {{320, -32}, {328, -32}, {336, -32}}},
      {"off alignment", {{1, 32}, {9, 32}, {17, 32}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto* const bytes = static_cast<const char*>(static_cast<const void*>(memory.data()));
    TableView table = Table(9, {});
    for (const Bytes& column : c.columns) {
      table.values.emplace_back().data = bytes + column.first;
      table.values.back().stride = column.stride;
    }
    DataBatch batch(static_cast<unsigned int>(c.columns.size()), 9, nullptr, nullptr, nullptr);
    batch.AddColumns(table, 0, 9);
    for (unsigned int j = 0; j < batch.NColumns(); ++j) {
      Doubles expected(9);
      for (std::size_t row = 0; row < 9; ++row) {
        const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(row) * c.columns[j].stride;
        std::memcpy(&expected[row], bytes + c.columns[j].first + at, sizeof(double));
      }
      EXPECT_EQ(Bits(Values(batch, j)), Bits(expected));
    }
  }
}

// Without a missing code the others are left out, with one they become the code.
TEST_P(Columns, AnyMarkMakesAValueAbsent) {
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
    DataBatch batch(1, 20, nullptr, nullptr, nullptr);
    EXPECT_EQ(batch.AddColumns(table, 0, table.rows), kept.size());
    EXPECT_EQ(Bits(Values(batch)), Bits(kept));
    batch.Clear();
    EXPECT_EQ(batch.AddColumns(table, 0, table.rows, -2.), table.rows);
    EXPECT_EQ(Bits(Values(batch)), Bits(coded));
  }
}

constexpr unsigned int kGroups = 4;

struct Shape {
  const char* name;
  unsigned int rows, columns;
  unsigned int marks;     // that columns may have, a bit each: bitmap, NaN, codes
  unsigned int inRows;    // so many of each seven columns are doubles, side by side in each row
  bool hasTypes = false;  // the others are of any type and layout
};

// A table of random values, of which some are absent, and what it says.
class RandomTable {
 public:
  RandomTable(std::mt19937& random, const Shape& shape)
      : _shape(shape), _rows(std::size_t{shape.rows} * shape.columns) {
    view.rows = shape.rows;
    for (unsigned int j = 0; j < shape.columns; ++j) {
      const bool isInRows = j % 7 < shape.inRows;
      const bool isAny = shape.hasTypes && !isInRows;
      const auto type = static_cast<ValueType>(isAny ? random() % kTypes : 0);
      const Layout& layout = kLayouts[isAny ? random() % (std::size(kLayouts) - 1) : 0];
      view.values.push_back(Add(random, type, layout, (j + 7) % 8 & shape.marks, 60));
      if (isInRows) {
        for (std::size_t row = 0; row < shape.rows; ++row) {
          _rows[row * shape.columns + j] = _columns.back().values[row];
        }
        view.values[j].data = &_rows[j];
        view.values[j].stride = static_cast<std::ptrdiff_t>(shape.columns * sizeof(double));
      }
    }
    view.weights = Add(random, ValueType::Float, kLayouts[2], shape.marks, 60);
    view.regWeights = Add(random, ValueType::Double, kLayouts[1], shape.marks, 60);
    view.groups = Add(random, ValueType::UInt8, kLayouts[0], shape.marks, kGroups);
  }

  // The cases that can be used.
  Cases Used(std::uint64_t from, std::uint64_t to, std::optional<double> missingCode) const {
    Cases cases;
    for (std::uint64_t row = from; row < to; ++row) {
      Doubles values;
      bool isUsed = true;
      for (const Column& column : _columns) {
        const bool isCoded = missingCode && values.size() < _shape.columns && column.absent[row];
        isUsed = isUsed && (isCoded || !column.absent[row]);
        values.push_back(isCoded ? *missingCode : column.values[row]);
      }
      if (isUsed) {
        const double* const others = &values[_shape.columns];
        cases.weights.push_back(others[0]);
        cases.regWeights.push_back(others[1]);
        cases.groups.push_back(static_cast<unsigned int>(others[2]));
        values.resize(_shape.columns);
        cases.rows.push_back(std::move(values));
      }
    }
    return cases;
  }

  TableView view;

 private:
  ColumnView Add(std::mt19937& random, ValueType type, const Layout& layout, unsigned int marks,
                 unsigned int values) {
    Column& column = _columns.emplace_back(type, _shape.rows, layout);
    const bool isFloating = type == ValueType::Double || type == ValueType::Float;
    std::vector<bool> hidden(_shape.rows);
    column.view.nanIsAbsent = (marks & 2U) != 0;
    column.view.absentCodes = (marks & 4U) != 0 ? Doubles{101., 77.} : Doubles();
    for (std::size_t row = 0; row < _shape.rows; ++row) {
      column.Store(row, static_cast<double>(random() % (type == ValueType::Bool ? 2 : values)));
      const auto draw = random() % (20 + 4 * _shape.columns);
      if (draw == 0 && (marks & 1U) != 0) {
        column.StoreBits(row, (std::uint64_t{random()} << 32U) + random());
        hidden[row] = true;
      } else if (draw == 1 && (marks & 2U) != 0 && isFloating) {
        column.Store(row, kNaN);
      } else if (draw == 2 && (marks & 4U) != 0 && type != ValueType::Bool) {
        column.Store(row, 77.);
      } else {
        continue;
      }
      column.absent[row] = true;
    }
    if ((marks & 1U) != 0) {
      column.Hide(hidden, random() % 70);
    }
    return column.view;
  }

  Shape _shape;
  std::deque<Column> _columns;  // of values, case weights, regression weights, groups
  Doubles _rows;
};

// The host's current case.
struct Host {
  double weight = 0.;
  double regWeight = 0.;
  unsigned int group = 0;
};

void AddRow(DataBatch& batch, const Doubles& values) { batch.AddRow(values.data()); }
void AddRow(DataBatchByGroup& batch, const Doubles& values) {
  std::copy_n(values.begin(), batch.NColumns(), batch.NextRow());
  batch.AddRow();
}

// Appends the table in pieces of any length, some of them row by row. Returns the cases.
//   missingCode  the last argument of AddColumns, if it has one
template <class Batch, class... Code>
Cases Append(std::mt19937& random, const RandomTable& table, Host& host, Batch& batch,
             Code... missingCode) {
  for (std::uint64_t from = 0, to = 0; from < table.view.rows; from = to) {
    to = std::min(table.view.rows, from + 1 + random() % (random() % 4 == 0 ? 7 : 9000));
    const Cases used = table.Used(from, to, std::optional<double>(missingCode...));
    if (random() % 4 != 0) {
      EXPECT_EQ(batch.AddColumns(table.view, from, to, missingCode...), used.rows.size());
      continue;
    }
    for (std::size_t i = 0; i < used.rows.size(); ++i) {
      host = {used.weights[i], used.regWeights[i], used.groups[i]};
      AddRow(batch, used.rows[i]);
    }
  }
  return table.Used(0, table.view.rows, std::optional<double>(missingCode...));
}

// All that a batch holds, and what it counts.
std::vector<std::uint64_t> Contents(DataBatch& batch) {
  Doubles all{1. * batch.MaxGroupSeen()};
  const auto add = [&](const auto* x) { all.insert(all.end(), x, x + batch.NRows()); };
  add(batch.Weights());
  add(batch.RegWeights());
  add(batch.Groups());
  for (unsigned int j = 0; j < batch.NColumns(); ++j) {
    add(batch.Column(j));
  }
  return Bits(all);
}

std::vector<std::uint64_t> Contents(DataBatchByGroup& batch) {
  Doubles all;
  for (unsigned int group = 0; group < kGroups; ++group) {
    all.push_back(batch.groupCount(group));
  }
  all.insert(all.end(), batch.Weights(), batch.Weights() + batch.NRows());
  for (unsigned int j = 0; j < batch.NColumns(); ++j) {
    all.insert(all.end(), batch.Column(j), batch.Column(j) + batch.NRows());
  }
  return Bits(all);
}

TEST_P(Columns, AppendWhatAddRowAppends) {
  constexpr Shape kShapes[] = {
      {"a column", 5000, 1, 2, 0},
      {"a column in rows", 700, 1, 7, 7},
      {"nothing is absent", 4097, 3, 0, 0},
      {"in rows", 1100, 9, 0, 7},
      {"in rows, many columns", 130, 300, 2, 7},
      {"in rows, NaNs", 4099, 5, 2, 7},
      {"everything", 9000, 6, 7, 0, true},
      {"everything, some of it in rows", 600, 40, 7, 3, true},
      {"a row past a word of bits", 65, 3, 7, 0, true},
  };
  std::mt19937 random(7);
  Host host;
  for (const Shape& shape : kShapes) {
    SCOPED_TRACE(shape.name);
    const RandomTable table(random, shape);
    DataBatch batch(shape.columns, shape.rows, &host.weight, &host.regWeight, &host.group);
    const Cases complete = Append(random, table, host, batch);
    EXPECT_EQ(Contents(batch), Contents(*Batch(complete, shape.columns)));
    batch.Clear();
    const Cases coded = Append(random, table, host, batch, -99.);
    EXPECT_EQ(Contents(batch), Contents(*Batch(coded, shape.columns)));
    DataBatchByGroup byGroup(shape.columns, shape.rows, &host.weight, &host.regWeight, &host.group,
                             kGroups);
    const Cases grouped = Append(random, table, host, byGroup);
    byGroup.SortByGroup();
    EXPECT_EQ(Contents(byGroup), Contents(*GroupedBatch(grouped, shape.columns, kGroups)));
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
ColumnView& Named(TableView& table, std::string_view name) {
  return name == "case weights"         ? *table.weights
         : name == "regression weights" ? *table.regWeights
         : name == "groups"             ? *table.groups
                                        : table.values[name == "column 0" ? 0 : 1];
}

// Two values that can be taken anywhere, and a third.
template <class T>
Column EndsIn(T value, Doubles absentCodes = {}) {
  Column column(ValueTypeOf<T>(), 3);
  column.Store(1, 1.);
  std::uint64_t bits = 0;
  std::memcpy(&bits, &value, sizeof(value));
  column.StoreBits(2, bits);
  column.view.nanIsAbsent = !absentCodes.empty();
  column.view.absentCodes = std::move(absentCodes);
  return column;
}

TEST(RefusedColumns, LeaveTheBatchAsItWas) {
  constexpr std::int64_t kWide = (std::int64_t{1} << 53U) + 1;
  const std::string equal = " equals the missing code; choose a code that no value has";
  const std::string rounds =
      "; mark the value absent, or make the column one of doubles, which rounds it";
  const std::string noGroup = " is no group number; groups are whole numbers below ";
  const std::optional<double> none;
  const struct {
    std::string name;
    Column column;
    std::optional<double> missingCode;
    std::string message;
  } cases[] = {
      {"column 1", EndsIn(std::uint8_t{9}), 9., "the value 9" + equal},
      {"column 0", EndsIn(-.5), -.5, "the value -0.5" + equal},
      {"column 1", EndsIn(kNaN, {7.}), kNaN,
       "the value is absent, and a missing code that is not a number marks nothing; choose a "
       "number that no value has"},
      {"column 1", EndsIn(kWide), none, "no double is equal to 9007199254740993" + rounds},
      {"column 0", EndsIn(~std::uint64_t{0}, {0x1p64}), 0x1p64,
       "no double is equal to 18446744073709551615" + rounds},
      {"case weights", EndsIn(-kWide), none, "no double is equal to -9007199254740993" + rounds},
      {"groups", EndsIn(2.5), none, "2.5" + noGroup},
      {"groups", EndsIn(std::int8_t{-1}), none, "-1" + noGroup},
      {"groups", EndsIn(0x1p32F), none, "4294967296" + noGroup},
      {"groups", EndsIn(kNaN), none, "nan" + noGroup},
  };
  Host host{0., 0., 3};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name + c.message);
    TableView table = PlainTable();
    DataBatch batch(2, 6, &host.weight, &host.regWeight, &host.group);
    DataBatchByGroup byGroup(2, 6, &host.weight, &host.regWeight, &host.group, kGroups);
    batch.AddColumns(table, 0, 1);
    batch.AddRow(kPlain);
    byGroup.AddColumns(table, 0, 2);
    byGroup.SortByGroup();
    const auto before = std::pair(Contents(batch), Contents(byGroup));
    Named(table, c.name) = c.column.view;
    const std::string message = "row 2, " + c.name + ": " + c.message;
    EXPECT_EQ(
        MessageOf<std::invalid_argument>([&] { batch.AddColumns(table, 0, 3, c.missingCode); }),
        message + (c.name == "groups" ? "4294967296" : ""));
    if (!c.missingCode) {
      EXPECT_EQ(MessageOf<std::invalid_argument>([&] { byGroup.AddColumns(table, 0, 3); }),
                message + (c.name == "groups" ? "4" : ""));
    }
    EXPECT_EQ(std::pair(Contents(batch), Contents(byGroup)), before);
    // A row that is not used may hold anything.
    const std::uint8_t firstTwo = 0b011;
    table.weights->validity = &firstTwo;
    EXPECT_EQ(batch.AddColumns(table, 0, 3, c.missingCode), 2U);
    EXPECT_EQ(batch.NRows(), 4U);
  }
  DataBatchByGroup byGroup(2, 3, &host.weight, &host.regWeight, &host.group, 3);
  byGroup.SortByGroup();
  EXPECT_EQ(MessageOf<std::invalid_argument>([&] { byGroup.AddColumns(PlainTable(), 0, 3); }),
            "row 2, groups: 3" + noGroup + "3");
  EXPECT_TRUE(byGroup.IsSorted());
  byGroup.AddColumns(PlainTable(), 0, 1);
  EXPECT_FALSE(byGroup.IsSorted());
}

TEST(RefusedColumnsDeathTest, OfAnotherShape) {
  Host host;
  DataBatch batch(2, 3, &host.weight, &host.regWeight, &host.group);
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
  constexpr std::size_t kCount = 5000;  // more than the first block has left, after that one
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
TEST_P(Columns, TakeSubnormalsWhereTheHostFlushesThem) {
  const float small[] = {0x1p-149F, 0.F, 0x1p-140F};
  ColumnView column(small);
  column.absentCodes = {0.};
  DataBatch batch(1, 3, nullptr, nullptr, nullptr);
  const unsigned int mode = _mm_getcsr();
  _mm_setcsr(mode | 0x8040U);
  batch.AddColumns(Table(3, {column}), 0, 3);
  _mm_setcsr(mode);
  EXPECT_EQ(Bits(Values(batch)), Bits(Doubles{0x1p-149, 0x1p-140}));
}
#endif

}  // namespace
}  // namespace velmor::test
