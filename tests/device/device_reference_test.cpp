// Device references made from mount paths: the missing-path error, the device name and its
// fallbacks, where the serial number comes from, copies and printable forms.

#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Exception.h"
#include "tests/support/DeviceImage.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <ostream>

namespace zq {
namespace {

using test::DatabaseSpec;
using test::PlaylistSpec;
using test::TempDir;
using test::VolumeSpec;

std::shared_ptr<ZQCoreiPodRef> referenceTo(const std::string& root, const VolumeSpec& spec)
{
    test::writeVolume(root, spec);
    return ZQCoreiPodRef::initWithPath(root);
}

TEST(DeviceReference, MissingPathIsRefusedWithTheNamedException)
{
    TempDir dir;
    try {
        ZQCoreiPodRef::initWithPath(dir.file("not-mounted"));
        ADD_FAILURE() << "no exception";
    } catch (const Exception& error) {
        EXPECT_EQ(error.name(), "ZQCoreiPodNotFoundException");
        EXPECT_EQ(error.reason(), "Exception: Could not init ZQCoreiPodRef - path doesn't exist.");
    }
}

TEST(DeviceReference, AnyExistingFolderIsAReferenceNamediPod)
{
    // Whether iPod_Control is there is the caller's test, not the reference's.
    TempDir dir;
    auto reference = ZQCoreiPodRef::initWithPath(dir.path());
    EXPECT_EQ(reference->name(), "iPod");
    EXPECT_EQ(reference->revision(), "unknown");
    EXPECT_EQ(reference->path(), dir.path());
    EXPECT_TRUE(reference->properties().isNull());
    EXPECT_EQ(reference->serialNumber(), std::nullopt);
    EXPECT_EQ(reference->iPodRef(), nullptr);
    EXPECT_EQ(reference->description(), "iPod name=iPod rev=unknown path=" + dir.path());
    EXPECT_TRUE(reference->icon());
}

struct NameCase {
    const char* what;
    std::function<VolumeSpec()> volume;
    const char* name;
};

void PrintTo(const NameCase& c, std::ostream* out) { *out << c.what; }

class DeviceReferenceName : public testing::TestWithParam<NameCase> {};

TEST_P(DeviceReferenceName, ComesFromTheMasterPlaylistOrFallsBack)
{
    TempDir dir;
    EXPECT_EQ(referenceTo(dir.path(), GetParam().volume())->name(), GetParam().name) << GetParam().what;
}

VolumeSpec withPlaylists(std::vector<PlaylistSpec> playlists)
{
    return VolumeSpec{.database = DatabaseSpec{.playlists = std::move(playlists)}};
}

INSTANTIATE_TEST_SUITE_P(
    DeviceNames, DeviceReferenceName,
    testing::Values(
        NameCase{"master title", [] { return withPlaylists({{.name = "Anna's iPod", .master = 1}}); }, "Anna's iPod"},
        NameCase{"master after a plain list",
                 [] { return withPlaylists({{.name = "Mix"}, {.name = "Garage Nano", .master = 1}}); }, "Garage Nano"},
        NameCase{"master without title", [] { return withPlaylists({{.master = 1}}); }, "Unknown"},
        NameCase{"no master", [] { return withPlaylists({{.name = "Mix", .master = 2}}); }, "Unknown"},
        NameCase{"no iTunesDB", [] { return VolumeSpec{}; }, "iPod"},
        NameCase{"empty iTunesDB", [] { return VolumeSpec{.rawITunesDB = Data()}; }, "iPod"},
        NameCase{"truncated iTunesDB",
                 [] {
                     Data whole = test::buildITunesDB(DatabaseSpec{.playlists = {{.name = "Cut", .master = 1}}});
                     return VolumeSpec{.rawITunesDB = Data(std::vector<std::uint8_t>(whole.bytes(), whole.bytes() + 300))};
                 },
                 "iPod"},
        NameCase{"only the plain playlist data set",
                 [] {
                     return VolumeSpec{.database = DatabaseSpec{.playlists = {{.name = "Hidden", .master = 1}},
                                                                .dataSets = {1, 2}}};
                 },
                 "iPod"}));

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
    const SerialCase& c = GetParam();
    TempDir dir;
    auto reference = referenceTo(dir.path(), VolumeSpec{.sysInfo = c.sysInfo, .sysInfoExtended = c.sysInfoExtended});
    EXPECT_EQ(reference->serialNumber(), c.serial) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    DeviceSerials, DeviceReferenceSerial,
    testing::Values(
        SerialCase{"SysInfo as the device writes it", test::sysInfoText("8K9281QJY5N"), std::nullopt, "8K9281QJY5N"},
        SerialCase{"last of two lines wins", "pszSerialNumber: FIRST\nx: y\npszSerialNumber: SECOND\nz: w",
                   std::nullopt, "SECOND"},
        SerialCase{"blanks and tabs trimmed", "a: b\npszSerialNumber: \t  JQ50X  \t \nc: d\n", std::nullopt, "JQ50X"},
        SerialCase{"marker inside a line", "note pszSerialNumber:ABC", std::nullopt, "ABC"},
        SerialCase{"empty serial", "pszSerialNumber:   \n", std::nullopt, ""},
        SerialCase{"no serial line", "pszBoardHwName: iPod P97\n", std::nullopt, std::nullopt},
        SerialCase{"SysInfoExtended wins", test::sysInfoText("FROMSYSINFO"), test::sysInfoExtendedXML("FROMEXTENDED"),
                   "FROMEXTENDED"},
        SerialCase{"unparseable SysInfoExtended still wins", test::sysInfoText("FROMSYSINFO"),
                   std::string("<plist><dict><key>Serial"), std::nullopt},
        SerialCase{"empty SysInfoExtended still wins", test::sysInfoText("FROMSYSINFO"), std::string(),
                   std::nullopt},
        SerialCase{"SysInfoExtended without the key", std::nullopt,
                   std::string("<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>FamilyID</key>"
                               "<integer>11</integer></dict></plist>"),
                   std::nullopt},
        SerialCase{"neither file", std::nullopt, std::nullopt, std::nullopt}));

TEST(DeviceReference, PropertiesAreTheWholeSysInfoExtended)
{
    TempDir dir;
    auto reference = referenceTo(
        dir.path(), VolumeSpec{.sysInfoExtended = test::sysInfoExtendedXML("8K9281QJY5N", {{"VisibleBuildID", "2.0.1"}})});
    const Value& properties = reference->properties();
    ASSERT_TRUE(properties.dictionary());
    EXPECT_EQ(properties.dictionary()->size(), 5u);
    ASSERT_TRUE(properties.find("FamilyID"));
    EXPECT_EQ(properties.find("FamilyID")->integerValue(), 11);
    ASSERT_TRUE(properties.find("VisibleBuildID"));
    EXPECT_EQ(*properties.find("VisibleBuildID")->string(), "2.0.1");

    // From SysInfo only the serial is kept.
    TempDir other;
    auto fromSysInfo = referenceTo(other.path(), VolumeSpec{.sysInfo = test::sysInfoText("8K9281QJY5N")});
    EXPECT_EQ(fromSysInfo->properties(), Value(Value::Dictionary{{"SerialNumber", "8K9281QJY5N"}}));
}

TEST(DeviceReference, CopyKeepsNameRevisionHandleAndPathButNotTheSerial)
{
    TempDir dir;
    auto reference = referenceTo(dir.path(), VolumeSpec{.database = DatabaseSpec{.playlists = {{.name = "Nano", .master = 1}}},
                                                        .sysInfo = test::sysInfoText("5U8170ABC")});
    ASSERT_EQ(reference->serialNumber(), "5U8170ABC");
    auto duplicate = reference->copy();
    ASSERT_TRUE(duplicate);
    EXPECT_NE(duplicate, reference);
    EXPECT_EQ(duplicate->name(), "Nano");
    EXPECT_EQ(duplicate->revision(), "unknown");
    EXPECT_EQ(duplicate->path(), dir.path());
    EXPECT_EQ(duplicate->iPodRef(), nullptr);
    EXPECT_EQ(duplicate->serialNumber(), std::nullopt);
    EXPECT_EQ(duplicate->description(), reference->description());
    EXPECT_EQ(reference->description(), "iPod name=Nano rev=unknown path=" + dir.path());

    // The copy is independent of its source.
    duplicate->setName(std::string("Renamed"));
    EXPECT_EQ(reference->name(), "Nano");
}

/// A platform device record that knows its name but not its revision.
class NamedDevice : public iPodDeviceHandle {
public:
    std::optional<std::string> copyName() const override { return std::string("Kitchen iPod"); }
    std::optional<std::string> copyRevision() const override { return std::nullopt; }
};

TEST(DeviceReference, PlatformHandleGivesNameAndKeepsAFailedRevisionEmpty)
{
    NamedDevice device;
    auto reference = ZQCoreiPodRef::initWithiPodRef(&device);
    EXPECT_EQ(reference->iPodRef(), &device);
    EXPECT_EQ(reference->name(), "Kitchen iPod");
    EXPECT_EQ(reference->revision(), std::nullopt);
    EXPECT_EQ(reference->path(), std::nullopt);
    EXPECT_EQ(reference->serialNumber(), std::nullopt);
    EXPECT_EQ(reference->description(), "iPod name=Kitchen iPod rev=(null) path=(null)");

    auto duplicate = reference->copy();
    EXPECT_EQ(duplicate->iPodRef(), &device);
    EXPECT_EQ(duplicate->description(), reference->description());
}

} // namespace
} // namespace zq
