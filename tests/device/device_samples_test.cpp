// Databases written by real iPods and by iTunes: every one opens completely, through the same
// path an application takes (a reference from the mount path, then the library object).

#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/model/Podcasts.h"
#include "tests/support/SampleDevice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <set>

namespace zq {
namespace {

namespace fs = std::filesystem;

struct Sample {
    const char* folder;
    std::size_t tracks;
    std::size_t playlists;
    const char* name;
    std::optional<std::string> serial;
    std::int32_t type;
};

void PrintTo(const Sample& sample, std::ostream* out) { *out << sample.folder; }

/// The sample's files laid out on a volume as a device keeps them.
std::shared_ptr<ZQCoreiPod> open(const std::string& folder, const test::TempDir& volume)
{
    const fs::path source = fs::path(ZQ_SAMPLES_DIR) / folder;
    const fs::path root(volume.path());
    fs::create_directories(root / "iPod_Control" / "iTunes");
    fs::copy_file(source / "iTunesDB", root / "iPod_Control" / "iTunes" / "iTunesDB");
    if (fs::exists(source / "SysInfo")) {
        fs::create_directories(root / "iPod_Control" / "Device");
        fs::copy_file(source / "SysInfo", root / "iPod_Control" / "Device" / "SysInfo");
    }
    // The copies keep the samples' read-only modes; the volume must be removable afterwards.
    for (const auto& entry : fs::recursive_directory_iterator(root))
        fs::permissions(entry.path(), fs::perms::owner_write, fs::perm_options::add);
    return ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(volume.path()));
}

class DeviceSamples : public testing::TestWithParam<Sample> {};

TEST_P(DeviceSamples, OpenCompletely)
{
    const Sample& sample = GetParam();
    test::TempDir volume;
    auto library = open(sample.folder, volume);

    EXPECT_EQ(library->allTracks().size(), sample.tracks);
    EXPECT_EQ(library->allPlaylists().size(), sample.playlists);
    EXPECT_EQ(library->name(), sample.name);
    const Value* serial = library->properties().find("SerialNumber");
    EXPECT_EQ(serial && serial->string() ? std::optional<std::string>(*serial->string()) : std::nullopt, sample.serial);
    EXPECT_EQ(library->type(), sample.type);

    // Every track has a readable title and a file on the volume; identifiers are unique.
    std::set<std::uint32_t> ids;
    for (const auto& track : library->allTracks()) {
        ASSERT_TRUE(track->title()) << track->description();
        ASSERT_TRUE(track->filePath()) << track->description();
        EXPECT_TRUE(track->filePath()->starts_with(library->path() + "/iPod_Control/Music/")) << *track->filePath();
        ids.insert(track->trackID());
    }
    EXPECT_EQ(ids.size(), sample.tracks);

    // The master playlist holds the whole library; every member of every playlist is one of
    // the library's tracks.
    if (sample.playlists > 0) {
        ASSERT_TRUE(library->masterPlaylist());
        EXPECT_EQ(library->masterPlaylist()->tracks().size(), sample.tracks);
        for (const auto& playlist : library->allPlaylists())
            for (const auto& member : playlist->tracks()) {
                ASSERT_TRUE(member) << playlist->description();
                EXPECT_TRUE(ids.contains(member->trackID()));
            }
    }
}

INSTANTIATE_TEST_SUITE_P(
    DeviceReal, DeviceSamples,
    testing::Values(Sample{"ipod-2005-1855", 1855, 0, "iPod", "U231029LMMB", 2},
                    Sample{"itunes-art-142", 142, 4, "this is the name of the ipod", std::nullopt, 0},
                    Sample{"itunes-de-23", 23, 3, "iPod von Klaus Moster", std::nullopt, 0},
                    Sample{"itunes-empty", 0, 1, "iPod von Klaus Moster", std::nullopt, 0},
                    Sample{"itunes-it-1172", 1172, 4, "iPod_Giulia", std::nullopt, 0},
                    Sample{"itunes45-1", 1, 0, "iPod", std::nullopt, 0}),
    [](const testing::TestParamInfo<Sample>& param) {
        std::string name = param.param.folder;
        std::replace(name.begin(), name.end(), '-', '_');
        return name;
    });

/// Pins UTC so that the 1904-based local dates of the files read the same everywhere.
class DeviceSampleFields : public testing::Test {
protected:
    void SetUp() override
    {
        if (const char* zone = std::getenv("TZ"))
            oldZone_ = zone;
        ::setenv("TZ", "UTC", 1);
        ::tzset();
    }
    void TearDown() override
    {
        oldZone_ ? ::setenv("TZ", oldZone_->c_str(), 1) : ::unsetenv("TZ");
        ::tzset();
    }

