#include "ZQCore/model/SmartPlaylistRule.h"

#include "ZQCore/foundation/Description.h"

#include <algorithm>
#include <array>

namespace zq {

namespace {

constexpr std::array kStringFields{2, 3, 4, 8, 9, 14, 18, 39, 54, 55, 62, 71};
constexpr std::array kNumericFields{5, 6, 7, 11, 12, 13, 22, 24, 25, 31, 35, 40, 57, 60, 63, 68};
constexpr std::array kDateStampFields{10, 16, 23, 69};

template <std::size_t N>
bool contains(const std::array<int, N>& codes, std::int32_t code)
{
    return std::find(codes.begin(), codes.end(), code) != codes.end();
}

std::int64_t integer(const Value::Dictionary& options, const char* key)
{
    auto found = options.find(key);
    return found == options.end() ? 0 : found->second.integerValue();
}

struct Name {
    std::int64_t code;
    const char* text;
};

// Field 2 is a string field that has never had a display name; it prints as "".
constexpr Name kFieldNames[] = {
    {3, "Album"}, {4, "Artist"}, {5, "Bitrate"}, {6, "Sample rate"}, {7, "Year"}, {8, "Genre"}, {9, "Kind"},
    {10, "Date modified"}, {11, "Track number"}, {12, "Size"}, {13, "Time"}, {14, "Comment"}, {16, "Date added"},
    {18, "Composer"}, {22, "Play count"}, {23, "Last played"}, {24, "Disc number"}, {25, "Rating"},
    {31, "Compilation"}, {35, "BPM"}, {39, "Grouping"}, {40, "Playlist"}, {54, "Description"}, {55, "Category"},
    {57, "Podcast"}, {60, "Media type"}, {62, "TV show"}, {63, "Season number"}, {68, "Skip count"},
    {69, "Last skipped"}, {71, "Album artist"},
};

// Action codes are bit sets (low bits: the comparison; 0x01000000: text; 0x02000000: negated),
// but only these whole values have words.
constexpr Name kActionPhrases[] = {
    {0x00000001, "is"}, {0x00000010, "is greater than"}, {0x00000020, "is greater than or equal to"},
    {0x00000040, "is less than"}, {0x00000080, "is less than or equal to"}, {0x00000100, "is in the range"},
    {0x00000200, "is in the last"}, {0x00000400, "is"}, {0x01000001, "is"}, {0x01000002, "contains"},
    {0x01000004, "starts with"}, {0x01000008, "ends with"}, {0x02000001, "is not"},
    {0x02000010, "is not greater than"}, {0x02000020, "is not greater than or equal to"},
    {0x02000040, "is not less than"}, {0x02000080, "is not less than or equal to"},
    {0x02000100, "is not in the range"}, {0x02000200, "is not in the last"}, {0x03000001, "is not"},
    {0x03000002, "does not contain"}, {0x03000004, "does not start with"}, {0x03000008, "does not end with"},
};

template <std::size_t N>
std::string lookup(const Name (&names)[N], std::int64_t code)
{
    for (const auto& name : names)
        if (name.code == code)
            return name.text;
    return "";
}

} // namespace

bool SmartPlaylistRule::isStringField(std::int32_t field) { return contains(kStringFields, field); }
bool SmartPlaylistRule::isNumericField(std::int32_t field) { return contains(kNumericFields, field); }
bool SmartPlaylistRule::isDateStampField(std::int32_t field) { return contains(kDateStampFields, field); }

std::shared_ptr<SmartPlaylistRule> SmartPlaylistRule::initWithOptions(const Value::Dictionary& options)
{
    std::shared_ptr<SmartPlaylistRule> rule(new SmartPlaylistRule());
    rule->fieldType_ = static_cast<std::int32_t>(integer(options, "fieldType"));
    rule->actionType_ = static_cast<std::int32_t>(integer(options, "actionType"));
    const std::int32_t field = rule->fieldType_;
    if (isStringField(field)) {
        rule->isStringRule_ = true;
        auto found = options.find("ruleValue");
        if (found != options.end() && found->second.string())
            rule->ruleValue_ = *found->second.string();
    } else if (isNumericField(field) || isDateStampField(field)) {
        rule->fromValue_ = static_cast<std::uint64_t>(integer(options, "fromValue"));
        rule->toValue_ = static_cast<std::uint64_t>(integer(options, "toValue"));
        if (isDateStampField(field)) {
            rule->numericRuleIsDateStamp_ = true;
            rule->fromUnit_ = static_cast<std::uint64_t>(integer(options, "fromUnits"));
            rule->toUnit_ = static_cast<std::uint64_t>(integer(options, "toUnits"));
            rule->fromDate_ = integer(options, "fromDate");
            rule->toDate_ = integer(options, "toDate");
        }
    }
    return rule;
}

std::string SmartPlaylistRule::fieldString() const { return lookup(kFieldNames, fieldType_); }

std::string SmartPlaylistRule::ruleActionString() const
{
    return lookup(kActionPhrases, static_cast<std::uint32_t>(actionType_));
}

std::string SmartPlaylistRule::description() const
{
    std::string text = fieldString() + " " + ruleActionString() + " ";
    if (isStringRule_)
        return text + describe(ruleValue_);
    if (fromValue_ == toValue_)
        return text + std::to_string(fromValue_);
    return text + std::to_string(fromValue_) + " and " + std::to_string(toValue_);
}

} // namespace zq
