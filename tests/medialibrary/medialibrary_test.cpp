// The library of an iOS 5+ phone read from a folder holding its file system (an ifuse mount or
// a copy of one): the whole library against its description for both layouts of
// MediaLibrary.sqlitedb, columns and tables that a release lacks, damaged databases, and
// zqpod copy off such a folder.

#include "tests/medialibrary/PhoneLibrary.h"
#include "tests/tools/ToolProcess.h"

#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Exception.h"

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>

namespace zq::test {
namespace {

namespace fs = std::filesystem;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

std::shared_ptr<ZQCoreiPod> openFolder(const std::string& root)
{
    return ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(root));
}

/// Every file below `root` with its size and modification time: what must not change when a
/// library is read.
std::map<std::string, std::pair<std::uintmax_t, fs::file_time_type>> snapshot(const std::string& root)
{
    std::map<std::string, std::pair<std::uintmax_t, fs::file_time_type>> files;
    for (const auto& entry : fs::recursive_directory_iterator(root))
        files[entry.path().string()] = {entry.is_regular_file() ? entry.file_size() : 0, entry.last_write_time()};
    return files;
}

/// The database copies a load leaves in the temporary directory (there must be none).
std::set<std::string> leftCopies()
{
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(g_get_tmp_dir()))
        if (entry.path().filename().string().starts_with("zq-medialibrary-"))
            names.insert(entry.path().filename().string());
    return names;
}

/// Loads copy the database into the temporary directory; each test gets one of its own, so that
/// what another test process leaves there meanwhile (ctest runs them side by side) is not taken
/// for a copy this load forgot. GLib reads TMPDIR once per process, at its first use.
template <typename Param>
class WithOwnTemporaryDirectory : public ::testing::TestWithParam<Param> {
protected:
    void SetUp() override
    {
        const char* previous = std::getenv("TMPDIR");
        previous_ = previous ? std::optional<std::string>(previous) : std::nullopt;
        ::setenv("TMPDIR", temporary_.path().c_str(), 1);
    }
    void TearDown() override
    {
        if (previous_)
            ::setenv("TMPDIR", previous_->c_str(), 1);
        else
            ::unsetenv("TMPDIR");
    }

private:
    TempDir temporary_;
    std::optional<std::string> previous_;
};

class PhoneFolderLibrary : public WithOwnTemporaryDirectory<MediaLibraryGeneration> {};

TEST_P(PhoneFolderLibrary, LoadsAsItsDescriptionSaysWithTheWALApplied)
{
    TempDir root;
    const PhoneSpec phone = makeSamplePhone(GetParam());
    writePhone(root.path(), phone);
    // The newest statistics and two playlists are still frames of the WAL.
    ASSERT_GT(fs::file_size(root.file("iTunes_Control/iTunes/MediaLibrary.sqlitedb-wal")), 0u);
    const auto before = snapshot(root.path());
    const auto copiesBefore = leftCopies();

    auto library = openFolder(root.path());

    EXPECT_EQ(describeLibrary(*library, phone), expectLibrary(phone, root.path()));
    EXPECT_EQ(snapshot(root.path()), before);  // nothing written to the phone
    EXPECT_EQ(leftCopies(), copiesBefore);
    const auto& first = library->allTracks().front();
    EXPECT_EQ(first->contentsOfTrackFile()->stringView(),
              phone.files.at(relativePathOfLocation(*phone.database.tracks.front().location)).stringView());
}

INSTANTIATE_TEST_SUITE_P(Generations, PhoneFolderLibrary,
                         ::testing::Values(MediaLibraryGeneration::Modern, MediaLibraryGeneration::IOS6,
                                           MediaLibraryGeneration::IOS8),
                         [](const auto& generation) { return generationName(generation.param); });

// ---- what a release lacks gives absent values, never a failure -------------------------------

struct MissingCase {
    const char* name;
    std::string statement;
    std::string absent;   ///< text the library words no longer hold
    std::string present;  ///< text they still hold
};
void PrintTo(const MissingCase& c, std::ostream* out) { *out << c.name; }

class MediaLibraryWithoutParts : public ::testing::TestWithParam<MissingCase> {};

TEST_P(MediaLibraryWithoutParts, LeaveTheirValuesAbsent)
{
    TempDir root;
    PhoneSpec phone = makeSamplePhone(MediaLibraryGeneration::Modern);
    phone.statements = {GetParam().statement};
    writePhone(root.path(), phone);

    const std::string words = describeLibrary(*openFolder(root.path()), phone);

    EXPECT_THAT(words, Not(HasSubstr(GetParam().absent)));
    EXPECT_THAT(words, HasSubstr(GetParam().present));
    EXPECT_THAT(words, HasSubstr("Harbour Song"));
}

