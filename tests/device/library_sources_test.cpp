// Libraries as other people's devices and programs write them, and folders that hold none: the
// first iPods' plain playlist list, strings padded with NUL characters, and every way a folder
// can fail to hold a library (each an error with a reason, never an empty library).

#include "ZQCore/model/Podcasts.h"
#include "ZQCore/reader/TrackListBuilder.h"
#include "ZQCore/reader/WalkLimits.h"
#include "tests/support/TestLibrary.h"
#include "tests/tools/ToolProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>

namespace {

using namespace zq::test;
using ::testing::HasSubstr;
using ::testing::Not;
namespace fs = std::filesystem;

// ---- the first iPods: only the plain playlist list -------------------------------------------

DatabaseSpec earlyIPodLibrary()
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 5, .mediaType = 1, .title = "Five", .album = "Numbers"},
                 TrackSpec{.trackID = 6, .mediaType = 4, .title = "Episode 1", .album = "The Show"},
                 TrackSpec{.trackID = 7, .mediaType = 4, .title = "Other 1", .album = "Other Show"},
                 TrackSpec{.trackID = 8, .mediaType = 4, .title = "Episode 2", .album = "The Show"},
                 TrackSpec{.trackID = 9, .mediaType = 4, .title = "Lost Episode"}};
    db.playlists = {PlaylistSpec{.name = "IPOD", .master = 1, .items = {5, 6, 7, 8, 9}},
                    PlaylistSpec{.name = "Mix", .items = {6, 5, 6}},
                    PlaylistSpec{.name = "Podcasts", .podcast = 1, .items = {6, 7, 8, 9}}};
    return db;
}

TEST(EarlyIPodLibrary, TakesItsPlaylistsAndNameFromThePlainList)
{
    // As iTunes of 2003-2005 wrote it: the track list and the plain playlist list, nothing else.
    DatabaseSpec db = earlyIPodLibrary();
    db.dataSets = {1, 2};
    TempDir dir;
    auto library = loadDatabase(dir.path(), db);

    EXPECT_EQ(zq::ZQCoreiPodRef::initWithPath(dir.path())->name(), "IPOD");
    EXPECT_EQ(library->name(), "IPOD");
    ASSERT_EQ(library->allPlaylists().size(), 3u);
    EXPECT_TRUE(library->masterPlaylist());
    EXPECT_EQ(idsOf(library->masterPlaylist()->tracks()), (Ids{5, 6, 7, 8, 9}));
    EXPECT_EQ(idsOf(library->allPlaylists()[1]->tracks()), (Ids{6, 5, 6}));
    // The plain list names episodes without show headers: each goes to the show of its album, in
    // the order the shows first appear; one without an album belongs to no show.
    auto podcasts = library->podcasts();
    ASSERT_TRUE(podcasts);
    ASSERT_EQ(podcasts->podcasts().size(), 2u);
    EXPECT_EQ(podcasts->podcasts()[0]->name(), "The Show");
    EXPECT_EQ(idsOf(podcasts->podcasts()[0]->tracks()), (Ids{6, 8}));
    EXPECT_EQ(podcasts->podcasts()[1]->name(), "Other Show");
    EXPECT_EQ(idsOf(podcasts->podcasts()[1]->tracks()), (Ids{7}));
    EXPECT_TRUE(library->loadWarnings().empty());
}

TEST(EarlyIPodLibrary, TheGroupedListWinsWhereBothAreThere)
{
    // A later database has both lists; they may differ, and the grouped one is the one read.
    DatabaseSpec db = earlyIPodLibrary();
    std::vector<PlaylistSpec> plain = {PlaylistSpec{.name = "Old Name", .master = 1, .items = {5}}};
    db.dataSets = {1, DataSet::withPlaylists(2, plain), 3};
    TempDir dir;
    auto library = loadDatabase(dir.path(), db);
    EXPECT_EQ(library->name(), "IPOD");
    EXPECT_EQ(zq::ZQCoreiPodRef::initWithPath(dir.path())->name(), "IPOD");
    EXPECT_EQ(library->allPlaylists().size(), 3u);
}

TEST(EarlyIPodLibrary, ADamagedPlainListCostsThePlaylistsNotTheTracks)
{
    DatabaseSpec db = earlyIPodLibrary();
    db.dataSets = {1, 2};
    zq::Data bytes = buildITunesDB(db);
    // Cut inside the second playlist's header: the track list before it is whole.
    const std::string_view view = bytes.stringView();
    const std::size_t second = view.find("mhyp", view.find("mhyp") + 4);
    ASSERT_NE(second, std::string_view::npos);
    TempDir dir;
    auto library = loadVolume(dir.path(), VolumeSpec{.rawITunesDB = bytes.subdata(0, second + 20)});
    EXPECT_EQ(library->allTracks().size(), 5u);
    EXPECT_TRUE(library->allPlaylists().empty());
    ASSERT_EQ(library->loadWarnings().size(), 1u);
    EXPECT_THAT(library->loadWarnings()[0], HasSubstr("playlists of the library database could not be read"));
}

