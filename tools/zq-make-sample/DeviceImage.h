#pragma once

// Writes device volumes for tests, benchmarks and the demo from a readable description, so that
// every byte a test feeds the library reader is explained by the test itself.
//
// The writer is deliberately independent of the framework's reader: it lays records out the way
// iTunes does (tags, header lengths, the string header's fixed fields, the column-settings object
// of every playlist, the two playlist data sets) and never asks the reader how to do it. All
// numbers in the descriptions are the raw values stored on disk: dates are seconds since
// 1904-01-01 local time for tracks, flags are bytes (so 2 can be written where 1 means true).

#include "ZQCore/foundation/Data.h"
#include "ZQCore/foundation/Image.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zq::sample {

// ---- data objects (MHOD) ----------------------------------------------------------------------

/// A data object written exactly as described: the 16-byte header (tag "mhod", header length,
/// total length, type) and then `body` verbatim. The helpers build the body of a string object
/// (the 24-byte string header and UTF-16 little-endian text) with the length field forced when
/// a test needs a bogus one.
struct RawObject {
    std::uint32_t type = 0;
    std::vector<std::uint8_t> body{};            ///< bytes after the 16-byte header
    std::uint32_t headerLength = 0x18;
    std::optional<std::uint32_t> totalLength{};  ///< default: 16 + body size

    /// A string object of `type` holding `utf8` as UTF-16LE; `lengthField` replaces the true
    /// byte length at offset 28 (the text written stays the whole string).
    static RawObject string(std::uint32_t type, const std::string& utf8,
                            std::optional<std::uint32_t> lengthField = std::nullopt);
    /// A string object whose text is `textBytes` as given (an odd count, bytes that are not
    /// UTF-16...); the length field is their count unless `lengthField` says otherwise.
    static RawObject stringBytes(std::uint32_t type, std::vector<std::uint8_t> textBytes,
                                 std::optional<std::uint32_t> lengthField = std::nullopt);
};

// ---- tracks (MHIT) ------------------------------------------------------------------------------

/// One track record; the numbers in the comments are header offsets. The strings are written as
/// string objects of their type (title 1, location 2, album 3, artist 4, genre 5, fileType 6,
/// EQSetting 7, comment 8, podcastCategory 9, composer 12, grouping 13, description 14,
/// albumArtist 22) when they have a value, "" included, then `extraObjects` in order. Besides
/// these fields the header carries what iTunes always writes: visible 1 at 20, the file kind
/// code at 24 and type bytes at 28-29 (from the location's extension), the play count again at
/// 84, the sample rate as a float at 136, the artwork flag at 164 and the database ID again
/// at 168.
struct TrackSpec {
    std::uint32_t trackID = 0;          // 16
    std::uint8_t compilation = 0;       // 30
    std::uint8_t rating = 0;            // 31
    std::uint32_t lastModified = 0;     // 32
    std::uint32_t fileSize = 0;         // 36
    std::uint32_t trackLength = 0;      // 40
    std::uint32_t trackNumber = 0;      // 44
    std::uint32_t trackTotal = 0;       // 48
    std::uint32_t year = 0;             // 52
    std::uint32_t bitrate = 0;          // 56
    std::uint16_t sampleRate = 0;       // 62 (integer half of the 16.16 number at 60)
    std::uint32_t volume = 0;           // 64
    std::uint32_t startTime = 0;        // 68
    std::uint32_t endTime = 0;          // 72
    std::uint32_t soundcheckValue = 0;  // 76
    std::uint32_t playCount = 0;        // 80 (and the second play count at 84)
    std::uint32_t lastPlayedTime = 0;   // 88
    std::uint32_t discNumber = 0;       // 92
    std::uint32_t discTotal = 0;        // 96
    std::uint32_t dateAdded = 0;        // 104
    std::uint64_t dbid = 0;             // 112
    std::uint8_t checked = 0;           // 120
    std::uint16_t BPM = 0;              // 122
    std::uint16_t artworkCount = 0;     // 124
    std::uint32_t dateReleased = 0;     // 140
    std::uint32_t skipCount = 0;        // 156
    std::uint32_t lastSkippedTime = 0;  // 160
    std::uint8_t hasLyrics = 0;         // 176
    std::uint8_t isMovie = 0;           // 177
    std::uint8_t hasBeenPlayed = 0;     // 178
    std::uint32_t mediaType = 0;        // 208
    std::uint32_t seasonNumber = 0;     // 212
    std::uint32_t episodeNumber = 0;    // 216
    std::uint16_t albumID = 0;          // 314
    std::uint32_t artworkLink = 0;      // 352

