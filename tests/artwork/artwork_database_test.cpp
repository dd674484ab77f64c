// The artwork database walk: what it takes from each record, where it looks for thumbnail
// files, what it skips, and how a damaged file ends (the load goes on, earlier lists keep
// their links); and linking artwork to tracks, the fast resolution against the literal scan.

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/artwork/ArtworkLinking.h"
#include "tests/support/TestLibrary.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace zq {
namespace {

using namespace test;

/// One track per image, linked by artwork link 100, 101, ... (their dbids match no image).
DatabaseSpec tracksFor(std::uint32_t count)
{
    DatabaseSpec db;
    for (std::uint32_t i = 0; i < count; ++i)
        db.tracks.push_back({.trackID = i + 1, .dbid = 0xD000 + i, .artworkLink = 100 + i});
    return db;
}

std::shared_ptr<AlbumArt> artOfFirstTrack(const std::string& root, const ArtworkDBSpec& artwork)
{
    const auto& track = loadVolume(root, {.database = tracksFor(1), .artwork = artwork})->allTracks().at(0);
    return track->hasAlbumArt() ? track->albumArt() : nullptr;
}

TEST(ArtworkDatabase, FileNamesLoseOneLeadingColonAndStayOneComponent)
{
    struct Case {
        ThumbnailSpec thumbnail;
        std::optional<std::string> file; // in the Artwork folder; no value: no path at all
    };
    auto named = [](const char* name) { return ThumbnailSpec{.width = 2, .height = 2, .fileName = name}; };
    const Case cases[] = {
        {named(":F1028_1.ithmb"), "F1028_1.ithmb"},
        {named("F1028_1.ithmb"), "F1028_1.ithmb"},
        {named("::F1028_1.ithmb"), ":F1028_1.ithmb"},
        {named(":Thumbs:F1028_1.ithmb"), "Thumbs:F1028_1.ithmb"}, // later colons stay in the name
        {named(":"), std::nullopt},
        {named(""), std::nullopt},
        {named(":../../iTunes/iTunesDB"), std::nullopt},
        {named(":.."), std::nullopt},
        {{.rawName = std::vector<std::uint8_t>{'F', 0, '1'}}, std::nullopt}, // odd byte count
        {{.rawName = std::vector<std::uint8_t>{'F', 0}, .nameLengthField = 0x7FFFFFF0}, std::nullopt},
    };
    for (const auto& c : cases) {
        TempDir dir;
        auto art = artOfFirstTrack(dir.path(), ArtworkDBSpec{.images = {{.imageID = 100, .thumbnails = {c.thumbnail}}}});
        const std::string what = c.thumbnail.fileName.value_or("raw name");
        ASSERT_TRUE(art && art->artReps().size() == 1) << what;
        EXPECT_EQ(art->artReps()[0]->path(),
                  c.file ? std::optional(dir.path() + "/iPod_Control/Artwork/" + *c.file) : std::nullopt) << what;
        // Where there is a path, the pixels written there are found through it.
        EXPECT_EQ(art->image() != nullptr, c.file.has_value()) << what;
    }
}

TEST(ArtworkDatabase, TruncatedDatabaseKeepsTheLinksOfFinishedListsAndTheLoadGoesOn)
{
    TempDir dir;
    ArtworkDBSpec setup{.dataSets = {ArtworkDataSet::withImages({{.imageID = 100}}),
                                    ArtworkDataSet::withImages({{.imageID = 101}, {.imageID = 102}})}};
    const Data whole = buildArtwork(setup).artworkDB;
    // Cut inside the second list's last item (an item without stored sizes is just its 0x98-byte
    // header): that list is not finished, so none of it is linked.
    const Data cut = whole.subdata(0, whole.size() - 0x98 + 30);
    LogCapture log;
    auto library = loadVolume(dir.path(), {.database = tracksFor(3), .rawArtworkDB = cut});
    const auto& tracks = library->allTracks();
    ASSERT_EQ(tracks.size(), 3u) << "the library loads whole";
    ASSERT_TRUE(tracks[0]->hasAlbumArt());
    EXPECT_EQ(tracks[0]->albumArt()->artworkID(), 100u);
    EXPECT_FALSE(tracks[1]->hasAlbumArt());
    EXPECT_FALSE(tracks[2]->hasAlbumArt());
    EXPECT_EQ(log.lines, std::vector<std::string>{"Could not load device artwork database with the error: Length "
                                                  "requested is greater than the remaining data. - skipping."});
    expectThrown([&] { library->parseArtworkDBWithData(cut, tracks, dir.path()); });
}

/// The linking exactly as the database's readers describe it: for each list in turn, a scan of
/// all its artwork for every track, then the album pass.
std::vector<std::optional<ArtworkPosition>> literalScan(const std::vector<TrackArtworkKeys>& tracks,
                                                        const std::vector<std::vector<ArtworkKeys>>& lists)
{
    std::vector<std::optional<ArtworkPosition>> art(tracks.size());
    for (std::uint32_t k = 0; k < lists.size(); ++k) {
        std::map<std::uint64_t, std::uint32_t> albums;
        for (std::size_t t = 0; t < tracks.size(); ++t) {
            for (std::uint32_t i = 0; i < lists[k].size(); ++i) {
                const bool bySong = lists[k][i].trackID == tracks[t].dbid;
                const bool byImage = (tracks[t].artworkLink >> 32) == 0 &&
                                     lists[k][i].artworkID == static_cast<std::uint32_t>(tracks[t].artworkLink);
                if (bySong || byImage) {
                    art[t] = ArtworkPosition{k, i};
                    if (tracks[t].albumID != 0)
                        albums[tracks[t].albumID] = i;
                    break;
                }
            }
        }
        for (std::size_t t = 0; t < tracks.size(); ++t)
            if (auto album = albums.find(tracks[t].albumID); album != albums.end())
                art[t] = ArtworkPosition{k, album->second};
    }
    return art;
}

std::vector<std::optional<ArtworkPosition>> resolve(const std::vector<TrackArtworkKeys>& tracks,
                                                    const std::vector<std::vector<ArtworkKeys>>& lists)
{
    std::vector<std::span<const ArtworkKeys>> spans(lists.begin(), lists.end());
    return resolveArtworkLinks(tracks, spans);
}

// Small key ranges, so that dbids, links, image IDs and albums collide all the time; links
// above 32 bits whose low half equals an image ID; several lists, some empty.
// A data set of length 0 and a count of 2^31 - 1 sets once kept the walk going round the same
// bytes; the read allowance ends it in the reader's exception, and the finished list still links.
TEST(ArtworkDatabase, ZeroLengthLoopEndsInTheReadersException)
{
    TempDir dir;
    ArtworkDBSpec setup{.images = {{.imageID = 100, .thumbnails = {{.width = 2, .height = 2}}}}, .dataSets = {1},
                       .dataSetCount = 0x7FFFFFFF};
    setup.dataSets[0].totalLength = 0;
    LogCapture log;
    auto library = loadVolume(dir.path(), {.database = tracksFor(1), .artwork = setup});
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_NE(log.lines[0].find("Length requested"), std::string::npos);
    ASSERT_TRUE(library->allTracks()[0]->hasAlbumArt());
    EXPECT_EQ(library->allTracks()[0]->albumArt()->artworkID(), 100u);
}

TEST(ArtworkLinking, ResolutionEqualsTheLiteralScanOnRandomLibraries)
{
    std::mt19937_64 random(20240611);
    auto pick = [&](std::uint64_t n) { return random() % n; };
    for (int round = 0; round < 3000; ++round) {
        std::vector<TrackArtworkKeys> tracks(pick(12));
        for (auto& t : tracks) {
            t.dbid = pick(6);
            t.artworkLink = pick(7);
            if (pick(5) == 0)
                t.artworkLink |= std::uint64_t(1 + pick(3)) << 32;
            t.albumID = pick(4);
        }
        std::vector<std::vector<ArtworkKeys>> lists(pick(4));
        for (auto& list : lists) {
            list.resize(pick(6));
            for (auto& a : list)
                a = {static_cast<std::uint32_t>(pick(7)), pick(6)};
        }
        const auto expected = literalScan(tracks, lists);
        const auto actual = resolve(tracks, lists);
        ASSERT_EQ(actual, expected) << "round " << round;
    }
}

} // namespace
} // namespace zq
