// The artwork database walk: what it takes from each record, where it looks for thumbnail
// files, what it skips, and how a damaged file ends (the load goes on, earlier lists keep
// their links).

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/Log.h"
#include "tests/support/DeviceImage.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace zq {
namespace {

using test::ArtworkDBSpec;
using test::ArtworkImageSpec;
using test::DatabaseSpec;
using test::TempDir;
using test::ThumbnailSpec;
using test::TrackSpec;
using test::VolumeSpec;

/// Collects log lines while alive.
class LogCapture {
public:
    LogCapture() : previous_(setLogHandler([this](const std::string& line) { lines.push_back(line); })) {}
    ~LogCapture() { setLogHandler(previous_); }
    std::vector<std::string> lines;

private:
    LogHandler previous_;
};

std::shared_ptr<ZQCoreiPod> load(const std::string& root, const VolumeSpec& spec)
{
    test::writeVolume(root, spec);
    return ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(root));
}

/// One track per image, linked by artwork link 100, 101, ... (their dbids match no image).
DatabaseSpec tracksFor(std::size_t count)
{
    DatabaseSpec db;
    for (std::uint32_t i = 0; i < count; ++i)
        db.tracks.push_back({.trackID = i + 1, .dbid = 0xD000 + i, .artworkLink = 100 + i,
                             .title = "T" + std::to_string(i + 1)});
    return db;
}

std::shared_ptr<AlbumArt> artOfFirstTrack(const std::string& root, const ArtworkDBSpec& artwork)
{
    auto library = load(root, VolumeSpec{.database = tracksFor(1), .artwork = artwork});
    const auto& track = library->allTracks().at(0);
    return track->hasAlbumArt() ? track->albumArt() : nullptr;
}

TEST(ArtworkDatabase, RepresentationsCarryTheirRecordsFields)
{
    TempDir dir;
    ArtworkImageSpec item{.imageID = 100, .songID = 0x1122334455667788ULL};
    item.thumbnails.push_back({.formatID = 1028, .width = 100, .height = 98, .horizontalPadding = 0,
                               .verticalPadding = 2});
    item.thumbnails.push_back({.formatID = 1029, .width = 199, .height = 200, .horizontalPadding = 1,
                               .verticalPadding = -3, .fileOffset = 0x12340, .writePixels = false});
    auto art = artOfFirstTrack(dir.path(), ArtworkDBSpec{.images = {item}});
    ASSERT_TRUE(art);
    EXPECT_EQ(art->artworkID(), 100u);
    EXPECT_EQ(art->trackID(), 0x1122334455667788ULL);
    ASSERT_EQ(art->artReps().size(), 2u);

    const auto& small = *art->artReps()[0];
    EXPECT_EQ(small.width(), 100);
    EXPECT_EQ(small.height(), 98);
    EXPECT_EQ(small.verticalPadding(), 2);
    EXPECT_EQ(small.horizontalPadding(), 0);
    EXPECT_EQ(small.fileOffset(), 0u);
    EXPECT_EQ(small.dataLength(), 100u * 100 * 2);
    EXPECT_EQ(small.path(), dir.path() + "/iPod_Control/Artwork/F1028_1.ithmb");

    const auto& large = *art->artReps()[1];
    EXPECT_EQ(large.width(), 199);
    EXPECT_EQ(large.height(), 200);
    EXPECT_EQ(large.horizontalPadding(), 1);
    EXPECT_EQ(large.verticalPadding(), -3);
    EXPECT_EQ(large.fileOffset(), 0x12340u);
    EXPECT_EQ(large.path(), dir.path() + "/iPod_Control/Artwork/F1029_1.ithmb");
    EXPECT_EQ(art->preferredRep(), art->artReps()[1]);
}

