// Sessions and device notices over a scripted device: the exception and reason of every failing
// step, the departure broadcast reaching only the session of the departed device, and the
// factory's order of broadcast and delegate call.

#include "tests/afc/FakeMobileDevice.h"

#include "ZQCore/afc/AFCDevice.h"
#include "ZQCore/afc/AFCDeviceRef.h"
#include "ZQCore/afc/AFCFactory.h"
#include "ZQCore/afc/AFCiPodRef.h"
#include "ZQCore/device/ZQCore.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/NotificationCenter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>

namespace zq::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::shared_ptr<FakeDevice> fakeDevice(std::uint32_t id, const std::string& serial)
{
    return std::make_shared<FakeDevice>(id, std::map<std::string, std::string>{{"SerialNumber", serial}});
}

// ---- failures of the session path ------------------------------------------------------------

struct FailureCase {
    const char* name;
    FakeSessionScript script;
    const char* reason;
    const char* lastStep;
};
void PrintTo(const FailureCase& c, std::ostream* out) { *out << c.name; }

class AFCSessionFailure : public ::testing::TestWithParam<FailureCase> {};

TEST_P(AFCSessionFailure, RaisesAFCDeviceWithTheStepAndItsErrorNumber)
{
    const auto& c = GetParam();
    auto device = fakeDevice(3, "FAIL1");
    device->script = c.script;
    try {
        AFCDevice::initWithRef(AFCDeviceRef::initWithAFCDeviceStruct(device));
        FAIL() << "no exception";
    } catch (const Exception& error) {
        EXPECT_EQ(error.name(), "AFCDevice");
        EXPECT_EQ(error.reason(), c.reason);
    }
    // Nothing after the failing step is tried, and nothing before it is undone.
    ASSERT_FALSE(device->steps.empty());
    EXPECT_EQ(device->steps.back(), c.lastStep);
}

FakeSessionScript with(void (*change)(FakeSessionScript&))
{
    FakeSessionScript script;
    change(script);
    return script;
}

