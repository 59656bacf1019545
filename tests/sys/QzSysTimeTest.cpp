// QzSysTime: epoch conversions against hand-worked counts, ISO 8601 bounds,
// calendar fields across leap days and 2038, local time under fixed zones,
// display text in the C locale, the counters against the system clocks, and
// the lines Initialise logs.

#include "qzutil/sys/QzSysTime.h"

#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideStringBuffer.h"

#include "support/QzTestSupport.h"
#include "sys/QzScopedEnvironment.h"

namespace {

// The largest time: its year does not fit the calendar fields' int.
constexpr LtInt64 kLastTime = std::numeric_limits<LtInt64>::max();

// One environment variable changed for a scope; the zone is re-read on
// the change and again once the old value is back, in case it is TZ.
class ScopedEnv {
public:
    ScopedEnv(char const *name, char const *value)
    {
        m_environment.Set(name, value);
        tzset();
    }

private:
    struct ZoneReread {
        ~ZoneReread() { tzset(); }
    } m_reread;  // declared first, so destroyed after m_environment restored
    QzScopedEnvironment m_environment;
};

class QzSysTimeTest : public ::testing::Test {
protected:
    void SetUp() override { QzSysTime::Initialise(); }
    void TearDown() override
    {
        QzSysTime::Terminate();
        EXPECT_EQ(QzSysError::GetFirstComponent(), nullptr);
    }
};

// Calendar fields of a UTC time, with the day of week (0 Sunday) and of
// the year (0 for 1 January).
struct CalendarCase {
    char const *name;
    LtInt64 time;
    int year, month, day, hour, minute, second, weekday, year_day;
};

const CalendarCase kCalendarCases[] = {
    {"epoch", 0, 1970, 1, 1, 0, 0, 0, 4, 0},
    {"second_before_epoch", -1, 1969, 12, 31, 23, 59, 59, 3, 364},
    {"leap_day_2000", 951782400, 2000, 2, 29, 0, 0, 0, 2, 59},
    {"leap_day_2024", 1709164800, 2024, 2, 29, 0, 0, 0, 4, 59},
    {"last_32_bit_second", 2147483647, 2038, 1, 19, 3, 14, 7, 2, 18},
    {"first_past_32_bits", 2147483648, 2038, 1, 19, 3, 14, 8, 2, 18},
    {"no_leap_day_2100", 4107542400, 2100, 3, 1, 0, 0, 0, 1, 59},  // 2100 is not a leap year
    {"last_four_digit_year", 253402300799, 9999, 12, 31, 23, 59, 59, 5, 364},
};

void ExpectFields(std::tm const &fields, CalendarCase const &c)
{
    EXPECT_EQ(fields.tm_year + 1900, c.year);
    EXPECT_EQ(fields.tm_mon + 1, c.month);
    EXPECT_EQ(fields.tm_mday, c.day);
    EXPECT_EQ(fields.tm_hour, c.hour);
    EXPECT_EQ(fields.tm_min, c.minute);
    EXPECT_EQ(fields.tm_sec, c.second);
    EXPECT_EQ(fields.tm_wday, c.weekday);
    EXPECT_EQ(fields.tm_yday, c.year_day);
}

std::string Text(QzStringBuffer const &buffer)
{
    return buffer.IsNull() ? std::string("<null>") : std::string(buffer.GetString());
}

}  // namespace

// File times count 100 ns from 1601, date-time ticks from the year 1. The
// expected counts are worked by hand: 1601 to 1970 is 134,774 days, the year
// 1 to 1970 is 719,162 days.
TEST(QzSysTimeConversionTest, EpochCountsMatchHandWorkedValues)
{
    struct Row {
        char const *name;
        LtInt64 time;
        LtInt64 file_time;
        LtInt64 ticks;
    } const rows[] = {
        {"epoch", 0, 116444736000000000, 621355968000000000},
        {"year_2000", 946684800, 125911584000000000, 630822816000000000},
        {"start_of_1601", -11644473600, 0, 504911232000000000},
        {"start_of_year_1", -62135596800, -504911232000000000, 0},
        {"second_before_epoch", -1, 116444735990000000, 621355967990000000},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(QzSysTime::ToFileTime(row.time), row.file_time);
        EXPECT_EQ(QzSysTime::FromFileTime(row.file_time), row.time);
        EXPECT_EQ(QzSysTime::ToDateTimeTicks(row.time), row.ticks);
        EXPECT_EQ(QzSysTime::FromDateTimeTicks(row.ticks), row.time);
    }
}

