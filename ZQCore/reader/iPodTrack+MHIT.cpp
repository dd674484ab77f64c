// Filling a track from a record of the binary library database.

#include "ZQCore/model/iPodTrack.h"
#include "ZQCore/reader/RecordLayouts.h"

namespace zq {

namespace {

// Where each text object type goes among the track's string fields.
struct TextTarget {
    std::size_t type;
    std::size_t field;
};

} // namespace

std::shared_ptr<iPodTrack> iPodTrack::initWithMHIT(std::span<const std::uint8_t> header,
                                                   std::span<const std::optional<std::string_view>> texts,
                                                   const std::shared_ptr<TrackLibrary>& parent, LocalDateConverter& dates)
{
    using namespace layout;
    namespace H = MHITHeader;
    auto track = make(parent);
    iPodTrack& t = *track;

    t.uniqueID_ = le32(header, H::trackID);
    // Flags count only for the exact value 1, as the device writes them.
    t.compilation_ = u8(header, H::compilation) == 1;
    t.rating_ = u8(header, H::rating);
    t.lastModified_ = dates.dateFrom1904Seconds(le32(header, H::lastModified)).timeIntervalSinceReferenceDate();
    t.fileSize_ = le32(header, H::fileSize);
    t.trackLength_ = le32(header, H::trackLength);
    t.trackNumber_ = le32(header, H::trackNumber);
    t.trackTotal_ = le32(header, H::trackTotal);
    t.year_ = le32(header, H::year);
    t.bitrate_ = le32(header, H::bitrate);
    t.sampleRate_ = le16(header, H::sampleRate);
    t.volume_ = static_cast<std::int32_t>(le32(header, H::volume));
    t.startTime_ = le32(header, H::startTime);
    t.endTime_ = le32(header, H::stopTime);
    t.soundcheckValue_ = le32(header, H::soundcheck);
    t.playCount_ = le32(header, H::playCount);
    t.lastPlayedTime_ = dates.dateFrom1904Seconds(le32(header, H::lastPlayed)).timeIntervalSinceReferenceDate();
    t.discNumber_ = le32(header, H::discNumber);
    t.discTotal_ = le32(header, H::discTotal);
    t.dateAdded_ = dates.dateFrom1904Seconds(le32(header, H::dateAdded)).timeIntervalSinceReferenceDate();
    t.dbid_ = le64(header, H::dbid);
    t.checked_ = u8(header, H::checked) == 1;
    t.BPM_ = le16(header, H::bpm);
    t.artworkCount_ = le16(header, H::artworkCount);
    t.dateReleased_ = dates.dateFrom1904Seconds(le32(header, H::dateReleased)).timeIntervalSinceReferenceDate();
    t.skipCount_ = le32(header, H::skipCount);
    t.lastSkippedTime_ = dates.dateFrom1904Seconds(le32(header, H::lastSkipped)).timeIntervalSinceReferenceDate();
    t.hasLyrics_ = u8(header, H::hasLyrics) == 1;
    t.isMovie_ = u8(header, H::isMovie) == 1;
    t.hasBeenPlayed_ = u8(header, H::hasBeenPlayed) == 1;
    t.mediaType_ = le32(header, H::mediaType);
    t.seasonNumber_ = le32(header, H::seasonNumber);
    t.episodeNumber_ = le32(header, H::episodeNumber);
    t.albumID_ = le16(header, H::albumID);
    t.artworkLink_ = le32(header, H::artworkLink);

    static constexpr TextTarget kTargets[] = {
        {1, Title}, {2, FilePath}, {3, Album}, {4, Artist}, {5, Genre}, {6, FileType}, {7, EQSettingText},
        {8, Comment}, {9, PodcastCategory}, {12, Composer}, {13, Grouping}, {14, TrackDescription}, {22, AlbumArtist},
    };
    std::array<std::optional<std::string_view>, StringFieldCount> fields{};
    for (const auto& target : kTargets)
        if (target.type < texts.size())
            fields[target.field] = texts[target.type];
    t.assignStrings(fields);
    return track;
}

} // namespace zq
