// Device references and library objects made from mount paths: where identity and model type
// come from, what loading adds to a volume, and the fallback to the binary database.

#include "ZQCore/device/ZQCore.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/model/Podcasts.h"
#include "tests/support/SampleDevice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <ostream>

namespace zq {
namespace {

namespace fs = std::filesystem;
using test::DatabaseSpec;
using test::TempDir;
using test::VolumeSpec;

/// Library objects live as long as the process and are handed back for the same serial number,
/// so each test device gets a serial of its own, ending in `suffix` (the model key).
std::string serialEndingIn(const std::string& suffix)
{
    static int counter = 0;
    return "ZQDL" + std::to_string(++counter) + suffix;
}

std::shared_ptr<ZQCoreiPod> load(const std::string& root, const VolumeSpec& setup)
{
    test::writeVolume(root, setup);
    return ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(root));
}

std::optional<std::string> serialOf(const Value& properties)
{
    const Value* serial = properties.find("SerialNumber");
    return serial && serial->string() ? std::optional<std::string>(*serial->string()) : std::nullopt;
}

struct SerialCase {
    const char* what;
    std::optional<std::string> sysInfo;
    std::optional<std::string> sysInfoExtended;
    std::optional<std::string> serial;
};
void PrintTo(const SerialCase& c, std::ostream* out) { *out << c.what; }

class DeviceReferenceSerial : public testing::TestWithParam<SerialCase> {};

TEST_P(DeviceReferenceSerial, ComesFromSysInfoExtendedElseSysInfo)
{
    TempDir dir;
    test::writeVolume(dir.path(), VolumeSpec{.sysInfo = GetParam().sysInfo, .sysInfoExtended = GetParam().sysInfoExtended});
    EXPECT_EQ(ZQCoreiPodRef::initWithPath(dir.path())->serialNumber(), GetParam().serial);
}

INSTANTIATE_TEST_SUITE_P(
    DeviceSerials, DeviceReferenceSerial,
    testing::Values(
        SerialCase{"SysInfo as the device writes it", test::sysInfoText("8K9281QJY5N"), std::nullopt, "8K9281QJY5N"},
        SerialCase{"last of two lines wins", "pszSerialNumber: FIRST\nx: y\npszSerialNumber: SECOND\nz: w", std::nullopt, "SECOND"},
        SerialCase{"blanks and tabs trimmed", "a: b\npszSerialNumber: \t  JQ50X  \t \nc: d\n", std::nullopt, "JQ50X"},
        SerialCase{"marker inside a line", "note pszSerialNumber:ABC", std::nullopt, "ABC"},
        SerialCase{"empty serial", "pszSerialNumber:   \n", std::nullopt, ""},
        SerialCase{"no serial line", "pszBoardHwName: iPod P97\n", std::nullopt, std::nullopt},
        SerialCase{"SysInfoExtended wins", test::sysInfoText("FROMSYSINFO"), test::sysInfoExtendedXML("FROMEXTENDED"), "FROMEXTENDED"},
        SerialCase{"unparseable SysInfoExtended still wins", test::sysInfoText("FROMSYSINFO"), "<plist><dict><key>Serial", std::nullopt},
        SerialCase{"empty SysInfoExtended still wins", test::sysInfoText("FROMSYSINFO"), std::string(), std::nullopt},
        SerialCase{"SysInfoExtended without the key", std::nullopt,
                   "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>FamilyID</key><integer>11</integer></dict></plist>",
                   std::nullopt},
        SerialCase{"neither file", std::nullopt, std::nullopt, std::nullopt}));

TEST(DeviceLibrary, EmptyVolumeGetsTheDeviceFolderAndNothingElse)
{
    TempDir dir;
    auto library = load(dir.path(), VolumeSpec{});
    EXPECT_TRUE(fs::is_directory(dir.file("iPod_Control/Device")));
    EXPECT_TRUE(fs::is_empty(dir.file("iPod_Control/Device")));
    EXPECT_FALSE(fs::exists(dir.file("iPod_Control/iTunes")));
    EXPECT_TRUE(library->allTracks().empty() && library->allPlaylists().empty());
    EXPECT_TRUE(library->properties().isNull());
    EXPECT_EQ(library->type(), 0);
}

// Opening a device by its path watches nothing: the shared instance is not made for it. A
// library opened before that instance exists is still found again for the same serial number,
// and is among the instance's libraries once it is made.
TEST(DeviceLibrary, LibrariesOpenedBeforeTheSharedInstanceBecomeItsOwn)
{
    TempDir dir;
    test::writeVolume(dir.path(), VolumeSpec{.sysInfo = test::sysInfoText("ZQEARLY1Y5N")});
    const auto reference = ZQCoreiPodRef::initWithPath(dir.path());
    const auto library = ZQCoreiPod::initWithiPodReference(reference);
    EXPECT_EQ(ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(dir.path())), library);
    const auto& instances = ZQCore::sharedInstance()->iPodInstances();
    EXPECT_NE(std::find(instances.begin(), instances.end(), library), instances.end());
    EXPECT_EQ(ZQCore::sharedInstance()->existingiPodForReference(reference), library);
}

