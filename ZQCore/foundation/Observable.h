#pragma once

#include "ZQCore/foundation/Export.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zq {

/// Will-change / did-change notices of named keys ("tracks", "playlists", "connectediPods"...).
/// Observers are called synchronously on the thread that makes the change, once before it
/// (Phase::WillChange) and once after (Phase::DidChange), with the key that changed.
class ZQ_EXPORT Observable {
public:
    enum class Phase { WillChange, DidChange };
    using Callback = std::function<void(const std::string& key, Phase phase)>;
    using Token = std::uint64_t;

    Observable() = default;
    Observable(const Observable&) = delete;
    Observable& operator=(const Observable&) = delete;
    virtual ~Observable();

    /// Registers a callback for one key. Keep the token to remove it again.
    Token addObserver(const std::string& key, Callback callback);
    void removeObserver(Token token);

    void willChangeValueForKey(const std::string& key) { notify(key, Phase::WillChange); }
    void didChangeValueForKey(const std::string& key) { notify(key, Phase::DidChange); }

private:
    struct Entry {
        Token token;
        std::string key;
        std::shared_ptr<Callback> callback;
    };
    void notify(const std::string& key, Phase phase);

    // Most observable objects (playlists of a large library) are never observed; the list is
    // made on the first registration so that they pay one pointer.
    std::unique_ptr<std::vector<Entry>> observers_;
};

/// Brackets a change: will-change now, did-change when the scope ends.
class ZQ_EXPORT ChangeScope {
public:
    ChangeScope(Observable& object, std::string key) : object_(object), key_(std::move(key))
    {
        object_.willChangeValueForKey(key_);
    }
    ~ChangeScope() { object_.didChangeValueForKey(key_); }
    ChangeScope(const ChangeScope&) = delete;
    ChangeScope& operator=(const ChangeScope&) = delete;

private:
    Observable& object_;
    std::string key_;
};

} // namespace zq
