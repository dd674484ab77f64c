// The command-line tool as a person and a program use it: `zqpod library PATH [--json]` run as
// a separate process on device volumes written by the image builder.

#include "tests/support/Expectations.h"
#include "tests/support/SampleDevice.h"
#include "tests/support/TestLibrary.h"
#include "tests/tools/ToolProcess.h"

#include "LibraryReport.h"

#include "ZQCore/model/PlaylistFolder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace zq {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using test::TempDir;
using test::VolumeSpec;

using test::Outcome;
using test::zqpod;

// The demo's device (zq-make-sample's library: songs over several albums and a compilation,
// two podcast shows, a smart playlist, covers) as `make demo` prints it and as programs read
// it, whole. Regenerate after an intended change (then review the diff):
//   ZQ_WRITE_EXPECTED=1 build/zqcore_tests --gtest_filter='ToolLibrary.TheDemoDevice*'
TEST(ToolLibrary, TheDemoDeviceReadsWholeAsLastChecked)
{
    TempDir dir;
    test::writeVolume(dir.path(), test::makeSampleDevice());
    for (const char* format : {"text", "json"}) {
        const Outcome run = std::string(format) == "json" ? zqpod({"library", dir.path(), "--json"})
                                                          : zqpod({"library", dir.path()});
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.err, "");
        std::string out = run.out;
        for (std::size_t at; (at = out.find(dir.path())) != std::string::npos;)
            out.replace(at, dir.path().size(), "<volume>");
        test::expectMatchesFile(std::string("demo-library.") + (std::string(format) == "json" ? "json" : "txt"), out);
    }
}

TEST(ToolLibraryErrors, MissingPathOrCorruptDatabaseEndWithStatusOneAndTheReason)
{
    TempDir dir, corrupt;
    const Outcome missing = zqpod({"library", dir.file("no-such-volume")});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.out, "");
    // In the user's words: the path, not the framework's class names.
    EXPECT_NE(missing.err.find(dir.file("no-such-volume") + " does not exist."), std::string::npos) << missing.err;
    EXPECT_EQ(missing.err.find("ZQCoreiPodRef"), std::string::npos) << missing.err;

    const zq::Data whole = test::buildITunesDB(test::makeSampleDevice().database.value());
    test::writeVolume(corrupt.path(), VolumeSpec{.rawITunesDB = whole.subdata(0, whole.size() / 2)});
    const Outcome run = zqpod({"library", corrupt.path(), "--json"});
    EXPECT_EQ(run.status, 1) << run.err;
    EXPECT_NE(run.err.find("XRDataReaderInvalidRead"), std::string::npos) << run.err;
}