struct TypeCase {
    const char* what;
    std::optional<std::string> sysInfoExtended;  // a serial, or "raw:" and the file's text
    std::optional<std::string> sysInfo;
    std::int32_t type;
    std::optional<std::string> serial = std::nullopt;  // the one in use: "extended", "plain" or "none"
};
void PrintTo(const TypeCase& c, std::ostream* out) { *out << c.what; }

class DeviceModelType : public testing::TestWithParam<TypeCase> {};

TEST_P(DeviceModelType, ComesFromTheLastThreeCharactersOfTheSerialInUse)
{
    const TypeCase& c = GetParam();
    VolumeSpec volume;
    if (c.sysInfoExtended)
        volume.sysInfoExtended = c.sysInfoExtended->starts_with("raw:") ? c.sysInfoExtended->substr(4)
                                                                        : test::sysInfoExtendedXML(*c.sysInfoExtended);
    if (c.sysInfo)
        volume.sysInfo = test::sysInfoText(*c.sysInfo);
    TempDir dir;
    auto library = load(dir.path(), volume);
    EXPECT_EQ(library->type(), c.type);
    if (c.serial == "none") {
        EXPECT_TRUE(library->properties().isNull());
    } else if (c.serial) {
        EXPECT_EQ(serialOf(library->properties()), *c.serial == "extended" ? c.sysInfoExtended : c.sysInfo);
    }
}

INSTANTIATE_TEST_SUITE_P(
    DeviceSerials, DeviceModelType,
    testing::Values(TypeCase{"iPod classic", std::nullopt, serialEndingIn("Y5N"), 11},
                    TypeCase{"iPod 2nd generation", std::nullopt, serialEndingIn("MMB"), 2},
                    TypeCase{"iPod touch", serialEndingIn("W4N"), std::nullopt, 15},
                    TypeCase{"iPhone", serialEndingIn("WH8"), std::nullopt, 16},
                    TypeCase{"unknown suffix", std::nullopt, serialEndingIn("ZZZ"), 0},
                    TypeCase{"suffix is case-sensitive", std::nullopt, serialEndingIn("y5n"), 0},
                    TypeCase{"white space around the serial is trimmed", " \t" + serialEndingIn("Y5N") + " \n", std::nullopt, 11},
                    TypeCase{"a three-character serial is its own key", std::string("1C2"), std::nullopt, 16},
                    TypeCase{"no serial", std::nullopt, std::nullopt, 0},
                    TypeCase{"SysInfoExtended takes precedence", serialEndingIn("W4N"), serialEndingIn("Y5N"), 15, "extended"},
                    TypeCase{"an empty SysInfoExtended counts as absent", std::string("raw:"), serialEndingIn("WH8"), 16, "plain"},
                    TypeCase{"an unparseable SysInfoExtended leaves nothing, no fallback",
                             std::string("raw:<plist><dict><key>Ser"), serialEndingIn("Y5N"), 0, "none"}));

TEST(DeviceLibrary, IncompleteSQLiteLibraryFallsBackToTheBinaryDatabase)
{
    TempDir dir;
    const std::string itlp = "iPod_Control/iTunes/iTunes Library.itlp/";
    auto library = load(dir.path(), VolumeSpec{.database = DatabaseSpec{.tracks = {{.trackID = 1, .title = "Binary"}}},
                                               .files = {{itlp + "Library.itdb", Data()}, {itlp + "Extras.itdb", Data()},
                                                         {itlp + "Locations.itdb", Data()}}});
    ASSERT_EQ(library->allTracks().size(), 1u);
    EXPECT_EQ(library->allTracks()[0]->title(), "Binary");
}

} // namespace
} // namespace zq
