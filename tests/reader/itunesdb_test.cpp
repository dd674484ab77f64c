// The walk of the binary library database, its data sets and track records, and the device
// name lookup, on databases written by the test image builder into device volumes.

#include "tests/support/TestLibrary.h"

#include <gtest/gtest.h>

namespace {

using namespace zq::test;

std::shared_ptr<zq::ZQCoreiPod> load(const TempDir& dir, const VolumeSpec& volume)
{
    return loadVolume(dir.path(), volume);
}

std::shared_ptr<zq::ZQCoreiPod> load(const TempDir& dir, const DatabaseSpec& database)
{
    return loadDatabase(dir.path(), database);
}

DatabaseSpec smallLibrary()
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 5, .title = "Five"}, TrackSpec{.trackID = 6, .title = "Six"}};
    db.playlists = {PlaylistSpec{.name = "My iPod", .master = 1, .items = {5, 6}}};
    return db;
}

void expectInvalidRead(const std::function<void()>& load) { expectThrown(load); }

// ---- data sets ----------------------------------------------------------------------------------

TEST(ReaderLibraryDatabase, DataSetCountAndOrderDecideWhatIsRead)
{
    struct Case {
        const char* what;
        std::vector<DataSet> sets;
        std::optional<std::uint32_t> count;
        std::vector<std::uint32_t> tracks;
        std::size_t playlists;
        std::vector<std::uint32_t> playlistTracks;
    };
    const Case cases[] = {
        // Only types 1 and 3 are read: a plain playlist set after the grouped one would replace it.
        {"every kind of set", {4, 1, 5, 99, 3, DataSet::withPlaylists(2, {{.name = "Plain"}})}, std::nullopt, {5, 6}, 1,
         {5, 6}},
        {"no data sets", {}, std::nullopt, {}, 0, {}},
        {"count 0 reads nothing past the header", {1, 3}, 0u, {}, 0, {}},
        {"negative count reads nothing", {1, 3}, 0xFFFFFFFFu, {}, 0, {}},
        {"only the plain playlist set", {1, 2}, std::nullopt, {5, 6}, 0, {}},
        {"playlists before tracks resolve nothing", {3, 1}, std::nullopt, {5, 6}, 1, {}},
        {"a later track set replaces", {1, DataSet::withTracks({TrackSpec{.trackID = 6}}), 3}, std::nullopt, {6}, 1, {6}},
        // A total length of 0 makes the next pass read the same set again; the count still ends it.
        {"zero total length", {DataSet::withTotalLength(1, 0), 3}, std::nullopt, {5, 6}, 0, {}},
    };
    for (const Case& c : cases) {
        TempDir dir;
        DatabaseSpec db = smallLibrary();
        db.dataSets = c.sets;
        db.dataSetCount = c.count;
        auto library = load(dir, db);
        EXPECT_EQ(idsOf(library->allTracks()), c.tracks) << c.what;
        ASSERT_EQ(library->allPlaylists().size(), c.playlists) << c.what;
        if (c.playlists) {
            EXPECT_EQ(library->allPlaylists()[0]->name(), "My iPod") << c.what;
            EXPECT_EQ(idsOf(library->allPlaylists()[0]->tracks()), c.playlistTracks) << c.what;
        }
    }
}

TEST(ReaderLibraryDatabase, HeaderLengthLocatesTheFirstDataSet)
{
    // Early databases have a 0x68-byte header, shorter than the 188-byte block that is read.
    for (std::uint32_t headerLength : {0x68u, 0xF4u, 0x400u}) {
        TempDir dir;
        DatabaseSpec db = smallLibrary();
        db.headerLength = headerLength;
        auto library = load(dir, db);
        EXPECT_EQ(idsOf(library->allTracks()), (Ids{5, 6})) << headerLength;
        EXPECT_EQ(library->name(), "My iPod") << headerLength;
    }
}