// The fraction of a second is dropped toward zero, so a count just short of
// the epoch's is still second 0 before it, and one just past is second 0.
TEST(QzSysTimeConversionTest, FromFormsDropTheFractionTowardZero)
{
    EXPECT_EQ(QzSysTime::FromFileTime(116444736000000000 + 9999999), 0);
    EXPECT_EQ(QzSysTime::FromFileTime(116444736000000000 - 1), -1);
    EXPECT_EQ(QzSysTime::FromDateTimeTicks(621355968000000000 + 9999999), 0);
    EXPECT_EQ(QzSysTime::FromDateTimeTicks(621355968000000000 - 1), -1);
}

// GmTime against hand-worked calendars, and TimeGm back to the same time.
TEST(QzSysTimeCalendarTest, GmTimeAndTimeGmRoundTrip)
{
    for (CalendarCase const &c : kCalendarCases) {
        SCOPED_TRACE(c.name);
        std::tm fields = {};
        ASSERT_TRUE(QzSysTime::GmTime(c.time, &fields));
        ExpectFields(fields, c);
        EXPECT_EQ(QzSysTime::TimeGm(&fields), c.time);
    }
}

// TimeGm carries fields out of range and rewrites them in normal form.
TEST(QzSysTimeCalendarTest, TimeGmCarriesOverflowingFields)
{
    std::tm fields = {};
    fields.tm_year = 2023 - 1900;
    fields.tm_mon = 12;  // the thirteenth month: January 2024
    fields.tm_mday = 1;
    EXPECT_EQ(QzSysTime::TimeGm(&fields), 1704067200);
    EXPECT_EQ(fields.tm_year + 1900, 2024);
    EXPECT_EQ(fields.tm_mon, 0);
}

TEST(QzSysTimeCalendarTest, NullFieldsAndUnrepresentableTimesFail)
{
    std::tm fields = {};
    EXPECT_FALSE(QzSysTime::GmTime(0, nullptr));
    EXPECT_FALSE(QzSysTime::LocalTime(0, nullptr));
    EXPECT_EQ(QzSysTime::TimeGm(nullptr), -1);
    EXPECT_EQ(QzSysTime::TimeLocal(nullptr), -1);
    EXPECT_FALSE(QzSysTime::GmTime(kLastTime, &fields));
}

// Under UTC local time is UTC; under a zone three hours east (a POSIX zone
// string, which needs no zone files) the local clock reads three hours on.
TEST(QzSysTimeCalendarTest, LocalTimeFollowsTheZone)
{
    {
        ScopedEnv zone("TZ", "UTC");
        for (CalendarCase const &c : kCalendarCases) {
            SCOPED_TRACE(c.name);
            std::tm fields = {};
            ASSERT_TRUE(QzSysTime::LocalTime(c.time, &fields));
            ExpectFields(fields, c);
            fields.tm_isdst = -1;
            EXPECT_EQ(QzSysTime::TimeLocal(&fields), c.time);
        }
    }
    ScopedEnv zone("TZ", "EAST-3");
    std::tm fields = {};
    ASSERT_TRUE(QzSysTime::LocalTime(951782400, &fields));  // 2000-02-29 00:00 UTC
    EXPECT_EQ(fields.tm_mday, 29);
    EXPECT_EQ(fields.tm_hour, 3);
    fields.tm_isdst = -1;
    EXPECT_EQ(QzSysTime::TimeLocal(&fields), 951782400);
}

TEST_F(QzSysTimeTest, ToISO8601WritesNineteenCharactersInUTC)
{
    struct Row {
        char const *name;
        LtInt64 time;
        char const *text;  // null: refused
    } const rows[] = {
        {"epoch", 0, "1970-01-01T00:00:00"},
        {"leap_day", 951782400, "2000-02-29T00:00:00"},
        {"past_32_bits", 2147483648, "2038-01-19T03:14:08"},
        {"last_four_digit_year", 253402300799, "9999-12-31T23:59:59"},
        {"five_digit_year", 253402300800, nullptr},
        {"negative", -1, nullptr},
    };
    ScopedEnv zone("TZ", "EAST-3");  // must not leak into UTC text
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        QzStringBuffer out("sentinel");
        EXPECT_EQ(QzSysTime::ToISO8601FormatUTC(row.time, &out), row.text != nullptr);
        EXPECT_EQ(Text(out), row.text != nullptr ? row.text : "sentinel");
    }
    EXPECT_FALSE(QzSysTime::ToISO8601FormatUTC(0, nullptr));
}

