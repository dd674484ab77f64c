// An iOS 5+ phone through the simulated device and the real client library: its whole
// MediaLibrary.sqlitedb library (both layouts) against the description, with the WAL applied and
// no copy left behind, and zqpod copy of it with the cloud-only songs named, not failed.

#include "tests/afc/SharedSimulator.h"
#include "tests/medialibrary/PhoneLibrary.h"
#include "tests/tools/ToolProcess.h"

#include "ZQCore/afc/AFCFactory.h"
#include "ZQCore/afc/AFCiPod.h"
#include "ZQCore/afc/AFCiPodRef.h"
#include "ZQCore/afc/MobileDevice.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/device/ZQCore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <optional>
#include <thread>

namespace zq::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::HasSubstr;

std::set<std::string> temporaryEntries()
{
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(std::getenv("TMPDIR")))
        names.insert(entry.path().filename().string());
    return names;
}

class PhoneOverAFC : public ::testing::TestWithParam<MediaLibraryGeneration> {
protected:
    void SetUp() override
    {
        static int counter = 0;
        const std::string unique = std::to_string(::getpid() % 100000) + "M" + std::to_string(++counter);
        setup.udid = "00008110-" + unique;
        setup.serialNumber = "MLB" + unique;
        setup.deviceName = "Lockdown Name";
        setup.root = root.path();
        AFCFactory::factory()->waitForAttachedDevices(5s);
    }
    void TearDown() override
    {
        if (!attached)
            return;
        sharedSimulator().detach(setup.udid);
        runMainLoopUntil([&] { return listed() == nullptr; }, 5s);
    }
    std::shared_ptr<AFCiPodRef> listed() const
    {
        for (const auto& reference : ZQCore::sharedInstance()->connectediPods())
            if (auto mobile = std::dynamic_pointer_cast<AFCiPodRef>(reference); mobile && mobile->serialNumber() == setup.serialNumber)
                return mobile;
        return nullptr;
    }
    void attach()
    {
        sharedSimulator().attach(setup);
        attached = true;
        ASSERT_TRUE(runMainLoopUntil([&] { return listed() != nullptr; }));
    }

    TempDir root;
    SimulatedDeviceSpec setup;
    bool attached = false;
};

TEST_P(PhoneOverAFC, LoadsTheWholeLibraryWithItsWALAndLeavesNoCopy)
{
    const PhoneSpec phone = makeSamplePhone(GetParam());
    writePhone(root.path(), phone);
    const auto before = temporaryEntries();
    attach();

    auto library = std::dynamic_pointer_cast<AFCiPod>(ZQCoreiPod::initWithiPodReference(listed()));

    ASSERT_NE(library, nullptr);
    // A phone's library is named as the phone names itself (its lockdown "DeviceName"); its
    // master playlist keeps the name the database gives it.
    std::string expected = expectLibrary(phone, "/");
    expected.replace(0, expected.find('\n'), "name " + orNone(setup.deviceName));
    EXPECT_EQ(describeLibrary(*library, phone), expected);
    EXPECT_EQ(temporaryEntries(), before);
    const auto& track = library->allTracks().front();
    EXPECT_EQ(track->contentsOfTrackFile()->stringView(),
              phone.files.at(relativePathOfLocation(*phone.database.tracks.front().location)).stringView());
}

INSTANTIATE_TEST_SUITE_P(Generations, PhoneOverAFC,
                         ::testing::Values(MediaLibraryGeneration::Modern, MediaLibraryGeneration::IOS6,
                                           MediaLibraryGeneration::IOS8),
                         [](const auto& generation) { return generationName(generation.param); });

TEST_F(PhoneOverAFC, ZqpodCopiesEveryLocalTrackAndNamesTheCloudOnes)
{
    const PhoneSpec phone = makeSamplePhone(MediaLibraryGeneration::Modern);
    writePhone(root.path(), phone);
    attach();
    TempDir out;

    const auto run = zqpod({"copy", setup.udid, out.path(), "--playlists"});

    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, HasSubstr("not on the device: Nimbus/Only In The Cloud/02 Streamed Dusk"));
    EXPECT_THAT(run.out, HasSubstr("Copied 13 files"));
    EXPECT_THAT(run.out, HasSubstr("failed 0; 2 not on the device"));
    std::multiset<std::string> copied, expected;
    for (const auto& name : filesBelow(out.path()))
        if (!name.ends_with(".m3u8"))
            copied.insert(contentsOf(out.file(name)));
    for (const auto& [path, contents] : phone.files)
        expected.insert(std::string(contents.stringView()));
    EXPECT_TRUE(copied == expected);
    EXPECT_THAT(contentsOf(out.file("Quiet Evenings.m3u8")), HasSubstr("Cicha noc.wav"));
}

} // namespace
} // namespace zq::test

namespace zq::test {
namespace {

// A load that the application cancels ends with an error and leaves nothing behind it: the next
// load of the same phone reads the whole library, never an empty one.
TEST_F(PhoneOverAFC, ALoadCancelledMidReadIsFollowedByAWholeOne)
{
    const PhoneSpec phone = makeSamplePhone(MediaLibraryGeneration::Modern);
    writePhone(root.path(), phone);
    setup.faults = "stallAt=/iTunes_Control/iTunes/MediaLibrary.sqlitedb@0";
    const auto before = temporaryEntries();
    attach();
    auto token = std::make_shared<CancellationToken>();
    std::optional<ErrorKind> failure;
    std::shared_ptr<ZQCoreiPod> cancelled;
    std::thread load([&, reference = listed()] {
        CancellationScope scope(token);
        try {
            cancelled = ZQCoreiPod::initWithiPodReference(reference);
        } catch (const Exception& error) {
            failure = error.kind();
        }
    });
    std::this_thread::sleep_for(400ms);
    token->cancel();
    load.join();
    EXPECT_EQ(cancelled, nullptr);
    EXPECT_EQ(failure, ErrorKind::Cancelled);
    EXPECT_EQ(temporaryEntries(), before);

    auto library = ZQCoreiPod::initWithiPodReference(listed());
    ASSERT_NE(library, nullptr);
    EXPECT_EQ(library->librarySource(), ZQCoreiPod::LibrarySource::MediaLibrary);
    EXPECT_EQ(library->allTracks().size(), phone.database.tracks.size());
}

} // namespace
} // namespace zq::test
