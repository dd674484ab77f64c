// The library database's 1904-based local dates, which depend on the zone in force and on its
// daylight-saving rules.

#include "ZQCore/foundation/Date.h"
#include "tests/support/TestLibrary.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <vector>
#include <string>

namespace {

using zq::Date;

// Seconds from 1904-01-01 00:00:00 to the Unix epoch, and from 1904 to the 2001 reference date.
constexpr std::int64_t k1904ToUnix = 2082844800;
constexpr double k1904ToReference = -3061152000.0;

// The value the database stores for a wall-clock time: plain seconds since 1904-01-01 00:00:00
// of the same clock.
std::uint32_t stored(int year, int month, int day, int hour, int minute, int second)
{
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    return static_cast<std::uint32_t>(static_cast<std::int64_t>(::timegm(&parts)) + k1904ToUnix);
}

// Each test pins TZ and gets the caller's zone back afterwards.
class FoundationDate1904 : public ::testing::Test {
protected:
    static void useZone(const char* tz) { zq::test::ZoneScope::use(tz); }

private:
    zq::test::ZoneScope saved_{"UTC0"};
};

// Central European time by POSIX rule (no zone database needed): UTC+1, UTC+2 from the last
// Sunday of March 02:00 to the last Sunday of October 03:00.
constexpr const char* kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* kUSEastern = "EST5EDT,M3.2.0,M11.1.0";

TEST_F(FoundationDate1904, SecondsPartOfLargeValuesIsTakenAsSigned)
{
    // hours = v / 3600, minutes = (v / 60) % 60, seconds = int32(v) % 60 truncated: from 2^31
    // on the seconds part turns zero or negative, moving the date back by 16 or 76 seconds.
    struct Case {
        std::uint32_t value;
        double shift;
    };
    for (Case c : {Case{0x7FFFFFFF, 0}, Case{0x80000000, 16}, Case{0x80000000 + 22, 76}, Case{0xFFFFFFFF, 16},
                   Case{stored(1972, 1, 19, 3, 14, 7), 0}, Case{stored(1972, 1, 19, 3, 14, 8), 16}}) {
        const double expected = k1904ToReference + static_cast<double>(c.value) - c.shift;
        EXPECT_EQ(Date::from1904LocalSeconds(c.value).timeIntervalSinceReferenceDate(), expected) << c.value;
        zq::LocalDateConverter converter;
        EXPECT_EQ(converter.dateFrom1904Seconds(c.value).timeIntervalSinceReferenceDate(), expected) << c.value;
    }
    // Every date since 1972 is stored that large, so real track dates come out 16 or 76
    // seconds early.
    EXPECT_EQ(Date::from1904LocalSeconds(stored(2007, 7, 1, 12, 0, 0)).iso8601(), "2007-07-01T11:59:44Z");
    EXPECT_EQ(Date::from1904LocalSeconds(stored(2007, 7, 1, 12, 34, 56)).iso8601(), "2007-07-01T12:33:40Z");
}

TEST_F(FoundationDate1904, LocalWallClockTakesTheOffsetInForceAtThatTime)
{
    struct Case {
        const char* zone;
        std::uint32_t value;
        const char* utc;
    };
    // Dates from 2007 carry the 16-second shift of the signed-seconds rule.
    const Case cases[] = {
        {kCentralEurope, 0, "1903-12-31T23:00:00Z"},
        {kCentralEurope, stored(2007, 1, 15, 12, 0, 0), "2007-01-15T10:59:44Z"},
        {kCentralEurope, stored(2007, 7, 1, 12, 0, 0), "2007-07-01T09:59:44Z"},
        // Spring forward at 02:00: the same day has both offsets.
        {kCentralEurope, stored(2007, 3, 25, 1, 30, 0), "2007-03-25T00:29:44Z"},
        {kCentralEurope, stored(2007, 3, 25, 3, 30, 0), "2007-03-25T01:29:44Z"},
        // Fall back at 03:00.
        {kCentralEurope, stored(2007, 10, 28, 1, 30, 0), "2007-10-27T23:29:44Z"},
        {kCentralEurope, stored(2007, 10, 28, 4, 0, 0), "2007-10-28T02:59:44Z"},
        {kCentralEurope, stored(2007, 10, 29, 4, 0, 0), "2007-10-29T02:59:44Z"},
        {kCentralEurope, stored(1971, 7, 1, 12, 0, 0), "1971-07-01T10:00:00Z"},
        {kUSEastern, 0, "1904-01-01T05:00:00Z"},
        {kUSEastern, stored(2007, 7, 1, 12, 0, 0), "2007-07-01T15:59:44Z"},
    };
    // One converter for the whole walk, as the track list uses it: its per-day memory must not
    // carry an offset across days or across the transition within a day.
    for (const char* zone : {kCentralEurope, kUSEastern}) {
        useZone(zone);
        zq::LocalDateConverter converter;
        for (const Case& c : cases) {
            if (std::string(c.zone) != zone)
                continue;
            EXPECT_EQ(Date::from1904LocalSeconds(c.value).iso8601(), c.utc) << zone << " " << c.value;
            EXPECT_EQ(converter.dateFrom1904Seconds(c.value).iso8601(), c.utc) << zone << " " << c.value;
        }
    }
}

// The converter remembers each day's offset; near a transition it must fall back to the
// reference rule value by value. Swept against mktime itself over the months that hold the
// transitions, in whole and half-hour zones, in order and back and forth.
TEST_F(FoundationDate1904, RememberedDayOffsetsAgreeWithMktimeAcrossTransitions)
{
    auto reference = [](std::uint32_t value) {
        const std::int64_t wall = -k1904ToUnix + std::int64_t{value / 3600} * 3600 + std::int64_t{(value / 60) % 60} * 60 +
                                  static_cast<std::int32_t>(value) % 60;
        std::time_t naive = static_cast<std::time_t>(wall);
        std::tm parts{};
        ::gmtime_r(&naive, &parts);
        parts.tm_isdst = -1;
        return Date::fromUnixTime(static_cast<double>(std::mktime(&parts)));
    };
    for (const char* zone : {kCentralEurope, kUSEastern, "LHST-10:30LHDT-11,M10.1.0,M4.1.0"}) {
        useZone(zone);
        zq::LocalDateConverter converter;
        int mismatches = 0;
        for (int month : {3, 4, 10, 11}) {
            const std::uint32_t from = stored(2009, month, 1, 0, 0, 0), to = stored(2009, month + 1, 1, 0, 0, 0);
            for (std::uint32_t v = from, back = to; v < to; v += 1207, back -= 1211)
                for (std::uint32_t value : {v, back, v + 1})
                    if (converter.dateFrom1904Seconds(value) != reference(value) && ++mismatches < 5)
                        ADD_FAILURE() << zone << " " << value;
        }
        EXPECT_EQ(mismatches, 0) << zone;
    }
}

TEST_F(FoundationDate1904, ChangingTZBetweenConversionsIsNoticed)
{
    const std::uint32_t summerNoon = stored(2010, 6, 15, 12, 0, 0);
    useZone("UTC0");
    const Date inUTC = Date::from1904LocalSeconds(summerNoon);
    useZone(kCentralEurope);
    const Date inBerlin = Date::from1904LocalSeconds(summerNoon);
    EXPECT_EQ(inUTC.timeIntervalSinceReferenceDate() - inBerlin.timeIntervalSinceReferenceDate(), 7200.0);
    useZone("UTC0");
    EXPECT_EQ(Date::from1904LocalSeconds(summerNoon), inUTC);
}


// ISO 8601 text works out the calendar itself; it must agree with gmtime's day for day, from
// year 0000 (and before, where gmtime writes the year as it is) to 9999 and beyond.
TEST(FoundationDateText, ISO8601AgreesWithTheCLibraryCalendar)
{
    constexpr double kUnixToReference = 978307200.0;
    auto reference = [](std::int64_t t) {
        const std::time_t seconds = static_cast<std::time_t>(t);
        std::tm parts{};
        ::gmtime_r(&seconds, &parts);
        char text[80];
        std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", parts.tm_year + 1900, parts.tm_mon + 1,
                      parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
        return std::string(text);
    };
    std::vector<std::int64_t> times = {-62167219201, -62167219200, -62162035201, -2208988801, -1, 0, 951782399,
                                       951782400,    4107542400,   253402300799, 253402300800};
    std::uint64_t state = 88172645463325252ull;
    for (int i = 0; i < 20000; ++i) {  // xorshift: spread over the whole range, every hour of the day
        state ^= state << 13, state ^= state >> 7, state ^= state << 17;
        times.push_back(static_cast<std::int64_t>(state % 315569520000ull) - 62167219200 - 1000000);
    }
    for (const std::int64_t t : times)
        ASSERT_EQ(Date(static_cast<double>(t) - kUnixToReference).iso8601(), reference(t)) << t;
    // Fractions of a second are cut towards the past.
    EXPECT_EQ(Date(-0.5 - kUnixToReference).iso8601(), "1969-12-31T23:59:59Z");
}

} // namespace