    std::optional<std::string> oldZone_;
    test::TempDir volume_;
};

TEST_F(DeviceSampleFields, GermanLibraryFirstTrackAndPlaylists)
{
    auto library = open("itunes-de-23", volume_);
    ASSERT_EQ(library->allTracks().size(), 23u);
    const iPodTrack& t = *library->allTracks()[0];
    const auto n = [](auto value) { return std::to_string(value); };
    EXPECT_EQ((std::vector<std::optional<std::string>>{n(t.trackID()), n(t.dbid()), t.title(), t.artist(), t.albumArtist(),
                                                        t.composer(), t.comment(), t.fileType(), t.filePath()}),
              (std::vector<std::optional<std::string>>{"4877", "1731496487105972019", "Rock or Bust", "AC/DC", "AC/DC",
                                                        "Malcolm Young", "Amazon.com Song ID: 251723621", "MPEG-Audiodatei",
                                                        volume_.path() + "/iPod_Control/Music/F05/COCA.mp3"}));
    EXPECT_EQ((std::vector<std::uint64_t>{t.fileSize(), t.trackLength(), t.trackNumber(), t.trackTotal(), t.year(), t.bitrate(),
                                          t.sampleRate(), std::uint64_t(t.mediaType()), t.artworkLink()}),
              (std::vector<std::uint64_t>{6363684, 183092, 1, 11, 2014, 266, 44100, 1, 100}));
    // Stored 3555325017: 2016-08-29 14:16:57 counted naively, 76 seconds earlier by the
    // signed-seconds rule.
    EXPECT_EQ(t.dateAdded()->iso8601(), "2016-08-29T14:15:41Z");

    const auto& playlists = library->allPlaylists();
    ASSERT_EQ(playlists.size(), 3u);
    EXPECT_EQ(playlists[0]->description(), "Master playlist name: iPod von Klaus Moster, ID: 4741328350746068324, 23 tracks.");
    EXPECT_EQ(playlists[1]->description(), "Playlist name: Playlist Test, ID: 13542378640175113512, 4 tracks.");
    EXPECT_EQ(playlists[2]->description(), "Playlist name: Playlist Video, ID: 17546412815784263070, 2 tracks.");
    ASSERT_EQ(playlists[2]->tracks().size(), 2u);
    EXPECT_EQ(playlists[2]->tracks()[1]->title(), "Over My Head (Better Off Dead)");
    EXPECT_EQ(playlists[2]->tracks()[1]->mediaType(), 32);
}

TEST_F(DeviceSampleFields, PodcastShowsAndOldDatabases)
{
    auto art = open("itunes-art-142", volume_);
    auto podcasts = art->podcasts();
    ASSERT_TRUE(podcasts);
    ASSERT_EQ(podcasts->podcasts().size(), 1u);
    EXPECT_EQ(podcasts->podcasts()[0]->name(), "Waveform: The MKBHD Podcast");
    ASSERT_EQ(podcasts->tracks().size(), 3u);
    EXPECT_EQ(podcasts->tracks()[0]->title(), "OnePlus and Xiaomi\u2019s New Folding Phones");
    EXPECT_EQ(art->allTracks()[0]->sampleRate(), 48000u);

    // A 2005 iPod: no playlist data set of the grouped kind, so no playlists, but every track.
    test::TempDir old;
    auto ipod = open("ipod-2005-1855", old);
    const iPodTrack& first = *ipod->allTracks().at(0);
    EXPECT_EQ(first.trackID(), 6400u);
    EXPECT_EQ(first.title(), "Rollin Marten.128kbps");
    // The device has a serial number, so an earlier opening in this process may be what is
    // answered here: paths are those of the volume it was first loaded from.
    EXPECT_EQ(first.filePath(), ipod->path() + "/iPod_Control/Music/F10/01 Rollin Marten.128kbps.mp3");
    EXPECT_EQ(first.playCount(), 6u);
    EXPECT_EQ(ipod->allTracks().back()->fileType(), "Protected AAC audio file");

    // iTunes 4.5: a short track header.
    test::TempDir oldest;
    const iPodTrack& only = *open("itunes45-1", oldest)->allTracks().at(0);
    EXPECT_EQ(only.title(), "Aerith`s Theme (Orchestrated");
    EXPECT_EQ(only.grouping(), "Gruppierung");
    EXPECT_EQ(only.BPM(), 22);
    EXPECT_EQ(only.fileSize(), 8669689u);
}

} // namespace
} // namespace zq
