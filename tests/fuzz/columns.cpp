// Fuzzes AddColumns of both kinds of batches: from a table of any types and layouts, in memory that
// ends where the table ends, it appends what AddRow appends or refuses the first row that it has
// to.
#include "../columntypes.h"
#include "anyengine.h"

#include <cstring>
#include <deque>
#include <stdexcept>

namespace velmor::test {
namespace {

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
  // Adds columns whose values in a row are side by side, sometimes integers beside doubles. Returns
  // the first one's first value.
  std::byte* AddColumns(Input& input, unsigned int columns) {
    const auto type =
        columns == 1 ? static_cast<ValueType>(input.Below(kColumnTypes)) : ValueType::Double;
    std::ptrdiff_t size = 0;
    WithType(type, [&](auto x) { size = sizeof(x); });
    const auto rows = static_cast<std::ptrdiff_t>(view.rows);
    const std::ptrdiff_t width = size * columns;
    const std::ptrdiff_t strides[] = {width, width, -width, width + 8, width + 1, 3 * width, 0};
    const std::ptrdiff_t stride = input.OneOf(strides);
    const unsigned int draw = input.Below(9);
    const std::ptrdiff_t offset = draw % 8;
    const std::ptrdiff_t span = std::abs(stride) * std::max<std::ptrdiff_t>(rows - 1, 0);
    const Memory& memory =
        _memory.emplace_back(input, static_cast<std::size_t>(offset + span + width));
    std::byte* const first = memory.At(offset + (stride < 0 ? span : 0));
    for (unsigned int i = 0; i < columns; ++i) {
      ColumnView& column = view.values.emplace_back();
      column.type = draw == 8 && i % 2 == 1 ? ValueType::Int64 : type;
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

enum class Role { Value, CaseWeight, RegWeight, Group };
constexpr const char* kRoleNames[] = {"column ", "case weights", "regression weights", "groups"};

bool IsRefused(const Value& value, Role role, const Terms& terms) {
  const bool isCoded = role == Role::Value && terms.missingCode;
  if (value.isAbsent) {
    return isCoded && std::isnan(*terms.missingCode);
  }
  const bool isGroup = 0. <= value.number && value.number < static_cast<double>(terms.groups) &&
                       std::trunc(value.number) == value.number;
  return !value.isExact || (isCoded && value.number == *terms.missingCode) ||
         (role == Role::Group && !isGroup);
}

// A row that is taken value by value.
struct Row {
  std::uint64_t number;
  const Terms& terms;
  bool isLeftOut = false;
  std::string refusal = {};  // what is said first of it

  // Returns what is written in place of a value.
  double Take(const ColumnView& column, Role role, std::size_t place = 0) {
    const Value value = ValueOf(column, number);
    const bool isCoded = value.isAbsent && role == Role::Value && terms.missingCode;
    isLeftOut = isLeftOut || (value.isAbsent && !isCoded);
    if (IsRefused(value, role, terms) && refusal.empty()) {
      refusal = "row " + std::to_string(number) + ", " + kRoleNames[static_cast<int>(role)] +
                (role == Role::Value ? std::to_string(place) : "") + ": ";
    }
    return isCoded ? *terms.missingCode : value.number;
  }
};

// What AddColumns has to do with some rows.
struct Expected {
  Cases cases;          // appended
  std::string refusal;  // or what is said first of a row that is refused
};

Expected Expect(const TableView& table, std::uint64_t from, std::uint64_t to, const Terms& terms) {
  Expected expected;
  Cases& cases = expected.cases;
  for (std::uint64_t number = from; number < to; ++number) {
    Row row{number, terms};
    std::vector<double> values;
    for (const ColumnView& column : table.values) {
      values.push_back(row.Take(column, Role::Value, values.size()));
    }
    const double weight = table.weights ? row.Take(*table.weights, Role::CaseWeight) : 0.;
    const double regWeight = table.regWeights ? row.Take(*table.regWeights, Role::RegWeight) : 0.;
    const double group = table.groups ? row.Take(*table.groups, Role::Group) : 0.;
    if (row.isLeftOut) {
      continue;
    }
    if (!row.refusal.empty()) {
      return {{}, row.refusal};
    }
    cases.rows.push_back(std::move(values));
    cases.weights.push_back(weight);
    cases.regWeights.push_back(regWeight);
    cases.groups.push_back(static_cast<unsigned int>(group));
  }
  return expected;
}

// Appends some rows, by AddColumns or one by one, to a batch, and all of them one by one to
// another.
template <class Batch>
void Append(Input& input, const TableView& table, const Terms& terms, CurrentCase& current,
            Batch& batch, Batch& plain) {
  const auto rows = static_cast<unsigned int>(table.rows);
  const unsigned int from = input.Below(rows + 1);
  const unsigned int most = std::min(rows - from, batch.MaxRows() - batch.NRows());
  const std::uint64_t to = from + most - input.Below(most + 1);
  const Expected expected = Expect(table, from, to, terms);
  AddRows(plain, current, expected.cases);
  if (input.Below(4) == 3) {
    AddRows(batch, current, expected.cases);
    return;
  }
  unsigned int added = 0;
  std::string refusal;
  try {
    InSomeRounding(input, [&] {
      if constexpr (std::is_same_v<Batch, DataBatch>) {
        added = batch.AddColumns(table, from, to, terms.missingCode, terms.groups);
      } else {
        added = batch.AddColumns(table, from, to);
      }
    });
  } catch (const std::invalid_argument& error) {
    refusal = error.what();
  }
  Require(refusal.starts_with(expected.refusal) && refusal.empty() == expected.refusal.empty(),
          refusal + " -- instead of -- " + expected.refusal);
  Require(added == expected.cases.rows.size() && batch.NRows() == plain.NRows(),
          "another number of rows");
}

template <class Batch>
void RequireSame(Batch& batch, Batch& plain) {
  if constexpr (std::is_same_v<Batch, DataBatchByGroup>) {
    batch.SortByGroup();
    plain.SortByGroup();
  }
  Require(Contents(batch) == Contents(plain), "another content");
}

template <class Batch, class... Groups>
void Compare(Input& input, const TableView& table, const Terms& terms, Groups... groups) {
  CurrentCase current;
  const auto columns = static_cast<unsigned int>(table.values.size());
  const auto rows = std::max(1U, static_cast<unsigned int>(table.rows) + input.Below(9));
  const auto make = [&] {
    return std::make_unique<Batch>(columns, rows, table.weights ? &current.weight : nullptr,
                                   table.regWeights ? &current.regWeight : nullptr,
                                   table.groups ? &current.group : nullptr, groups...);
  };
  const auto batch = make();
  const auto plain = make();
  for (int step = 0; step < 5; ++step) {
    Append(input, table, terms, current, *batch, *plain);
    if (input.Below(4) == 3) {
      RequireSame(*batch, *plain);
    }
    if (input.Below(8) == 7) {
      batch->Clear();
      plain->Clear();
    }
  }
  RequireSame(*batch, *plain);
}

}  // namespace

void Run(Input& input) {
  constexpr double kCodes[] = {-99., kNaN, kInf, 0., 1., 127.};
  UseAnyEngine(input);
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