TEST(ArtworkDatabase, PreferredRepresentationIsTheFirstOfTheWidest)
{
    struct Case {
        std::vector<std::uint16_t> widths;
        int preferred; // index, or -1 for none
    };
    const Case cases[] = {
        {{56, 140, 140}, 1},
        {{140, 56, 140}, 0},
        {{0, 0}, -1},  // width 0 is never chosen
        {{0, 1}, 1},
        {{}, -1},
    };
    for (const auto& c : cases) {
        AlbumArt::Reps reps;
        for (std::uint16_t width : c.widths) {
            std::array<std::uint8_t, 44> header{};
            header[34] = static_cast<std::uint8_t>(width);
            header[35] = static_cast<std::uint8_t>(width >> 8);
            reps.push_back(AlbumArtRep::initWithMHNIHeader(header, std::nullopt, nullptr));
        }
        auto art = AlbumArt::initWithReps(reps, 1, 2);
        if (c.preferred < 0) {
            EXPECT_EQ(art->preferredRep(), nullptr) << ::testing::PrintToString(c.widths);
            EXPECT_EQ(art->image(), nullptr) << "no representation, no picture";
        } else {
            EXPECT_EQ(art->preferredRep(), reps[static_cast<std::size_t>(c.preferred)])
                << ::testing::PrintToString(c.widths);
        }
    }
}

TEST(ArtworkDatabase, FileNamesLoseOneLeadingColonAndStayOneComponent)
{
    struct Case {
        const char* stored;
        std::optional<std::string> file; // in the Artwork folder; no value: no path at all
    };
    const Case cases[] = {
        {":F1028_1.ithmb", "F1028_1.ithmb"},
        {"F1028_1.ithmb", "F1028_1.ithmb"},
        {"::F1028_1.ithmb", ":F1028_1.ithmb"},
        {":Thumbs:F1028_1.ithmb", "Thumbs:F1028_1.ithmb"},  // later colons stay in the name
        {":", std::nullopt},
        {"", std::nullopt},
        {":../../iTunes/iTunesDB", std::nullopt},
        {":..", std::nullopt},
    };
    for (const auto& c : cases) {
        TempDir dir;
        ArtworkImageSpec item{.imageID = 100};
        item.thumbnails.push_back({.width = 2, .height = 2, .fileName = c.stored});
        auto art = artOfFirstTrack(dir.path(), ArtworkDBSpec{.images = {item}});
        ASSERT_TRUE(art) << c.stored;
        ASSERT_EQ(art->artReps().size(), 1u);
        const auto& path = art->artReps()[0]->path();
        if (c.file)
            EXPECT_EQ(path, dir.path() + "/iPod_Control/Artwork/" + *c.file) << c.stored;
        else
            EXPECT_EQ(path, std::nullopt) << c.stored;
        // Where there is a path, the pixels written there are found through it.
        EXPECT_EQ(art->image() != nullptr, c.file.has_value()) << c.stored;
    }
}

TEST(ArtworkDatabase, UnreadableNamesLeaveTheRepresentationWithoutAPath)
{
    struct Case {
        const char* what;
        ThumbnailSpec thumbnail;
    };
    const Case cases[] = {
        {"odd byte count", {.rawName = std::vector<std::uint8_t>{'F', 0, '1'}}},
        {"length beyond the file", {.rawName = std::vector<std::uint8_t>{'F', 0}, .nameLengthField = 0x7FFFFFF0}},
    };
    for (const auto& c : cases) {
        TempDir dir;
        ArtworkImageSpec item{.imageID = 100, .thumbnails = {c.thumbnail}};
        auto art = artOfFirstTrack(dir.path(), ArtworkDBSpec{.images = {item}});
        ASSERT_TRUE(art) << c.what;
        ASSERT_EQ(art->artReps().size(), 1u) << c.what;
        EXPECT_EQ(art->artReps()[0]->path(), std::nullopt) << c.what;
        EXPECT_EQ(art->image(), nullptr) << c.what;
    }
}