// ---- strings padded with NUL characters ------------------------------------------------------

TEST(NULPaddedStrings, LoseTheirPaddingInEveryWalkAndHandOver)
{
    using namespace std::string_literals;
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 5, .title = "Padded\0\0\0"s, .location = ":iPod_Control:Music:F00:A.mp3\0\0"s,
                           .album = "Ünïcode\0"s, .artist = "Inner\0Kept"s},
                 TrackSpec{.trackID = 6, .title = "\0\0"s, .album = "Plain"}};
    db.playlists = {PlaylistSpec{.name = "Phone\0\0"s, .master = 1, .items = {5, 6}},
                    PlaylistSpec{.name = "Casts\0"s, .podcast = 1, .items = {PlaylistItem::group("Show\0\0"s), 6}}};
    db.dataSets = {1, 3};
    const std::string expected = "Padded|Ünïcode|Inner"s + '\0' + "Kept|/F00/A.mp3|" + "|Plain|-";
    auto fields = [](const zq::ZQCoreiPod& library) {
        const auto& a = library.allTracks().at(0);
        const auto& b = library.allTracks().at(1);
        std::string path = a->filePath().value_or("-");
        path = path.substr(path.find("/F00"));
        return a->title().value_or("-") + "|" + a->album().value_or("-") + "|" + a->artist().value_or("-") + "|" +
               path + "|" + b->title().value_or("-") + "|" + b->album().value_or("-") + "|" +
               b->artist().value_or("-");
    };
    const zq::Data bytes = buildITunesDB(db);
    for (auto handover : {zq::TrackListBuilder::Handover::Adaptive, zq::TrackListBuilder::Handover::WholeRecords}) {
        for (bool inPlace : {true, false}) {
            zq::TrackListBuilder::handover = handover;
            zq::walkReadsPlainRecordsInPlace = inPlace;
            TempDir dir;
            auto library = loadVolume(dir.path(), VolumeSpec{.rawITunesDB = bytes});
            EXPECT_EQ(fields(*library), expected) << "in place " << inPlace;
            EXPECT_EQ(library->name(), "Phone");
            EXPECT_EQ(library->podcasts()->name(), "Casts");
            EXPECT_EQ(library->podcasts()->podcasts().at(0)->name(), "Show");
            EXPECT_EQ(zq::ZQCoreiPodRef::initWithPath(dir.path())->name(), "Phone");
        }
    }
    zq::TrackListBuilder::handover = zq::TrackListBuilder::Handover::Adaptive;
    zq::walkReadsPlainRecordsInPlace = true;

    // Nor do they reach the listing that people and programs read.
    TempDir dir;
    writeVolume(dir.path(), VolumeSpec{.rawITunesDB = bytes});
    for (const auto& args : {std::vector<std::string>{"library", dir.path()},
                             std::vector<std::string>{"library", dir.path(), "--json"}}) {
        const auto run = zqpod(args);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_THAT(run.out, HasSubstr("Phone"));
        EXPECT_THAT(run.out, Not(HasSubstr("Phone\\u0000")));
        EXPECT_THAT(run.out, Not(HasSubstr("Padded\\u0000")));
        EXPECT_THAT(run.out, Not(HasSubstr("Padded"s + '\0')));
    }
}

// ---- folders that hold no library ------------------------------------------------------------

struct NoLibraryCase {
    const char* name;
    /// Lays the case out in `root` and answers the path to name on the command line.
    std::function<std::string(const std::string& root)> make;
    const char* message;  ///< what zqpod says on standard error
};
void PrintTo(const NoLibraryCase& c, std::ostream* out) { *out << c.name; }

