// Tracks from items of a MediaLibrary.sqlitedb.

#include "ZQCore/model/iPodTrack.h"

#include "ZQCore/medialibrary/MediaLibraryItem.h"

#include <algorithm>
#include <cmath>

namespace zq {

namespace {

std::uint32_t u32(const std::optional<std::int64_t>& value)
{
    return value ? static_cast<std::uint32_t>(std::clamp<std::int64_t>(*value, 0, 0xFFFFFFFF)) : 0;
}

std::uint32_t wholeNumber(const std::optional<double>& value)
{
    if (!value || std::isnan(*value))
        return 0;
    return static_cast<std::uint32_t>(std::clamp(*value, 0.0, 4294967295.0));
}

/// Dates are seconds after 2001-01-01 00:00:00 UTC; 0 is how the database says "never".
double referenceSeconds(const std::optional<std::int64_t>& value)
{
    return value && *value != 0 ? static_cast<double>(*value) : NAN;
}

} // namespace

std::shared_ptr<iPodTrack> iPodTrack::initWithMediaLibraryItem(const MediaLibraryItem& item,
                                                               const std::optional<std::string>& filePath,
                                                               const std::shared_ptr<TrackLibrary>& parent)
{
    auto track = make(parent);
    iPodTrack& t = *track;
    t.uniqueID_ = item.pid;
    t.dbid_ = static_cast<std::uint64_t>(item.pid);
    t.setTitle(item.title);
    t.setAlbum(item.album);
    t.setArtist(item.artist);
    t.setAlbumArtist(item.albumArtist);
    t.setGenre(item.genre);
    t.setComposer(item.composer);
    t.setComment(item.comment);
    t.setGrouping(item.grouping);
    t.setTrackDescription(item.description);
    t.setEQSetting(item.eqPreset);
    t.setFilePath(filePath);

    t.trackLength_ = wholeNumber(item.totalTimeMs);
    t.startTime_ = wholeNumber(item.startTimeMs);
    t.endTime_ = wholeNumber(item.stopTimeMs);
    t.sampleRate_ = wholeNumber(item.sampleRate);
    t.trackNumber_ = u32(item.trackNumber);
    t.trackTotal_ = u32(item.trackCount);
    t.discNumber_ = u32(item.discNumber);
    t.discTotal_ = u32(item.discCount);
    t.year_ = u32(item.year);
    t.fileSize_ = u32(item.fileSize);
    t.bitrate_ = u32(item.bitRate);
    t.volume_ = item.relativeVolume ? static_cast<std::uint32_t>(*item.relativeVolume) : 0;
    t.soundcheckValue_ = u32(item.soundcheck);
    t.BPM_ = static_cast<std::uint16_t>(u32(item.bpm));
    t.playCount_ = u32(item.playCount);
    t.skipCount_ = u32(item.skipCount);
    t.rating_ = item.rating ? static_cast<std::int32_t>(*item.rating) : 0;
    t.hasBeenPlayed_ = item.hasBeenPlayed == 1;
    t.compilation_ = item.isCompilation == 1;
    // A track is enabled unless the database says it is not.
    t.checked_ = !item.isUserDisabled || *item.isUserDisabled == 0;
    t.mediaType_ = item.mediaType ? static_cast<std::uint32_t>(*item.mediaType) : 0;
    t.seasonNumber_ = u32(item.seasonNumber);
    t.episodeNumber_ = u32(item.episodeNumber);
    t.albumID_ = item.albumPid ? static_cast<std::uint64_t>(*item.albumPid) : 0;
    t.lastPlayedTime_ = referenceSeconds(item.datePlayed);
    t.lastSkippedTime_ = referenceSeconds(item.dateSkipped);
    t.dateAdded_ = referenceSeconds(item.dateAdded);
    t.lastModified_ = referenceSeconds(item.dateModified);
    t.dateReleased_ = referenceSeconds(item.dateReleased);
    return track;
}

} // namespace zq
