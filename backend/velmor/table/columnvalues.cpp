// columnvalues.cpp: one column of a host's table; start at ReadColumns.
#include "table/columnvalues.h"

#include "ordered/fill.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>
#include <utility>

namespace velmor {
namespace {

// A byte that is no bool to the compiler, as it may be neither 0 nor 1.
enum class BoolByte : std::uint8_t {};

// Calls visit(T()), T being how values of the type lie in memory.
template <class Visit>
auto WithType(ValueType type, Visit visit) {
  switch (type) {
    case ValueType::Double:  // NOLINT(bugprone-branch-clone): each calls another function
      return visit(double());
    case ValueType::Float:
      return visit(float());
    case ValueType::Int8:
      return visit(std::int8_t());
    case ValueType::Int16:
      return visit(std::int16_t());
    case ValueType::Int32:
      return visit(std::int32_t());
    case ValueType::Int64:
      return visit(std::int64_t());
    case ValueType::UInt8:
      return visit(std::uint8_t());
    case ValueType::UInt16:
      return visit(std::uint16_t());
    case ValueType::UInt32:
      return visit(std::uint32_t());
    case ValueType::UInt64:
      return visit(std::uint64_t());
    case ValueType::Bool:
      break;
  }
  return visit(BoolByte());
}

template <class T>
double ToDouble(T x) {
  if constexpr (std::is_enum_v<T>) {
    return x == T() ? 0. : 1.;
  } else if constexpr (std::is_integral_v<T> && sizeof(T) == sizeof(double)) {
    using High = std::conditional_t<std::is_signed_v<T>, std::int32_t, std::uint32_t>;
    const double high = 0x1p32 * static_cast<High>(x >> 32U);
    const double low = static_cast<std::uint32_t>(x);
    const double sum = high + low;
    return sum - high == low ? sum : std::numeric_limits<double>::quiet_NaN();
  } else {
    return x;
  }
}

const std::byte* RowAddress(const ColumnView& column, std::uint64_t row) {
  return static_cast<const std::byte*>(column.data) +
         column.stride * static_cast<std::ptrdiff_t>(row);
}

template <class T>
T ValueAt(const std::byte* from) {
  T x;
  std::memcpy(&x, from, sizeof(x));
  return x;
}

template <class T>
void ReadColumn(const ColumnView& column, RowRange rows, double* to) {
  constexpr auto kSize = static_cast<std::ptrdiff_t>(sizeof(T));
  const std::byte* const from = RowAddress(column, rows.first);
  const auto count = static_cast<std::ptrdiff_t>(rows.count);
  if (column.stride != kSize) {
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      to[i] = ToDouble(ValueAt<T>(from + i * column.stride));
    }
  } else if constexpr (std::is_same_v<T, double>) {
    ordered::Copy(from, rows.count, to);
  } else {
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      to[i] = ToDouble(ValueAt<T>(from + i * kSize));
    }
  }
}

// Up to 64 bits of the bitmap; those behind `count` may be any.
std::uint64_t ValidityWord(const ColumnView& column, std::uint64_t row, std::size_t count) {
  const std::uint64_t first = column.validityOffset + row;
  const std::uint8_t* const bytes = column.validity + first / 8;
  const std::size_t shift = first % 8;
  std::uint64_t word = std::uint64_t{bytes[0]} >> shift;
  for (std::size_t i = 1; 8 * i < shift + count; ++i) {
    word |= std::uint64_t{bytes[i]} << (8 * i - shift);
  }
  return word;
}

std::uintptr_t Address(const ColumnView& column) {
  return reinterpret_cast<std::uintptr_t>(column.data);  // NOLINT(*-reinterpret-cast)
}

bool IsAligned(const ColumnView& column) { return Address(column) % alignof(double) == 0; }

}  // namespace

bool IsContiguous(const ColumnView& column) {
  return column.type == ValueType::Double && column.stride == sizeof(double) && IsAligned(column);
}

std::size_t SideBySide(std::span<const ColumnView> columns) {
  constexpr std::size_t kSize = sizeof(double);
  const ColumnView& first = columns[0];
  if (!IsAligned(first) || first.stride % static_cast<std::ptrdiff_t>(alignof(double)) != 0) {
    return 1;
  }
  std::size_t count = 0;
  while (count < columns.size() && columns[count].type == ValueType::Double &&
         columns[count].stride == first.stride && columns[count].stride != kSize &&
         Address(columns[count]) - Address(first) == count * kSize) {
    ++count;
  }
  return std::max<std::size_t>(count, 1);
}

const double* ValuesOfRow(const ColumnView& first, std::uint64_t row) {
  return static_cast<const double*>(static_cast<const void*>(RowAddress(first, row)));
}

void ReadColumns(std::span<const ColumnView> columns, RowRange rows, ordered::Columns to) {
  if (columns.size() == 1) {
    WithType(columns[0].type, [&](auto x) { ReadColumn<decltype(x)>(columns[0], rows, to.first); });
    return;
  }
  std::array<const double*, 64> addresses;  // NOLINT(*-member-init): as many are set as are read
  for (std::size_t from = 0; from < rows.count; from += addresses.size()) {
    const std::size_t count = std::min(addresses.size(), rows.count - from);
    for (std::size_t i = 0; i < count; ++i) {
      addresses[i] = ValuesOfRow(columns[0], rows.first + from + i);
    }
    ordered::Transpose(addresses.data(), count, {to.first + from, to.stride, to.count});
  }
}

bool HasMarks(const ColumnView& column) {
  return column.validity != nullptr || column.nanIsAbsent || !column.absentCodes.empty();
}

void MarkAbsent(const ColumnView& column, RowRange rows, const double* values,
                std::uint64_t* bits) {
  for (std::size_t from = 0; column.validity != nullptr && from < rows.count; from += 64) {
    const std::size_t count = std::min<std::size_t>(64, rows.count - from);
    const std::uint64_t all = ~std::uint64_t{0} >> (64 - count);
    bits[from / 64] |= ~ValidityWord(column, rows.first + from, count) & all;
  }
  if (column.nanIsAbsent && !IsOf64BitIntegers(column)) {
    ordered::MarkEqual(values, rows.count, std::numeric_limits<double>::quiet_NaN(), bits);
  }
  for (const double code : column.absentCodes) {
    if (!std::isnan(code)) {
      ordered::MarkEqual(values, rows.count, code, bits);
    }
  }
}

bool IsOf64BitIntegers(const ColumnView& column) {
  return column.type == ValueType::Int64 || column.type == ValueType::UInt64;
}

std::optional<std::int64_t> IntegerAt(const ColumnView& column, std::uint64_t row) {
  return WithType(column.type, [&](auto x) -> std::optional<std::int64_t> {
    using Type = decltype(x);
    const auto value = ValueAt<Type>(RowAddress(column, row));
    if constexpr (std::is_integral_v<Type>) {
      return std::in_range<std::int64_t>(value) ? std::optional(static_cast<std::int64_t>(value))
                                                : std::nullopt;
    } else if constexpr (std::is_enum_v<Type>) {
      return value == Type() ? 0 : 1;
    } else {
      return std::nullopt;
    }
  });
}

std::string Text(double value) {
  std::array<char, 32> text{};
  return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

std::string Text(const ColumnView& column, std::uint64_t row) {
  return WithType(column.type, [&](auto x) {
    using Type = decltype(x);
    const auto value = ValueAt<Type>(RowAddress(column, row));
    if constexpr (std::is_integral_v<Type>) {
      return std::to_string(value);
    } else {
      return Text(ToDouble(value));
    }
  });
}

}  // namespace velmor
