// Loading a library from the four SQLite databases of "iTunes Library.itlp": real database
// files written by the image builder, read back through the framework's loader.

#include "ZQCore/foundation/Application.h"
#include "ZQCore/model/PlaylistFolder.h"
#include "ZQCore/model/Podcasts.h"
#include "ZQCore/model/PurchasedPlaylist.h"
#include "ZQCore/model/SmartPlaylist.h"
#include "ZQCore/sqlite/SQLiteDatabase.h"
#include "tests/support/TestLibrary.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
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

/// Each test starts the way a fresh process does: no sub-query prepared yet.
class SQLiteLoad : public testing::Test {
protected:
    void SetUp() override { SQLiteStatementCache::forgetCachedStatements(); }
    void TearDown() override { SQLiteStatementCache::forgetCachedStatements(); }

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
    PlaylistSpec spec{.name = name, .creationTimestamp = 5000, .playlistID = id, .parentID = parent, .folder = folder};
    for (auto item : items)
        spec.items.push_back(item);
    return spec;
}

// ---- the class of each container row ---------------------------------------------------------

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

// ---- playlists -----------------------------------------------------------------------------

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

TEST_F(SQLiteLoad, MembershipKeepsDuplicatesAndPodcastsGroupByAlbumSkippingNullAlbums)
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 1, .mediaType = 4, .album = "Garden Talk"},
                 TrackSpec{.trackID = 2, .mediaType = 4, .album = "The Morning Byte"},
                 TrackSpec{.trackID = 3, .mediaType = 4}, // no album
                 TrackSpec{.trackID = 4, .mediaType = 4, .album = "Garden Talk"}, TrackSpec{.trackID = 5}};
    db.playlists = {list("Mix", 5, 0, false, {2, 1, 2, 404}),
                    PlaylistSpec{.name = "Podcasts", .podcast = 1, .playlistID = 9, .items = {1, 2, 3, 4}}};
    SQLiteSpec sqlite;
    sqlite.libraryStatements.push_back("INSERT INTO podcast_info (item_pid) VALUES (12345)"); // no such item
    auto library = load(db, sqlite);
    ASSERT_EQ(library->allPlaylists().size(), 2u);
    EXPECT_EQ(idsOf(library->allPlaylists()[0]->tracks()), (Ids{2, 1, 2}));
    auto group = library->podcasts();
    ASSERT_TRUE(group);
    EXPECT_EQ(group, library->allPlaylists().back());
    EXPECT_EQ(namesOf(group->podcasts()), (std::vector<std::string>{"Garden Talk", "The Morning Byte"}));
    EXPECT_EQ(idsOf(group->podcasts()[0]->tracks()), (Ids{1, 4}));
    EXPECT_EQ(idsOf(group->tracks()), (Ids{1, 4, 2}));
    SQLiteStatementCache::forgetCachedStatements();
    EXPECT_FALSE(load(write(DatabaseSpec{}, {}, "empty"))->podcasts()) << "no podcast group without podcasts";
}

TEST_F(SQLiteLoad, SmartRowKeepsItsCodesAndOnlyExactOnesAreFlags)
{
    DatabaseSpec db;
    db.playlists = {PlaylistSpec{
        .name = "Smart", .creationTimestamp = 1000, .playlistID = 7,
        .smartPrefs = SmartPrefsSpec{.liveUpdating = 1, .enableRules = 2, .enableLimits = 1, .limitType = 9,
                                     .limitSort = 33, .limitValue = 250, .matchChecked = 1, .reverseLimitSort = 1},
        .smartRules = SmartRulesSpec{.conjunction = 1,
                                     .rules = {{.field = 2, .action = 0x01000002, .text = "Pines"},
                                               {.field = 10, .action = 0x200, .fromValue = 3, .fromDate = -7,
                                                .fromUnits = 86400, .toValue = 3, .toDate = -7, .toUnits = 1}}},
    }};
    auto smart = std::dynamic_pointer_cast<SmartPlaylist>(load(db)->allPlaylists().at(0));
    ASSERT_TRUE(smart);
    EXPECT_TRUE(smart->liveUpdating() && smart->limitsEnabled() && smart->onlyMatchCheckedTracks() &&
                smart->limitSortReversed() && smart->isOr());
    EXPECT_FALSE(smart->rulesEnabled()); // stored 2
    EXPECT_EQ(std::tuple(smart->limitType(), smart->limitSortType(), smart->limit()), std::tuple(9, 33, 250));
    ASSERT_EQ(smart->rules().size(), 2u);
    EXPECT_EQ(smart->rules()[0]->ruleValue(), "Pines");
    EXPECT_TRUE(smart->rules()[1]->numericRuleIsDateStamp());
    EXPECT_EQ(smart->rules()[1]->fromDate(), -7);
    EXPECT_EQ(smart->rules()[1]->fromUnit(), 86400u);
}

