// Tracks as a client meets them: every getter after a load, the dates, the printable form, and
// reading the media file whole or by range.

#include "ZQCore/foundation/Application.h"
#include "tests/support/TestLibrary.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace zq {
namespace {

using namespace test;

constexpr double kUnixTimeOf1904 = -2082844800.0;

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
    TempDir dir;
    auto library = loadDatabase(dir.path(), DatabaseSpec{.tracks = {everyField()}});
    ASSERT_EQ(library->allTracks().size(), 1u);
    const iPodTrack& t = *library->allTracks()[0];
    // A comment present but empty is not absent; the album artist is.
    EXPECT_EQ(trackFields(t), "4294967294 81985529216486895 1 80 4000000000 224000 1500 200000 3/12 2/3 2011 320 48000 "
                              "-50 1234 31 128 -2147483647 48879 4294967295|Harbour Song|Northern Lights|"
                              "The Hollow Pines|-|Indie Rock|MPEG audio file|#!#104#!#||Music|Ada Lindqvist|Sea|"
                              "Słońce|" + dir.path() + "/iPod_Control/Music/F03/HBSG.mp3");
    EXPECT_EQ(t.description(), "Track ID: -2 Title: Harbour Song");
    EXPECT_EQ(t.parent(), library);
}

TEST(ModelTrack, DatesCountFrom1904LocalTimeWithTheSignedSecondsRule)
{
    for (const char* zone : {"UTC", "CET-1CEST,M3.5.0,M10.5.0/3"}) {
        ZoneScope pinned(zone);
        // Central Europe: +1 in January 1904, +2 in July 2023.
        const bool utc = std::string(zone) == "UTC";
        const double winter = utc ? 0 : -3600, summer = utc ? 0 : -7200;
        TempDir dir;
        auto library = loadDatabase(dir.path(), DatabaseSpec{.tracks = {everyField()}});
        const iPodTrack& t = *library->allTracks().at(0);
        // A stored 0 is the base date itself, not "no date".
        ASSERT_TRUE(t.dateReleased()) << zone;
        EXPECT_EQ(*t.dateReleased(), Date::fromUnixTime(kUnixTimeOf1904 + winter)) << zone;
        EXPECT_EQ(*t.lastModified(), Date::fromUnixTime(kUnixTimeOf1904 + 3600 + winter)) << zone;
        EXPECT_EQ(*t.lastSkippedTime(), Date::fromUnixTime(kUnixTimeOf1904 + 86400 + winter)) << zone;
        // From 2^31 the seconds part is the signed remainder: 3771057616 lands on 2023-07-01
        // 12:00:00 wall time and 3771057600 sixteen seconds before it.
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
        TrackSpec spec{.trackID = 7, .fileSize = 80, .location = ":iPod_Control:Music:F00:SVN.mp3"};
        library_ = loadVolume(root_, {.database = DatabaseSpec{.tracks = {spec}},
                                      .files = {{"iPod_Control/Music/F00/SVN.mp3", Data(run(0, 100))}}});
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

    TempDir dir_;
    std::string root_ = dir_.file("volume");
    std::shared_ptr<ZQCoreiPod> library_;
    std::shared_ptr<iPodTrack> track_;
};

TEST_F(ModelTrackFile, WholeFileIsWhatIsOnDiskRangesAreCheckedAgainstTheRecordedSizeIn32Bits)
{
    EXPECT_EQ(bytesOf(track_->contentsOfTrackFile()), run(0, 100));
    EXPECT_EQ(bytesOf(track_->chunkOfTrackFileWithRange({0, 80})), run(0, 80));
    EXPECT_EQ(bytesOf(track_->chunkOfTrackFileWithRange({79, 1})), run(79, 1));
    EXPECT_EQ(bytesOf(track_->chunkOfTrackFileWithRange({80, 0})), run(0, 0)); // empty, at the very end
    // Refused past the recorded size even though the file holds the bytes.
    for (Range range : {Range{80, 1}, Range{81, 0}, Range{70, 11}, Range{0, 81}, Range{0xFFFFFFFF, 0},
                        Range{0xFFFFFFF0, 0x20}})
        expectThrown([&] { track_->chunkOfTrackFileWithRange(range); }, applicationIdentifier() + ".FileReadError",
                     "Range beyond file bounds");
    // 10 + 0xFFFFFFFF wraps to 9, within the size: the read yields what the file holds from 10.
    EXPECT_EQ(bytesOf(track_->chunkOfTrackFileWithRange({10, 0xFFFFFFFF})), run(10, 90));
    // The exception's name follows the application identifier.
    const std::string original = applicationIdentifier();
    setApplicationIdentifier("com.example.Player");
    expectThrown([&] { track_->chunkOfTrackFileWithRange({0, 1000}); }, "com.example.Player.FileReadError");
    setApplicationIdentifier(original);
}

TEST_F(ModelTrackFile, MissingFileGivesNothingAndOnlyAVanishedVolumeOnAWholeReadDisconnects)
{
    std::filesystem::remove(root_ + "/iPod_Control/Music/F00/SVN.mp3");
    EXPECT_EQ(track_->chunkOfTrackFileWithRange({0, 1000}), std::nullopt); // before any range check
    EXPECT_EQ(track_->contentsOfTrackFile(), std::nullopt);
    EXPECT_TRUE(library_->isConnected()); // the volume is still there
    std::filesystem::remove_all(root_);
    EXPECT_EQ(track_->chunkOfTrackFileWithRange({0, 1}), std::nullopt);
    EXPECT_TRUE(library_->isConnected());
    EXPECT_EQ(track_->contentsOfTrackFile(), std::nullopt);
    EXPECT_FALSE(library_->isConnected());
}

} // namespace
} // namespace zq
