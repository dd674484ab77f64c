// Loading a library from the four SQLite databases of "iTunes Library.itlp": real database
// files written by the image builder, read back through the framework's loader.

#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Application.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/Log.h"
#include "ZQCore/model/PlaylistFolder.h"
#include "ZQCore/model/Podcasts.h"
#include "ZQCore/model/PurchasedPlaylist.h"
#include "ZQCore/model/SmartPlaylist.h"
#include "ZQCore/sqlite/SQLiteDatabase.h"
#include "tests/support/DeviceImage.h"

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
using test::DatabaseSpec;
using test::LibraryFormat;
using test::PlaylistSpec;
using test::SQLiteSpec;
using test::TempDir;
using test::TrackSpec;
using test::VolumeSpec;

/// A library object that is not a mounted device: the loader is driven directly.
struct DetachedLibrary : ZQCoreiPod {
    explicit DetachedLibrary(std::string base) { iPodBasePath_ = std::move(base); }
};

struct Folder {
    std::string path;
    std::string library() const { return path + "/Library.itdb"; }
    std::string extras() const { return path + "/Extras.itdb"; }
    std::string locations() const { return path + "/Locations.itdb"; }
    std::string dynamics() const { return path + "/Dynamic.itdb"; }
};

/// Each test starts the way a fresh process does: no sub-query prepared yet.
class SQLiteLoad : public testing::Test {
protected:
    void SetUp() override { SQLiteStatementCache::forgetCachedStatements(); }
    void TearDown() override { SQLiteStatementCache::forgetCachedStatements(); }

    Folder write(const DatabaseSpec& db, const SQLiteSpec& sqlite = {}, const std::string& name = "itlp")
    {
        Folder folder{dir_.file(name)};
        test::writeSQLiteLibrary(folder.path, db, sqlite);
        return folder;
    }

    std::shared_ptr<DetachedLibrary> load(const Folder& folder)
    {
        auto library = std::make_shared<DetachedLibrary>("/Volumes/Device");
        EXPECT_TRUE(library->loadFromLocalSQLiteDatabase(folder.library(), folder.extras(), folder.locations(),
                                                         folder.dynamics()));
        return library;
    }

    std::shared_ptr<DetachedLibrary> load(const DatabaseSpec& db, const SQLiteSpec& sqlite = {})
    {
        return load(write(db, sqlite));
    }

    TempDir dir_;
};

std::shared_ptr<iPodTrack> onlyTrack(const ZQCoreiPod& library)
{
    EXPECT_EQ(library.allTracks().size(), 1u);
    return library.allTracks().empty() ? nullptr : library.allTracks()[0];
}

std::vector<std::uint32_t> idsOf(const Playlist::Tracks& tracks)
{
    std::vector<std::uint32_t> ids;
    for (const auto& track : tracks)
        ids.push_back(track->trackID());
    return ids;
}

/// Parameterised cases are named by their label.
template <class Case>
std::string caseName(const testing::TestParamInfo<Case>& param)
{
    return param.param.label;
}

// ---- the class of each container row ---------------------------------------------------------

/// One container row; NULL columns are spelled "NULL".
struct ContainerCase {
    const char* label;
    const char* dateCreated;
    int isHidden;
    int kind;
    int folder;
    const char* dynamic;
    const char* expected;  ///< "none", "playlist", "purchased", "folder" or "smart"
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
    db.playlists = {
        PlaylistSpec{.name = "Inner list", .creationTimestamp = 5000, .playlistID = 30, .items = {2, 3}, .parentID = 20},
        PlaylistSpec{.name = "Inner folder", .creationTimestamp = 5000, .playlistID = 20, .parentID = 10, .folder = true},
        PlaylistSpec{.name = "Outer folder", .creationTimestamp = 5000, .playlistID = 10, .folder = true},
        PlaylistSpec{.name = "Not a folder", .creationTimestamp = 5000, .playlistID = 40, .items = {1}},
        PlaylistSpec{.name = "Under a list", .creationTimestamp = 5000, .playlistID = 50, .items = {1}, .parentID = 40},
        PlaylistSpec{.name = "Orphan", .creationTimestamp = 5000, .playlistID = 60, .parentID = 999},
    };
    auto library = load(db);

