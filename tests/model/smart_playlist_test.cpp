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

// ---- rules ----------------------------------------------------------------------------------

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
