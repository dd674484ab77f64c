#include "ZQCore/foundation/NotificationCenter.h"

namespace zq {

NotificationCenter& NotificationCenter::defaultCenter()
{
    // Never destroyed: observers that go away during the process's exit (sessions owned by the
    // shared ZQCore) still unregister from it.
    static NotificationCenter* const center = new NotificationCenter();
    return *center;
}

NotificationCenter::Token NotificationCenter::addObserver(const std::string& name, Callback callback)
{
    observers_.push_back({++lastToken_, name, std::make_shared<Callback>(std::move(callback))});
    return lastToken_;
}

void NotificationCenter::removeObserver(Token token)
{
    std::erase_if(observers_, [token](const Entry& entry) { return entry.token == token; });
}

void NotificationCenter::postNotification(const std::string& name, const std::any& object)
{
    std::vector<std::shared_ptr<Callback>> targets;
    for (const Entry& entry : observers_)
        if (entry.name == name)
            targets.push_back(entry.callback);
    for (const auto& callback : targets)
        (*callback)(name, object);
}

} // namespace zq
