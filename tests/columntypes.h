#pragma once

// The C++ types of a table's values, by their ValueType.

#include <velmor/tableview.h>

#include <cstdint>
#include <tuple>
#include <utility>

namespace velmor::test {

// In the order of ValueType.
using ColumnTypes = std::tuple<double, float, std::int8_t, std::int16_t, std::int32_t, std::int64_t,
                               std::uint8_t, std::uint16_t, std::uint32_t, std::uint64_t, bool>;
constexpr std::size_t kColumnTypes = std::tuple_size_v<ColumnTypes>;

// Calls visit(T()), T being the type's C++ type.
template <class Visit>
void WithType(ValueType type, Visit visit) {
  [&]<std::size_t... kPlace>(std::index_sequence<kPlace...>) {
    ((kPlace == static_cast<std::size_t>(type) ? visit(std::tuple_element_t<kPlace, ColumnTypes>())
                                               : void()),
     ...);
  }
  (std::make_index_sequence<kColumnTypes>());
}

}  // namespace velmor::test
