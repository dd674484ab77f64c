#pragma once

#include "ZQCore/foundation/Data.h"
#include "ZQCore/foundation/Date.h"
#include "ZQCore/foundation/Export.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

namespace zq {

/// A property-list value: null, boolean, integer, real, string, data, date, array or
/// string-keyed dictionary. Integers keep 64 bits; an unsigned value above INT64_MAX keeps its
/// bits and reads back exactly through unsignedValue().
class ZQ_EXPORT Value {
public:
    using Array = std::vector<Value>;
    using Dictionary = std::map<std::string, Value>;
    enum class Type { Null, Boolean, Integer, Real, String, Data, Date, Array, Dictionary };

    Value() = default;
    Value(std::nullptr_t) {}
    Value(bool value) : storage_(value) {}
    template <typename T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>, int> = 0>
    Value(T value) : storage_(static_cast<std::int64_t>(value)) {}
    Value(double value) : storage_(value) {}
    Value(std::string value) : storage_(std::move(value)) {}
    Value(const char* value) : storage_(std::string(value)) {}
    Value(zq::Data value) : storage_(std::move(value)) {}
    Value(zq::Date value) : storage_(value) {}
    Value(Array value) : storage_(std::move(value)) {}
    Value(Dictionary value) : storage_(std::move(value)) {}

    Type type() const { return static_cast<Type>(storage_.index()); }
    bool isNull() const { return type() == Type::Null; }

    /// Numbers as a number object answers them: booleans are 0 or 1, reals are truncated,
    /// strings and everything else give 0 / false.
    bool boolValue() const;
    std::int64_t integerValue() const;
    std::uint64_t unsignedValue() const { return static_cast<std::uint64_t>(integerValue()); }
    double doubleValue() const;

    const std::string* string() const { return std::get_if<std::string>(&storage_); }
    const zq::Data* data() const { return std::get_if<zq::Data>(&storage_); }
    const zq::Date* date() const { return std::get_if<zq::Date>(&storage_); }
    const Array* array() const { return std::get_if<Array>(&storage_); }
    const Dictionary* dictionary() const { return std::get_if<Dictionary>(&storage_); }
    Array* array() { return std::get_if<Array>(&storage_); }
    Dictionary* dictionary() { return std::get_if<Dictionary>(&storage_); }

    /// The entry for a key of a dictionary value; null when this is no dictionary or the key is absent.
    const Value* find(const std::string& key) const;

    /// Parses an XML or binary property list (libplist 2.2 reads no OpenStep text). No value when the
    /// bytes are not a property list. Keys that stand as array elements (as some devices write
    /// them in their SysInfoExtended) are read as strings.
    static std::optional<Value> fromPropertyList(const zq::Data& bytes);

    friend bool operator==(const Value& a, const Value& b) = default;

private:
    std::variant<std::monostate, bool, std::int64_t, double, std::string, zq::Data, zq::Date, Array, Dictionary> storage_;
};

} // namespace zq
