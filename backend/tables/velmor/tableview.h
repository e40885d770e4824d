#pragma once

// Cases that lie in the host's memory, column by column, as DataBatch::AddColumns,
// DataBatchByGroup::AddColumns and Accumulate take them. Views only describe. The host owns the
// memory, which has to stay as it is for as long as a view of it is in use. Rows and columns are
// numbered from 0.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <type_traits>
#include <vector>

namespace velmor {

// How a value lies in memory: in the processor's own byte order, at any address. A Bool is one
// byte: 0. when the byte is 0, else 1.
enum class ValueType : unsigned char {
  Double,
  Float,
  Int8,
  Int16,
  Int32,
  Int64,
  UInt8,
  UInt16,
  UInt32,
  UInt64,
  Bool
};

// The ValueType of a C++ type.
template <class T>
constexpr ValueType ValueTypeOf() {
  static_assert(std::is_arithmetic_v<T> && sizeof(T) <= 8, "a column can't have this type");
  if constexpr (std::is_same_v<T, bool>) {
    return ValueType::Bool;
  } else if constexpr (std::is_floating_point_v<T>) {
    return sizeof(T) == sizeof(double) ? ValueType::Double : ValueType::Float;
  } else {
    constexpr bool kIsSigned = std::is_signed_v<T>;
    switch (sizeof(T)) {
      case 1:
        return kIsSigned ? ValueType::Int8 : ValueType::UInt8;
      case 2:
        return kIsSigned ? ValueType::Int16 : ValueType::UInt16;
      case 4:
        return kIsSigned ? ValueType::Int32 : ValueType::UInt32;
      default:
        return kIsSigned ? ValueType::Int64 : ValueType::UInt64;
    }
  }
}

// A column. A value is absent when any mark of the column's says so. Without marks all values are
// present, NaN included.
struct ColumnView {
  ColumnView() = default;
  // A column of T whose row 0 is at `first` and whose rows are `byteStride` bytes apart.
  template <class T>
  explicit ColumnView(const T* first,
                      std::ptrdiff_t byteStride = static_cast<std::ptrdiff_t>(sizeof(T)))
      : data(first), stride(byteStride), type(ValueTypeOf<T>()) {}

  const void* data = nullptr;  // row 0
  std::ptrdiff_t stride = 0;   // bytes from a row to the next; any sign, 0 repeats one value
  ValueType type = ValueType::Double;

  // A bit for each row, 1 where the value is present, as in the Arrow columnar format. Row r has
  // bit i % 8, counted from the least significant, of byte i / 8, with i = validityOffset + r. Null
  // when no bit marks anything.
  const std::uint8_t* validity = nullptr;
  std::uint64_t validityOffset = 0;

  bool nanIsAbsent = false;  // of doubles and floats
  // Values that are equal to one of these are absent; at most kMostAbsentCodes codes. No value is
  // equal to NaN. A 64-bit integer that no double equals is equal to no code. A Float is compared
  // as the double that it is, so -99.9f is not -99.9.
  std::vector<double> absentCodes;

  static constexpr std::size_t kMostAbsentCodes = 8;
};

// Cases: the values of row r of every column belong to case r.
struct TableView {
  std::uint64_t rows = 0;
  std::vector<ColumnView> values;
  std::optional<ColumnView> weights;     // case weights
  std::optional<ColumnView> regWeights;  // regression weights
  std::optional<ColumnView> groups;      // whole numbers, from 0 to 2^32 - 1
};

}  // namespace velmor
