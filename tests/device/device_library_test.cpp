// The library object of a mounted device: loading, identity properties and model type, reuse
// of the object already loaded for a serial number, and the library's own operations.

#include "ZQCore/device/ZQCore.h"
#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/model/Podcasts.h"
#include "tests/support/DeviceImage.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>

namespace zq {
namespace {

namespace fs = std::filesystem;
using test::DatabaseSpec;
using test::TempDir;
using test::TrackSpec;
using test::VolumeSpec;

/// The framework keeps every library object for the life of the process and hands it back for
/// the same serial number, so each test device gets a serial of its own; `suffix` (the model
/// key) ends it.
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

std::optional<std::string> serialOf(const ZQCoreiPod& library)
{
    const Value* serial = library.properties().find("SerialNumber");
    return serial && serial->string() ? std::optional<std::string>(*serial->string()) : std::nullopt;
}

TEST(DeviceLibrary, MissingPathIsRefusedWithTheNamedException)
{
    TempDir dir;
    auto reference = ZQCoreiPodRef::initWithPath(dir.path());
    reference->setPath(dir.file("gone"));
    const auto before = ZQCore::sharedInstance()->iPodInstances().size();
    try {
        ZQCoreiPod::initWithiPodReference(reference);
        ADD_FAILURE() << "no exception";
    } catch (const Exception& error) {
        EXPECT_EQ(error.name(), "ZQCoreiPodNotFoundException");
        EXPECT_EQ(error.reason(), "Exception: Could not init ZQCoreiPod - path doesn't exist.");
    }
    EXPECT_EQ(ZQCore::sharedInstance()->iPodInstances().size(), before);
}

TEST(DeviceLibrary, SampleDeviceLoadsWhole)
{
    TempDir dir;
    VolumeSpec volume = test::makeSampleDevice();
    const std::string serial = serialEndingIn("Y5N");
    volume.sysInfo = test::sysInfoText(serial);
    auto library = load(dir.path(), volume);

    const std::size_t tracks = volume.database->tracks.size();
    EXPECT_EQ(library->allTracks().size(), tracks);
    EXPECT_EQ(library->allPlaylists().size(), volume.database->playlists.size());
    ASSERT_TRUE(library->masterPlaylist());
    EXPECT_EQ(library->masterPlaylist(), library->allPlaylists()[0]);
    EXPECT_EQ(library->masterPlaylist()->tracks().size(), tracks);
    EXPECT_EQ(library->name(), "Sample iPod");
    ASSERT_TRUE(library->podcasts());
    EXPECT_EQ(library->podcasts()->podcasts().size(), 2u);
    EXPECT_EQ(library->path(), dir.path());
    EXPECT_TRUE(library->isConnected());
    EXPECT_EQ(library->iPodReference(), nullptr);
    EXPECT_EQ(library->properties(), Value(Value::Dictionary{{"SerialNumber", serial}}));
    EXPECT_EQ(library->type(), 11);
    EXPECT_TRUE(library->additionalData().empty());
}

TEST(DeviceLibrary, CreatesTheMissingDeviceFolderAndNothingElse)
{
    TempDir dir;
    auto library = load(dir.path(), VolumeSpec{});
    EXPECT_TRUE(fs::is_directory(dir.file("iPod_Control/Device")));
    EXPECT_TRUE(fs::is_empty(dir.file("iPod_Control/Device")));
    EXPECT_FALSE(fs::exists(dir.file("iPod_Control/iTunes")));
    EXPECT_TRUE(library->allTracks().empty());
    EXPECT_TRUE(library->allPlaylists().empty());
    EXPECT_TRUE(library->properties().isNull());
    EXPECT_EQ(library->type(), 0);
}

TEST(DeviceLibrary, NameFallsBackToiPodWithoutAMasterPlaylist)
{
    TempDir dir;
    auto library = load(dir.path(), VolumeSpec{.database = DatabaseSpec{.playlists = {{.name = "Mix"}}}});
    ASSERT_EQ(library->masterPlaylist(), nullptr);
    EXPECT_EQ(library->name(), "iPod");
    library->setName(std::string("Workshop"));
    EXPECT_EQ(library->name(), "Workshop");
    library->setName(std::string());
    EXPECT_EQ(library->name(), "iPod");
    library->setName(std::nullopt);
    EXPECT_EQ(library->name(), "iPod");
}

TEST(DeviceLibrary, NameIsTheMasterPlaylistsName)
{
    TempDir dir;
    auto library = load(dir.path(), VolumeSpec{.database = DatabaseSpec{.playlists = {{.name = "Mix"},
                                                                                       {.name = "Anna", .master = 1}}}});
    ASSERT_TRUE(library->masterPlaylist());
    EXPECT_EQ(library->masterPlaylist()->name(), "Anna");
    library->setName(std::string("Ben"));
    EXPECT_EQ(library->masterPlaylist()->name(), "Ben");
    EXPECT_EQ(library->name(), "Ben");
    // With a master playlist its name counts even when empty.
    library->setName(std::string());
    EXPECT_EQ(library->name(), "");
}

// ---- identity and model type ----------------------------------------------------------------

TEST(DeviceLibrary, SysInfoExtendedTakesPrecedenceOverSysInfo)
{
    TempDir dir;
    const std::string extended = serialEndingIn("W4N"), plain = serialEndingIn("Y5N");
    auto library = load(dir.path(), VolumeSpec{.sysInfo = test::sysInfoText(plain),
                                               .sysInfoExtended = test::sysInfoExtendedXML(extended)});
    EXPECT_EQ(serialOf(*library), extended);
    EXPECT_EQ(library->type(), 15);
    ASSERT_TRUE(library->properties().find("FamilyID"));
    EXPECT_EQ(library->properties().find("FamilyID")->integerValue(), 11);
}

TEST(DeviceLibrary, EmptySysInfoExtendedCountsAsAbsent)
{
    TempDir dir;
    const std::string plain = serialEndingIn("WH8");
    auto library = load(dir.path(), VolumeSpec{.sysInfo = test::sysInfoText(plain), .sysInfoExtended = std::string()});
    EXPECT_EQ(serialOf(*library), plain);
    EXPECT_EQ(library->type(), 16);
}

TEST(DeviceLibrary, UnparseableSysInfoExtendedLeavesNoPropertiesAndNoFallback)
{
    TempDir dir;
    auto library = load(dir.path(), VolumeSpec{.sysInfo = test::sysInfoText(serialEndingIn("Y5N")),
                                               .sysInfoExtended = std::string("<plist><dict><key>Ser")});
    EXPECT_TRUE(library->properties().isNull());
    EXPECT_EQ(library->type(), 0);
}

struct TypeCase {
    const char* what;
    std::optional<std::string> sysInfoExtendedSerial;
    std::optional<std::string> sysInfoSerial;
    std::int32_t type;
};

void PrintTo(const TypeCase& c, std::ostream* out) { *out << c.what; }

class DeviceModelType : public testing::TestWithParam<TypeCase> {};

TEST_P(DeviceModelType, IsLookedUpByTheLastThreeCharactersOfTheSerial)
{
    const TypeCase& c = GetParam();
    VolumeSpec volume;
    if (c.sysInfoExtendedSerial)
        volume.sysInfoExtended = test::sysInfoExtendedXML(*c.sysInfoExtendedSerial);
    if (c.sysInfoSerial)
        volume.sysInfo = test::sysInfoText(*c.sysInfoSerial);
    TempDir dir;
    EXPECT_EQ(load(dir.path(), volume)->type(), c.type) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    DeviceSerials, DeviceModelType,
    testing::Values(TypeCase{"iPod classic", std::nullopt, serialEndingIn("Y5N"), 11},
                    TypeCase{"iPod 2nd generation", std::nullopt, serialEndingIn("MMB"), 2},
                    TypeCase{"iPod touch", serialEndingIn("W4N"), std::nullopt, 15},
                    TypeCase{"iPhone", serialEndingIn("WH8"), std::nullopt, 16},
                    TypeCase{"unknown suffix", std::nullopt, serialEndingIn("ZZZ"), 0},
                    TypeCase{"suffix is case-sensitive", std::nullopt, serialEndingIn("y5n"), 0},
                    TypeCase{"white space around the serial is trimmed", " \t" + serialEndingIn("Y5N") + " \n",
                             std::nullopt, 11},
                    TypeCase{"a three-character serial is its own key", std::string("1C2"), std::nullopt, 16},
                    TypeCase{"no serial", std::nullopt, std::nullopt, 0}));

TEST(DeviceModelType, SerialShorterThanThreeCharactersIsARangeError)
{
    for (const std::string serial : {"5N", " N ", ""}) {
        TempDir dir;
        test::writeVolume(dir.path(), VolumeSpec{.sysInfoExtended = test::sysInfoExtendedXML(serial)});
        auto reference = ZQCoreiPodRef::initWithPath(dir.path());
        const auto before = ZQCore::sharedInstance()->iPodInstances().size();
        try {
            ZQCoreiPod::initWithiPodReference(reference);
            ADD_FAILURE() << "no range error for \"" << serial << "\"";
        } catch (const Exception& error) {
            EXPECT_EQ(error.name(), "RangeException") << serial;
        }
        EXPECT_EQ(ZQCore::sharedInstance()->iPodInstances().size(), before) << "registered despite the error";
    }
    EXPECT_EQ(modelTypeForSerialNumber(std::nullopt), 0);
    EXPECT_EQ(modelTypeForSerialNumber(std::string("ABCY5N")), 11);
}

// ---- one library object per device ----------------------------------------------------------

TEST(DeviceLibrary, SecondOpeningOfTheSameSerialReturnsTheFirstObject)
{
    const auto& core = ZQCore::sharedInstance();
    EXPECT_EQ(core, ZQCore::sharedInstance());
    const std::string serial = serialEndingIn("Y5N");

    TempDir first, second;
    const auto before = core->iPodInstances().size();
    auto library = load(first.path(), VolumeSpec{.database = DatabaseSpec{.tracks = {{.trackID = 1}}},
                                                 .sysInfo = test::sysInfoText(serial)});
    ASSERT_EQ(core->iPodInstances().size(), before + 1);
    EXPECT_EQ(core->iPodInstances().back(), library);

    // The same device at another mount point, with another library on it: not loaded again.
    auto again = load(second.path(), VolumeSpec{.database = DatabaseSpec{.tracks = {{.trackID = 1}, {.trackID = 2}}},
                                                .sysInfoExtended = test::sysInfoExtendedXML(serial)});
    EXPECT_EQ(again, library);
    EXPECT_EQ(again->path(), first.path());
    EXPECT_EQ(again->allTracks().size(), 1u);
    EXPECT_EQ(core->iPodInstances().size(), before + 1);

    auto reference = ZQCoreiPodRef::initWithPath(second.path());
    EXPECT_EQ(core->existingiPodForReference(reference), library);
    // A reference without a serial (a copy has none) matches nothing.
    EXPECT_EQ(core->existingiPodForReference(reference->copy()), nullptr);
    EXPECT_EQ(core->existingiPodForReference(nullptr), nullptr);

    // A device without a serial number is a new device every time.
    TempDir anonymous;
    test::writeVolume(anonymous.path(), VolumeSpec{});
    auto unnamed = ZQCoreiPodRef::initWithPath(anonymous.path());
    EXPECT_NE(ZQCoreiPod::initWithiPodReference(unnamed), ZQCoreiPod::initWithiPodReference(unnamed));
}

// ---- the library's operations ---------------------------------------------------------------

TEST(DeviceLibrary, RemoveTrackLeavesEveryPlaylistFirstThenTheLibrary)
{
    TempDir dir;
    auto library = load(dir.path(),
                        VolumeSpec{.database = DatabaseSpec{.tracks = {{.trackID = 1}, {.trackID = 2}},
                                                            .playlists = {{.name = "M", .master = 1, .items = {1, 2}},
                                                                          {.name = "Twice", .items = {2, 1, 2}}}}});
    ASSERT_EQ(library->allPlaylists().size(), 2u);
    auto master = library->allPlaylists()[0], twice = library->allPlaylists()[1];
    auto doomed = library->allTracks()[1];
    ASSERT_EQ(twice->tracks().size(), 3u);

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
    EXPECT_EQ(notices, (std::vector<std::string>{"Twice will tracks", "Twice did tracks", "library will tracks",
                                                 "library did tracks"}));

    // Adding a track announces nothing, unlike removing one.
    notices.clear();
    library->addTrack(doomed);
    EXPECT_EQ(library->allTracks().size(), 2u);
    EXPECT_TRUE(notices.empty());
}

TEST(DeviceLibrary, PlaylistChangesAreAnnouncedAndPodcastsMustBeOfTheirKind)
{
    TempDir dir;
    auto library = load(dir.path(), VolumeSpec{});
    std::vector<Observable::Phase> phases;
    library->addObserver("playlists", [&phases](const std::string&, Observable::Phase phase) { phases.push_back(phase); });

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
    EXPECT_EQ(phases.size(), 6u);
}

TEST(DeviceLibrary, TrackWithIDTriesTheArtworkLinkThenTheIDOfEachTrackInOrder)
{
    TempDir dir;
    auto library = load(dir.path(), VolumeSpec{.database = DatabaseSpec{.tracks = {
                                                   {.trackID = 1, .dbid = 100},
                                                   {.trackID = 2, .dbid = 200, .artworkLink = 55},
                                                   {.trackID = 3, .dbid = 55},
                                               }}});
    const auto& tracks = library->allTracks();
    ASSERT_EQ(tracks.size(), 3u);
    EXPECT_EQ(library->trackWithID(100, 55), tracks[0]);
    EXPECT_EQ(library->trackWithID(999, 55), tracks[1]);
    EXPECT_EQ(library->trackWithID(55, 7), tracks[2]);
    // A zero artwork link never matches, not even an item ID of 0.
    EXPECT_EQ(library->trackWithID(999, 0), nullptr);
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
                                               .files = {{itlp + "Library.itdb", Data()},
                                                         {itlp + "Extras.itdb", Data()},
                                                         {itlp + "Locations.itdb", Data()}}});
    ASSERT_EQ(library->allTracks().size(), 1u);
    EXPECT_EQ(library->allTracks()[0]->title(), "Binary");
}

} // namespace
} // namespace zq