    std::vector<std::string> top;
    for (const auto& playlist : library->allPlaylists())
        top.push_back(playlist->name().value_or("?"));
    EXPECT_EQ(top, (std::vector<std::string>{"Outer folder", "Not a folder", "Under a list", "Orphan"}));

    auto outer = std::dynamic_pointer_cast<PlaylistFolder>(library->allPlaylists()[0]);
    ASSERT_TRUE(outer);
    ASSERT_EQ(outer->playlists().size(), 1u);
    auto inner = std::dynamic_pointer_cast<PlaylistFolder>(outer->playlists()[0]);
    ASSERT_TRUE(inner);
    EXPECT_EQ(inner->name(), "Inner folder");
    ASSERT_EQ(inner->playlists().size(), 1u);
    EXPECT_EQ(inner->playlists()[0]->name(), "Inner list");
    EXPECT_EQ(idsOf(outer->tracks()), (std::vector<std::uint32_t>{2, 3}));
    EXPECT_EQ(library->allPlaylists()[2]->parentID(), 40u);
}

TEST_F(SQLiteLoad, FoldersThatWouldHoldThemselvesStayAtTheTopLevel)
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 1}};
    db.playlists = {
        PlaylistSpec{.name = "Self", .creationTimestamp = 5000, .playlistID = 10, .parentID = 10, .folder = true},
        PlaylistSpec{.name = "Ring A", .creationTimestamp = 5000, .playlistID = 20, .parentID = 30, .folder = true},
        PlaylistSpec{.name = "Ring B", .creationTimestamp = 5000, .playlistID = 30, .parentID = 20, .folder = true},
        PlaylistSpec{.name = "In ring", .creationTimestamp = 5000, .playlistID = 40, .items = {1}, .parentID = 20},
    };
    // A chain of folders deeper than any library has: the deepest ones stay at the top.
    for (std::uint64_t level = 0; level < 100; ++level)
        db.playlists.push_back(PlaylistSpec{.name = "Level", .creationTimestamp = 5000, .playlistID = 1000 + level,
                                            .parentID = level ? 999 + level : 0, .folder = true});
    auto library = load(db);

    std::set<std::string> top;
    for (const auto& playlist : library->allPlaylists()) {
        top.insert(playlist->name().value_or("?"));
        EXPECT_LE(playlist->tracks().size(), 1u);  // finishes: no folder reaches itself
        EXPECT_FALSE(playlist->description().empty());
    }
    EXPECT_TRUE(top.contains("Self"));
    EXPECT_TRUE(top.contains("Ring A"));
    EXPECT_TRUE(top.contains("Ring B"));
    EXPECT_TRUE(top.contains("In ring"));  // its ancestry never ends either
    EXPECT_LT(library->allPlaylists().size(), 100u);
}

TEST_F(SQLiteLoad, MembershipFollowsTheRowsWithDuplicatesAndSkipsUnknownItems)
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 1}, TrackSpec{.trackID = 2}};
    db.playlists = {
        PlaylistSpec{.name = "Mix", .creationTimestamp = 1000, .playlistID = 5, .items = {2, 1, 2, 404}},
        PlaylistSpec{.name = "Smart", .creationTimestamp = 1000, .playlistID = 6, .items = {1},
                     .smartPrefs = test::SmartPrefsSpec{}},
    };
    auto library = load(db);
    ASSERT_EQ(library->allPlaylists().size(), 2u);
    EXPECT_EQ(idsOf(library->allPlaylists()[0]->tracks()), (std::vector<std::uint32_t>{2, 1, 2}));
    EXPECT_EQ(idsOf(library->allPlaylists()[1]->tracks()), (std::vector<std::uint32_t>{1}));
}

