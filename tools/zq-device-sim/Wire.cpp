#include "tools/zq-device-sim/Wire.h"

#include <sys/socket.h>
#include <sys/types.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace zq::sim {

bool readExact(int fd, void* buffer, std::size_t size)
{
    auto* p = static_cast<std::uint8_t*>(buffer);
    while (size > 0) {
        ssize_t got = ::recv(fd, p, size, 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        p += got;
        size -= std::size_t(got);
    }
    return true;
}

bool writeAll(int fd, const void* buffer, std::size_t size)
{
    const auto* p = static_cast<const std::uint8_t*>(buffer);
    while (size > 0) {
        ssize_t sent = ::send(fd, p, size, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent <= 0)
            return false;
        p += sent;
        size -= std::size_t(sent);
    }
    return true;
}

Plist parsePlist(const std::uint8_t* bytes, std::size_t size)
{
    if (!bytes || size == 0 || size > UINT32_MAX)
        return nullptr;
    plist_t node = nullptr;
    const auto* text = reinterpret_cast<const char*>(bytes);
    if (plist_is_binary(text, std::uint32_t(size)))
        plist_from_bin(text, std::uint32_t(size), &node);
    else
        plist_from_xml(text, std::uint32_t(size), &node);
    return Plist(node);
}

std::string toXML(plist_t node)
{
    char* xml = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(node, &xml, &length);
    std::string result(xml ? xml : "", xml ? length : 0);
    std::free(xml);
    return result;
}

std::optional<std::string> stringItem(plist_t dict, const char* key)
{
    if (!dict || plist_get_node_type(dict) != PLIST_DICT)
        return std::nullopt;
    plist_t item = plist_dict_get_item(dict, key);
    if (!item || plist_get_node_type(item) != PLIST_STRING)
        return std::nullopt;
    char* value = nullptr;
    plist_get_string_val(item, &value);
    std::string result(value ? value : "");
    std::free(value);
    return result;
}

std::optional<std::uint64_t> uintItem(plist_t dict, const char* key)
{
    if (!dict || plist_get_node_type(dict) != PLIST_DICT)
        return std::nullopt;
    plist_t item = plist_dict_get_item(dict, key);
    if (!item || plist_get_node_type(item) != PLIST_UINT)
        return std::nullopt;
    std::uint64_t value = 0;
    plist_get_uint_val(item, &value);
    return value;
}

void setString(plist_t dict, const char* key, const std::string& value)
{
    plist_dict_set_item(dict, key, plist_new_string(value.c_str()));
}

void setUInt(plist_t dict, const char* key, std::uint64_t value)
{
    plist_dict_set_item(dict, key, plist_new_uint(value));
}

void setBool(plist_t dict, const char* key, bool value)
{
    plist_dict_set_item(dict, key, plist_new_bool(value ? 1 : 0));
}

void setData(plist_t dict, const char* key, const std::string& bytes)
{
    plist_dict_set_item(dict, key, plist_new_data(bytes.data(), bytes.size()));
}

} // namespace zq::sim
