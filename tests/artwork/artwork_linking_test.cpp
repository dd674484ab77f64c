// Linking artwork to tracks: the fast resolution against the literal scan (first match in file
// order, then the album pass, list after list) on random libraries full of collisions, and the
// cases that matter on a real device, through a whole load.

#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/artwork/ArtworkLinking.h"
#include "tests/support/TestLibrary.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace zq {
namespace {

using test::ArtworkDBSpec;
using test::ArtworkImageSpec;
using test::DatabaseSpec;
using test::TempDir;
using test::TrackSpec;
using test::VolumeSpec;

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

TEST(ArtworkLinking, TheRulesOneByOne)
{
    struct Case {
        const char* what;
        std::vector<TrackArtworkKeys> tracks;
        std::vector<std::vector<ArtworkKeys>> lists;
        std::vector<std::optional<ArtworkPosition>> expected;
    };
    const std::uint64_t high = std::uint64_t(1) << 32;
    const std::vector<Case> cases = {
        {"dbid alone finds the artwork, link 0",
         {{.dbid = 900, .artworkLink = 0}}, {{{100, 1}, {101, 900}}}, {ArtworkPosition{0, 1}}},
        {"a link above 32 bits never matches an image ID",
         {{.dbid = 1, .artworkLink = high | 100}}, {{{100, 2}}}, {std::nullopt}},
        {"the first matching artwork in file order wins, whichever key",
         {{.dbid = 7, .artworkLink = 101}}, {{{100, 0}, {101, 0}, {102, 7}}}, {ArtworkPosition{0, 1}}},
        {"a zero link matches image ID 0 (only the client look-up skips it)",
         {{.dbid = 5, .artworkLink = 0}}, {{{100, 6}, {0, 6}}}, {ArtworkPosition{0, 1}}},
        {"two tracks of one album matching different items both end with the later track's",
         {{.dbid = 1, .albumID = 9}, {.dbid = 2, .albumID = 9}}, {{{100, 1}, {101, 2}}},
         {ArtworkPosition{0, 1}, ArtworkPosition{0, 1}}},
        {"a track without a match of its own takes its album's; album 0 never shares",
         {{.dbid = 1, .albumID = 9}, {.dbid = 50, .albumID = 9}, {.dbid = 2, .albumID = 0}, {.dbid = 51, .albumID = 0}},
         {{{100, 1}, {101, 2}}},
         {ArtworkPosition{0, 0}, ArtworkPosition{0, 0}, ArtworkPosition{0, 1}, std::nullopt}},
        {"a later list overrides an earlier one, its album pass included",
         {{.dbid = 1, .albumID = 3}, {.dbid = 2, .albumID = 3}}, {{{100, 1}}, {{200, 2}}},
         {ArtworkPosition{1, 0}, ArtworkPosition{1, 0}}},
        {"a track a later list does not touch keeps the earlier list's",
         {{.dbid = 1}, {.dbid = 2}}, {{{100, 1}, {101, 2}}, {{200, 2}}},
         {ArtworkPosition{0, 0}, ArtworkPosition{1, 0}}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(resolve(c.tracks, c.lists), c.expected) << c.what;
        EXPECT_EQ(literalScan(c.tracks, c.lists), c.expected) << c.what << " (the reference itself)";
    }
}

// ---- through a whole load --------------------------------------------------------------------

TEST(ArtworkLinking, LoadAttachesArtworkByEachRouteListAfterList)
{
    auto track = [](std::uint32_t id, std::uint64_t dbid, std::uint32_t link, std::uint16_t album) {
        return TrackSpec{.trackID = id, .dbid = dbid, .albumID = album, .artworkLink = link};
    };
    auto image = [](std::uint32_t imageID, std::uint64_t songID) {
        return ArtworkImageSpec{.imageID = imageID, .songID = songID, .thumbnails = {{.width = 2, .height = 2}}};
    };
    TempDir dir;
    VolumeSpec volume{.database = DatabaseSpec{.tracks = {
                          track(1, 0xA1, 0, 0),   // by dbid only
                          track(2, 0xA2, 101, 0), // by link
                          track(3, 0xA3, 0, 7),   // by its album (track 4)
                          track(4, 0xA4, 102, 7),
                          track(5, 0xA5, 999, 0), // nothing
                          track(6, 0xB6, 100, 0), // the second list knows it by dbid only
                      }}};
    volume.artwork = ArtworkDBSpec{.dataSets = {test::ArtworkDataSet::withImages({image(100, 0xA1), image(101, 0),
                                                                                  image(102, 0)}),
                                                2, test::ArtworkDataSet::withImages({image(200, 0xB6)}), 3}};
    const auto& tracks = test::loadVolume(dir.path(), volume)->allTracks();
    ASSERT_EQ(tracks.size(), 6u);
    EXPECT_EQ(tracks[0]->albumArt()->artworkID(), 100u);
    EXPECT_EQ(tracks[0]->albumArt()->trackID(), 0xA1u);
    EXPECT_EQ(tracks[1]->albumArt()->artworkID(), 101u);
    EXPECT_EQ(tracks[2]->albumArt(), tracks[3]->albumArt());
    EXPECT_EQ(tracks[3]->albumArt()->artworkID(), 102u);
    EXPECT_FALSE(tracks[4]->hasAlbumArt());
    EXPECT_EQ(tracks[4]->albumArt(), AlbumArt::noAlbumArtInstance());
    EXPECT_EQ(tracks[5]->albumArt()->artworkID(), 200u);
}

} // namespace
} // namespace zq
