// The command-line tool as a person and a program use it: `zqpod library PATH [--json]` run as
// a separate process on device volumes written by the image builder.

#include "tests/support/SampleDevice.h"
#include "tests/tools/ToolProcess.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace zq {
namespace {

using Json = nlohmann::json;
using test::DatabaseSpec;
using test::PlaylistItem;
using test::SmartPrefsSpec;
using test::SmartRulesSpec;
using test::TempDir;
using test::TrackSpec;
using test::VolumeSpec;

using test::lines;
using test::Outcome;
using test::zqpod;

/// A small device with one of each kind of list: the master, a plain list, the podcast list
/// with one show, and a smart list with two rules and a reversed limit.
VolumeSpec deskDevice()
{
    DatabaseSpec db;
    db.tracks = {
        TrackSpec{.trackID = 101, .compilation = 1, .rating = 60, .fileSize = 10, .trackLength = 2000, .year = 2001,
                  .dateAdded = 3155760016u,  // 2004-01-01 00:00:00 by the signed-seconds rule
                  .dbid = 0xFFFFFFFFFFFFFFF0ULL, .albumID = 3, .artworkLink = 77, .title = "One", .location = ":iPod_Control:Music:F00:ONE.mp3",
                  .artist = "Ärzte"},
        TrackSpec{.trackID = 102, .title = "Two"},
        TrackSpec{.trackID = 103, .mediaType = 4, .title = "Episode 1", .album = "The Show"},
    };
    db.playlists = {
        {.name = "Desk iPod", .master = 1, .playlistID = 0xFEDCBA9876543210ULL, .items = {101, 102, 103}},
        {.name = "Mix", .playlistID = 17, .items = {102, 101, 102}},
        {.name = "Podcasts", .podcast = 1, .playlistID = 18, .items = {PlaylistItem::group("The Show"), 103}},
        {.name = "Smart",
         .playlistID = 19,
         .items = {101},
         .smartPrefs = SmartPrefsSpec{.liveUpdating = 1, .enableRules = 1, .enableLimits = 1, .limitType = 3,
                                      .limitSort = 16, .limitValue = 25, .reverseLimitSort = 1},
         .smartRules = SmartRulesSpec{.conjunction = 0,
                                      .rules = {{.field = 4, .action = 0x01000002, .text = "Ä"},
                                                {.field = 22, .action = 0x10, .fromValue = 5, .toValue = 5}}}},
    };
    return VolumeSpec{.database = db, .sysInfo = test::sysInfoText("ZQTOOL1Y5N")};
}

class ToolLibrary : public testing::Test {
protected:
    void SetUp() override { test::writeVolume(dir_.path(), deskDevice()); }
    TempDir dir_;
};

TEST_F(ToolLibrary, TextShowsTheDeviceAndEveryListInTheFrameworksWords)
{
    const Outcome run = zqpod({"library", dir_.path()});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(lines(run.out), (std::vector<std::string>{
                                  "Desk iPod",
                                  "  Serial number: ZQTOOL1Y5N",
                                  "  Model type:    11",
                                  "  Mounted at:    " + dir_.path(),
                                  "  Tracks:        3",
                                  "  Playlists:     4",
                                  "",
                                  "Master playlist name: Desk iPod, ID: 18364758544493064720, 3 tracks.",
                                  "Playlist name: Mix, ID: 17, 3 tracks.",
                                  "Podcasts",
                                  "    The Show: 1 episode",
                                  "Smart Playlist name: Smart, ID: 19, 1 tracks.",
                                  "Match all of these rules: (",
                                  "    Artist contains Ä,",
                                  "    Play count is greater than 5",
                                  ")",
                                  "Limit to 25 songs, sorted by least recently added.",
                                  "Live updating.",
                              }));
}

TEST_F(ToolLibrary, JSONCarriesTheFieldsUnderTheFrameworksNames)
{
    const Outcome run = zqpod({"library", dir_.path(), "--json"});
    ASSERT_EQ(run.status, 0) << run.err;
    const Json json = Json::parse(run.out);
    EXPECT_EQ(json.at("name"), "Desk iPod");
    EXPECT_EQ(json.at("serialNumber"), "ZQTOOL1Y5N");
    EXPECT_EQ(json.at("type"), 11);

    const Json& tracks = json.at("tracks");
    ASSERT_EQ(tracks.size(), 3u);
    const Json expected = {{"trackID", 101}, {"dbid", 0xFFFFFFFFFFFFFFF0ULL}, {"title", "One"}, {"artist", "Ärzte"},
                           {"album", nullptr},  // never stored: null, not ""
                           {"filePath", dir_.path() + "/iPod_Control/Music/F00/ONE.mp3"}, {"rating", 60}, {"fileSize", 10},
                           {"trackLength", 2000}, {"year", 2001}, {"compilation", true}, {"albumID", 3}, {"artworkLink", 77},
                           {"dateAdded", "2004-01-01T00:00:00Z"}, {"lastModified", "1904-01-01T00:00:00Z"}};
    for (const auto& [key, value] : expected.items())
        EXPECT_EQ(tracks[0].at(key), value) << key;
    EXPECT_TRUE(tracks[1].at("filePath").is_null());
    EXPECT_EQ(tracks[2].at("mediaType"), 4);

    const Json& playlists = json.at("playlists");
    ASSERT_EQ(playlists.size(), 4u);
    std::vector<std::string> kinds;
    for (const auto& playlist : playlists)
        kinds.push_back(playlist.at("kind"));
    EXPECT_EQ(kinds, (std::vector<std::string>{"playlist", "playlist", "podcasts", "smart"}));
    EXPECT_EQ(playlists[0].at("playlistID").get<std::uint64_t>(), 0xFEDCBA9876543210ULL);
    EXPECT_EQ(playlists[0].at("isMaster"), true);
    EXPECT_EQ(playlists[0].at("parentID"), 0);
    EXPECT_EQ(playlists[1].at("trackIDs"), Json::array({102, 101, 102}));
    EXPECT_EQ(playlists[2].at("isPodcasts"), true);
    EXPECT_EQ(playlists[2].at("trackIDs"), Json::array({103}));
    EXPECT_EQ(playlists[2].at("groups"), Json::parse(R"([{"name": "The Show", "trackIDs": [103]}])"));
    const Json& smart = playlists[3];
    const Json smartExpected = {{"limitType", 3}, {"limitSortType", 16}, {"limit", 25}, {"liveUpdating", true},
                                {"rulesEnabled", true}, {"limitsEnabled", true}, {"onlyMatchCheckedTracks", false},
                                {"limitSortReversed", true}, {"isOr", false}};
    for (const auto& [key, value] : smartExpected.items())
        EXPECT_EQ(smart.at(key), value) << key;
    const Json& rules = smart.at("rules");
    ASSERT_EQ(rules.size(), 2u);
    EXPECT_EQ(rules[0].at("field"), 4);
    EXPECT_EQ(rules[0].at("action"), 0x01000002);
    EXPECT_EQ(rules[0].at("ruleValue"), "Ä");
    EXPECT_EQ(rules[0].at("description"), "Artist contains Ä");
    EXPECT_EQ(rules[1].at("fromValue"), 5);
    EXPECT_EQ(rules[1].at("toValue"), 5);
    EXPECT_EQ(rules[1].at("description"), "Play count is greater than 5");
}

TEST(ToolLibraryErrors, MissingPathOrCorruptDatabaseEndWithStatusOneAndTheReason)
{
    TempDir dir, corrupt;
    const Outcome missing = zqpod({"library", dir.file("no-such-volume")});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.out, "");
    EXPECT_NE(missing.err.find("ZQCoreiPodNotFoundException"), std::string::npos) << missing.err;
    EXPECT_NE(missing.err.find("path doesn't exist"), std::string::npos) << missing.err;

