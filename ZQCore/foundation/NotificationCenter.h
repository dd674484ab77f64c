#pragma once

#include "ZQCore/foundation/Export.h"

#include <any>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zq {

/// The process's in-process notification centre: a name is posted with an object, and every
/// observer registered for that name is called synchronously, in registration order.
class ZQ_EXPORT NotificationCenter {
public:
    using Callback = std::function<void(const std::string& name, const std::any& object)>;
    using Token = std::uint64_t;

    static NotificationCenter& defaultCenter();

    Token addObserver(const std::string& name, Callback callback);
    void removeObserver(Token token);
    void postNotification(const std::string& name, const std::any& object = {});

private:
    struct Entry {
        Token token;
        std::string name;
        std::shared_ptr<Callback> callback;
    };
    std::vector<Entry> observers_;
    Token lastToken_ = 0;
};

} // namespace zq
