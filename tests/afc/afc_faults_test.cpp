// zqpod against a simulated iPhone that fails: a read error at a chosen byte of one file, a
// departure (unplugged) and a freeze (stops answering) part-way through a read, all through the
// real client library. Whatever happens, the exit status and message say what failed on which
// device, nothing in the destination differs from the device's file, no temporary file is
// left, and nothing waits longer than the request timeout the user set. A phone whose reads come
// back short part-way is no failure: every byte still arrives once, in its place.

#include "tests/afc/MobileDeviceImage.h"
#include "tests/afc/SharedSimulator.h"
#include "tests/tools/ToolProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <functional>
#include <fstream>

namespace zq::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
namespace fs = std::filesystem;

constexpr const char* kTrack2 = "/iTunes_Control/Music/F01/TWO.mp3";
constexpr const char* kITunesDB = "/iTunes_Control/iTunes/iTunesDB";

/// Bytes that differ from place to place, so that a skipped or repeated piece shows.
std::string trackBytes(int n)
{
    std::string bytes(n == 2 ? 1000000 : 70000 + n, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>((i * 131 + i / 4099 + static_cast<std::size_t>(n)) & 0xFF);
    return bytes;
}

/// Three tracks on three albums, the second a megabyte (several reads); a playlist of all three.
VolumeSpec phone(LibraryFormat format)
{
    DatabaseSpec database;
    PlaylistSpec master, trip;
    master.name = "Fault Phone";
    master.master = 1;
    master.playlistID = 1;
    trip.name = "Road Trip";
    trip.playlistID = 2;
    for (int n = 1; n <= 3; ++n) {
        TrackSpec track;
        track.trackID = 10 + n;
        track.trackNumber = 1;
        track.title = "Song " + std::to_string(n);
        track.artist = "Artist " + std::to_string(n);
        track.album = "Album " + std::to_string(n);
        track.location = ":iTunes_Control:Music:F0" + std::to_string(n - 1) + ":" + (n == 2 ? "TWO" : "T" + std::to_string(n)) + ".mp3";
        track.fileSize = static_cast<std::uint32_t>(trackBytes(n).size());
        track.trackLength = 60000;
        database.tracks.push_back(track);
        master.items.push_back({track.trackID});
        trip.items.push_back({track.trackID});
    }
    database.playlists = {master, trip};
    VolumeSpec setup;
    setup.database = database;
    setup.format = format;
    for (int n = 1; n <= 3; ++n)
        setup.files[relativePathOfLocation(*database.tracks[n - 1].location)] = Data(std::string_view(trackBytes(n)));
    return setup;
}

std::string copied(int n) { return "Artist " + std::to_string(n) + "/Album " + std::to_string(n) + "/01 Song " + std::to_string(n) + ".mp3"; }

struct FaultCase {
    const char* what;
    std::string fault;              ///< the simulator's fault keys
    std::vector<std::string> args;  ///< "DEV" is the phone, "OUT/..." the test's folder
    int status;
    std::vector<std::string> said;  ///< in the standard output or error
    std::set<std::string> files;    ///< what the folder holds afterwards
    LibraryFormat format = LibraryFormat::Binary;
    std::function<void(const std::string& root)> damage = {};
    bool resume = false;  ///< then the phone returns whole and the same command finishes the job
};

std::vector<FaultCase> cases()
{
    const std::string at = std::string("readErrorAt=") + kTrack2 + "@";
    const std::set<std::string> all = {copied(1), copied(2), copied(3), "Road Trip.m3u8"};
    const std::string short2 = std::string("shortReadAt=") + kTrack2 + "@300000 shortReadAt=" + kTrack2 + "@450000";
    return {
        {"get: the read fails at the first byte", at + "0", {"get", "DEV", "12", "OUT/two.mp3"}, 1,
         {"track 12 was not copied: Could not read /iTunes_Control/Music/F01/TWO.mp3 from the device \"Fault Phone\"",
          "damaged"}, {}},
        {"get: unplugged part-way", std::string("departAt=") + kTrack2 + "@600000", {"get", "DEV", "12", "OUT/two.mp3"}, 1,
         {"Lost the device \"Fault Phone\"", "at byte 600000: it was disconnected. Connect it again"}, {}},
        {"get: stops answering part-way", std::string("freezeAt=") + kTrack2 + "@600000", {"get", "DEV", "12", "OUT/two.mp3"}, 1,
         {"did not answer within 1 s while reading /iTunes_Control/Music/F01/TWO.mp3", "ZQ_DEVICE_TIMEOUT"}, {}},
        {"library: the iTunesDB read fails", std::string("readErrorAt=") + kITunesDB + "@100", {"library", "DEV"}, 1,
         {"Could not read /iTunes_Control/iTunes/iTunesDB at byte 100 from the device \"Fault Phone\""}, {}},
        {"library: unplugged during the load", std::string("departAt=") + kITunesDB + "@100", {"library", "DEV"}, 1,
         {"while reading /iTunes_Control/iTunes/iTunesDB"}, {}},
        {"library: stops answering during the load", std::string("freezeAt=") + kITunesDB + "@100", {"library", "DEV"}, 1,
         {"did not answer within 1 s while reading /iTunes_Control/iTunes/iTunesDB at byte 100"}, {}},
        {"library: damaged SQLite falls back to iTunesDB", "", {"library", "DEV"}, 0, {"Tracks:        3"}, {},
         LibraryFormat::Both, [](const std::string& root) {
             std::ofstream(root + "/iTunes_Control/iTunes/iTunes Library.itlp/Library.itdb") << std::string(5000, 'x');
         }},
        {"art: the ArtworkDB read fails", "readErrorAt=/iTunes_Control/Artwork/ArtworkDB@0", {"art", "DEV", "OUT/art"}, 1,
         {"artwork database could not be read", "Could not read /iTunes_Control/Artwork/ArtworkDB"}, {},
         LibraryFormat::Binary, [](const std::string& root) {
             fs::create_directories(root + "/iTunes_Control/Artwork");
             std::ofstream(root + "/iTunes_Control/Artwork/ArtworkDB") << std::string(300, '\0');
         }},
        {"copy: one track unreadable, then resumed", at + "300000", {"copy", "DEV", "OUT", "--playlists"}, 1,
         {"failed   " + copied(2) + ": Could not read", "wrote    Road Trip.m3u8 (2 tracks)"}, all,
         LibraryFormat::Binary, {}, true},
        {"copy: unplugged part-way, then resumed", std::string("departAt=") + kTrack2 + "@300000",
         {"copy", "DEV", "OUT", "--playlists"}, 1,
         {"it was disconnected", "Stopped: the device cannot be read any more", "1 not copied"}, all,
         LibraryFormat::Binary, {}, true},
        {"copy: stops answering", std::string("freezeAt=") + kTrack2 + "@0", {"copy", "DEV", "OUT"}, 1,
         {"did not answer within 1 s", "Stopped: the device cannot be read any more"}, {copied(1)}},
        // The first read of 1 MiB gets 300000 bytes, the next one half of what it asks for;
        // the requests then stay at that size to the end.
        {"get: reads come back short", short2, {"get", "DEV", "12", "OUT/two.mp3"}, 0, {"copied 1000000 bytes"},
         {"two.mp3"}},
        {"copy: reads of the iTunesDB and a track come back short",
         short2 + " shortReadAt=" + kITunesDB + "@100 shortReadAt=" + kITunesDB + "@150", {"copy", "DEV", "OUT", "--playlists"},
         0, {"Copied 3 files"}, all},
    };
}

std::set<std::string> entriesOf(const std::string& folder)
{
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.insert(entry.path().filename().string());
    return names;
}

TEST(FailingPhone, EveryFaultIsReportedAndLeavesNothingWrong)
{
    ::setenv("ZQ_DEVICE_TIMEOUT", "1", 1);  // inherited by zqpod
    int number = 0;
    for (const FaultCase& row : cases()) {
        SCOPED_TRACE(row.what);
        TempDir root, out;
        writeMobileDevice(root.path(), phone(row.format));
        if (row.damage)
            row.damage(root.path());
        SimulatedDeviceSpec setup;
        setup.udid = "00008101-FAULT" + std::to_string(::getpid()) + "-" + std::to_string(++number);
        setup.serialNumber = "FLT" + std::to_string(number);
        setup.deviceName = "Fault Phone";
        setup.root = root.path();
        setup.faults = row.fault;
        std::vector<std::string> args;
        for (const auto& arg : row.args)
            args.push_back(arg == "DEV" ? setup.serialNumber : arg.starts_with("OUT") ? out.path() + arg.substr(3) : arg);

        const auto temporaries = entriesOf(fs::temp_directory_path());
        sharedSimulator().attach(setup);
        const auto start = std::chrono::steady_clock::now();
        auto run = zqpod(args);
        const auto took = std::chrono::steady_clock::now() - start;
        try {
            sharedSimulator().detach(setup.udid);
        } catch (const std::runtime_error&) {
            // it departed on its own
        }
        EXPECT_EQ(run.status, row.status) << run.out << run.err;
        for (const auto& text : row.said)
            EXPECT_THAT(run.out + run.err, HasSubstr(text));
        for (const auto& text : row.said)  // a file that failed is said on standard error
            if (text.starts_with("failed   ")) {
                EXPECT_THAT(run.err, HasSubstr(text));
            }
        EXPECT_THAT(run.out + run.err, Not(HasSubstr("file missing")));
        EXPECT_THAT(run.out, Not(HasSubstr("Tracks:        0")));
        EXPECT_LT(took, std::chrono::seconds(6)) << "a frozen phone costs one timeout of 1 s, not one per request";
        EXPECT_EQ(entriesOf(fs::temp_directory_path()), temporaries) << "temporary files left";

        if (row.resume) {
            setup.faults.clear();
            setup.udid += "R";
            sharedSimulator().attach(setup);
            run = zqpod(args);
            sharedSimulator().detach(setup.udid);
            EXPECT_EQ(run.status, 0) << run.out << run.err;
        }
        // Every file there is whole: the device's bytes, or the playlist of the copied tracks;
        // no empty album folder and no second playlist beside the first.
        std::set<std::string> entries;
        for (const auto& item : fs::recursive_directory_iterator(out.path()))
            entries.insert(fs::relative(item.path(), out.path()).string());
        std::set<std::string> expected = row.files;
        for (const auto& file : row.files)
            for (fs::path folder = fs::path(file).parent_path(); !folder.empty(); folder = folder.parent_path())
                expected.insert(folder.string());
        if (row.args[0] == "art")
            expected.insert("art");
        EXPECT_EQ(entries, expected);
        for (int n = 1; n <= 3; ++n) {
            if (row.files.count(copied(n))) {
                EXPECT_TRUE(contentsOf(out.file(copied(n))) == trackBytes(n)) << copied(n);
            }
        }
        if (row.files.count("two.mp3")) {
            EXPECT_TRUE(contentsOf(out.file("two.mp3")) == trackBytes(2));
        }
        if (row.files.count("Road Trip.m3u8")) {
            EXPECT_EQ(contentsOf(out.file("Road Trip.m3u8")),
                      "#EXTM3U\n#EXTINF:60,Artist 1 - Song 1\n" + copied(1) + "\n#EXTINF:60,Artist 2 - Song 2\n" + copied(2) +
                          "\n#EXTINF:60,Artist 3 - Song 3\n" + copied(3) + "\n");
        }
    }
    ::unsetenv("ZQ_DEVICE_TIMEOUT");
}

TEST(FailingPhone, CtrlCStopsACopyWaitingOnAFrozenPhoneWithinASecond)
{
    TempDir root, out;
    writeMobileDevice(root.path(), phone(LibraryFormat::Binary));
    SimulatedDeviceSpec setup;
    setup.udid = "00008101-FROZEN" + std::to_string(::getpid());
    setup.serialNumber = "FRZ" + std::to_string(::getpid());
    setup.root = root.path();
    setup.faults = std::string("freezeAt=") + kTrack2 + "@300000";
    sharedSimulator().attach(setup);
    const auto temporaries = entriesOf(fs::temp_directory_path());
    {
        RunningTool copy("copy --timeout 60 " + setup.serialNumber + " " + shellQuoted(out.path()));
        EXPECT_EQ(copy.nextLine(), "copied   " + copied(1));
        ::usleep(300000);  // well into the wait for the frozen read
        const auto start = std::chrono::steady_clock::now();
        const int status = copy.interrupt();
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 130) << status;
    }
    sharedSimulator().detach(setup.udid);
    EXPECT_EQ(filesBelow(out.path()), std::set<std::string>{copied(1)});
    EXPECT_EQ(entriesOf(fs::temp_directory_path()), temporaries);
}

