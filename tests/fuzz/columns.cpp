// Fuzzes AddColumns of both kinds of batches: from a table of any types and layouts, in memory that
// ends where the table ends, it appends what AddRow appends or refuses the first row that it has
// to.
#include "ordered/engine.h"

#include "input.h"

#include <cstring>
#include <deque>
#include <stdexcept>

namespace velmor::test {
namespace {

// Calls visit(T()), T being the type's C++ type.
template <class Visit>
auto WithType(ValueType type, Visit visit) {
  switch (type) {
    case ValueType::Double:
      return visit(double{});
    case ValueType::Float:
      return visit(float{});
    case ValueType::Int8:
      return visit(std::int8_t{});
    case ValueType::Int16:
      return visit(std::int16_t{});
    case ValueType::Int32:
      return visit(std::int32_t{});
    case ValueType::Int64:
      return visit(std::int64_t{});
    case ValueType::UInt8:
      return visit(std::uint8_t{});
    case ValueType::UInt16:
      return visit(std::uint16_t{});
    case ValueType::UInt32:
      return visit(std::uint32_t{});
    case ValueType::UInt64:
      return visit(std::uint64_t{});
    case ValueType::Bool:
      break;
  }
  return visit(bool{});
}

std::size_t SizeOf(ValueType type) {
  return WithType(type, [](auto x) { return sizeof(x); });
}

// A value as it is read one by one.
struct Value {
  double number = 0.;
  bool isExact = true;  // the number is equal to the value
  bool isAbsent = false;
};

template <class T>
bool IsExact(T x, double number) {
  if constexpr (std::is_integral_v<T> && sizeof(T) == 8) {
    // Rounded up, it may be out of the type's range.
    return number < std::ldexp(1., std::numeric_limits<T>::digits) && static_cast<T>(number) == x;
  }
  return true;
}

Value ValueOf(const ColumnView& column, std::uint64_t row) {
  const std::byte* const address =
      static_cast<const std::byte*>(column.data) + column.stride * static_cast<std::ptrdiff_t>(row);
  Value value;
  WithType(column.type, [&](auto x) {
    if constexpr (std::is_same_v<decltype(x), bool>) {
      x = *address != std::byte{0};
    } else {
      std::memcpy(&x, address, sizeof(x));
    }
    value.number = static_cast<double>(x);
    value.isExact = IsExact(x, value.number);
  });
  const std::uint64_t bit = column.validityOffset + row;
  value.isAbsent = column.validity != nullptr && (column.validity[bit / 8] >> bit % 8 & 1U) == 0;
  value.isAbsent = value.isAbsent || (column.nanIsAbsent && std::isnan(value.number));
  for (const double code : column.absentCodes) {
    value.isAbsent = value.isAbsent || (value.isExact && value.number == code);
  }
  return value;
}

// The bytes that a column or some of them occupy, none more.
class Memory {
 public:
  Memory(Input& input, std::size_t size) : _bytes(std::make_unique<std::byte[]>(size)) {
    Random random = input.Seed();
    for (std::size_t i = 0; i < size; i += 3) {  // as many whole bytes as it draws
      const auto bits = static_cast<std::uint32_t>(random());
      std::memcpy(_bytes.get() + i, &bits, std::min<std::size_t>(3, size - i));
    }
  }
  std::byte* At(std::ptrdiff_t offset) const { return _bytes.get() + offset; }

 private:
  std::unique_ptr<std::byte[]> _bytes;
};

// What groups are drawn from, most of the time.
constexpr unsigned int kGroups = 5;

class Table {
 public:
  Table(Input& input, unsigned int rows, unsigned int columns) {
    view.rows = rows;
    while (view.values.size() < columns) {
      const auto left = columns - static_cast<unsigned int>(view.values.size());
      const unsigned int sideBySide = input.Coin() ? 1 : 1 + input.Below(left);
      AddColumns(input, sideBySide);
    }
    for (auto* const other : {&view.weights, &view.regWeights, &view.groups}) {
      if (input.Coin()) {
        std::byte* const first = AddColumns(input, 1);
        *other = std::move(view.values.back());
        view.values.pop_back();
        if (other == &view.groups && input.Below(8) != 7) {
          Overwrite(input, *view.groups, first, 100,
                    [](Random& random) { return random() % kGroups; });
        }
      }
    }
  }