TEST_F(SQLiteLoad, PodcastEpisodesGroupByAlbumAndEpisodesWithoutAlbumAreLeftOut)
{
    DatabaseSpec db;
    db.tracks = {
        TrackSpec{.trackID = 1, .mediaType = 4, .album = "Garden Talk"},
        TrackSpec{.trackID = 2, .mediaType = 4, .album = "The Morning Byte"},
        TrackSpec{.trackID = 3, .mediaType = 4},  // no album
        TrackSpec{.trackID = 4, .mediaType = 4, .album = "Garden Talk"},
        TrackSpec{.trackID = 5, .title = "A song"},
    };
    db.playlists = {PlaylistSpec{.name = "Podcasts", .podcast = 1, .playlistID = 9, .items = {1, 2, 3, 4}}};
    SQLiteSpec sqlite;
    sqlite.libraryStatements.push_back("INSERT INTO podcast_info (item_pid) VALUES (12345)");  // no such item
    auto library = load(db, sqlite);

    ASSERT_EQ(library->allPlaylists().size(), 1u);
    auto group = library->podcasts();
    ASSERT_TRUE(group);
    EXPECT_EQ(group, library->allPlaylists().back());
    ASSERT_EQ(group->podcasts().size(), 2u);
    EXPECT_EQ(group->podcasts()[0]->name(), "Garden Talk");
    EXPECT_EQ(idsOf(group->podcasts()[0]->tracks()), (std::vector<std::uint32_t>{1, 4}));
    EXPECT_EQ(group->podcasts()[1]->name(), "The Morning Byte");
    EXPECT_EQ(idsOf(group->tracks()), (std::vector<std::uint32_t>{1, 4, 2}));
}

TEST_F(SQLiteLoad, EmptyDatabasesGiveAnEmptyLibraryWithoutAPodcastGroup)
{
    auto library = load(DatabaseSpec{});
    EXPECT_TRUE(library->allTracks().empty());
    EXPECT_TRUE(library->allPlaylists().empty());
    EXPECT_FALSE(library->podcasts());
}

TEST_F(SQLiteLoad, SmartRowKeepsItsCodesAndOnlyExactOnesAreFlags)
{
    DatabaseSpec db;
    db.playlists = {PlaylistSpec{
        .name = "Smart",
        .creationTimestamp = 1000,
        .playlistID = 7,
        .smartPrefs = test::SmartPrefsSpec{.liveUpdating = 1, .enableRules = 2, .enableLimits = 1, .limitType = 9,
                                           .limitSort = 33, .limitValue = 250, .matchChecked = 1, .reverseLimitSort = 1},
        .smartRules = test::SmartRulesSpec{.conjunction = 1,
                                           .rules = {{.field = 2, .action = 0x01000002, .text = "Pines"},
                                                     {.field = 10, .action = 0x200, .fromValue = 3, .fromDate = -7,
                                                      .fromUnits = 86400, .toValue = 3, .toDate = -7, .toUnits = 1}}},
    }};
    auto library = load(db);
    ASSERT_EQ(library->allPlaylists().size(), 1u);
    auto smart = std::dynamic_pointer_cast<SmartPlaylist>(library->allPlaylists()[0]);
    ASSERT_TRUE(smart);
    EXPECT_TRUE(smart->liveUpdating());
    EXPECT_FALSE(smart->rulesEnabled());  // stored 2
    EXPECT_TRUE(smart->limitsEnabled());
    EXPECT_TRUE(smart->onlyMatchCheckedTracks());
    EXPECT_TRUE(smart->limitSortReversed());
    EXPECT_EQ(smart->limitType(), 9);
    EXPECT_EQ(smart->limitSortType(), 33);
    EXPECT_EQ(smart->limit(), 250);
    EXPECT_TRUE(smart->isOr());
    ASSERT_EQ(smart->rules().size(), 2u);
    EXPECT_EQ(smart->rules()[0]->ruleValue(), "Pines");
    EXPECT_TRUE(smart->rules()[1]->numericRuleIsDateStamp());
    EXPECT_EQ(smart->rules()[1]->fromDate(), -7);
    EXPECT_EQ(smart->rules()[1]->fromUnit(), 86400u);
}

/// A rule blob that is empty, cut short, or a header that promises more rules than it holds:
/// the playlist keeps its limit but gets no rules, and the load goes on.
struct BlobCase {
    const char* label;
    const char* blobSQL;
};

void PrintTo(const BlobCase& c, std::ostream* out) { *out << c.label; }

class SmartRuleBlob : public SQLiteLoad, public testing::WithParamInterface<BlobCase> {};

