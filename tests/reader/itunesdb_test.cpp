// The walk of the binary library database where whole-library comparisons do not reach: files
// cut short, endless or damaged byte by byte, and the smart-playlist rule list's layout.

#include "ZQCore/reader/TrackListBuilder.h"
#include "ZQCore/reader/WalkLimits.h"
#include "ZQCore/reader/XRDataReader.h"
#include "tests/support/TestLibrary.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <iterator>

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

TEST(ReaderLibraryDatabase, TruncatedAndEndlessFilesFailWithInvalidRead)
{
    const zq::Data full = buildITunesDB(smallLibrary());
    for (std::size_t size : {std::size_t{100}, std::size_t{200}, full.size() / 2}) {
        TempDir dir;
        expectThrown([&] { load(dir, VolumeSpec{.rawITunesDB = full.subdata(0, size)}); });
        EXPECT_EQ(zq::ZQCoreiPodRef::initWithPath(dir.path())->name(), "iPod") << size;
    }
    // A huge count over a set that points back at itself would walk for ever; the walk's read
    // allowance ends it. (Opening a device refuses such a header before any walk.)
    TempDir dir;
    DatabaseSpec endless = smallLibrary();
    endless.dataSets = {DataSet::withTotalLength(1, 0)};
    endless.dataSetCount = 0x7FFFFFFF;
    expectThrown([&] { std::make_shared<DetachedLibrary>()->parseiTunesDBWithData(buildITunesDB(endless)); });
    expectThrown([&] { load(dir, endless); }, "ZQCoreiPodLibraryUnreadableException");

    // A track that claims two billion objects, the first of them zero bytes long, names the
    // same object again and again: the read allowance ends that too, at once.
    const zq::Data plain = buildITunesDB(smallLibrary());
    std::vector<std::uint8_t> looping(plain.bytes(), plain.bytes() + plain.size());
    const auto track = std::search(looping.begin(), looping.end(), std::begin("mhit"), std::end("mhit") - 1);
    ASSERT_NE(track, looping.end());
    const std::size_t mhit = static_cast<std::size_t>(track - looping.begin());
    const std::size_t firstObject = mhit + looping[mhit + 4] + 256u * looping[mhit + 5];  // after the header
    for (std::size_t i = 0; i < 4; ++i) {
        looping[mhit + 12 + i] = i == 3 ? 0x7F : 0xFF;  // object count
        looping[firstObject + 8 + i] = 0;               // the object's total length
    }
    const auto started = std::chrono::steady_clock::now();
    TempDir loop;
    expectThrown([&] { load(loop, VolumeSpec{.rawITunesDB = zq::Data(looping)}); });
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(3));

    // Cut inside the last string object, after its 16-byte header: the walk ends there with the
    // track read and its text as "" (a string read past the end is empty text, not no text).
    DatabaseSpec cutInTitle{.tracks = {TrackSpec{.trackID = 9, .title = "Lost"}}, .dataSets = {1}};
    const zq::Data whole = buildITunesDB(cutInTitle);
    TempDir cut;
    auto library = load(cut, VolumeSpec{.rawITunesDB = whole.subdata(0, whole.size() - 24 - 2 * 4)});
    ASSERT_EQ(library->allTracks().size(), 1u);
    EXPECT_EQ(library->allTracks()[0]->title(), "");
}

TEST(ReaderLibraryDatabase, DamagedBytesNeverLeadOutsideTheBuffer)
{
    // Every prefix and every single damaged byte of a library with all kinds of records: the
    // walk either loads something or fails with the framework's own exception. Plain track
    // records are read in one look at their bytes, and handed to the track maker text by text
    // or whole; whatever the damage, both give what the general walk gives.
    DatabaseSpec db = smallLibrary();
    db.tracks[0].location = ":iPod_Control:Music:F00:A.mp3";
    db.tracks[1].location = ":iPod_Control:Müsic:F01:B.mp3"; // decoded in two parts, colons in both
    db.tracks[1].title = "Sechs – Six";
    db.playlists.push_back(PlaylistSpec{.name = "Casts", .podcast = 1, .items = {PlaylistItem::group("Show"), 5}});
    db.playlists.push_back(PlaylistSpec{.name = "Smart", .smartPrefs = SmartPrefsSpec{.limitValue = 3},
                                        .smartRules = SmartRulesSpec{.rules = {{.field = 2, .text = "x"}, {.field = 5}}}});
    db.dataSets = {1, 3};
    const zq::Data full = buildITunesDB(db);
    auto outcome = [](const zq::Data& bytes) {
        auto library = std::make_shared<DetachedLibrary>();
        try {
            library->parseiTunesDBWithData(bytes);
        } catch (const zq::Exception& e) {
            EXPECT_EQ(e.name(), "XRDataReaderInvalidRead");
            return e.name();
        }
        return librarySummary(*library);
    };
    auto survive = [&](const zq::Data& bytes) {
        const std::string inPlace = outcome(bytes);
        zq::TrackListBuilder::handover = zq::TrackListBuilder::Handover::WholeRecords;
        const std::string whole = outcome(bytes);
        zq::TrackListBuilder::handover = zq::TrackListBuilder::Handover::Adaptive;
        zq::walkReadsPlainRecordsInPlace = false;
        const std::string general = outcome(bytes);
        zq::walkReadsPlainRecordsInPlace = true;
        ASSERT_EQ(inPlace, general);
        ASSERT_EQ(whole, general);
    };
    for (std::size_t size = 0; size < full.size(); size += 3)
        survive(full.subdata(0, size));
    std::vector<std::uint8_t> bytes(full.bytes(), full.bytes() + full.size());
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        for (std::uint8_t damage : {std::uint8_t{0xFF}, std::uint8_t{0x80}, std::uint8_t{0x01}}) {
            const std::uint8_t kept = bytes[at];
            bytes[at] = damage;
            survive(zq::Data(bytes));
            bytes[at] = kept;
        }
    }
}

