// What kind of failure a caller is given when a mobile device fails, through the real client and
// the simulated iPhone: a phone that is unplugged part-way is gone, one that freezes is not
// answering, a stopped request is cancelled, an I/O error on the device is none of those (so a
// copy goes on with the next track), a folder that is not there is not found, and a phone that
// does not trust the computer refuses, which zqpod explains in words a person can act on.

#include "tests/afc/MobileDeviceImage.h"
#include "tests/afc/SharedSimulator.h"
#include "tests/tools/ToolProcess.h"

#include "ZQCore/afc/AFCDevice.h"
#include "ZQCore/afc/AFCFactory.h"
#include "ZQCore/afc/AFCiPod.h"
#include "ZQCore/afc/AFCiPodRef.h"
#include "ZQCore/device/ZQCore.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/Log.h"
#include "ZQCore/foundation/NotificationCenter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace zq::test {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

constexpr const char* kSong = "/Music/song.m4a";

class DeviceErrorKinds : public ::testing::Test {
protected:
    void SetUp() override
    {
        ZQCore::sharedInstance();
        AFCFactory::factory()->waitForAttachedDevices(5s);
        previousLog_ = setLogHandler([](const std::string&) {});
        fs::create_directories(fs::path(root_.path()) / "Music");
        std::ofstream(root_.file("Music/song.m4a"), std::ios::binary) << std::string(600000, 's');
    }
    void TearDown() override
    {
        if (attached_) {
            try {
                sharedSimulator().detach(spec_.udid);
            } catch (const std::runtime_error&) {
                // it departed on its own
            }
        }
        setRequestTimeout(10s);
        setLogHandler(previousLog_);
    }

    /// A phone with `faults`, once it is listed; nullptr when it never is.
    std::shared_ptr<AFCiPodRef> attach(const std::string& faults, bool paired = true)
    {
        static int counter = 0;
        spec_.udid = "00008030-KIND" + std::to_string(::getpid()) + "-" + std::to_string(++counter);
        spec_.serialNumber = "KIND" + std::to_string(::getpid() % 100000) + "X" + std::to_string(counter);
        spec_.deviceName = "Kind Phone";
        spec_.root = root_.path();
        spec_.faults = faults;
        spec_.paired = paired;
        sharedSimulator().attach(spec_);
        attached_ = true;
        if (!paired)
            return nullptr;
        runMainLoopUntil([&] { return listed() != nullptr; });
        return listed();
    }

    std::shared_ptr<AFCiPodRef> listed() const
    {
        for (const auto& reference : ZQCore::sharedInstance()->connectediPods())
            if (auto mobile = std::dynamic_pointer_cast<AFCiPodRef>(reference); mobile && mobile->serialNumber() == spec_.serialNumber)
                return mobile;
        return nullptr;
    }

    /// The exception a whole-file read of the song ends with.
    static std::optional<Exception> readingFails(AFCDevice& session, const std::string& path = kSong)
    {
        try {
            session.contentsOfFileAtPath(path);
        } catch (const Exception& error) {
            return error;
        }
        return std::nullopt;
    }

    TempDir root_;
    SimulatedDeviceSpec spec_;
    bool attached_ = false;
    LogHandler previousLog_;
};

TEST_F(DeviceErrorKinds, AReadEndsWithTheKindOfWhatHappenedToThePhone)
{
    struct Case {
        const char* fault;
        ErrorKind kind;
        const char* name;
        bool gone;  ///< nothing more can be read from the phone
    };
    setRequestTimeout(1s);
    for (const Case& c : {Case{"departAt=/Music/song.m4a@300000", ErrorKind::DeviceGone, "AFCDeviceDeparted", true},
                          Case{"freezeAt=/Music/song.m4a@300000", ErrorKind::NotAnswering, "AFCDeviceNotAnswering", true},
                          Case{"readErrorAt=/Music/song.m4a@300000", ErrorKind::Other, "AFCDeviceReadError", false}}) {
        SCOPED_TRACE(c.fault);
        auto reference = attach(c.fault);
        ASSERT_NE(reference, nullptr);
        const auto error = readingFails(*reference->device());
        ASSERT_TRUE(error.has_value());
        EXPECT_EQ(error->kind(), c.kind) << error->what();
        EXPECT_EQ(error->name(), c.name);
        EXPECT_EQ(AFCiPod::isDeviceGone(*error), c.gone);
        try {
            sharedSimulator().detach(spec_.udid);
        } catch (const std::runtime_error&) {
        }
        attached_ = false;
        runMainLoopUntil([&] { return listed() == nullptr; }, 5s);
    }
}

