// A phone's MediaLibrary.sqlitedb as a real iPhone of the iOS 8 era writes it (the layout of
// makeSamplePhone(IOS8), built to the schema of such a phone): a virtual table SQLite cannot
// read, members packed in blobs, two numberings of media kinds; and tables that cannot be read,
// each costing only what it feeds.

#include "tests/medialibrary/PhoneLibrary.h"
#include "tests/support/TestLibrary.h"
#include "tests/tools/ToolProcess.h"

#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/medialibrary/MediaLibraryContainers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>

namespace zq::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

constexpr std::uint64_t kQuietEvenings = 0x4E2B9C0D11A07F03ULL;

std::shared_ptr<ZQCoreiPod> openFolder(const std::string& root)
{
    return ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(root));
}

std::string databaseOf(const TempDir& root) { return root.file("iTunes_Control/iTunes/MediaLibrary.sqlitedb"); }

/// SQLite's answer to `sql` on the database as written: the first column of the first row, or
/// SQLite's error message.
std::string ask(const std::string& database, const std::string& sql)
{
    sqlite3* db = nullptr;
    sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt* statement = nullptr;
    std::string answer;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK)
        answer = sqlite3_errmsg(db);
    else if (sqlite3_step(statement) == SQLITE_ROW && sqlite3_column_text(statement, 0))
        answer = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return answer;
}

const Playlist* playlistNamed(const ZQCoreiPod& library, const std::string& name)
{
    std::function<const Playlist*(const ZQCoreiPod::Playlists&)> find = [&](const auto& list) -> const Playlist* {
        for (const auto& playlist : list) {
            if (playlist->name() == name)
                return playlist.get();
            if (auto folder = std::dynamic_pointer_cast<PlaylistFolder>(playlist))
                if (auto inside = find(folder->playlists()))
                    return inside;
        }
        return nullptr;
    };
    return find(library.allPlaylists());
}

TEST(RealPhoneDatabase, ItsMembershipTableIsOneSQLiteCannotRead)
{
    // The fixture is only worth its name if SQLite here fails on the phone's virtual table as it
    // does on a real phone's file.
    TempDir root;
    writePhone(root.path(), makeSamplePhone(MediaLibraryGeneration::IOS8));
    EXPECT_THAT(ask(databaseOf(root), "PRAGMA table_info(item_to_container)"),
                HasSubstr("no such module: ML3ContainerItemToContainer"));
    EXPECT_EQ(ask(databaseOf(root), "SELECT length(item_pid_data) % 8 FROM container_items LIMIT 1"), "0");

    auto library = openFolder(root.path());
    EXPECT_TRUE(library->loadWarnings().empty());
    EXPECT_EQ(library->librarySource(), ZQCoreiPod::LibrarySource::MediaLibrary);
    // The device's own list is the master playlist, holding every track of the device.
    ASSERT_TRUE(library->masterPlaylist());
    EXPECT_EQ(library->masterPlaylist()->name(), "Sample iPhone");
    EXPECT_EQ(library->name(), "Sample iPhone");
    EXPECT_GT(library->masterPlaylist()->trackCount(), 10u);
    // A plain list keeps the phone's zeros in its smart columns and is still a plain list.
    const Playlist* quiet = playlistNamed(*library, "Quiet Evenings");
    ASSERT_NE(quiet, nullptr);
    EXPECT_STREQ(quiet->kind(), "playlist");
    EXPECT_STREQ(playlistNamed(*library, "Purchased")->kind(), "purchased");
    EXPECT_EQ(playlistNamed(*library, "Purchased")->trackCount(), 1u);
}

struct MediaKindCase {
    const char* name;
    std::vector<std::string> statements;
    std::vector<std::uint32_t> kinds;  ///< of the first song, the first episode and the last track
};
void PrintTo(const MediaKindCase& c, std::ostream* out) { *out << c.name; }

class RealPhoneMediaKinds : public ::testing::TestWithParam<MediaKindCase> {};

