#include "ZQCore/foundation/Date.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>

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

// Local offset (seconds east of UTC) in force at a wall-clock time given as naive seconds: the
// reference rule, mktime with the daylight-saving flag left to the zone.
std::int64_t offsetAtWallTime(std::int64_t wall)
{
    std::time_t naive = static_cast<std::time_t>(wall);
    std::tm parts{};
    ::gmtime_r(&naive, &parts);
    parts.tm_isdst = -1;
    std::time_t utc = std::mktime(&parts);
    return wall - static_cast<std::int64_t>(utc);
}

// mktime re-validates the zone on every call (with TZ unset, glibc stats /etc/localtime each
// time), and a library of 100,000 tracks has half a million dates on tens of thousands of
// distinct days. So offsets are remembered per wall-clock day, and a day's offset is worked out
// from localtime_r, which uses the zone as loaded and touches no file:
//
// A wall-clock time W is shown by the instants t with t = W - offset(t). Offsets stay within
// kOffsetBound, so those instants lie within W +- kOffsetBound. If the zone has one offset o
// over all instants that can show some time of the day, every W of the day has exactly one
// instant, W - o, and that is what mktime answers too. The offset is sampled every kSampleStep
// over that span (samples are shared between neighbouring days); a day with any change among
// its samples is a day near a transition, and its values go to mktime one by one, exactly as
// before. (Two transitions closer together than the sample step that cancel each other out
// would go unseen; no zone has them.)
constexpr std::int64_t kOffsetBound = 18 * 3600;
constexpr std::int64_t kSampleStep = 3 * 3600;

struct DayOffset {
    std::int64_t offset;
    bool uniform; // the same offset holds for the whole day
};

