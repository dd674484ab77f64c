// The walk of the binary library database: data sets, track records, the device name, playlist
// records (kinds, titles, podcast grouping, track resolution) and smart-playlist rule lists, on
// databases written by the test image builder into device volumes.

#include "ZQCore/model/Podcasts.h"
#include "ZQCore/model/SmartPlaylist.h"
#include "ZQCore/reader/XRDataReader.h"
#include "tests/support/TestLibrary.h"

#include <gtest/gtest.h>

#include <algorithm>

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
        expectThrown([&] { load(dir, VolumeSpec{.rawITunesDB = full.subdata(0, size)}); });
        EXPECT_EQ(zq::ZQCoreiPodRef::initWithPath(dir.path())->name(), "iPod") << size;
    }
    // A huge count over a set that points back at itself would walk for ever; the walk's read
    // allowance ends it.
    TempDir dir;
    DatabaseSpec endless = smallLibrary();
    endless.dataSets = {DataSet::withTotalLength(1, 0)};
    endless.dataSetCount = 0x7FFFFFFF;
    expectThrown([&] { load(dir, endless); });
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
    expectThrown([&] { load(other, tail); });
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

DatabaseSpec withTracks(const Ids& ids, std::vector<PlaylistSpec> playlists)
{
    DatabaseSpec db;
    for (std::uint32_t id : ids)
        db.tracks.push_back(TrackSpec{.trackID = id, .title = "Track " + std::to_string(id)});
    db.playlists = std::move(playlists);
    return db;
}

