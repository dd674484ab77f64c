#include "ZQCore/model/SmartPlaylist.h"

#include "ZQCore/foundation/Description.h"
#include "ZQCore/foundation/Resources.h"

namespace zq {

namespace {

const Value* entry(const Value::Dictionary& options, const char* key)
{
    auto found = options.find(key);
    return found == options.end() ? nullptr : &found->second;
}

bool flag(const Value::Dictionary& options, const char* key)
{
    const Value* value = entry(options, key);
    return value && value->boolValue();
}

std::int32_t number(const Value::Dictionary& options, const char* key)
{
    const Value* value = entry(options, key);
    return value ? static_cast<std::int32_t>(value->integerValue()) : 0;
}

} // namespace

void SmartPlaylist::fillFromOptions(const Value::Dictionary& options)
{
    rules_.clear();
    liveUpdating_ = flag(options, "liveUpdating");
    enableRules_ = flag(options, "enableRules");
    enableLimits_ = flag(options, "enableLimits");
    matchChecked_ = flag(options, "matchChecked");
    reverseLimitSort_ = flag(options, "reverseLimitSort");
    operatorOr_ = flag(options, "operatorOr");
    limitType_ = number(options, "limitType");
    sortType_ = number(options, "limitSort");
    limitValue_ = number(options, "limitValue");
    if (const Value* rules = entry(options, "rules"); rules && rules->array()) {
        for (const Value& rule : *rules->array())
            if (rule.dictionary())
                rules_.push_back(SmartPlaylistRule::initWithOptions(*rule.dictionary()));
    }
}

std::string SmartPlaylist::limitString() const
{
    switch (limitType_) {
    case 1: return "minutes";
    case 2: return "megabytes";
    case 3: return "songs";
    case 4: return "hours";
    case 5: return "gigabytes";
    default: return "";
    }
}

std::string SmartPlaylist::sortString() const
{
    // The unreversed sort names the "most"/"highest" end; only the reverse flag picks the other.
    const bool reversed = reverseLimitSort_;
    switch (sortType_) {
    case 2: return "random";
    case 3: return "name";
    case 4: return "album";
    case 5: return "artist";
    case 7: return "genre";
    case 16: return reversed ? "least recently added" : "most recently added";
    case 20: return reversed ? "least often played" : "most often played";
    case 21: return reversed ? "least recently played" : "most recently played";
    case 23: return reversed ? "lowest rating" : "highest rating";
    default: return "";
    }
}

std::string SmartPlaylist::description() const
{
    std::string text = "Smart " + playlistDescription() + " \n";
    if (enableRules_) {
        std::vector<std::string> rules;
        for (const auto& rule : rules_)
            rules.push_back(rule->description());
        text += std::string("Match ") + (operatorOr_ ? "any" : "all") + " of these rules: " + arrayDescription(rules) + " \n";
    }
    if (enableLimits_)
        text += "Limit to " + std::to_string(limitValue_) + " " + limitString() + ", sorted by " + sortString() + ". \n";
    if (matchChecked_)
        text += "Match only checked items.\n";
    if (liveUpdating_)
        text += "Live updating.\n";
    return text;
}

std::shared_ptr<Image> SmartPlaylist::icon() const { return Resources::imageForResource("SmartPlaylist", "png"); }

} // namespace zq
