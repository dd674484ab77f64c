// Device references and library objects made from mount paths: names and their fallbacks, where
// identity and model type come from, one library object per device, and the library's operations.

#include "ZQCore/device/ZQCore.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/model/Podcasts.h"
#include "tests/support/SampleDevice.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <ostream>

namespace zq {
namespace {

namespace fs = std::filesystem;
using test::DatabaseSpec;
using test::PlaylistSpec;
using test::TempDir;
using test::VolumeSpec;

/// Library objects live as long as the process and are handed back for the same serial number,
/// so each test device gets a serial of its own, ending in `suffix` (the model key).
std::string serialEndingIn(const std::string& suffix)
{
    static int counter = 0;
    return "ZQDL" + std::to_string(++counter) + suffix;
}

std::shared_ptr<ZQCoreiPod> load(const std::string& root, const VolumeSpec& spec)
{
    test::writeVolume(root, spec);
    return ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(root));
}

std::optional<std::string> serialOf(const Value& properties)
{
    const Value* serial = properties.find("SerialNumber");
    return serial && serial->string() ? std::optional<std::string>(*serial->string()) : std::nullopt;
}

/// The name and reason of what `action` throws; "" when it throws nothing.
std::string thrown(const std::function<void()>& action)
{
    try {
        action();
    } catch (const Exception& error) {
        return error.name() + ": " + error.reason();
    }
    return "";
}

TEST(DeviceReference, MissingPathIsRefusedWithTheNamedExceptionWordForWord)
{
    TempDir dir;
    EXPECT_EQ(thrown([&] { ZQCoreiPodRef::initWithPath(dir.file("not-mounted")); }),
              "ZQCoreiPodNotFoundException: Exception: Could not init ZQCoreiPodRef - path doesn't exist.");
    auto reference = ZQCoreiPodRef::initWithPath(dir.path());
    reference->setPath(dir.file("gone"));
    const auto before = ZQCore::sharedInstance()->iPodInstances().size();
    EXPECT_EQ(thrown([&] { ZQCoreiPod::initWithiPodReference(reference); }),
              "ZQCoreiPodNotFoundException: Exception: Could not init ZQCoreiPod - path doesn't exist.");
    EXPECT_EQ(ZQCore::sharedInstance()->iPodInstances().size(), before);
}

TEST(DeviceReference, AnyExistingFolderIsAReferenceNamediPod)
{
    TempDir dir;  // whether iPod_Control is there is the caller's test, not the reference's
    auto reference = ZQCoreiPodRef::initWithPath(dir.path());
    EXPECT_EQ(reference->name(), "iPod");
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
    test::writeVolume(dir.path(), GetParam().volume());
    EXPECT_EQ(ZQCoreiPodRef::initWithPath(dir.path())->name(), GetParam().name);
}

VolumeSpec withPlaylists(std::vector<PlaylistSpec> playlists, std::vector<test::DataSet> dataSets = {1, 2, 3})
{
    return VolumeSpec{.database = DatabaseSpec{.playlists = std::move(playlists), .dataSets = std::move(dataSets)}};
}

INSTANTIATE_TEST_SUITE_P(
    DeviceNames, DeviceReferenceName,
    testing::Values(
        NameCase{"master title", [] { return withPlaylists({{.name = "Anna's iPod", .master = 1}}); }, "Anna's iPod"},
        NameCase{"master after a plain list", [] { return withPlaylists({{.name = "Mix"}, {.name = "Nano", .master = 1}}); }, "Nano"},
        NameCase{"master without title", [] { return withPlaylists({{.master = 1}}); }, "Unknown"},
        NameCase{"no master", [] { return withPlaylists({{.name = "Mix", .master = 2}}); }, "Unknown"},
        NameCase{"no iTunesDB", [] { return VolumeSpec{}; }, "iPod"},
        NameCase{"empty iTunesDB", [] { return VolumeSpec{.rawITunesDB = Data()}; }, "iPod"},
        NameCase{"truncated iTunesDB",
                 [] {
                     Data whole = test::buildITunesDB(DatabaseSpec{.playlists = {{.name = "Cut", .master = 1}}});
                     return VolumeSpec{.rawITunesDB = whole.subdata(0, 300)};
                 },
                 "iPod"},
        NameCase{"only the plain playlist data set", [] { return withPlaylists({{.name = "Hidden", .master = 1}}, {1, 2}); }, "iPod"}));

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

TEST(DeviceReference, PropertiesCopiesAndPlatformHandles)
{
    TempDir dir, other;
    test::writeVolume(dir.path(), VolumeSpec{.database = DatabaseSpec{.playlists = {{.name = "Nano", .master = 1}}},
                                             .sysInfoExtended = test::sysInfoExtendedXML("5U8170ABC", {{"VisibleBuildID", "2.0.1"}})});
    auto reference = ZQCoreiPodRef::initWithPath(dir.path());
    // The whole SysInfoExtended; from SysInfo only the serial is kept.
    ASSERT_TRUE(reference->properties().dictionary());
    EXPECT_EQ(reference->properties().dictionary()->size(), 5u);
    EXPECT_EQ(*reference->properties().find("VisibleBuildID")->string(), "2.0.1");
    test::writeVolume(other.path(), VolumeSpec{.sysInfo = test::sysInfoText("8K9281QJY5N")});
    EXPECT_EQ(ZQCoreiPodRef::initWithPath(other.path())->properties(), Value(Value::Dictionary{{"SerialNumber", "8K9281QJY5N"}}));

    // A copy keeps name, revision, handle and path but not the serial, and stands on its own.
    auto duplicate = reference->copy();
    ASSERT_NE(duplicate, reference);
    EXPECT_EQ(duplicate->serialNumber(), std::nullopt);
    EXPECT_EQ(duplicate->description(), "iPod name=Nano rev=unknown path=" + dir.path());
    duplicate->setName(std::string("Renamed"));
    EXPECT_EQ(reference->name(), "Nano");

    struct NamedDevice : iPodDeviceHandle {
        std::optional<std::string> copyName() const override { return std::string("Kitchen iPod"); }
        std::optional<std::string> copyRevision() const override { return std::nullopt; }
    } device;
    auto handled = ZQCoreiPodRef::initWithiPodRef(&device);
    EXPECT_EQ(handled->iPodRef(), &device);
    EXPECT_EQ(handled->serialNumber(), std::nullopt);
    EXPECT_EQ(handled->description(), "iPod name=Kitchen iPod rev=(null) path=(null)");
    EXPECT_EQ(handled->copy()->iPodRef(), &device);
}

// ---- the library object ---------------------------------------------------------------------

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

TEST(DeviceLibrary, NameIsTheMasterPlaylistsElseiPod)
{
    TempDir plain, mastered;
    auto library = load(plain.path(), VolumeSpec{.database = DatabaseSpec{.playlists = {{.name = "Mix"}}}});
    ASSERT_EQ(library->masterPlaylist(), nullptr);
    EXPECT_EQ(library->name(), "iPod");
    library->setName(std::string("Workshop"));
    EXPECT_EQ(library->name(), "Workshop");
    library->setName(std::string());
    EXPECT_EQ(library->name(), "iPod");
    library->setName(std::nullopt);
    EXPECT_EQ(library->name(), "iPod");

    library = load(mastered.path(), VolumeSpec{.database = DatabaseSpec{.playlists = {{.name = "Mix"}, {.name = "Anna", .master = 1}}}});
    EXPECT_EQ(library->name(), "Anna");
    library->setName(std::string("Ben"));
    EXPECT_EQ(library->masterPlaylist()->name(), "Ben");
    library->setName(std::string());
    EXPECT_EQ(library->name(), "");  // with a master playlist its name counts even when empty
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

TEST(DeviceModelType, SerialShorterThanThreeCharactersIsARangeError)
{
    for (const std::string serial : {"5N", " N ", ""}) {
        TempDir dir;
        test::writeVolume(dir.path(), VolumeSpec{.sysInfoExtended = test::sysInfoExtendedXML(serial)});
        auto reference = ZQCoreiPodRef::initWithPath(dir.path());
        const auto before = ZQCore::sharedInstance()->iPodInstances().size();
        EXPECT_TRUE(thrown([&] { ZQCoreiPod::initWithiPodReference(reference); }).starts_with("RangeException")) << serial;
        EXPECT_EQ(ZQCore::sharedInstance()->iPodInstances().size(), before) << "registered despite the error";
    }
    EXPECT_EQ(modelTypeForSerialNumber(std::nullopt), 0);
}

TEST(DeviceLibrary, SecondOpeningOfTheSameSerialReturnsTheFirstObject)
{
    const auto& core = ZQCore::sharedInstance();
    const std::string serial = serialEndingIn("Y5N");
    TempDir first, second, anonymous;
    const auto before = core->iPodInstances().size();
    auto library = load(first.path(), VolumeSpec{.database = DatabaseSpec{.tracks = {{.trackID = 1}}}, .sysInfo = test::sysInfoText(serial)});
    ASSERT_EQ(core->iPodInstances().size(), before + 1);
    EXPECT_EQ(core->iPodInstances().back(), library);
    // The same device at another mount point, with another library on it: not loaded again.
    auto again = load(second.path(), VolumeSpec{.database = DatabaseSpec{.tracks = {{.trackID = 1}, {.trackID = 2}}},
                                                .sysInfoExtended = test::sysInfoExtendedXML(serial)});
    EXPECT_EQ(again, library);
    EXPECT_EQ(again->allTracks().size(), 1u);
    EXPECT_EQ(core->iPodInstances().size(), before + 1);
    auto reference = ZQCoreiPodRef::initWithPath(second.path());
    EXPECT_EQ(core->existingiPodForReference(reference), library);
    EXPECT_EQ(core->existingiPodForReference(reference->copy()), nullptr);  // a copy has no serial
    EXPECT_EQ(core->existingiPodForReference(nullptr), nullptr);
    // A device without a serial number is a new device every time.
    test::writeVolume(anonymous.path(), VolumeSpec{});
    auto unnamed = ZQCoreiPodRef::initWithPath(anonymous.path());
    EXPECT_NE(ZQCoreiPod::initWithiPodReference(unnamed), ZQCoreiPod::initWithiPodReference(unnamed));
}

TEST(DeviceLibrary, RemoveTrackLeavesEveryPlaylistFirstThenTheLibrary)
{
    TempDir dir;
    auto library = load(dir.path(), VolumeSpec{.database = DatabaseSpec{.tracks = {{.trackID = 1}, {.trackID = 2}},
                                                                        .playlists = {{.name = "M", .master = 1, .items = {1, 2}},
                                                                                      {.name = "Twice", .items = {2, 1, 2}}}}});
    auto master = library->allPlaylists().at(0), twice = library->allPlaylists().at(1);
    auto doomed = library->allTracks().at(1);
    std::vector<std::string> notices;
    auto record = [&notices](const std::string& who) {
        return [&notices, who](const std::string& key, Observable::Phase phase) {
            notices.push_back(who + (phase == Observable::Phase::WillChange ? " will " : " did ") + key);
        };
    };
    library->addObserver("tracks", record("library"));
    twice->addObserver("tracks", record("Twice"));
    library->removeTrack(doomed);
    EXPECT_EQ(library->allTracks().size(), 1u);
    EXPECT_EQ(master->tracks().size(), 1u);
    EXPECT_EQ(twice->tracks().size(), 1u);
    EXPECT_EQ(notices, (std::vector<std::string>{"Twice will tracks", "Twice did tracks", "library will tracks", "library did tracks"}));
    notices.clear();
    library->addTrack(doomed);  // adding announces nothing, unlike removing
    EXPECT_EQ(library->allTracks().size(), 2u);
    EXPECT_TRUE(notices.empty());
}

TEST(DeviceLibrary, PlaylistChangesAreAnnouncedAndPodcastsMustBeOfTheirKind)
{
    TempDir dir;
    auto library = load(dir.path(), VolumeSpec{});
    int notices = 0;
    library->addObserver("playlists", [&notices](const std::string&, Observable::Phase) { ++notices; });
    // A plain playlist whose record says "podcasts" is not the podcast list.
    std::array<std::uint8_t, 48> header{};
    header[42] = 1;
    auto pretender = Playlist::initWithMHYP(header, std::string("Podcasts?"));
    ASSERT_TRUE(pretender->isPodcasts());
    library->addPlaylist(pretender);
    EXPECT_EQ(library->podcasts(), nullptr);
    auto real = Podcasts::init();
    library->addPlaylist(real);
    EXPECT_EQ(library->podcasts(), real);
    library->removePlaylist(pretender);
    EXPECT_EQ(library->allPlaylists().size(), 1u);
    EXPECT_EQ(notices, 6);
}

TEST(DeviceLibrary, TrackWithIDTriesTheArtworkLinkThenTheIDOfEachTrackInOrder)
{
    TempDir dir;
    auto library = load(dir.path(), VolumeSpec{.database = DatabaseSpec{.tracks = {{.trackID = 1, .dbid = 100},
                                                                                   {.trackID = 2, .dbid = 200, .artworkLink = 55},
                                                                                   {.trackID = 3, .dbid = 55}}}});
    const auto& tracks = library->allTracks();
    EXPECT_EQ(library->trackWithID(100, 55), tracks.at(0));
    EXPECT_EQ(library->trackWithID(999, 55), tracks.at(1));
    EXPECT_EQ(library->trackWithID(55, 7), tracks.at(2));
    EXPECT_EQ(library->trackWithID(999, 0), nullptr);  // a zero link never matches, not even an ID of 0
}

TEST(DeviceLibrary, FileAccessOnTheVolume)
{
    TempDir dir;
    auto library = load(dir.path(), VolumeSpec{.files = {{"iPod_Control/Music/F01/A.mp3", Data(std::string("0123456789"))}}});
    const std::string file = dir.file("iPod_Control/Music/F01/A.mp3");
    EXPECT_EQ(library->contentsOfFileAtPath(file)->stringView(), "0123456789");
    EXPECT_EQ(library->chunkOfFileAtPath(file, {7, 100})->stringView(), "789");  // fewer at the end
    EXPECT_EQ(library->chunkOfFileAtPath(file, {20, 1})->size(), 0u);
    EXPECT_EQ(library->contentsOfFileAtPath(dir.file("nothing")), std::nullopt);
    EXPECT_EQ(library->chunkOfFileAtPath(dir.file("nothing"), {0, 1}), std::nullopt);
    const Value::Dictionary info = library->deviceInfo();
    ASSERT_EQ(info.size(), 2u);
    EXPECT_GT(info.at("FSTotalBytes").unsignedValue(), 0u);
    EXPECT_LE(info.at("FSFreeBytes").unsignedValue(), info.at("FSTotalBytes").unsignedValue());
}

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