TEST_F(QzSysTimeTest, FromISO8601ChecksLengthAndFieldRanges)
{
    struct Row {
        char const *name;
        char const *text;
        bool ok;
        LtInt64 time;
    } const rows[] = {
        {"epoch", "1970-01-01T00:00:00", true, 0},
        {"past_32_bits", "2038-01-19T03:14:08", true, 2147483648},
        {"last_four_digit_year", "9999-12-31T23:59:59", true, 253402300799},
        {"second_60", "2000-01-01T00:00:60", true, 946684860},
        {"second_61", "2000-01-01T00:00:61", true, 946684861},
        {"second_62", "2000-01-01T00:00:62", false, 0},
        {"day_31_of_february", "2001-02-31T00:00:00", true, 983577600},  // carried to 3 March
        {"before_epoch", "1969-12-31T23:59:59", false, 0},
        {"month_0", "2000-00-01T00:00:00", false, 0},
        {"month_13", "2000-13-01T00:00:00", false, 0},
        {"day_0", "2000-01-00T00:00:00", false, 0},
        {"day_32", "2000-01-32T00:00:00", false, 0},
        {"hour_24", "2000-01-01T24:00:00", false, 0},
        {"hour_23", "2000-01-01T23:00:00", true, 946767600},
        {"minute_60", "2000-01-01T00:60:00", false, 0},
        {"minute_59", "2000-01-01T00:59:00", true, 946688340},
        {"twenty_characters", "1970-01-01T00:00:00Z", false, 0},
        {"eighteen_characters", "1970-01-01T00:00:0", false, 0},
        {"blank_for_T", "1970-01-01 00:00:00", false, 0},
        {"letters", "abcd-ef-ghTij:kl:mn", false, 0},
        {"empty", "", false, 0},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        LtInt64 time = -12345;
        EXPECT_EQ(QzSysTime::FromISO8601FormatUTC(row.text, &time), row.ok);
        EXPECT_EQ(time, row.ok ? row.time : -12345);
    }
    LtInt64 time = 0;
    EXPECT_FALSE(QzSysTime::FromISO8601FormatUTC(nullptr, &time));
    EXPECT_FALSE(QzSysTime::FromISO8601FormatUTC("1970-01-01T00:00:00", nullptr));
}

// In the C locale "%x" is mm/dd/yy and "%X" hh:mm:ss. LC_ALL naming a
// locale that is not installed falls back to the same.
TEST_F(QzSysTimeTest, FormatsFollowTheEnvironmentsTimeLocale)
{
    ScopedEnv zone("TZ", "UTC");
    LtInt64 const time = 951782400 + 3723;  // 2000-02-29 01:02:03
    for (char const *locale : {"C", "xx_NOWHERE.UTF-8"}) {
        SCOPED_TRACE(locale);
        ScopedEnv all("LC_ALL", locale);
        QzWideStringBuffer out;
        ASSERT_TRUE(QzSysTime::FormatDate(time, &out));
        EXPECT_EQ(ToU16(out.GetString()), u"02/29/00");
        ASSERT_TRUE(QzSysTime::FormatTime(time, &out));
        EXPECT_EQ(ToU16(out.GetString()), u"01:02:03");
        ASSERT_TRUE(QzSysTime::FormatDateTime(time, &out));
        EXPECT_EQ(ToU16(out.GetString()), u"02/29/00 01:02:03");
    }
    ScopedEnv zone_east("TZ", "EAST-3");
    QzWideStringBuffer out;
    ASSERT_TRUE(QzSysTime::FormatTime(time, &out));
    EXPECT_EQ(ToU16(out.GetString()), u"04:02:03");
}

TEST_F(QzSysTimeTest, FormatsRefuseNullOutputAndTimesWithoutACalendar)
{
    QzWideStringBuffer out(u"sentinel");
    EXPECT_FALSE(QzSysTime::FormatDate(kLastTime, &out));
    EXPECT_FALSE(QzSysTime::FormatTime(kLastTime, &out));
    EXPECT_FALSE(QzSysTime::FormatDateTime(kLastTime, &out));
    EXPECT_EQ(ToU16(out.GetString()), u"sentinel");
    EXPECT_FALSE(QzSysTime::FormatDate(0, nullptr));
}

