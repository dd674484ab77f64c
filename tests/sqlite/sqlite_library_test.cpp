// Loading a library from the four SQLite databases of "iTunes Library.itlp": real database
// files written by the image builder, read back through the framework's loader.

#include "ZQCore/foundation/Application.h"
#include "ZQCore/model/PlaylistFolder.h"
#include "ZQCore/model/Podcasts.h"
#include "ZQCore/model/PurchasedPlaylist.h"
#include "ZQCore/model/SmartPlaylist.h"
#include "ZQCore/sqlite/SQLiteDatabase.h"
#include "tests/support/TestLibrary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <tuple>
#include <functional>
#include <map>
#include <ostream>
#include <set>

namespace zq {
namespace {

namespace fs = std::filesystem;
using namespace test;

struct Folder {
    std::string path;
    std::string file(const char* name) const { return path + "/" + name; }
    bool loadInto(ZQCoreiPod& library) const
    {
        return library.loadFromLocalSQLiteDatabase(file("Library.itdb"), file("Extras.itdb"), file("Locations.itdb"),
                                                   file("Dynamic.itdb"));
    }
};

class SQLiteLoad : public testing::Test {
protected:
    Folder write(const DatabaseSpec& db, const SQLiteSpec& sqlite = {}, const std::string& name = "itlp")
    {
        Folder folder{dir_.file(name)};
        writeSQLiteLibrary(folder.path, db, sqlite);
        return folder;
    }
    std::shared_ptr<DetachedLibrary> load(const Folder& folder)
    {
        auto library = std::make_shared<DetachedLibrary>("/Volumes/Device");
        EXPECT_TRUE(folder.loadInto(*library));
        return library;
    }
    std::shared_ptr<DetachedLibrary> load(const DatabaseSpec& db, const SQLiteSpec& sqlite = {})
    {
        return load(write(db, sqlite));
    }
    std::shared_ptr<iPodTrack> loadOne(const TrackSpec& track, const SQLiteSpec& sqlite = {})
    {
        auto library = load(DatabaseSpec{.tracks = {track}}, sqlite);
        EXPECT_EQ(library->allTracks().size(), 1u);
        return library->allTracks().at(0);
    }

