// QzTime and QzTimeOut: arithmetic of points in seconds, readings on the
// fine clock, and the two-clock time-out. Waits busy-loop on the
// high-precision counter for a few milliseconds; nothing asserts how long
// anything took, only orderings that hold on monotonic clocks.

#include "qzutil/sys/QzTime.h"

#include <gtest/gtest.h>

#include "qzutil/sys/QzSysTime.h"
#include "qzutil/sys/QzTimeOut.h"

#include "support/QzTestSupport.h"

namespace {

constexpr unsigned kOneHourUs = 3600u * 1000000u;

class QzTimeTest : public ::testing::Test {
protected:
    void SetUp() override { QzTime::Initialise(); }
    void TearDown() override
    {
        QzTime::Terminate();
        EXPECT_EQ(QzSysTime::IsInitialised(), 0);
        EXPECT_EQ(QzSysError::GetFirstComponent(), nullptr);
    }
};

using QzTimeOutTest = QzTimeTest;

// Spins until the high-precision counter has moved `microseconds` past
// `start` (a raw count).
void SpinUntilPreciseCount(LtNat64 start, LtNat64 microseconds)
{
    LtNat64 target = start + microseconds * QzSysTime::GetHPRawCountsPerSec() / 1000000u;
    while (QzSysTime::GetHPRawCount() < target) {
    }
}

// Spins until the tick count has moved `milliseconds` past `start`.
void SpinUntilTickCount(LtNat64 start, LtNat64 milliseconds)
{
    while (QzSysTime::GetLPRawCount() < start + milliseconds) {
    }
}

}  // namespace

TEST_F(QzTimeTest, ArithmeticIsInSecondsToTheNanosecond)
{
    QzTime const origin;
    struct Row {
        char const *name;
        double seconds;
        double difference;  // the moved point less the origin
    } const rows[] = {
        {"whole", 2.0, 2.0},
        {"fraction", 1.5, 1.5},
        {"one_nanosecond", 1e-9, 1e-9},
        {"below_half_a_nanosecond", 0.4e-9, 0.0},
        {"hour_and_a_nanosecond", 3600.000000001, 3600.000000001},
        {"backwards", -0.25, -0.25},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_DOUBLE_EQ((origin + row.seconds) - origin, row.difference);
        EXPECT_DOUBLE_EQ(origin - (origin + row.seconds), -row.difference);
        EXPECT_DOUBLE_EQ((origin - row.seconds) - origin, -row.difference);

        QzTime moved = origin;
        moved.Inc(row.seconds);
        EXPECT_DOUBLE_EQ(moved - origin, row.difference);
        moved -= row.seconds;
        EXPECT_DOUBLE_EQ(moved - origin, 0.0);
        moved += row.seconds;
        EXPECT_DOUBLE_EQ(moved - origin, row.difference);
    }
}

// The clock is the fine one: a point read before a 2 ms spin on the
// high-precision counter lies at least 2 ms before one read after it. On
// the coarse clock the two could be equal.
TEST_F(QzTimeTest, ReadingsComeFromThePreciseClock)
{
    QzTime before = QzTime::GetTimeOfDay();
    SpinUntilPreciseCount(QzSysTime::GetHPRawCount(), 2000);
    QzTime after;
    after.MakeTimeOfDay();
    EXPECT_GE(after - before, 0.002);
    EXPECT_GT(before - QzTime(), 0.0);  // the clock has run since its origin
}

TEST_F(QzTimeOutTest, ZeroTimeOutHasExpiredAtOnce)
{
    QzTimeOut unset;
    EXPECT_TRUE(unset.HasExpired());

    QzTimeOut zero;
    zero.SetTimeOut(0, 10000);
    EXPECT_TRUE(zero.HasExpired());
    EXPECT_TRUE(zero.HasExpired());  // and stays so
}

// Whether the tick count alone is asked (small window) or the precise clock
// decides from the start (window beyond the time-out), an hour has not
// passed.
TEST_F(QzTimeOutTest, LongTimeOutHasNotExpired)
{
    struct Row {
        char const *name;
        unsigned window_us;
    } const rows[] = {
        {"tick_count_first", 10000},
        {"precise_clock_only", kOneHourUs + 1},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        QzTimeOut timeout;
        timeout.SetTimeOut(kOneHourUs, row.window_us);
        EXPECT_FALSE(timeout.HasExpired());
        EXPECT_FALSE(timeout.HasExpired());
    }
}

// A 2 ms time-out, once both clocks have moved past 2 ms, has expired:
// when the precise clock decides after the window, and when the tick count
// decides alone, and a new SetTimeOut starts it again.
TEST_F(QzTimeOutTest, ExpiresOnceBothClocksHavePassedIt)
{
    for (unsigned window_us : {0u, 1000u, 10000u}) {
        SCOPED_TRACE(window_us);
        QzTimeOut timeout;
        timeout.SetTimeOut(2000, window_us);
        SpinUntilPreciseCount(QzSysTime::GetHPRawCount(), 2000);
        SpinUntilTickCount(QzSysTime::GetLPRawCount(), 2);
        EXPECT_TRUE(timeout.HasExpired());

        timeout.SetTimeOut(kOneHourUs, window_us);
        EXPECT_FALSE(timeout.HasExpired());
    }
}

// A window covering the whole time-out leaves the tick count out: the
// precise clock passing 2 ms is enough, whatever the coarse clock reads.
TEST_F(QzTimeOutTest, WindowBeyondTheTimeOutLeavesItToThePreciseClock)
{
    QzTimeOut timeout;
    timeout.SetTimeOut(2000, 10000);
    SpinUntilPreciseCount(QzSysTime::GetHPRawCount(), 2000);
    EXPECT_TRUE(timeout.HasExpired());
}

// With a long time-out the elapsed time is the later of the two clocks'
// readings, so it never goes back and follows the precise clock.
TEST_F(QzTimeOutTest, ElapsedTimeGrows)
{
    QzTimeOut timeout;
    timeout.SetTimeOut(kOneHourUs, 10000);
    double first = timeout.GetTimeElapsedInSeconds();
    EXPECT_GE(first, 0.0);
    SpinUntilPreciseCount(QzSysTime::GetHPRawCount(), 1000);
    double second = timeout.GetTimeElapsedInSeconds();
    LtNat64 second_ms = timeout.GetTimeElapsed();
    EXPECT_GE(second, first);
    EXPECT_GE(second, 0.001);
    EXPECT_GE(second_ms, 1u);
    EXPECT_GE(timeout.GetTimeElapsedInSeconds(), second);
}