TEST_F(DeviceErrorKinds, WhatIsNotOnThePhoneIsNotFound)
{
    auto reference = attach("");
    ASSERT_NE(reference, nullptr);
    auto& session = *reference->device();
    EXPECT_FALSE(session.contentsOfFileAtPath("/Music/missing.m4a").has_value()) << "no file is no error";
    try {
        session.listOfFilesAtPath("/No Such Folder");
        ADD_FAILURE() << "a folder that is not there was listed";
    } catch (const Exception& error) {
        EXPECT_EQ(error.kind(), ErrorKind::NotFound);
        EXPECT_EQ(error.name(), "");
        EXPECT_EQ(error.reason(), "");
    }
    EXPECT_THAT(session.listOfFilesAtPath("/Music"), ::testing::ElementsAre("song.m4a"));
}

TEST_F(DeviceErrorKinds, AStoppedRequestIsCancelledAndNotTheDevicesEnd)
{
    auto reference = attach("");
    ASSERT_NE(reference, nullptr);
    auto& session = *reference->device();
    auto token = std::make_shared<CancellationToken>();
    token->cancel();
    std::optional<Exception> error;
    {
        CancellationScope scope(token);
        error = readingFails(session);
    }
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->kind(), ErrorKind::Cancelled) << error->what();
    EXPECT_EQ(error->name(), "AFCDeviceCancelled");
    // The work was stopped, the phone is still there: the next read is not cancelled.
    const auto again = readingFails(session);
    EXPECT_FALSE(again.has_value()) << again->what();
}

TEST_F(DeviceErrorKinds, AnUntrustingPhoneRefusesAndIsReportedWithTheKind)
{
    std::vector<AFCDeviceOpenFailure> reports;
    const auto token = NotificationCenter::defaultCenter().addObserver(
        "AFC_DeviceCouldNotBeOpened", [&](const std::string&, const std::any& object) {
            reports.push_back(std::any_cast<AFCDeviceOpenFailure>(object));
        });
    std::vector<std::string> logged;
    setLogHandler([&](const std::string& line) { logged.push_back(line); });
    attach("", false);
    runMainLoopUntil([&] { return !reports.empty(); });
    NotificationCenter::defaultCenter().removeObserver(token);

    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].kind, ErrorKind::Refused);
    EXPECT_EQ(reports[0].serialNumber, spec_.serialNumber);
    const std::string line = "AFC device " + spec_.serialNumber + " could not be opened: AFCDevice: Device pairing failed";
    EXPECT_EQ(reports[0].description(), line);
    EXPECT_THAT(logged, ::testing::Contains(line));
    EXPECT_EQ(listed(), nullptr);
}

TEST_F(DeviceErrorKinds, ZqpodTellsHowToTrustAPhoneThatRefuses)
{
    attach("", false);
    const auto run = zqpod({"devices"});
    EXPECT_THAT(run.err, HasSubstr("zqpod: AFC device " + spec_.serialNumber +
                                   " could not be opened: AFCDevice: Device pairing failed\n"
                                   "  This computer is not trusted by the device: unlock it, tap \"Trust\" when asked, "
                                   "and pair\n  it (for example with idevicepair pair), then connect it again.\n"));
}

} // namespace
} // namespace zq::test