std::uint32_t le32(const zq::Data& data, std::size_t at)
{
    const std::uint8_t* p = data.bytes() + at;
    return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

// Where the playlist list of the grouped (type 3) data set starts, found by the file's lengths.
std::uint32_t groupedPlaylistListOffset(const zq::Data& database)
{
    std::uint32_t at = le32(database, 4);
    for (std::uint32_t set = 0; set < le32(database, 20); ++set, at += le32(database, at + 8))
        if (le32(database, at + 12) == 3)
            return at + le32(database, at + 4);
    ADD_FAILURE() << "no grouped playlist set";
    return 0;
}

// A type-51 object as iTunes writes it: 8 bytes, then the rule blob.
RawObject rulesObject(const SmartRulesSpec& rules)
{
    const zq::Data blob = buildSmartRuleBlob(rules);
    RawObject object{.type = 51, .body = std::vector<std::uint8_t>(8 + blob.size(), 0)};
    std::copy(blob.span().begin(), blob.span().end(), object.body.begin() + 8);
    return object;
}

// ---- playlist records ---------------------------------------------------------------------------

TEST(ReaderPlaylistRecords, HeaderFieldsAndTitles)
{
    TempDir dir;
    auto library = load(dir, withTracks({1, 2}, {
        {.name = "My iPod", .master = 1, .creationTimestamp = 1999, .playlistID = 0x0123456789ABCDEF, .sortOrder = 5,
         .items = {1, 2}},
        {.master = 2, .creationTimestamp = 0xFFFFFFFF, .items = {2, 99, 1}}, // no title; 99 names no track
        {.name = ""},
        {.extraObjects = {RawObject::string(1, "lost", 0x7FFFFFF0)}},  // unreadable title: empty name
        {.extraObjects = {RawObject::stringBytes(1, {'x', 0, 'y'})}}, // title that is no text: no name
        {.name = "Early", .extraObjects = {RawObject::string(1, "Later")}},
    }));
    const auto& playlists = library->allPlaylists();
    ASSERT_EQ(playlists.size(), 6u);
    EXPECT_EQ(library->masterPlaylist(), playlists[0]);
    EXPECT_EQ(playlists[0]->creationDate(), zq::Date(1)); // milliseconds, whole seconds kept
    EXPECT_EQ(std::tuple(playlists[0]->playlistID(), playlists[0]->sortOrder(), idsOf(playlists[0]->tracks())),
              std::tuple(0x0123456789ABCDEFu, 5, Ids{1, 2}));
    EXPECT_FALSE(playlists[1]->isMaster());
    EXPECT_EQ(playlists[1]->creationDate(), zq::Date(4294967));
    EXPECT_EQ(idsOf(playlists[1]->tracks()), (Ids{2, 1}));
    std::vector<std::optional<std::string>> names;
    for (const auto& playlist : playlists)
        names.push_back(playlist->name());
    EXPECT_EQ(names, (std::vector<std::optional<std::string>>{"My iPod", std::nullopt, "", "", std::nullopt, "Later"}));
}

TEST(ReaderPlaylistRecords, PodcastFlagChoosesTheKindBeforeSmartData)
{
    auto kindOf = [](const std::shared_ptr<zq::Playlist>& playlist) -> std::string {
        if (std::dynamic_pointer_cast<zq::Podcasts>(playlist))
            return "Podcasts";
        return std::dynamic_pointer_cast<zq::SmartPlaylist>(playlist) ? "Smart" : "Plain";
    };
    TempDir dir;
    const SmartRulesSpec rules{.rules = {{.field = 5}}};
    auto library = load(dir, withTracks({}, {
        {.name = "Both", .master = 1, .podcast = 1},
        {.name = "Smart cast", .podcast = 1, .smartPrefs = SmartPrefsSpec{.limitValue = 9}, .smartRules = rules},
        {.name = "Flags two", .master = 2, .podcast = 2, .smartPrefs = SmartPrefsSpec{}},
        {.name = "Rules only", .smartRules = rules}, // rules without preferences make no smart playlist
    }));
    std::vector<std::string> kinds;
    for (const auto& playlist : library->allPlaylists())
        kinds.push_back(kindOf(playlist) + (playlist->isMaster() ? " master" : "") +
                        (playlist->isPodcasts() ? " podcasts" : ""));
    EXPECT_EQ(kinds, (std::vector<std::string>{"Podcasts master podcasts", "Podcasts podcasts", "Smart", "Plain"}));
    EXPECT_EQ(library->podcasts(), library->allPlaylists()[0]);
}

TEST(ReaderPlaylistRecords, PodcastEpisodesAreGroupedByTheShowHeaderBeforeThem)
{
    PlaylistItem textless = PlaylistItem::group(std::nullopt);
    textless.objects = std::vector<RawObject>{RawObject::stringBytes(1, {'x', 0, 'y'})};
    // The last bytes of the file: a show whose title object ends before its string header.
    PlaylistItem cut = PlaylistItem::group(std::nullopt);
    cut.objects = std::vector<RawObject>{RawObject{.type = 1, .body = {0, 0, 0, 0}}};
    DatabaseSpec db = withTracks({4, 5, 6, 7, 8}, {
        {.name = "iPod", .master = 1, .items = {4, 5, 6, 7, 8}},
        // In other playlists an item with track ID 0 is just an entry that names no track.
        {.name = "Plain", .items = {PlaylistItem::group("X"), 5}},
        // 4 comes before any show and belongs to none.
        {.name = "Podcasts", .podcast = 1,
         .items = {4, PlaylistItem::group("A"), 5, 6, PlaylistItem::group("B"), 7, PlaylistItem::group(std::nullopt), 8,
                   textless, cut}},
    });
    db.dataSets = {1, 3};
    TempDir dir;
    auto library = load(dir, db);
    EXPECT_EQ(idsOf(library->allPlaylists()[1]->tracks()), (Ids{5}));
    auto podcasts = library->podcasts();
    ASSERT_NE(podcasts, nullptr);
    std::vector<std::pair<std::optional<std::string>, Ids>> shows;
    for (const auto& show : podcasts->podcasts())
        shows.emplace_back(show->name(), idsOf(show->tracks()));
    // A show without a readable title object keeps its initial name; a title that is no text is none.
    const std::vector<std::pair<std::optional<std::string>, Ids>> expected = {
        {"A", {5, 6}}, {"B", {7}}, {"New Playlist", {8}}, {std::nullopt, {}}, {"New Playlist", {}}};
    EXPECT_EQ(shows, expected);
    EXPECT_EQ(idsOf(podcasts->tracks()), (Ids{5, 6, 7, 8}));
}

TEST(ReaderPlaylistRecords, TrackLookupIsAlwaysCheckedAgainstTheTracksOwnID)
{
    DatabaseSpec db;
    db.tracks = {{.trackID = 7, .title = "first"}, {.trackID = 9, .title = "nine"}, {.trackID = 7, .title = "third"}};
    db.playlists = {{.name = "iPod", .master = 1, .items = {7, 9, 11}}};
    const zq::Data bytes = buildITunesDB(db);
    TempDir dir;
    auto library = load(dir, VolumeSpec{.rawITunesDB = bytes});
    auto titles = [](const zq::Playlist::Tracks& tracks) {
        std::vector<std::string> out;
        for (const auto& track : tracks)
            out.push_back(track->title().value_or("?"));
        return out;
    };
    // The load's own cache: the last track with a duplicated ID wins; 11 names no track.
    EXPECT_EQ(titles(library->allPlaylists()[0]->tracks()), (std::vector<std::string>{"third", "nine"}));

    struct Case {
        const char* what;
        zq::ZQCoreiPod::TrackIndexCache cache;
        std::vector<std::string> titles;
    };
    const Case cases[] = {
        {"a missing entry means index 0, else the first track with the ID", {}, {"first", "nine"}},
        {"wrong and out-of-range entries fall back to the first track with the ID", {{7, 1}, {9, 50}}, {"first", "nine"}},
        {"a negative index is out of range", {{7, -1}, {9, 1}}, {"first", "nine"}},
        {"right entries are taken", {{7, 2}, {9, 1}}, {"third", "nine"}},
    };
    for (const Case& c : cases) {
        auto reader = zq::XRDataReader::dataReaderWithData(bytes, true);
        reader->setPosition(groupedPlaylistListOffset(bytes));
        auto playlists = library->parsePlaylistListWithReader(*reader, library->allTracks(), c.cache);
        ASSERT_EQ(playlists.size(), 1u) << c.what;
        EXPECT_EQ(titles(playlists[0]->tracks()), c.titles) << c.what;
    }
}

// ---- smart playlists ----------------------------------------------------------------------------

TEST(ReaderPlaylistRecords, SmartPlaylistFromPreferencesAndRules)
{
    const SmartRulesSpec rules{.conjunction = 1, .rules = {
        {.field = 2, .action = 0x01000002, .text = "Beatles"},
        {.field = 10, .action = 0x10, .fromValue = 0x2DAE, .fromDate = -7, .fromUnits = 86400, .toValue = 1,
         .toDate = -1, .toUnits = 604800},
        {.field = 5, .action = 0x100, .fromValue = 128, .toValue = 320},
        {.field = 1, .action = 1},
    }};
    TempDir dir;
    auto library = load(dir, withTracks({1, 2}, {
        {.name = "Smart", .items = {1},
         .smartPrefs = SmartPrefsSpec{.liveUpdating = 2, .enableRules = 1, .enableLimits = 1, .limitType = 3,
                                      .limitSort = 2, .limitValue = 25, .reverseLimitSort = 1},
         .smartRules = rules},
        // The rule list leaves the reader big-endian; the records after it must not mind.
        {.name = "After", .items = {2, 1}},
    }));
    ASSERT_EQ(library->allPlaylists().size(), 2u);
    auto smart = std::dynamic_pointer_cast<zq::SmartPlaylist>(library->allPlaylists()[0]);
    ASSERT_NE(smart, nullptr);
    EXPECT_EQ(std::tuple(smart->limit(), smart->limitType(), smart->limitSortType()), std::tuple(25, 3, 2));
    // Preference bytes count when not zero.
    EXPECT_TRUE(smart->liveUpdating() && smart->rulesEnabled() && smart->limitsEnabled() &&
                smart->limitSortReversed() && smart->isOr());
    EXPECT_FALSE(smart->onlyMatchCheckedTracks());
    EXPECT_EQ(idsOf(smart->tracks()), (Ids{1}));

    // The rules in blob order; how each field kind is kept is the rule model's business.
    const auto& r = smart->rules();
    ASSERT_EQ(r.size(), 4u);
    EXPECT_EQ(r[0]->ruleValue(), "Beatles");
    EXPECT_EQ(r[0]->action(), 0x01000002);
    EXPECT_EQ(r[1]->fromDate(), -7);
    EXPECT_EQ(r[1]->toUnit(), 604800u);
    EXPECT_EQ(r[2]->toValue(), 320u);
    EXPECT_EQ(r[3]->field(), 1);

    EXPECT_EQ(library->allPlaylists()[1]->name(), "After");
    EXPECT_EQ(idsOf(library->allPlaylists()[1]->tracks()), (Ids{2, 1}));
}

TEST(ReaderPlaylistRecords, RulesJoinOnlyPreferencesMetBeforeThem)
{
    using enum PlaylistObject;
    TempDir dir;
    auto library = load(dir, withTracks({}, {
        {.name = "Rules first", .smartPrefs = SmartPrefsSpec{.limitValue = 25},
         .smartRules = SmartRulesSpec{.conjunction = 1, .rules = {{.field = 5}}}, .objectOrder = {Title, Rules, Prefs}},
        {.name = "Two rule lists", .smartPrefs = SmartPrefsSpec{},
         .smartRules = SmartRulesSpec{.rules = {{.field = 3, .text = "old"}}},
         .extraObjects = {rulesObject({.conjunction = 1, .rules = {{.field = 4, .text = "new"}}})}},
    }));
    auto rulesFirst = std::dynamic_pointer_cast<zq::SmartPlaylist>(library->allPlaylists().at(0));
    ASSERT_NE(rulesFirst, nullptr);
    EXPECT_EQ(rulesFirst->limit(), 25);
    EXPECT_TRUE(rulesFirst->rules().empty());
    EXPECT_FALSE(rulesFirst->isOr());

    auto twoLists = std::dynamic_pointer_cast<zq::SmartPlaylist>(library->allPlaylists().at(1));
    ASSERT_NE(twoLists, nullptr);
    ASSERT_EQ(twoLists->rules().size(), 1u);
    EXPECT_EQ(twoLists->rules()[0]->ruleValue(), "new");
    EXPECT_TRUE(twoLists->isOr());
}

TEST(ReaderPlaylistRecords, RuleObjectsTooShortForTheirContentsFail)
{
    RawObject shortBlob{.type = 51, .body = std::vector<std::uint8_t>(8 + 100, 0)};
    for (const RawObject& object : {RawObject{.type = 51}, shortBlob}) {
        TempDir dir;
        expectThrown([&] {
            load(dir, withTracks({}, {{.name = "Broken", .smartPrefs = SmartPrefsSpec{}, .extraObjects = {object}}}));
        });
    }
}

// ---- the rule blob ------------------------------------------------------------------------------

zq::Value::Dictionary parseRules(const SmartRulesSpec& spec)
{
    return zq::ZQCoreiPod::parseSmartPlaylistRulesInData(buildSmartRuleBlob(spec));
}

std::vector<std::string> keysOf(const zq::Value& rule)
{
    std::vector<std::string> keys;
    for (const auto& entry : *rule.dictionary())
        keys.push_back(entry.first);
    return keys;
}

TEST(ReaderSmartRuleBlob, OnlyTheLowByteOfTheConjunctionCounts)
{
    for (auto [conjunction, anyRule] : {std::pair{0u, false}, std::pair{1u, true}, std::pair{0x100u, false},
                                        std::pair{0xFFu, true}, std::pair{0x80000001u, true}}) {
        auto result = parseRules({.conjunction = conjunction});
        ASSERT_EQ(result.size(), 2u);
        EXPECT_EQ(result.at("operatorOr"), zq::Value(anyRule)) << conjunction;
        EXPECT_EQ(result.at("rules"), zq::Value(zq::Value::Array{})) << conjunction;
    }
}

TEST(ReaderSmartRuleBlob, FieldNumberChoosesTheStringOrNumericLayout)
{
    const std::vector<std::uint32_t> stringFields = {2, 3, 4, 8, 9, 14, 18, 39, 54, 55, 62, 71};
    SmartRulesSpec spec;
    for (std::uint32_t field : stringFields) {
        spec.rules.push_back({.field = field, .action = field * 2, .text = "field " + std::to_string(field)});
        spec.rules.push_back({.field = field + 70, .action = 1, .fromValue = field}); // 72..141: all numeric
    }
    // Unknown fields and the largest values of every numeric operand.
    spec.rules.push_back({.field = 1, .action = 0x00020000, .fromValue = UINT64_MAX, .fromDate = INT64_MIN,
                          .fromUnits = 0x8000000000000000, .toValue = 0x7FFFFFFFFFFFFFFF, .toDate = -1, .toUnits = 7});
    auto result = parseRules(spec);
    const auto& rules = *result.at("rules").array();
    ASSERT_EQ(rules.size(), spec.rules.size());
    const std::vector<std::string> stringKeys = {"actionType", "fieldType", "ruleValue"};
    const std::vector<std::string> numericKeys = {"actionType", "fieldType", "fromDate", "fromUnits",
                                                  "fromValue",  "toDate",    "toUnits",  "toValue"};
    for (std::size_t i = 0; i < stringFields.size(); ++i) {
        const zq::Value& text = rules[2 * i];
        const zq::Value& number = rules[2 * i + 1];
        EXPECT_EQ(keysOf(text), stringKeys) << stringFields[i];
        EXPECT_EQ(*text.find("ruleValue")->string(), "field " + std::to_string(stringFields[i]));
        EXPECT_EQ(text.find("actionType")->integerValue(), stringFields[i] * 2);
        EXPECT_EQ(keysOf(number), numericKeys) << stringFields[i] + 70;
        EXPECT_EQ(number.find("fromValue")->unsignedValue(), stringFields[i]);
    }
    const zq::Value& last = rules.back();
    EXPECT_EQ(std::tuple(last.find("fieldType")->integerValue(), last.find("actionType")->integerValue(),
                         last.find("fromDate")->integerValue(), last.find("toDate")->integerValue()),
              std::tuple(1, 0x00020000, INT64_MIN, -1));
    EXPECT_EQ(std::tuple(last.find("fromValue")->unsignedValue(), last.find("fromUnits")->unsignedValue(),
                         last.find("toValue")->unsignedValue(), last.find("toUnits")->unsignedValue()),
              std::tuple(UINT64_MAX, 0x8000000000000000u, 0x7FFFFFFFFFFFFFFFu, 7u));
}

TEST(ReaderSmartRuleBlob, TextLengths)
{
    // Length 0: "" and the next rule starts right after the 52 bytes; a length past the end: "".
    auto result = parseRules({.rules = {{.field = 3, .text = ""}, {.field = 5, .fromValue = 42},
                                        {.field = 4, .text = "ab", .textLength = 1000}}});
    const auto& rules = *result.at("rules").array();
    ASSERT_EQ(rules.size(), 3u);
    EXPECT_EQ(*rules[0].find("ruleValue")->string(), "");
    EXPECT_EQ(rules[1].find("fromValue")->integerValue(), 42);
    EXPECT_EQ(*rules[2].find("ruleValue")->string(), "");
    // An odd length reads bytes that are no text: the rule has no value at all.
    auto odd = parseRules({.rules = {{.field = 4, .text = "ab", .textLength = 3}}});
    EXPECT_EQ(odd.at("rules").array()->at(0).find("ruleValue"), nullptr);
}

TEST(ReaderSmartRuleBlob, BlobsShorterThanTheirHeaderOrRulesFail)
{
    const zq::Data header = buildSmartRuleBlob({});
    const zq::Data stringRule = buildSmartRuleBlob({.rules = {{.field = 2, .text = "x"}}});
    for (const zq::Data& blob :
         {header.subdata(0, 135), zq::Data(), buildSmartRuleBlob({.rules = {{.field = 5}}, .ruleCount = 2}),
          buildSmartRuleBlob({.rules = {{.field = 5}}, .ruleCount = 0xFFFFFFFF}),
          stringRule.subdata(0, 136 + 4 + 51), buildSmartRuleBlob({.rules = {{.field = 5}}}).subdata(0, 136 + 123)})
        expectThrown([&] { zq::ZQCoreiPod::parseSmartPlaylistRulesInData(blob); });
}

} // namespace