TEST_P(SmartRuleBlob, UnreadableBlobLeavesTheSmartPlaylistWithoutRules)
{
    DatabaseSpec db;
    db.playlists = {PlaylistSpec{.name = "Smart", .creationTimestamp = 1000, .playlistID = 7,
                                 .smartPrefs = test::SmartPrefsSpec{.enableLimits = 1, .limitValue = 25}}};
    SQLiteSpec sqlite;
    sqlite.libraryStatements.push_back(std::string("UPDATE container SET smart_criteria = ") + GetParam().blobSQL);
    auto library = load(db, sqlite);
    ASSERT_EQ(library->allPlaylists().size(), 1u);
    auto smart = std::dynamic_pointer_cast<SmartPlaylist>(library->allPlaylists()[0]);
    ASSERT_TRUE(smart);
    EXPECT_TRUE(smart->rules().empty());
    EXPECT_FALSE(smart->isOr());
    EXPECT_EQ(smart->limit(), 25);
}

INSTANTIATE_TEST_SUITE_P(SQLite, SmartRuleBlob,
                         testing::Values(BlobCase{"Empty", "x''"}, BlobCase{"Null", "NULL"},
                                         BlobCase{"ShorterThanItsHeader", "x'534C737400010001'"},
                                         BlobCase{"PromisesRulesItLacks",
                                                  "x'534C7374000100010000000500000001' || zeroblob(120)"}),
                         caseName<BlobCase>);

TEST_F(SQLiteLoad, PlaylistDatesAreSignedAndTrackDatesUnsigned)
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 1, .title = "t", .location = ":iPod_Control:Music:F00:A.mp3"}};
    db.playlists = {PlaylistSpec{.name = "List", .creationTimestamp = 1000, .playlistID = 3}};
    SQLiteSpec sqlite;
    sqlite.libraryStatements = {"UPDATE container SET date_created = -1", "UPDATE item SET date_modified = -2"};
    sqlite.dynamicsStatements = {"UPDATE item_stats SET date_played = -1, date_skipped = 0"};
    sqlite.locationsStatements = {"UPDATE location SET date_created = 4294967295"};  // -1 as 32 bits
    auto library = load(db, sqlite);

    ASSERT_EQ(library->allPlaylists().size(), 1u);
    EXPECT_EQ(library->allPlaylists()[0]->creationDate(), Date(-1));
    auto track = onlyTrack(*library);
    ASSERT_TRUE(track);
    EXPECT_EQ(track->lastPlayedTime(), Date(4294967295.0));
    EXPECT_EQ(track->lastModified(), Date(4294967294.0));
    EXPECT_EQ(track->dateAdded(), Date(4294967295.0));
    EXPECT_EQ(track->lastSkippedTime(), Date(0));  // a stored 0 is the reference date, not "none"
    EXPECT_EQ(track->dateReleased(), std::nullopt);
}

// ---- tracks --------------------------------------------------------------------------------

struct ClampCase {
    const char* label;
    const char* stored;
    std::uint32_t expected;
};

void PrintTo(const ClampCase& c, std::ostream* out) { *out << c.label; }

class DurationClamp : public SQLiteLoad, public testing::WithParamInterface<ClampCase> {};

