// The framework against the real libimobiledevice client and the simulated device: arrivals
// and departures in the connected list, sessions refused by an untrusted device, whole and
// ranged reads and the file operations over the real conduit, the library copied and loaded
// (or read from iTunesDB), its artwork decoded as 1-5-5-5, and the library object that waits for
// its device to return.

#include "tests/afc/MobileDeviceImage.h"
#include "tests/afc/SharedSimulator.h"

#include "ZQCore/afc/AFCDevice.h"
#include "ZQCore/afc/AFCDeviceRef.h"
#include "ZQCore/afc/AFCFactory.h"
#include "ZQCore/afc/AFCInterface.h"
#include "ZQCore/afc/AFCiPod.h"
#include "ZQCore/afc/AFCiPodRef.h"
#include "ZQCore/afc/MobileDevice.h"
#include "ZQCore/artwork/AlbumArt.h"
#include "ZQCore/device/ZQCore.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/Image.h"
#include "ZQCore/foundation/Log.h"
#include "ZQCore/model/iPodTrack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

namespace zq::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t kChunk = 262144;

std::string patterned(std::size_t size, unsigned seed = 1)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i * 31 + seed * 7 + i / 997) & 0xFF);
    return bytes;
}

void writeFile(const fs::path& path, const std::string& contents)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << contents;
}

/// Names no other test of this process uses (devices and library objects outlive a test).
std::string unique(const std::string& prefix)
{
    static int counter = 0;
    return prefix + std::to_string(::getpid() % 100000) + "X" + std::to_string(++counter);
}

/// The entries of the temporary directory, where the library's database copies go.
std::set<std::string> temporaryEntries()
{
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(std::getenv("TMPDIR")))
        names.insert(entry.path().filename().string());
    return names;
}

class MobileDevices : public ::testing::Test {
protected:
    void SetUp() override
    {
        core = ZQCore::sharedInstance();
        AFCFactory::factory()->waitForAttachedDevices(5s);
        previousLog = setLogHandler([this](const std::string& line) { logLines.push_back(line); });
    }
    void TearDown() override
    {
        for (const auto& [udid, serial] : attached) {
            sharedSimulator().detach(udid);
            runMainLoopUntil([&] { return listed(serial) == nullptr; }, 5s);
        }
        setLogHandler(previousLog);
    }

    SimulatedDeviceSpec device(const std::string& folder)
    {
        SimulatedDeviceSpec setup;
        setup.udid = unique("00008030-");
        setup.serialNumber = unique("SIM");
        setup.root = folder;
        return setup;
    }

    std::shared_ptr<AFCiPodRef> listed(const std::string& serial) const
    {
        std::shared_ptr<AFCiPodRef> found;
        for (const auto& reference : core->connectediPods())
            if (auto mobile = std::dynamic_pointer_cast<AFCiPodRef>(reference); mobile && mobile->serialNumber() == serial)
                found = mobile;
        return found;
    }

    std::shared_ptr<AFCiPodRef> attach(const SimulatedDeviceSpec& setup)
    {
        sharedSimulator().attach(setup);
        attached.emplace_back(setup.udid, setup.serialNumber);
        runMainLoopUntil([&] { return listed(setup.serialNumber) != nullptr; });
        return listed(setup.serialNumber);
    }

    void detach(const SimulatedDeviceSpec& setup)
    {
        sharedSimulator().detach(setup.udid);
        std::erase(attached, std::make_pair(setup.udid, setup.serialNumber));
        runMainLoopUntil([&] { return listed(setup.serialNumber) == nullptr; });
    }

    std::shared_ptr<AFCiPod> open(const std::shared_ptr<AFCiPodRef>& reference)
    {
        return std::dynamic_pointer_cast<AFCiPod>(ZQCoreiPod::initWithiPodReference(reference));
    }

    std::shared_ptr<ZQCore> core;
    std::vector<std::pair<std::string, std::string>> attached;  // udid, serial
    std::vector<std::string> logLines;
    LogHandler previousLog;
    TempDir root;
};

// ---- arrivals and departures -----------------------------------------------------------------

