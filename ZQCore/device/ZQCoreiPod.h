#pragma once

#include "ZQCore/device/DeviceInformationInquiry.h"
#include "ZQCore/device/DeviceModel.h"
#include "ZQCore/foundation/Data.h"
#include "ZQCore/foundation/Export.h"
#include "ZQCore/foundation/File.h"
#include "ZQCore/foundation/Observable.h"
#include "ZQCore/foundation/Range.h"
#include "ZQCore/foundation/Value.h"
#include "ZQCore/model/iPodTrack.h"
#include "ZQCore/model/Playlist.h"
#include "ZQCore/model/TrackLibrary.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace zq {

namespace MediaLibraryLoader {
struct Contents;
}

class AlbumArt;
class Podcasts;
class XRDataReader;
class ZQCoreiPodRef;

/// What a client may hang on a library object. The framework itself calls nothing on it.
class ZQ_EXPORT ZQCoreiPodDelegate {
public:
    virtual ~ZQCoreiPodDelegate() = default;
};

/// The loaded music library of one device: its tracks, playlists and identity properties, and
/// the operations that read files off its volume.
///
/// Made with initWithiPodReference(), which loads the library (or hands back the object
/// already loaded for the same device; the framework keeps every library object for the life
/// of the process, so a device that leaves and returns finds its library again). The object
/// owns its tracks and playlists; tracks refer back to it without owning it.
///
/// Observable keys: "tracks" (removeTrack) and "playlists" (addPlaylist, removePlaylist).
class ZQ_EXPORT ZQCoreiPod : public Observable,
                             public TrackLibrary,
                             public std::enable_shared_from_this<ZQCoreiPod> {
public:
    using Tracks = std::vector<std::shared_ptr<iPodTrack>>;
    using Playlists = std::vector<std::shared_ptr<Playlist>>;
    /// Track ID (as an unsigned 64-bit key) to index in the track array.
    using TrackIndexCache = std::unordered_map<std::uint64_t, std::int32_t>;

    /// Loads the library of the device `reference` points at, or returns the library object
    /// already loaded for a device with the same serial number. A device reached through a
    /// session (an AFCiPodRef) gets an AFCiPod: the reference says which
    /// (ZQCoreiPodRef::loadLibrary). Throws
    /// "ZQCoreiPodNotFoundException" when the device's path does not exist; exceptions of a
    /// corrupt library database ("XRDataReaderInvalidRead") pass through.
    static std::shared_ptr<ZQCoreiPod> initWithiPodReference(const std::shared_ptr<ZQCoreiPodRef>& reference);

    ~ZQCoreiPod() override;

    std::shared_ptr<ZQCoreiPodDelegate> delegate() const { return delegate_.lock(); }
    void setDelegate(const std::shared_ptr<ZQCoreiPodDelegate>& delegate) { delegate_ = delegate; }

    /// The master playlist's name; without a master playlist the stored name, or "iPod".
    virtual std::optional<std::string> name() const;
    void setName(const std::optional<std::string>& name) override;
    std::shared_ptr<ZQCoreiPodRef> iPodReference() const { return iPodReference_; }

    std::shared_ptr<Playlist> masterPlaylist() const;
    /// The first playlist that is a Podcasts object and says it is the podcast playlist.
    std::shared_ptr<Podcasts> podcasts() const;
    const Playlists& allPlaylists() const { return playlists_; }
    const Tracks& allTracks() const { return tracks_; }

    void addPlaylist(const std::shared_ptr<Playlist>& playlist);
    void removePlaylist(const std::shared_ptr<Playlist>& playlist);
    /// Appends without a change notice (unlike removeTrack).
    void addTrack(const std::shared_ptr<iPodTrack>& track);
    /// Removes the track from every playlist, then from the library.
    void removeTrack(const std::shared_ptr<iPodTrack>& track);

    /// The first track whose artwork link is non-zero and equals `mhiiID`, or whose dbid
    /// equals `trackID`.
    std::shared_ptr<iPodTrack> trackWithID(std::uint64_t trackID, std::uint32_t mhiiID) const;

    Value::Dictionary& additionalData() { return additionalData_; }
    /// The parsed SysInfoExtended property list, or { "SerialNumber": serial } from SysInfo;
    /// null when neither was available.
    const Value& properties() const { return properties_; }
    /// The model type looked up by the serial number's last three characters (see the
    /// framework's "iPodTypes" resource); 0 when unknown.
    std::int32_t type() const { return autodetectedType_; }
    /// What the device is ("iPod classic (6th generation), 80 GB, silver"), as its SysInfo and
    /// SysInfoExtended tell it (see DeviceModel::fromDeviceInformation); unknown when they do not.
    const DeviceModel& model() const { return model_; }

    // ---- the device's files: each of these forwards to files() (see DeviceFiles), which knows
    // whether they lie on a mounted volume or come over a device session.

    /// { "FSTotalBytes", "FSFreeBytes" } of the device's volume, as far as they can be read; a
    /// phone over a session gives the attributes its file conduit reports ("Model", ...).
    Value::Dictionary deviceInfo() const { return files_->fileSystemInfo(); }
    /// A whole file of the device; no value when it cannot be read.
    std::optional<Data> contentsOfFileAtPath(const std::string& path) const { return files_->contentsOfFile(path); }
    /// Up to `range.length` bytes from `range.location` (fewer at the end of the file); no
    /// value when there is no file at the path.
    std::optional<Data> chunkOfFileAtPath(const std::string& path, Range range) const
    {
        return files_->chunkOfFile(path, range);
    }
    /// The size of a file of the device as the device reports it (its file system's figure,
    /// which may differ from the size the library database records); no value when there is no
    /// such file or the device does not say.
    std::optional<std::uint64_t> sizeOfFileAtPath(const std::string& path) const { return files_->sizeOfFile(path); }
    /// Streams a whole file of the device into `destination` (an open, writable descriptor,
    /// left open) without holding it in memory; for a mounted volume the kernel copies it.
    /// `progress` sees the bytes written so far and may stop the copy. A file that cannot be
    /// opened ends at once with its errno.
    FileCopyResult copyFileAtPath(const std::string& path, int destination, const FileCopyProgress& progress = {}) const
    {
        return files_->copyFile(path, destination, progress);
    }

    /// Opens a file of the device's volume with `flags` (O_RDONLY, O_PATH), confined to the
    /// volume: a path that leads outside it, by its text or through a symbolic link, is refused
    /// with EXDEV (see openInsideFolder). Answers the descriptor, or -1 with errno set (ENOTSUP
    /// for files reached through a session). A library object with no volume (an empty path)
    /// opens the path as it is.
    int openFileAtPath(const std::string& path, int flags) const { return files_->openFile(path, flags); }
    /// Whether the device names `path` outside itself (by its text, or through a link on a
    /// mounted volume): such a file is never read, and a copy reports it as refused.
    bool refusesPath(const std::string& path) const { return files_->refusesPath(path); }

    /// A reader over a file of the device for the record walks; nullptr when the file cannot be
    /// read. A volume's file is walked through a window rather than read whole first (see
    /// XRDataReader); a file reached through a session is read whole.
    std::shared_ptr<XRDataReader> readerForFileAtPath(const std::string& path) const;

    /// Why the artwork database could not be loaded (the library loads without artwork then);
    /// no value when it loaded or the device has none.
    const std::optional<std::string>& artworkLoadError() const { return artworkLoadError_; }

    /// The database a library was read from. None means the device holds no library database
    /// at all (a device that was never synced): its library is empty because there is nothing
    /// to read, which is not the same as a library of 0 tracks.
    enum class LibrarySource { None, iTunesDB, iTunesCDB, SQLiteDatabases, MediaLibrary };
    LibrarySource librarySource() const { return librarySource_; }
    /// The source's file name as the device keeps it ("iTunesDB", "iTunesCDB",
    /// "iTunes Library.itlp", "MediaLibrary.sqlitedb"); "" for None.
    static const char* librarySourceName(LibrarySource source);
    /// What of the library could not be read while it loaded, one line each (a table of the
    /// database that is unreadable, say, which costs the playlists or statistics it feeds but
    /// not the rest). Empty when everything was read.
    const std::vector<std::string>& loadWarnings() const { return loadWarnings_; }

    /// True for library objects whose files are reached through a device session rather than
    /// a mounted volume.
    bool readsFilesThroughDevice() const { return files_->readsThroughSession(); }

    // ---- the binary library database (iTunesDB) ----
    /// Walks a whole library database and keeps its track list and grouped playlist list
    /// (replacing only what the file holds). Empty data changes nothing. A truncated or corrupt
    /// file throws "XRDataReaderInvalidRead".
    void parseiTunesDBWithData(const Data& data);
    /// The same walk through any reader (over a buffer, or over the file itself).
    void parseiTunesDBWithReader(XRDataReader& reader);
    /// The tracks of the track list at the reader's position, in file order.
    Tracks parseTrackList(XRDataReader& reader);
    /// The playlists of the playlist list at the reader's position, with their members
    /// resolved through `cache` (checked against each track's own ID; a miss falls back to a
    /// search of the library's tracks).
    Playlists parsePlaylistListWithReader(XRDataReader& reader, const Tracks& tracks, const TrackIndexCache& cache);
    /// The smart-playlist rule list of a rule blob: { "operatorOr", "rules" }.
    static Value::Dictionary parseSmartPlaylistRulesInData(const Data& data);
    /// The key under which a text object of the given type is known ("title", "location", ...,
    /// or the type in decimal).
    static std::string keyForStringMHODType(std::int32_t type);

    // ---- the SQLite library databases (iTunes Library.itlp) ----
    /// Loads tracks and playlists from the four databases of newer devices: `library`
    /// ("Library.itdb"), `extras` ("Extras.itdb", opened and never read), `locations`
    /// ("Locations.itdb") and `dynamics` ("Dynamic.itdb"), all local files, opened read-only.
    /// Replaces `tracks` and `playlists` (top-level playlists only; folder children live in their
    /// folders; the podcast group, when there are episodes, is added last). Answers true whenever
    /// it returns: a database that cannot be opened loads nothing and still answers true.
    /// Throws "<application identifier>.SQLiteFailed" when a statement cannot be prepared (a
    /// missing table, say); what was loaded by then stays. Every statement belongs to this load's
    /// own connections and is finalized before they close, so each library shows its own
    /// device's data, however many are loaded in one process.
    bool loadFromLocalSQLiteDatabase(const std::string& library, const std::string& extras,
                                     const std::string& locations, const std::string& dynamics);

    // ---- the single library database of iOS 5 and later (MediaLibrary.sqlitedb) ----
    /// Loads the library from iTunes_Control/iTunes/MediaLibrary.sqlitedb below `mediaRoot`
    /// (the folder of the device that holds iTunes_Control: "/" over AFC, the mount path of a
    /// phone's file system otherwise), when the device has that database. The database is copied
    /// with its -wal and -shm into a temporary folder that is removed on every path, and read
    /// with its committed WAL frames applied. Replaces `tracks` and `playlists` and attaches the
    /// artwork the database names. Answers false, changing nothing, when there is no such
    /// database; throws "<application identifier>.SQLiteFailed" when there is one that cannot
    /// be copied or read.
    bool loadFromMediaLibrary(const std::string& mediaRoot);
    /// The same load from a local database file (already copied, or one to read in place);
    /// track and artwork paths are formed below `mediaRoot`.
    void loadFromLocalMediaLibraryDatabase(const std::string& database, const std::string& mediaRoot);

    // ---- the artwork database (ArtworkDB) ----
    /// Reads the artwork database at `path` whole through contentsOfFileAtPath, makes one
    /// AlbumArt per image item (pixels stay on the device until asked for) and attaches them to
    /// `tracks`. A missing or empty file changes nothing. A truncated or corrupt file throws
    /// "XRDataReaderInvalidRead": the image list being built is dropped, lists finished before
    /// it keep their links.
    void parseArtworkDBAtPath(const std::string& path, const Tracks& tracks);
    /// The same walk over the bytes of an artwork database; the thumbnail files are looked for
    /// in `folderPath`. Safe on any bytes (it is what the fuzz target drives).
    void parseArtworkDBWithData(const Data& data, const Tracks& tracks, const std::string& folderPath);
    /// Builds the artwork of the image list at the reader's position and links it to `tracks`.
    void parseImageListWithReader(XRDataReader& reader, const Tracks& tracks, const std::string& folderPath);
    /// Links artwork to tracks, in two passes. First, each track takes the first artwork in
    /// `artworks` order whose song identifier equals its dbid, or whose image identifier equals
    /// its artwork link (a link above 32 bits never matches an image identifier); the artwork is
    /// also noted for the track's album (albumID 0 is no album; a later track of the album
    /// replaces the note). Then every track of a noted album takes its album's artwork, so all
    /// tracks of an album show the cover of its last matched track. Tracks without a match and
    /// without a noted album keep what they had.
    static void linkArtwork(const Tracks& tracks, const std::vector<std::shared_ptr<AlbumArt>>& artworks);

    // ---- the device-information inquiry (SCSI) ----
    /// The block device (its sysfs path) of the volume that holds `path`; no value when the
    /// volume is not on a block device.
    static std::optional<std::string> getIOKitServiceForPath(const std::string& path);
    /// The kernel name of that block device ("sdb1"); no value when there is none.
    static std::optional<std::string> bsdNameForPath(const std::string& path);
    /// The part of the device that answers the information inquiry, found from the volume that
    /// holds `path`: its Apple USB device and disk node. No value for a volume on anything else.
    virtual std::optional<DeviceInformationNub> informationNubForPath(const std::string& path) const;
    /// The device's own description (the SysInfoExtended XML), read page by page over SCSI;
    /// "" when nothing could be read (a message on standard error says why). Never throws.
    std::string getiPodXML(const DeviceInformationNub& entry) const;

protected:
    ZQCoreiPod() = default;

    /// The files every read of this library goes through (a new object has those of no device).
    void setFiles(std::shared_ptr<DeviceFiles> files) { files_ = std::move(files); }

    /// The SCSI pass-through of the nub's disk (SG_IO); nullptr, after a message on standard
    /// error, when it cannot be had (permission denied included).
    virtual std::unique_ptr<SCSITaskDeviceInterface> createDeviceInterface(const DeviceInformationNub& entry) const;

    /// The load sequence, run once on a new object.
    void loadLibrary(const std::shared_ptr<ZQCoreiPodRef>& reference);
    /// Reads the binary library of the folder `folder` (iPod_Control/iTunes of a volume,
    /// /iTunes_Control/iTunes over AFC; `shownFolder` names it in messages) through the
    /// object's files (see iTunesDBLoader::loadBinaryLibraryInFolder). Answers false, changing
    /// nothing, when neither iTunesCDB nor iTunesDB is there.
    bool loadBinaryLibraryInFolder(const std::string& folder, const std::string& shownFolder);
    /// Loads the four SQLite databases of the folder `folder` (an "iTunes Library.itlp") of the
    /// object's files (see SQLiteLibraryLoader::loadFromDevice). False, loading nothing, unless
    /// all four are there.
    bool loadSQLiteLibraryInFolder(const std::string& folder);

    Tracks tracks_;
    Playlists playlists_;
    std::optional<std::string> name_;
    std::weak_ptr<ZQCoreiPodDelegate> delegate_;
    std::shared_ptr<ZQCoreiPodRef> iPodReference_;
    Value::Dictionary additionalData_;
    Value properties_;
    std::int32_t autodetectedType_ = 0;
    DeviceModel model_;
    std::optional<std::string> artworkLoadError_;
    LibrarySource librarySource_ = LibrarySource::None;
    std::vector<std::string> loadWarnings_;

    /// Notes a part of the library that could not be read: logged and kept in loadWarnings().
    void warnAboutLoad(const std::string& warning);
private:
    friend class ZQCoreiPodRef;
    /// A new library object of the volume `reference` names, loaded.
    static std::shared_ptr<ZQCoreiPod> loadVolumeLibrary(const std::shared_ptr<ZQCoreiPodRef>& reference);
    /// Makes what a media library load gave the library's.
    void takeMediaLibrary(MediaLibraryLoader::Contents&& contents);
    void readIdentityProperties();
    void detectModelType();
    /// Asks the device for its SysInfoExtended and writes a non-empty answer to `path`
    /// atomically; anything that fails leaves the volume as it was.
    void obtainSysInfoExtendedFromDevice(const std::string& path);
};

/// The model type for a serial number: its last three characters looked up in the framework's
/// "iPodTypes" list; 0 when the serial is absent or the suffix unknown. A serial of fewer than
/// three characters is not padded: it throws "RangeException", which leaves the library
/// object's initialiser.
ZQ_EXPORT std::int32_t modelTypeForSerialNumber(const std::optional<std::string>& serial);

} // namespace zq
