// zqpod copy as a person runs it: a separate process on device volumes written by the image
// builder, checking what lands in the
// destination, what is printed, the exit status, and that the device is never touched.

#include "tests/support/SampleDevice.h"
#include "tests/tools/ToolProcess.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <set>
#include <thread>

namespace zq {
namespace {

namespace fs = std::filesystem;
using test::filesBelow;
using test::Outcome;
using test::TempDir;
using test::TrackSpec;
using test::VolumeSpec;
using test::zqpod;

/// Everything of a folder that a write could change: each entry's kind, bytes and times.
struct Entry {
    bool folder = false;
    std::string bytes;
    long long modified = 0;
    bool operator==(const Entry&) const = default;
};
using Snapshot = std::map<std::string, Entry>;

Snapshot snapshot(const std::string& root)
{
    Snapshot result;
    for (const auto& item : fs::recursive_directory_iterator(root)) {
        struct stat info {};
        ::lstat(item.path().c_str(), &info);
        // Bytes up to a size a test writes; beyond, size and time (the interrupt test's big
        // sparse file would take long to read).
        result[fs::relative(item.path(), root).string()] = {
            item.is_directory(), item.is_directory() ? "" : info.st_size < (64 << 20) ? test::contentsOf(item.path()) : std::to_string(info.st_size),
            info.st_mtim.tv_sec * 1000000000LL + info.st_mtim.tv_nsec};
    }
    return result;
}

std::set<std::string> tracksBelow(const std::string& root)
{
    std::set<std::string> tracks;
    for (const auto& file : filesBelow(root))
        if (!file.ends_with(".m3u8") && !file.ends_with("cover.png"))
            tracks.insert(file);
    return tracks;
}

bool hasLine(const std::string& text, const std::string& line)
{
    const auto all = test::lines(text);
    return std::find(all.begin(), all.end(), line) != all.end();
}

const std::set<std::string> kSampleNames = {
    "The Hollow Pines/Northern Lights/01 Harbour Song.wav",
    "The Hollow Pines/Northern Lights/02 Northern Lights.wav",
    "The Hollow Pines/Northern Lights/05 Paper Boats.wav",
    "Marta Kowalska Quartet/Cicha noc/01 Słońce.wav",
    "Marta Kowalska Quartet/Cicha noc/08 Cicha noc.wav",
    "Vienna Chamber Orchestra/Beethoven_ Symphonies 5 & 7/01 Symphony No. 5 in C minor, Op. 67_ I. Allegro con brio.wav",
    "Vienna Chamber Orchestra/Beethoven_ Symphonies 5 & 7/02 Symphony No. 5 in C minor, Op. 67_ II. Andante con moto.wav",
    "DJ Kōji/Tokyo Nights/03 夜の街 (Night Town).wav",
    "Various Artists/Summer Hits 2012/07 Beach Days.wav",
    "Sam Okafor/The Morning Byte/Episode 41_ Disk Mode Forever.wav",
    "Sam Okafor/The Morning Byte/Episode 42_ Click Wheels.wav",
    "Helen Marsh/Garden Talk/Spring Bulbs.wav",
    "Helen Marsh/Garden Talk/Composting 101.wav",
};
const std::string kHarbour = "The Hollow Pines/Northern Lights/01 Harbour Song.wav";
const std::string kHarbourOnDevice = "iPod_Control/Music/F03/HBSG.wav";

/// The sample device in a folder of its own, a destination beside it, and the device as it was
/// before any command ran, which every test checks again at its end.
class CopySample : public testing::Test {
protected:
    void SetUp() override
    {
        test::writeVolume(device_.path(), test::makeSampleDevice());
        prepareDevice();
        before_ = snapshot(device_.path());
    }
    void TearDown() override { EXPECT_TRUE(snapshot(device_.path()) == before_) << "the device was changed"; }
    virtual void prepareDevice() {}