TEST_F(MobileDevices, AnArrivingDeviceIsListedUntilItDeparts)
{
    std::vector<std::string> notices;
    const auto token = core->addObserver("connectediPods", [&](const std::string&, Observable::Phase phase) {
        notices.push_back(phase == Observable::Phase::WillChange ? "will" : "did");
    });
    auto setup = device(root.path());
    setup.deviceName = "Anna's iPhone";

    auto reference = attach(setup);
    ASSERT_NE(reference, nullptr);
    EXPECT_EQ(reference->name(), "Anna's iPhone");
    EXPECT_EQ(reference->path(), "/");
    EXPECT_FALSE(reference->isMountedVolume());
    ASSERT_NE(reference->icon(), nullptr);
    EXPECT_EQ(reference->icon()->width(), 128u);
    EXPECT_EQ(reference->device()->device()->serialNumber(), setup.serialNumber);
    EXPECT_EQ(reference->device()->device()->name(), setup.serialNumber);

    detach(setup);
    EXPECT_EQ(listed(setup.serialNumber), nullptr);
    core->removeObserver(token);
    EXPECT_THAT(notices, ElementsAre("will", "did", "will", "did"));
}

TEST_F(MobileDevices, AnUntrustedDeviceIsRefusedWithAReasonAndNotListed)
{
    auto setup = device(root.path());
    setup.paired = false;
    sharedSimulator().attach(setup);
    attached.emplace_back(setup.udid, setup.serialNumber);

    ASSERT_TRUE(runMainLoopUntil([&] { return !logLines.empty(); }));
    EXPECT_THAT(logLines, Contains("AFC device " + setup.serialNumber +
                                   " could not be opened: AFCDevice: Device pairing failed"));
    EXPECT_EQ(listed(setup.serialNumber), nullptr);
}

// ---- files over the real conduit -------------------------------------------------------------

struct ReadCase {
    const char* name;
    std::size_t fileSize;
    std::optional<Range> range;  ///< none: the whole file
    std::size_t expectedStart;
    std::size_t expectedLength;
    std::vector<std::uint64_t> shortReadsAt = {};  ///< the device's reads stop short at these bytes
};
void PrintTo(const ReadCase& c, std::ostream* out) { *out << c.name; }

class MobileDeviceReads : public MobileDevices, public ::testing::WithParamInterface<ReadCase> {};