INSTANTIATE_TEST_SUITE_P(
    Modern, MediaLibraryWithoutParts,
    ::testing::Values(
        MissingCase{"GroupingColumn", "ALTER TABLE item_extra DROP COLUMN grouping", "'Sunrise'", "year 2011"},
        MissingCase{"PlaybackTable", "DROP TABLE item_playback", "bitrate 88", "rate 0 "},
        MissingCase{"AlbumArtistTable", "DROP TABLE album_artist", "| 'Various Artists' |", "'Summer Hits 2012'"},
        MissingCase{"StatsTable", "DROP TABLE item_stats", "plays 31", "plays 0 "},
        MissingCase{"BestArtworkTokens", "DROP TABLE best_artwork_token", "unreadable", "120x120 ok"},
        MissingCase{"AllArtworkTokens", "DROP TABLE best_artwork_token; DROP TABLE artwork_token", "120x120", "art -"},
        MissingCase{"ContainerItems", "DROP TABLE container_item", "Quiet Evenings': ", "playlist 'Quiet Evenings':\n"},
        MissingCase{"ContainerDates", "ALTER TABLE container DROP COLUMN date_created", "playlist 'Quiet Evenings':\n",
                    "Quiet Evenings': "},
        MissingCase{"ItemKeyNamedPid", "ALTER TABLE item RENAME COLUMN item_pid TO pid", "rate 0 ", "'Harbour Song'"}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

// ---- a damaged database is an error with a reason, and leaves no copy behind -----------------

struct DamageCase {
    const char* name;
    std::function<void(const std::string& database)> damage;
    const char* reason;
};
void PrintTo(const DamageCase& c, std::ostream* out) { *out << c.name; }

class DamagedMediaLibrary : public WithOwnTemporaryDirectory<DamageCase> {};

TEST_P(DamagedMediaLibrary, IsReportedClearly)
{
    TempDir root;
    const PhoneSpec phone = makeSamplePhone(MediaLibraryGeneration::Modern);
    writePhone(root.path(), phone);
    const std::string database = root.file("iTunes_Control/iTunes/MediaLibrary.sqlitedb");
    fs::remove(database + "-wal");
    fs::remove(database + "-shm");
    GetParam().damage(database);
    const auto copiesBefore = leftCopies();

    try {
        openFolder(root.path());
        ADD_FAILURE() << "a damaged database loaded";
    } catch (const Exception& error) {
        EXPECT_THAT(error.name(), EndsWith(".SQLiteFailed"));
        EXPECT_EQ(error.kind(), ErrorKind::Damaged);
        EXPECT_THAT(error.reason(), HasSubstr("(MediaLibrary.sqlitedb) could not be read"));
        EXPECT_THAT(error.reason(), HasSubstr(GetParam().reason));
    }
    EXPECT_EQ(leftCopies(), copiesBefore);

    const auto run = zqpod({"library", root.path()});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, HasSubstr(GetParam().reason));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DamagedMediaLibrary,
    ::testing::Values(
        DamageCase{"NotADatabase",
                   [](const std::string& path) { std::ofstream(path, std::ios::binary) << std::string(8192, 'x'); },
                   "file is not a database"},
        DamageCase{"CutShort", [](const std::string& path) { fs::resize_file(path, 4096 * 3); }, "malformed"},
        DamageCase{"PagesOverwritten",
                   [](const std::string& path) {
                       std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
                       file.seekp(4096 * 2);
                       file << std::string(4096 * 6, '\xA5');
                   },
                   "may be damaged"}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

// ---- zqpod copy off a phone's folder ---------------------------------------------------------

TEST(PhoneFolderCopy, CopiesEveryLocalTrackAndNamesTheCloudOnes)
{
    TempDir root, out;
    const PhoneSpec phone = makeSamplePhone(MediaLibraryGeneration::Modern);
    writePhone(root.path(), phone);

    const auto run = zqpod({"copy", root.path(), out.path()});

    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, HasSubstr("not on the device: Nimbus/Only In The Cloud/01 Streamed Dawn"));
    EXPECT_THAT(run.out, HasSubstr("Copied 13 files"));
    EXPECT_THAT(run.out, HasSubstr("failed 0; 2 not on the device"));
    std::multiset<std::string> copied, expected;
    for (const auto& name : filesBelow(out.path()))
        copied.insert(contentsOf(out.file(name)));
    for (const auto& [path, contents] : phone.files)
        expected.insert(std::string(contents.stringView()));
    EXPECT_TRUE(copied == expected);
    EXPECT_TRUE(filesBelow(out.path()).contains("The Hollow Pines/Northern Lights/01 Harbour Song.wav"));
}

} // namespace
} // namespace zq::test