    std::optional<std::string> title{};
    std::optional<std::string> location{};  ///< colon form, ":iPod_Control:Music:F00:ABCD.mp3"
    std::optional<std::string> album{};
    std::optional<std::string> artist{};
    std::optional<std::string> genre{};
    std::optional<std::string> fileType{};
    std::optional<std::string> EQSetting{};
    std::optional<std::string> comment{};
    std::optional<std::string> podcastCategory{};
    std::optional<std::string> composer{};
    std::optional<std::string> grouping{};
    std::optional<std::string> description{};
    std::optional<std::string> albumArtist{};
    std::vector<RawObject> extraObjects{};

    /// Header length stored at 4. A length under 356 cuts the header there: the fields beyond it
    /// are not written and the data objects start at that offset (as in early databases).
    std::uint32_t headerLength = 0x270;
    std::optional<std::uint32_t> objectCount{};  ///< stored at 12 instead of the real count
    std::optional<std::uint32_t> totalLength{};  ///< stored at 8 instead of the real length
};

// ---- smart playlists ----------------------------------------------------------------------------

/// One rule of the rule blob. With `text` the rule has the string layout (action, 44 unused
/// bytes, text length, UTF-16BE text); without, the numeric layout (120 bytes after the field).
/// The reader picks the layout by field number, so a test can also write a mismatched one.
struct SmartRuleSpec {
    std::uint32_t field = 0;
    std::uint32_t action = 0;
    std::optional<std::string> text{};
    std::optional<std::uint32_t> textLength{};  ///< forced length field of a string rule
    std::uint64_t fromValue = 0;
    std::int64_t fromDate = 0;
    std::uint64_t fromUnits = 0;
    std::uint64_t toValue = 0;
    std::int64_t toDate = 0;
    std::uint64_t toUnits = 0;
};

/// The rule blob: "SLst" header of 136 bytes (big-endian) and the rules.
struct SmartRulesSpec {
    std::uint32_t conjunction = 0;  ///< the word at 12: 0 = all rules match, 1 = any rule
    std::vector<SmartRuleSpec> rules{};
    std::optional<std::uint32_t> ruleCount{};  ///< stored at 8 instead of the real count
};

/// The preferences object (type 50). Booleans are raw bytes; everything is 0 unless given.
struct SmartPrefsSpec {
    std::uint8_t liveUpdating = 0;
    std::uint8_t enableRules = 0;
    std::uint8_t enableLimits = 0;
    std::uint8_t limitType = 0;
    std::uint8_t limitSort = 0;
    std::uint32_t limitValue = 0;
    std::uint8_t matchChecked = 0;
    std::uint8_t reverseLimitSort = 0;
};

/// The rule blob as stored from offset 24 of a type-51 data object (and in the SQLite
/// databases): what the rule-blob parser reads.
zq::Data buildSmartRuleBlob(const SmartRulesSpec& setup);

// ---- playlists (MHYP, MHIP) ---------------------------------------------------------------------

/// One playlist item: a track ID (a plain number converts), or a podcast group header naming a
/// show. Group headers are written only to the podcast-grouped data set (type 3).
struct PlaylistItem {
    PlaylistItem(std::uint32_t id = 0) : trackID(id) {}  // NOLINT: a number is an item
    /// A group header item: track ID 0 and a title object naming the show; without a name, the
    /// item carries a type-100 object instead, so that nothing there reads as a title.
    static PlaylistItem group(std::optional<std::string> name);

