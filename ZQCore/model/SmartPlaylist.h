#pragma once

#include "ZQCore/foundation/Export.h"
#include "ZQCore/model/Playlist.h"
#include "ZQCore/model/SmartPlaylistRule.h"

namespace zq {

/// A playlist whose content the device derived from rules and a limit. The framework keeps
/// the stored rules, limit and track list, and says them in words; it does not evaluate them.
class ZQ_EXPORT SmartPlaylist : public Playlist {
public:
    const char* kind() const override { return "smart"; }
    /// A smart playlist from a binary-database record and its options dictionary
    /// ("liveUpdating", "enableRules", "enableLimits", "matchChecked", "reverseLimitSort",
    /// "operatorOr", "limitType", "limitSort", "limitValue", "rules"); a missing key reads as
    /// false or 0.
    static std::shared_ptr<SmartPlaylist> initWithMHYP(std::span<const std::uint8_t> header,
                                                       const std::optional<std::string>& name,
                                                       const Value::Dictionary& smartPlaylistData);
    /// A smart playlist from a container row of the SQLite library: its flags and limit from
    /// the smart_* columns (a flag is on only for the stored value 1) and its rules from the
    /// rule blob. A blob that is empty or does not parse gives a playlist without rules.
    static std::shared_ptr<SmartPlaylist> initWithSQLiteRow(sqlite3_stmt* row, const std::shared_ptr<TrackLibrary>& parent);

    std::int32_t limitType() const { return limitType_; }
    std::int32_t limitSortType() const { return sortType_; }
    std::int32_t limit() const { return limitValue_; }
    bool liveUpdating() const { return liveUpdating_; }
    bool rulesEnabled() const { return enableRules_; }
    bool limitsEnabled() const { return enableLimits_; }
    bool onlyMatchCheckedTracks() const { return matchChecked_; }
    bool limitSortReversed() const { return reverseLimitSort_; }
    bool isOr() const { return operatorOr_; }
    const std::vector<std::shared_ptr<SmartPlaylistRule>>& rules() const { return rules_; }

    /// The unit of the limit: "minutes", "megabytes", "songs", "hours", "gigabytes" or "".
    std::string limitString() const;
    /// Which tracks the limit keeps ("random", "most recently added", ... or "").
    std::string sortString() const;

    std::string description() const override;
    std::shared_ptr<Image> icon() const override;

protected:
    explicit SmartPlaylist(const std::optional<std::string>& name) : Playlist(name) {}
    /// Takes the smart fields and rules from an options dictionary.
    void fillFromOptions(const Value::Dictionary& options);

    std::int32_t limitType_ = 0;
    std::int32_t sortType_ = 0;
    bool liveUpdating_ = false;
    bool enableRules_ = false;
    bool enableLimits_ = false;
    bool matchChecked_ = false;
    bool reverseLimitSort_ = false;
    bool operatorOr_ = false;
    std::int32_t limitValue_ = 0;
    std::vector<std::shared_ptr<SmartPlaylistRule>> rules_;
};

} // namespace zq
