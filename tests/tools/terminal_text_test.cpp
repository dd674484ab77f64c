// Texts a device names reach the terminal shown, never obeyed: a crafted title cannot move the
// cursor, change colours or retitle the window of whoever lists or copies its library.

#include "TerminalText.h"
#include "tests/support/TestLibrary.h"
#include "tests/tools/ToolProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace zq::test;
using ::testing::HasSubstr;
using ::testing::Not;
using namespace std::string_literals;

Outcome runTool(const std::vector<std::string>& args) { return zq::test::zqpod(args); }

struct TextCase {
    const char* name;
    std::string text;
    std::string shown;
};
void PrintTo(const TextCase& c, std::ostream* out) { *out << c.name; }

class TerminalSafe : public ::testing::TestWithParam<TextCase> {};

TEST_P(TerminalSafe, ShowsControlsInsteadOfObeyingThem)
{
    EXPECT_EQ(zqpod::terminalSafe(GetParam().text), GetParam().shown);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, TerminalSafe,
    ::testing::Values(TextCase{"Plain", "Harbour Song", "Harbour Song"},
                      TextCase{"LinesAndTabsKept", "a\tb\nc", "a\tb\nc"},
                      TextCase{"Colour", "\x1b[31mred\x1b[0m", "\\x1b[31mred\\x1b[0m"},
                      TextCase{"WindowTitle", "\x1b]0;pwned\x07", "\\x1b]0;pwned\\x07"},
                      TextCase{"CarriageReturnAndDelete", "over\rwrite\x7f", "over\\x0dwrite\\x7f"},
                      TextCase{"Nul", "a\0b"s, "a\\x00b"},
                      TextCase{"EightBitCSI", "\xc2\x9b" "2J", "\\u009b2J"},
                      TextCase{"LastC1AndFirstPrintable", "\xc2\x9f\xc2\xa0", "\\u009f\xc2\xa0"},
                      TextCase{"RawByteCSI", "\x9b" "2J", "\\x9b2J"},
                      TextCase{"Overlong", "\xc0\xaf", "\\xc0\\xaf"},
                      TextCase{"Surrogate", "\xed\xa0\x80", "\\xed\\xa0\\x80"},
                      TextCase{"CutSequence", "ab\xe3\x81", "ab\\xe3\\x81"},
                      TextCase{"Unicode", "Słońce 夜の街 🎵", "Słońce 夜の街 🎵"}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

TEST(TerminalSafe, ACraftedLibraryListsAndCopiesWithoutAnyControlReachingTheTerminal)
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 5, .fileSize = 10, .title = "\x1b[2J\x1b[31mEvil",
                           .location = ":iPod_Control:Music:F00:\x1b]0;pwned\x07.mp3", .album = "\xc2\x9b" "2JAlbum",
                           .artist = "Art\x1b[8mist"}};
    db.playlists = {PlaylistSpec{.name = "Dev\x1b[5mice", .master = 1, .items = {5}},
                    PlaylistSpec{.name = "\x1b]2;title\x07List", .items = {5}}};
    TempDir dir, out;
    writeVolume(dir.path(), VolumeSpec{.database = db});
    for (const auto& run : {runTool({"library", dir.path()}), runTool({"copy", dir.path(), out.path()})}) {
        for (const std::string& said : {run.out, run.err}) {
            EXPECT_EQ(said.find('\x1b'), std::string::npos) << said;
            EXPECT_EQ(said.find('\x07'), std::string::npos) << said;
            EXPECT_EQ(said.find("\xc2\x9b"), std::string::npos) << said;
        }
    }
    const auto listed = runTool({"library", dir.path()});
    EXPECT_THAT(listed.out, HasSubstr("Dev\\x1b[5mice"));
    EXPECT_THAT(listed.out, HasSubstr("\\x1b]2;title\\x07List"));
    const auto copied = runTool({"copy", dir.path(), out.path()});
    EXPECT_EQ(copied.status, 1);
    EXPECT_THAT(copied.out + copied.err, HasSubstr("\\x1b]0;pwned\\x07.mp3"));
}

} // namespace
