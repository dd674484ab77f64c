#include "ZQCore/foundation/Date.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace zq {

namespace {

constexpr std::int64_t kSecondsPerDay = 86400;

// Days from 1970-01-01 to the given proleptic Gregorian date.
constexpr std::int64_t daysFromCivil(std::int64_t y, unsigned m, unsigned d)
{
    y -= m <= 2;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

constexpr std::int64_t kWall1904 = daysFromCivil(1904, 1, 1) * kSecondsPerDay;

// Local offset (seconds east of UTC) in force at a wall-clock time given as naive seconds.
std::int64_t offsetAtWallTime(std::int64_t wall)
{
    std::time_t naive = static_cast<std::time_t>(wall);
    std::tm parts{};
    ::gmtime_r(&naive, &parts);
    parts.tm_isdst = -1;
    std::time_t utc = std::mktime(&parts);
    return wall - static_cast<std::int64_t>(utc);
}

// mktime consults the zone database on every call; a library of 100,000 tracks has half a
// million dates, nearly all on days without a transition. Offsets are therefore remembered
// per wall-clock day (for the zone in force), and only days that hold a transition go to
// mktime for every value.
struct DayOffset {
    std::int64_t offset;
    bool uniform; // the same offset holds for the whole day
};

class LocalOffsetCache {
public:
    // Call when the caller may have changed TZ since the last use.
    void refreshZone()
    {
        const char* tz = std::getenv("TZ");
        std::string current = tz ? std::string("=") + tz : std::string();
        if (current != zone_) {
            ::tzset();
            zone_ = std::move(current);
            days_.clear();
            days_.shrink_to_fit();
        }
    }

    DayOffset day(std::int64_t day)
    {
        // Every day a 32-bit count of seconds from 1904 can reach has a slot of its own, so the
        // common lookup is an index, not a hash; other days are worked out each time.
        const std::int64_t slot = day - kFirstDay;
        if (slot < 0 || slot >= kDaySlots)
            return compute(day);
        if (days_.empty())
            days_.resize(kDaySlots);
        Slot& entry = days_[static_cast<std::size_t>(slot)];
        if (!entry.known) {
            DayOffset found = compute(day);
            entry = Slot{static_cast<std::int32_t>(found.offset), true, found.uniform};
        }
        return DayOffset{entry.offset, entry.uniform};
    }

private:
    struct Slot {
        std::int32_t offset = 0;
        bool known = false;
        bool uniform = false;
    };
    static constexpr std::int64_t kFirstDay = kWall1904 / kSecondsPerDay - 1;
    static constexpr std::int64_t kDaySlots = (std::int64_t{UINT32_MAX} / kSecondsPerDay) + 3;

    static DayOffset compute(std::int64_t day)
    {
        std::int64_t start = offsetAtWallTime(day * kSecondsPerDay);
        std::int64_t end = offsetAtWallTime(day * kSecondsPerDay + kSecondsPerDay - 1);
        return DayOffset{start, start == end};
    }

    std::string zone_ = "\x01"; // never a real TZ value, so the first call sets up
    std::vector<Slot> days_;
};

LocalOffsetCache& offsetCache()
{
    thread_local LocalOffsetCache cache;
    return cache;
}

std::int64_t floorDay(std::int64_t wall)
{
    return wall >= 0 ? wall / kSecondsPerDay : (wall - kSecondsPerDay + 1) / kSecondsPerDay;
}

std::int64_t wallFrom1904Value(std::uint32_t value)
{
    const std::int64_t hours = value / 3600;
    const std::int64_t minutes = (value / 60) % 60;
    const std::int64_t seconds = static_cast<std::int32_t>(value) % 60;
    return kWall1904 + hours * 3600 + minutes * 60 + seconds;
}

} // namespace

Date Date::from1904LocalSeconds(std::uint32_t value) { return LocalDateConverter().dateFrom1904Seconds(value); }

LocalDateConverter::LocalDateConverter() { offsetCache().refreshZone(); }

Date LocalDateConverter::dateFrom1904Seconds(std::uint32_t value)
{
    const std::int64_t wall = wallFrom1904Value(value);
    const std::int64_t day = floorDay(wall);
    if (day != lastDay_) {
        DayOffset found = offsetCache().day(day);
        lastDay_ = day;
        lastOffset_ = found.offset;
        lastDayIsUniform_ = found.uniform;
    }
    const std::int64_t offset = lastDayIsUniform_ ? lastOffset_ : offsetAtWallTime(wall);
    return Date::fromUnixTime(static_cast<double>(wall - offset));
}

std::string Date::iso8601() const
{
    std::time_t t = static_cast<std::time_t>(std::floor(unixTime()));
    std::tm parts{};
    ::gmtime_r(&t, &parts);
    char text[80];  // room for any int fields, so the format can never truncate
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", parts.tm_year + 1900, parts.tm_mon + 1,
                  parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}

} // namespace zq