    TempDir dir_;
};

std::shared_ptr<iPodTrack> onlyTrack(const ZQCoreiPod& library)
{
    EXPECT_EQ(library.allTracks().size(), 1u);
    return library.allTracks().at(0);
}

std::vector<std::string> namesOf(const std::vector<std::shared_ptr<Playlist>>& playlists)
{
    std::vector<std::string> names;
    for (const auto& playlist : playlists)
        names.push_back(playlist->name().value_or("?"));
    return names;
}

/// Parameterised cases are named by their label.
template <class Case>
std::string caseName(const testing::TestParamInfo<Case>& param)
{
    return param.param.label;
}

PlaylistSpec list(const char* name, std::uint64_t id, std::uint64_t parent = 0, bool folder = false, Ids items = {})
{
    PlaylistSpec setup{.name = name, .creationTimestamp = 5000, .playlistID = id, .parentID = parent, .folder = folder};
    for (auto item : items)
        setup.items.push_back(item);
    return setup;
}

/// One container row (NULL columns spelled "NULL"), the class it must get ("none", "playlist",
/// "purchased", "folder" or "smart") and whether it names the device.
struct ContainerCase {
    const char *label, *dateCreated;
    int isHidden, kind, folder;
    const char *dynamic, *expected;
    bool namesDevice;
};

void PrintTo(const ContainerCase& c, std::ostream* out) { *out << c.label; }

const char* classOf(const std::shared_ptr<Playlist>& playlist)
{
    if (std::dynamic_pointer_cast<PurchasedPlaylist>(playlist))
        return "purchased";
    if (std::dynamic_pointer_cast<PlaylistFolder>(playlist))
        return "folder";
    if (std::dynamic_pointer_cast<SmartPlaylist>(playlist))
        return "smart";
    return "playlist";
}

class ContainerRowClass : public SQLiteLoad, public testing::WithParamInterface<ContainerCase> {};

TEST_P(ContainerRowClass, TakesTheFirstClassItsRowQualifiesFor)
{
    const ContainerCase& c = GetParam();
    SQLiteSpec sqlite;
    sqlite.libraryStatements.push_back(
        "INSERT INTO container (pid, date_created, name, parent_pid, is_hidden, smart_is_folder, smart_is_dynamic, "
        "distinguished_kind) VALUES (77, " + std::string(c.dateCreated) + ", 'Row Name', 0, " +
        std::to_string(c.isHidden) + ", " + std::to_string(c.folder) + ", " + c.dynamic + ", " +
        std::to_string(c.kind) + ")");
    auto library = load(DatabaseSpec{}, sqlite);

    if (std::string(c.expected) == "none") {
        EXPECT_TRUE(library->allPlaylists().empty());
    } else {
        ASSERT_EQ(library->allPlaylists().size(), 1u);
        const auto& playlist = library->allPlaylists()[0];
        EXPECT_STREQ(classOf(playlist), c.expected);
        EXPECT_EQ(playlist->name(), "Row Name");
        EXPECT_EQ(playlist->playlistID(), 77u);
    }
    EXPECT_EQ(library->name(), c.namesDevice ? "Row Name" : "iPod");
}

INSTANTIATE_TEST_SUITE_P(
    SQLite, ContainerRowClass,
    testing::Values(
        ContainerCase{"HiddenLibraryContainerNamesTheDevice", "100", 1, 0, 0, "NULL", "none", true},
        ContainerCase{"HiddenContainerOfAnotherKindNamesNothing", "100", 1, 5, 0, "NULL", "none", false},
        ContainerCase{"HiddenValueTwoIsHiddenButNotTheLibrary", "100", 2, 0, 0, "NULL", "none", false},
        ContainerCase{"KindElevenIsDroppedEvenWhenVisible", "100", 0, 11, 0, "NULL", "none", false},
        ContainerCase{"NullCreationDateDropsEvenAPurchasedFolder", "NULL", 0, 19, 1, "1", "none", false},
        ContainerCase{"PurchasedWinsOverFolder", "100", 0, 19, 1, "1", "purchased", false},
        ContainerCase{"FolderWinsOverSmart", "100", 0, 0, 1, "1", "folder", false},
        ContainerCase{"DynamicZeroIsStillSmart", "100", 0, 0, 0, "0", "smart", false},
        ContainerCase{"FolderFlagTwoIsNoFolder", "100", 0, 0, 2, "NULL", "playlist", false},
        ContainerCase{"UnknownKindIsAnOrdinaryRow", "100", 0, 7, 0, "NULL", "playlist", false}),
    caseName<ContainerCase>);

TEST_F(SQLiteLoad, FoldersNestInOnePassAndOnlyTopLevelPlaylistsStay)
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 1}, TrackSpec{.trackID = 2}, TrackSpec{.trackID = 3}};
    // Children are listed before their folders: nesting does not depend on row order.
    db.playlists = {list("Inner list", 30, 20, false, {2, 3}), list("Inner folder", 20, 10, true),
                    list("Outer folder", 10, 0, true), list("Not a folder", 40, 0, false, {1}),
                    list("Under a list", 50, 40, false, {1}), list("Orphan", 60, 999)};
    auto library = load(db);
    EXPECT_EQ(namesOf(library->allPlaylists()),
              (std::vector<std::string>{"Outer folder", "Not a folder", "Under a list", "Orphan"}));
    auto outer = std::dynamic_pointer_cast<PlaylistFolder>(library->allPlaylists()[0]);
    ASSERT_TRUE(outer);
    EXPECT_EQ(namesOf(outer->playlists()), std::vector<std::string>{"Inner folder"});
    auto inner = std::dynamic_pointer_cast<PlaylistFolder>(outer->playlists()[0]);
    ASSERT_TRUE(inner);
    EXPECT_EQ(namesOf(inner->playlists()), std::vector<std::string>{"Inner list"});
    EXPECT_EQ(idsOf(outer->tracks()), (Ids{2, 3}));
    EXPECT_EQ(library->allPlaylists()[2]->parentID(), 40u);
}