TEST(ReaderLibraryDatabase, TruncatedAndEndlessFilesFailWithInvalidRead)
{
    const zq::Data full = buildITunesDB(smallLibrary());
    for (std::size_t size : {std::size_t{100}, std::size_t{200}, full.size() / 2}) {
        TempDir dir;
        expectInvalidRead([&] { load(dir, VolumeSpec{.rawITunesDB = full.subdata(0, size)}); });
        EXPECT_EQ(zq::ZQCoreiPodRef::initWithPath(dir.path())->name(), "iPod") << size;
    }
    // A huge count over a set that points back at itself would walk for ever; the walk's read
    // allowance ends it.
    TempDir dir;
    DatabaseSpec endless = smallLibrary();
    endless.dataSets = {DataSet::withTotalLength(1, 0)};
    endless.dataSetCount = 0x7FFFFFFF;
    expectInvalidRead([&] { load(dir, endless); });
}

TEST(ReaderLibraryDatabase, DamagedBytesNeverLeadOutsideTheBuffer)
{
    // Every prefix and every single damaged byte of a library with all kinds of records: the
    // walk either loads something or fails with the framework's own exception.
    DatabaseSpec db = smallLibrary();
    db.tracks[0].location = ":iPod_Control:Music:F00:A.mp3";
    db.playlists.push_back(PlaylistSpec{.name = "Casts", .podcast = 1, .items = {PlaylistItem::group("Show"), 5}});
    db.playlists.push_back(PlaylistSpec{.name = "Smart", .smartPrefs = SmartPrefsSpec{.limitValue = 3},
                                        .smartRules = SmartRulesSpec{.rules = {{.field = 2, .text = "x"}, {.field = 5}}}});
    db.dataSets = {1, 3};
    const zq::Data full = buildITunesDB(db);
    TempDir dir;
    auto library = load(dir, VolumeSpec{});
    auto survive = [&](const zq::Data& bytes) {
        try {
            library->parseiTunesDBWithData(bytes);
        } catch (const zq::Exception& e) {
            ASSERT_EQ(e.name(), "XRDataReaderInvalidRead");
        }
    };
    for (std::size_t size = 0; size < full.size(); size += 3)
        survive(full.subdata(0, size));
    std::vector<std::uint8_t> bytes(full.bytes(), full.bytes() + full.size());
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        for (std::uint8_t damage : {std::uint8_t{0xFF}, std::uint8_t{0x80}}) {
            const std::uint8_t kept = bytes[at];
            bytes[at] = damage;
            survive(zq::Data(bytes));
            bytes[at] = kept;
        }
    }
}

// ---- track records ------------------------------------------------------------------------------

std::shared_ptr<zq::iPodTrack> onlyTrack(const TempDir& dir, const TrackSpec& spec)
{
    auto library = load(dir, DatabaseSpec{.tracks = {spec}});
    EXPECT_EQ(library->allTracks().size(), 1u);
    return library->allTracks().at(0);
}

TEST(ReaderTrackRecords, RecordWithoutDataObjects)
{
    TempDir dir;
    auto track = onlyTrack(dir, TrackSpec{.trackID = 9, .compilation = 2, .year = 1969});
    EXPECT_EQ(track->trackID(), 9u);
    EXPECT_EQ(track->year(), 1969u);
    EXPECT_FALSE(track->compilation()); // flags count only for the exact value 1
    EXPECT_EQ(track->lastPlayedTime(), zq::Date::from1904LocalSeconds(0)); // a stored 0 is a date
    for (const auto& text : {track->title(), track->filePath(), track->artist(), track->album(), track->genre(),
                             track->fileType(), track->EQSetting(), track->comment(), track->podcastCategory(),
                             track->composer(), track->grouping(), track->trackDescription(), track->albumArtist()})
        EXPECT_EQ(text, std::nullopt);
}