TEST_P(DurationClamp, MillisecondColumnsAreClampedTo32Bits)
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 1}};
    SQLiteSpec sqlite;
    const std::string v = GetParam().stored;
    sqlite.libraryStatements = {"UPDATE item SET total_time_ms = " + v + ", start_time_ms = " + v +
                                ", stop_time_ms = " + v};
    auto track = onlyTrack(*load(db, sqlite));
    ASSERT_TRUE(track);
    EXPECT_EQ(track->trackLength(), GetParam().expected);
    EXPECT_EQ(track->startTime(), GetParam().expected);
    EXPECT_EQ(track->endTime(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(SQLite, DurationClamp,
                         testing::Values(ClampCase{"Negative", "-5", 0}, ClampCase{"Null", "NULL", 0},
                                         ClampCase{"FractionTruncated", "1234.9", 1234},
                                         ClampCase{"Largest", "4294967295", 4294967295u},
                                         ClampCase{"BeyondThirtyTwoBits", "5000000000.0", 4294967295u},
                                         ClampCase{"Text", "'250000'", 250000}),
                         caseName<ClampCase>);

TEST_F(SQLiteLoad, TrackTakesEveryFieldFromItsRowAndSubRows)
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{
        .trackID = 7, .compilation = 1, .rating = 80, .fileSize = 4321, .trackLength = 200000, .trackNumber = 3,
        .trackTotal = 12, .year = 2011, .bitrate = 256, .sampleRate = 44100, .volume = 5, .startTime = 10,
        .endTime = 190000, .soundcheckValue = 1234, .playCount = 9, .discNumber = 1, .discTotal = 2,
        .dbid = 0x1122334455667788ULL, .checked = 1, .BPM = 128, .isMovie = 1, .hasBeenPlayed = 1,
        .mediaType = 2, .seasonNumber = 4, .albumID = 55, .artworkLink = 0xABC,
        .title = "Title", .location = ":iPod_Control:Music:F07:ABCD.m4v", .album = "Album", .artist = "Artist",
        .genre = "Genre", .EQSetting = "Rock", .comment = "Comment", .composer = "Composer",
        .grouping = "Grouping", .description = "Description", .albumArtist = "Album Artist"}};
    SQLiteSpec sqlite;
    // Plays and skips recorded since the last sync count too; the album's season wins.
    sqlite.dynamicsStatements = {"UPDATE item_stats SET play_count_recent = 2, skip_count_user = 3, "
                                 "skip_count_recent = 4"};
    sqlite.libraryStatements = {"UPDATE album SET season_number = 6"};
    auto track = onlyTrack(*load(db, sqlite));
    ASSERT_TRUE(track);
    EXPECT_EQ(track->dbid(), 0x1122334455667788ULL);
    EXPECT_EQ(track->trackID(), 0x55667788u);
    EXPECT_EQ(track->title(), "Title");
    EXPECT_EQ(track->album(), "Album");
    EXPECT_EQ(track->artist(), "Artist");
    EXPECT_EQ(track->albumArtist(), "Album Artist");
    EXPECT_EQ(track->trackDescription(), "Description");
    EXPECT_EQ(track->grouping(), "Grouping");
    EXPECT_EQ(track->composer(), "Composer");
    EXPECT_EQ(track->comment(), "Comment");
    EXPECT_EQ(track->EQSetting(), "Rock");
    EXPECT_EQ(track->genre(), "Genre");
    EXPECT_EQ(track->filePath(), "/Volumes/Device/iPod_Control/Music/F07/ABCD.m4v");
    EXPECT_EQ(track->fileType(), std::nullopt);
    EXPECT_EQ(track->trackLength(), 200000u);
    EXPECT_EQ(track->startTime(), 10u);
    EXPECT_EQ(track->endTime(), 190000u);
    EXPECT_EQ(track->trackNumber(), 3u);
    EXPECT_EQ(track->trackTotal(), 12u);
    EXPECT_EQ(track->year(), 2011u);
    EXPECT_EQ(track->BPM(), 128);
    EXPECT_EQ(track->discNumber(), 1u);
    EXPECT_EQ(track->discTotal(), 2u);
    EXPECT_EQ(track->volume(), 5u);
    EXPECT_EQ(track->mediaType(), 2);
    EXPECT_EQ(track->albumID(), 55u);
    EXPECT_TRUE(track->compilation());
    EXPECT_EQ(track->bitrate(), 256u);
    EXPECT_EQ(track->sampleRate(), 44100u);
    EXPECT_EQ(track->soundcheckValue(), 1234u);
    EXPECT_EQ(track->fileSize(), 4321u);
    EXPECT_EQ(track->playCount(), 11u);
    EXPECT_EQ(track->rating(), 80);
    EXPECT_EQ(track->artworkLink(), 0xABCu);
}

/// Where the file of a track is: only a base folder and a name together make a path.
struct PathCase {
    const char* label;
    const char* basePath;  ///< SQL value of base_location.path
    const char* location;  ///< SQL value of location.location
    std::optional<std::string> expected;
};

void PrintTo(const PathCase& c, std::ostream* out) { *out << c.label; }

class TrackFilePath : public SQLiteLoad, public testing::WithParamInterface<PathCase> {};

