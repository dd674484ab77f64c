#pragma once

// One row of a MediaLibrary.sqlitedb item, gathered from whichever tables the database has.
// Every value is optional: a column this release of the database does not have is no value.

#include <cstdint>
#include <optional>
#include <string>

namespace zq {

struct MediaLibraryItem {
    std::int64_t pid = 0;
    std::optional<std::string> title, album, artist, albumArtist, genre, composer, comment, grouping, description,
        eqPreset, location, basePath;
    std::optional<std::int64_t> albumPid, baseLocationID, mediaType, trackNumber, trackCount, discNumber, discCount,
        year, fileSize, bitRate, relativeVolume, soundcheck, bpm, playCount, skipCount, rating, hasBeenPlayed,
        isCompilation, isUserDisabled, seasonNumber, episodeNumber, datePlayed, dateSkipped, dateAdded, dateModified,
        dateReleased;
    std::optional<double> totalTimeMs, startTimeMs, stopTimeMs, sampleRate;

    /// Media kinds are bit sets on these databases; 4 marks podcasts (audio or video ones).
    bool isPodcast() const { return mediaType && (*mediaType & 4) != 0; }
};

} // namespace zq
