#pragma once

// Property-list values: dictionaries, arrays, strings, numbers, booleans and data, as plug-in
// state and preference files hold them.

#include <cstdint>
#include <map>
#include <string>
#include <variant>
#include <vector>

namespace platform {

struct PropertyValue;
using PropertyArray = std::vector<PropertyValue>;
using PropertyDictionary = std::map<std::string, PropertyValue>;
using PropertyData = std::vector<std::uint8_t>;

struct PropertyValue {
  std::variant<bool, std::int64_t, double, std::string, PropertyData, PropertyArray,
               PropertyDictionary>
      value;

  PropertyValue() : value(false) {}
  template <typename T>
  PropertyValue(T v) : value(std::move(v)) {}  // NOLINT: implicit, like the values it holds
  PropertyValue(const char* v) : value(std::string(v)) {}
  PropertyValue(int v) : value(std::int64_t{v}) {}

  friend bool operator==(const PropertyValue& a, const PropertyValue& b) {
    return a.value == b.value;
  }

  template <typename T>
  const T* get() const {
    return std::get_if<T>(&value);
  }
};

}  // namespace platform