  TableView view;

 private:
  // Adds columns whose values in a row are side by side. Returns the first one's first value.
  std::byte* AddColumns(Input& input, unsigned int columns) {
    const auto type = columns == 1 ? static_cast<ValueType>(input.Below(11)) : ValueType::Double;
    const auto size = static_cast<std::ptrdiff_t>(SizeOf(type));
    const auto rows = static_cast<std::ptrdiff_t>(view.rows);
    const std::ptrdiff_t width = size * columns;
    const std::ptrdiff_t strides[] = {width, width, -width, width + 8, width + 1, 3 * width, 0};
    const std::ptrdiff_t stride = input.OneOf(strides);
    const std::ptrdiff_t offset = input.Below(9) % 8;
    const std::ptrdiff_t span = std::abs(stride) * std::max<std::ptrdiff_t>(rows - 1, 0);
    const Memory& memory =
        _memory.emplace_back(input, static_cast<std::size_t>(offset + span + width));
    std::byte* const first = memory.At(offset + (stride < 0 ? span : 0));
    for (unsigned int i = 0; i < columns; ++i) {
      ColumnView& column = view.values.emplace_back();
      column.type = type;
      column.stride = stride;
      column.data = first + size * i;
      Overwrite(input, column, first + size * i, input.OneOf({100U, 90U, 50U, 0U}),
                SmallOrSpecial(input));
      Mark(input, column);
    }
    return first;
  }

  struct SmallOrSpecial {
    explicit SmallOrSpecial(Input& input) : kind(input.Below(3)) {}
    double operator()(Random& random) const {
      const double special = kSpecial[random() % std::size(kSpecial)];
      return kind == 0   ? static_cast<double>(random() % 10)
             : kind == 1 ? special
                         : std::ldexp(1., static_cast<int>(random() % 66)) - 1.;
    }
    unsigned int kind;
  };

  // Puts numbers that the type has in place of so many values of a hundred.
  template <class Draw>
  void Overwrite(Input& input, const ColumnView& column, std::byte* first, unsigned int percent,
                 Draw draw) {
    Random random = input.Seed();
    for (std::uint64_t row = 0; row < view.rows; ++row) {
      if (const auto number = static_cast<double>(draw(random)); random() % 100 < percent) {
        WithType(column.type, [&](auto x) {
          if constexpr (std::is_floating_point_v<decltype(x)>) {
            x = static_cast<decltype(x)>(number);
          } else if (std::abs(number) < std::ldexp(1., 63)) {
            x = static_cast<decltype(x)>(static_cast<std::int64_t>(number));
          }
          std::memcpy(first + column.stride * static_cast<std::ptrdiff_t>(row), &x, sizeof(x));
        });
      }
    }
  }

  void Mark(Input& input, ColumnView& column) {
    const unsigned int marks = input.Below(16);
    column.nanIsAbsent = (marks & 1U) != 0;
    if ((marks & 2U) != 0) {
      column.absentCodes.resize(input.Below(ColumnView::kMostAbsentCodes + 1));
      for (double& code : column.absentCodes) {
        code = input.Number();
      }
    }
    if ((marks & 4U) != 0) {
      column.validityOffset = input.Below(80);
      const std::size_t size = (column.validityOffset + view.rows + 7) / 8;
      const Memory& bits = _memory.emplace_back(input, size);
      if (input.Coin()) {
        for (std::size_t i = 0; i < size; ++i) {
          *bits.At(static_cast<std::ptrdiff_t>(i)) |=
              std::byte{static_cast<unsigned char>(~(1U << i % 11))};
        }
      }
      column.validity = static_cast<const std::uint8_t*>(static_cast<const void*>(bits.At(0)));
    }
  }

  std::deque<Memory> _memory;
};

// What AddColumns is told.
struct Terms {
  std::optional<double> missingCode;
  std::uint64_t groups = DataBatch::kMostGroups;
};

enum class Role { Value, Weight, Group };

// A row that is taken value by value.
class Row {
 public:
  Row(std::uint64_t row, const Terms& terms) : _row(row), _terms(terms) {}

