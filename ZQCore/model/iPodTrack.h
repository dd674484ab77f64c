#pragma once

#include "ZQCore/foundation/Data.h"
#include "ZQCore/foundation/Date.h"
#include "ZQCore/foundation/Export.h"
#include "ZQCore/foundation/File.h"
#include "ZQCore/foundation/Range.h"
#include "ZQCore/foundation/Value.h"
#include "ZQCore/model/PackedStrings.h"

#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

namespace zq {

class AlbumArt;
class TrackLibrary;
class ZQCoreiPod;
struct MediaLibraryItem;
struct SQLiteSubRows;

/// One song, podcast episode or video of a device's library: a passive record that the
/// database loaders fill once and a client then reads. Strings may be absent (no value) or
/// empty, and the two are different.
///
/// A track refers to the library object that loaded it (its parent) without owning it: the
/// library owns its tracks, and a track whose library has gone answers no file contents.
class ZQ_EXPORT iPodTrack {
    struct Key;

public:
    /// Made through the factories only (the key is private).
    explicit iPodTrack(Key) {}

    /// A track with every field zero, false or absent, belonging to `parent`.
    static std::shared_ptr<iPodTrack> initWithParent(const std::shared_ptr<TrackLibrary>& parent);

    /// Text object types below this can reach a track field (1 to 22).
    static constexpr std::size_t kMHITTextTypes = 23;
    /// The track of one record of the binary database: `header` is the record's 356-byte header
    /// block; `texts[type]` is the record's text object of that type, if any (types below
    /// kMHITTextTypes; the location already turned into a full path), viewed in place; `dates`
    /// converts the record's 1904-based local dates. Lives with the binary database reader.
    static std::shared_ptr<iPodTrack> initWithMHIT(std::span<const std::uint8_t> header,
                                                   std::span<const std::optional<std::string_view>> texts,
                                                   const std::shared_ptr<TrackLibrary>& parent, LocalDateConverter& dates);

    /// The track of the row `row` of the SQLite library's item table, with its sub-rows from
    /// the library, locations and dynamics connections (`extrasDatabase` is passed along and
    /// not read). Throws "<application identifier>.SQLiteFailed" when a sub-query cannot be
    /// prepared. Lives with the SQLite loader.
    static std::shared_ptr<iPodTrack> initWithSQLiteRow(sqlite3_stmt* row, sqlite3* libraryDatabase,
                                                        sqlite3* extrasDatabase, sqlite3* locationsDatabase,
                                                        sqlite3* dynamicsDatabase,
                                                        const std::shared_ptr<TrackLibrary>& parent);
    /// The same, with the sub-rows of a whole load, which reads each of those tables once.
    static std::shared_ptr<iPodTrack> initWithSQLiteRow(sqlite3_stmt* row, SQLiteSubRows& subRows,
                                                        const std::shared_ptr<TrackLibrary>& parent);

    /// The track of one item of a MediaLibrary.sqlitedb (iOS 5 and later), with the path of its
    /// file on the device, or none for an item that is only in the cloud. Lives with the media
    /// library loader.
    static std::shared_ptr<iPodTrack> initWithMediaLibraryItem(const MediaLibraryItem& item,
                                                               const std::optional<std::string>& filePath,
                                                               const std::shared_ptr<TrackLibrary>& parent);

    // Text fields.
    std::optional<std::string> artist() const { return text(Artist); }
    std::optional<std::string> album() const { return text(Album); }
    std::optional<std::string> title() const { return text(Title); }
    std::optional<std::string> filePath() const { return text(FilePath); }
    std::optional<std::string> genre() const { return text(Genre); }
    std::optional<std::string> fileType() const { return text(FileType); }
    std::optional<std::string> EQSetting() const { return text(EQSettingText); }
    std::optional<std::string> comment() const { return text(Comment); }
    std::optional<std::string> podcastCategory() const { return text(PodcastCategory); }
    std::optional<std::string> composer() const { return text(Composer); }
    std::optional<std::string> grouping() const { return text(Grouping); }
    std::optional<std::string> trackDescription() const { return text(TrackDescription); }
    std::optional<std::string> albumArtist() const { return text(AlbumArtist); }