class LocalOffsetCache {
public:
    // Call when the caller may have changed the zone since the last use: a different TZ, or,
    // with TZ unset, a different /etc/localtime. Once per load, so its one stat is no cost.
    void refreshZone()
    {
        const char* tz = std::getenv("TZ");
        std::string current = tz ? std::string("=") + tz : std::string();
        if (!tz || *tz == '\0' || *tz == ':')
            current += zoneFileIdentity(tz && *tz == ':' && tz[1] ? tz + 1 : "/etc/localtime");
        if (current != zone_) {
            ::tzset();
            zone_ = std::move(current);
            days_.clear();
            days_.shrink_to_fit();
            samples_.clear();
            samples_.shrink_to_fit();
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
    static constexpr std::int64_t kFirstSample = (kFirstDay * kSecondsPerDay - kOffsetBound) / kSampleStep - 1;
    static constexpr std::int64_t kSampleSlots =
        ((kFirstDay + kDaySlots) * kSecondsPerDay + kOffsetBound) / kSampleStep + 2 - kFirstSample;
    static constexpr std::int32_t kUnknown = INT32_MIN;

    static std::string zoneFileIdentity(const char* path)
    {
        struct stat info {};
        if (::stat(path, &info) != 0)
            return "?";
        return std::to_string(info.st_dev) + ":" + std::to_string(info.st_ino) + ":" + std::to_string(info.st_size) +
               ":" + std::to_string(info.st_mtim.tv_sec) + "." + std::to_string(info.st_mtim.tv_nsec);
    }

    static std::int64_t offsetAtInstant(std::int64_t instant)
    {
        std::time_t t = static_cast<std::time_t>(instant);
        std::tm parts{};
        if (!::localtime_r(&t, &parts))
            return kUnknown;
        return parts.tm_gmtoff;
    }

    // The offset at the sample instant `index` * kSampleStep.
    std::int64_t sample(std::int64_t index)
    {
        const std::int64_t slot = index - kFirstSample;
        if (slot < 0 || slot >= kSampleSlots)
            return offsetAtInstant(index * kSampleStep);
        if (samples_.empty())
            samples_.assign(static_cast<std::size_t>(kSampleSlots), kUnknown);
        std::int32_t& entry = samples_[static_cast<std::size_t>(slot)];
        if (entry == kUnknown)
            entry = static_cast<std::int32_t>(offsetAtInstant(index * kSampleStep));
        return entry;
    }

public:
    // mktime for one wall-clock time, as the per-day memory always did it. glibc's mktime keeps
    // its last answer's offset as the first guess of the next call, and for a wall-clock time
    // that occurs twice (the hour repeated when clocks go back) that guess picks the occurrence.
    // The offsets of whole days used to be found with two mktime calls each (day start, then day
    // end); to pick the same occurrences as then, the day end of the last day worked out is
    // replayed before the next mktime call when localtime_r has been used since. (A day end
    // on such a day is a single wall-clock time, so replaying it sets the same guess.)
    std::int64_t offsetByMktime(std::int64_t wall)
    {
        if (lastMktimeWall_ != replayWall_)
            offsetAtWallTime(replayWall_);
        lastMktimeWall_ = replayWall_ = wall;
        return offsetAtWallTime(wall);
    }

private:
    DayOffset compute(std::int64_t day)
    {
        const std::int64_t first = day * kSecondsPerDay - kOffsetBound;
        const std::int64_t last = day * kSecondsPerDay + kSecondsPerDay - 1 + kOffsetBound;
        const std::int64_t firstIndex = first >= 0 ? first / kSampleStep : (first - kSampleStep + 1) / kSampleStep;
        const std::int64_t lastIndex = (last >= 0 ? last / kSampleStep : (last - kSampleStep + 1) / kSampleStep) + 1;
        const std::int64_t offset = sample(firstIndex);
        bool uniform = offset != kUnknown && offset > -kOffsetBound && offset < kOffsetBound;
        for (std::int64_t i = firstIndex + 1; uniform && i <= lastIndex; ++i)
            uniform = sample(i) == offset;
        const std::int64_t dayEnd = day * kSecondsPerDay + kSecondsPerDay - 1;
        if (uniform) {
            replayWall_ = dayEnd;
            return DayOffset{offset, true};
        }
        // Near a transition: the day start and the day end by mktime, and the day has one offset
        // when they agree.
        const std::int64_t start = offsetByMktime(day * kSecondsPerDay);
        const std::int64_t end = offsetByMktime(dayEnd);
        return DayOffset{start, start == end};
    }

    static constexpr std::int64_t kNoCall = INT64_MIN;
    std::int64_t lastMktimeWall_ = kNoCall; // the last wall-clock time given to mktime here
    std::int64_t replayWall_ = kNoCall;     // the one the day memory would have given last
    std::string zone_ = "\x01"; // never a real TZ value, so the first call sets up
    std::vector<Slot> days_;
    std::vector<std::int32_t> samples_;
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
    const std::int64_t offset = lastDayIsUniform_ ? lastOffset_ : offsetCache().offsetByMktime(wall);
    return Date::fromUnixTime(static_cast<double>(wall - offset));
}

std::string Date::iso8601() const
{
    char text[kISO8601Capacity];
    return std::string(text, iso8601(text));
}

std::size_t Date::iso8601(char* out) const
{
    const double seconds = std::floor(unixTime());
    // Years 0000 to 9999, the common case, are worked out and written digit by digit: a JSON
    // listing formats half a million dates, and the C library's calendar costs more than all
    // the rest of a date's text. The calendar is the proleptic Gregorian one of gmtime.
    constexpr double kYear0 = -62167219200.0, kYear10000 = 253402300800.0;
    if (seconds >= kYear0 && seconds < kYear10000) {
        const auto t = static_cast<std::int64_t>(seconds);
        std::int64_t days = t / 86400;
        std::int64_t rest = t % 86400;
        if (rest < 0) {
            rest += 86400;
            --days;
        }
        // Days since 1970-01-01 to a civil date (counted in 400-year eras from 0000-03-01).
        days += 719468;
        const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
        const std::int64_t dayOfEra = days - era * 146097;
        const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
        const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
        const std::int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
        const auto day = static_cast<int>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1);
        const auto month = static_cast<int>(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
        const auto year = static_cast<int>(yearOfEra + era * 400 + (month <= 2 ? 1 : 0));

        std::memcpy(out, "0000-00-00T00:00:00Z", 20);
        auto put = [&](int at, int value, int digits) {
            for (int i = at + digits - 1; i >= at; --i, value /= 10)
                out[i] = static_cast<char>('0' + value % 10);
        };
        put(0, year, 4);
        put(5, month, 2);
        put(8, day, 2);
        put(11, static_cast<int>(rest / 3600), 2);
        put(14, static_cast<int>(rest / 60 % 60), 2);
        put(17, static_cast<int>(rest % 60), 2);
        return 20;
    }
    std::time_t t = static_cast<std::time_t>(seconds);
    std::tm parts{};
    ::gmtime_r(&t, &parts);
    const int year = parts.tm_year + 1900;
    // Room for any int fields, so the format can never truncate.
    const int length = std::snprintf(out, kISO8601Capacity, "%04d-%02d-%02dT%02d:%02d:%02dZ", year, parts.tm_mon + 1,
                                     parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return static_cast<std::size_t>(std::min<int>(length, static_cast<int>(kISO8601Capacity) - 1));
}

} // namespace zq