  // Returns what is written in place of a value.
  //   number  of a column that has one beside its name
  double Take(const ColumnView& column, Role role, const char* name,
              std::optional<std::size_t> number = std::nullopt) {
    const Value value = ValueOf(column, _row);
    const bool isCoded = role == Role::Value && _terms.missingCode;
    _isLeftOut = _isLeftOut || (value.isAbsent && !isCoded);
    if (IsRefused(value, role) && _refusal.empty()) {
      _refusal = "row " + std::to_string(_row) + ", " + name +
                 (number ? std::to_string(*number) : "") + ": ";
    }
    return value.isAbsent && isCoded ? *_terms.missingCode : value.number;
  }

  bool IsLeftOut() const { return _isLeftOut; }
  const std::string& Refusal() const { return _refusal; }  // what is said first of it

 private:
  bool IsRefused(const Value& value, Role role) const {
    const bool isCoded = role == Role::Value && _terms.missingCode;
    if (value.isAbsent) {
      return isCoded && std::isnan(*_terms.missingCode);
    }
    const bool isGroup = 0. <= value.number && value.number < static_cast<double>(_terms.groups) &&
                         std::trunc(value.number) == value.number;
    return !value.isExact || (isCoded && value.number == *_terms.missingCode) ||
           (role == Role::Group && !isGroup);
  }

