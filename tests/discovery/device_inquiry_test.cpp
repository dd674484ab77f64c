// The device-information inquiry: the page walk against a scripted SCSI device, the real SG_IO
// pass-through against things that refuse it, and the load step that keeps the answer as
// SysInfoExtended without touching anything else on the volume.

#include "ZQCore/device/DeviceInformationInquiry.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "tests/discovery/ScriptedSCSIDevice.h"
#include "tests/support/DeviceImage.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

namespace zq {
namespace {

namespace fs = std::filesystem;
using test::SCSIScript;
using test::TempDir;
using test::VolumeSpec;

using Bytes = std::vector<std::uint8_t>;

struct Walk {
    std::string text;
    std::string errors;  ///< what was printed on standard error
};

Walk walk(const std::shared_ptr<SCSIScript>& script)
{
    test::ScriptedSCSIDevice device(script);
    testing::internal::CaptureStderr();
    Walk result;
    result.text = readiPodXMLThroughInterface(device);
    result.errors = testing::internal::GetCapturedStderr();
    return result;
}

// ---- the page walk ------------------------------------------------------------------------------

TEST(DiscoveryInquiry, ListedPagesAreJoinedInListOrderUnderExclusiveAccess)
{
    auto script = std::make_shared<SCSIScript>();
    script->pages[0xC0] = SCSIScript::answer(0xC0, {0xC5, 0xC2});
    script->pages[0xC5] = SCSIScript::answer(0xC5, SCSIScript::text("<plist>"));
    script->pages[0xC2] = SCSIScript::answer(0xC2, SCSIScript::text("</plist>"));

    const Walk result = walk(script);

    EXPECT_EQ(result.text, "<plist></plist>");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(script->askedPages(), (Bytes{0xC0, 0xC5, 0xC2}));
    EXPECT_EQ(script->obtainCalls, 1);
    EXPECT_EQ(script->releaseCalls, 1);
    EXPECT_TRUE(script->exclusiveWhileAsking);
    // Every command is the same 6-byte INQUIRY with EVPD into a zeroed 255-byte buffer.
    for (const auto& command : script->commands) {
        const std::uint8_t page = command.cdb.at(2);
        EXPECT_EQ(command.cdb, (Bytes{0x12, 0x01, page, 0x00, 0xFF, 0x00}));
        EXPECT_EQ(command.transferCount, 255u);
        EXPECT_EQ(command.bufferSize, 255u);
        EXPECT_EQ(command.direction, SCSIDataTransferDirection::FromTargetToInitiator);
        EXPECT_EQ(command.timeout, 10000u);
        EXPECT_TRUE(command.bufferWasZeroed) << "page " << int(page);
    }
}

struct WalkCase {
    const char* what;
    std::function<void(SCSIScript&)> script;
    std::string text;
    Bytes asked;
};

void PrintTo(const WalkCase& c, std::ostream* out) { *out << c.what; }

class DiscoveryInquiryWalk : public testing::TestWithParam<WalkCase> {};

TEST_P(DiscoveryInquiryWalk, GivesTheTextOfThePagesThatCouldBeRead)
{
    auto script = std::make_shared<SCSIScript>();
    GetParam().script(*script);
    const Walk result = walk(script);
    EXPECT_EQ(result.text, GetParam().text);
    EXPECT_EQ(script->askedPages(), GetParam().asked);
    EXPECT_EQ(script->releaseCalls, 1);
}

std::vector<std::uint8_t> repeated(std::uint8_t byte, std::size_t count) { return Bytes(count, byte); }

INSTANTIATE_TEST_SUITE_P(
    Discovery, DiscoveryInquiryWalk,
    testing::Values(
        WalkCase{"a page list answered under another page code is no list",
                 [](SCSIScript& s) {
                     s.pages[0xC0] = SCSIScript::answer(0xC1, {0xC2});
                     s.pages[0xC2] = SCSIScript::answer(0xC2, SCSIScript::text("x"));
                 },
                 "", {0xC0}},
        WalkCase{"an empty page list",
                 [](SCSIScript& s) { s.pages[0xC0] = SCSIScript::answer(0xC0, {}); }, "", {0xC0}},
        WalkCase{"no page list at all", [](SCSIScript&) {}, "", {0xC0}},
        WalkCase{"the third page fails: the first two are kept, the rest not asked",
                 [](SCSIScript& s) {
                     s.pages[0xC0] = SCSIScript::answer(0xC0, {0xC2, 0xC3, 0xC4, 0xC5});
                     s.pages[0xC2] = SCSIScript::answer(0xC2, SCSIScript::text("<a>"));
                     s.pages[0xC3] = SCSIScript::answer(0xC3, SCSIScript::text("<b>"));
                     s.pages[0xC4] = SCSIScript::answer(0xC4, SCSIScript::text("<c>"));
                     s.pages[0xC5] = SCSIScript::answer(0xC5, SCSIScript::text("<d>"));
                     s.failingPages = {0xC4};
                 },
                 "<a><b>", {0xC0, 0xC2, 0xC3, 0xC4}},
        WalkCase{"byte 2 of an answer is not part of its length",
                 [](SCSIScript& s) {
                     s.pages[0xC0] = SCSIScript::answer(0xC0, {0xC2}, 0x7F);
                     s.pages[0xC2] = SCSIScript::answer(0xC2, SCSIScript::text("abc"), 0x40);
                 },
                 "abc", {0xC0, 0xC2}},
        WalkCase{"a page is taken whatever page code it answers with",
                 [](SCSIScript& s) {
                     s.pages[0xC0] = SCSIScript::answer(0xC0, {0xC2});
                     s.pages[0xC2] = SCSIScript::answer(0x99, SCSIScript::text("abc"));
                 },
                 "abc", {0xC0, 0xC2}},
        WalkCase{"the same page may be listed twice",
                 [](SCSIScript& s) {
                     s.pages[0xC0] = SCSIScript::answer(0xC0, {0xC2, 0xC2});
                     s.pages[0xC2] = SCSIScript::answer(0xC2, SCSIScript::text("ab"));
                 },
                 "abab", {0xC0, 0xC2, 0xC2}},
        WalkCase{"bytes from 0x80 up are characters of their own code",
                 [](SCSIScript& s) {
                     s.pages[0xC0] = SCSIScript::answer(0xC0, {0xC2});
                     s.pages[0xC2] = SCSIScript::answer(0xC2, {'c', 'a', 'f', 0xE9, 0xFF});
                 },
                 "caf\u00e9\u00ff", {0xC0, 0xC2}},
        WalkCase{"a length byte beyond the buffer reads only what the buffer holds",
                 [](SCSIScript& s) {
                     s.pages[0xC0] = SCSIScript::answer(0xC0, {0xC2});
                     s.pages[0xC2] = SCSIScript::answer(0xC2, repeated('x', 251), 0, 255);
                 },
                 std::string(251, 'x'), {0xC0, 0xC2}},
        WalkCase{"a page list longer than the buffer lists only what the buffer holds",
                 [](SCSIScript& s) {
                     s.pages[0xC0] = SCSIScript::answer(0xC0, repeated(0xC2, 251), 0, 255);
                     s.pages[0xC2] = SCSIScript::answer(0xC2, SCSIScript::text("y"));
                 },
                 std::string(251, 'y'), [] {
                     Bytes asked = {0xC0};
                     asked.insert(asked.end(), 251, 0xC2);
                     return asked;
                 }()}),
    [](const testing::TestParamInfo<WalkCase>& param) { return "case" + std::to_string(param.index); });

TEST(DiscoveryInquiry, RefusedExclusiveAccessAsksNothingAndReleasesNothing)
{
    auto script = std::make_shared<SCSIScript>(SCSIScript::servingText("<plist/>"));
    script->exclusiveAccessError = 16;
    const Walk result = walk(script);
    EXPECT_EQ(result.text, "");
    EXPECT_EQ(result.errors, "xxxxxxxx ObtainExclusiveAccess failed. (0x00000010)\n");
    EXPECT_TRUE(script->commands.empty());
    EXPECT_EQ(script->releaseCalls, 0);
}

TEST(DiscoveryInquiry, FailedReleaseIsReportedAndTheTextKept)
{
    auto script = std::make_shared<SCSIScript>(SCSIScript::servingText("<plist/>"));
    script->releaseError = 0x2C5;
    const Walk result = walk(script);
    EXPECT_EQ(result.text, "<plist/>");
    EXPECT_EQ(result.errors, "xxxxxxxx ReleaseExclusiveAccess failed. (0x000002c5)\n");
}

TEST(DiscoveryInquiry, FailingStepsAreReportedWordForWordAndOnlyTheStatusCounts)
{
    // Errors while setting a command up do not stop it: the device still answered GOOD.
    auto script = std::make_shared<SCSIScript>();
    script->pages[0x80] = SCSIScript::answer(0x80, SCSIScript::text("serial"));
    script->cdbError = 1;
    script->scatterGatherError = 2;
    script->timeoutError = 0xE00002BC;
    test::ScriptedSCSIDevice device(script);
    VPDBuffer buffer {};
    testing::internal::CaptureStderr();
    EXPECT_TRUE(ExecuteVPDInquiryUsingSTUC(&device, 0x80, buffer));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "xxxxxxxx Error setting CDB. (0x00000001)\n"
              "xxxxxxxx Error setting scatter-gather entries. (0x00000002)\n"
              "xxxxxxxx Error setting timeout. (0xe00002bc)\n");
    EXPECT_EQ(buffer[1], 0x80);
    EXPECT_EQ(buffer[3], 6);