// A location becomes a path under the volume, its colons slashes, whatever its length (short
// ones and the tail of long ones are decoded apart from the rest) and wherever text that is not
// ASCII starts, with records handed to the track maker text by text or whole.
TEST(ReaderTrackRecords, LocationsOfEveryLengthBecomePaths)
{
    const std::vector<std::string> locations = {":", ":a", ":F:x", ":iP:M:F", ":iPod_Control:Music:F0", ":iPod_Control:Music:F00:A.mp3",
                                                ":Mü:s", ":iPod_Control:Müsic:F01:B:mp3"};
    DatabaseSpec db;
    for (std::size_t i = 0; i < locations.size(); ++i)
        db.tracks.push_back(TrackSpec{.trackID = static_cast<std::uint32_t>(i + 1), .location = locations[i]});
    for (auto handover : {zq::TrackListBuilder::Handover::TextByText, zq::TrackListBuilder::Handover::WholeRecords}) {
        zq::TrackListBuilder::handover = handover;
        TempDir dir;
        auto library = load(dir, db);
        ASSERT_EQ(library->allTracks().size(), locations.size());
        for (std::size_t i = 0; i < locations.size(); ++i) {
            std::string expected = locations[i];
            std::replace(expected.begin(), expected.end(), ':', '/');
            EXPECT_EQ(library->allTracks()[i]->filePath(), dir.path() + expected) << locations[i];
        }
    }
    zq::TrackListBuilder::handover = zq::TrackListBuilder::Handover::Adaptive;
}

zq::Value::Dictionary parseRules(const SmartRulesSpec& setup)
{
    return zq::ZQCoreiPod::parseSmartPlaylistRulesInData(buildSmartRuleBlob(setup));
}

std::vector<std::string> keysOf(const zq::Value& rule)
{
    std::vector<std::string> keys;
    for (const auto& entry : *rule.dictionary())
        keys.push_back(entry.first);
    return keys;
}

// Playlist header fields (creation milliseconds, identifier, sort order), members that name no
// track, and titles: absent, empty, unreadable, not text, or given twice.
TEST(ReaderPlaylistRecords, HeaderFieldsAndTitles)
{
    TempDir dir;
    DatabaseSpec db{.tracks = {TrackSpec{.trackID = 1}, TrackSpec{.trackID = 2}}};
    db.playlists = {
        {.name = "My iPod", .master = 1, .creationTimestamp = 1999, .playlistID = 0x0123456789ABCDEF, .sortOrder = 5,
         .items = {1, 2}},
        {.master = 2, .creationTimestamp = 0xFFFFFFFF, .items = {2, 99, 1}}, // no title; 99 names no track
        {.name = ""},
        {.extraObjects = {RawObject::string(1, "lost", 0x7FFFFFF0)}},  // unreadable title: empty name
        {.extraObjects = {RawObject::stringBytes(1, {'x', 0, 'y'})}}, // title that is no text: no name
        {.name = "Early", .extraObjects = {RawObject::string(1, "Later")}},
    };
    auto library = load(dir, db);
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

// Two tracks of one ID (a damaged file): a playlist naming the ID gets the later of them,
// however the members are looked up.
TEST(ReaderPlaylistRecords, ARepeatedTrackIDNamesTheLaterTrack)
{
    TempDir dir;
    DatabaseSpec db{.tracks = {TrackSpec{.trackID = 7, .title = "Earlier"}, TrackSpec{.trackID = 8, .title = "Other"},
                               TrackSpec{.trackID = 7, .title = "Later"}}};
    db.playlists = {{.name = "My iPod", .master = 1, .items = {7, 8, 7}}};
    std::vector<std::string> titles;
    for (const auto& track : load(dir, db)->allPlaylists().at(0)->tracks())
        titles.push_back(track->title().value_or("-"));
    EXPECT_EQ(titles, (std::vector<std::string>{"Later", "Other", "Later"}));
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
    SmartRulesSpec setup;
    for (std::uint32_t field : stringFields) {
        setup.rules.push_back({.field = field, .action = field * 2, .text = "field " + std::to_string(field)});
        setup.rules.push_back({.field = field + 70, .action = 1, .fromValue = field}); // 72..141: all numeric
    }
    // Unknown fields and the largest values of every numeric operand.
    setup.rules.push_back({.field = 1, .action = 0x00020000, .fromValue = UINT64_MAX, .fromDate = INT64_MIN,
                          .fromUnits = 0x8000000000000000, .toValue = 0x7FFFFFFFFFFFFFFF, .toDate = -1, .toUnits = 7});
    auto result = parseRules(setup);
    const auto& rules = *result.at("rules").array();
    ASSERT_EQ(rules.size(), setup.rules.size());
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

} // namespace