  std::uint64_t _row;
  const Terms& _terms;
  bool _isLeftOut = false;
  std::string _refusal;
};

// What AddColumns has to do with some rows.
struct Expected {
  Cases cases;          // appended
  std::string refusal;  // or what is said first of a row that is refused
};

Expected Expect(const TableView& table, std::uint64_t from, std::uint64_t to, const Terms& terms) {
  Expected expected;
  for (std::uint64_t i = from; i < to; ++i) {
    Row row(i, terms);
    std::vector<double> values;
    values.reserve(table.values.size());
    for (const ColumnView& column : table.values) {
      values.push_back(row.Take(column, Role::Value, "column ", values.size()));
    }
    const double weight =
        table.weights ? row.Take(*table.weights, Role::Weight, "case weights") : 0.;
    const double regWeight =
        table.regWeights ? row.Take(*table.regWeights, Role::Weight, "regression weights") : 0.;
    const double group = table.groups ? row.Take(*table.groups, Role::Group, "groups") : 0.;
    if (row.IsLeftOut()) {
      continue;
    }
    if (!row.Refusal().empty()) {
      return {{}, row.Refusal()};
    }
    expected.cases.rows.push_back(std::move(values));
    expected.cases.weights.push_back(weight);
    expected.cases.regWeights.push_back(regWeight);
    expected.cases.groups.push_back(static_cast<unsigned int>(group));
  }
  return expected;
}

unsigned int AddColumns(DataBatch& batch, const TableView& table, std::uint64_t from,
                        std::uint64_t to, const Terms& terms) {
  return batch.AddColumns(table, from, to, terms.missingCode, terms.groups);
}
unsigned int AddColumns(DataBatchByGroup& batch, const TableView& table, std::uint64_t from,
                        std::uint64_t to, const Terms& /*terms*/) {
  return batch.AddColumns(table, from, to);
}

void AddRow(DataBatch& batch, const std::vector<double>& values) { batch.AddRow(values.data()); }
void AddRow(DataBatchByGroup& batch, const std::vector<double>& values) {
  std::copy(values.begin(), values.end(), batch.NextRow());
  batch.AddRow();
}

template <class Batch>
void AddRows(Batch& batch, Host& host, const Cases& cases) {
  for (std::size_t row = 0; row < cases.rows.size(); ++row) {
    host.Take(cases, row);
    AddRow(batch, cases.rows[row]);
  }
}

void RequireSameContents(DataBatch& batch, DataBatch& expected) {
  const auto require = [&](const auto* x, const auto* y) {
    for (unsigned int row = 0; x && row < batch.NRows(); ++row) {
      Require(Bits(x[row]) == Bits(y[row]), "a value, weight or group is another");
    }
  };
  Require(batch.MaxGroupSeen() == expected.MaxGroupSeen(), "another greatest group");
  require(batch.Weights(), expected.Weights());
  require(batch.RegWeights(), expected.RegWeights());
  require(batch.Groups(), expected.Groups());
  for (unsigned int column = 0; column < batch.NColumns(); ++column) {
    require(batch.Column(column), expected.Column(column));
  }
}

void RequireSameContents(DataBatchByGroup& batch, DataBatchByGroup& expected) {
  batch.SortByGroup();
  expected.SortByGroup();
  for (unsigned int group = 0; group < batch.NGroups(); ++group) {
    Require(batch.groupCount(group) == expected.groupCount(group), "another number in a group");
  }
  for (unsigned int row = 0; row < batch.NRows(); ++row) {
    for (unsigned int column = 0; column < batch.NColumns(); ++column) {
      Require(Bits(batch.Column(column)[row]) == Bits(expected.Column(column)[row]),
              "a value is another");
    }
    Require(!batch.HasWeights() || Bits(batch.Weights()[row]) == Bits(expected.Weights()[row]),
            "a weight is another");
  }
}

// Appends some rows, by AddColumns or one by one, to a batch, and all of them one by one to
// another.
template <class Batch>
void Append(Input& input, const TableView& table, const Terms& terms, Host& host, Batch& batch,
            Batch& plain) {
  const auto rows = static_cast<unsigned int>(table.rows);
  const unsigned int from = input.Below(rows + 1);
  const unsigned int most = std::min(rows - from, batch.MaxRows() - batch.NRows());
  const std::uint64_t to = from + most - input.Below(most + 1);
  const Expected expected = Expect(table, from, to, terms);
  AddRows(plain, host, expected.cases);
  if (input.Below(4) == 3) {
    AddRows(batch, host, expected.cases);
    return;
  }
  try {
    const HostsRounding rounding(input);
    Require(AddColumns(batch, table, from, to, terms) == expected.cases.rows.size() &&
                expected.refusal.empty(),
            "another number of rows");
  } catch (const std::invalid_argument& error) {
    if (expected.refusal.empty() || !std::string_view(error.what()).starts_with(expected.refusal)) {
      Fail(std::string(error.what()) + " -- instead of -- " + expected.refusal);
    }
  }
  Require(batch.NRows() == plain.NRows(), "another number of rows in the batch");
}

template <class Batch, class... Groups>
void Compare(Input& input, const TableView& table, const Terms& terms, Groups... groups) {
  Host host;
  const auto columns = static_cast<unsigned int>(table.values.size());
  const auto rows = static_cast<unsigned int>(table.rows) + input.Below(9);
  const auto make = [&] {
    return std::make_unique<Batch>(columns, std::max(1U, rows),
                                   table.weights ? &host.weight : nullptr,
                                   table.regWeights ? &host.regWeight : nullptr,
                                   table.groups ? &host.group : nullptr, groups...);
  };
  const auto batch = make();
  const auto plain = make();
  for (int step = 0; step < 5; ++step) {
    Append(input, table, terms, host, *batch, *plain);
    if (input.Below(4) == 3) {
      RequireSameContents(*batch, *plain);
    }
    if (input.Below(8) == 7) {
      batch->Clear();
      plain->Clear();
    }
  }
  RequireSameContents(*batch, *plain);
}

}  // namespace

void Run(Input& input) {
  constexpr double kCodes[] = {-99., kNaN, kInf, 0., 1., 127.};
  ordered::Use(
      *ordered::Available()[input.Below(static_cast<unsigned int>(ordered::Available().size()))]);
  const bool isLong = input.Below(16) == 15;  // chunks of 4096 rows are copied at a time
  const unsigned int rows = isLong ? 4090 + input.Below(9) : input.Rows(200);
  const Table table(input, rows, 1 + input.Below(isLong ? 2 : 9));
  if (table.view.groups && input.Coin()) {
    const unsigned int groups = input.Below(2 * kGroups);
    Compare<DataBatchByGroup>(input, table.view, {std::nullopt, groups}, groups);
  } else {
    Terms terms{{}, input.Coin() ? DataBatch::kMostGroups : input.Below(2 * kGroups)};
    if (input.Coin()) {
      terms.missingCode = input.OneOf(kCodes);
    }
    Compare<DataBatch>(input, table.view, terms);
  }
}

}  // namespace velmor::test
