// QzError: the log line of a post, narrow and stream posting, display
// formatting, the print handlers, tracing, and the message-box slots.

#include "qzutil/frame/QzError.h"

#include <clocale>
#include <string>

#include <gtest/gtest.h>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzWideString.h"

#include "support/QzTestSupport.h"

namespace {

QzComponent g_unit;

class QzErrorTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::setlocale(LC_CTYPE, "C.UTF-8");
        QzError::Initialise();
        g_unit.Initialise("Unit", "test component");
        QzSysError::ClearLogBuffer();
        QzPostRecorder::Posts().clear();
        QzPostRecorder::Answer() = 1;
        QzSysError::SetHandler(QzPostRecorder::Handler, QzSysError::eANY, &g_unit, -1);
        QzSysError::SetHandler(QzPostRecorder::Handler, QzSysError::eANY,
                               static_cast<QzComponent *>(nullptr), -1);
    }
    void TearDown() override
    {
        QzSysError::RemoveHandler(QzSysError::eANY, static_cast<QzComponent *>(nullptr), -1);
        QzSysError::SetTraceEnable(0);
        QzSysError::SetTraceFlag(0);
        g_unit.Terminate();
        QzError::Terminate();
        EXPECT_EQ(QzSysError::GetFirstComponent(), nullptr);
        std::setlocale(LC_CTYPE, "C");
    }

    static std::u16string LastMessage()
    {
        return QzPostRecorder::Posts().empty() ? u"<none>" : QzPostRecorder::Posts().back().message;
    }
};

}  // namespace

// The four shapes of the log line, by id/data and by severity word.
TEST_F(QzErrorTest, LogLineLayout)
{
    int datum = 0;
    char address[32];
    std::snprintf(address, sizeof(address), "%llx",
                  static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(&datum)));
    struct Row {
        char const *name;
        QzSysError::Severity severity;
        int id;
        void *data;
        std::string line;
    } const rows[] = {
        {"word_plain", QzSysError::eWARNING, -1, nullptr, "eWARNING: Unit, \"m 1\"\n"},
        {"no_word_plain", QzSysError::eINFO, -1, nullptr, "Unit, \"m 1\"\n"},
        {"word_id", QzSysError::eERROR, 12, &datum,
         std::string("eERROR: Unit id(12), data(") + address + "), \"m 1\"\n"},
        {"no_word_id", QzSysError::eINFO, 3, nullptr, "Unit id(3), data(0), \"m 1\"\n"},
        {"unknown_word", static_cast<QzSysError::Severity>(7), -1, nullptr,
         "UKNOWN: Unit, \"m 1\"\n"},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        QzSysError::ClearLogBuffer();
        QzError::Post(row.severity, &g_unit, row.id, row.data, "m %d", 1);
        EXPECT_EQ(ReplayLog(), row.line);
    }
    QzSysError::ClearLogBuffer();
    QzError::Post(QzSysError::eWARNING, nullptr, u"wide \u00E9");
    EXPECT_EQ(ReplayLog(), "eWARNING: , \"wide \xC3\xA9\"\n") << "null component, UTF-8 message";
}

// A message longer than the log takes in one text goes there in pieces,
// whole, and posts nothing more (no "Too long to log" from inside the post).
TEST_F(QzErrorTest, LongMessageIsLoggedInPieces)
{
    std::u16string const message(300000, u'\u00E9');  // 600,000 bytes of UTF-8
    QzError::Post(QzSysError::eWARNING, &g_unit, u"%ls", message.c_str());
    EXPECT_EQ(QzPostRecorder::Posts().size(), 1u);
    std::string utf8;
    for (std::size_t i = 0; i < message.size(); ++i)
        utf8 += "\xC3\xA9";
    EXPECT_EQ(ReplayLog(), "eWARNING: Unit, \"" + utf8 + "\"\n");
}