// A signal while a phone's library loads (its databases half copied into the temporary folder)
// stops the load, removes the copies and ends with 130: Ctrl-C, SIGTERM and a closed terminal
// alike, for every command that loads a library.
struct LoadSignalCase {
    const char* name;
    int signal;
    const char* command;
};
void PrintTo(const LoadSignalCase& c, std::ostream* out) { *out << c.name; }

class SignalDuringLoad : public ::testing::TestWithParam<LoadSignalCase> {};

TEST_P(SignalDuringLoad, LeavesNoCopiedDatabase)
{
    TempDir root, out;
    writeMobileDevice(root.path(), phone(LibraryFormat::Both));
    SimulatedDeviceSpec setup;
    setup.udid = "00008101-SIGNAL" + std::to_string(::getpid()) + GetParam().name;
    setup.serialNumber = "SIG" + std::to_string(::getpid()) + GetParam().name;
    setup.root = root.path();
    // Three of the four databases are copied when the phone stops answering.
    setup.faults = "\"freezeAt=/iTunes_Control/iTunes/iTunes Library.itlp/Dynamic.itdb@0\"";
    sharedSimulator().attach(setup);
    const auto temporaries = entriesOf(fs::temp_directory_path());
    {
        const std::string extra = std::string(GetParam().command) == "art" ? " " + shellQuoted(out.path()) : "";
        RunningTool load(std::string(GetParam().command) + " --timeout 60 " + setup.serialNumber + extra);
        // Waits for the copies to appear, so that the signal comes while they are there.
        for (int i = 0; i < 100 && entriesOf(fs::temp_directory_path()) == temporaries; ++i)
            ::usleep(50000);
        EXPECT_NE(entriesOf(fs::temp_directory_path()), temporaries) << "the load never began copying";
        ::usleep(100000);
        const int status = load.interrupt(GetParam().signal);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 130) << status;
    }
    sharedSimulator().detach(setup.udid);
    EXPECT_EQ(entriesOf(fs::temp_directory_path()), temporaries);
}