TEST_P(MobileDeviceReads, GiveTheBytesOfTheFile)
{
    const auto& c = GetParam();
    const std::string contents = patterned(c.fileSize);
    writeFile(fs::path(root.path()) / "Music" / "track.m4a", contents);
    auto phone = device(root.path());
    for (const auto at : c.shortReadsAt)
        phone.faults += " shortReadAt=/Music/track.m4a@" + std::to_string(at);
    auto reference = attach(phone);
    ASSERT_NE(reference, nullptr);
    auto& session = *reference->device();

    const auto data = c.range ? session.chunkOfFileAtPath("/Music/track.m4a", *c.range)
                              : session.contentsOfFileAtPath("/Music/track.m4a");

    ASSERT_TRUE(data.has_value());
    ASSERT_EQ(data->size(), c.expectedLength);
    EXPECT_TRUE(data->stringView() == std::string_view(contents).substr(c.expectedStart, c.expectedLength));
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, MobileDeviceReads,
    ::testing::Values(ReadCase{"WholeExactlyOneChunk", kChunk, std::nullopt, 0, kChunk},
                      ReadCase{"Whole300000", 300000, std::nullopt, 0, 300000},
                      ReadCase{"WholeEmpty", 0, std::nullopt, 0, 0},
                      ReadCase{"RangeExactlyOneChunk", 300000, Range{0, kChunk}, 0, kChunk},
                      ReadCase{"Range300000", 700000, Range{1000, 300000}, 1000, 300000},
                      ReadCase{"RangeLengthZero", 300000, Range{5000, 0}, 5000, 0},
                      ReadCase{"RangePastTheEnd", 300000, Range{400000, 10}, 300000, 0},
                      ReadCase{"RangeRunningPastTheEnd", 300000, Range{299990, 100}, 299990, 10},
                      // A short read, then requests of its size: the last runs past the size given.
                      ReadCase{"WholeReadShort", 300000, std::nullopt, 0, 300000, {200000}},
                      ReadCase{"RangeReadShortTwice", 700000, Range{1000, 600000}, 1000, 600000, {200000, 250001}}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

// ---- the library -----------------------------------------------------------------------------

/// A mobile device's library of two tracks, the first with its file on the device, and a
/// master playlist naming the device; as iTunesDB, as the SQLite databases, or both.
VolumeSpec twoTrackLibrary(const std::string& masterName, LibraryFormat format = LibraryFormat::Binary)
{
    VolumeSpec setup;
    DatabaseSpec database;
    TrackSpec first;
    first.trackID = 11;
    first.dbid = 0x1001;
    first.title = "First Light";
    first.location = ":iTunes_Control:Music:F00:AAAA.mp3";
    first.fileSize = 300000;
    TrackSpec second = first;
    second.trackID = 12;
    second.dbid = 0x1002;
    second.title = "Second Wind";
    second.location = ":iTunes_Control:Music:F01:BBBB.mp3";
    second.fileSize = 1000;
    database.tracks = {first, second};
    PlaylistSpec master;
    master.name = masterName;
    master.master = 1;
    master.playlistID = 1;
    master.items = {11, 12};
    database.playlists = {master};
    setup.database = database;
    setup.format = format;
    setup.files["iTunes_Control/Music/F00/AAAA.mp3"] = Data(std::string_view(patterned(300000, 5)));
    return setup;
}

TEST_F(MobileDevices, TheSQLiteLibraryIsCopiedLoadedAndItsCopiesRemoved)
{
    writeMobileDevice(root.path(), twoTrackLibrary("Anna's iPhone", LibraryFormat::SQLite));
    const auto before = temporaryEntries();
    auto setup = device(root.path());
    setup.deviceName = "Lockdown Name";

    auto library = open(attach(setup));

    ASSERT_NE(library, nullptr);
    EXPECT_EQ(temporaryEntries(), before);
    EXPECT_THAT(logLines, IsEmpty());
    ASSERT_EQ(library->allTracks().size(), 2u);
    // The database names the library; the lockdown name was only the first guess.
    EXPECT_EQ(library->name(), "Anna's iPhone");
    EXPECT_EQ(library->path(), "/");
    EXPECT_EQ(library->type(), 16);
    ASSERT_NE(library->properties().find("SerialNumber"), nullptr);
    EXPECT_EQ(*library->properties().find("SerialNumber")->string(), setup.serialNumber);
    EXPECT_TRUE(library->isConnected());

    const auto& track = library->allTracks().front();
    EXPECT_EQ(track->title(), "First Light");
    EXPECT_EQ(track->filePath(), "/iTunes_Control/Music/F00/AAAA.mp3");
    const auto whole = track->contentsOfTrackFile();
    ASSERT_TRUE(whole.has_value());
    EXPECT_TRUE(whole->stringView() == patterned(300000, 5));
    const auto part = track->chunkOfTrackFileWithRange({kChunk, 1000});
    ASSERT_TRUE(part.has_value());
    EXPECT_TRUE(part->stringView() == patterned(300000, 5).substr(kChunk, 1000));
    // A track whose file is missing on the device reads nothing.
    EXPECT_FALSE(library->allTracks()[1]->contentsOfTrackFile().has_value());
    EXPECT_FALSE(library->chunkOfFileAtPath("/iTunes_Control/Music", {0, 10}).has_value());
}

// A phone of the iOS 3 and 4 era keeps its library compressed in iTunesCDB, beside an empty
// iTunesDB; a damaged one with nothing else to read ends the load with a reason naming it.
TEST_F(MobileDevices, ACompressedLibraryIsReadFromiTunesCDB)
{
    VolumeSpec nano = twoTrackLibrary("Compressed Phone");
    nano.compressedDatabase = true;
    writeMobileDevice(root.path(), nano);
    ASSERT_EQ(fs::file_size(fs::path(root.path()) / "iTunes_Control" / "iTunes" / "iTunesDB"), 0u);

    auto library = open(attach(device(root.path())));
    ASSERT_NE(library, nullptr);
    ASSERT_EQ(library->allTracks().size(), 2u);
    EXPECT_EQ(library->allTracks()[0]->title(), "First Light");
    ASSERT_NE(library->masterPlaylist(), nullptr);
    EXPECT_EQ(library->masterPlaylist()->name(), "Compressed Phone");

    TempDir damagedRoot;
    const Data whole = buildITunesCDB(*nano.database);
    writeMobileDevice(damagedRoot.path(), VolumeSpec{.rawITunesDB = Data(), .rawITunesCDB = whole.subdata(0, whole.size() / 2)});
    try {
        open(attach(device(damagedRoot.path())));
        ADD_FAILURE() << "a damaged iTunesCDB loaded";
    } catch (const Exception& e) {
        EXPECT_NE(e.reason().find("iTunes_Control/iTunes/iTunesCDB is damaged"), std::string::npos) << e.reason();
    }
}

TEST_F(MobileDevices, ArtworkOfAMobileDeviceIsDecodedAsARGB1555)
{
    VolumeSpec setup = twoTrackLibrary("Art Phone");
    ThumbnailSpec thumbnail;
    thumbnail.width = 2;
    thumbnail.height = 2;
    thumbnail.layout = ThumbnailLayout::ARGB1555;
    // opaque red, transparent green, opaque blue, transparent white
    thumbnail.words = {0xFC00, 0x03E0, 0x801F, 0x7FFF};
    ArtworkImageSpec image;
    image.imageID = 100;
    image.songID = 0x1001;
    image.thumbnails = {thumbnail};
    setup.artwork = ArtworkDBSpec{{image}};
    writeMobileDevice(root.path(), setup);

    auto library = open(attach(device(root.path())));
    ASSERT_NE(library, nullptr);
    const auto picture = library->allTracks()[0]->albumArt()->image();

    ASSERT_NE(picture, nullptr);
    ASSERT_EQ(picture->width(), 2u);
    EXPECT_EQ(picture->pixelAt(0, 0), (Image::Pixel{255, 255, 0, 0}));
    EXPECT_EQ(picture->pixelAt(1, 0), (Image::Pixel{0, 0, 255, 0}));
    EXPECT_EQ(picture->pixelAt(0, 1), (Image::Pixel{255, 0, 0, 255}));
    EXPECT_EQ(picture->pixelAt(1, 1), (Image::Pixel{0, 255, 255, 255}));
}

} // namespace
} // namespace zq::test