    const zq::Data whole = test::buildITunesDB(deskDevice().database.value());
    test::writeVolume(corrupt.path(), VolumeSpec{.rawITunesDB = whole.subdata(0, whole.size() / 2)});
    const Outcome run = zqpod({"library", corrupt.path(), "--json"});
    EXPECT_EQ(run.status, 1) << run.err;
    EXPECT_NE(run.err.find("XRDataReaderInvalidRead"), std::string::npos) << run.err;
}

TEST(ToolLibraryErrors, UsageMistakesEndWithStatusTwo)
{
    for (const auto& args : std::vector<std::vector<std::string>>{
             {}, {"frobnicate"}, {"library", "/a", "/b"}, {"art"}, {"copy"}, {"copy", "/a", "/b", "/c"}}) {
        const Outcome run = zqpod(args);
        EXPECT_EQ(run.status, 2) << testing::PrintToString(args);
        EXPECT_EQ(run.out, "");
        EXPECT_NE(run.err.find("usage: zqpod"), std::string::npos) << testing::PrintToString(args) << run.err;
    }
    const Outcome unknown = zqpod({"library", "/", "--yaml"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_EQ(unknown.err, "zqpod library: unknown option '--yaml'\n");
}

// ---- the same library from the binary database and from the SQLite databases -----------------

/// The sample device, made comparable across the two formats: a track's dbid is its track ID
/// (the SQLite library has one identifier for both), every date is set (a stored 0 means 1904
/// in one format and 2001 in the other), and every track has an album whose tracks share one
/// artwork link (the SQLite library keeps the link with the album, not the track).
VolumeSpec comparableSampleDevice()
{
    VolumeSpec volume = test::makeSampleDevice();
    std::map<std::string, std::uint16_t> albums;
    std::map<std::uint16_t, std::uint32_t> links;
    for (auto& t : volume.database->tracks) {
        t.dbid = t.trackID;
        for (std::uint32_t* date : {&t.lastModified, &t.lastPlayedTime, &t.dateAdded, &t.lastSkippedTime})
            if (*date == 0)
                *date = 3600000000u + t.trackID;
        if (t.albumID == 0 && t.album)
            t.albumID = albums.emplace(*t.album, static_cast<std::uint16_t>(900 + albums.size())).first->second;
        if (t.artworkLink && !links.contains(t.albumID))
            links[t.albumID] = t.artworkLink;
    }
    for (auto& t : volume.database->tracks)
        t.artworkLink = links.contains(t.albumID) ? links[t.albumID] : 0;
    return volume;
}

/// A playlist's JSON without the keys one of the formats cannot fill.
Json comparablePlaylist(Json playlist)
{
    if (playlist.at("kind") == "podcasts") {
        // The SQLite library has no podcast container of its own: its group is made from the
        // episodes, with the default name and no identifier.
        playlist.erase("name");
        playlist.erase("playlistID");
    }
    return playlist;
}

TEST(ToolLibraryFormats, BinaryAndSQLiteLibrariesOfOneDescriptionPrintTheSame)
{
    const VolumeSpec volume = comparableSampleDevice();
    TempDir binaryDir, sqliteDir;
    VolumeSpec binary = volume, sqlite = volume;
    binary.format = test::LibraryFormat::Binary;
    sqlite.format = test::LibraryFormat::SQLite;
    test::writeVolume(binaryDir.path(), binary);
    test::writeVolume(sqliteDir.path(), sqlite);

    const Outcome fromBinary = zqpod({"library", "--json", binaryDir.path()});
    const Outcome fromSQLite = zqpod({"library", "--json", sqliteDir.path()});
    ASSERT_EQ(fromBinary.status, 0) << fromBinary.err;
    ASSERT_EQ(fromSQLite.status, 0) << fromSQLite.err;
    const Json b = Json::parse(fromBinary.out), s = Json::parse(fromSQLite.out);

    for (const char* key : {"name", "serialNumber", "type"})
        EXPECT_EQ(b.at(key), s.at(key)) << key;

    // Fields only the binary database carries.
    const std::set<std::string> binaryOnly = {"fileType", "podcastCategory", "dateReleased"};
    ASSERT_EQ(b.at("tracks").size(), s.at("tracks").size());
    for (std::size_t i = 0; i < b["tracks"].size(); ++i) {
        for (const auto& [key, value] : b["tracks"][i].items()) {
            if (binaryOnly.contains(key))
                continue;
            std::string expected = value.dump(), actual = s["tracks"][i].at(key).dump();
            if (key == "filePath" && value.is_string()) {
                expected = value.get<std::string>().substr(binaryDir.path().size());
                actual = s["tracks"][i].at(key).get<std::string>().substr(sqliteDir.path().size());
            }
            EXPECT_EQ(expected, actual) << "track " << i << " " << key;
        }
    }

    // The master playlist is the SQLite library's hidden container (it names the device, above);
    // the podcast group comes last there. Everything else is in the same order.
    std::vector<Json> binaryLists, sqliteLists;
    for (const auto& playlist : b.at("playlists"))
        if (!playlist.at("isMaster").get<bool>())
            binaryLists.push_back(comparablePlaylist(playlist));
    for (const auto& playlist : s.at("playlists"))
        sqliteLists.push_back(comparablePlaylist(playlist));
    auto podcastsLast = [](std::vector<Json>& lists) {
        std::stable_partition(lists.begin(), lists.end(), [](const Json& p) { return p.at("kind") != "podcasts"; });
    };
    podcastsLast(binaryLists);
    ASSERT_EQ(binaryLists.size(), sqliteLists.size());
    for (std::size_t i = 0; i < binaryLists.size(); ++i)
        EXPECT_EQ(binaryLists[i], sqliteLists[i]) << "playlist " << i;
}

} // namespace
} // namespace zq
