// The names zqpod copy gives files: templates filled from a track's tags, made safe for the file
// systems music lands on, and told apart when they meet.

#include "FileNames.h"

#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "tests/support/SampleDevice.h"

#include <gtest/gtest.h>

#include <ostream>

namespace zq {
namespace {

using test::TrackSpec;

/// The one track of a device written with `setup`.
std::shared_ptr<iPodTrack> loadTrack(const test::TempDir& dir, TrackSpec setup)
{
    if (!setup.location)
        setup.location = ":iPod_Control:Music:F00:ABCD.MP3";
    test::writeVolume(dir.path(), {.database = test::DatabaseSpec{.tracks = {setup}}});
    auto library = ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(dir.path()));
    return library->allTracks().at(0);
}

struct NameCase {
    const char* label;
    TrackSpec track;
    const char* nameTemplate;
    const char* expected;
};

void PrintTo(const NameCase& c, std::ostream* out) { *out << c.label; }

class TemplateNames : public testing::TestWithParam<NameCase> {};

TEST_P(TemplateNames, FillTheTemplateFromTheTrack)
{
    test::TempDir dir;
    auto track = loadTrack(dir, GetParam().track);
    const char* text = GetParam().nameTemplate ? GetParam().nameTemplate : zqpod::kDefaultNameTemplate;
    EXPECT_EQ(zqpod::NameTemplate(text).pathFor(*track), GetParam().expected);
}

const std::string kLongTitle(300, 'x');

INSTANTIATE_TEST_SUITE_P(
    Copy, TemplateNames,
    testing::Values(
        NameCase{"AlbumArtistFirst",
                 {.trackNumber = 3, .title = "Song", .album = "Album", .artist = "Singer", .albumArtist = "Band"},
                 nullptr, "Band/Album/03 Song.mp3"},
        NameCase{"ArtistWhenNoAlbumArtist", {.trackNumber = 12, .title = "Song", .album = "Album", .artist = "Singer"},
                 nullptr, "Singer/Album/12 Song.mp3"},
        NameCase{"DiscOnlyOnMultiDiscAlbums",
                 {.trackNumber = 4, .discNumber = 2, .discTotal = 2, .title = "Song", .album = "Album", .artist = "A"},
                 nullptr, "A/Album/2-04 Song.mp3"},
        NameCase{"FirstDiscOfSeveral",
                 {.trackNumber = 4, .discNumber = 1, .discTotal = 2, .title = "Song", .album = "Album", .artist = "A"},
                 nullptr, "A/Album/1-04 Song.mp3"},
        NameCase{"NoDiscOnSingleDiscAlbums",
                 {.trackNumber = 4, .discNumber = 1, .discTotal = 1, .title = "Song", .album = "Album", .artist = "A"},
                 nullptr, "A/Album/04 Song.mp3"},
        NameCase{"NoTrackNumberNoLeadingBlank", {.title = "Talk", .album = "Show", .artist = "Host"}, nullptr,
                 "Host/Show/Talk.mp3"},
        NameCase{"MissingTagsSayUnknown", {.trackID = 77}, nullptr, "Unknown/Unknown/Track 77.mp3"},
        NameCase{"ForbiddenCharacters",
                 {.trackNumber = 1, .title = "What? <Why>: \"now\" | a\\b * c", .album = "AC/DC", .artist = "A"},
                 nullptr, "A/AC_DC/01 What_ _Why__ _now_ _ a_b _ c.mp3"},
        NameCase{"TrailingDotsAndBlanks", {.title = "Song", .album = "Vol. 2...  ", .artist = "  R.E.M."}, nullptr,
                 "R.E.M/Vol. 2/Song.mp3"},
        NameCase{"HiddenAndDeviceNames", {.title = "con", .album = "..", .artist = ".hidden"}, nullptr,
                 "_.hidden/Unknown/_con.mp3"},
        NameCase{"ControlCharacters", {.title = "Line\none\ttab", .album = "A", .artist = "B"}, nullptr,
                 "B/A/Line_one_tab.mp3"},
        NameCase{"OwnTemplateWithFallbackAndWidth",
                 {.trackID = 9, .trackNumber = 7, .year = 1999, .title = "Song", .genre = "Pop", .composer = "C"},
                 "{genre}/{year} - {albumArtist|composer|artist}/{track:03}_{id}.{ext}", "Pop/1999 - C/007_9.mp3"}));

TEST(TemplateNames, LongNamesAreCutOnACharacterKeepingTheExtension)
{
    test::TempDir dir;
    std::string title;
    for (int i = 0; i < 100; ++i)
        title += "ż";  // two bytes each
    auto track = loadTrack(dir, {.title = title, .album = kLongTitle, .artist = "A"});
    const std::string path = zqpod::NameTemplate("{album}/{title}.{ext}").pathFor(*track);
    const std::string folder = path.substr(0, path.find('/'));
    const std::string file = path.substr(path.find('/') + 1);
    EXPECT_EQ(folder, std::string(zqpod::kMaxNameBytes, 'x'));
    EXPECT_LE(file.size(), zqpod::kMaxNameBytes);
    EXPECT_TRUE(file.ends_with("ż.mp3")) << file;  // whole characters, extension kept
    EXPECT_EQ((file.size() - 4) % 2, 0u);
}

TEST(NumberedNames, GoBeforeTheExtensionOfTheFileOnly)
{
    EXPECT_EQ(zqpod::numberedPath("A.B/Album/01 Song.mp3", 2), "A.B/Album/01 Song (2).mp3");
    EXPECT_EQ(zqpod::numberedPath("A.B/noextension", 3), "A.B/noextension (3)");
    EXPECT_EQ(zqpod::numberedPath("Album/.hidden", 4), "Album/.hidden (4)");  // a leading dot is no extension
    EXPECT_EQ(zqpod::nameKey("ABBA/Gold/01 SOS.mp3"), zqpod::nameKey("Abba/Gold/01 sos.MP3"));
}

} // namespace
} // namespace zq