std::string randomBytes(std::size_t size, unsigned seed)
{
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (auto& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

std::string deviceWithDatabase(const std::string& root, const std::string& contents)
{
    writeVolume(root, VolumeSpec{.rawITunesDB = zq::Data(contents.data(), contents.size())});
    return root;
}

class NoLibrary : public ::testing::TestWithParam<NoLibraryCase> {};

TEST_P(NoLibrary, IsAnErrorThatSaysWhatIsThere)
{
    TempDir dir, out;
    const std::string path = GetParam().make(dir.path());
    for (const auto& args : {std::vector<std::string>{"library", path}, std::vector<std::string>{"library", path, "--json"},
                             std::vector<std::string>{"copy", path, out.path()}}) {
        const auto run = zqpod(args);
        EXPECT_EQ(run.status, 1) << args[0] << ": " << run.out << run.err;
        EXPECT_THAT(run.err, HasSubstr(GetParam().message)) << args[0];
        EXPECT_THAT(run.out, Not(HasSubstr("Copied 0 files")));
        EXPECT_THAT(run.out, Not(HasSubstr("\"tracks\"")));
    }
    EXPECT_TRUE(fs::is_empty(out.path()));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, NoLibrary,
    ::testing::Values(
        NoLibraryCase{"EmptyFolder", [](const std::string& root) { return root; },
                      "is not an iPod or iPhone: it holds no iPod_Control folder"},
        NoLibraryCase{"RegularFile",
                      [](const std::string& root) {
                          std::ofstream(root + "/passwd") << "root:x:0:0:root:/root:/bin/bash\n";
                          return root + "/passwd";
                      },
                      "is not a device: it is a file"},
        NoLibraryCase{"DeviceNeverSynced",
                      [](const std::string& root) {
                          fs::create_directories(root + "/iPod_Control/iTunes");
                          return root;
                      },
                      "no music library on this device yet"},
        NoLibraryCase{"PhoneNeverSynced",
                      [](const std::string& root) {
                          fs::create_directories(root + "/iTunes_Control/iTunes");
                          return root;
                      },
                      "no music library on this device yet"},
        NoLibraryCase{"ZeroLengthDatabase", [](const std::string& root) { return deviceWithDatabase(root, ""); },
                      "The library database iPod_Control/iTunes/iTunesDB is empty (0 bytes)."},
        NoLibraryCase{"DatabaseIsAFolder",
                      [](const std::string& root) {
                          fs::create_directories(root + "/iPod_Control/iTunes/iTunesDB");
                          return root;
                      },
                      "The library database iPod_Control/iTunes/iTunesDB is not a file."},
        NoLibraryCase{"RandomBytes",
                      [](const std::string& root) { return deviceWithDatabase(root, randomBytes(4096, 7)); },
                      "iPod_Control/iTunes/iTunesDB is not a library database: it does not begin with \"mhbd\""},
        NoLibraryCase{"TruncatedDatabase",
                      [](const std::string& root) {
                          const zq::Data whole = buildITunesDB(earlyIPodLibrary());
                          return deviceWithDatabase(root, std::string(whole.stringView().substr(0, 400)));
                      },
                      "The library database iPod_Control/iTunes/iTunesDB is damaged: Length requested is greater "
                      "than the remaining data."}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

TEST(NoLibrary, RandomDatabasesNeverLoadAsLibraries)
{
    // Thirty random files in the database's place: none reads as a library.
    for (unsigned seed = 1; seed <= 30; ++seed) {
        TempDir dir;
        deviceWithDatabase(dir.path(), randomBytes(4096, seed));
        expectThrown([&] { zq::ZQCoreiPod::initWithiPodReference(zq::ZQCoreiPodRef::initWithPath(dir.path())); },
                     "ZQCoreiPodLibraryUnreadableException");
    }
    // Nor does one that begins as a database and goes on at random: its data sets are not there.
    for (unsigned seed = 1; seed <= 30; ++seed) {
        TempDir dir;
        deviceWithDatabase(dir.path(), "mhbd" + randomBytes(4092, seed));
        try {
            zq::ZQCoreiPod::initWithiPodReference(zq::ZQCoreiPodRef::initWithPath(dir.path()));
            ADD_FAILURE() << "random bytes loaded as a library, seed " << seed;
        } catch (const zq::Exception& error) {
            EXPECT_THAT(error.reason(), HasSubstr("iPod_Control/iTunes/iTunesDB")) << seed;
        }
    }
}

TEST(NoLibrary, TheLibraryObjectSaysWhichDatabaseItCameFrom)
{
    TempDir synced, never;
    auto library = loadDatabase(synced.path(), DatabaseSpec{.tracks = {}, .playlists = {}});
    EXPECT_EQ(library->librarySource(), zq::ZQCoreiPod::LibrarySource::iTunesDB);
    EXPECT_TRUE(library->allTracks().empty());  // a library of 0 tracks is a library

    fs::create_directories(never.path() + "/iPod_Control/iTunes");
    auto empty = zq::ZQCoreiPod::initWithiPodReference(zq::ZQCoreiPodRef::initWithPath(never.path()));
    EXPECT_EQ(empty->librarySource(), zq::ZQCoreiPod::LibrarySource::None);
    EXPECT_STREQ(zq::ZQCoreiPod::librarySourceName(empty->librarySource()), "");
    EXPECT_STREQ(zq::ZQCoreiPod::librarySourceName(library->librarySource()), "iTunesDB");
}

TEST(NoLibrary, AnUnreadableDatabaseIsNamedWithItsReason)
{
    if (::geteuid() == 0)
        GTEST_SKIP() << "root reads a file whatever its permissions say";
    TempDir dir;
    writeVolume(dir.path(), VolumeSpec{.database = DatabaseSpec{}});
    fs::permissions(dir.path() + "/iPod_Control/iTunes/iTunesDB", fs::perms::none);
    const auto run = zqpod({"library", dir.path()});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, HasSubstr("iPod_Control/iTunes/iTunesDB cannot be read: Permission denied"));
}

} // namespace