// A rule blob that is empty, cut short, or promises more rules than it holds: the playlist keeps
// its limit but gets no rules, and the load goes on.
TEST_F(SQLiteLoad, UnreadableRuleBlobLeavesTheSmartPlaylistWithoutRules)
{
    int n = 0;
    for (const char* blob : {"x''", "NULL", "x'534C737400010001'", "x'534C7374000100010000000500000001' || zeroblob(120)"}) {
        DatabaseSpec db;
        db.playlists = {PlaylistSpec{.name = "Smart", .creationTimestamp = 1000, .playlistID = 7,
                                     .smartPrefs = SmartPrefsSpec{.enableLimits = 1, .limitValue = 25}}};
        SQLiteSpec sqlite{.libraryStatements = {std::string("UPDATE container SET smart_criteria = ") + blob}};
        SQLiteStatementCache::forgetCachedStatements();
        auto smart = std::dynamic_pointer_cast<SmartPlaylist>(load(write(db, sqlite, "blob" + std::to_string(++n)))->allPlaylists().at(0));
        ASSERT_TRUE(smart) << blob;
        EXPECT_TRUE(smart->rules().empty()) << blob;
        EXPECT_FALSE(smart->isOr()) << blob;
        EXPECT_EQ(smart->limit(), 25) << blob;
    }
}

TEST_F(SQLiteLoad, PlaylistDatesAreSignedAndTrackDatesUnsigned)
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 1, .location = ":iPod_Control:Music:F00:A.mp3"}};
    db.playlists = {list("List", 3)};
    SQLiteSpec sqlite;
    sqlite.libraryStatements = {"UPDATE container SET date_created = -1", "UPDATE item SET date_modified = -2"};
    sqlite.dynamicsStatements = {"UPDATE item_stats SET date_played = -1, date_skipped = 0"};
    sqlite.locationsStatements = {"UPDATE location SET date_created = 4294967295"}; // -1 as 32 bits
    auto library = load(db, sqlite);
    EXPECT_EQ(library->allPlaylists().at(0)->creationDate(), Date(-1));
    auto track = onlyTrack(*library);
    EXPECT_EQ(track->lastPlayedTime(), Date(4294967295.0));
    EXPECT_EQ(track->lastModified(), Date(4294967294.0));
    EXPECT_EQ(track->dateAdded(), Date(4294967295.0));
    EXPECT_EQ(track->lastSkippedTime(), Date(0)); // a stored 0 is the reference date, not "none"
    EXPECT_EQ(track->dateReleased(), std::nullopt);
}

// ---- tracks --------------------------------------------------------------------------------

TEST_F(SQLiteLoad, MillisecondColumnsAreClampedTo32Bits)
{
    const std::vector<std::pair<const char*, std::uint32_t>> cases = {
        {"-5", 0}, {"NULL", 0}, {"1234.9", 1234}, {"4294967295", 4294967295u}, {"5000000000.0", 4294967295u},
        {"'250000'", 250000}};
    int n = 0;
    for (const auto& [stored, expected] : cases) {
        const std::string v = stored;
        SQLiteStatementCache::forgetCachedStatements();
        auto library = load(write(DatabaseSpec{.tracks = {{.trackID = 1}}},
                                  {.libraryStatements = {"UPDATE item SET total_time_ms = " + v + ", start_time_ms = " +
                                                         v + ", stop_time_ms = " + v}},
                                  "clamp" + std::to_string(++n)));
        auto track = onlyTrack(*library);
        EXPECT_EQ(std::tuple(track->trackLength(), track->startTime(), track->endTime()),
                  std::tuple(expected, expected, expected)) << stored;
    }
}

