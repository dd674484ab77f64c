// Smart playlists and their rules in words: limit units, sort phrases, field names, action
// phrases and the printable forms, word for word.

#include "ZQCore/model/SmartPlaylist.h"
#include "ZQCore/model/SmartPlaylistRule.h"
#include "ZQCore/model/iPodTrack.h"

#include <gtest/gtest.h>

#include <array>
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

TEST(ModelSmartPlaylist, WithNothingEnabledPrintsOnlyItsFirstLine)
{
    auto playlist = smart("Quiet", {{"limitValue", 10}, {"limitType", 3}, {"operatorOr", true}});
    EXPECT_EQ(playlist->description(), "Smart Playlist name: Quiet, ID: 7, 0 tracks. \n");
    EXPECT_FALSE(playlist->rulesEnabled());
    EXPECT_FALSE(playlist->limitsEnabled());
    EXPECT_TRUE(playlist->isOr());
    EXPECT_EQ(playlist->limit(), 10);
}

TEST(ModelSmartPlaylist, FullDescriptionInOrder)
{
    Value::Array rules{
        Value::Dictionary{{"fieldType", 4}, {"actionType", 0x01000002}, {"ruleValue", "Pines"}},
        Value::Dictionary{{"fieldType", 7}, {"actionType", 0x100}, {"fromValue", 2010}, {"toValue", 2016}},
    };
    Value::Dictionary options{{"enableRules", true}, {"operatorOr", true},    {"enableLimits", true},
                              {"limitType", 3},      {"limitSort", 20},       {"limitValue", 25},
                              {"matchChecked", true}, {"liveUpdating", true}, {"rules", rules}};
    auto playlist = smart("Favourites", options, 1);
    playlist->addTrack(iPodTrack::initWithParent(nullptr));
    EXPECT_EQ(playlist->description(), "Smart Master playlist name: Favourites, ID: 7, 1 tracks. \n"
                                       "Match any of these rules: (\n"
                                       "    Artist contains Pines,\n"
                                       "    Year is in the range 2010 and 2016\n"
                                       ") \n"
                                       "Limit to 25 songs, sorted by most often played. \n"
                                       "Match only checked items.\n"
                                       "Live updating.\n");
    ASSERT_EQ(playlist->rules().size(), 2u);
    EXPECT_EQ(playlist->limitSortType(), 20);
    EXPECT_TRUE(playlist->onlyMatchCheckedTracks());
    EXPECT_TRUE(playlist->liveUpdating());
}

TEST(ModelSmartPlaylist, AllRulesWithoutRulesPrintsAnEmptyList)
{
    auto playlist = smart("Empty", {{"enableRules", true}});
    EXPECT_EQ(playlist->description(), "Smart Playlist name: Empty, ID: 7, 0 tracks. \n"
                                       "Match all of these rules: (\n) \n");
}

TEST(ModelSmartPlaylist, LimitLineWithUnknownUnitKeepsTheBlankBeforeTheEmptyWord)
{
    // "Limit to <n> <unit>, sorted by <sort>." with an empty unit word: the blank that
    // precedes the word stays, so the number is followed by a blank and then the comma.
    auto playlist = smart("Odd", limitOptions(0, 2, false, 25));
    EXPECT_EQ(playlist->limitString(), "");
    EXPECT_EQ(playlist->description(), "Smart Playlist name: Odd, ID: 7, 0 tracks. \n"
                                       "Limit to 25 , sorted by random. \n");
}