    std::uint32_t trackID = 0;
    bool isGroupHeader = false;
    std::optional<std::string> groupName{};
    /// Replaces the item's own data object (a group header's title, or the type-100 position
    /// object); an empty list writes an item with no object at all.
    std::optional<std::vector<RawObject>> objects{};
};

/// The data objects of a playlist, in the order they are to be written. Each is written only
/// when the playlist has it (a name, prefs, rules, extra objects); `Columns` is the type-100
/// column-settings object every playlist iTunes writes carries.
enum class PlaylistObject { Title, Columns, Prefs, Rules, Extras };

/// One playlist record; the numbers in the comments are header offsets. Everything is written
/// to both playlist data sets, except group header items (type 3 only).
struct PlaylistSpec {
    std::optional<std::string> name{};           // type 1 object
    std::uint8_t master = 0;                     // 20
    std::uint16_t podcast = 0;                   // 42
    std::uint32_t creationTimestamp = 0;         // 24
    std::uint64_t playlistID = 0;                // 28
    std::uint32_t sortOrder = 0;                 // 44
    std::vector<PlaylistItem> items{};
    std::optional<SmartPrefsSpec> smartPrefs{};  // type 50 object
    std::optional<SmartRulesSpec> smartRules{};  // type 51 object
    std::vector<PlaylistObject> objectOrder = {PlaylistObject::Title, PlaylistObject::Columns,
                                               PlaylistObject::Prefs, PlaylistObject::Rules,
                                               PlaylistObject::Extras};
    std::vector<RawObject> extraObjects{};
    bool columnsObject = true;                   // write the type-100 object at all
    std::uint32_t headerLength = 0xB8;
    std::optional<std::uint32_t> objectCount{};  ///< stored at 12 instead of the real count
    std::optional<std::uint32_t> itemCount{};    ///< stored at 16 instead of the real count

    // What only the SQLite library can say (the binary database has no folders and no
    // purchased list); the iTunesDB writer ignores these.
    std::uint64_t parentID = 0;                  ///< container.parent_pid: the folder holding it
    bool folder = false;                         ///< container.smart_is_folder = 1
    std::uint32_t distinguishedKind = 0;         ///< container.distinguished_kind (19 purchased)
};

// ---- the database (MHBD, MHSD) ------------------------------------------------------------------

/// One data set to write. Type 1 holds the track list, types 2 and 3 the playlist list (2 plain,
/// 3 with podcast group headers), 4 an empty album list, 5 an empty smart-playlist list; any
/// other type only its header. Contents default to the database's tracks and playlists.
struct DataSet {
    DataSet(std::uint32_t setType) : type(setType) {}  // NOLINT: a number names the data set's type

    static DataSet withTotalLength(std::uint32_t type, std::uint32_t totalLength);
    static DataSet withTracks(std::vector<TrackSpec> tracks);
    static DataSet withPlaylists(std::uint32_t type, std::vector<PlaylistSpec> playlists);

    std::uint32_t type;
    std::optional<std::uint32_t> totalLength{};  ///< stored at 8 instead of the real length
    std::optional<std::vector<TrackSpec>> tracks{};
    std::optional<std::vector<PlaylistSpec>> playlists{};
};

struct DatabaseSpec {
    std::vector<TrackSpec> tracks{};
    std::vector<PlaylistSpec> playlists{};
    std::vector<DataSet> dataSets = {1, 2, 3};
    std::optional<std::uint32_t> dataSetCount{};  ///< stored at 20 instead of the real count
    std::uint32_t headerLength = 0xF4;
    std::uint32_t version = 0x73;
    std::uint64_t databaseID = 0x85BE1F40803C61E0ULL;
};

/// The iTunesDB file for `setup`.
zq::Data buildITunesDB(const DatabaseSpec& setup);

/// The compressed form of the database `plain` (an iTunesDB image), as a device keeps it in
/// iTunesCDB: the header stays uncompressed, with 2 at 0x0C (1 in an iTunesDB), the compression
/// flag 1 at 0xA8 (when the header reaches that far) and the total length at 8 made the length
/// of the file as stored; after the header, everything else as one zlib stream of `level`.
/// An image shorter than its header length is compressed as if its header were the whole image.
zq::Data compressITunesDB(const zq::Data& plain, int level = 6);