TEST(ReaderTrackRecords, DataObjectsAndTheirLengthFields)
{
    TempDir dir;
    auto track = onlyTrack(dir, TrackSpec{.extraObjects = {
        // Types that reach no field, whatever they hold, are walked past by their total length.
        RawObject::string(15, "x", 0x7FFFFFF0), RawObject{.type = 16, .body = {1, 2, 3}}, RawObject{.type = 17},
        RawObject::string(200, "unknown"), RawObject::string(18, "subtitle"),
        RawObject::string(1, "lost", 0x7FFFFFF0),  // past the end: empty text
        RawObject::string(13, "lost", 0xFFFFFFFF), // negative: empty text
        RawObject::stringBytes(5, {'G', 0, 'x'}),  // odd byte count: no text, the field stays absent
        RawObject::string(8, "AB", 8),             // runs on into the next object's tag
        RawObject::string(4, "Artist"),            // found by the previous object's total length
        RawObject::string(3, "First"), RawObject::string(3, "Second"), // the later one wins
    }});
    EXPECT_EQ(track->title(), "");
    EXPECT_EQ(track->grouping(), "");
    EXPECT_EQ(track->genre(), std::nullopt);
    EXPECT_EQ(track->comment(), "AB\xE6\xA1\xAD\xE6\x91\xAF"); // "mhod" read as U+686D U+646F
    EXPECT_EQ(track->artist(), "Artist");
    EXPECT_EQ(track->album(), "Second");
}

TEST(ReaderTrackRecords, ShortHeadersOfEarlyDatabasesAndBogusObjectCounts)
{
    DatabaseSpec db;
    db.tracks = {TrackSpec{.trackID = 1, .year = 1999, .dateReleased = 60, .title = "Early", .artist = "A",
                           .headerLength = 0x9C},
                 TrackSpec{.trackID = 2, .title = "Counted", .artist = "Not counted", .objectCount = 1},
                 TrackSpec{.trackID = 3, .title = "Last"}};
    TempDir dir;
    auto library = load(dir, db);
    const auto& tracks = library->allTracks();
    ASSERT_EQ(tracks.size(), 3u);
    EXPECT_EQ(std::tuple(tracks[0]->title(), tracks[0]->artist(), tracks[0]->year()), std::tuple("Early", "A", 1999u));
    EXPECT_EQ(tracks[0]->dateReleased(), zq::Date::from1904LocalSeconds(60));
    // The 356-byte block is read whatever the header says: the field at 160 is the first data
    // object's header length.
    EXPECT_EQ(tracks[0]->lastSkippedTime(), zq::Date::from1904LocalSeconds(0x18));
    EXPECT_EQ(std::pair(tracks[1]->title(), tracks[1]->artist()), std::pair(std::optional<std::string>("Counted"), std::optional<std::string>()));
    EXPECT_EQ(tracks[2]->title(), "Last");

    // A short last record with fewer than 356 bytes left in the file cannot be read.
    DatabaseSpec tail;
    tail.tracks = {TrackSpec{.trackID = 1, .headerLength = 0x9C}};
    tail.dataSets = {1};
    TempDir other;
    expectInvalidRead([&] { load(other, tail); });
}

// ---- the device name ------------------------------------------------------------------------------

TEST(ReaderDeviceName, LastMasterTitleOfTheLastGroupedSet)
{
    auto named = [](std::vector<PlaylistSpec> playlists, std::vector<DataSet> sets = {1, 2, 3}) {
        DatabaseSpec db;
        db.playlists = std::move(playlists);
        db.dataSets = std::move(sets);
        return zq::ZQCoreiPodRef::getNameFromiTunesDBWithData(buildITunesDB(db));
    };
    EXPECT_EQ(named({{.name = "A", .master = 1}, {.name = "Music"}, {.name = "B", .master = 1}}), "B");
    EXPECT_EQ(named({{.name = "Later", .master = 1}}, {DataSet::withPlaylists(3, {{.name = "Earlier", .master = 1}}), 3}),
              "Later");
    EXPECT_EQ(named({{.master = 1, .extraObjects = {RawObject::stringBytes(1, {'x', 0, 'y'})}}}), "Unknown");
    EXPECT_EQ(named({{.master = 1, .extraObjects = {RawObject::string(1, "iPod", 0x7FFFFFF0)}}}), "");
    EXPECT_EQ(zq::ZQCoreiPodRef::getNameFromiTunesDBWithData(zq::Data()), "iPod");
    EXPECT_EQ(zq::ZQCoreiPodRef::getNameFromiTunesDBWithData(zq::Data(std::string_view("not a database"))), "iPod");
}

} // namespace
