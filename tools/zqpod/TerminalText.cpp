#include "TerminalText.h"

#include <cstdio>

namespace zqpod {

namespace {

void appendEscaped(std::string& out, const char* format, unsigned value)
{
    char buffer[8];
    std::snprintf(buffer, sizeof buffer, format, value);
    out += buffer;
}

/// The length of the well-formed UTF-8 sequence at `at` (2 to 4 bytes), or 0.
std::size_t sequenceLength(std::string_view text, std::size_t at)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    std::size_t length = lead >= 0xC2 && lead <= 0xDF ? 2 : lead >= 0xE0 && lead <= 0xEF ? 3 : lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
    if (length == 0 || at + length > text.size())
        return 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((byte(at + i) & 0xC0) != 0x80)
            return 0;
    // No overlong forms, surrogates or values past U+10FFFF.
    const unsigned char second = byte(at + 1);
    if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) || (lead == 0xF0 && second < 0x90) ||
        (lead == 0xF4 && second > 0x8F))
        return 0;
    return length;
}

} // namespace

std::string terminalSafe(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const auto c = static_cast<unsigned char>(text[at]);
        if (c < 0x80) {
            if ((c < 0x20 && c != '\n' && c != '\t') || c == 0x7F)
                appendEscaped(out, "\\x%02x", c);
            else
                out += static_cast<char>(c);
            ++at;
            continue;
        }
        const std::size_t length = sequenceLength(text, at);
        if (length == 0) {
            appendEscaped(out, "\\x%02x", c);
            ++at;
            continue;
        }
        // U+0080-U+009F, the C1 controls (CSI among them), are two bytes: C2 80 to C2 9F.
        if (length == 2 && c == 0xC2 && static_cast<unsigned char>(text[at + 1]) <= 0x9F)
            appendEscaped(out, "\\u%04x", static_cast<unsigned char>(text[at + 1]));
        else
            out.append(text.substr(at, length));
        at += length;
    }
    return out;
}

} // namespace zqpod