/// The iTunesCDB file for `setup`: buildITunesDB compressed.
zq::Data buildITunesCDB(const DatabaseSpec& setup);

// ---- artwork (ArtworkDB and thumbnail files) ---------------------------------------------------

/// A picture as a function of the pixel (column x, row y of the stored size): the colour to
/// store there, 8 bits per channel. The writer reduces it to the thumbnail's 16-bit layout by
/// dropping low bits.
using Picture = std::function<zq::Image::Pixel(std::uint32_t x, std::uint32_t y)>;

/// The 16-bit pixel layouts of thumbnail files: 5-6-5 (disk-mode devices, no alpha) and 1-5-5-5
/// (devices reached over AFC, alpha in bit 15). Both little-endian.
enum class ThumbnailLayout { RGB565, ARGB1555 };

/// One stored size of an image: an "mhni" record (in a type-2 child of its image item, with its
/// file-name record) and its pixels in a thumbnail file. The numbers in the comments are
/// offsets in the mhni record.
///
/// The pixels are written at the stored size: by default the visible size plus the padding,
/// with an odd side made even except when that width is 37, 41 or 55 (the way devices store
/// them); `storedWidth`/`storedHeight` write another size instead. They go to the end of the
/// thumbnail file named by `fileName` (less its leading colon) unless `fileOffset` places them.
struct ThumbnailSpec {
    std::uint32_t formatID = 1028;                ///< 16; also names the default file
    std::uint16_t width = 100;                    ///< 34, visible
    std::uint16_t height = 100;                   ///< 32, visible
    std::int16_t horizontalPadding = 0;           ///< 30
    std::int16_t verticalPadding = 0;             ///< 28
    ThumbnailLayout layout = ThumbnailLayout::RGB565;
    Picture picture{};                            ///< default: testPicture()
    std::vector<std::uint16_t> words{};           ///< when given, exactly these pixel words
    std::optional<std::uint32_t> storedWidth{};
    std::optional<std::uint32_t> storedHeight{};
    std::optional<std::string> fileName{};        ///< as stored; default ":F<formatID>_1.ithmb"
    /// The name record's text bytes as given (UTF-16LE expected), instead of `fileName`'s;
    /// `nameLengthField` replaces their count in the string header.
    std::optional<std::vector<std::uint8_t>> rawName{};
    std::optional<std::uint32_t> nameLengthField{};
    std::optional<std::uint32_t> fileOffset{};    ///< 20; default: where the pixels are appended
    std::optional<std::uint32_t> dataLength{};    ///< 24; default: the bytes written
    bool writePixels = true;                      ///< false: the record only, no pixels
    std::uint32_t headerLength = 0x4C;
};

/// A child record of an image item that is not a stored size: a 16-byte header of `type` and
/// `body` (total length 16 + body size, header length 16 unless given).
struct RawArtworkChild {
    std::uint16_t type = 0;
    std::vector<std::uint8_t> body{};
    std::uint32_t headerLength = 16;
    std::optional<std::uint32_t> totalLength{};
};

/// One image item ("mhii"): its stored sizes, then `extraChildren`.
struct ArtworkImageSpec {
    std::uint32_t imageID = 0;                    ///< 16; tracks link to it (artworkLink)
    std::uint64_t songID = 0;                     ///< 20; a track's dbid
    std::vector<ThumbnailSpec> thumbnails{};
    std::vector<RawArtworkChild> extraChildren{};
    std::optional<std::uint32_t> childCount{};    ///< stored at 12 instead of the real count
    std::optional<std::uint32_t> totalLength{};   ///< stored at 8 instead of the real length
    std::uint32_t headerLength = 0x98;
};

/// One data set of the artwork database. Type 1 holds an image list (the database's `images`
/// unless given), 2 an empty album list, 3 the list of thumbnail files; any other type only its
/// header.
struct ArtworkDataSet {
    ArtworkDataSet(std::uint32_t setType) : type(setType) {}  // NOLINT: a number names the type
    static ArtworkDataSet withImages(std::vector<ArtworkImageSpec> images);

