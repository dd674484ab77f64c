#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace zq {

/// Decodes UTF-16 text (no terminator, no byte-order mark required) to UTF-8.
///
/// The rules are chosen so that every database iTunes or a device wrote loads whole:
/// - an odd byte count is not UTF-16 text at all: the result is no string;
/// - a surrogate without its partner (iTunes cuts long titles in the middle of a pair) becomes
///   U+FFFD, and decoding goes on;
/// - everything else, U+0000 and a leading U+FEFF included, is kept as it stands.
std::optional<std::string> decodeUTF16(const std::uint8_t* bytes, std::size_t length, bool littleEndian);

/// The same, appending to `out` (cleared first) so that a caller decoding many strings can
/// reuse one buffer. Returns false (and leaves `out` empty) for an odd byte count.
bool decodeUTF16Into(std::string& out, const std::uint8_t* bytes, std::size_t length, bool littleEndian);

/// The same for an even `length`, written at `out`, which has room for 3 * length / 2 bytes
/// (the most UTF-8 that many units can need); returns the bytes written.
std::size_t decodeUTF16To(char* out, const std::uint8_t* bytes, std::size_t length, bool littleEndian);
/// The ASCII characters that `units` UTF-16LE units start with, written at `out` one byte
/// each; returns how many there were (decoding stops at the first unit that is not ASCII).
std::size_t decodeASCIIPrefixUTF16LE(char* out, const std::uint8_t* bytes, std::size_t units);
/// Encodes UTF-8 as UTF-16 (invalid UTF-8 sequences become U+FFFD). For writers of test images.
std::string encodeUTF16(const std::string& utf8, bool littleEndian);

} // namespace zq