    // A task that cannot run has no status: the inquiry fails.
    script->cdbError = script->scatterGatherError = script->timeoutError = 0;
    script->executeError = 5;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(ExecuteVPDInquiryUsingSTUC(&device, 0x80, buffer));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "xxxxxxxx Error executing task. (0x00000005)\n");
    EXPECT_TRUE(std::all_of(buffer.begin(), buffer.end(), [](std::uint8_t b) { return b == 0; }))
        << "the buffer is zeroed before each command, also one that fails";
}

TEST(DiscoveryInquiry, DeviceWithoutTasksGivesAnEmptyTextAndIsStillReleased)
{
    auto script = std::make_shared<SCSIScript>(SCSIScript::servingText("<plist/>"));
    script->refuseTasks = true;
    const Walk result = walk(script);
    EXPECT_EQ(result.text, "");
    EXPECT_EQ(result.errors, "xxxxxxxx CreateSCSITask returned NULL.\n");
    EXPECT_EQ(script->releaseCalls, 1);
}

// ---- the real pass-through against things that refuse it ------------------------------------------

struct Refusal {
    const char* what;
    std::function<std::string(const TempDir&)> node;
    std::string message;
};

void PrintTo(const Refusal& r, std::ostream* out) { *out << r.what; }

class DiscoveryInquirySGIO : public testing::TestWithParam<Refusal> {};