// A stream post reads narrow text as UTF-8; a printf-style post reads it as
// the platform's multi-byte text, which refuses what is not valid there.
TEST_F(QzErrorTest, NarrowEncodingsOfTheTwoPostForms)
{
    QzError::Post(QzSysError::eWARNING, &g_unit) << "caf\xC3\xA9 " << 42 << ' ' << true;
    EXPECT_EQ(LastMessage(), u"caf\u00E9 4232TRUE") << "a char is a number: no separators";
    QzError::Post(QzSysError::eWARNING, &g_unit, "caf\xC3\xA9");
    EXPECT_EQ(LastMessage(), u"caf\u00E9");
    QzError::Post(QzSysError::eWARNING, &g_unit) << "bad \xFF";
    EXPECT_EQ(LastMessage(), u"bad \uFFFD");
    QzError::Post(QzSysError::eWARNING, &g_unit, "bad \xFF");
    EXPECT_EQ(LastMessage(), u"MBSTOWCS CONVERSION FAILED!");
}

TEST_F(QzErrorTest, StreamPostPiecesAndKey)
{
    int datum = 0;
    QzError::Post(QzSysError::eERROR, &g_unit, 5, &datum)
        << u"w" << -3 << 4000000000u << -5000000000LL << 18000000000000000000ULL << 0.5 << false
        << static_cast<void const *>(nullptr) << QzString("s") << QzWideString(u"W");
    ASSERT_EQ(QzPostRecorder::Posts().size(), 1u);
    QzRecordedPost const &post = QzPostRecorder::Posts()[0];
    EXPECT_EQ(post.message,
              u"w-34000000000-5000000000180000000000000000000.5FALSE0000000000000000sW");
    EXPECT_EQ(post.severity, QzSysError::eERROR);
    EXPECT_EQ(post.id, 5);
    EXPECT_EQ(post.data, &datum);
}

TEST_F(QzErrorTest, FormatErrorAndFilter)
{
    struct Row {
        char const *name;
        QzSysError::Severity severity;
        bool filter;
        char16_t const *message;
        int fatal;
        std::u16string shown;
    } const rows[] = {
        {"assert_filtered", QzSysError::eASSERT, true, u"x > 0 at file.cpp:12", 1, u"x > 0"},
        {"precondition_filtered", QzSysError::ePRECONDITION, true, u"p at q at r", 1, u"p"},
        {"error_not_filtered", QzSysError::eERROR, true, u"x at file.cpp:12", 1,
         u"x at file.cpp:12"},
        {"leading_at_kept", QzSysError::eASSERT, true, u" at start", 1, u" at start"},
        {"unfiltered_form", QzSysError::eASSERT, false, u"x at y", 1, u"x at y"},
        {"warning", QzSysError::eWARNING, false, u"w", 0, u"w"},
        {"debug", QzSysError::eDEBUG, false, u"d", 0, u"d"},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        QzWideStringBuffer out;
        int const fatal =
            row.filter ? QzError::FilterAndFormatError(row.severity, &g_unit, 4, nullptr,
                                                       row.message, &out)
                       : QzError::FormatError(row.severity, &g_unit, 4, nullptr, row.message, &out);
        EXPECT_EQ(fatal, row.fatal);
        std::u16string const word = row.severity == QzSysError::eASSERT         ? u"eASSERT"
                                    : row.severity == QzSysError::ePRECONDITION ? u"ePRECONDITION"
                                    : row.severity == QzSysError::eERROR        ? u"eERROR"
                                    : row.severity == QzSysError::eWARNING      ? u"eWARNING"
                                                                                : u"eDEBUG";
        EXPECT_EQ(ToU16(out.GetString()), u"Handle Severity(" + word +
                                              u") component(Unit) id(4), data(0000000000000000), "
                                              u"msg(" +
                                              row.shown + u")");
    }
    QzWideStringBuffer out;
    EXPECT_EQ(QzError::FormatError(QzSysError::eINFO, nullptr, -1, nullptr, u"i", &out), 1);
    EXPECT_NE(ToU16(out.GetString()).find(u"Severity(UNKNOWN) component()"), std::u16string::npos);
}