// A nano keeps the same library compressed (iTunesCDB, an empty iTunesDB beside it): it prints
// exactly as the plain database does, every field of every track and playlist.
TEST(ToolLibraryFormats, CompressedAndPlainDatabasesOfOneDescriptionPrintTheSame)
{
    TempDir plainDir, nanoDir;
    VolumeSpec nano = test::makeSampleDevice();
    nano.compressedDatabase = true;
    test::writeVolume(plainDir.path(), test::makeSampleDevice());
    test::writeVolume(nanoDir.path(), nano);
    ASSERT_EQ(fs::file_size(nanoDir.file("iPod_Control/iTunes/iTunesDB")), 0u);
    for (const char* format : {"--json", "--text"}) {
        std::vector<std::string> plainArgs{"library", plainDir.path()}, nanoArgs{"library", nanoDir.path()};
        if (std::string(format) == "--json") {
            plainArgs.push_back(format);
            nanoArgs.push_back(format);
        }
        Outcome fromPlain = zqpod(plainArgs), fromNano = zqpod(nanoArgs);
        ASSERT_EQ(fromPlain.status, 0) << fromPlain.err;
        ASSERT_EQ(fromNano.status, 0) << fromNano.err;
        EXPECT_EQ(fromNano.err, "");
        for (auto [run, dir] : {std::pair{&fromPlain, &plainDir}, std::pair{&fromNano, &nanoDir}})
            for (std::size_t at; (at = run->out.find(dir->path())) != std::string::npos;)
                run->out.replace(at, dir->path().size(), "<volume>");
        EXPECT_GT(fromNano.out.size(), 500u);
        EXPECT_EQ(fromNano.out, fromPlain.out) << format;
    }

    // Damaged, with nothing else to read: an error that names the file, never an empty library.
    const zq::Data compressed = test::buildITunesCDB(test::makeSampleDevice().database.value());
    test::writeVolume(nanoDir.path(), VolumeSpec{.rawITunesDB = zq::Data(),
                                                 .rawITunesCDB = compressed.subdata(0, compressed.size() - 40)});
    const Outcome damaged = zqpod({"library", nanoDir.path(), "--json"});
    EXPECT_EQ(damaged.status, 1);
    EXPECT_EQ(damaged.out, "");
    EXPECT_NE(damaged.err.find("iPod_Control/iTunes/iTunesCDB is damaged"), std::string::npos)
        << damaged.err;
    EXPECT_NE(damaged.err.find(".DatabaseDamaged"), std::string::npos) << damaged.err;
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

// Texts are written as the JSON library writes them: escapes, UTF-8 of every length as it is,
// and bytes that are not well-formed UTF-8 replaced, in runs shorter and longer than sixteen.
TEST(ToolLibraryJSON, TextsAreWrittenAsTheJSONLibraryWritesThem)
{
    constexpr char kControls[] = "controls \x01\x1f\t\n\r\b\f and NUL \0 inside";
    const std::vector<std::string> texts = {
        "", "plain ASCII text longer than sixteen characters", "quote \" backslash \\ slash /",
        std::string(kControls, sizeof kControls - 1), "delete \x7f stays", "0123456789abcde\x1f unit separator alone in its block",
        "Café Über Sølv – 日本語 😀 after sixteen plain bytes", "\xC0\x80 overlong", "\xE0\x80\x80 overlong",
        "surrogate \xED\xA0\x80", "beyond \xF4\x90\x80\x80", "\xF5 no lead byte", "cut at the end \xC3",
        "lone \x80 continuation after sixteen plain bytes", "\xE2\x82 cut three-byte \xF0\x9F\x98 cut four-byte"};
    auto library = std::make_shared<test::DetachedLibrary>();
    for (const std::string& text : texts) {
        auto track = iPodTrack::initWithParent(library);
        track->setTitle(text);
        library->addTrack(track);
    }
    std::ostringstream out;
    zqpod::printLibraryJSON(out, *library);
    std::vector<std::string> titles;
    std::istringstream lines(out.str());
    for (std::string line; std::getline(lines, line);)
        if (const auto at = line.find("\"title\": "); at != std::string::npos)
            titles.push_back(line.substr(at + 9, line.size() - at - 10));  // without the comma
    ASSERT_EQ(titles.size(), texts.size());
    for (std::size_t i = 0; i < texts.size(); ++i)
        EXPECT_EQ(titles[i], nlohmann::ordered_json(texts[i]).dump(-1, ' ', false, Json::error_handler_t::replace))
            << i;
}

// A playlist inside a folder is listed once, under its folder, though the library lists it
// among all its playlists too.
TEST(ToolLibraryJSON, FolderChildrenStandUnderTheirFolderOnly)
{
    auto library = std::make_shared<test::DetachedLibrary>();
    auto folder = PlaylistFolder::initWithName("Moods");
    auto inner = Playlist::initWithName("Calm");
    folder->addPlaylist(inner);
    library->addPlaylist(folder);
    library->addPlaylist(inner);
    library->addPlaylist(Playlist::initWithName("Loud"));
    std::ostringstream out;
    zqpod::printLibraryJSON(out, *library);
    const auto playlists = nlohmann::ordered_json::parse(out.str()).at("playlists");
    ASSERT_EQ(playlists.size(), 2u) << out.str();
    EXPECT_EQ(playlists[0].at("name"), "Moods");
    EXPECT_EQ(playlists[0].at("children").size(), 1u);
    EXPECT_EQ(playlists[0].at("children")[0].at("name"), "Calm");
    EXPECT_EQ(playlists[1].at("name"), "Loud");
}

// A long track list is written in pieces made on two threads; the text is still one document
// in the JSON library's own pretty form, with every track once and in order, whether the last
// piece falls to one thread or the other.
TEST(ToolLibraryJSON, LongTrackListsComeOutWholeAndInOrder)
{
    for (const int count : {2000, 2100}) {
        auto library = std::make_shared<test::DetachedLibrary>();
        for (int i = 0; i < count; ++i) {
            auto track = iPodTrack::initWithParent(library);
            track->setTitle("Track " + std::to_string(i));
            library->addTrack(track);
        }
        std::ostringstream out;
        zqpod::printLibraryJSON(out, *library);
        const auto document = nlohmann::ordered_json::parse(out.str());
        EXPECT_EQ(document.dump(2) + "\n", out.str()) << count;
        const auto& tracks = document.at("tracks");
        ASSERT_EQ(tracks.size(), static_cast<std::size_t>(count));
        int misplaced = 0;
        for (int i = 0; i < count; ++i)
            misplaced += tracks[static_cast<std::size_t>(i)].at("title") != "Track " + std::to_string(i);
        EXPECT_EQ(misplaced, 0) << count;
    }
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
