// The two log regions: what fits where, the wrap of the second region, and
// the replay that shows head, gap marker and tail.

#include <string>

#include <gtest/gtest.h>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzSysError.h"

#include "support/QzTestSupport.h"

namespace {

constexpr std::size_t kRegion = QzSysError::kLogRegionSize;

class QzSysErrorLogTest : public ::testing::Test {
protected:
    void SetUp() override { QzSysError::ClearLogBuffer(); }
    void TearDown() override { QzSysError::ClearLogBuffer(); }
};

}  // namespace

// Works with no component initialised and no lock.
TEST_F(QzSysErrorLogTest, LogsBeforeInitialiseAndNullAsText)
{
    ASSERT_EQ(QzSysError::IsInitialised(), 0);
    QzSysError::LogUTF8String("first ");
    QzSysError::LogUTF8String(nullptr);
    QzSysError::LogUTF8String(" \xC3\xA9");
    EXPECT_EQ(ReplayLog(), "first (null) \xC3\xA9");
}

// A text of 524,287 bytes fits only in an empty region: after one byte it
// moves to the second region, leaving the first region's tail unused.
TEST_F(QzSysErrorLogTest, LargestTextNeedsAnEmptyRegion)
{
    std::string const largest(kRegion - 1, 'L');
    QzSysError::LogUTF8String(largest.c_str());
    EXPECT_EQ(ReplayLog(), largest);
    QzSysError::ClearLogBuffer();
    QzSysError::LogUTF8String("x");
    QzSysError::LogUTF8String(largest.c_str());
    EXPECT_EQ(ReplayLog(), "x" + largest);
}

TEST_F(QzSysErrorLogTest, TooLongTextIsPostedNotLogged)
{
    QzPostRecorder::Posts().clear();
    QzSysError::Initialise();
    QzSysError::SetHandler(QzPostRecorder::Handler, QzSysError::eERROR, QzSysError::GetComponent(),
                           -1);
    std::string const too_long(kRegion, 'T');
    QzSysError::LogUTF8String(too_long.c_str());
    ASSERT_EQ(QzPostRecorder::Posts().size(), 1u);
    EXPECT_EQ(QzPostRecorder::Posts()[0].message, u"Too long to log");
    EXPECT_EQ(ReplayLog().find("TTTT"), std::string::npos);
    QzSysError::Terminate();
}

// After more than 1 MiB the replay keeps the start of the run, the gap
// marker, and the end of the run, in order.
TEST_F(QzSysErrorLogTest, WrapKeepsHeadAndTail)
{
    std::string const line(999, '-');
    int const lines = 1200;  // about 1.2 MB
    for (int i = 0; i < lines; ++i)
        QzSysError::LogUTF8String((std::to_string(i) + line + "\n").c_str());
    std::string const log = ReplayLog();
    EXPECT_EQ(log.rfind("0-", 0), 0u) << "the head is kept";
    std::size_t const gap = log.find(".\n.\n.\n.\n.\n");
    ASSERT_NE(gap, std::string::npos);
    std::string const last = std::to_string(lines - 1) + line + "\n";
    EXPECT_EQ(log.substr(log.size() - last.size()), last) << "the tail is kept";
    EXPECT_EQ(log[gap - 1], '\n') << "the first region ends with a whole text";
    EXPECT_LT(log.size(), 2 * kRegion);
    EXPECT_GT(log.size(), kRegion);
}

TEST_F(QzSysErrorLogTest, ClearStartsOver)
{
    std::string const half(kRegion / 2 + 10, 'h');
    QzSysError::LogUTF8String(half.c_str());
    QzSysError::LogUTF8String(half.c_str());  // into the second region
    QzSysError::ClearLogBuffer();
    EXPECT_EQ(ReplayLog(), "");
    QzSysError::LogUTF8String("again");
    EXPECT_EQ(ReplayLog(), "again");
}

// The first switch-on of the console replays the log there; from then on
// each text goes to the console as it is logged, until switched off.
TEST_F(QzSysErrorLogTest, ConsoleGetsReplayThenLiveText)
{
    QzSysError::LogUTF8String("before;");
    testing::internal::CaptureStdout();
    QzSysError::SetConsoleEnable(1);
    EXPECT_EQ(QzSysError::IsConsoleEnable(), 1);
    EXPECT_EQ(QzSysError::IsComponentConsoleEnable(), 1);
    QzSysError::LogUTF8String("live;");
    QzSysError::SetConsoleEnable(0);
    QzSysError::LogUTF8String("quiet;");
    QzSysError::SetConsoleEnable(1);  // no second replay
    QzSysError::SetConsoleEnable(0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "before;live;");
    EXPECT_EQ(QzSysError::IsComponentConsoleEnable(), 0);
    EXPECT_EQ(ReplayLog(), "before;live;quiet;");
}
