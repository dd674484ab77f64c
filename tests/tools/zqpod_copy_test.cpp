// zqpod copy as a person runs it: a separate process on device volumes written by the image
// builder and on the real library files of ../shared/samples, checking what lands in the
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

TEST_F(CopySample, RunningAgainResumesWithWhatIsMissing)
{
    ASSERT_EQ(copy({"--playlists"}).status, 0);
    fs::remove(destFile(kHarbour));
    const Outcome again = copy({"--playlists"});
    EXPECT_EQ(again.status, 0) << again.out;
    EXPECT_TRUE(hasLine(again.out, "copied   " + kHarbour)) << again.out;
    EXPECT_TRUE(hasLine(again.out, "skipped  The Hollow Pines/Northern Lights/02 Northern Lights.wav (already there, same size)"))
        << again.out;
    EXPECT_TRUE(hasLine(again.out, "kept     Road Trip.m3u8 (unchanged)")) << again.out;
    EXPECT_TRUE(again.out.ends_with("skipped 12, failed 0; wrote 0 playlists.\n")) << again.out;
    EXPECT_EQ(tracksBelow(dest()), kSampleNames);
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

TEST_F(CopySample, DryRunPrintsThePlanAndWritesNothing)
{
    plant(kHarbour, test::contentsOf(deviceFile(kHarbourOnDevice)));
    const Snapshot destBefore = snapshot(dest());
    const Outcome run = copy({"--dry-run", "--playlists", "--art"});
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_TRUE(snapshot(dest()) == destBefore);
    EXPECT_TRUE(hasLine(run.out, "would skip     " + kHarbour + "  (already there, same size)")) << run.out;
    EXPECT_TRUE(hasLine(run.out, "would copy     Helen Marsh/Garden Talk/Spring Bulbs.wav  <- iPod_Control/Music/F45/GT12.wav (28 KB)"))
        << run.out;
    EXPECT_TRUE(hasLine(run.out, "would write    Road Trip.m3u8 (5 tracks)")) << run.out;
    EXPECT_TRUE(run.out.ends_with("Dry run, nothing written: would copy 12 files (334 KB), skip 1, fail 0; "
                                  "would write 4 playlists and 7 covers.\n")) << run.out;
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

class CopyWithMissingFile : public CopySample {
    void prepareDevice() override { fs::remove(deviceFile(kHarbourOnDevice)); }
};

TEST_F(CopyWithMissingFile, IsReportedAndTheCopyGoesOn)
{
    const Outcome run = copy({"--playlists"});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(hasLine(run.out, "failed   " + kHarbour + ": file missing on the device (" + kHarbourOnDevice + ")"))
        << run.out;
    EXPECT_EQ(tracksBelow(dest()).size(), 12u);
    EXPECT_TRUE(run.out.ends_with("skipped 0, failed 1; wrote 4 playlists.\n")) << run.out;
    // The playlist lists what is there.
    EXPECT_EQ(test::contentsOf(destFile("Road Trip.m3u8")).find("Harbour Song"), std::string::npos);

    const Outcome dry = copy({"--dry-run"});
    EXPECT_EQ(dry.status, 1);
    EXPECT_TRUE(hasLine(dry.out, "cannot copy    " + kHarbour + ": file missing on the device (" + kHarbourOnDevice + ")"))
        << dry.out;
}

struct Selection {
    const char* label;
    std::vector<std::string> args;
    std::size_t tracks;
};
void PrintTo(const Selection& s, std::ostream* out) { *out << s.label; }

class CopySelection : public CopySample, public testing::WithParamInterface<Selection> {};

TEST_P(CopySelection, CopiesOnlyWhatWasAskedFor)
{
    const Outcome run = copy(GetParam().args);
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_EQ(tracksBelow(dest()).size(), GetParam().tracks) << run.out;
}

INSTANTIATE_TEST_SUITE_P(Copy, CopySelection,
                         testing::Values(Selection{"PlaylistIgnoringCase", {"--playlist", "road trip"}, 5},
                                         Selection{"SmartPlaylist", {"--playlist", "Recent Favourites"}, 7},
                                         Selection{"Podcasts", {"--playlist", "Podcasts"}, 4},
                                         Selection{"ArtistContains", {"--artist", "pines"}, 3},
                                         Selection{"AlbumArtist", {"--artist", "Various"}, 1},
                                         Selection{"GenreAndAlbum", {"--genre", "JAZZ", "--album=cicha"}, 2},
                                         Selection{"NothingMatches", {"--genre", "Polka"}, 0}));

TEST_F(CopySample, TemplateNamesTheFiles)
{
    const Outcome run = copy({"--template", "{genre}/{artist} - {title}.{ext}", "--artist", "Pines"});
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_EQ(tracksBelow(dest()), (std::set<std::string>{"Indie Rock/The Hollow Pines - Harbour Song.wav",
                                                          "Indie Rock/The Hollow Pines - Northern Lights.wav",
                                                          "Indie Rock/The Hollow Pines - Paper Boats.wav"}));
}

struct Refusal {
    const char* label;
    std::vector<std::string> args;  ///< "DEV" and "DEST" stand for the device and destination
    int status;
    const char* message;
};
void PrintTo(const Refusal& r, std::ostream* out) { *out << r.label; }

class CopyRefusals : public CopySample, public testing::WithParamInterface<Refusal> {};

TEST_P(CopyRefusals, EndWithTheirStatusAndWriteNothing)
{
    std::vector<std::string> args;
    for (const auto& arg : GetParam().args)
        args.push_back(arg == "DEV" ? device_.path() : arg == "DEST" ? dest() : arg);
    const Outcome run = zqpod(args);
    EXPECT_EQ(run.status, GetParam().status) << run.err;
    EXPECT_NE(run.err.find(GetParam().message), std::string::npos) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_FALSE(fs::exists(dest()));
}

INSTANTIATE_TEST_SUITE_P(
    Copy, CopyRefusals,
    testing::Values(
        Refusal{"NoDestination", {"copy"}, 2, "usage: zqpod copy [DEVICE] DEST"},
        Refusal{"TooManyArguments", {"copy", "DEV", "DEST", "extra"}, 2, "usage: zqpod copy [DEVICE] DEST"},
        Refusal{"UnknownOption", {"copy", "DEV", "DEST", "--frobnicate"}, 2, "unknown option '--frobnicate'"},
        Refusal{"OptionWithoutValue", {"copy", "DEV", "DEST", "--template"}, 2, "--template needs a value"},
        Refusal{"BadTemplate", {"copy", "DEV", "DEST", "--template", "{artist}/{nope}"}, 2, "unknown field \"nope\""},
        Refusal{"UnknownPlaylist", {"copy", "DEV", "DEST", "--playlist", "Nope"}, 1,
                "No playlist is called 'Nope'. The device's playlists:\n  Sample iPod\n  Road Trip\n"},
        Refusal{"MissingDevicePath", {"copy", "/no/such/volume", "DEST"}, 1, "path doesn't exist"},
        Refusal{"UnknownDeviceName", {"copy", "NoSuchDevice-7Q", "DEST"}, 1, "'NoSuchDevice-7Q'"}));

/// Two tracks with the same tags and a third differing only in case: three names.
TEST(CopyCollisions, TracksNeverShareAName)
{
    TempDir device, out;
    auto song = [](std::uint32_t id, const char* title, const char* file) {
        return TrackSpec{.trackID = id, .trackNumber = 1, .title = title, .location = file, .album = "Album", .artist = "A"};
    };
    VolumeSpec volume{.database = test::DatabaseSpec{
                          .tracks = {song(1, "Song", ":iPod_Control:Music:F00:A.mp3"),
                                     song(2, "Song", ":iPod_Control:Music:F01:B.mp3"),
                                     song(3, "song", ":iPod_Control:Music:F02:C.mp3")},
                          .playlists = {{.name = "All", .master = 1, .items = {1, 2, 3}},
                                        {.name = "Twice", .items = {2, 2}}}}};
    volume.files.emplace("iPod_Control/Music/F00/A.mp3", Data(std::string("audio A")));
    volume.files.emplace("iPod_Control/Music/F01/B.mp3", Data(std::string("audio B")));
    volume.files.emplace("iPod_Control/Music/F02/C.mp3", Data(std::string("audio C")));
    test::writeVolume(device.path(), volume);
    fs::create_directories(device.file("iPod_Control/Device"));  // as every device has it
    const Snapshot before = snapshot(device.path());

    const Outcome run = zqpod({"copy", device.path(), out.path(), "--playlists"});
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_EQ(tracksBelow(out.path()), (std::set<std::string>{"A/Album/01 Song.mp3", "A/Album/01 Song (2).mp3",
                                                              "A/Album/01 song (3).mp3"}));
    EXPECT_EQ(test::contentsOf(out.file("A/Album/01 Song (2).mp3")), "audio B");
    EXPECT_EQ(test::contentsOf(out.file("A/Album/01 song (3).mp3")), "audio C");
    // A track that stands twice in a playlist is listed twice, copied once.
    EXPECT_EQ(test::contentsOf(out.file("Twice.m3u8")),
              "#EXTM3U\n#EXTINF:-1,A - Song\nA/Album/01 Song (2).mp3\n#EXTINF:-1,A - Song\nA/Album/01 Song (2).mp3\n");
    EXPECT_TRUE(snapshot(device.path()) == before);
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

class CommandHelp : public testing::TestWithParam<const char*> {};

TEST_P(CommandHelp, EveryCommandExplainsItselfAndHasItsPlaceInTheManual)
{
    const std::string command = GetParam();
    const Outcome help = zqpod({command, "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(help.out.starts_with("usage: zqpod " + command)) << help.out;
    EXPECT_EQ(help.err, "");
    EXPECT_EQ(zqpod({"help", command}).out, help.out);
    const Outcome general = zqpod({"--help"});
    EXPECT_EQ(general.status, 0);
    EXPECT_TRUE(general.out.starts_with("usage: zqpod COMMAND")) << general.out;
    EXPECT_NE(general.out.find("\n  " + command + " "), std::string::npos) << general.out;

    const Outcome manual = zqpod({"--man"});
    EXPECT_EQ(manual.status, 0);
    EXPECT_TRUE(manual.out.starts_with(".\\\" Generated by 'zqpod --man'")) << manual.out.substr(0, 200);
    EXPECT_NE(manual.out.find("\n.SS " + command + " \\(em "), std::string::npos) << command;
    // Each option of the help is a tagged paragraph of the manual.
    for (const auto& line : test::lines(help.out)) {
        if (line.starts_with("  --")) {
            std::string option = line.substr(2, line.find(' ', 2) - 2), escaped;
            for (char c : option)
                escaped += c == '-' ? std::string("\\-") : std::string(1, c);
            EXPECT_NE(manual.out.find(".TP\n.B " + escaped), std::string::npos) << option;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Copy, CommandHelp, testing::Values("library", "art", "copy", "devices", "watch"));

// ---- the real library files of ../shared/samples, with stand-in track files -----------------

struct RealSample {
    const char* folder;
    std::size_t tracks;
};
void PrintTo(const RealSample& s, std::ostream* out) { *out << s.folder; }

class CopyRealSamples : public testing::TestWithParam<RealSample> {};

TEST_P(CopyRealSamples, EveryTrackGetsASafeNameOfItsOwn)
{
    const fs::path source = fs::path(ZQ_SAMPLES_DIR) / GetParam().folder;
    TempDir device, out;
    fs::create_directories(device.file("iPod_Control/iTunes"));
    fs::create_directories(device.file("iPod_Control/Device"));  // as every device has it
    std::ofstream(device.file("iPod_Control/iTunes/iTunesDB"), std::ios::binary) << test::contentsOf(source / "iTunesDB");
    if (fs::exists(source / "SysInfo"))
        std::ofstream(device.file("iPod_Control/Device/SysInfo")) << test::contentsOf(source / "SysInfo");

    // Stand-in files where the library says its tracks are: small, each with its own bytes.
    const Outcome json = zqpod({"library", "--json", device.path()});
    ASSERT_EQ(json.status, 0) << json.err;
    std::size_t made = 0;
    for (const auto& line : test::lines(json.out)) {
        const auto at = line.find("\"filePath\": \"");
        if (at == std::string::npos)
            continue;
        const std::string path = line.substr(at + 13, line.rfind('"') - at - 13);
        ASSERT_TRUE(path.starts_with(device.path() + "/")) << path;
        fs::create_directories(fs::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << "stand-in for " << path;
        ++made;
    }
    ASSERT_EQ(made, GetParam().tracks);
    const Snapshot before = snapshot(device.path());

    const Outcome run = zqpod({"copy", device.path(), out.file("music"), "--playlists"});
    EXPECT_EQ(run.status, 0) << run.out.substr(0, 2000) << run.err;
    const std::set<std::string> tracks = tracksBelow(out.file("music"));
    EXPECT_EQ(tracks.size(), GetParam().tracks);
    std::set<std::string> keys;
    for (const auto& name : tracks) {
        std::string key = name;
        std::transform(key.begin(), key.end(), key.begin(), [](unsigned char c) { return std::tolower(c); });
        EXPECT_TRUE(keys.insert(key).second) << "two names differ only in case: " << name;
        for (const auto& part : fs::path(name)) {
            const std::string text = part.string();
            EXPECT_TRUE(text.size() <= 180u && text.find_first_of("<>:\"\\|?*") == std::string::npos && text.front() != ' ' &&
                        text.front() != '.' && text.back() != ' ' && text.back() != '.')
                << name;
        }
    }
    for (const auto& file : filesBelow(out.file("music")))
        for (const auto& line : test::lines(file.ends_with(".m3u8") ? test::contentsOf(out.file("music/" + file)) : ""))
            EXPECT_TRUE(line.starts_with("#") || tracks.count(line)) << file << ": " << line;
    EXPECT_TRUE(snapshot(device.path()) == before);

    const Outcome again = zqpod({"copy", device.path(), out.file("music")});
    EXPECT_EQ(again.status, 0);
    EXPECT_TRUE(again.out.ends_with("Copied 0 files (0 B) to " + out.file("music") + ", skipped " +
                                    std::to_string(GetParam().tracks) + ", failed 0.\n"))
        << again.out.substr(again.out.size() > 300 ? again.out.size() - 300 : 0);
}

INSTANTIATE_TEST_SUITE_P(Copy, CopyRealSamples,
                         testing::Values(RealSample{"itunes-de-23", 23}, RealSample{"itunes-it-1172", 1172},
                                         RealSample{"ipod-2005-1855", 1855}, RealSample{"itunes-art-142", 142},
                                         RealSample{"itunes45-1", 1}, RealSample{"itunes-empty", 0}));

} // namespace
} // namespace zq