TEST_F(QzErrorTest, PrintHandlersWriteToStandardOutput)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(QzError::PrintErrorHandler(QzSysError::eASSERT, &g_unit, 1, nullptr, u"a at b"), 1);
    EXPECT_EQ(
        QzError::PrintAndFilterErrorHandler(QzSysError::eASSERT, &g_unit, 1, nullptr, u"a at b"),
        1);
    EXPECT_EQ(QzError::PrintAndExitIgnoreWarningErrorHandler(QzSysError::eWARNING, &g_unit, 1,
                                                             nullptr, u"quiet"),
              1);
    EXPECT_EQ(QzError::PrintAndExitErrorHandler(QzSysError::eWARNING, &g_unit, 1, nullptr, u"w"),
              1);
    std::string const printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(printed,
              "Handle Severity(eASSERT) component(Unit) id(1), data(0000000000000000), "
              "msg(a at b)\n"
              "Handle Severity(eASSERT) component(Unit) id(1), data(0000000000000000), msg(a)\n"
              "Handle Severity(eWARNING) component(Unit) id(1), data(0000000000000000), msg(w)\n");
}

TEST_F(QzErrorTest, TracePrefixFollowsFlags)
{
    EXPECT_FALSE(QzError::Trace(1, "off"));
    QzSysError::SetTraceEnable(1);
    QzSysError::SetTraceLevel(2);
    EXPECT_FALSE(QzError::Trace(3, "above the level"));
    EXPECT_EQ(ReplayLog(), "");
    QzSysError::SetTraceFlag(0x1 | 0x2);
    EXPECT_TRUE(QzError::Trace(2, "src.cpp", 17, "v=%d", 5));
    EXPECT_TRUE(QzError::Trace(1, u"w%ls", u"ide"));
    EXPECT_TRUE(QzError::TraceWideString(0, u"%plain"));
    QzError::Trace(1) << "s" << 1;
    EXPECT_EQ(ReplayLog(), "Trace:2:src.cpp:17:v=5Trace:1:wideTrace:0:%plainTrace:1:s1");
    QzSysError::ClearLogBuffer();
    QzSysError::SetTraceFlag(0x4 | 0x8);
    QzError::Trace(1, "t");
    std::string const log = ReplayLog();
    // "Trace:hh-mm-ss:<tid>:t"
    ASSERT_GE(log.size(), 17u) << log;
    EXPECT_EQ(log.substr(0, 6), "Trace:");
    EXPECT_EQ(log[8], '-');
    EXPECT_EQ(log[11], '-');
    EXPECT_EQ(log.substr(log.size() - 2), ":t");
}

TEST_F(QzErrorTest, LogForms)
{
    QzError::Log("%s=%d;", "a", 1);
    QzError::Log(u"%ls;", u"b");
    QzError::LogInt32(-2);
    QzError::LogInt64(-3000000000LL);
    QzError::LogNat32(4000000000u);
    QzError::LogNat64(5);
    QzError::LogFloat(0.25);
    QzError::LogPtr(nullptr);
    QzError::Log() << ";" << u"x" << 7 << false;
    EXPECT_EQ(ReplayLog(), "a=1;b;-2-30000000004000000000"
                           "50.250000000000000000;x7FALSE");
}

TEST_F(QzErrorTest, MessageBoxFlagsAndResults)
{
    struct FlagRow {
        int buttons, icon, help_id, flags;
    } const flag_rows[] = {
        {0, 0, -1, 0x2},  {1, 1, -1, 0x42}, {2, 2, -1, 0x20},  {3, 3, -1, 0x31},
        {4, 4, -1, 0x15}, {5, 9, -1, 0x4},  {6, 0, 0, 0x4003}, {2, 4, 7, 0x4010},
    };
    for (FlagRow const &row : flag_rows) {
        EXPECT_EQ(QzError::ConvertMBFlagsToWin32(
                      static_cast<QzError::MessageBoxButtons>(row.buttons),
                      static_cast<QzError::MessageBoxIcon>(row.icon), row.help_id),
                  row.flags)
            << "buttons " << row.buttons << " icon " << row.icon;
    }
    int const results[][2] = {{1, 7}, {2, 3}, {3, 2}, {4, 8}, {5, 5}, {6, 10}, {7, 6}, {99, 1}};
    for (auto const &row : results)
        EXPECT_EQ(QzError::ConvertWin32MBResult(row[0]), row[1]) << row[0];
}