TEST_F(SQLiteLoad, FoldersThatWouldHoldThemselvesStayAtTheTopLevel)
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 1}};
    db.playlists = {list("Self", 10, 10, true), list("Ring A", 20, 30, true), list("Ring B", 30, 20, true),
                    list("In ring", 40, 20, false, {1})};
    // A chain of folders deeper than any library has: the deepest ones stay at the top.
    for (std::uint64_t level = 0; level < 100; ++level)
        db.playlists.push_back(list("Level", 1000 + level, level ? 999 + level : 0, true));
    auto library = load(db);
    std::set<std::string> top;
    for (const auto& playlist : library->allPlaylists()) {
        top.insert(playlist->name().value_or("?"));
        EXPECT_LE(playlist->tracks().size(), 1u); // finishes: no folder reaches itself
        EXPECT_FALSE(playlist->description().empty());
    }
    for (const char* name : {"Self", "Ring A", "Ring B", "In ring"}) // the ring's ancestry never ends
        EXPECT_TRUE(top.contains(name)) << name;
    EXPECT_LT(library->allPlaylists().size(), 100u);
}

// One track with every field, from its item row and every sub-row, whole. Plays and skips since
// the last sync count too; the album's season wins; track dates are the 32-bit column taken
// unsigned (-2 is 2^32 - 2 seconds after 2001), playlist dates signed; an overlong UTF-8 form is
// no text.
TEST_F(SQLiteLoad, TrackTakesEveryFieldFromItsRowAndSubRows)
{
    SQLiteSpec sqlite;
    sqlite.dynamicsStatements = {"UPDATE item_stats SET play_count_recent = 2, skip_count_user = 3, "
                                 "skip_count_recent = 4, date_played = -1"};
    sqlite.libraryStatements = {"UPDATE album SET season_number = 6", "UPDATE container SET date_created = -1",
                                "UPDATE item SET date_modified = -2, comment = CAST(x'C0AF' AS TEXT)"};
    DatabaseSpec db{.tracks = {TrackSpec{
        .trackID = 7, .compilation = 1, .rating = 80, .fileSize = 4321, .trackLength = 200000, .trackNumber = 3,
        .trackTotal = 12, .year = 2011, .bitrate = 256, .sampleRate = 44100, .volume = 5, .startTime = 10,
        .endTime = 190000, .soundcheckValue = 1234, .playCount = 9, .discNumber = 1, .discTotal = 2,
        .dbid = 0x1122334455667788ULL, .checked = 1, .BPM = 128, .isMovie = 1, .hasBeenPlayed = 1,
        .mediaType = 2, .seasonNumber = 4, .albumID = 55, .artworkLink = 0xABC,
        .title = "Title", .location = ":iPod_Control:Music:F07:ABCD.m4v", .album = "Album", .artist = "Artist",
        .genre = "Genre", .EQSetting = "Rock", .comment = "Comment", .composer = "Composer",
        .grouping = "Grouping", .description = "Description", .albumArtist = "Album Artist"}},
                    .playlists = {list("List", 3, 0, false, {7})}};
    auto library = load(db, sqlite);
    const iPodTrack& track = *onlyTrack(*library);
    EXPECT_EQ(trackFields(track), "1432778632 1234605616436508552 1 80 4321 200000 10 190000 3/12 1/2 2011 256 "
                                  "44100 5 1234 11 128 2 55 2748|Title|Album|Artist|Album Artist|Genre|-|Rock|"
                                  "-|-|Composer|Grouping|Description|"
                                  "/Volumes/Device/iPod_Control/Music/F07/ABCD.m4v");
    EXPECT_EQ(track.lastPlayedTime(), Date(4294967295.0));
    EXPECT_EQ(track.lastModified(), Date(4294967294.0));
    EXPECT_EQ(library->allPlaylists().at(0)->creationDate(), Date(-1));
}