INSTANTIATE_TEST_SUITE_P(Signals, SignalDuringLoad,
                         ::testing::Values(LoadSignalCase{"LibraryInterrupted", SIGINT, "library"},
                                           LoadSignalCase{"LibraryTerminated", SIGTERM, "library"},
                                           LoadSignalCase{"LibraryHungUp", SIGHUP, "library"},
                                           LoadSignalCase{"ArtHungUp", SIGHUP, "art"}),
                         [](const auto& testCase) { return std::string(testCase.param.name); });

} // namespace
} // namespace zq::test

namespace zq::test {
namespace {

/// A part of the way to a phone that takes requests and answers none costs the user's timeout
/// once, and the message names that part: usbmuxd itself, or the phone's lockdown service.
TEST(StuckTransport, ASilentDaemonOrLockdownServiceIsNamedWithinTheTimeout)
{
    struct Run {
        const char* what;
        std::vector<std::string> args;
        std::vector<std::string> said;  // on the standard error
    };
    SimulatedUsbmuxd stuck;
    stuck.hang(true);
    const std::string previous = ::getenv("USBMUXD_SOCKET_ADDRESS") ? ::getenv("USBMUXD_SOCKET_ADDRESS") : "";
    ::setenv("USBMUXD_SOCKET_ADDRESS", stuck.socketAddress().c_str(), 1);
    for (const Run& row : std::vector<Run>{
             {"devices", {"devices", "--timeout", "1"}, {"usbmuxd", "did not answer within 1 s", "cannot be listed"}},
             {"library of the one device", {"library", "--timeout", "1"}, {"did not answer within 1 s", "could not be listed"}},
             {"library by name", {"library", "My Phone", "--timeout", "1"}, {"No device called 'My Phone' is known"}},
         }) {
        SCOPED_TRACE(row.what);
        const auto start = std::chrono::steady_clock::now();
        const auto run = zqpod(row.args);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2500));
        EXPECT_EQ(run.status, 1) << run.out << run.err;
        for (const auto& text : row.said)
            EXPECT_THAT(run.err, HasSubstr(text));
        EXPECT_THAT(run.out + run.err, Not(HasSubstr("No devices connected")));
        EXPECT_THAT(run.out + run.err, Not(HasSubstr("Trust")));
    }
    ::setenv("USBMUXD_SOCKET_ADDRESS", previous.c_str(), 1);

    // The daemon answers; the phone behind it does not.
    TempDir root;
    writeMobileDevice(root.path(), phone(LibraryFormat::Binary));
    SimulatedDeviceSpec setup;
    setup.udid = "00008101-SILENT" + std::to_string(::getpid());
    setup.serialNumber = "SIL" + std::to_string(::getpid());
    setup.root = root.path();
    setup.faults = "lockdown=silent";
    sharedSimulator().attach(setup);
    const auto start = std::chrono::steady_clock::now();
    const auto run = zqpod({"library", "--timeout", "1"});
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(3500));
    sharedSimulator().detach(setup.udid);
    EXPECT_EQ(run.status, 1) << run.out << run.err;
    EXPECT_THAT(run.err, HasSubstr("The lockdown service of "));
    EXPECT_THAT(run.err, HasSubstr("did not answer within 1 s"));
    EXPECT_THAT(run.err, HasSubstr("No device found that could be opened"));
    EXPECT_THAT(run.err, Not(HasSubstr("usbmuxd")));
}

} // namespace
} // namespace zq::test