TEST_P(DiscoveryInquirySGIO, RefusalIsAMessageAndNoInterface)
{
    TempDir dir;
    const std::string node = GetParam().node(dir);
    testing::internal::CaptureStderr();
    auto interface = CreateDeviceInterfaceUsingSTUC(node);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), GetParam().message);
    EXPECT_EQ(interface, nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Discovery, DiscoveryInquirySGIO,
    testing::Values(Refusal{"a missing node", [](const TempDir& d) { return d.file("sdz"); },
                            "xxxxxxxx Couldn't create a plugin interface for the io_service_t. (0x00000002)\n"},
                    Refusal{"a character device that is no SCSI device", [](const TempDir&) { return std::string("/dev/null"); },
                            "xxxxxxxx Couldn't create SCSI device interface. (25)\n"},
                    Refusal{"a plain file",
                            [](const TempDir& d) {
                                std::ofstream(d.file("image")) << "not a disk";
                                return d.file("image");
                            },
                            "xxxxxxxx Couldn't create SCSI device interface. (25)\n"}),
    [](const testing::TestParamInfo<Refusal>& param) { return "case" + std::to_string(param.index); });

// ---- the load step ------------------------------------------------------------------------------

/// Every file and folder below `root`: contents (or "<folder>") and modification time.
std::map<std::string, std::pair<std::string, fs::file_time_type>> snapshot(const std::string& root)
{
    std::map<std::string, std::pair<std::string, fs::file_time_type>> entries;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string relative = fs::relative(entry.path(), root).string();
        if (entry.is_directory()) {
            entries[relative] = {"<folder>", {}};
        } else {
            std::ifstream in(entry.path(), std::ios::binary);
            std::ostringstream contents;
            contents << in.rdbuf();
            entries[relative] = {contents.str(), entry.last_write_time()};
        }
    }
    return entries;
}