TEST_P(TrackFilePath, JoinsMountPointBaseFolderAndName)
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 1, .location = ":iPod_Control:Music:F00:A.mp3"}};
    SQLiteSpec sqlite;
    sqlite.locationsStatements = {std::string("UPDATE base_location SET path = ") + GetParam().basePath,
                                  std::string("UPDATE location SET location = ") + GetParam().location};
    auto track = onlyTrack(*load(db, sqlite));
    ASSERT_TRUE(track);
    EXPECT_EQ(track->filePath(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    SQLite, TrackFilePath,
    testing::Values(PathCase{"Plain", "'iTunes_Control/Music/F12'", "'XYZW.mp3'",
                             "/Volumes/Device/iTunes_Control/Music/F12/XYZW.mp3"},
                    PathCase{"ExtraSeparators", "'/iTunes_Control/Music/F12/'", "'/XYZW.mp3'",
                             "/Volumes/Device/iTunes_Control/Music/F12/XYZW.mp3"},
                    PathCase{"EmptyBaseFolder", "''", "'XYZW.mp3'", std::nullopt},
                    PathCase{"NullBaseFolder", "NULL", "'XYZW.mp3'", std::nullopt},
                    PathCase{"EmptyName", "'iTunes_Control/Music/F12'", "''", std::nullopt},
                    PathCase{"NotUTF8", "'iTunes_Control/Music/F12'", "CAST(x'FF41' AS TEXT)", std::nullopt}),
    caseName<PathCase>);

TEST_F(SQLiteLoad, MissingSubRowsLeaveDefaultsAndUncheckedComesFromTheDisabledFlag)
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 1, .title = "Bare"}};
    SQLiteSpec sqlite;
    sqlite.libraryStatements = {"DELETE FROM avformat_info", "UPDATE item SET is_user_disabled = 2, is_movie = 2, "
                                                             "is_compilation = 2, title = CAST(x'C0AF' AS TEXT)"};
    sqlite.dynamicsStatements = {"DELETE FROM item_stats"};
    auto track = onlyTrack(*load(db, sqlite));
    ASSERT_TRUE(track);
    EXPECT_EQ(track->title(), std::nullopt);  // an overlong form is not UTF-8
    EXPECT_FALSE(track->compilation());
    EXPECT_EQ(track->bitrate(), 0u);
    EXPECT_EQ(track->playCount(), 0u);
    EXPECT_EQ(track->lastPlayedTime(), std::nullopt);
    EXPECT_EQ(track->filePath(), std::nullopt);
    EXPECT_EQ(track->genre(), std::nullopt);
}

// ---- failures ------------------------------------------------------------------------------

TEST_F(SQLiteLoad, MissingItemStatsTableRaisesWithSQLitesMessage)
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 1}, TrackSpec{.trackID = 2}};
    SQLiteSpec sqlite;
    sqlite.dynamicsStatements = {"DROP TABLE item_stats"};
    const Folder folder = write(db, sqlite);
    auto library = std::make_shared<DetachedLibrary>("/Volumes/Device");
    try {
        library->loadFromLocalSQLiteDatabase(folder.library(), folder.extras(), folder.locations(), folder.dynamics());
        ADD_FAILURE() << "no exception";
    } catch (const Exception& error) {
        EXPECT_EQ(error.name(), applicationIdentifier() + ".SQLiteFailed");
        EXPECT_EQ(error.reason(), "Failed to prepare statement with message 'no such table: item_stats'.");
    }
    EXPECT_TRUE(library->allTracks().empty());
}

TEST_F(SQLiteLoad, MissingFileLoadsNothingAndStillAnswersYes)
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 1}};
    SQLiteSpec sqlite;
    sqlite.omittedFiles = {"Extras.itdb"};
    const Folder folder = write(db, sqlite);
    auto library = std::make_shared<DetachedLibrary>("/Volumes/Device");
    library->addTrack(iPodTrack::initWithParent(library));
    EXPECT_TRUE(library->loadFromLocalSQLiteDatabase(folder.library(), folder.extras(), folder.locations(),
                                                     folder.dynamics()));
    EXPECT_EQ(library->allTracks().size(), 1u);  // the track it had, not the database's
    EXPECT_EQ(library->allTracks()[0]->trackID(), 0u);
    EXPECT_FALSE(fs::exists(folder.extras()));    // and nothing was created in its place
}