TEST_F(SQLiteLoad, TrackTakesEveryFieldFromItsRowAndSubRows)
{
    SQLiteSpec sqlite;
    // Plays recorded since the last sync count too; the album's season wins.
    sqlite.dynamicsStatements = {"UPDATE item_stats SET play_count_recent = 2, skip_count_user = 3, "
                                 "skip_count_recent = 4"};
    sqlite.libraryStatements = {"UPDATE album SET season_number = 6"};
    auto track = loadOne(TrackSpec{
        .trackID = 7, .compilation = 1, .rating = 80, .fileSize = 4321, .trackLength = 200000, .trackNumber = 3,
        .trackTotal = 12, .year = 2011, .bitrate = 256, .sampleRate = 44100, .volume = 5, .startTime = 10,
        .endTime = 190000, .soundcheckValue = 1234, .playCount = 9, .discNumber = 1, .discTotal = 2,
        .dbid = 0x1122334455667788ULL, .checked = 1, .BPM = 128, .isMovie = 1, .hasBeenPlayed = 1,
        .mediaType = 2, .seasonNumber = 4, .albumID = 55, .artworkLink = 0xABC,
        .title = "Title", .location = ":iPod_Control:Music:F07:ABCD.m4v", .album = "Album", .artist = "Artist",
        .genre = "Genre", .EQSetting = "Rock", .comment = "Comment", .composer = "Composer",
        .grouping = "Grouping", .description = "Description", .albumArtist = "Album Artist"}, sqlite);
    EXPECT_EQ(trackFields(*track), "1432778632 1234605616436508552 1 80 4321 200000 10 190000 3/12 1/2 2011 256 "
                                   "44100 5 1234 11 128 2 55 2748|Title|Album|Artist|Album Artist|Genre|-|Rock|"
                                   "Comment|-|Composer|Grouping|Description|"
                                   "/Volumes/Device/iPod_Control/Music/F07/ABCD.m4v");
}

// Only a base folder and a name together make a path.
TEST_F(SQLiteLoad, FilePathJoinsMountPointBaseFolderAndName)
{
    struct Case {
        const char *basePath, *location;
        std::optional<std::string> expected;
    };
    const Case cases[] = {
        {"'iTunes_Control/Music/F12'", "'XYZW.mp3'", "/Volumes/Device/iTunes_Control/Music/F12/XYZW.mp3"},
        {"'/iTunes_Control/Music/F12/'", "'/XYZW.mp3'", "/Volumes/Device/iTunes_Control/Music/F12/XYZW.mp3"},
        {"''", "'XYZW.mp3'", std::nullopt},
        {"NULL", "'XYZW.mp3'", std::nullopt},
        {"'iTunes_Control/Music/F12'", "''", std::nullopt},
        {"'iTunes_Control/Music/F12'", "CAST(x'FF41' AS TEXT)", std::nullopt}, // not UTF-8
    };
    int n = 0;
    for (const Case& c : cases) {
        SQLiteStatementCache::forgetCachedStatements();
        SQLiteSpec sqlite{.locationsStatements = {std::string("UPDATE base_location SET path = ") + c.basePath,
                                                  std::string("UPDATE location SET location = ") + c.location}};
        auto library = load(write({.tracks = {{.trackID = 1, .location = ":iPod_Control:Music:F00:A.mp3"}}}, sqlite,
                                  "path" + std::to_string(++n)));
        EXPECT_EQ(onlyTrack(*library)->filePath(), c.expected) << c.basePath << " " << c.location;
    }
}

TEST_F(SQLiteLoad, MissingSubRowsLeaveDefaultsAndOnlyExactOnesAreFlags)
{
    SQLiteSpec sqlite;
    sqlite.libraryStatements = {"DELETE FROM avformat_info", "UPDATE item SET is_user_disabled = 2, is_movie = 2, "
                                                             "is_compilation = 2, title = CAST(x'C0AF' AS TEXT)"};
    sqlite.dynamicsStatements = {"DELETE FROM item_stats"};
    auto track = loadOne(TrackSpec{.trackID = 1, .title = "Bare"}, sqlite);
    EXPECT_EQ(track->title(), std::nullopt); // an overlong form is not UTF-8
    EXPECT_FALSE(track->compilation());
    EXPECT_EQ(track->bitrate(), 0u);
    EXPECT_EQ(track->playCount(), 0u);
    EXPECT_EQ(track->lastPlayedTime(), std::nullopt);
}

// ---- failures ------------------------------------------------------------------------------