    std::uint32_t type;
    std::optional<std::vector<ArtworkImageSpec>> images{};
    std::optional<std::uint32_t> totalLength{};   ///< stored at 8 instead of the real length
};

struct ArtworkDBSpec {
    std::vector<ArtworkImageSpec> images{};
    std::vector<ArtworkDataSet> dataSets = {1, 2, 3};
    std::optional<std::uint32_t> dataSetCount{};  ///< stored at 20 instead of the real count
    std::uint32_t headerLength = 0x84;
};

/// What the artwork of a device consists of: the ArtworkDB file and the thumbnail files, by
/// their name in the Artwork folder.
struct ArtworkFiles {
    zq::Data artworkDB;
    std::map<std::string, zq::Data> thumbnails;
};

/// The ArtworkDB and thumbnail files for `setup`.
ArtworkFiles buildArtwork(const ArtworkDBSpec& setup);

/// The size a thumbnail's pixels are written at when the description gives none.
std::pair<std::uint32_t, std::uint32_t> defaultStoredSize(const ThumbnailSpec& thumbnail);

/// A test card that shows at a glance whether a picture came out right: four quadrants (red,
/// green, blue, white) around a black cross, on any size.
zq::Image::Pixel testPicture(std::uint32_t x, std::uint32_t y, std::uint32_t width, std::uint32_t height);

/// The 16-bit word a colour is stored as in `layout` (low bits dropped).
std::uint16_t thumbnailWord(zq::Image::Pixel pixel, ThumbnailLayout layout);

// ---- the SQLite library (iTunes Library.itlp) --------------------------------------------------

/// How the SQLite databases are made from a DatabaseSpec, and what a test changes afterwards.
///
/// The four files are written the way iTunes lays out a newer device's library: Library.itdb
/// (item, container, item_to_container, podcast_info, video_info, genre_map, avformat_info,
/// album, with the further columns iTunes keeps there), Extras.itdb (chapter, lyrics),
/// Locations.itdb (location, base_location) and Dynamic.itdb (item_stats). From the description:
///
/// - a track's pid is its dbid (its trackID when the dbid is 0); its location
///   ":iPod_Control:Music:F00:ABCD.mp3" becomes base_location "iPod_Control/Music/F00" and
///   location "ABCD.mp3"; the genre goes to genre_map; sample rate, bit rate and sound check to
///   avformat_info; a season number to video_info; albumID to album_pid and one album row per
///   non-zero albumID (season_number from the album's first track, artwork_item_pid from its
///   first track with an artwork link);
///   play count, skip count, rating and played/skipped dates to item_stats; checked 1 is
///   is_user_disabled 0; times are reals in milliseconds;
/// - track dates, stored in the description as 1904-based local seconds, become seconds after
///   2001-01-01 UTC (Date::from1904LocalSeconds in the writing process's time zone); a 0 stays
///   0;
/// - the master playlist is the hidden library container (is_hidden 1, distinguished_kind 0)
///   whose name names the device; a podcast playlist becomes a hidden container of kind 10 and
///   its episodes (in item order, group headers dropped) the rows of podcast_info; every other
///   playlist is a visible container with date_created = creationTimestamp / 1000, parent_pid,
///   smart_is_folder and distinguished_kind from the description, the smart_* columns from smartPrefs
///   (NULL without) and smart_criteria the rule blob of smartRules (empty blob without); items
///   become item_to_container rows with their position as physical_order.
struct SQLiteSpec {
    /// SQL run on each database after it is written: a test's NULLs, odd values and dropped
    /// tables. Run in order, inside the writer's transaction.
    std::vector<std::string> libraryStatements{};
    std::vector<std::string> extrasStatements{};
    std::vector<std::string> locationsStatements{};
    std::vector<std::string> dynamicsStatements{};
    /// Files not written at all ("Dynamic.itdb", ...).
    std::vector<std::string> omittedFiles{};
};

