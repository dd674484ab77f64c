#pragma once

#include "ZQCore/foundation/Export.h"

#include <cstdint>
#include <string>

namespace zq {

/// A point in time: seconds since the reference date 2001-01-01 00:00:00 UTC, as a double.
/// "No date" is spelled std::optional<Date>.
class ZQ_EXPORT Date {
public:
    /// Seconds between the Unix epoch and the reference date.
    static constexpr double kReferenceDateUnixTime = 978307200.0;

    constexpr Date() = default;
    constexpr explicit Date(double secondsSinceReferenceDate) : seconds_(secondsSinceReferenceDate) {}

    static constexpr Date referenceDate() { return Date(0); }
    static constexpr Date fromUnixTime(double unixSeconds) { return Date(unixSeconds - kReferenceDateUnixTime); }

    /// The library database's track dates: an unsigned count of seconds since
    /// 1904-01-01 00:00:00 *local time*. The value is split into calendar components
    /// (hours = v / 3600, minutes = (v / 60) % 60, seconds = int32(v) % 60, the last taken
    /// signed so that values of 2^31 and above get a zero or negative seconds part) which are
    /// added to that local wall-clock date; the resulting wall-clock time is then placed in
    /// the local zone with its daylight-saving rules. A stored 0 is the base date itself.
    static Date from1904LocalSeconds(std::uint32_t value);

    constexpr double timeIntervalSinceReferenceDate() const { return seconds_; }
    constexpr double unixTime() const { return seconds_ + kReferenceDateUnixTime; }

    /// "YYYY-MM-DDTHH:MM:SSZ", in UTC, whole seconds (rounded down).
    std::string iso8601() const;
    /// The same text written at `out`, which has room for kISO8601Capacity characters (no
    /// terminator); returns its length. For writers of many dates.
    std::size_t iso8601(char* out) const;
    static constexpr std::size_t kISO8601Capacity = 80;

    friend constexpr bool operator==(Date a, Date b) { return a.seconds_ == b.seconds_; }
    friend constexpr auto operator<=>(Date a, Date b) { return a.seconds_ <=> b.seconds_; }

private:
    double seconds_ = 0;
};

/// Converts many 1904-based local dates in a row (a database walk has hundreds of thousands):
/// it reads the local zone once when made, and remembers the zone's offset per day.
/// Same results as Date::from1904LocalSeconds. Not for use across a change of TZ.
class ZQ_EXPORT LocalDateConverter {
public:
    LocalDateConverter();
    Date dateFrom1904Seconds(std::uint32_t value);

private:
    std::int64_t lastDay_ = INT64_MIN;
    std::int64_t lastOffset_ = 0;
    bool lastDayIsUniform_ = false;
};

} // namespace zq