// The tables beside the item table are read whole, once per load; each track must still get
// the row its own query would answer. Repeated keys answer in the query's order (the primary
// key's, not the order of insertion), and keys that are not integers match no integer.
TEST_F(SQLiteLoad, SubRowsAnswerAsTheirQueriesDo)
{
    SQLiteSpec sqlite;
    sqlite.libraryStatements = {"INSERT INTO avformat_info (item_pid, sub_id, bit_rate) VALUES (2, -1, 999)"};
    sqlite.locationsStatements = {"UPDATE location SET item_pid = 3.5 WHERE item_pid = 3"};
    DatabaseSpec db;
    for (std::uint32_t id = 1; id <= 3; ++id) {
        TrackSpec track{.trackID = id, .fileSize = 1000 + id, .bitrate = 128};
        track.location = ":iPod_Control:Music:F00:" + std::to_string(id) + ".mp3";
        track.genre = "Rock";
        db.tracks.push_back(track);
    }
    auto library = load(db, sqlite);
    std::vector<std::string> seen;
    for (const auto& t : library->allTracks())
        seen.push_back(std::to_string(t->bitrate()) + " " + std::to_string(t->fileSize()) + " " +
                       t->genre().value_or("-") + " " + t->filePath().value_or("-"));
    EXPECT_EQ(seen, (std::vector<std::string>{"128 1001 Rock /Volumes/Device/iPod_Control/Music/F00/1.mp3",
                                              "999 1002 Rock /Volumes/Device/iPod_Control/Music/F00/2.mp3",
                                              "128 0 Rock -"}));
}

// Two libraries in one process (a desktop showing two iPods) each show their own device's
// sub-rows: genre, statistics and file location come from the files each was loaded from, and
// the first load's files are let go of (nothing keeps its connections open).
TEST_F(SQLiteLoad, EachLoadTakesSubRowsFromItsOwnFiles)
{
    const Folder firstFolder = write({.tracks = {{.trackID = 1, .playCount = 3, .title = "First",
                                                  .location = ":iPod_Control:Music:F00:A.mp3", .genre = "Rock"}}},
                                     {}, "first");
    auto first = load(firstFolder);
    std::size_t stillOpen = 0;
    for (const auto& fd : fs::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        stillOpen += fs::read_symlink(fd.path(), ignored).string().starts_with(firstFolder.path) ? 1 : 0;
    }
    EXPECT_EQ(stillOpen, 0u);
    fs::remove_all(firstFolder.path);
    auto second = load(write({.tracks = {{.trackID = 1, .playCount = 8, .title = "Second",
                                          .location = ":iPod_Control:Music:F01:B.mp3", .genre = "Jazz"}}},
                             {}, "second"));
    for (const auto& [library, title, genre, plays, file] :
         {std::tuple{first, "First", "Rock", 3u, "F00/A.mp3"}, std::tuple{second, "Second", "Jazz", 8u, "F01/B.mp3"}}) {
        EXPECT_EQ(onlyTrack(*library)->title(), title);
        EXPECT_EQ(onlyTrack(*library)->genre(), genre);
        EXPECT_EQ(onlyTrack(*library)->playCount(), plays);
        EXPECT_THAT(onlyTrack(*library)->filePath().value_or(""), testing::EndsWith(file));
    }
}

