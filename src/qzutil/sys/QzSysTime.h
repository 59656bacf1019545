// QzSysTime.h: the wall clock and its calendar forms, conversions to the
// 100-nanosecond counts of other epochs, ISO 8601 and local display text,
// and the two interval counters (low and high precision).
#pragma once

#include <ctime>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"

class QzStringBuffer;
class QzWideStringBuffer;

// Class of statics. Times are LtInt64 seconds since 1970-01-01 00:00:00
// UTC; calendar fields are those of std::tm (year - 1900, month 0 to 11).
//
// Threads:   every operation may run on any thread. The only state is the
//            decision of Initialise whether the high-precision counter is in
//            use; it is written at start-up, before other threads run.
// Lifetime:  a counted component over QzError and QzString. The conversions
//            and clocks work without it; HasHPCounter answers false until
//            Initialise has decided.
class QZUTIL_API QzSysTime {
public:
    // Decides whether the high-precision counter counts (allowed by default,
    // and only when its resolution beats the low-precision one) and logs
    // both resolutions, one line each: "QzSysTime: LP resolution <µs> us\n".
    static void Initialise();
    static void Terminate();
    static int IsInitialised();

    static LtInt64 GetTimeNow();

    // The calendar fields of `epoch_seconds` in UTC, or in the local time
    // zone (TZ, else the system's). False for a null `fields` or a time
    // whose year does not fit the fields; *fields is then unspecified.
    static bool GmTime(LtInt64 epoch_seconds, std::tm *fields);
    static bool LocalTime(LtInt64 epoch_seconds, std::tm *fields);

    // The time of calendar fields read as UTC, or as local time (tm_isdst
    // -1 lets the zone decide whether summer time applies). Fields out of
    // range are carried over (13 months is a year and a month), and *fields
    // is rewritten in normal form. -1 for a null `fields` or a time that
    // cannot be represented.
    static LtInt64 TimeGm(std::tm *fields);
    static LtInt64 TimeLocal(std::tm *fields);

    // 100-nanosecond counts since 1601-01-01 UTC (file times) and since
    // 0001-01-01 (date-time ticks). The From forms drop the fraction of a
    // second, rounding toward zero.
    static LtInt64 ToFileTime(LtInt64 epoch_seconds);
    static LtInt64 FromFileTime(LtInt64 file_time);
    static LtInt64 ToDateTimeTicks(LtInt64 epoch_seconds);
    static LtInt64 FromDateTimeTicks(LtInt64 ticks);

    // The local date, time of day, or both, in the user's display form
    // (the LC_TIME of the environment; "C" if that names no installed
    // locale). True with *out set; false with *out untouched for a null
    // out or a time that has no calendar form. Text the multi-byte code
    // page cannot decode gives false, *out holding the decoder's complaint.
    static bool FormatDate(LtInt64 epoch_seconds, QzWideStringBuffer *out);
    static bool FormatTime(LtInt64 epoch_seconds, QzWideStringBuffer *out);
    static bool FormatDateTime(LtInt64 epoch_seconds, QzWideStringBuffer *out);

    // "YYYY-MM-DDTHH:MM:SS" in UTC. False, with *out untouched, for a null
    // out, a negative time, or a year of more than four digits.
    static bool ToISO8601FormatUTC(LtInt64 epoch_seconds, QzStringBuffer *out);

    // Reads exactly that 19-character form back. Month 1 to 12, day 1 to
    // 31, hour 0 to 23, minute 0 to 59, second 0 to 61 (leap seconds carry
    // into the next minute); a day past the month's end carries into the
    // next month. Times before 1970 are refused, as ToISO8601FormatUTC
    // cannot write them. False, with *epoch_seconds untouched, for null
    // arguments or text that breaks a rule.
    static bool FromISO8601FormatUTC(char const *text, LtInt64 *epoch_seconds);

    // The low-precision counter: milliseconds of a coarse monotonic clock
    // (the library's tick count), which never wraps.
    static LtNat64 GetLPRawCount();
    static LtNat64 GetLPRawCountsPerSec();
    // The step of that clock in microseconds (10,000 if the system cannot
    // say).
    static double GetLPResolution();
    static double GetLPSeconds();

    // The high-precision counter: a fine monotonic clock. HasHPCounter is
    // true once Initialise has put it in use. The raw count can always be
    // read; GetHPRawCountsPerSec is 0 on a system without such a clock.
    static bool HasHPCounter();
    static LtNat64 GetHPRawCount();
    static LtNat64 GetHPRawCountsPerSec();
};
