// What a person sees while zqpod copies: the live bar on a terminal, plain lines elsewhere.

#include "CopyProgress.h"

#include <gtest/gtest.h>

#include <sstream>

namespace zq {
namespace {

using zqpod::CopyProgress;

TEST(CopyProgress, SizesAndDurationsReadLikeAFileManagers)
{
    const std::pair<std::uint64_t, const char*> sizes[] = {
        {0, "0 B"}, {999, "999 B"}, {1000, "1.0 KB"}, {362'000, "362 KB"}, {9'960, "10 KB"},
        {2'000'000'000, "2.0 GB"}, {999'960, "1.0 MB"}, {999'600, "1.0 MB"},
        {999'400, "999 KB"}};
    for (const auto& [bytes, text] : sizes)
        EXPECT_EQ(zqpod::formatBytes(bytes), text) << bytes;
    EXPECT_EQ(zqpod::formatDuration(std::chrono::seconds(7)), "0:07");
    EXPECT_EQ(zqpod::formatDuration(std::chrono::seconds(750)), "12:30");
    EXPECT_EQ(zqpod::formatDuration(std::chrono::seconds(3723)), "1:02:03");
}

TEST(CopyProgress, TheBarShowsFilesBytesSpeedAndTimeLeft)
{
    std::ostringstream out;
    CopyProgress progress(out, true, 100);
    const auto start = CopyProgress::Clock::now();
    progress.begin(4, 4'000'000, start);
    progress.startFile("Artist/Album/01 Song.wav");
    progress.advance(1'000'000);
    const std::string line = progress.barLine(start + std::chrono::seconds(1));
    EXPECT_TRUE(line.starts_with("[######...................] 1/4 files  1.0 MB of 4.0 MB  1.0 MB/s  0:03 left  "))
        << line;
    EXPECT_TRUE(line.ends_with("01 Song.wav")) << line;
    EXPECT_LE(line.size(), 99u);  // never wraps on the terminal

    // A long name keeps its end, where the title is.
    progress.startFile(std::string(200, 'x') + "/The Title.wav");
    const std::string narrow = progress.barLine(CopyProgress::Clock::now());
    EXPECT_LE(narrow.size(), 99u);
    EXPECT_TRUE(narrow.ends_with("/The Title.wav")) << narrow;
}

TEST(CopyProgress, RoutineLinesShowOnlyWithoutTheBar)
{
    std::ostringstream plain;
    CopyProgress lines(plain, false);
    lines.begin(1, 10);
    lines.startFile("a.wav");
    lines.note("copied   a.wav", true);
    lines.note("failed   b.wav: file missing", false);
    lines.finishFile(10);
    lines.end();
    EXPECT_EQ(plain.str(), "copied   a.wav\nfailed   b.wav: file missing\n");

    std::ostringstream terminal;
    CopyProgress bar(terminal, true, 80);
    bar.begin(1, 10);
    bar.startFile("a.wav");
    bar.note("copied   a.wav", true);
    bar.note("failed   b.wav: file missing", false);
    bar.finishFile(10);
    bar.end();
    const std::string shown = terminal.str();
    EXPECT_EQ(shown.find("copied"), std::string::npos);
    EXPECT_NE(shown.find("\r\033[Kfailed   b.wav: file missing\n"), std::string::npos) << shown;
    // The finished bar stays, on a line of its own.
    EXPECT_TRUE(shown.ends_with("]\n") || shown.find(" took ") != std::string::npos) << shown;
    EXPECT_NE(shown.find("[" + std::string(20, '#') + "] 1/1 files  10 B of 10 B"), std::string::npos) << shown;
    EXPECT_EQ(shown.back(), '\n');
}

} // namespace
} // namespace zq
