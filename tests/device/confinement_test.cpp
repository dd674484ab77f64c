// A device can never make the framework read outside itself: every path a device names (its
// databases' locations, a file that is a symbolic link, the databases themselves) resolves inside
// its folder, and what leads out is refused and reported, never read.

#include "ZQCore/files/VolumeFiles.h"
#include "tests/support/TestLibrary.h"
#include "tests/tools/ToolProcess.h"

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/openat2.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <fstream>

namespace {

using namespace zq::test;
using ::testing::HasSubstr;
using ::testing::Not;
namespace fs = std::filesystem;

const std::string kSecret = "host secret: never on a device\n";

void writeText(const std::string& path, const std::string& text)
{
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

std::string readAll(int fd)
{
    std::string text;
    char buffer[256];
    for (ssize_t got; (got = ::read(fd, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<std::size_t>(got));
    ::close(fd);
    return text;
}

struct OpenCase {
    const char* name;
    std::string path;      ///< below the root folder, as a device would name it
    std::string expected;  ///< the file's contents, or "EXDEV" / "ENOENT"
    /// Where it differs on a kernel without openat2: there every link is refused (any errno).
    std::string expectedWithoutOpenat2 = {};
};
void PrintTo(const OpenCase& c, std::ostream* out) { *out << c.name; }

class OpenInsideFolder : public ::testing::TestWithParam<OpenCase> {
protected:
    void SetUp() override
    {
        // root/a/file, root/a/inside -> file, root/a/up -> ../../outside/secret,
        // root/a/host -> <outside>/secret (absolute), root/a/dir -> <outside> (a folder out).
        writeText(root_.file("device/a/file"), "inside");
        writeText(outside_.file("secret"), kSecret);
        fs::create_symlink("file", root_.file("device/a/inside"));
        fs::create_symlink(fs::path("..") / ".." / fs::path(outside_.path()).filename() / "secret",
                           root_.file("device/a/up"));
        fs::create_symlink(outside_.file("secret"), root_.file("device/a/host"));
        fs::create_directory_symlink(outside_.path(), root_.file("device/a/dir"));
    }
    TempDir root_, outside_;
};

TEST_P(OpenInsideFolder, OpensWhatIsInsideAndRefusesWhatLeadsOut)
{
    const std::string device = root_.file("device");
    const std::string path = GetParam().path.starts_with("/") ? GetParam().path : device + "/" + GetParam().path;
    errno = 0;
    const int fd = zq::openInsideFolder(device, path, O_RDONLY);
    if (GetParam().expected == "EXDEV" || GetParam().expected == "ENOENT") {
        EXPECT_EQ(fd, -1);
        EXPECT_EQ(errno, GetParam().expected == "EXDEV" ? EXDEV : ENOENT) << std::strerror(errno);
        if (fd >= 0)
            ::close(fd);
        return;
    }
    ASSERT_GE(fd, 0) << std::strerror(errno);
    EXPECT_EQ(readAll(fd), GetParam().expected);
}

std::vector<OpenCase> openCases()
{
    return {OpenCase{"AFile", "a/file", "inside"},
            OpenCase{"ALinkInside", "a/inside", "inside", "refused"},
            OpenCase{"DotsThatStayInside", "a/../a/./file", "inside"},
            OpenCase{"Missing", "a/none", "ENOENT"},
            OpenCase{"DotsOut", "../outside-of-it", "EXDEV"},
            OpenCase{"DotsFarOut", "a/../../../../../../../../etc/passwd", "EXDEV"},
            OpenCase{"AnAbsolutePathElsewhere", "/etc/passwd", "EXDEV"},
            OpenCase{"ARelativeLinkOut", "a/up", "EXDEV", "refused"},
            OpenCase{"AnAbsoluteLinkOut", "a/host", "EXDEV", "refused"},
            OpenCase{"AFolderLinkOut", "a/dir/secret", "EXDEV", "refused"}};
}

INSTANTIATE_TEST_SUITE_P(Paths, OpenInsideFolder, ::testing::ValuesIn(openCases()),
                         [](const auto& testCase) { return std::string(testCase.param.name); });

/// Runs `body` in a child process in which openat2() fails with ENOSYS, as on kernels before
/// 5.6 or in sandboxes that filter it; answers the child's exit status (99: no filter).
int withoutOpenat2(const std::function<int()>& body)
{
    const pid_t child = ::fork();
    if (child == 0) {
        sock_filter filter[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        };
        sock_fprog program{static_cast<unsigned short>(std::size(filter)), filter};
        if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
            ::_exit(99);
        ::_exit(body());
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

TEST_F(OpenInsideFolder, WithoutOpenat2TheWalkRefusesEveryLinkAndEveryWayOut)
{
    const std::string device = root_.file("device");
    const int failures = withoutOpenat2([&] {
        open_how how{};
        how.flags = O_RDONLY;
        if (::syscall(SYS_openat2, AT_FDCWD, ".", &how, sizeof how) >= 0 || errno != ENOSYS)
            return 98;  // the filter did not take
        int wrong = 0;
        for (const OpenCase& c : openCases()) {
            const std::string path = c.path.starts_with("/") ? c.path : device + "/" + c.path;
            const std::string expected = c.expectedWithoutOpenat2.empty() ? c.expected : c.expectedWithoutOpenat2;
            errno = 0;
            const int fd = zq::openInsideFolder(device, path, O_RDONLY);
            const int error = errno;
            const std::string got = fd >= 0                ? readAll(fd)
                                    : expected == "refused" ? "refused"
                                    : error == EXDEV        ? "EXDEV"
                                    : error == ENOENT       ? "ENOENT"
                                                            : std::strerror(error);
            if (got != expected) {
                std::fprintf(stderr, "%s: %s, not %s\n", c.name, got.c_str(), expected.c_str());
                ++wrong;
            }
        }
        return wrong;
    });
    EXPECT_EQ(failures, 0) << "(98: openat2 was not filtered; 99: no seccomp filter could be set)";
}

// ---- a crafted volume, through the library and zqpod ------------------------------------------

/// A volume whose tracks name: a file of its own (1), a link to another of its files (2), a file
/// above the volume (3), /etc/passwd by climbing (4), and a file that is a link to a host file (5).
struct CraftedVolume {
    TempDir dir, host;
    std::string root;

    CraftedVolume()
    {
        root = dir.file("volume");
        writeText(host.file("secret"), kSecret);
        writeText(dir.file("outside.txt"), kSecret);  // beside the volume, not in it
        DatabaseSpec db;
        auto track = [](std::uint32_t id, const char* title, const char* location) {
            return TrackSpec{.trackID = id, .fileSize = 6, .title = title, .location = location, .album = "Escape",
                             .artist = "Crafted"};
        };
        db.tracks = {track(1, "Own", ":iPod_Control:Music:F00:OWN.mp3"),
                     track(2, "Linked", ":iPod_Control:Music:F00:LINK.mp3"),
                     track(3, "Above", ":..:outside.txt"),
                     track(4, "Passwd", ":..:..:..:..:..:..:..:..:..:..:etc:passwd"),
                     track(5, "Shadow", ":iPod_Control:Music:F01:SHDW.mp3")};
        db.playlists = {PlaylistSpec{.name = "Crafted", .master = 1, .items = {1, 2, 3, 4, 5}}};
        writeVolume(root, VolumeSpec{.database = db});
        writeText(root + "/iPod_Control/Music/F00/OWN.mp3", "own!!\n");
        fs::create_symlink("OWN.mp3", root + "/iPod_Control/Music/F00/LINK.mp3");
        fs::create_directories(root + "/iPod_Control/Music/F01");
        fs::create_symlink(host.file("secret"), root + "/iPod_Control/Music/F01/SHDW.mp3");
    }
};

bool anyFileHolds(const std::string& folder, const std::string& text)
{
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.is_regular_file() && contentsOf(entry.path()).find(text) != std::string::npos)
            return true;
    return false;
}

TEST(CraftedVolume, NoTrackReadsAHostFile)
{
    CraftedVolume volume;
    auto library = zq::ZQCoreiPod::initWithiPodReference(zq::ZQCoreiPodRef::initWithPath(volume.root));
    ASSERT_EQ(library->allTracks().size(), 5u);
    for (const auto& track : library->allTracks()) {
        const bool own = track->trackID() <= 2;
        EXPECT_EQ(track->contentsOfTrackFile().has_value(), own) << track->trackID();
        EXPECT_EQ(track->sizeOfTrackFile().has_value(), own) << track->trackID();
        EXPECT_EQ(library->refusesPath(*track->filePath()), !own) << track->trackID();
        EXPECT_FALSE(track->chunkOfTrackFileWithRange({0, 4}).has_value() && !own) << track->trackID();
        TempDir out;
        const int fd = ::open(out.file("copy").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        const auto copied = track->copyTrackFileTo(fd);
        ::close(fd);
        EXPECT_EQ(copied.completed, own) << track->trackID();
        if (!own)
            EXPECT_EQ(copied.error, EXDEV) << track->trackID();
        EXPECT_THAT(contentsOf(out.file("copy")), Not(HasSubstr("host secret")));
    }
}

TEST(CraftedVolume, ALinkSwappedInAfterTheCheckIsStillRefused)
{
    // The size is asked while the file is the device's own; then it becomes a link to a host file
    // before the copy opens it. The open itself is the check, so nothing can slip in between.
    CraftedVolume volume;
    auto library = zq::ZQCoreiPod::initWithiPodReference(zq::ZQCoreiPodRef::initWithPath(volume.root));
    const auto& own = library->allTracks().at(0);
    ASSERT_TRUE(own->sizeOfTrackFile());
    const std::string file = volume.root + "/iPod_Control/Music/F00/OWN.mp3";
    fs::remove(file);
    fs::create_symlink(volume.host.file("secret"), file);
    TempDir out;
    const int fd = ::open(out.file("copy").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const auto copied = own->copyTrackFileTo(fd);
    ::close(fd);
    EXPECT_FALSE(copied.completed);
    EXPECT_EQ(copied.error, EXDEV);
    EXPECT_EQ(contentsOf(out.file("copy")), "");
}

TEST(CraftedVolume, ZqpodRefusesAndReportsEveryPathOut)
{
    CraftedVolume volume;
    TempDir out;
    const auto run = zqpod({"copy", volume.root, out.path()});
    EXPECT_EQ(run.status, 1);
    const std::string said = run.out + run.err;
    for (const char* title : {"Above", "Passwd", "Shadow"}) {
        EXPECT_THAT(said, HasSubstr("refused: the device names a file outside itself")) << title;
        EXPECT_THAT(said, HasSubstr(title));
    }
    EXPECT_THAT(run.out, HasSubstr("Copied 2 files"));
    EXPECT_FALSE(anyFileHolds(out.path(), "host secret"));
    EXPECT_FALSE(anyFileHolds(out.path(), "root:"));

    for (const char* id : {"3", "4", "5"}) {
        const auto get = zqpod({"get", volume.root, id, out.file(std::string("got-") + id)});
        EXPECT_EQ(get.status, 1) << id;
        EXPECT_THAT(get.err, HasSubstr("refused: the device names a file outside itself")) << id;
        EXPECT_FALSE(fs::exists(out.file(std::string("got-") + id))) << id;
    }
}

TEST(CraftedVolume, DatabasesThatAreLinksOutAreNeverRead)
{
    // The library database itself a link to a host file: refused, named, never parsed.
    TempDir dir, host;
    const std::string root = dir.file("volume");
    writeVolume(root, VolumeSpec{.database = DatabaseSpec{}});
    const zq::Data database = buildITunesDB(DatabaseSpec{.tracks = {TrackSpec{.trackID = 7, .title = "Host"}}});
    writeText(host.file("iTunesDB"), std::string(database.stringView()));
    fs::remove(root + "/iPod_Control/iTunes/iTunesDB");
    fs::create_symlink(host.file("iTunesDB"), root + "/iPod_Control/iTunes/iTunesDB");
    EXPECT_EQ(zq::ZQCoreiPodRef::initWithPath(root)->name(), "iPod");  // the name is not read from it
    const auto run = zqpod({"library", root});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, HasSubstr("iPod_Control/iTunes/iTunesDB is refused: the device names a file outside itself"));
    EXPECT_THAT(run.out, Not(HasSubstr("Host")));

    // The SysInfo a link to a host file: its serial number is not taken.
    writeText(host.file("SysInfo"), sysInfoText("HOSTSERIAL1"));
    fs::create_directories(root + "/iPod_Control/Device");
    fs::create_symlink(host.file("SysInfo"), root + "/iPod_Control/Device/SysInfo");
    EXPECT_FALSE(zq::ZQCoreiPodRef::initWithPath(root)->serialNumber());
}

TEST(CraftedVolume, FilesThatAreFIFOsAreRefusedWithoutWaiting)
{
    // A "file" that is a FIFO would block an ordinary open for ever: the database is refused as
    // no file, the track as unreadable, and neither command waits.
    CraftedVolume volume;
    const std::string track = volume.root + "/iPod_Control/Music/F00/OWN.mp3";
    fs::remove(track);
    ASSERT_EQ(::mkfifo(track.c_str(), 0644), 0);
    TempDir out;
    const auto copy = zqpod({"copy", volume.root, out.path()});
    EXPECT_EQ(copy.status, 1);
    EXPECT_THAT(copy.out + copy.err, HasSubstr("Own"));

    const std::string database = volume.root + "/iPod_Control/iTunes/iTunesDB";
    fs::remove(database);
    ASSERT_EQ(::mkfifo(database.c_str(), 0644), 0);
    const auto listed = zqpod({"library", volume.root});
    EXPECT_EQ(listed.status, 1);
    EXPECT_THAT(listed.err, HasSubstr("iPod_Control/iTunes/iTunesDB is not a file."));
}

TEST(CraftedVolume, SQLiteDatabasesThatAreLinksOutAreNeverOpened)
{
    // A volume with both formats, whose SQLite library is a link to the host's copy of another
    // library: the binary database of the volume itself is read instead.
    TempDir dir, host;
    const std::string root = dir.file("volume");
    DatabaseSpec own{.tracks = {TrackSpec{.trackID = 1, .title = "Own"}},
                     .playlists = {PlaylistSpec{.name = "Mine", .master = 1, .items = {1}}}};
    writeVolume(root, VolumeSpec{.database = own, .format = LibraryFormat::Both});
    DatabaseSpec other{.tracks = {TrackSpec{.trackID = 1, .title = "Host"}}};
    writeVolume(host.path(), VolumeSpec{.database = other, .format = LibraryFormat::SQLite});
    const std::string itlp = "/iPod_Control/iTunes/iTunes Library.itlp/Library.itdb";
    fs::remove(root + itlp);
    fs::create_symlink(host.path() + itlp, root + itlp);
    auto library = zq::ZQCoreiPod::initWithiPodReference(zq::ZQCoreiPodRef::initWithPath(root));
    EXPECT_EQ(library->librarySource(), zq::ZQCoreiPod::LibrarySource::iTunesDB);
    ASSERT_EQ(library->allTracks().size(), 1u);
    EXPECT_EQ(library->allTracks()[0]->title(), "Own");
}

} // namespace
