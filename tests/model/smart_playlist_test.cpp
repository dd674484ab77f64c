// Smart playlists and their rules in words: limit units, sort phrases, field names, action
// phrases and the printable forms, word for word.

#include "ZQCore/model/SmartPlaylist.h"
#include "ZQCore/model/SmartPlaylistRule.h"
#include "ZQCore/model/iPodTrack.h"

#include <gtest/gtest.h>

#include <array>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace zq {
namespace {

std::shared_ptr<SmartPlaylist> smart(const std::string& name, const Value::Dictionary& options, std::uint8_t master = 0)
{
    std::array<std::uint8_t, 48> header{};
    header[20] = master;
    header[28] = 7;  // playlist ID 7
    return SmartPlaylist::initWithMHYP(header, name, options);
}

Value::Dictionary limitOptions(std::int64_t limitType, std::int64_t sortType, bool reversed, std::int64_t limit = 25)
{
    return {{"enableLimits", true},
            {"limitType", limitType},
            {"limitSort", sortType},
            {"reverseLimitSort", reversed},
            {"limitValue", limit}};
}

std::shared_ptr<SmartPlaylistRule> rule(std::int64_t field, std::int64_t action, Value::Dictionary more = {})
{
    more["fieldType"] = field;
    more["actionType"] = action;
    return SmartPlaylistRule::initWithOptions(more);
}

std::shared_ptr<SmartPlaylistRule> numericRule(std::int64_t field, std::int64_t action, std::uint64_t from, std::uint64_t to)
{
    return rule(field, action, {{"fromValue", from}, {"toValue", to}});
}

// ---- the playlist ---------------------------------------------------------------------------

TEST(ModelSmartPlaylist, LimitUnitWords)
{
    const std::vector<std::pair<int, const char*>> table = {
        {1, "minutes"}, {2, "megabytes"}, {3, "songs"}, {4, "hours"}, {5, "gigabytes"}, {0, ""}, {6, ""}, {-1, ""}};
    for (const auto& [type, word] : table)
        EXPECT_EQ(smart("S", limitOptions(type, 2, false))->limitString(), word) << type;
}

TEST(ModelSmartPlaylist, SortPhrasesNameTheLeastEndOnlyWhenReversed)
{
    const std::vector<std::tuple<int, const char*, const char*>> table = {
        {2, "random", "random"}, {3, "name", "name"}, {4, "album", "album"}, {5, "artist", "artist"},
        {7, "genre", "genre"}, {16, "most recently added", "least recently added"},
        {20, "most often played", "least often played"}, {21, "most recently played", "least recently played"},
        {23, "highest rating", "lowest rating"}, {-3, "", ""}, {0, "", ""}, {1, "", ""}, {6, "", ""},
        {8, "", ""}, {17, "", ""}, {22, "", ""}, {24, "", ""}};
    for (const auto& [sortType, unreversed, reversed] : table) {
        EXPECT_EQ(smart("S", limitOptions(3, sortType, false))->sortString(), unreversed) << sortType;
        EXPECT_EQ(smart("S", limitOptions(3, sortType, true))->sortString(), reversed) << sortType;
    }
}

TEST(ModelSmartPlaylist, DescriptionsWordForWord)
{
    Value::Array rules{
        Value::Dictionary{{"fieldType", 4}, {"actionType", 0x01000002}, {"ruleValue", "Pines"}},
        Value::Dictionary{{"fieldType", 7}, {"actionType", 0x100}, {"fromValue", 2010}, {"toValue", 2016}},
    };
    auto full = smart("Favourites",
                      {{"enableRules", true}, {"operatorOr", true}, {"enableLimits", true}, {"limitType", 3},
                       {"limitSort", 20}, {"limitValue", 25}, {"matchChecked", true}, {"liveUpdating", true},
                       {"rules", rules}},
                      1);
    full->addTrack(iPodTrack::initWithParent(nullptr));
    const std::vector<std::pair<std::shared_ptr<SmartPlaylist>, std::string>> cases = {
        {full, "Smart Master playlist name: Favourites, ID: 7, 1 tracks. \n"
               "Match any of these rules: (\n"
               "    Artist contains Pines,\n"
               "    Year is in the range 2010 and 2016\n"
               ") \n"
               "Limit to 25 songs, sorted by most often played. \n"
               "Match only checked items.\n"
               "Live updating.\n"},
        // With nothing enabled only the first line is printed.
        {smart("Quiet", {{"limitValue", 10}, {"limitType", 3}, {"operatorOr", true}}),
         "Smart Playlist name: Quiet, ID: 7, 0 tracks. \n"},
        {smart("Empty", {{"enableRules", true}}), "Smart Playlist name: Empty, ID: 7, 0 tracks. \n"
                                                  "Match all of these rules: (\n) \n"},
        // An unknown unit leaves the blank before its empty word.
        {smart("Odd", limitOptions(0, 2, false, 25)), "Smart Playlist name: Odd, ID: 7, 0 tracks. \n"
                                                      "Limit to 25 , sorted by random. \n"},
        {smart("R", limitOptions(1, 16, true, 90)),
         "Smart Playlist name: R, ID: 7, 0 tracks. \nLimit to 90 minutes, sorted by least recently added. \n"},
        {smart("R", limitOptions(5, 16, false, 2)),
         "Smart Playlist name: R, ID: 7, 0 tracks. \nLimit to 2 gigabytes, sorted by most recently added. \n"},
    };
    for (const auto& [playlist, description] : cases)
        EXPECT_EQ(playlist->description(), description);
    EXPECT_EQ(std::tuple(full->rules().size(), full->limitSortType(), full->onlyMatchCheckedTracks(),
                         full->liveUpdating(), full->isOr(), full->limit()),
              std::tuple(std::size_t{2}, 20, true, true, true, 25));
}

// ---- rules ----------------------------------------------------------------------------------

TEST(ModelSmartRule, ActionPhrasesMatchTheWholeCode)
{
    const std::vector<std::pair<std::uint32_t, const char*>> table = {
        {0x00000001, "is"}, {0x00000010, "is greater than"}, {0x00000020, "is greater than or equal to"},
        {0x00000040, "is less than"}, {0x00000080, "is less than or equal to"}, {0x00000100, "is in the range"},
        {0x00000200, "is in the last"}, {0x00000400, "is"}, {0x01000001, "is"}, {0x01000002, "contains"},
        {0x01000004, "starts with"}, {0x01000008, "ends with"}, {0x02000001, "is not"},
        {0x02000010, "is not greater than"}, {0x02000020, "is not greater than or equal to"},
        {0x02000040, "is not less than"}, {0x02000080, "is not less than or equal to"},
        {0x02000100, "is not in the range"}, {0x02000200, "is not in the last"}, {0x03000001, "is not"},
        {0x03000002, "does not contain"}, {0x03000004, "does not start with"}, {0x03000008, "does not end with"},
        // Only whole values have words: no reading bit by bit.
        {0, ""}, {0x00000002, ""}, {0x01000010, ""}, {0x02000002, ""}, {0x03000010, ""}, {0x80000001, ""},
        {0xFFFFFFFF, ""}};
    for (const auto& [code, phrase] : table)
        EXPECT_EQ(rule(7, static_cast<std::int32_t>(code))->ruleActionString(), phrase) << std::hex << code;
}

TEST(ModelSmartRule, FieldNames)
{
    const std::vector<std::pair<int, const char*>> table = {
        {3, "Album"}, {4, "Artist"}, {5, "Bitrate"}, {6, "Sample rate"}, {7, "Year"}, {8, "Genre"}, {9, "Kind"},
        {10, "Date modified"}, {11, "Track number"}, {12, "Size"}, {13, "Time"}, {14, "Comment"},
        {16, "Date added"}, {18, "Composer"}, {22, "Play count"}, {23, "Last played"}, {24, "Disc number"},
        {25, "Rating"}, {31, "Compilation"}, {35, "BPM"}, {39, "Grouping"}, {40, "Playlist"},
        {54, "Description"}, {55, "Category"}, {57, "Podcast"}, {60, "Media type"}, {62, "TV show"},
        {63, "Season number"}, {68, "Skip count"}, {69, "Last skipped"}, {71, "Album artist"},
        {2, ""}, {1, ""}, {15, ""}, {0, ""}, {72, ""}};
    for (const auto& [field, name] : table)
        EXPECT_EQ(rule(field, 1)->fieldString(), name) << field;
}

TEST(ModelSmartRule, DescriptionForms)
{
    const std::vector<std::pair<std::shared_ptr<SmartPlaylistRule>, const char*>> cases = {
        {rule(8, 0x01000004, {{"ruleValue", "Jazz"}}), "Genre starts with Jazz"},
        {numericRule(25, 0x10, 60, 60), "Rating is greater than 60"},
        {numericRule(22, 0x100, 1, 5), "Play count is in the range 1 and 5"},
        // All 64 bits take part in the comparison and the printing.
        {numericRule(12, 0x40, 0xFFFFFFFFFFFFFFFFULL, 0x7FFFFFFFFFFFFFFFULL),
         "Size is less than 18446744073709551615 and 9223372036854775807"},
        {numericRule(12, 0x40, 0x100000005ULL, 5), "Size is less than 4294967301 and 5"},
        {rule(2, 0x01000002, {{"ruleValue", "Live"}}), " contains Live"}, // field 2 has no name
        {numericRule(7, 0x12345, 1999, 1999), "Year  1999"},             // unknown action: two blanks
        {rule(4, 0x7, {{"ruleValue", "X"}}), "Artist  X"},
        {rule(4, 0x01000001), "Artist is (null)"},
        {rule(4, 0x01000001, {{"ruleValue", ""}}), "Artist is "},
        // Date rules print their raw operands; units and dates are not part of the text.
        {rule(69, 0x200, {{"fromValue", 3}, {"toValue", 9}, {"fromUnits", 86400}}), "Last skipped is in the last 3 and 9"},
        {rule(1, 0x1, {{"ruleValue", "text"}, {"fromValue", 3}}), " is 0"},
    };
    for (const auto& [r, description] : cases)
        EXPECT_EQ(r->description(), description);
}

TEST(ModelSmartRule, FieldKindDecidesWhichOptionsAreRead)
{
    const Value::Dictionary everything{{"ruleValue", "text"}, {"fromValue", 3},  {"toValue", 9}, {"fromUnits", 86400},
                                       {"toUnits", 1},        {"fromDate", -14}, {"toDate", -1}};
    auto fields = [&](std::int64_t field, std::int64_t action) {
        auto r = rule(field, action, everything);
        std::ostringstream out;
        out << r->isStringRule() << r->numericRuleIsDateStamp() << ' ' << r->ruleValue().value_or("-") << ' '
            << r->fromValue() << ' ' << r->toValue() << ' ' << r->fromUnit() << ' ' << r->toUnit() << ' '
            << r->fromDate() << ' ' << r->toDate() << ' ' << r->field() << ' ' << r->action();
        return out.str();
    };
    EXPECT_EQ(fields(71, 0x01000001), "10 text 0 0 0 0 0 0 71 16777217");
    EXPECT_EQ(fields(68, 0x10), "00 - 3 9 0 0 0 0 68 16");
    EXPECT_EQ(fields(69, 0x200), "01 - 3 9 86400 1 -14 -1 69 512");
    EXPECT_EQ(fields(1, 0x1), "00 - 0 0 0 0 0 0 1 1");
}

} // namespace
} // namespace zq
