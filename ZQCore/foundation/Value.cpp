#include "ZQCore/foundation/Value.h"

#include <plist/plist.h>

#include <cmath>
#include <cstdlib>
#include <memory>

namespace zq {

bool Value::boolValue() const { return integerValue() != 0 || (type() == Type::Real && doubleValue() != 0); }

std::int64_t Value::integerValue() const
{
    switch (type()) {
    case Type::Boolean: return std::get<bool>(storage_) ? 1 : 0;
    case Type::Integer: return std::get<std::int64_t>(storage_);
    case Type::Real: {
        double real = std::get<double>(storage_);
        if (!std::isfinite(real) || real >= 9.2e18 || real <= -9.2e18)
            return 0;
        return static_cast<std::int64_t>(real);
    }
    default: return 0;
    }
}

double Value::doubleValue() const
{
    switch (type()) {
    case Type::Boolean: return std::get<bool>(storage_) ? 1 : 0;
    case Type::Integer: return static_cast<double>(std::get<std::int64_t>(storage_));
    case Type::Real: return std::get<double>(storage_);
    default: return 0;
    }
}

const Value* Value::find(const std::string& key) const
{
    const Dictionary* entries = dictionary();
    if (!entries)
        return nullptr;
    auto found = entries->find(key);
    return found == entries->end() ? nullptr : &found->second;
}

namespace {

struct PlistFree {
    void operator()(plist_t node) const { plist_free(node); }
};

// Property lists nest only as deep as their writer made them; a hostile file could nest
// far deeper, so conversion stops at a depth no real list approaches.
constexpr int kMaxDepth = 512;

Value convert(plist_t node, int depth)
{
    if (depth > kMaxDepth)
        return Value();
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        std::uint8_t flag = 0;
        plist_get_bool_val(node, &flag);
        return Value(flag != 0);
    }
    case PLIST_UINT: {
        std::uint64_t number = 0;
        plist_get_uint_val(node, &number);
        return Value(static_cast<std::int64_t>(number));
    }
    case PLIST_REAL: {
        double number = 0;
        plist_get_real_val(node, &number);
        return Value(number);
    }
    case PLIST_STRING:
    case PLIST_KEY: {
        char* text = nullptr;
        if (plist_get_node_type(node) == PLIST_KEY)
            plist_get_key_val(node, &text);
        else
            plist_get_string_val(node, &text);
        std::string result = text ? text : "";
        std::free(text);
        return Value(std::move(result));
    }
    case PLIST_DATA: {
        char* bytes = nullptr;
        std::uint64_t length = 0;
        plist_get_data_val(node, &bytes, &length);
        Value result{zq::Data(bytes, static_cast<std::size_t>(length))};
        std::free(bytes);
        return result;
    }
    case PLIST_DATE: {
        std::int32_t seconds = 0, microseconds = 0;
        plist_get_date_val(node, &seconds, &microseconds);
        return Value(zq::Date(seconds + microseconds / 1e6));
    }
    case PLIST_ARRAY: {
        Value::Array items;
        std::uint32_t count = plist_array_get_size(node);
        items.reserve(count);
        for (std::uint32_t i = 0; i < count; ++i)
            items.push_back(convert(plist_array_get_item(node, i), depth + 1));
        return Value(std::move(items));
    }
    case PLIST_DICT: {
        Value::Dictionary entries;
        plist_dict_iter iterator = nullptr;
        plist_dict_new_iter(node, &iterator);
        for (;;) {
            char* key = nullptr;
            plist_t item = nullptr;
            plist_dict_next_item(node, iterator, &key, &item);
            if (!item) {
                std::free(key);
                break;
            }
            entries.insert_or_assign(key ? key : "", convert(item, depth + 1));
            std::free(key);
        }
        std::free(iterator);
        return Value(std::move(entries));
    }
    default: return Value();
    }
}

} // namespace

std::optional<Value> Value::fromPropertyList(const zq::Data& bytes)
{
    if (bytes.empty() || bytes.size() > UINT32_MAX)
        return std::nullopt;
    plist_t root = nullptr;
    plist_from_memory(reinterpret_cast<const char*>(bytes.bytes()), static_cast<std::uint32_t>(bytes.size()), &root);
    if (!root)
        return std::nullopt;
    std::unique_ptr<void, PlistFree> owner(root);
    return convert(root, 0);
}

} // namespace zq