TEST(ArtworkDatabase, OtherChildrenAndDataSetsAreSkipped)
{
    TempDir dir;
    ArtworkImageSpec item{.imageID = 100};
    item.extraChildren.push_back({.type = 6, .body = std::vector<std::uint8_t>(40, 0x55)});
    item.thumbnails.push_back({.width = 4, .height = 4});
    item.extraChildren.push_back({.type = 1, .body = std::vector<std::uint8_t>(8, 0)});
    ArtworkImageSpec bare{.imageID = 101}; // no stored size at all

    auto library = load(dir.path(), VolumeSpec{.database = tracksFor(2),
                                               .artwork = ArtworkDBSpec{.images = {item, bare},
                                                                        .dataSets = {9, 2, 1, 3, 4}}});
    const auto& tracks = library->allTracks();
    ASSERT_TRUE(tracks[0]->hasAlbumArt());
    EXPECT_EQ(tracks[0]->albumArt()->artReps().size(), 1u);
    ASSERT_TRUE(tracks[0]->albumArt()->image());
    EXPECT_EQ(tracks[0]->albumArt()->image()->width(), 4u);

    ASSERT_TRUE(tracks[1]->hasAlbumArt()) << "an item without stored sizes is still artwork";
    EXPECT_TRUE(tracks[1]->albumArt()->artReps().empty());
    EXPECT_EQ(tracks[1]->albumArt()->image(), nullptr);
}

TEST(ArtworkDatabase, TruncatedDatabaseKeepsTheLinksOfFinishedListsAndTheLoadGoesOn)
{
    TempDir dir;
    ArtworkDBSpec spec{.dataSets = {test::ArtworkDataSet::withImages({ArtworkImageSpec{.imageID = 100}}),
                                    test::ArtworkDataSet::withImages({ArtworkImageSpec{.imageID = 101},
                                                                      ArtworkImageSpec{.imageID = 102}})}};
    const Data whole = test::buildArtwork(spec).artworkDB;
    // Cut inside the header of the second list's last item (an item without stored sizes is
    // just its 0x98-byte header): its first item was read, but the list is not finished, so
    // none of it is linked.
    const Data cut = whole.subdata(0, whole.size() - 0x98 + 30);

    LogCapture log;
    auto library = load(dir.path(), VolumeSpec{.database = tracksFor(3), .rawArtworkDB = cut});
    const auto& tracks = library->allTracks();
    ASSERT_EQ(tracks.size(), 3u) << "the library loads whole";
    EXPECT_TRUE(library->isConnected());
    ASSERT_TRUE(tracks[0]->hasAlbumArt());
    EXPECT_EQ(tracks[0]->albumArt()->artworkID(), 100u);
    EXPECT_FALSE(tracks[1]->hasAlbumArt());
    EXPECT_FALSE(tracks[2]->hasAlbumArt());
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_EQ(log.lines[0], "Could not load device artwork database with the error: Length requested is "
                            "greater than the remaining data. - skipping.");

    // The walk on its own raises the reader's exception.
    try {
        library->parseArtworkDBWithData(cut, tracks, dir.path());
        ADD_FAILURE() << "no exception";
    } catch (const Exception& error) {
        EXPECT_EQ(error.name(), "XRDataReaderInvalidRead");
    }
}

TEST(ArtworkDatabase, MissingOrEmptyDatabaseIsNoArtworkAndNoMessage)
{
    for (const bool empty : {false, true}) {
        TempDir dir;
        LogCapture log;
        VolumeSpec volume{.database = tracksFor(1)};
        if (empty)
            volume.rawArtworkDB = Data();
        auto library = load(dir.path(), volume);
        EXPECT_FALSE(library->allTracks()[0]->hasAlbumArt());
        EXPECT_TRUE(log.lines.empty()) << (empty ? "empty" : "missing");
    }
}

// A data set whose total length is zero makes the walk read the same image list again for
// every data set the header claims (2^31 - 1 here). The walk's read allowance ends that: a
// logged failure after a bounded amount of work, never a hang, and the lists read completely
// before it keep their links.
TEST(ArtworkDatabase, ZeroLengthLoopEndsInTheReadersException)
{
    TempDir dir;
    ArtworkDBSpec spec{.images = {ArtworkImageSpec{.imageID = 100, .thumbnails = {{.width = 2, .height = 2}}}},
                       .dataSets = {1},
                       .dataSetCount = 0x7FFFFFFF};
    spec.dataSets[0].totalLength = 0;
    LogCapture log;
    auto library = load(dir.path(), VolumeSpec{.database = tracksFor(1), .artwork = spec});
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_NE(log.lines[0].find("Length requested"), std::string::npos);
    ASSERT_TRUE(library->allTracks()[0]->hasAlbumArt());
    EXPECT_EQ(library->allTracks()[0]->albumArt()->artworkID(), 100u);
}

} // namespace
} // namespace zq