std::string newSerial()
{
    static int counter = 0;
    return "ZQDQ" + std::to_string(++counter) + "YMV";
}

std::optional<std::string> serialOf(const ZQCoreiPod& library)
{
    const Value* serial = library.properties().find("SerialNumber");
    return serial && serial->string() ? std::optional<std::string>(*serial->string()) : std::nullopt;
}

VolumeSpec deviceWithSysInfo(const std::string& serial)
{
    VolumeSpec spec;
    spec.database = test::DatabaseSpec{.tracks = {{.trackID = 1, .title = "One", .location = ":iPod_Control:Music:F00:A.mp3"}},
                                       .playlists = {{.name = "Scripted iPod", .master = 1, .items = {1}}}};
    spec.sysInfo = test::sysInfoText(serial);
    spec.files["iPod_Control/Music/F00/A.mp3"] = Data(std::string("ID3 audio"));
    return spec;
}

TEST(DiscoveryInquiryLoad, AnswerIsKeptAsSysInfoExtendedAndNothingElseOnTheVolumeChanges)
{
    TempDir dir;
    const std::string root = dir.file("IPOD");
    test::writeVolume(root, deviceWithSysInfo(newSerial()));
    const std::string serial = newSerial();
    const std::string xml = test::sysInfoExtendedXML(serial, {{"ModelNumStr", "xB029"}});
    auto script = std::make_shared<SCSIScript>(SCSIScript::servingText(xml, 97));
    const auto before = snapshot(root);

    testing::internal::CaptureStderr();
    auto library = test::ScriptediPod::load(ZQCoreiPodRef::initWithPath(root), script);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    // The device's own answer wins over SysInfo's serial, and is on the volume word for word.
    EXPECT_EQ(serialOf(*library), serial);
    ASSERT_NE(library->properties().find("ModelNumStr"), nullptr);
    auto after = snapshot(root);
    ASSERT_EQ(after.count("iPod_Control/Device/SysInfoExtended"), 1u);
    EXPECT_EQ(after["iPod_Control/Device/SysInfoExtended"].first, xml);
    // Nothing else was added (no temporary file left over), changed or touched.
    after.erase("iPod_Control/Device/SysInfoExtended");
    EXPECT_EQ(after, before);
    EXPECT_EQ(script->obtainCalls, 1);
    EXPECT_EQ(script->releaseCalls, 1);
}

TEST(DiscoveryInquiryLoad, DeviceFolderIsMadeForTheAnswerWhenMissing)
{
    TempDir dir;
    const std::string root = dir.file("IPOD");
    VolumeSpec spec = deviceWithSysInfo("unused");
    spec.sysInfo.reset();
    test::writeVolume(root, spec);
    ASSERT_FALSE(fs::exists(root + "/iPod_Control/Device"));
    const std::string serial = newSerial();
    auto script = std::make_shared<SCSIScript>(SCSIScript::servingText(test::sysInfoExtendedXML(serial)));

    auto library = test::ScriptediPod::load(ZQCoreiPodRef::initWithPath(root), script);

    EXPECT_EQ(serialOf(*library), serial);
    EXPECT_TRUE(fs::is_regular_file(root + "/iPod_Control/Device/SysInfoExtended"));
    EXPECT_EQ(std::distance(fs::directory_iterator(root + "/iPod_Control/Device"), fs::directory_iterator()), 1);
}

