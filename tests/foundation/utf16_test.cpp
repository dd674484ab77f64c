// UTF-16 text of the databases: every string iTunes or a device wrote must load, including
// titles cut in the middle of a surrogate pair; only an odd byte count is no text at all.

#include "ZQCore/foundation/UTF16.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace {

using Units = std::vector<char16_t>;

std::vector<std::uint8_t> bytesOf(const Units& units, bool littleEndian)
{
    std::vector<std::uint8_t> bytes;
    for (char16_t unit : units) {
        const auto low = static_cast<std::uint8_t>(unit & 0xFF), high = static_cast<std::uint8_t>(unit >> 8);
        bytes.push_back(littleEndian ? low : high);
        bytes.push_back(littleEndian ? high : low);
    }
    return bytes;
}

struct DecodeCase {
    const char* what;
    Units units;
    std::string utf8;
};

// Test names show the case, not the bytes of the parameter object.
void PrintTo(const DecodeCase& c, std::ostream* os)
{
    *os << c.what;
}

class FoundationUTF16Decode : public ::testing::TestWithParam<DecodeCase> {};

TEST_P(FoundationUTF16Decode, BothByteOrders)
{
    const DecodeCase& c = GetParam();
    for (bool littleEndian : {true, false}) {
        const auto bytes = bytesOf(c.units, littleEndian);
        EXPECT_EQ(zq::decodeUTF16(bytes.data(), bytes.size(), littleEndian), c.utf8)
            << c.what << (littleEndian ? " LE" : " BE");
    }
}

const std::string kReplacement = "\xEF\xBF\xBD";

INSTANTIATE_TEST_SUITE_P(
    Foundation, FoundationUTF16Decode,
    ::testing::Values(
        DecodeCase{"empty", {}, ""},
        DecodeCase{"ascii", {u'i', u'P', u'o', u'd', 0x7F}, "iPod\x7F"},
        // The ASCII run ends at the first unit that is not ASCII, whichever byte makes it so.
        DecodeCase{"latin after ascii", {u'C', u'a', u'f', 0x00E9}, "Caf\xC3\xA9"},
        DecodeCase{"high byte after ascii", {u'a', 0x0161, u'b'}, "a\xC5\xA1" "b"},
        DecodeCase{"three-byte units", {0x4E2D, 0x6587, 0xFFFF}, "\xE4\xB8\xAD\xE6\x96\x87\xEF\xBF\xBF"},
        DecodeCase{"surrogate pair", {u'x', 0xD83D, 0xDE00}, "x\xF0\x9F\x98\x80"},
        DecodeCase{"highest pair", {0xDBFF, 0xDFFF}, "\xF4\x8F\xBF\xBF"},
        DecodeCase{"high surrogate at the end", {u'a', 0xD83D}, "a" + kReplacement},
        DecodeCase{"high surrogate before a letter", {0xD83D, u'A'}, kReplacement + "A"},
        DecodeCase{"lone low surrogate", {0xDE00, u'b'}, kReplacement + "b"},
        DecodeCase{"reversed pair", {0xDE00, 0xD83D}, kReplacement + kReplacement},
        DecodeCase{"nul and byte-order mark are kept", {0xFEFF, 0x0000, u'z'}, std::string("\xEF\xBB\xBF\0z", 5)}));

// The ASCII run is copied in blocks of eight and four units, the last few units of a text in one
// overlapping block, and the rest one by one: a unit just past ASCII (U+0080), or one whose
// high byte alone is set (U+0100), ends the run wherever it stands.
TEST(FoundationUTF16, FirstUnitPastASCIIEndsTheRunAtEveryPosition)
{
    for (const char16_t odd : {char16_t{0x0080}, char16_t{0x0100}}) {
        const std::string encoded = odd == 0x0080 ? "\xC2\x80" : "\xC4\x80";
        for (std::size_t length = 1; length <= 20; ++length)
            for (std::size_t at = 0; at < length; ++at) {
                Units units(length, u'a');
                units[at] = odd;
                std::string expected(length, 'a');
                expected.replace(at, 1, encoded);
                const auto bytes = bytesOf(units, true);
                EXPECT_EQ(zq::decodeUTF16(bytes.data(), bytes.size(), true), expected) << length << " " << at;
            }
    }
}

TEST(FoundationUTF16, OddByteCountIsNoText)
{
    const std::uint8_t bytes[] = {'a', 0, 'b'};
    EXPECT_EQ(zq::decodeUTF16(bytes, 3, true), std::nullopt);
    EXPECT_EQ(zq::decodeUTF16(bytes, 1, false), std::nullopt);
    std::string reused = "left over";
    EXPECT_FALSE(zq::decodeUTF16Into(reused, bytes, 3, true));
    EXPECT_EQ(reused, "");
    EXPECT_TRUE(zq::decodeUTF16Into(reused, bytes, 2, true));
    EXPECT_EQ(reused, "a");
    EXPECT_EQ(zq::decodeUTF16(nullptr, 0, true), "");
}

TEST(FoundationUTF16, LongTextOfWidestUnitsFitsItsBuffer)
{
    const Units units(5000, 0x4E2D);
    const auto bytes = bytesOf(units, true);
    std::string expected;
    for (int i = 0; i < 5000; ++i)
        expected += "\xE4\xB8\xAD";
    EXPECT_EQ(zq::decodeUTF16(bytes.data(), bytes.size(), true), expected);
}

} // namespace