/// Writes the four databases for `db` into `folder` (created if needed; existing files are
/// replaced). The files are left in rollback-journal mode with no journal beside them.
void writeSQLiteLibrary(const std::string& folder, const DatabaseSpec& db, const SQLiteSpec& sqlite = {});

/// The folder of the SQLite databases on a volume: iPod_Control/iTunes/iTunes Library.itlp.
std::string sqliteLibraryFolder(const std::string& root);

// ---- volumes ------------------------------------------------------------------------------------

/// Which library databases a volume gets from its `database` description.
enum class LibraryFormat { Binary, SQLite, Both };

struct VolumeSpec {
    std::optional<DatabaseSpec> database{};        ///< iPod_Control/iTunes/iTunesDB
    std::optional<zq::Data> rawITunesDB{};         ///< written instead of `database` when set
    /// The binary library as a nano of the 5th to 7th generation keeps it: `database` compressed
    /// in iPod_Control/iTunes/iTunesCDB, and an empty iTunesDB beside it (unless `rawITunesDB`).
    bool compressedDatabase = false;
    std::optional<zq::Data> rawITunesCDB{};        ///< iPod_Control/iTunes/iTunesCDB, as given
    std::optional<std::string> sysInfo{};          ///< iPod_Control/Device/SysInfo
    std::optional<std::string> sysInfoExtended{};  ///< iPod_Control/Device/SysInfoExtended
    std::map<std::string, zq::Data> files{};       ///< path relative to the root -> contents
    /// iPod_Control/Artwork/ArtworkDB and the thumbnail files beside it.
    std::optional<ArtworkDBSpec> artwork{};
    /// Written as iPod_Control/Artwork/ArtworkDB instead of `artwork`'s database when set
    /// (`artwork`'s thumbnail files are still written).
    std::optional<zq::Data> rawArtworkDB{};
    /// Binary: iTunesDB only; SQLite: the four databases of iTunes Library.itlp only; Both: all
    /// of them from the same description (a device the way iTunes leaves a newer iPod).
    LibraryFormat format = LibraryFormat::Binary;
    SQLiteSpec sqlite{};
};

/// Lays `setup` out under `root` as on a device. Creates `root` and iPod_Control, and only the
/// folders below it that something is written into (so a test can leave Device out).
void writeVolume(const std::string& root, const VolumeSpec& setup);

/// A SysInfo text as the device writes it, with "pszSerialNumber: <serial>" among its lines.
std::string sysInfoText(const std::string& serial);

/// A SysInfoExtended XML property list with "SerialNumber", a few device keys ("FamilyID",
/// "FireWireGUID", "BuildID") and `extraStrings` as further string entries.
std::string sysInfoExtendedXML(const std::string& serial,
                               const std::vector<std::pair<std::string, std::string>>& extraStrings = {});

/// The volume-relative path of a colon-form location (":iPod_Control:Music:F00:A.mp3" gives
/// "iPod_Control/Music/F00/A.mp3").
std::string relativePathOfLocation(const std::string& location);

// ---- phones of iOS 5 and later (MediaLibrary.sqlitedb) ------------------------------------------

/// The layouts of MediaLibrary.sqlitedb the writer knows. Modern is the layout of today's
/// releases: an item table of ids and numbers with its companions item_extra, item_playback,
/// item_stats, item_store and item_video, name tables (album, album_artist, item_artist, genre,
/// composer), base_location, container with container_item and container_seed, and covers named
/// through best_artwork_token, artwork_token and artwork. IOS6 is the older layout: most values
/// on item itself, item_extra with a few texts, item_stats without has-been-played, no playback
/// table (no bit rate, sample rate, sound check, start/stop times, EQ, volume or BPM), no
/// grouping, the album artist named through the album, container_items, and covers in
/// artwork_info.
/// IOS8 is the database as a real iPhone of the iOS 8 era writes it: its full schema, members as
/// packed blobs in container_items behind a virtual item_to_container whose module only the
/// phone has, item.media_type in the phone's own numbering beside item_extra.media_kind, the
/// phone's fixed base locations (Purchases 300, Podcasts 400, CloudAssets 200), Purchased as
/// kind 20, the hidden podcast list as kind 11, the device's own list named in db_info, smart
/// columns 0 on plain lists; no covers.
enum class MediaLibraryGeneration { IOS6, Modern, IOS8 };