TEST(DiscoveryInquiryLoad, EmptyAnswerWritesNothingAndSysInfoGivesTheSerial)
{
    TempDir dir;
    const std::string root = dir.file("IPOD");
    const std::string serial = newSerial();
    test::writeVolume(root, deviceWithSysInfo(serial));
    auto script = std::make_shared<SCSIScript>(SCSIScript::servingText(test::sysInfoExtendedXML(newSerial())));
    script->exclusiveAccessError = 16;
    const auto before = snapshot(root);

    testing::internal::CaptureStderr();
    auto library = test::ScriptediPod::load(ZQCoreiPodRef::initWithPath(root), script);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "xxxxxxxx ObtainExclusiveAccess failed. (0x00000010)\n");

    EXPECT_EQ(serialOf(*library), serial);
    EXPECT_EQ(snapshot(root), before);
}

TEST(DiscoveryInquiryLoad, DeviceIsNotAskedWhenSysInfoExtendedIsThere)
{
    TempDir dir;
    const std::string root = dir.file("IPOD");
    const std::string serial = newSerial();
    VolumeSpec spec = deviceWithSysInfo(newSerial());
    spec.sysInfoExtended = test::sysInfoExtendedXML(serial);
    test::writeVolume(root, spec);
    auto script = std::make_shared<SCSIScript>(SCSIScript::servingText(test::sysInfoExtendedXML(newSerial())));

    auto library = test::ScriptediPod::load(ZQCoreiPodRef::initWithPath(root), script);

    EXPECT_EQ(serialOf(*library), serial);
    EXPECT_EQ(library->nubLookups, 0);
    EXPECT_TRUE(script->commands.empty());
}

TEST(DiscoveryInquiryLoad, AnswerThatIsNoPropertyListIsKeptButGivesNoProperties)
{
    // SysInfoExtended wins once it exists, even unreadable: SysInfo is not consulted.
    TempDir dir;
    const std::string root = dir.file("IPOD");
    test::writeVolume(root, deviceWithSysInfo(newSerial()));
    auto script = std::make_shared<SCSIScript>(SCSIScript::servingText("garbled <plist"));

    auto library = test::ScriptediPod::load(ZQCoreiPodRef::initWithPath(root), script);

    EXPECT_EQ(library->properties().type(), Value::Type::Null);
    EXPECT_EQ(library->type(), 0);
    std::ifstream written(root + "/iPod_Control/Device/SysInfoExtended");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(written), {}), "garbled <plist");
}

TEST(DiscoveryInquiryLoad, RealLookupFindsNoDeviceBehindAnOrdinaryFolder)
{
    // A folder on the machine's own disk (or tmpfs) has no Apple USB device above it: the load
    // asks nothing, writes nothing and reads SysInfo.
    TempDir dir;
    const std::string root = dir.file("IPOD");
    const std::string serial = newSerial();
    test::writeVolume(root, deviceWithSysInfo(serial));
    const auto before = snapshot(root);

    testing::internal::CaptureStderr();
    auto library = ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(root));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    EXPECT_FALSE(library->informationNubForPath(root).has_value());
    EXPECT_EQ(serialOf(*library), serial);
    EXPECT_EQ(snapshot(root), before);
    EXPECT_FALSE(ZQCoreiPod::bsdNameForPath(dir.file("missing")).has_value());

    // Asking a nub whose disk refuses SCSI commands gives nothing, and says why.
    testing::internal::CaptureStderr();
    EXPECT_EQ(library->getiPodXML(DeviceInformationNub{"/sys/devices/none", "/dev/null"}), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "xxxxxxxx Couldn't create SCSI device interface. (25)\n");
}

} // namespace
} // namespace zq
