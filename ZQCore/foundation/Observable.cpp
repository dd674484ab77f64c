#include "ZQCore/foundation/Observable.h"

#include <algorithm>

namespace zq {

namespace {
Observable::Token nextToken()
{
    static Observable::Token counter = 0;
    return ++counter;
}
} // namespace

Observable::~Observable() = default;

Observable::Token Observable::addObserver(const std::string& key, Callback callback)
{
    if (!observers_)
        observers_ = std::make_unique<std::vector<Entry>>();
    Token token = nextToken();
    observers_->push_back({token, key, std::make_shared<Callback>(std::move(callback))});
    return token;
}

void Observable::removeObserver(Token token)
{
    if (!observers_)
        return;
    std::erase_if(*observers_, [token](const Entry& entry) { return entry.token == token; });
}

void Observable::notify(const std::string& key, Phase phase)
{
    if (!observers_)
        return;
    // A callback may add or remove observers; call a snapshot so the walk stays valid.
    std::vector<std::shared_ptr<Callback>> targets;
    for (const Entry& entry : *observers_)
        if (entry.key == key)
            targets.push_back(entry.callback);
    for (const auto& callback : targets)
        (*callback)(key, phase);
}

} // namespace zq
