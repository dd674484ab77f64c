// zqpod copy off a disk-mode volume that goes bad part-way through a track: a file that returns
// EIO, and a volume that vanishes (a FUSE file system that fails on cue, in a private mount
// namespace). The failed track is reported and never kept; a vanished volume stops the copy.

#include "tests/support/MountSandbox.h"
#include "tests/tools/ToolProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/mount.h>

#include <chrono>
#include <thread>

namespace zq::test {
namespace {

using ::testing::HasSubstr;
namespace fs = std::filesystem;

std::string trackBytes(int n) { return std::string(n == 2 ? 1000000 : 70000 + n, static_cast<char>('a' + n)); }
std::string copied(int n) { return "Artist " + std::to_string(n) + "/Album " + std::to_string(n) + "/01 Song " + std::to_string(n) + ".mp3"; }

VolumeSpec threeAlbums(LibraryFormat format, std::uint32_t volume = 0)
{
    VolumeSpec setup;
    setup.database.emplace();
    setup.format = format;
    for (int n = 1; n <= 3; ++n) {
        const std::string file = "iPod_Control/Music/F0" + std::to_string(n) + "/T" + std::to_string(n) + ".mp3";
        setup.database->tracks.push_back({.trackID = static_cast<std::uint32_t>(10 + n), .fileSize = static_cast<std::uint32_t>(trackBytes(n).size()),
                                         .trackNumber = 1, .volume = volume, .title = "Song " + std::to_string(n),
                                         .location = ":" + file, .album = "Album " + std::to_string(n), .artist = "Artist " + std::to_string(n)});
        setup.files[file] = Data(std::string_view(trackBytes(n)));
    }
    setup.database->playlists = {{.name = "Disk", .master = 1, .items = {11, 12, 13}}};
    return setup;
}

TEST(FailingVolume, ATrackThatFailsPartWayIsReportedAndNeverKept)
{
#ifndef ZQ_FAULTY_FS_PATH
    GTEST_SKIP() << "built without libfuse3 (libfuse3-dev), so no file system can be made to fail";
#else
    if (!insideMountSandbox())
        return rerunInMountSandbox();
    if (::access("/dev/fuse", R_OK | W_OK) != 0)
        GTEST_SKIP() << "no /dev/fuse here, so no file system can be made to fail";
    struct Case {
        const char* mode;
        std::string file, command;
        std::vector<std::string> said;
        std::set<std::string> files;
    };
    const std::string track = "iPod_Control/Music/F02/T2.mp3";
    const std::vector<Case> cases = {
        {"eio", track, "copy", {"failed   " + copied(2) + ": cannot copy " + track + ": Input/output error", "failed 1"},
         {copied(1), copied(3)}},
        {"vanish", track, "copy", {"is gone (unmounted or disconnected)", "Stopped: the device cannot be read any more", "1 not copied"},
         {copied(1)}},
        {"eio", "iPod_Control/iTunes/iTunesDB", "library",
         {"iPod_Control/iTunes/iTunesDB at byte 0: Input/output error. The device may have been disconnected"}, {}},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.mode + (" " + row.file));
        TempDir source, mountPoint, out;
        writeVolume(source.path(), threeAlbums(LibraryFormat::Binary));
        const pid_t daemon = ::fork();
        if (daemon == 0) {
            ::execl(ZQ_FAULTY_FS_PATH, ZQ_FAULTY_FS_PATH, source.path().c_str(), mountPoint.path().c_str(),
                    row.file.c_str(), row.file == track ? "300000" : "100", row.mode, static_cast<char*>(nullptr));
            ::_exit(127);
        }
        for (int i = 0; i < 100 && !fs::exists(mountPoint.path() + "/iPod_Control"); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        ASSERT_TRUE(fs::exists(mountPoint.path() + "/iPod_Control")) << "the FUSE file system did not come up";

        const auto run = row.command == "copy" ? zqpod({"copy", mountPoint.path(), out.path()}) : zqpod({"library", mountPoint.path()});
        ::umount2(mountPoint.path().c_str(), MNT_DETACH);
        ::kill(daemon, SIGTERM);
        ::waitpid(daemon, nullptr, 0);

        EXPECT_EQ(run.status, 1) << run.out << run.err;
        for (const auto& text : row.said)
            EXPECT_THAT(run.out + run.err, HasSubstr(text));
        for (const auto& text : row.said)  // a file that failed is said on standard error
            if (text.starts_with("failed   ")) {
                EXPECT_THAT(run.err, HasSubstr(text));
            }
        std::set<std::string> expected = row.files, entries;
        for (const auto& file : row.files)
            for (fs::path folder = fs::path(file).parent_path(); !folder.empty(); folder = folder.parent_path())
                expected.insert(folder.string());
        for (const auto& item : fs::recursive_directory_iterator(out.path()))
            entries.insert(fs::relative(item.path(), out.path()).string());
        EXPECT_EQ(entries, expected) << "no partial file, no hidden temporary, no empty album folder";
        for (int n = 1; n <= 3; ++n) {
            if (row.files.count(copied(n))) {
                EXPECT_TRUE(contentsOf(out.file(copied(n))) == trackBytes(n)) << copied(n);
            }
        }
    }
#endif
}

TEST(TrackVolume, TheVolumeAdjustmentIsSigned)
{
    for (const auto format : {LibraryFormat::Binary, LibraryFormat::SQLite}) {
        TempDir device;
        writeVolume(device.path(), threeAlbums(format, static_cast<std::uint32_t>(-61)));
        const auto run = zqpod({"library", device.path(), "--json"});
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_THAT(run.out, HasSubstr("\"volume\": -61,")) << "format " << static_cast<int>(format);
    }
}

} // namespace
} // namespace zq::test