INSTANTIATE_TEST_SUITE_P(
    Steps, AFCSessionFailure,
    ::testing::Values(
        FailureCase{"Connect", with([](auto& s) { s.connectError = -3; }), "AMDeviceConnect failed with error -3", "connect"},
        FailureCase{"NotPaired", with([](auto& s) { s.paired = false; }), "Device pairing failed", "isPaired"},
        FailureCase{"ValidatePairing", with([](auto& s) { s.validateError = -19; }),
                    "AMDeviceValidatePairing failed with error -19", "validatePairing"},
        FailureCase{"StartSession", with([](auto& s) { s.sessionError = -4; }), "AMDeviceStartSession failed with error -4",
                    "startSession"},
        FailureCase{"StartService", with([](auto& s) { s.serviceError = -17; }),
                    "AMDeviceStartService failed with error -17", "startService com.apple.afc"},
        FailureCase{"NoServiceHandle", with([](auto& s) { s.serviceHandle = false; }),
                    "AMDeviceStartService didn't initialise a connection", "startService com.apple.afc"},
        FailureCase{"OpenConduit", with([](auto& s) { s.conduitError = 30; }), "AFCConnectionOpen failed with error 30",
                    "afcConnectionOpen"}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

TEST(AFCSession, AReadySessionTookEveryStepInOrderAndKeepsItsReference)
{
    auto device = fakeDevice(4, "OK1");
    auto reference = AFCDeviceRef::initWithAFCDeviceStruct(device);
    auto session = AFCDevice::initWithRef(reference);
    ASSERT_NE(session, nullptr);
    EXPECT_THAT(device->steps, ElementsAre("connect", "isPaired", "validatePairing", "startSession",
                                           "startService com.apple.afc", "afcConnectionOpen"));
    EXPECT_EQ(session->device(), reference);
    EXPECT_NE(session->deviceInterface(), nullptr);
}

TEST(AFCSession, AReferenceWithoutADeviceGivesNoSession)
{
    EXPECT_EQ(AFCDevice::initWithRef(AFCDeviceRef::initWithAFCDeviceStruct(nullptr)), nullptr);
    EXPECT_EQ(AFCDevice::initWithRef(nullptr), nullptr);
}

TEST(AFCDeviceReference, IsNamedByItsSerialNumberAndReadsIdsFromTheRecord)
{
    auto device = std::make_shared<FakeDevice>(
        77, std::map<std::string, std::string>{{"SerialNumber", "C8QH7"}, {"DeviceName", "Anna's iPhone"}});
    auto reference = AFCDeviceRef::initWithAFCDeviceStruct(device);
    EXPECT_EQ(reference->serialNumber(), "C8QH7");
    EXPECT_EQ(reference->name(), "C8QH7");
    EXPECT_EQ(reference->deviceID(), 77u);
    EXPECT_EQ(reference->productID(), 0x12a8u);
}

// ---- departures ------------------------------------------------------------------------------

struct RecordingSessionDelegate : AFCDeviceDelegate {
    std::vector<std::shared_ptr<AFCDevice>> departed;
    void deviceWasDisconnected(const std::shared_ptr<AFCDevice>& device) override { departed.push_back(device); }
};

TEST(AFCSession, TheDepartureBroadcastReachesOnlyTheSessionOfThatDevice)
{
    auto first = AFCDevice::initWithRef(AFCDeviceRef::initWithAFCDeviceStruct(fakeDevice(101, "DEP1")));
    auto second = AFCDevice::initWithRef(AFCDeviceRef::initWithAFCDeviceStruct(fakeDevice(102, "DEP2")));
    auto firstDelegate = std::make_shared<RecordingSessionDelegate>();
    auto secondDelegate = std::make_shared<RecordingSessionDelegate>();
    first->setDelegate(firstDelegate);
    second->setDelegate(secondDelegate);

    NotificationCenter::defaultCenter().postNotification("AFC_DeviceWasDisconnected", std::uint32_t{102});

    EXPECT_THAT(firstDelegate->departed, IsEmpty());
    EXPECT_THAT(secondDelegate->departed, ElementsAre(second));
}

TEST(AFCSession, AGoneSessionNoLongerListens)
{
    auto delegate = std::make_shared<RecordingSessionDelegate>();
    {
        auto session = AFCDevice::initWithRef(AFCDeviceRef::initWithAFCDeviceStruct(fakeDevice(103, "DEP3")));
        session->setDelegate(delegate);
    }
    NotificationCenter::defaultCenter().postNotification("AFC_DeviceWasDisconnected", std::uint32_t{103});
    EXPECT_THAT(delegate->departed, IsEmpty());
}

TEST(AFCSession, ANewReferenceOpensANewConduit)
{
    auto device = fakeDevice(104, "REF1");
    auto session = AFCDevice::initWithRef(AFCDeviceRef::initWithAFCDeviceStruct(device));
    const auto before = session->deviceInterface();
    auto returned = fakeDevice(105, "REF1");
    auto reference = AFCDeviceRef::initWithAFCDeviceStruct(returned);
    session->setDeviceRef(reference);
    EXPECT_NE(session->deviceInterface(), before);
    EXPECT_EQ(session->device(), reference);
    EXPECT_EQ(returned->steps.back(), "afcConnectionOpen");
}

// ---- the factory -----------------------------------------------------------------------------

struct RecordingFactoryDelegate : AFCFactoryDelegate {
    std::vector<std::string>* events;
    explicit RecordingFactoryDelegate(std::vector<std::string>* log) : events(log) {}
    void AFCDeviceWasConnected(const std::shared_ptr<AFCDeviceRef>& device) override
    {
        events->push_back("connected " + device->serialNumber().value_or("?"));
    }
    void AFCDeviceWasDisconnected(const std::shared_ptr<AFCDeviceRef>& device) override
    {
        events->push_back("disconnected " + device->serialNumber().value_or("?"));
    }
};

class AFCFactoryNotices : public ::testing::Test {
protected:
    void SetUp() override
    {
        previous = AFCFactory::factory()->delegate();
        token = NotificationCenter::defaultCenter().addObserver(
            "AFC_DeviceWasDisconnected", [this](const std::string&, const std::any& object) {
                events.push_back("broadcast " + std::to_string(std::any_cast<std::uint32_t>(object)));
            });
    }
    void TearDown() override
    {
        NotificationCenter::defaultCenter().removeObserver(token);
        AFCFactory::factory()->setDelegate(previous);
    }
    std::shared_ptr<AFCFactoryDelegate> previous;
    NotificationCenter::Token token = 0;
    std::vector<std::string> events;
};

TEST_F(AFCFactoryNotices, BroadcastsADepartureBeforeTellingTheDelegate)
{
    auto delegate = std::make_shared<RecordingFactoryDelegate>(&events);
    AFCFactory::factory()->setDelegate(delegate);
    auto device = fakeDevice(31, "FAC1");
    AFCFactory::factory()->notify({device, 1});
    AFCFactory::factory()->notify({device, 2});
    EXPECT_THAT(events, ElementsAre("connected FAC1", "broadcast 31", "disconnected FAC1"));
}

TEST_F(AFCFactoryNotices, OtherMessagesAreIgnored)
{
    auto delegate = std::make_shared<RecordingFactoryDelegate>(&events);
    AFCFactory::factory()->setDelegate(delegate);
    AFCFactory::factory()->notify({fakeDevice(32, "FAC2"), 3});
    AFCFactory::factory()->notify({fakeDevice(32, "FAC2"), 0});
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(AFCFactoryNotices, ADepartureIsBroadcastWithoutADelegate)
{
    AFCFactory::factory()->setDelegate(nullptr);
    AFCFactory::factory()->notify({fakeDevice(33, "FAC3"), 2});
    EXPECT_THAT(events, ElementsAre("broadcast 33"));
}

// ---- ZQCore's list of mobile devices ----------------------------------------------------------

class ZQCoreMobileDevices : public ::testing::Test {
protected:
    void SetUp() override
    {
        core = ZQCore::sharedInstance();
        token = core->addObserver("connectediPods", [this](const std::string&, Observable::Phase phase) {
            notices.push_back(phase == Observable::Phase::WillChange ? "will" : "did");
        });
    }
    void TearDown() override { core->removeObserver(token); }

    std::vector<std::shared_ptr<AFCiPodRef>> listedWithSerial(const std::string& serial) const
    {
        std::vector<std::shared_ptr<AFCiPodRef>> found;
        for (const auto& reference : core->connectediPods())
            if (auto mobile = std::dynamic_pointer_cast<AFCiPodRef>(reference); mobile && mobile->serialNumber() == serial)
                found.push_back(mobile);
        return found;
    }

    std::shared_ptr<ZQCore> core;
    Observable::Token token = 0;
    std::vector<std::string> notices;
};

TEST_F(ZQCoreMobileDevices, ADeviceReportedTwiceIsListedTwiceAndLeavesOneAtATime)
{
    auto device = fakeDevice(900, "DUPLICATE1");
    core->AFCDeviceWasConnected(AFCDeviceRef::initWithAFCDeviceStruct(device));
    core->AFCDeviceWasConnected(AFCDeviceRef::initWithAFCDeviceStruct(device));
    const auto both = listedWithSerial("DUPLICATE1");
    ASSERT_EQ(both.size(), 2u);

    // The last one listed goes first.
    core->AFCDeviceWasDisconnected(AFCDeviceRef::initWithAFCDeviceStruct(device));
    EXPECT_THAT(listedWithSerial("DUPLICATE1"), ElementsAre(both[0]));
    core->AFCDeviceWasDisconnected(AFCDeviceRef::initWithAFCDeviceStruct(device));
    EXPECT_THAT(listedWithSerial("DUPLICATE1"), IsEmpty());
    // A departure that matches nothing is still announced.
    core->AFCDeviceWasDisconnected(AFCDeviceRef::initWithAFCDeviceStruct(device));
    EXPECT_EQ(notices.size(), 10u);
}

TEST_F(ZQCoreMobileDevices, ADeviceThatRefusesTheSessionIsNotListedAndTheNoticesStayPaired)
{
    auto device = fakeDevice(901, "REFUSING1");
    device->script.paired = false;
    EXPECT_THROW(core->AFCDeviceWasConnected(AFCDeviceRef::initWithAFCDeviceStruct(device)), Exception);
    EXPECT_THAT(listedWithSerial("REFUSING1"), IsEmpty());
    EXPECT_THAT(notices, ElementsAre("will", "did"));
}

TEST(AFCFactory, IsOneObjectForTheProcess) { EXPECT_EQ(AFCFactory::factory().get(), AFCFactory::factory().get()); }

} // namespace
} // namespace zq::test
