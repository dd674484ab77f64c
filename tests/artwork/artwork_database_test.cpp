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

std::string fieldsOf(const AlbumArtRep& rep)
{
    return std::to_string(rep.width()) + "x" + std::to_string(rep.height()) + " pad " +
           std::to_string(rep.horizontalPadding()) + "," + std::to_string(rep.verticalPadding()) + " at " +
           std::to_string(rep.fileOffset()) + " len " + std::to_string(rep.dataLength()) + " " +
           rep.path().value_or("<none>");
}

TEST(ArtworkDatabase, RepresentationsCarryTheirRecordsFields)
{
    TempDir dir;
    ArtworkImageSpec item{.imageID = 100, .songID = 0x1122334455667788ULL};
    item.thumbnails = {{.formatID = 1028, .width = 100, .height = 98, .horizontalPadding = 0, .verticalPadding = 2},
                       {.formatID = 1029, .width = 199, .height = 200, .horizontalPadding = 1, .verticalPadding = -3,
                        .fileOffset = 0x12340, .writePixels = false}};
    auto art = artOfFirstTrack(dir.path(), ArtworkDBSpec{.images = {item}});
    ASSERT_TRUE(art);
    EXPECT_EQ(art->artworkID(), 100u);
    EXPECT_EQ(art->trackID(), 0x1122334455667788ULL);
    ASSERT_EQ(art->artReps().size(), 2u);
    const std::string folder = dir.path() + "/iPod_Control/Artwork/";
    EXPECT_EQ(fieldsOf(*art->artReps()[0]), "100x98 pad 0,2 at 0 len 20000 " + folder + "F1028_1.ithmb");
    EXPECT_EQ(fieldsOf(*art->artReps()[1]).substr(0, 27), "199x200 pad 1,-3 at 74560 l");
    EXPECT_EQ(art->artReps()[1]->path(), folder + "F1029_1.ithmb");
    EXPECT_EQ(art->preferredRep(), art->artReps()[1]);
}

TEST(ArtworkDatabase, PreferredRepresentationIsTheFirstOfTheWidest)
{
    // Index of the preferred one, or -1 for none (width 0 is never chosen).
    const std::vector<std::pair<std::vector<std::uint16_t>, int>> cases = {
        {{56, 140, 140}, 1}, {{140, 56, 140}, 0}, {{0, 0}, -1}, {{0, 1}, 1}, {{}, -1}};
    for (const auto& [widths, preferred] : cases) {
        AlbumArt::Reps reps;
        for (std::uint16_t width : widths) {
            std::array<std::uint8_t, 44> header{};
            header[34] = static_cast<std::uint8_t>(width);
            header[35] = static_cast<std::uint8_t>(width >> 8);
            reps.push_back(AlbumArtRep::initWithMHNIHeader(header, std::nullopt, nullptr));
        }
        auto art = AlbumArt::initWithReps(reps, 1, 2);
        EXPECT_EQ(art->preferredRep(), preferred < 0 ? nullptr : reps[static_cast<std::size_t>(preferred)])
            << testing::PrintToString(widths);
        EXPECT_TRUE(preferred >= 0 || !art->image()) << "no representation, no picture";
    }
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

TEST(ArtworkDatabase, OtherChildrenAndDataSetsAreSkipped)
{
    TempDir dir;
    ArtworkImageSpec item{.imageID = 100};
    item.extraChildren.push_back({.type = 6, .body = std::vector<std::uint8_t>(40, 0x55)});
    item.thumbnails.push_back({.width = 4, .height = 4});
    item.extraChildren.push_back({.type = 1, .body = std::vector<std::uint8_t>(8, 0)});
    ArtworkImageSpec bare{.imageID = 101}; // no stored size at all
    auto library = loadVolume(dir.path(), {.database = tracksFor(2),
                                           .artwork = ArtworkDBSpec{.images = {item, bare}, .dataSets = {9, 2, 1, 3, 4}}});
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
    ArtworkDBSpec spec{.dataSets = {ArtworkDataSet::withImages({{.imageID = 100}}),
                                    ArtworkDataSet::withImages({{.imageID = 101}, {.imageID = 102}})}};
    const Data whole = buildArtwork(spec).artworkDB;
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

TEST(ArtworkDatabase, MissingOrEmptyDatabaseIsNoArtworkAndNoMessage)
{
    for (const bool empty : {false, true}) {
        TempDir dir;
        LogCapture log;
        VolumeSpec volume{.database = tracksFor(1)};
        if (empty)
            volume.rawArtworkDB = Data();
        EXPECT_FALSE(loadVolume(dir.path(), volume)->allTracks()[0]->hasAlbumArt());
        EXPECT_TRUE(log.lines.empty()) << empty;
    }
}

// A zero total length makes the walk read the same list again for each of the 2^31 - 1 data
// sets claimed; the read allowance ends that with a logged failure, and the lists read
// completely before it keep their links.
TEST(ArtworkDatabase, ZeroLengthLoopEndsInTheReadersException)
{
    TempDir dir;
    ArtworkDBSpec spec{.images = {{.imageID = 100, .thumbnails = {{.width = 2, .height = 2}}}}, .dataSets = {1},
                       .dataSetCount = 0x7FFFFFFF};
    spec.dataSets[0].totalLength = 0;
    LogCapture log;
    auto library = loadVolume(dir.path(), {.database = tracksFor(1), .artwork = spec});
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_NE(log.lines[0].find("Length requested"), std::string::npos);
    ASSERT_TRUE(library->allTracks()[0]->hasAlbumArt());
    EXPECT_EQ(library->allTracks()[0]->albumArt()->artworkID(), 100u);
}

// ---- linking ------------------------------------------------------------------------------------

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
    volume.artwork = ArtworkDBSpec{.dataSets = {ArtworkDataSet::withImages({image(100, 0xA1), image(101, 0),
                                                                                  image(102, 0)}),
                                                2, ArtworkDataSet::withImages({image(200, 0xB6)}), 3}};
    const auto& tracks = loadVolume(dir.path(), volume)->allTracks();
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
