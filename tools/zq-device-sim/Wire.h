#pragma once

// Byte-level helpers shared by the simulator's three protocols (usbmuxd, lockdown, AFC): exact
// reads and writes on a stream socket, little- and big-endian integers, and a small owner for
// libplist nodes so that no reply leaks on an early return.

#include <plist/plist.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zq::sim {

/// Reads exactly `size` bytes; false at end of stream or on an error (the peer went away).
bool readExact(int fd, void* buffer, std::size_t size);
/// Writes all bytes, never raising SIGPIPE; false when the peer went away.
bool writeAll(int fd, const void* buffer, std::size_t size);

inline std::uint32_t loadLE32(const std::uint8_t* p)
{
    return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 | std::uint32_t(p[3]) << 24;
}
inline std::uint64_t loadLE64(const std::uint8_t* p)
{
    return std::uint64_t(loadLE32(p)) | std::uint64_t(loadLE32(p + 4)) << 32;
}
inline void storeLE32(std::uint8_t* p, std::uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        p[i] = std::uint8_t(v >> (8 * i));
}
inline void storeLE64(std::uint8_t* p, std::uint64_t v)
{
    for (int i = 0; i < 8; ++i)
        p[i] = std::uint8_t(v >> (8 * i));
}

struct PlistDeleter {
    void operator()(plist_t node) const { plist_free(node); }
};
/// Owns one libplist node (and with it the whole tree below it).
using Plist = std::unique_ptr<void, PlistDeleter>;

/// Parses XML or binary property-list bytes; null when they are neither.
Plist parsePlist(const std::uint8_t* bytes, std::size_t size);
/// The XML form of a node, as both usbmuxd and lockdown speak it.
std::string toXML(plist_t node);

/// The string under `key` of a dictionary, if there is one and it is a string.
std::optional<std::string> stringItem(plist_t dict, const char* key);
/// The unsigned integer under `key` of a dictionary, if there is one and it is an integer.
std::optional<std::uint64_t> uintItem(plist_t dict, const char* key);

/// Sets dict[key] to a new string, integer, boolean or data node.
void setString(plist_t dict, const char* key, const std::string& value);
void setUInt(plist_t dict, const char* key, std::uint64_t value);
void setBool(plist_t dict, const char* key, bool value);
void setData(plist_t dict, const char* key, const std::string& bytes);

} // namespace zq::sim
