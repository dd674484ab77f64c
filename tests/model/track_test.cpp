// Tracks as a client meets them: every getter after a load, the dates, the printable form, and
// reading the media file whole or by range.

#include "ZQCore/device/ZQCoreiPod.h"
#include "ZQCore/device/ZQCoreiPodRef.h"
#include "ZQCore/foundation/Application.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/model/iPodTrack.h"
#include "tests/support/DeviceImage.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>

namespace zq {
namespace {

using test::DatabaseSpec;
using test::TempDir;
using test::TrackSpec;
using test::VolumeSpec;

constexpr double kUnixTimeOf1904 = -2082844800.0;

/// Pins the local time zone for the dates a load converts; restores the old one after.
class ZoneScope {
public:
    explicit ZoneScope(const char* zone)
    {
        if (const char* old = std::getenv("TZ"))
            old_ = old;
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
    ~ZoneScope()
    {
        if (old_)
            ::setenv("TZ", old_->c_str(), 1);
        else
            ::unsetenv("TZ");
        ::tzset();
    }

private:
    std::optional<std::string> old_;
};

/// Loads a volume without a serial number, so that every load makes a new library object.
std::shared_ptr<ZQCoreiPod> load(const std::string& root, const VolumeSpec& spec)
{
    test::writeVolume(root, spec);
    return ZQCoreiPod::initWithiPodReference(ZQCoreiPodRef::initWithPath(root));
}

TrackSpec everyField()
{
    return TrackSpec{
        .trackID = 0xFFFFFFFE, .compilation = 1, .rating = 80, .lastModified = 3600, .fileSize = 4'000'000'000u,
        .trackLength = 224'000, .trackNumber = 3, .trackTotal = 12, .year = 2011, .bitrate = 320,
        .sampleRate = 48000, .volume = 0xFFFFFFCE, .startTime = 1500, .endTime = 200'000, .soundcheckValue = 1234,
        .playCount = 31, .lastPlayedTime = 3771057600u, .discNumber = 2, .discTotal = 3,
        .dateAdded = 3771057616u, .dbid = 0x0123456789ABCDEFULL, .checked = 1, .BPM = 128, .artworkCount = 1,
        .dateReleased = 0, .skipCount = 4, .lastSkippedTime = 86400, .mediaType = 0x80000001u,
        .seasonNumber = 2, .episodeNumber = 9, .albumID = 0xBEEF, .artworkLink = 0xFFFFFFFF,
        .title = "Harbour Song", .location = ":iPod_Control:Music:F03:HBSG.mp3", .album = "Northern Lights",
        .artist = "The Hollow Pines", .genre = "Indie Rock", .fileType = "MPEG audio file", .EQSetting = "#!#104#!#",
        .comment = "", .podcastCategory = "Music", .composer = "Ada Lindqvist", .grouping = "Sea",
        .description = "Słońce", .albumArtist = std::nullopt,
    };
}

TEST(ModelTrack, GettersAnswerWhatTheRecordHolds)
{
    ZoneScope utc("UTC");
    TempDir dir;
    auto library = load(dir.path(), VolumeSpec{.database = DatabaseSpec{.tracks = {everyField()}}});
    ASSERT_EQ(library->allTracks().size(), 1u);
    const iPodTrack& t = *library->allTracks()[0];

    EXPECT_EQ(t.trackID(), 0xFFFFFFFEu);
    EXPECT_EQ(t.description(), "Track ID: -2 Title: Harbour Song");
    EXPECT_TRUE(t.compilation());
    EXPECT_EQ(t.rating(), 80);
    EXPECT_EQ(t.fileSize(), 4'000'000'000u);
    EXPECT_EQ(t.trackLength(), 224'000u);
    EXPECT_EQ(t.trackNumber(), 3u);
    EXPECT_EQ(t.trackTotal(), 12u);
    EXPECT_EQ(t.year(), 2011u);
    EXPECT_EQ(t.bitrate(), 320u);
    EXPECT_EQ(t.sampleRate(), 48000u);
    EXPECT_EQ(t.volume(), 0xFFFFFFCEu);
    EXPECT_EQ(t.startTime(), 1500u);
    EXPECT_EQ(t.endTime(), 200'000u);
    EXPECT_EQ(t.soundcheckValue(), 1234u);
    EXPECT_EQ(t.playCount(), 31u);
    EXPECT_EQ(t.discNumber(), 2u);
    EXPECT_EQ(t.discTotal(), 3u);
    EXPECT_EQ(t.dbid(), 0x0123456789ABCDEFULL);
    EXPECT_EQ(t.BPM(), 128);
    EXPECT_EQ(t.mediaType(), -2147483647);
    EXPECT_EQ(t.albumID(), 0xBEEFu);
    EXPECT_EQ(t.artworkLink(), 0xFFFFFFFFu);
    EXPECT_EQ(t.parent(), library);

    EXPECT_EQ(t.title(), "Harbour Song");
    EXPECT_EQ(t.album(), "Northern Lights");
    EXPECT_EQ(t.artist(), "The Hollow Pines");
    EXPECT_EQ(t.genre(), "Indie Rock");
    EXPECT_EQ(t.fileType(), "MPEG audio file");
    EXPECT_EQ(t.EQSetting(), "#!#104#!#");
    EXPECT_EQ(t.comment(), "");  // present but empty ...
    EXPECT_EQ(t.albumArtist(), std::nullopt);  // ... is not absent
    EXPECT_EQ(t.podcastCategory(), "Music");
    EXPECT_EQ(t.composer(), "Ada Lindqvist");
    EXPECT_EQ(t.grouping(), "Sea");
    EXPECT_EQ(t.trackDescription(), "Słońce");
    EXPECT_EQ(t.filePath(), dir.path() + "/iPod_Control/Music/F03/HBSG.mp3");
}

TEST(ModelTrack, DatesCountFrom1904LocalTimeWithTheSignedSecondsRule)
{
    for (const char* zone : {"UTC", "Europe/Berlin"}) {
        ZoneScope pinned(zone);
        // Berlin: CET (+1) in January 1904, CEST (+2) in July 2023.
        const bool berlin = std::string(zone) != "UTC";
        TempDir dir;
        auto library = load(dir.path(), VolumeSpec{.database = DatabaseSpec{.tracks = {everyField()}}});
        ASSERT_EQ(library->allTracks().size(), 1u) << zone;
        const iPodTrack& t = *library->allTracks()[0];
        const double winter = berlin ? -3600 : 0, summer = berlin ? -7200 : 0;

        // A stored 0 is the base date itself, not "no date".
        ASSERT_TRUE(t.dateReleased()) << zone;
        EXPECT_EQ(*t.dateReleased(), Date::fromUnixTime(kUnixTimeOf1904 + winter)) << zone;
        EXPECT_EQ(*t.lastModified(), Date::fromUnixTime(kUnixTimeOf1904 + 3600 + winter)) << zone;
        EXPECT_EQ(*t.lastSkippedTime(), Date::fromUnixTime(kUnixTimeOf1904 + 86400 + winter)) << zone;
        // Values of 2^31 and above: the seconds part is the signed 32-bit remainder, so
        // 3771057616 lands on 2023-07-01 12:00:00 wall time and 3771057600 sixteen seconds
        // before it.
        EXPECT_EQ(*t.dateAdded(), Date::fromUnixTime(1688212800 + summer)) << zone;
        EXPECT_EQ(*t.lastPlayedTime(), Date::fromUnixTime(1688212784 + summer)) << zone;
    }
}

TEST(ModelTrack, FreshTrackIsEmptyAndSettersReplaceOrClear)
{
    auto t = iPodTrack::initWithParent(nullptr);
    EXPECT_EQ(t->description(), "Track ID: 0 Title: (null)");
    EXPECT_TRUE(t->additionalData().empty());
    t->setArtist(std::string("Someone"));
    t->setTitle(std::string("Song"));
    EXPECT_EQ(t->description(), "Track ID: 0 Title: Song");
    t->setArtist(std::nullopt);
    EXPECT_EQ(t->artist(), std::nullopt);
    EXPECT_EQ(t->title(), "Song");
    // Without a parent nothing can be read.
    EXPECT_EQ(t->contentsOfTrackFile(), std::nullopt);
    EXPECT_EQ(t->chunkOfTrackFileWithRange({0, 1}), std::nullopt);
}

// ---- reading the media file ------------------------------------------------------------------

/// A library with one track whose file holds 100 bytes (0, 1, 2, ...) while the database
/// records a size of 80.
class ModelTrackFile : public testing::Test {
protected:
    void SetUp() override
    {
        std::vector<std::uint8_t> bytes(100);
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<std::uint8_t>(i);
        TrackSpec spec{.trackID = 7, .fileSize = 80, .title = "Seven", .location = ":iPod_Control:Music:F00:SVN.mp3"};
        VolumeSpec volume{.database = DatabaseSpec{.tracks = {spec}},
                          .files = {{"iPod_Control/Music/F00/SVN.mp3", Data(std::move(bytes))}}};
        library_ = load(root_, volume);
        ASSERT_EQ(library_->allTracks().size(), 1u);
        track_ = library_->allTracks()[0];
    }

    /// The bytes from..from+count-1 of the file.
    static std::vector<std::uint8_t> run(std::uint8_t from, std::size_t count)
    {
        std::vector<std::uint8_t> bytes(count);
        for (std::size_t i = 0; i < count; ++i)
            bytes[i] = static_cast<std::uint8_t>(from + i);
        return bytes;
    }
    static std::vector<std::uint8_t> bytesOf(const std::optional<Data>& data)
    {
        return data ? std::vector<std::uint8_t>(data->bytes(), data->bytes() + data->size())
                    : std::vector<std::uint8_t>{0xEE};
    }
    void expectRefused(Range range)
    {
        try {
            track_->chunkOfTrackFileWithRange(range);
            ADD_FAILURE() << "range " << range.location << "+" << range.length << " was not refused";
        } catch (const Exception& error) {
            EXPECT_EQ(error.name(), applicationIdentifier() + ".FileReadError");
            EXPECT_EQ(error.reason(), "Range beyond file bounds");
        }
    }

    TempDir dir_;
    std::string root_ = dir_.file("volume");
    std::shared_ptr<ZQCoreiPod> library_;
    std::shared_ptr<iPodTrack> track_;
};

TEST_F(ModelTrackFile, WholeFileIsWhatIsOnDiskWhateverTheRecordedSize)
{
    EXPECT_EQ(bytesOf(track_->contentsOfTrackFile()), run(0, 100));
    EXPECT_TRUE(library_->isConnected());
}

TEST_F(ModelTrackFile, RangesAreCheckedAgainstTheRecordedSizeIn32Bits)
{
    EXPECT_EQ(bytesOf(track_->chunkOfTrackFileWithRange({0, 80})), run(0, 80));
    EXPECT_EQ(bytesOf(track_->chunkOfTrackFileWithRange({79, 1})), run(79, 1));
    EXPECT_EQ(bytesOf(track_->chunkOfTrackFileWithRange({80, 0})), run(0, 0));  // empty, at the very end
    // Refused past the recorded size even though the file holds the bytes.
    for (Range range : {Range{80, 1}, Range{81, 0}, Range{70, 11}, Range{0, 81}, Range{0xFFFFFFFF, 0},
                        Range{0xFFFFFFF0, 0x20}})
        expectRefused(range);
    // 10 + 0xFFFFFFFF wraps to 9, within the size: the read yields what the file holds from 10.
    EXPECT_EQ(bytesOf(track_->chunkOfTrackFileWithRange({10, 0xFFFFFFFF})), run(10, 90));
}

TEST_F(ModelTrackFile, ExceptionNameFollowsTheApplicationIdentifier)
{
    const std::string original = applicationIdentifier();
    setApplicationIdentifier("com.example.Player");
    try {
        track_->chunkOfTrackFileWithRange({0, 1000});
        ADD_FAILURE() << "not refused";
    } catch (const Exception& error) {
        EXPECT_EQ(error.name(), "com.example.Player.FileReadError");
    }
    setApplicationIdentifier(original);
}

TEST_F(ModelTrackFile, MissingFileGivesNothingBeforeAnyRangeCheck)
{
    std::filesystem::remove(root_ + "/iPod_Control/Music/F00/SVN.mp3");
    EXPECT_EQ(track_->chunkOfTrackFileWithRange({0, 1000}), std::nullopt);
    EXPECT_EQ(track_->contentsOfTrackFile(), std::nullopt);
    EXPECT_TRUE(library_->isConnected());  // the volume is still there
}

TEST_F(ModelTrackFile, VanishedVolumeMarksTheLibraryDisconnectedOnlyOnWholeFileReads)
{
    std::filesystem::remove_all(root_);
    EXPECT_EQ(track_->chunkOfTrackFileWithRange({0, 1}), std::nullopt);
    EXPECT_TRUE(library_->isConnected());
    EXPECT_EQ(track_->contentsOfTrackFile(), std::nullopt);
    EXPECT_FALSE(library_->isConnected());
}

} // namespace
} // namespace zq
