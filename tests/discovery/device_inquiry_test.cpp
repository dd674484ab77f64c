// The device-information inquiry: the page walk against a scripted SCSI device, the real SG_IO
// pass-through against things that refuse it, and the load step that keeps the answer as
// SysInfoExtended without touching anything else on the volume.

#include "ZQCore/device/DeviceInformationInquiry.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "tests/support/ScriptedSCSIDevice.h"
#include "tests/support/SampleDevice.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>

namespace zq {
namespace {

namespace fs = std::filesystem;
using test::SCSIScript;
using test::serialOf;
using test::snapshot;
using test::TempDir;
using test::VolumeSpec;
using Bytes = std::vector<std::uint8_t>;

Bytes text(const std::string& characters) { return SCSIScript::text(characters); }

/// The text the walk gives and what it printed on standard error.
std::pair<std::string, std::string> walk(const std::shared_ptr<SCSIScript>& script)
{
    test::ScriptedSCSIDevice device(script);
    testing::internal::CaptureStderr();
    std::string result = readiPodXMLThroughInterface(device);
    return {result, testing::internal::GetCapturedStderr()};
}

struct WalkCase {
    const char* what;
    std::function<void(SCSIScript&)> script;
    std::string text;
    Bytes asked;
    std::string errors = "";  // word for word
    int releases = 1;
};
void PrintTo(const WalkCase& c, std::ostream* out) { *out << c.what; }

class DiscoveryInquiryWalk : public testing::TestWithParam<WalkCase> {};

TEST_P(DiscoveryInquiryWalk, GivesTheTextOfThePagesThatCouldBeRead)
{
    auto script = std::make_shared<SCSIScript>();
    GetParam().script(*script);
    EXPECT_EQ(walk(script), std::make_pair(GetParam().text, GetParam().errors));
    EXPECT_EQ(script->askedPages(), GetParam().asked);
    EXPECT_EQ(script->releaseCalls, GetParam().releases);
}

/// A page list of `pages`, each page answering `answer`.
std::function<void(SCSIScript&)> serving(Bytes pages, Bytes answer, int lengthByte = -1)
{
    return [=](SCSIScript& s) {
        s.pages[0xC0] = SCSIScript::answer(0xC0, pages, 0, pages.size() >= 251 ? 255 : -1);
        for (auto page : pages)
            s.pages[page] = SCSIScript::answer(page, answer, 0, lengthByte);
    };
}

INSTANTIATE_TEST_SUITE_P(
    Discovery, DiscoveryInquiryWalk,
    testing::Values(
        WalkCase{"a page list answered under another page code is no list",
                 [](SCSIScript& s) {
                     s.pages[0xC0] = SCSIScript::answer(0xC1, {0xC2});
                     s.pages[0xC2] = SCSIScript::answer(0xC2, text("x"));
                 },
                 "", {0xC0}},
        WalkCase{"an empty page list", serving({}, {}), "", {0xC0}},
        WalkCase{"no page list at all", [](SCSIScript&) {}, "", {0xC0}},
        WalkCase{"the third page fails: the first two are kept, the rest not asked",
                 [](SCSIScript& s) {
                     s.pages[0xC0] = SCSIScript::answer(0xC0, {0xC2, 0xC3, 0xC4, 0xC5});
                     s.pages[0xC2] = SCSIScript::answer(0xC2, text("<a>"));
                     s.pages[0xC3] = SCSIScript::answer(0xC3, text("<b>"));
                     s.pages[0xC4] = SCSIScript::answer(0xC4, text("<c>"));
                     s.pages[0xC5] = SCSIScript::answer(0xC5, text("<d>"));
                     s.failingPages = {0xC4};
                 },
                 "<a><b>", {0xC0, 0xC2, 0xC3, 0xC4}},
        WalkCase{"byte 2 of an answer is not part of its length",
                 [](SCSIScript& s) {
                     s.pages[0xC0] = SCSIScript::answer(0xC0, {0xC2}, 0x7F);
                     s.pages[0xC2] = SCSIScript::answer(0xC2, text("abc"), 0x40);
                 },
                 "abc", {0xC0, 0xC2}},
        WalkCase{"a page is taken whatever page code it answers with",
                 [](SCSIScript& s) {
                     s.pages[0xC0] = SCSIScript::answer(0xC0, {0xC2});
                     s.pages[0xC2] = SCSIScript::answer(0x99, text("abc"));
                 },
                 "abc", {0xC0, 0xC2}},
        WalkCase{"the same page may be listed twice", serving({0xC2, 0xC2}, text("ab")), "abab", {0xC0, 0xC2, 0xC2}},
        WalkCase{"bytes from 0x80 up are characters of their own code", serving({0xC2}, {'c', 'a', 'f', 0xE9, 0xFF}),
                 "caf\u00e9\u00ff", {0xC0, 0xC2}},
        WalkCase{"a length byte beyond the buffer reads only what the buffer holds", serving({0xC2}, Bytes(251, 'x'), 255),
                 std::string(251, 'x'), {0xC0, 0xC2}},
        WalkCase{"a page list longer than the buffer lists only what the buffer holds", serving(Bytes(251, 0xC2), text("y")),
                 std::string(251, 'y'), [] {
                     Bytes asked(252, 0xC2);
                     asked[0] = 0xC0;
                     return asked;
                 }()},
        WalkCase{"refused exclusive access asks nothing and releases nothing",
                 [](SCSIScript& s) {
                     s = SCSIScript::servingText("<plist/>");
                     s.exclusiveAccessError = 16;
                 },
                 "", {}, "xxxxxxxx ObtainExclusiveAccess failed. (0x00000010)\n", 0},
        WalkCase{"a failed release is reported and the text kept",
                 [](SCSIScript& s) {
                     s = SCSIScript::servingText("<plist/>");
                     s.releaseError = 0x2C5;
                 },
                 "<plist/>", {0xC0, 0xC2}, "xxxxxxxx ReleaseExclusiveAccess failed. (0x000002c5)\n"},
        WalkCase{"a device without tasks gives nothing and is still released",
                 [](SCSIScript& s) {
                     s = SCSIScript::servingText("<plist/>");
                     s.refuseTasks = true;
                 },
                 "", {}, "xxxxxxxx CreateSCSITask returned NULL.\n"}),
    [](const testing::TestParamInfo<WalkCase>& param) { return "case" + std::to_string(param.index); });

std::string newSerial()
{
    static int counter = 0;
    return "ZQDQ" + std::to_string(++counter) + "YMV";
}

/// A device volume with SysInfo (unless `serial` is empty), and a device that answers `answer`.
class DiscoveryInquiryLoad : public testing::Test {
protected:
    void make(const std::string& serial, const std::string& answer, std::optional<std::string> sysInfoExtended = {})
    {
        VolumeSpec setup;
        setup.database = test::DatabaseSpec{.tracks = {{.trackID = 1, .title = "One", .location = ":iPod_Control:Music:F00:A.mp3"}},
                                           .playlists = {{.name = "Scripted iPod", .master = 1, .items = {1}}}};
        if (!serial.empty())
            setup.sysInfo = test::sysInfoText(serial);
        setup.sysInfoExtended = sysInfoExtended;
        setup.files["iPod_Control/Music/F00/A.mp3"] = Data(std::string("ID3 audio"));
        test::writeVolume(root_, setup);
        script_ = std::make_shared<SCSIScript>(SCSIScript::servingText(answer, 97));
        before_ = snapshot(root_);
    }
    std::shared_ptr<test::ScriptediPod> load() { return test::ScriptediPod::load(ZQCoreiPodRef::initWithPath(root_), script_); }

    TempDir dir_;
    const std::string root_ = dir_.file("IPOD");
    std::shared_ptr<SCSIScript> script_;
    decltype(snapshot("")) before_;
};

TEST_F(DiscoveryInquiryLoad, AnswerIsKeptAsSysInfoExtendedAndNothingElseOnTheVolumeChanges)
{
    const std::string serial = newSerial(), xml = test::sysInfoExtendedXML(serial, {{"ModelNumStr", "xB029"}});
    make(newSerial(), xml);
    testing::internal::CaptureStderr();
    auto library = load();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    // The device's own answer wins over SysInfo's serial, and is on the volume word for word.
    EXPECT_EQ(serialOf(*library), serial);
    ASSERT_NE(library->properties().find("ModelNumStr"), nullptr);
    auto after = snapshot(root_);
    EXPECT_EQ(after["iPod_Control/Device/SysInfoExtended"].first, xml);
    after.erase("iPod_Control/Device/SysInfoExtended");
    EXPECT_EQ(after, before_) << "nothing else added (no temporary file left over), changed or touched";
    EXPECT_EQ(script_->obtainCalls, 1);
    EXPECT_EQ(script_->releaseCalls, 1);
}

} // namespace
} // namespace zq