namespace zq::test {
namespace {

// An application stops one piece of work (a load, a copy) from another thread; the device's
// session stays usable for the next one, and nothing else in the process is cancelled.
TEST_F(MobileDevices, ACancelledReadStopsItsOwnWorkOnlyAndTheSessionGoesOn)
{
    writeFile(fs::path(root.path()) / "Music" / "slow.m4a", patterned(3000000));
    writeFile(fs::path(root.path()) / "Music" / "other.m4a", patterned(100000, 2));
    auto phone = device(root.path());
    phone.faults = "stallAt=/Music/slow.m4a@1500000";
    auto reference = attach(phone);
    ASSERT_NE(reference, nullptr);
    auto& session = *reference->device();

    auto token = std::make_shared<CancellationToken>();
    std::string failure = "no failure";
    std::chrono::steady_clock::time_point stopped;
    std::thread work([&] {
        CancellationScope scope(token);
        try {
            session.contentsOfFileAtPath("/Music/slow.m4a");
        } catch (const Exception& error) {
            failure = error.reason();
        }
        stopped = std::chrono::steady_clock::now();
    });
    std::this_thread::sleep_for(400ms);  // well into the wait for the stalled read
    const auto cancelled = std::chrono::steady_clock::now();
    token->cancel();
    work.join();
    EXPECT_THAT(failure, ::testing::HasSubstr("was stopped"));
    EXPECT_LT(stopped - cancelled, 500ms);

    EXPECT_FALSE(deviceRequestsCancelled());
    const auto other = session.contentsOfFileAtPath("/Music/other.m4a");
    ASSERT_TRUE(other.has_value());
    EXPECT_TRUE(other->stringView() == patterned(100000, 2));
    EXPECT_TRUE(session.fileExistsAtPath("/Music/slow.m4a"));
}

} // namespace
} // namespace zq::test
