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

// ---- the device name ------------------------------------------------------------------------------

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

// ---- smart playlists ----------------------------------------------------------------------------

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

} // namespace