TEST_P(RealPhoneMediaKinds, AreCountedAsTheiTunesDBCountsThem)
{
    TempDir root;
    PhoneSpec phone = makeSamplePhone(MediaLibraryGeneration::IOS8);
    phone.statements = GetParam().statements;
    writePhone(root.path(), phone);
    auto library = openFolder(root.path());
    std::shared_ptr<iPodTrack> song, episode;
    for (const auto& track : library->allTracks()) {
        if (!song && track->title() == "Harbour Song")
            song = track;
        if (!episode && track->album() && track->album()->find("The Morning Byte") != std::string::npos)
            episode = track;
    }
    ASSERT_TRUE(song && episode);
    EXPECT_EQ((std::vector<std::uint32_t>{song->mediaType(), episode->mediaType(), library->allTracks().back()->mediaType()}),
              GetParam().kinds);
    // Episodes are grouped into shows whichever column said they are episodes.
    ASSERT_TRUE(library->podcasts());
    EXPECT_FALSE(library->podcasts()->podcasts().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Columns, RealPhoneMediaKinds,
    ::testing::Values(
        // Songs are 8 and episodes 4 in item.media_type, 1 and 4 in item_extra.media_kind.
        MediaKindCase{"BothColumns", {}, {1, 4, 1}},
        MediaKindCase{"OnlyTheMediaType", {"ALTER TABLE item_extra DROP COLUMN media_kind"}, {1, 4, 1}},
        // A code of item.media_type never seen on a device is no kind rather than a wrong one.
        MediaKindCase{"AnUnknownMediaType",
                      {"ALTER TABLE item_extra DROP COLUMN media_kind",
                       "UPDATE item SET media_type = 1024 WHERE item_pid = (SELECT max(item_pid) FROM item)"},
                      {1, 4, 0}},
        MediaKindCase{"MediaKindWinsOverMediaType", {"UPDATE item SET media_type = 1024"}, {1, 4, 1}}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

TEST(RealPhoneDatabase, PackedMembersKeepTheirOrderPastADamagedTail)
{
    TempDir plain, damaged;
    writePhone(plain.path(), makeSamplePhone(MediaLibraryGeneration::IOS8));
    PhoneSpec phone = makeSamplePhone(MediaLibraryGeneration::IOS8);
    // An item that is not in the library, then three stray bytes.
    phone.statements = {"UPDATE container_items SET item_pid_data = item_pid_data || x'0500000000000000' || "
                        "x'010203' WHERE container_pid = " + std::to_string(static_cast<std::int64_t>(kQuietEvenings))};
    writePhone(damaged.path(), phone);
    const auto members = [](const std::string& root) {
        auto library = openFolder(root);
        return idsOf(playlistNamed(*library, "Quiet Evenings")->tracks());
    };
    EXPECT_EQ(members(damaged.path()), members(plain.path()));
    EXPECT_EQ(members(plain.path()).size(), 4u);
}

TEST(RealPhoneDatabase, PackedPidsAreLittleEndianSignedAndStopBeforeADamagedTail)
{
    const std::vector<std::uint8_t> blob = {0x01, 0x02, 0, 0, 0, 0, 0, 0,                          // 513
                                            0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,        // -1
                                            0xEF, 0xCD, 0xAB, 0x89, 0x67, 0x45, 0x23, 0x81,        // high bit set
                                            0x07, 0x00, 0x00};                                     // damaged tail
    EXPECT_EQ(packedItemPids(blob), (std::vector<std::int64_t>{513, -1, static_cast<std::int64_t>(0x8123456789ABCDEFULL)}));
    EXPECT_TRUE(packedItemPids(std::span(blob).first(7)).empty());
    EXPECT_TRUE(packedItemPids({}).empty());
}

TEST(RealPhoneDatabase, AListWithAnEmptyRuleBlobIsStillPlain)
{
    TempDir root;
    PhoneSpec phone = makeSamplePhone(MediaLibraryGeneration::IOS8);
    phone.statements = {"UPDATE container SET smart_criteria = x'' WHERE container_pid = " +
                        std::to_string(static_cast<std::int64_t>(kQuietEvenings))};
    writePhone(root.path(), phone);
    auto library = openFolder(root.path());
    EXPECT_STREQ(playlistNamed(*library, "Quiet Evenings")->kind(), "playlist");
    EXPECT_STREQ(playlistNamed(*library, "Recent Favourites")->kind(), "smart");
}

TEST(UnreadableTable, LostLocationsAreUnknownNotCloud)
{
    // Without item_extra a recent phone's database says nowhere where its files are: the tracks
    // are listed, none is taken for one left in the cloud, and a copy fails them, saying why.
    TempDir root, out;
    PhoneSpec phone = makeSamplePhone(MediaLibraryGeneration::Modern);
    phone.statements = {"DROP TABLE item_extra"};
    writePhone(root.path(), phone);
    auto library = openFolder(root.path());
    ASSERT_FALSE(library->allTracks().empty());
    for (const auto& track : library->allTracks())
        EXPECT_FALSE(track->additionalData().contains(iPodTrack::kCloudOnlyKey));
    ASSERT_EQ(library->loadWarnings().size(), 1u);
    EXPECT_THAT(library->loadWarnings()[0], HasSubstr("holds no file locations"));
    const auto run = zqpod({"copy", root.path(), out.path()});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out + run.err, ::testing::Not(HasSubstr("only in the cloud")));
    EXPECT_THAT(run.err, HasSubstr("the library gives no file for this track"));  // a failure
}

// ---- a table that cannot be read costs what it feeds -----------------------------------------

/// The database with its WAL folded in, then the root page of `table` overwritten: reading its
/// rows fails with SQLite's "malformed".
void damageTable(const std::string& database, const std::string& table)
{
    sqlite3* db = nullptr;
    sqlite3_open(database.c_str(), &db);
    sqlite3_exec(db, "PRAGMA wal_checkpoint(TRUNCATE); PRAGMA journal_mode=DELETE;", nullptr, nullptr, nullptr);
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(db, ("SELECT rootpage FROM sqlite_master WHERE name = '" + table + "'").c_str(), -1,
                       &statement, nullptr);
    ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
    const std::int64_t page = sqlite3_column_int64(statement, 0);
    sqlite3_finalize(statement);
    sqlite3_close(db);
    std::fstream file(database, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp((page - 1) * 4096);
    file << std::string(4096, '\xA5');
}

struct UnreadableCase {
    const char* name;
    std::string table;
    std::string warning;
};
void PrintTo(const UnreadableCase& c, std::ostream* out) { *out << c.name; }

class UnreadableTable : public ::testing::TestWithParam<UnreadableCase> {};

TEST_P(UnreadableTable, CostsWhatItFeedsAndIsSaid)
{
    TempDir whole, root;
    writePhone(whole.path(), makeSamplePhone(MediaLibraryGeneration::Modern));
    writePhone(root.path(), makeSamplePhone(MediaLibraryGeneration::Modern));
    damageTable(databaseOf(root), GetParam().table);
    auto expected = openFolder(whole.path());
    auto library = openFolder(root.path());

    // Every track is there, with its title and file.
    ASSERT_EQ(library->allTracks().size(), expected->allTracks().size());
    auto relative = [](const std::optional<std::string>& path, const TempDir& root) {
        return path ? fs::path(*path).lexically_relative(root.path()).string() : std::string("-");
    };
    for (std::size_t i = 0; i < expected->allTracks().size(); ++i) {
        EXPECT_EQ(library->allTracks()[i]->title(), expected->allTracks()[i]->title());
        EXPECT_EQ(relative(library->allTracks()[i]->filePath(), root),
                  relative(expected->allTracks()[i]->filePath(), whole));
    }
    ASSERT_EQ(library->loadWarnings().size(), 1u);
    EXPECT_THAT(library->loadWarnings()[0], HasSubstr(GetParam().warning));
    EXPECT_TRUE(expected->loadWarnings().empty());

    const auto run = zqpod({"library", root.path()});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.err, HasSubstr("warning: " + GetParam().warning));
    EXPECT_THAT(run.out, HasSubstr("Tracks:        " + std::to_string(expected->allTracks().size()) + "\n"));
}

INSTANTIATE_TEST_SUITE_P(
    Tables, UnreadableTable,
    ::testing::Values(UnreadableCase{"Statistics", "item_stats", "The table item_stats of MediaLibrary.sqlitedb cannot be read"},
                      UnreadableCase{"Playlists", "container", "The playlists of MediaLibrary.sqlitedb could not be read"},
                      UnreadableCase{"Members", "container_item",
                                     "The playlists' tracks could not be read from MediaLibrary.sqlitedb"}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

TEST(UnreadableTable, TheStatisticsAreLeftOutNotGuessed)
{
    TempDir root;
    writePhone(root.path(), makeSamplePhone(MediaLibraryGeneration::Modern));
    damageTable(databaseOf(root), "item_stats");
    for (const auto& track : openFolder(root.path())->allTracks())
        EXPECT_EQ(track->playCount(), 0u) << track->title().value_or("?");
}

TEST(UnreadableTable, MembersBehindTheVirtualTableAloneAreLeftOutAndSaid)
{
    // Without its blobs, a real phone's database lists members only through the table SQLite
    // cannot read: the playlists stay, empty, and the warning says why.
    TempDir root;
    PhoneSpec phone = makeSamplePhone(MediaLibraryGeneration::IOS8);
    phone.statements = {"DROP TABLE container_items"};
    writePhone(root.path(), phone);
    auto library = openFolder(root.path());
    ASSERT_NE(playlistNamed(*library, "Quiet Evenings"), nullptr);
    EXPECT_EQ(playlistNamed(*library, "Quiet Evenings")->trackCount(), 0u);
    ASSERT_EQ(library->loadWarnings().size(), 1u);
    EXPECT_THAT(library->loadWarnings()[0], HasSubstr("item_to_container cannot be read (no such module"));
}

} // namespace
} // namespace zq::test