    void setArtist(const std::optional<std::string>& value) { strings_.set(Artist, value); }
    void setAlbum(const std::optional<std::string>& value) { strings_.set(Album, value); }
    void setTitle(const std::optional<std::string>& value) { strings_.set(Title, value); }
    void setFilePath(const std::optional<std::string>& value) { strings_.set(FilePath, value); }
    void setGenre(const std::optional<std::string>& value) { strings_.set(Genre, value); }
    void setFileType(const std::optional<std::string>& value) { strings_.set(FileType, value); }
    void setEQSetting(const std::optional<std::string>& value) { strings_.set(EQSettingText, value); }
    void setComment(const std::optional<std::string>& value) { strings_.set(Comment, value); }
    void setPodcastCategory(const std::optional<std::string>& value) { strings_.set(PodcastCategory, value); }
    void setComposer(const std::optional<std::string>& value) { strings_.set(Composer, value); }
    void setGrouping(const std::optional<std::string>& value) { strings_.set(Grouping, value); }
    void setTrackDescription(const std::optional<std::string>& value) { strings_.set(TrackDescription, value); }
    void setAlbumArtist(const std::optional<std::string>& value) { strings_.set(AlbumArtist, value); }

    // Numbers, flags and dates, as the database stores them.
    bool compilation() const { return compilation_; }
    std::int32_t rating() const { return rating_; }
    std::uint32_t fileSize() const { return fileSize_; }
    std::uint32_t trackLength() const { return trackLength_; }
    std::uint32_t trackNumber() const { return trackNumber_; }
    std::uint32_t trackTotal() const { return trackTotal_; }
    std::uint32_t year() const { return year_; }
    std::uint32_t bitrate() const { return bitrate_; }
    std::uint32_t sampleRate() const { return sampleRate_; }
    /// The volume adjustment, signed: -255 (quieter) to 255 (louder).
    std::int32_t volume() const { return volume_; }
    std::uint32_t startTime() const { return startTime_; }
    std::uint32_t endTime() const { return endTime_; }
    std::uint32_t soundcheckValue() const { return soundcheckValue_; }
    std::uint32_t playCount() const { return playCount_; }
    std::uint32_t discNumber() const { return discNumber_; }
    std::uint32_t discTotal() const { return discTotal_; }
    std::uint64_t dbid() const { return dbid_; }
    std::uint64_t albumID() const { return albumID_; }
    std::uint64_t artworkLink() const { return artworkLink_; }
    std::int32_t mediaType() const { return static_cast<std::int32_t>(mediaType_); }
    std::uint16_t BPM() const { return BPM_; }
    std::optional<Date> lastModified() const { return date(lastModified_); }
    std::optional<Date> lastPlayedTime() const { return date(lastPlayedTime_); }
    std::optional<Date> dateAdded() const { return date(dateAdded_); }
    std::optional<Date> dateReleased() const { return date(dateReleased_); }
    std::optional<Date> lastSkippedTime() const { return date(lastSkippedTime_); }

    /// Extra values a loader found that have no field of their own.
    Value::Dictionary& additionalData();

    /// The additionalData key (value true) of a track whose file is only in the cloud: the
    /// media library lists it, but there is no file on the device to read.
    static constexpr const char* kCloudOnlyKey = "cloudOnly";

    /// The identifier playlists and the artwork walk use: the low 32 bits of the unique ID.
    std::uint32_t trackID() const { return static_cast<std::uint32_t>(uniqueID_); }

    /// The artwork attached by the artwork walk; a track without any answers the shared
    /// AlbumArt::noAlbumArtInstance(), so this is never nullptr.
    std::shared_ptr<AlbumArt> albumArt() const;
    /// Attaches artwork (nullptr detaches it).
    void setAlbumArt(std::shared_ptr<AlbumArt> albumArt) { albumArt_ = std::move(albumArt); }
    /// Whether artwork of its own is attached (albumArt() is then not the shared stand-in).
    bool hasAlbumArt() const { return albumArt_ != nullptr; }

    /// The library object that loaded this track, if it still exists. (A template only so that
    /// this header need not know the library class: `track->parent()` answers a ZQCoreiPod.)
    template <class Library = ZQCoreiPod>
    std::shared_ptr<Library> parent() const
    {
        return std::dynamic_pointer_cast<Library>(parent_.lock());
    }