TEST_F(SQLiteLoad, PathsWithURICharactersStillNameTheirFiles)
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 1, .title = "Found"}};
    // The folder of an AFC copy or a mount point may hold anything a URI would read as syntax.
    const Folder folder = write(db, {}, "iTunes Library.itlp ?mode=rwc#x%41%2");
    auto track = onlyTrack(*load(folder));
    ASSERT_TRUE(track);
    EXPECT_EQ(track->title(), "Found");
    // Nothing was created under a name cut off at the '?' or '#'.
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_.path()), fs::directory_iterator()), 1);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path), fs::directory_iterator()), 4);
}

TEST_F(SQLiteLoad, SubQueriesStayWithTheFilesOfTheFirstLoadOfTheProcess)
{
    auto genreLibrary = [](const std::string& genre) {
        DatabaseSpec db;
        db.tracks = {TrackSpec{.trackID = 1, .genre = genre}};
        return db;
    };
    const Folder first = write(genreLibrary("First genre"), {}, "first");
    const Folder second = write(genreLibrary("Second genre"), {}, "second");

    EXPECT_EQ(onlyTrack(*load(first))->genre(), "First genre");
    // The second load reads its own item rows, but its sub-queries still run on the first
    // load's connection.
    EXPECT_EQ(onlyTrack(*load(second))->genre(), "First genre");
    SQLiteStatementCache::forgetCachedStatements();
    EXPECT_EQ(onlyTrack(*load(second))->genre(), "Second genre");
}

// ---- through the device's load sequence ------------------------------------------------------

std::string serialEndingIn(const std::string& suffix)
{
    static int counter = 0;
    return "ZQSQ" + std::to_string(++counter) + suffix;
}

/// Both formats on one volume, from the same description: the binary one has a master
/// playlist, the SQLite one never has, which tells which database was read.
VolumeSpec dualDevice()
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 1, .title = "One", .location = ":iPod_Control:Music:F00:ONE.mp3"},
                 TrackSpec{.trackID = 2, .title = "Two", .location = ":iPod_Control:Music:F01:TWO.mp3"}};
    db.playlists = {PlaylistSpec{.name = "Dual iPod", .master = 1, .playlistID = 100, .items = {1, 2}},
                    PlaylistSpec{.name = "Mix", .creationTimestamp = 1000, .playlistID = 101, .items = {2}}};
    return VolumeSpec{.database = db, .sysInfo = test::sysInfoText(serialEndingIn("Y5N")), .format = LibraryFormat::Both};
}

class SQLiteDevice : public SQLiteLoad {
protected:
    std::shared_ptr<ZQCoreiPod> open(const VolumeSpec& volume)
    {
        test::writeVolume(dir_.file("volume"), volume);
        return ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(dir_.file("volume")));
    }
};

TEST_F(SQLiteDevice, AllFourDatabasesAreReadInsteadOfITunesDB)
{
    auto library = open(dualDevice());
    EXPECT_FALSE(library->masterPlaylist());
    EXPECT_EQ(library->name(), "Dual iPod");
    ASSERT_EQ(library->allTracks().size(), 2u);
    EXPECT_EQ(library->allTracks()[1]->filePath(), dir_.file("volume") + "/iPod_Control/Music/F01/TWO.mp3");
    ASSERT_EQ(library->allPlaylists().size(), 1u);
    EXPECT_EQ(library->allPlaylists()[0]->name(), "Mix");
}

TEST_F(SQLiteDevice, MissingFourthDatabaseFallsBackToITunesDB)
{
    VolumeSpec volume = dualDevice();
    volume.sqlite.omittedFiles = {"Dynamic.itdb"};
    auto library = open(volume);
    ASSERT_TRUE(library->masterPlaylist());
    EXPECT_EQ(library->allTracks().size(), 2u);
    EXPECT_EQ(library->allPlaylists().size(), 2u);
}