// The wall clock is time(): a reading lies between two of time()'s.
TEST_F(QzSysTimeTest, TimeNowIsTheSystemsWallClock)
{
    LtInt64 before = static_cast<LtInt64>(time(nullptr));
    LtInt64 now = QzSysTime::GetTimeNow();
    LtInt64 after = static_cast<LtInt64>(time(nullptr));
    EXPECT_LE(before, now);
    EXPECT_LE(now, after);
}

static LtNat64 ClockNanoseconds(clockid_t clock)
{
    struct timespec now;
    clock_gettime(clock, &now);
    return static_cast<LtNat64>(now.tv_sec) * 1000000000u + static_cast<LtNat64>(now.tv_nsec);
}

// The low-precision counter counts milliseconds of the coarse monotonic
// clock, the high-precision one nanoseconds of the fine one: each reading
// lies between two readings of its clock in its unit.
TEST_F(QzSysTimeTest, CountersReadTheMonotonicClocksInTheirUnits)
{
    EXPECT_EQ(QzSysTime::GetLPRawCountsPerSec(), 1000u);
    EXPECT_EQ(QzSysTime::GetHPRawCountsPerSec(), 1000000000u);
    EXPECT_TRUE(QzSysTime::HasHPCounter());

    LtNat64 coarse_before = ClockNanoseconds(CLOCK_MONOTONIC_COARSE) / 1000000u;
    LtNat64 lp = QzSysTime::GetLPRawCount();
    double lp_seconds = QzSysTime::GetLPSeconds();
    LtNat64 coarse_after = ClockNanoseconds(CLOCK_MONOTONIC_COARSE) / 1000000u;
    EXPECT_LE(coarse_before, lp);
    EXPECT_LE(lp, coarse_after);
    EXPECT_LE(static_cast<double>(lp) / 1000.0, lp_seconds);
    EXPECT_LE(lp_seconds, static_cast<double>(coarse_after) / 1000.0);

    LtNat64 fine_before = ClockNanoseconds(CLOCK_MONOTONIC);
    LtNat64 hp = QzSysTime::GetHPRawCount();
    LtNat64 hp_again = QzSysTime::GetHPRawCount();
    LtNat64 fine_after = ClockNanoseconds(CLOCK_MONOTONIC);
    EXPECT_LE(fine_before, hp);
    EXPECT_LE(hp, hp_again);
    EXPECT_LE(hp_again, fine_after);
}

TEST_F(QzSysTimeTest, LPResolutionIsTheCoarseClocksStepInMicroseconds)
{
    struct timespec step;
    ASSERT_EQ(clock_getres(CLOCK_MONOTONIC_COARSE, &step), 0);
    double expected_us =
        static_cast<double>(step.tv_sec) * 1e6 + static_cast<double>(step.tv_nsec) / 1e3;
    EXPECT_DOUBLE_EQ(QzSysTime::GetLPResolution(), expected_us);
}

// The first Initialise logs both resolutions; the fine clock's 1 ns step
// beats the coarse one, so the counter stays in use and nothing is disabled.
TEST(QzSysTimeComponentTest, InitialiseLogsBothResolutions)
{
    ASSERT_EQ(QzSysTime::IsInitialised(), 0);
    QzSysError::ClearLogBuffer();
    QzSysTime::Initialise();
    std::string log = ReplayLog();

    char lp_line[64];
    std::snprintf(lp_line, sizeof(lp_line), "QzSysTime: LP resolution %g us\n",
                  QzSysTime::GetLPResolution());
    EXPECT_NE(log.find(lp_line), std::string::npos) << log;
    EXPECT_NE(log.find("QzSysTime: HP resolution 0.001 us\n"), std::string::npos) << log;
    EXPECT_EQ(log.find("Disabling HP counter"), std::string::npos) << log;
    EXPECT_TRUE(QzSysTime::HasHPCounter());
    EXPECT_NE(QzSysError::FindComponent("QzSysTime"), nullptr);

    // A nested Initialise only counts: nothing more is logged.
    QzSysError::ClearLogBuffer();
    QzSysTime::Initialise();
    EXPECT_EQ(ReplayLog().find("QzSysTime:"), std::string::npos);
    QzSysTime::Terminate();
    EXPECT_EQ(QzSysTime::IsInitialised(), 1);

    QzSysTime::Terminate();
    EXPECT_EQ(QzSysTime::IsInitialised(), 0);
    EXPECT_EQ(QzSysError::GetFirstComponent(), nullptr);
}