    /// "Track ID: <low 32 bits of the ID, signed> Title: <title>".
    std::string description() const;

    /// The whole media file; no value when it cannot be read. For a device volume that has gone
    /// away, the library object is marked not connected.
    std::optional<Data> contentsOfTrackFile() const;

    /// A slice of the media file, checked against the size the database records (not the size
    /// on disk): throws "<application identifier>.FileReadError" ("Range beyond file bounds")
    /// for a range past it. No value when the file cannot be opened.
    std::optional<Data> chunkOfTrackFileWithRange(Range range) const;

    /// The size of the media file as the device reports it now (see fileSize() for the size
    /// the database recorded); no value when the file is missing or the device does not say.
    std::optional<std::uint64_t> sizeOfTrackFile() const;
    /// Streams the whole media file into `destination` through the parent's copyFileAtPath
    /// (so large files never pass through memory whole). Without a parent or a file path it
    /// fails with ENOENT; a device volume that has gone away fails with ENODEV and marks the
    /// library object not connected, as contentsOfTrackFile does.
    FileCopyResult copyTrackFileTo(int destination, const FileCopyProgress& progress = {}) const;

    /// The text fields, for textView.
    enum StringField : std::size_t {
        Artist, Album, Title, FilePath, Genre, FileType, EQSettingText, Comment, PodcastCategory,
        Composer, Grouping, TrackDescription, AlbumArtist, StringFieldCount
    };
    /// A text field in place, without a copy (a listing of a large library reads millions):
    /// valid while the track lives and the field is not set again.
    std::optional<std::string_view> textView(StringField field) const { return strings_.get(field); }

private:
    friend class ZQCoreiPod;

    struct Key {
        explicit Key() = default;
    };
    /// A new track, in the arena of this thread's load when there is one.
    static std::shared_ptr<iPodTrack> make(const std::shared_ptr<TrackLibrary>& parent);
    /// Sets every text field at once (in the arena of this thread's load when there is one).
    void assignStrings(const std::array<std::optional<std::string_view>, StringFieldCount>& strings);
    std::optional<std::string> text(StringField field) const
    {
        auto view = strings_.get(field);
        return view ? std::optional<std::string>(std::string(*view)) : std::nullopt;
    }
    static std::optional<Date> date(double seconds)
    {
        return std::isnan(seconds) ? std::nullopt : std::optional<Date>(Date(seconds));
    }

    PackedStrings<StringFieldCount> strings_;
    std::weak_ptr<TrackLibrary> parent_;
    std::shared_ptr<AlbumArt> albumArt_;
    std::unique_ptr<Value::Dictionary> additionalData_;

    double lastModified_ = NAN;
    double lastPlayedTime_ = NAN;
    double dateAdded_ = NAN;
    double dateReleased_ = NAN;
    double lastSkippedTime_ = NAN;
    std::int64_t uniqueID_ = 0;
    std::uint64_t dbid_ = 0;
    std::uint64_t albumID_ = 0;
    std::uint64_t artworkLink_ = 0;
    std::int32_t rating_ = 0;
    std::uint32_t fileSize_ = 0;
    std::uint32_t trackLength_ = 0;
    std::uint32_t trackNumber_ = 0;
    std::uint32_t trackTotal_ = 0;
    std::uint32_t year_ = 0;
    std::uint32_t bitrate_ = 0;
    std::uint32_t sampleRate_ = 0;
    std::int32_t volume_ = 0;
    std::uint32_t startTime_ = 0;
    std::uint32_t endTime_ = 0;
    std::uint32_t soundcheckValue_ = 0;
    std::uint32_t playCount_ = 0;
    std::uint32_t discNumber_ = 0;
    std::uint32_t discTotal_ = 0;
    std::uint32_t skipCount_ = 0;
    std::uint32_t mediaType_ = 0;
    std::uint32_t seasonNumber_ = 0;
    std::uint32_t episodeNumber_ = 0;
    std::uint16_t BPM_ = 0;
    std::uint16_t artworkCount_ = 0;
    bool compilation_ = false;
    bool checked_ = false;
    bool hasLyrics_ = false;
    bool isMovie_ = false;
    bool hasBeenPlayed_ = false;
};

} // namespace zq