TEST_F(SQLiteLoad, PathsWithURICharactersStillNameTheirFiles)
{
    // The folder of an AFC copy or a mount point may hold anything a URI would read as syntax.
    const Folder folder = write({.tracks = {{.trackID = 1, .title = "Found"}}}, {}, "iTunes Library.itlp ?mode=rwc#x%41%2");
    EXPECT_EQ(onlyTrack(*load(folder))->title(), "Found");
    // Nothing was created under a name cut off at the '?' or '#'.
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_.path()), fs::directory_iterator()), 1);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path), fs::directory_iterator()), 4);
}

/// Both formats on one volume, from the same description: the binary one has a master
/// playlist, the SQLite one never has, which tells which database was read.
VolumeSpec dualDevice()
{
    static int counter = 0;
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 1, .title = "One", .location = ":iPod_Control:Music:F00:ONE.mp3"},
                 TrackSpec{.trackID = 2, .title = "Two", .location = ":iPod_Control:Music:F01:TWO.mp3"}};
    db.playlists = {PlaylistSpec{.name = "Dual iPod", .master = 1, .playlistID = 100, .items = {1, 2}}, list("Mix", 101, 0, false, {2})};
    return VolumeSpec{.database = db, .sysInfo = sysInfoText("ZQSQ" + std::to_string(++counter) + "Y5N"),
                      .format = LibraryFormat::Both};
}

class SQLiteDevice : public SQLiteLoad {
protected:
    std::shared_ptr<ZQCoreiPod> open(const VolumeSpec& volume) { return loadVolume(dir_.file("volume"), volume); }
};

/// A database file that is damaged on the device: garbage, or cut short.
struct DamageCase {
    const char* label;
    const char* file;
    std::function<std::string(const std::string&)> damage; ///< new contents from the old
};

void PrintTo(const DamageCase& c, std::ostream* out) { *out << c.label; }

class DamagedDatabase : public SQLiteDevice, public testing::WithParamInterface<DamageCase> {};

TEST_P(DamagedDatabase, LoadsWhatItCanOrFallsBackWithoutCrashing)
{
    VolumeSpec volume = dualDevice();
    for (std::uint32_t id = 3; id < 400; ++id) // enough rows to span many pages
        volume.database->tracks.push_back(TrackSpec{.trackID = id, .title = std::string(200, 'x')});
    writeVolume(dir_.file("volume"), volume);
    const std::string path = sqliteLibraryFolder(dir_.file("volume")) + "/" + GetParam().file;
    auto contents = Data::contentsOfFile(path);
    ASSERT_TRUE(contents);
    volume.files[fs::relative(path, dir_.file("volume"))] = Data(GetParam().damage(std::string(contents->stringView())));
    auto library = open(volume);
    // Either the SQLite databases gave what they could, or the binary database took over.
    EXPECT_LE(library->allTracks().size(), volume.database->tracks.size());
    for (const auto& track : library->allTracks())
        EXPECT_FALSE(track->description().empty());
}

std::string half(const std::string& s) { return s.substr(0, s.size() / 2); }

INSTANTIATE_TEST_SUITE_P(
    SQLite, DamagedDatabase,
    testing::Values(
        DamageCase{"LibraryIsNoDatabase", "Library.itdb", [](const std::string&) { return std::string(4096, '\x5A'); }},
        DamageCase{"LibraryCutInHalf", "Library.itdb", half},
        DamageCase{"LibraryHeaderOnly", "Library.itdb", [](const std::string& s) { return s.substr(0, 100); }},
        DamageCase{"LibraryPagesScrambled", "Library.itdb",
                   [](std::string s) {
                       for (std::size_t i = 4096; i < s.size(); i += 97)
                           s[i] = static_cast<char>(s[i] ^ 0x5A);
                       return s;
                   }},
        DamageCase{"LocationsCutInHalf", "Locations.itdb", half},
        DamageCase{"DynamicEmpty", "Dynamic.itdb", [](const std::string&) { return std::string(); }}),
    caseName<DamageCase>);

} // namespace
} // namespace zq