TEST_F(SQLiteLoad, MissingItemStatsTableRaisesWithSQLitesMessage)
{
    const Folder folder = write({.tracks = {{.trackID = 1}, {.trackID = 2}}},
                                {.dynamicsStatements = {"DROP TABLE item_stats"}});
    auto library = std::make_shared<DetachedLibrary>("/Volumes/Device");
    expectThrown([&] { folder.loadInto(*library); }, applicationIdentifier() + ".SQLiteFailed",
                 "Failed to prepare statement with message 'no such table: item_stats'.");
    EXPECT_TRUE(library->allTracks().empty());
}

TEST_F(SQLiteLoad, MissingFileLoadsNothingAndStillAnswersYes)
{
    const Folder folder = write({.tracks = {{.trackID = 1}}}, {.omittedFiles = {"Extras.itdb"}});
    auto library = std::make_shared<DetachedLibrary>("/Volumes/Device");
    library->addTrack(iPodTrack::initWithParent(library));
    EXPECT_TRUE(folder.loadInto(*library));
    EXPECT_EQ(idsOf(library->allTracks()), Ids{0}); // the track it had, not the database's
    EXPECT_FALSE(fs::exists(folder.file("Extras.itdb"))); // and nothing was created in its place
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

TEST_F(SQLiteLoad, SubQueriesStayWithTheFilesOfTheFirstLoadOfTheProcess)
{
    const Folder first = write({.tracks = {{.trackID = 1, .genre = "First genre"}}}, {}, "first");
    const Folder second = write({.tracks = {{.trackID = 1, .genre = "Second genre"}}}, {}, "second");
    EXPECT_EQ(onlyTrack(*load(first))->genre(), "First genre");
    // The second load reads its own item rows, but its sub-queries run on the first load's connection.
    EXPECT_EQ(onlyTrack(*load(second))->genre(), "First genre");
    SQLiteStatementCache::forgetCachedStatements();
    EXPECT_EQ(onlyTrack(*load(second))->genre(), "Second genre");
}

// ---- through the device's load sequence ------------------------------------------------------

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

TEST_F(SQLiteDevice, AllFourDatabasesAreReadInsteadOfITunesDB)
{
    auto library = open(dualDevice());
    EXPECT_FALSE(library->masterPlaylist());
    EXPECT_EQ(library->name(), "Dual iPod");
    ASSERT_EQ(library->allTracks().size(), 2u);
    EXPECT_EQ(library->allTracks()[1]->filePath(), dir_.file("volume") + "/iPod_Control/Music/F01/TWO.mp3");
    EXPECT_EQ(namesOf(library->allPlaylists()), std::vector<std::string>{"Mix"});
}

TEST_F(SQLiteDevice, MissingFourthDatabaseOrFailedLoadFallsBackToITunesDB)
{
    VolumeSpec missing = dualDevice();
    missing.sqlite.omittedFiles = {"Dynamic.itdb"};
    auto library = open(missing);
    ASSERT_TRUE(library->masterPlaylist());
    EXPECT_EQ(library->allPlaylists().size(), 2u);

    VolumeSpec failing = dualDevice();
    failing.sqlite.libraryStatements = {"DROP TABLE genre_map"};
    LogCapture log;
    SQLiteStatementCache::forgetCachedStatements();
    library = loadVolume(dir_.file("failing"), failing);
    ASSERT_TRUE(library->masterPlaylist());
    EXPECT_EQ(library->allPlaylists().size(), 2u);
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_NE(log.lines[0].find("no such table: genre_map"), std::string::npos) << log.lines[0];
}

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

TEST_F(SQLiteDevice, DatabasesAreReadWithoutLeavingAnyFileBesideThem)
{
    writeVolume(dir_.file("volume"), dualDevice());
    const std::string folder = sqliteLibraryFolder(dir_.file("volume"));
    // A library in WAL mode is where a merely read-only connection would still create its
    // -shm and -wal files.
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open((folder + "/Library.itdb").c_str(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
    auto snapshot = [&] {
        std::map<std::string, std::string> files;
        for (const auto& entry : fs::directory_iterator(folder))
            files[entry.path().filename()] = std::string(Data::contentsOfFile(entry.path())->stringView());
        return files;
    };
    const auto before = snapshot();
    ASSERT_EQ(before.size(), 4u);
    auto library = ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(dir_.file("volume")));
    EXPECT_EQ(library->allTracks().size(), 2u);
    EXPECT_FALSE(library->masterPlaylist());
    EXPECT_EQ(snapshot(), before);
}

} // namespace
} // namespace zq