TEST_F(QzErrorTest, MessageBoxAndInputBoxSlots)
{
    EXPECT_EQ(QzError::MessageBoxW(u"t", QzError::eMB_OK, QzError::eMB_ICON_NONE, -1),
              QzError::eMB_RESULT_NO_BOX);
    auto yes = [](LtWChar const *, QzError::MessageBoxButtons, QzError::MessageBoxIcon, int) {
        return QzError::eMB_RESULT_YES;
    };
    auto no = [](LtWChar const *, QzError::MessageBoxButtons, QzError::MessageBoxIcon, int) {
        return QzError::eMB_RESULT_NO;
    };
    QzError::SetTempMessageBoxFuncWcs(yes);
    QzError::SetTempMessageBoxFuncWcs(no);  // never displaces
    EXPECT_EQ(QzError::MessageBoxW(u"t", QzError::eMB_YES_NO, QzError::eMB_ICON_QUESTION, -1),
              QzError::eMB_RESULT_YES);
    QzError::DisableMessageBox();
    EXPECT_EQ(QzError::MessageBoxW(u"t", QzError::eMB_OK, QzError::eMB_ICON_NONE, -1),
              QzError::eMB_RESULT_NO_BOX);
    EXPECT_EQ(QzError::ErrorMessageBoxW(u"t", QzError::eMB_OK, QzError::eMB_ICON_ERROR),
              QzError::eMB_RESULT_NO_BOX);

    QzWideStringBuffer answer;
    EXPECT_FALSE(QzError::InputBox(u"title", u"prompt", &answer));
    int context = 41;
    QzError::SetInputBoxFunc(
        [](void *data, LtWChar const *, LtWChar const *prompt, QzWideStringBuffer *out) {
            ++*static_cast<int *>(data);
            out->SetString(prompt);
            return true;
        },
        &context);
    EXPECT_TRUE(QzError::InputBox(u"title", u"prompt", &answer));
    EXPECT_EQ(context, 42);
    EXPECT_EQ(ToU16(answer.GetString()), u"prompt");
    QzError::SetInputBoxFunc(nullptr, nullptr);
}

// Without the requirement the report only logs and returns.
TEST_F(QzErrorTest, EnvironmentErrorWithoutBoxesReturns)
{
    QzError::ReportEnvironmentErrorAndAbort(u"no data directory");
    EXPECT_EQ(ReplayLog(), "no data directory\n");
}

TEST(QzErrorDeathTest, EnvironmentErrorWithBoxesExitsWithThree)
{
    EXPECT_EXIT(
        {
            QzError::Initialise();
            QzError::SetMessageBoxFuncWcs([](LtWChar const *, QzError::MessageBoxButtons buttons,
                                             QzError::MessageBoxIcon, int help_id) {
                std::fprintf(stderr, "box %d %d", buttons, help_id);
                return QzError::eMB_RESULT_OK;
            });
            QzError::RequireEnvironmentErrorMessageBoxes(true);
            QzError::ReportEnvironmentErrorAndAbort(u"bad install");
        },
        testing::ExitedWithCode(3), "box 2 -1");
}

TEST(QzErrorDeathTest, ExitingHandlerExitsOnFatalOnly)
{
    EXPECT_EXIT(
        {
            QzError::Initialise();
            QzSysError::SetHandler(QzError::PrintAndExitErrorHandler, QzSysError::eANY,
                                   static_cast<QzComponent *>(nullptr), -1);
            QzError::Post(QzSysError::eWARNING, nullptr, "survived");
            std::fputs("after warning\n", stderr);
            QzError::Post(QzSysError::eERROR, nullptr, "ends it");
            std::fputs("not reached\n", stderr);
        },
        testing::ExitedWithCode(1), "^after warning\n$");
}

// A text over the format limit is cut, and the post still returns.
TEST_F(QzErrorTest, HugeFormatIsCutNotFatal)
{
    static std::size_t length = 0;
    QzSysError::SetHandler(
        [](QzSysError::Severity, QzComponent *, int, void *, LtWChar const *message) {
            length = std::char_traits<char16_t>::length(message);
            return 1;
        },
        QzSysError::eANY, &g_unit, -1);
    // Capacities double; the last one tried is the first above 104,857,600
    // characters: 134,217,728, of which the nul takes one.
    QzError::Post(QzSysError::eWARNING, &g_unit, u"%*ls%*ls", 70000000, u"x", 70000000, u"y");
    EXPECT_EQ(length, 134217727u) << "cut at the last capacity";
}
