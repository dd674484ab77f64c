#include "ZQCore/foundation/UTF16.h"

#include <cstring>

namespace zq {

namespace {

// Writes `c` as UTF-8 at `out` and returns the position after it.
char* putUTF8(char* out, char32_t c)
{
    if (c < 0x80) {
        *out++ = static_cast<char>(c);
    } else if (c < 0x800) {
        *out++ = static_cast<char>(0xC0 | (c >> 6));
        *out++ = static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        *out++ = static_cast<char>(0xE0 | (c >> 12));
        *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (c & 0x3F));
    } else {
        *out++ = static_cast<char>(0xF0 | (c >> 18));
        *out++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (c & 0x3F));
    }
    return out;
}

constexpr char32_t kReplacement = 0xFFFD;

} // namespace

std::size_t decodeUTF16To(char* out, const std::uint8_t* bytes, std::size_t length, bool littleEndian)
{
    const std::size_t units = lengthWithoutTrailingNULs(bytes, length) / 2;
    const int lo = littleEndian ? 0 : 1;
    const int hi = 1 - lo;
    // Most library text is ASCII: it is copied without the general decoder.
    std::size_t i = littleEndian ? decodeASCIIPrefixUTF16LE(out, bytes, units) : 0;
    char* p = out + i;
    for (; i < units; ++i) {
        char32_t unit = static_cast<char32_t>(bytes[2 * i + lo] | (bytes[2 * i + hi] << 8));
        if (unit < 0x80) {
            *p++ = static_cast<char>(unit);
        } else if (unit >= 0xD800 && unit <= 0xDBFF) {
            if (i + 1 < units) {
                char32_t next = static_cast<char32_t>(bytes[2 * i + 2 + lo] | (bytes[2 * i + 2 + hi] << 8));
                if (next >= 0xDC00 && next <= 0xDFFF) {
                    p = putUTF8(p, 0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00));
                    ++i;
                    continue;
                }
            }
            p = putUTF8(p, kReplacement);
        } else if (unit >= 0xDC00 && unit <= 0xDFFF) {
            p = putUTF8(p, kReplacement);
        } else {
            p = putUTF8(p, unit);
        }
    }
    return static_cast<std::size_t>(p - out);
}

bool decodeUTF16Into(std::string& out, const std::uint8_t* bytes, std::size_t length, bool littleEndian)
{
    out.clear();
    if (length % 2 != 0)
        return false;
    // No unit needs more than three bytes of UTF-8 (a surrogate pair is two units for four
    // bytes), so the text is written straight into a buffer of that size and cut to length;
    // growing the string a byte at a time costs more than the decoding itself.
    out.resize(length / 2 * 3);
    out.resize(decodeUTF16To(out.data(), bytes, length, littleEndian));
    return true;
}

std::optional<std::string> decodeUTF16(const std::uint8_t* bytes, std::size_t length, bool littleEndian)
{
    std::string out;
    if (!decodeUTF16Into(out, bytes, length, littleEndian))
        return std::nullopt;
    return out;
}

std::string encodeUTF16(const std::string& utf8, bool littleEndian)
{
    std::string out;
    auto put = [&](char32_t unit) {
        char a = static_cast<char>(unit & 0xFF), b = static_cast<char>(unit >> 8);
        out.push_back(littleEndian ? a : b);
        out.push_back(littleEndian ? b : a);
    };
    const auto* s = reinterpret_cast<const unsigned char*>(utf8.data());
    std::size_t n = utf8.size(), i = 0;
    while (i < n) {
        char32_t c = s[i];
        int extra = c < 0x80 ? 0 : (c >> 5) == 0x6 ? 1 : (c >> 4) == 0xE ? 2 : (c >> 3) == 0x1E ? 3 : -1;
        if (extra < 0 || i + static_cast<std::size_t>(extra) >= n) {
            put(kReplacement);
            ++i;
            continue;
        }
        if (extra > 0) {
            c &= (0x3F >> extra);
            bool valid = true;
            for (int k = 1; k <= extra; ++k) {
                if ((s[i + k] & 0xC0) != 0x80) {
                    valid = false;
                    break;
                }
                c = (c << 6) | (s[i + k] & 0x3F);
            }
            if (!valid) {
                put(kReplacement);
                ++i;
                continue;
            }
        }
        i += static_cast<std::size_t>(extra) + 1;
        if (c >= 0x10000) {
            c -= 0x10000;
            put(0xD800 + (c >> 10));
            put(0xDC00 + (c & 0x3FF));
        } else {
            put(c);
        }
    }
    return out;
}

} // namespace zq