    Outcome copy(std::vector<std::string> extra = {})
    {
        std::vector<std::string> args = {"copy", device_.path(), dest()};
        args.insert(args.end(), extra.begin(), extra.end());
        return zqpod(args);
    }
    std::string dest() const { return out_.file("music"); }
    std::string destFile(const std::string& relative) const { return dest() + "/" + relative; }
    std::string deviceFile(const std::string& relative) const { return device_.file(relative); }
    void plant(const std::string& relative, const std::string& bytes) const
    {
        fs::create_directories(fs::path(destFile(relative)).parent_path());
        std::ofstream(destFile(relative), std::ios::binary) << bytes;
    }

    TempDir device_;
    TempDir out_;
    Snapshot before_;
};

TEST_F(CopySample, CopiesEveryTrackByTheDefaultTemplateByteForByte)
{
    const Outcome run = copy();
    ASSERT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_EQ(filesBelow(dest()), kSampleNames);
    EXPECT_EQ(test::contentsOf(destFile(kHarbour)), test::contentsOf(deviceFile(kHarbourOnDevice)));
    for (const auto& name : kSampleNames) {
        EXPECT_TRUE(hasLine(run.out, "copied   " + name)) << name << "\n" << run.out;
        EXPECT_TRUE(test::contentsOf(destFile(name)).starts_with("RIFF")) << name;
    }
    EXPECT_TRUE(run.out.ends_with("Copied 13 files (362 KB) to " + dest() + ", skipped 0, failed 0.\n")) << run.out;
    EXPECT_EQ(run.err, "");
}

// Two runs into one destination at once end as one run would: the second waits for the first
// and then finds everything there, so no track or playlist is written twice beside itself.
TEST_F(CopySample, TwoRunsIntoOneDestinationEndAsOneWould)
{
    for (int round = 0; round < 3; ++round) {
        fs::remove_all(dest());
        Outcome first, second;
        std::thread other([&] { first = copy({"--playlists", "--art"}); });
        second = copy({"--playlists", "--art"});
        other.join();
        EXPECT_EQ(first.status, 0) << first.out << first.err;
        EXPECT_EQ(second.status, 0) << second.out << second.err;
        std::set<std::string> expected = kSampleNames;
        for (const auto& name : filesBelow(dest()))
            if (name.ends_with(".m3u8") || name.ends_with("cover.png"))
                expected.insert(name);
        EXPECT_EQ(filesBelow(dest()), expected) << "round " << round;
        for (const auto& name : filesBelow(dest()))
            EXPECT_EQ(name.find(" (2)"), std::string::npos) << name;
    }
}

// A run killed where the destination has no unnamed files leaves its hidden temporary file;
// the next run into the same destination removes it (and nothing else that is hidden).
TEST_F(CopySample, ARerunRemovesStaleTemporariesOfItsOwn)
{
    plant(".stale.wav.zqpod-Ab12Cd", "half a copy");
    plant("The Hollow Pines/Northern Lights/.01 Harbour Song.wav.zqpod-x9Y8z7", "half a copy");
    plant("The Hollow Pines/Northern Lights/.02 Other.wav.zqpod-4242", "a replacement half put in place");
    plant(".hidden-notes", "the user's own");
    plant(".song.zqpod-not~ours", "not a name zqpod makes");
    const Outcome run = copy();
    ASSERT_EQ(run.status, 0) << run.out << run.err;
    std::set<std::string> expected = kSampleNames;
    expected.insert(".hidden-notes");
    expected.insert(".song.zqpod-not~ours");
    EXPECT_EQ(filesBelow(dest()), expected);
}

TEST_F(CopySample, WritesPlaylistsWithRelativePathsAndACoverPerAlbum)
{
    const Outcome run = copy({"--playlists", "--art"});
    ASSERT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_EQ(test::contentsOf(destFile("Road Trip.m3u8")),
              "#EXTM3U\n"
              "#EXTINF:3,Sunny Day Club - Beach Days\nVarious Artists/Summer Hits 2012/07 Beach Days.wav\n"
              "#EXTINF:3,The Hollow Pines - Harbour Song\nThe Hollow Pines/Northern Lights/01 Harbour Song.wav\n"
              "#EXTINF:3,DJ Kōji - 夜の街 (Night Town)\nDJ Kōji/Tokyo Nights/03 夜の街 (Night Town).wav\n"
              "#EXTINF:3,The Hollow Pines - Northern Lights\nThe Hollow Pines/Northern Lights/02 Northern Lights.wav\n"
              "#EXTINF:3,The Hollow Pines - Paper Boats\nThe Hollow Pines/Northern Lights/05 Paper Boats.wav\n");
    // Every playlist but the master, every entry a copied file; a cover per album and show.
    std::set<std::string> lists;
    std::size_t covers = 0;
    for (const auto& file : filesBelow(dest())) {
        if (file.ends_with(".m3u8"))
            lists.insert(file);
        for (const auto& line : test::lines(file.ends_with(".m3u8") ? test::contentsOf(destFile(file)) : ""))
            EXPECT_TRUE(line.starts_with("#") || kSampleNames.count(line)) << file << ": " << line;
        if (file.ends_with("/cover.png") && ++covers) {
            EXPECT_TRUE(test::contentsOf(destFile(file)).starts_with("\x89PNG")) << file;
        }
    }
    EXPECT_EQ(lists, (std::set<std::string>{"Road Trip.m3u8", "Quiet Evenings.m3u8", "Podcasts.m3u8", "Recent Favourites.m3u8"}));
    EXPECT_EQ(covers, 7u);  // five albums and two shows
    EXPECT_TRUE(run.out.ends_with("skipped 0, failed 0; wrote 4 playlists and 7 covers.\n")) << run.out;
}

TEST_F(CopySample, ADifferentFileIsKeptAndTheCopyNamedBesideIt)
{
    plant(kHarbour, "my own recording");
    const Outcome run = copy();
    EXPECT_EQ(run.status, 0) << run.out;
    const std::string beside = "The Hollow Pines/Northern Lights/01 Harbour Song (2).wav";
    EXPECT_EQ(test::contentsOf(destFile(kHarbour)), "my own recording");
    EXPECT_EQ(test::contentsOf(destFile(beside)), test::contentsOf(deviceFile(kHarbourOnDevice)));
    EXPECT_TRUE(hasLine(run.out, "kept     " + kHarbour + " (a different file); this copy is " + beside)) << run.out;

    // The numbered copy is found again: nothing is copied a second time.
    const Outcome again = copy();
    EXPECT_TRUE(again.out.ends_with("skipped 13, failed 0.\n")) << again.out;
    EXPECT_FALSE(fs::exists(destFile("The Hollow Pines/Northern Lights/01 Harbour Song (3).wav")));

    const Outcome overwrite = copy({"--overwrite"});
    EXPECT_EQ(overwrite.status, 0) << overwrite.out;
    EXPECT_TRUE(hasLine(overwrite.out, "replaced " + kHarbour)) << overwrite.out;
    EXPECT_EQ(test::contentsOf(destFile(kHarbour)), test::contentsOf(deviceFile(kHarbourOnDevice)));
}

TEST_F(CopySample, ReadingCommandsAndARefusedDestinationLeaveTheDeviceAlone)
{
    const Outcome run = zqpod({"copy", device_.path(), device_.file("iPod_Control/../Music")});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("lies on the device itself"), std::string::npos) << run.err;
    EXPECT_EQ(zqpod({"library", device_.path()}).status, 0);
    EXPECT_EQ(zqpod({"library", device_.path(), "--json"}).status, 0);
    EXPECT_EQ(zqpod({"art", device_.path(), out_.file("covers")}).status, 0);
    // (the fixture compares the device with its state before, byte for byte)
}

// A disk-mode iPod whose thumbnail files are gone: its covers are there in the artwork database
// but cannot be read. That is a failure (exit 1, said on standard error), never "no artwork".
class ArtWithUnreadableThumbnails : public CopySample {
    void prepareDevice() override
    {
        for (const char* file : {"iPod_Control/Artwork/F1028_1.ithmb", "iPod_Control/Artwork/F1029_1.ithmb"})
            fs::remove(deviceFile(file));
    }
};

TEST_F(ArtWithUnreadableThumbnails, IsAFailureNamedOnStandardError)
{
    const Outcome run = zqpod({"art", device_.path(), out_.file("covers")});
    EXPECT_EQ(run.status, 1) << run.out << run.err;
    EXPECT_NE(run.err.find("unreadable artwork: "), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("could not be read"), std::string::npos) << run.err;
    EXPECT_EQ(run.out.find("unreadable"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("0 files written"), std::string::npos) << run.out;
}

class CopyWithMissingFile : public CopySample {
    void prepareDevice() override { fs::remove(deviceFile(kHarbourOnDevice)); }
};

TEST_F(CopyWithMissingFile, IsReportedAndTheCopyGoesOn)
{
    const Outcome run = copy({"--playlists"});
    EXPECT_EQ(run.status, 1);
    // The failure on standard error, where a person who keeps the log of the copy still sees
    // it; the summary with the count on standard output, with the other lines.
    EXPECT_EQ(run.err, "failed   " + kHarbour + ": file missing on the device (" + kHarbourOnDevice + ")\n");
    EXPECT_EQ(run.out.find("failed   "), std::string::npos) << run.out;
    EXPECT_TRUE(hasLine(run.out, "copied   The Hollow Pines/Northern Lights/02 Northern Lights.wav")) << run.out;
    EXPECT_EQ(tracksBelow(dest()).size(), 12u);
    EXPECT_TRUE(run.out.ends_with("skipped 0, failed 1; wrote 4 playlists.\n")) << run.out;
    // The playlist lists what is there.
    EXPECT_EQ(test::contentsOf(destFile("Road Trip.m3u8")).find("Harbour Song"), std::string::npos);

    const Outcome dry = copy({"--dry-run"});
    EXPECT_EQ(dry.status, 1);
    EXPECT_TRUE(hasLine(dry.out, "cannot copy    " + kHarbour + ": file missing on the device (" + kHarbourOnDevice + ")"))
        << dry.out;
}

TEST(CopyInterrupt, StopsCleanlyAndLeavesNoPartialFile)
{
    // A file big enough that the copy is still running when the signal comes: sparse on the
    // device, so it costs no disk there.
    TempDir device, out;
    constexpr std::uint32_t kBig = 3'000'000'000u;
    VolumeSpec volume{.database = test::DatabaseSpec{
                          .tracks = {{.trackID = 1, .fileSize = kBig, .title = "Long", .location = ":iPod_Control:Music:F00:L.wav",
                                      .album = "Album", .artist = "A"}}}};
    test::writeVolume(device.path(), volume);
    fs::create_directories(device.file("iPod_Control/Device"));
    fs::create_directories(device.file("iPod_Control/Music/F00"));
    const std::string big = device.file("iPod_Control/Music/F00/L.wav");
    std::ofstream{big};
    ASSERT_EQ(::truncate(big.c_str(), kBig), 0);
    const Snapshot before = snapshot(device.path());

    const std::string capture = out.file("stdout");
    const pid_t child = ::fork();
    if (child == 0) {
        const int fd = ::open(capture.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0644);
        ::dup2(fd, 1);
        ::execl(ZQPOD_PATH, "zqpod", "copy", device.path().c_str(), out.file("music").c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    // Wait for the copy to begin (its folder appears), then ask it to stop.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!fs::exists(out.file("music/A/Album")) && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    ::kill(child, SIGINT);
    int status = 0;
    ::waitpid(child, &status, 0);
    const std::string printed = test::contentsOf(capture);
    ASSERT_TRUE(WIFEXITED(status)) << "killed by the signal instead of stopping";
    if (WEXITSTATUS(status) == 0)
        GTEST_SKIP() << "the copy finished before the signal came";
    EXPECT_EQ(WEXITSTATUS(status), 130) << printed;
    EXPECT_TRUE(filesBelow(out.file("music")).empty()) << "a partial or temporary file was left";
    EXPECT_NE(printed.find("Interrupted: copied 0 files (0 B), skipped 0, failed 0; 1 not copied."), std::string::npos)
        << printed;
    EXPECT_TRUE(snapshot(device.path()) == before);
}

} // namespace
} // namespace zq