TEST_F(SQLiteDevice, FailedSQLiteLoadIsLoggedAndFallsBackToITunesDB)
{
    VolumeSpec volume = dualDevice();
    volume.sqlite.libraryStatements = {"DROP TABLE genre_map"};
    std::vector<std::string> logged;
    auto previous = setLogHandler([&](const std::string& line) { logged.push_back(line); });
    auto library = open(volume);
    setLogHandler(previous);
    ASSERT_TRUE(library->masterPlaylist());
    EXPECT_EQ(library->allPlaylists().size(), 2u);
    ASSERT_EQ(logged.size(), 1u);
    EXPECT_NE(logged[0].find("no such table: genre_map"), std::string::npos) << logged[0];
}

/// A database file that is damaged on the device: garbage, or cut short.
struct DamageCase {
    const char* label;
    const char* file;
    std::function<std::string(const std::string&)> damage;  ///< new contents from the old
};

void PrintTo(const DamageCase& c, std::ostream* out) { *out << c.label; }

class DamagedDatabase : public SQLiteDevice, public testing::WithParamInterface<DamageCase> {};

TEST_P(DamagedDatabase, LoadsWhatItCanOrFallsBackWithoutCrashing)
{
    VolumeSpec volume = dualDevice();
    for (std::uint32_t id = 3; id < 400; ++id)  // enough rows to span many pages
        volume.database->tracks.push_back(TrackSpec{.trackID = id, .title = std::string(200, 'x')});
    test::writeVolume(dir_.file("volume"), volume);
    const std::string path = test::sqliteLibraryFolder(dir_.file("volume")) + "/" + GetParam().file;
    auto contents = Data::contentsOfFile(path);
    ASSERT_TRUE(contents);
    const std::string damaged = GetParam().damage(std::string(contents->stringView()));
    volume.files[fs::relative(path, dir_.file("volume"))] = Data(damaged);
    auto library = open(volume);
    // Either the SQLite databases gave what they could, or the binary database took over.
    EXPECT_LE(library->allTracks().size(), volume.database->tracks.size());
    for (const auto& track : library->allTracks())
        EXPECT_FALSE(track->description().empty());
}

INSTANTIATE_TEST_SUITE_P(
    SQLite, DamagedDatabase,
    testing::Values(
        DamageCase{"LibraryIsNoDatabase", "Library.itdb", [](const std::string&) { return std::string(4096, '\x5A'); }},
        DamageCase{"LibraryCutInHalf", "Library.itdb", [](const std::string& s) { return s.substr(0, s.size() / 2); }},
        DamageCase{"LibraryHeaderOnly", "Library.itdb", [](const std::string& s) { return s.substr(0, 100); }},
        DamageCase{"LibraryPagesScrambled", "Library.itdb",
                   [](std::string s) {
                       for (std::size_t i = 4096; i < s.size(); i += 97)
                           s[i] = static_cast<char>(s[i] ^ 0x5A);
                       return s;
                   }},
        DamageCase{"LocationsCutInHalf", "Locations.itdb", [](const std::string& s) { return s.substr(0, s.size() / 2); }},
        DamageCase{"DynamicEmpty", "Dynamic.itdb", [](const std::string&) { return std::string(); }}),
    caseName<DamageCase>);

/// Every file of a folder with its size and contents.
std::map<std::string, std::string> snapshot(const std::string& folder)
{
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::directory_iterator(folder)) {
        auto data = Data::contentsOfFile(entry.path());
        files[entry.path().filename()] = data ? std::string(data->stringView()) : std::string("<unreadable>");
    }
    return files;
}

TEST_F(SQLiteDevice, DatabasesAreReadWithoutLeavingAnyFileBesideThem)
{
    VolumeSpec volume = dualDevice();
    test::writeVolume(dir_.file("volume"), volume);
    const std::string folder = test::sqliteLibraryFolder(dir_.file("volume"));
    // A library in WAL mode is where a merely read-only connection would still create its
    // -shm and -wal files.
    {
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open((folder + "/Library.itdb").c_str(), &db), SQLITE_OK);
        ASSERT_EQ(sqlite3_exec(db, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(db);
    }
    const auto before = snapshot(folder);
    ASSERT_EQ(before.size(), 4u);
    auto library = ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(dir_.file("volume")));
    EXPECT_EQ(library->allTracks().size(), 2u);
    EXPECT_FALSE(library->masterPlaylist());
    EXPECT_EQ(snapshot(folder), before);
}

} // namespace
} // namespace zq
