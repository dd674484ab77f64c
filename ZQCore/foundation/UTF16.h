#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zq {

/// Decodes UTF-16 text (no terminator, no byte-order mark required) to UTF-8.
///
/// The rules are chosen so that every database iTunes or a device wrote loads whole:
/// - an odd byte count is not UTF-16 text at all: the result is no string;
/// - a surrogate without its partner (iTunes cuts long titles in the middle of a pair) becomes
///   U+FFFD, and decoding goes on;
/// - U+0000 units at the end are dropped: phones pad some strings with them inside the stated
///   length, and they are no part of the text;
/// - everything else, U+0000 inside the text and a leading U+FEFF included, is kept as it stands.
std::optional<std::string> decodeUTF16(const std::uint8_t* bytes, std::size_t length, bool littleEndian);

/// The same, appending to `out` (cleared first) so that a caller decoding many strings can
/// reuse one buffer. Returns false (and leaves `out` empty) for an odd byte count.
bool decodeUTF16Into(std::string& out, const std::uint8_t* bytes, std::size_t length, bool littleEndian);

/// The same for an even `length`, written at `out`, which has room for 3 * length / 2 bytes
/// (the most UTF-8 that many units can need); returns the bytes written.
std::size_t decodeUTF16To(char* out, const std::uint8_t* bytes, std::size_t length, bool littleEndian);
/// `length` (bytes of UTF-16 text) less the U+0000 units the text ends with; an odd length (no
/// UTF-16 text) is returned as it is.
inline std::size_t lengthWithoutTrailingNULs(const std::uint8_t* bytes, std::size_t length)
{
    if (length % 2 != 0)
        return length;
    while (length >= 2 && bytes[length - 1] == 0 && bytes[length - 2] == 0)
        length -= 2;
    return length;
}

/// The ASCII characters that `units` UTF-16LE units start with, written at `out` one byte
/// each; returns how many there were (decoding stops at the first unit that is not ASCII).
/// With `ColonsAsSlashes`, ':' is written as '/' (a device's file location made a path).
///
/// Inline, as a large library's walk calls it for each of a million texts, most a few dozen
/// characters long.
template <bool ColonsAsSlashes = false>
inline std::size_t decodeASCIIPrefixUTF16LE(char* out, const std::uint8_t* bytes, std::size_t units)
{
    auto put = [](char c) { return ColonsAsSlashes && c == ':' ? '/' : c; };
    std::size_t i = 0;
    if constexpr (std::endian::native == std::endian::little) {
#if defined(__SSE2__)
        const __m128i high = _mm_set1_epi16(static_cast<short>(0xFF80));
        // Eight units at `at`, when all are ASCII.
        auto eight = [&](std::size_t at) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + 2 * at));
            if (_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(v, high), _mm_setzero_si128())) != 0xFFFF)
                return false;
            __m128i packed = _mm_packus_epi16(v, v);
            if constexpr (ColonsAsSlashes) {
                const __m128i colons = _mm_cmpeq_epi8(packed, _mm_set1_epi8(':'));
                packed = _mm_or_si128(_mm_andnot_si128(colons, packed), _mm_and_si128(colons, _mm_set1_epi8('/')));
            }
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out + at), packed);
            return true;
        };
        while (i + 8 <= units && eight(i))
            i += 8;
        // The last few units of a text of eight or more: the eight that end it, overlapping
        // what is already written (with the same characters).
        if (i < units && i + 8 > units && units >= 8 && eight(units - 8))
            return units;
#endif
        while (i + 4 <= units) {
            std::uint64_t word;
            std::memcpy(&word, bytes + 2 * i, sizeof word);
            if (word & 0xFF80FF80FF80FF80ull)
                break;
            out[i] = put(static_cast<char>(word));
            out[i + 1] = put(static_cast<char>(word >> 16));
            out[i + 2] = put(static_cast<char>(word >> 32));
            out[i + 3] = put(static_cast<char>(word >> 48));
            i += 4;
        }
    }
    while (i < units && bytes[2 * i + 1] == 0 && bytes[2 * i] < 0x80) {
        out[i] = put(static_cast<char>(bytes[2 * i]));
        ++i;
    }
    return i;
}
/// Encodes UTF-8 as UTF-16 (invalid UTF-8 sequences become U+FFFD). For writers of test images.
std::string encodeUTF16(const std::string& utf8, bool littleEndian);

} // namespace zq