/// A phone's file system: the library as a DatabaseSpec (a track without a location is a cloud
/// item: no base location, no file; the master playlist names the device through the hidden
/// library container; a podcast playlist becomes the hidden podcast container; parentID, folder
/// and distinguishedKind as in the SQLite library), its files, and its covers.
///
/// How the description becomes the database: pid = dbid (trackID when 0); the location
/// ":iTunes_Control:Music:F00:A.wav" is base_location "iTunes_Control/Music/F00" and location
/// "A.wav" (every folder is a base location of its own); dates become seconds after 2001-01-01
/// UTC (Date::from1904LocalSeconds, 0 stays 0); checked 1 is is_user_disabled 0; play and skip
/// counts are the user counts; container_item positions are the item order. Everything about
/// the last `pendingPlaylists` playlists and the statistics of the last `pendingTracks` tracks is
/// written as committed frames of MediaLibrary.sqlitedb-wal that are not yet checkpointed into
/// the main file (the -wal and -shm stay beside it, as on a phone in use).
struct PhoneSpec {
    MediaLibraryGeneration generation = MediaLibraryGeneration::Modern;
    DatabaseSpec database{};
    std::map<std::string, zq::Data> files{};      ///< path relative to the root -> contents
    /// Covers by album ID: a picture, written as iTunes_Control/iTunes/Artwork/Originals/<xx>/<name>
    /// (JPEG, or PNG for the albums in `pngCovers`) and named for the album (Modern) or for each
    /// of its tracks (IOS6).
    std::map<std::uint64_t, std::pair<std::uint32_t, Picture>> covers{};  ///< album -> side, picture
    std::vector<std::uint64_t> pngCovers{};
    std::size_t pendingPlaylists = 1;
    std::size_t pendingTracks = 2;
    /// SQL run on the database after it is written, in the WAL part: a test's dropped columns,
    /// odd values or damage.
    std::vector<std::string> statements{};
};

/// Lays `setup` out under `root` as the phone's media folder (what AFC shows as "/").
void writePhone(const std::string& root, const PhoneSpec& setup);

/// The path of a cover file below the media folder for album `albumID` of `setup`.
std::string phoneCoverPath(const PhoneSpec& setup, std::uint64_t albumID);

/// The built-in sample as a phone of `generation` keeps it: the same songs, episodes, playlists
/// and smart playlist as makeSampleDevice, with songs in two music folders, one bought song in
/// Purchases and the episodes in Podcasts (four base locations), two songs that are only in the
/// cloud, a folder holding two playlists, the Purchased list, a playlist that holds a song twice
/// and a cloud song, covers for every album, and pending WAL frames.
PhoneSpec makeSamplePhone(MediaLibraryGeneration generation);

/// A phone of `trackCount` small tracks (a few kilobytes each, every file distinct) in albums of
/// twelve, with one playlist of every tenth track; for measuring copies and loads.
PhoneSpec makeLargePhone(std::size_t trackCount, MediaLibraryGeneration generation);

// ---- ready-made libraries -----------------------------------------------------------------------

/// The benchmark library: `trackCount` tracks in albums with every common string filled with
/// varied, partly non-ASCII text, a master playlist holding all tracks and `playlistCount`
/// playlists of a few hundred to a few thousand items. Deterministic for a given seed.
DatabaseSpec makeLargeLibrary(std::size_t trackCount, std::size_t playlistCount, unsigned seed);

/// The demo's sample device "Sample iPod": a dozen tracks, plain playlists, a podcast playlist
/// with two shows, a smart playlist, SysInfo with an iPod classic serial, a short real WAV file
/// (a little tune, a few seconds) for every track, and a cover for each album and show (two stored sizes,
/// 100 and 200 pixels square, in 5-6-5 thumbnail files), linked by artwork link, by dbid and
/// through the album.
VolumeSpec makeSampleDevice();

} // namespace zq::sample