TEST(ModelSmartPlaylist, LimitLineNamesTheLeastEndOnlyWhenReversed)
{
    EXPECT_EQ(smart("R", limitOptions(1, 16, true, 90))->description(),
              "Smart Playlist name: R, ID: 7, 0 tracks. \nLimit to 90 minutes, sorted by least recently added. \n");
    EXPECT_EQ(smart("R", limitOptions(5, 16, false, 2))->description(),
              "Smart Playlist name: R, ID: 7, 0 tracks. \nLimit to 2 gigabytes, sorted by most recently added. \n");
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
    EXPECT_EQ(rule(8, 0x01000004, {{"ruleValue", "Jazz"}})->description(), "Genre starts with Jazz");
    EXPECT_EQ(numericRule(25, 0x10, 60, 60)->description(), "Rating is greater than 60");
    EXPECT_EQ(numericRule(22, 0x100, 1, 5)->description(), "Play count is in the range 1 and 5");
    // All 64 bits take part in the comparison and the printing.
    EXPECT_EQ(numericRule(12, 0x40, 0xFFFFFFFFFFFFFFFFULL, 0x7FFFFFFFFFFFFFFFULL)->description(),
              "Size is less than 18446744073709551615 and 9223372036854775807");
    EXPECT_EQ(numericRule(12, 0x40, 0x100000005ULL, 5)->description(), "Size is less than 4294967301 and 5");
}

TEST(ModelSmartRule, FieldTwoHasNoNameSoItsTextBeginsWithABlank)
{
    auto r = rule(2, 0x01000002, {{"ruleValue", "Live"}});
    EXPECT_TRUE(r->isStringRule());
    EXPECT_EQ(r->description(), " contains Live");
}

TEST(ModelSmartRule, UnknownActionLeavesTwoBlanks)
{
    EXPECT_EQ(numericRule(7, 0x12345, 1999, 1999)->description(), "Year  1999");
    EXPECT_EQ(rule(4, 0x7, {{"ruleValue", "X"}})->description(), "Artist  X");
}

TEST(ModelSmartRule, StringRuleWithoutValuePrintsNull)
{
    auto r = rule(4, 0x01000001);
    EXPECT_EQ(r->ruleValue(), std::nullopt);
    EXPECT_EQ(r->description(), "Artist is (null)");
    EXPECT_EQ(rule(4, 0x01000001, {{"ruleValue", ""}})->description(), "Artist is ");
}

TEST(ModelSmartRule, FieldKindDecidesWhichOptionsAreRead)
{
    const Value::Dictionary everything{{"ruleValue", "text"}, {"fromValue", 3}, {"toValue", 9},
                                       {"fromUnits", 86400}, {"toUnits", 1},   {"fromDate", -14},
                                       {"toDate", -1}};

    auto text = rule(71, 0x01000001, everything);
    EXPECT_TRUE(text->isStringRule());
    EXPECT_FALSE(text->numericRuleIsDateStamp());
    EXPECT_EQ(text->ruleValue(), "text");
    EXPECT_EQ(text->fromValue(), 0u);
    EXPECT_EQ(text->toValue(), 0u);

    auto number = rule(68, 0x10, everything);
    EXPECT_FALSE(number->isStringRule());
    EXPECT_FALSE(number->numericRuleIsDateStamp());
    EXPECT_EQ(number->ruleValue(), std::nullopt);
    EXPECT_EQ(number->fromValue(), 3u);
    EXPECT_EQ(number->toValue(), 9u);
    EXPECT_EQ(number->fromUnit(), 0u);
    EXPECT_EQ(number->fromDate(), 0);

    auto date = rule(69, 0x200, everything);
    EXPECT_FALSE(date->isStringRule());
    EXPECT_TRUE(date->numericRuleIsDateStamp());
    EXPECT_EQ(date->fromValue(), 3u);
    EXPECT_EQ(date->toValue(), 9u);
    EXPECT_EQ(date->fromUnit(), 86400u);
    EXPECT_EQ(date->toUnit(), 1u);
    EXPECT_EQ(date->fromDate(), -14);
    EXPECT_EQ(date->toDate(), -1);
    // Date rules print their raw operands; units and dates are not part of the text.
    EXPECT_EQ(date->description(), "Last skipped is in the last 3 and 9");

    auto other = rule(1, 0x1, everything);
    EXPECT_FALSE(other->isStringRule());
    EXPECT_FALSE(other->numericRuleIsDateStamp());
    EXPECT_EQ(other->ruleValue(), std::nullopt);
    EXPECT_EQ(other->fromValue(), 0u);
    EXPECT_EQ(other->field(), 1);
    EXPECT_EQ(other->action(), 1);
    EXPECT_EQ(other->description(), " is 0");
}

} // namespace
} // namespace zq
