// A device library walks its database through a window onto the file rather than from a copy in
// memory. Whatever the window size, the walk must see exactly the bytes it would see in memory:
// these tests parse the same databases both ways and compare the libraries, with windows small
// enough that nearly every read moves the window (and steps back into bytes it has dropped).

#include "ZQCore/reader/TrackListBuilder.h"
#include "ZQCore/reader/XRDataReader.h"
#include "tests/support/TestLibrary.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

using namespace zq::test;

void writeFile(const std::string& path, const zq::Data& data)
{
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(data.bytes()), static_cast<std::streamsize>(data.size()));
}

/// Long track lists are made on a second thread; for as long as this lives, every list is.
struct TracksMadeOnAThread {
    std::size_t saved = zq::TrackListBuilder::minimumTracksForThread;
    TracksMadeOnAThread() { zq::TrackListBuilder::minimumTracksForThread = 1; }
    ~TracksMadeOnAThread() { zq::TrackListBuilder::minimumTracksForThread = saved; }
};

std::string parsedInMemory(const zq::Data& data)
{
    auto library = std::make_shared<DetachedLibrary>();
    library->parseiTunesDBWithData(data);
    return librarySummary(*library);
}

std::string parsedThroughWindow(const std::string& path, std::size_t window)
{
    auto library = std::make_shared<DetachedLibrary>();
    auto reader = zq::XRDataReader::dataReaderWithFile(path, true, window);
    EXPECT_NE(reader, nullptr);
    library->parseiTunesDBWithReader(*reader);
    return librarySummary(*library);
}

TEST(ReaderFileWindow, WalkSeesTheSameLibraryAsInMemoryForEveryWindowSize)
{
    TempDir dir;
    DatabaseSpec setup = makeLargeLibrary(300, 4, 11);
    // A string far longer than the small windows, so one read must grow the window.
    setup.tracks[5].comment = std::string(5000, 'x');
    const zq::Data data = buildITunesDB(setup);
    writeFile(dir.file("iTunesDB"), data);

    const std::string expected = parsedInMemory(data);
    ASSERT_GT(expected.size(), 300u * 20); // the walk found the tracks
    for (std::size_t window : {std::size_t{1}, std::size_t{7}, std::size_t{64}, std::size_t{4096},
                               zq::XRDataReader::kDefaultWindowSize})
        EXPECT_EQ(parsedThroughWindow(dir.file("iTunesDB"), window), expected) << "window " << window;
    // The same tracks, in the same order, when a second thread makes them, from records handed
    // over text by text, whole, or as the thread keeps up.
    TracksMadeOnAThread threaded;
    for (auto handover : {zq::TrackListBuilder::Handover::TextByText, zq::TrackListBuilder::Handover::WholeRecords,
                          zq::TrackListBuilder::Handover::Adaptive}) {
        zq::TrackListBuilder::handover = handover;
        EXPECT_EQ(parsedInMemory(data), expected);
        EXPECT_EQ(parsedThroughWindow(dir.file("iTunesDB"), 64), expected);
    }
}

TEST(ReaderFileWindow, FileThatShrinksUnderTheWalkFailsLikeATruncatedOne)
{
    TempDir dir;
    const zq::Data data = buildITunesDB(makeLargeLibrary(200, 2, 5));
    writeFile(dir.file("iTunesDB"), data);
    auto reader = zq::XRDataReader::dataReaderWithFile(dir.file("iTunesDB"), true, 256);
    ASSERT_NE(reader, nullptr);
    std::filesystem::resize_file(dir.file("iTunesDB"), data.size() / 3);

    expectThrown([&] { std::make_shared<DetachedLibrary>()->parseiTunesDBWithReader(*reader); });
    // A walk that fails while a second thread makes its tracks fails the same way.
    TracksMadeOnAThread threaded;
    auto again = zq::XRDataReader::dataReaderWithFile(dir.file("iTunesDB"), true, 256);
    ASSERT_NE(again, nullptr);
    expectThrown([&] { std::make_shared<DetachedLibrary>()->parseiTunesDBWithReader(*again); });
}

} // namespace
