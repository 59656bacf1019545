// The handler tables and the ladder of PostFixed: which handler sees which
// post, at which level, and what happens when none takes it.

#include "qzutil/frame/QzSysError.h"

#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzError.h"

#include "support/QzTestSupport.h"

namespace {

QzComponent g_part;  // the posting component of these tests

// Each handler records its name and answers as told.
std::vector<std::string> g_calls;
int g_answer_of_severity_slot = 0;

#define RECORDING_HANDLER(Name, Answer)                                         \
    int Name(QzSysError::Severity, QzComponent *, int, void *, LtWChar const *) \
    {                                                                           \
        g_calls.push_back(#Name);                                               \
        return Answer;                                                          \
    }
RECORDING_HANDLER(ById, 0)
RECORDING_HANDLER(BySeverity, g_answer_of_severity_slot)
RECORDING_HANDLER(ComponentAny, 0)
RECORDING_HANDLER(TableSeverity, 0)
RECORDING_HANDLER(Global, 1)
#undef RECORDING_HANDLER

class QzSysErrorTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QzError::Initialise();
        g_part.Initialise("Part", "test component");
        g_calls.clear();
        g_answer_of_severity_slot = 0;
    }
    void TearDown() override
    {
        g_part.Terminate();
        QzSysError::SetGlobalHandler(nullptr, nullptr);
        for (int s = QzSysError::eERROR; s <= QzSysError::eINFO; ++s)
            QzSysError::RemoveHandler(static_cast<QzSysError::Severity>(s),
                                      static_cast<QzComponent *>(nullptr), -1);
        QzSysError::RemoveHandler(QzSysError::eANY, static_cast<QzComponent *>(nullptr), -1);
        QzError::Terminate();
        EXPECT_EQ(QzSysError::GetFirstComponent(), nullptr);
    }

    // One handler on every rung the post could reach.
    static void InstallEveryRung(QzSysError::Severity severity, int id)
    {
        QzSysError::SetHandler(ById, severity, &g_part, id);
        QzSysError::SetHandler(BySeverity, severity, &g_part, -1);
        QzSysError::SetHandler(ComponentAny, QzSysError::eANY, &g_part, -1);
        QzSysError::SetHandler(TableSeverity, severity, static_cast<QzComponent *>(nullptr), -1);
        QzSysError::SetHandler(Global, QzSysError::eANY, static_cast<QzComponent *>(nullptr), -1);
    }
};

}  // namespace

// Each row posts once with handlers on every rung and lists who saw it.
TEST_F(QzSysErrorTest, LadderOrderAndLevels)
{
    struct Row {
        char const *name;
        QzSysError::Severity severity;
        int id;
        int level;
        std::vector<std::string> calls;
    };
    Row const rows[] = {
        {"error_all_rungs",
         QzSysError::eERROR,
         7,
         0,
         {"ById", "BySeverity", "ComponentAny", "TableSeverity", "Global"}},
        {"level_3_stops_before_tables",
         QzSysError::eWARNING,
         7,
         3,
         {"ById", "BySeverity", "ComponentAny"}},
        {"level_5_by_id_only", QzSysError::eDEBUG, 7, 5, {"ById"}},
        {"level_4_adds_severity_slot", QzSysError::eDEBUG, 7, 4, {"ById", "BySeverity"}},
        {"level_6_no_rung", QzSysError::eWARNING, 7, 6, {}},
        {"info_stops_after_rung_4", QzSysError::eINFO, 7, 0, {"ById", "BySeverity"}},
        {"no_id_offers_slot_once",
         QzSysError::eWARNING,
         -1,
         0,
         {"BySeverity", "ComponentAny", "TableSeverity", "Global"}},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        InstallEveryRung(row.severity, row.id == -1 ? 3 : row.id);
        g_calls.clear();
        QzSysError::PostFixed(row.severity, &g_part, row.id, nullptr, row.level, u"m");
        EXPECT_EQ(g_calls, row.calls);
        g_part.DeleteHandlers();
    }
}

// A handler that takes the message ends the ladder.
TEST_F(QzSysErrorTest, TakingHandlerStopsTheLadder)
{
    InstallEveryRung(QzSysError::eERROR, 7);
    g_answer_of_severity_slot = 1;
    QzSysError::PostFixed(QzSysError::eERROR, &g_part, -1, nullptr, 0, u"m");
    EXPECT_EQ(g_calls, std::vector<std::string>({"BySeverity"}));
}

// Without a component, the severity table and the global handler serve.
TEST_F(QzSysErrorTest, NullComponentUsesTables)
{
    InstallEveryRung(QzSysError::eERROR, 7);
    QzSysError::PostFixed(QzSysError::eERROR, nullptr, 7, nullptr, 0, u"m");
    EXPECT_EQ(g_calls, std::vector<std::string>({"TableSeverity", "Global"}));
}

// QzError's level rule: eDEBUG with an id reaches the by-id handler only.
TEST_F(QzSysErrorTest, DebugPostWithIdReachesOnlyItsIdHandler)
{
    InstallEveryRung(QzSysError::eDEBUG, 9);
    QzError::Post(QzSysError::eDEBUG, &g_part, 9, nullptr, "x");
    EXPECT_EQ(g_calls, std::vector<std::string>({"ById"}));
    g_calls.clear();
    QzError::Post(QzSysError::eDEBUG, &g_part, "x");
    EXPECT_EQ(g_calls, std::vector<std::string>({"BySeverity"}));
}

// Warnings, debug and information return when nobody takes them.
TEST_F(QzSysErrorTest, UnhandledNonFatalSeveritiesReturn)
{
    for (QzSysError::Severity severity :
         {QzSysError::eWARNING, QzSysError::eDEBUG, QzSysError::eINFO})
        QzSysError::PostFixed(severity, &g_part, -1, nullptr, 0, u"returns");
    EXPECT_EQ(ReplayLog().find("No handler for error"), std::string::npos);
}

TEST_F(QzSysErrorTest, ByIdRecordsAndPrev)
{
    QzSysError::SetHandler(ById, QzSysError::eERROR, &g_part, 1);
    QzSysError::SetHandler(Global, QzSysError::eWARNING, &g_part, 2);  // severity ignored
    void *prev = nullptr;
    EXPECT_NE(QzSysError::FindHandler(QzSysError::eINFO, &g_part, 1, prev), nullptr);
    EXPECT_NE(prev, nullptr) << "record 1 stands behind record 2, the newer head";
    EXPECT_EQ(QzSysError::FindHandler(QzSysError::eERROR, &g_part, 3, prev), nullptr);
    EXPECT_NE(prev, nullptr) << "a miss gives the list head";
    EXPECT_EQ(QzSysError::GetHandler(QzSysError::eDEBUG, &g_part, 2), Global);
    EXPECT_EQ(QzSysError::RemoveHandler(QzSysError::eERROR, &g_part, 1), ById);
    EXPECT_EQ(QzSysError::FindHandler(QzSysError::eERROR, &g_part, 1, prev), nullptr);
    EXPECT_EQ(QzSysError::RemoveHandler(QzSysError::eERROR, &g_part, 1), nullptr);
    QzSysError::SetHandler(ById, QzSysError::eERROR, "Part", 5);
    EXPECT_EQ(QzSysError::GetHandler(QzSysError::eERROR, &g_part, 5), ById);
}

// The user-level global handler gets its own data in place of the post's.
TEST_F(QzSysErrorTest, GlobalHandlerGetsUserData)
{
    struct Seen {
        int calls;
        std::u16string message;
    } seen{0, {}};
    auto handler = [](QzSysError::Severity, QzComponent *, int, LtWChar const *message,
                      void *data) {
        auto *s = static_cast<Seen *>(data);
        ++s->calls;
        s->message = ToU16(message);
        return 1;
    };
    QzSysError::SetGlobalHandler(handler, &seen);
    EXPECT_EQ(QzSysError::GetGlobalHandlerData(), &seen);
    int posted_data = 0;
    QzSysError::PostFixed(QzSysError::eERROR, &g_part, 1, &posted_data, 0, u"global");
    EXPECT_EQ(seen.calls, 1);
    EXPECT_EQ(seen.message, u"global");
}

// QzErrorOverride with no function makes errors no-ops for its scope only.
TEST_F(QzSysErrorTest, OverrideSilencesAndRestores)
{
    QzSysError::SetHandler(TableSeverity, QzSysError::eERROR, static_cast<QzComponent *>(nullptr),
                           -1);
    {
        QzErrorOverride silence(nullptr, QzSysError::eERROR, static_cast<QzComponent *>(nullptr),
                                -1);
        QzError::Post(QzSysError::eERROR, nullptr, "silenced");
        EXPECT_TRUE(g_calls.empty());
    }
    EXPECT_EQ(QzSysError::GetHandler(QzSysError::eERROR, nullptr, -1), TableSeverity);
    {
        QzErrorOverride catch_all;  // the bottom rung
        QzError::Post(QzSysError::ePRECONDITION, &g_part, "silenced too");
    }
    EXPECT_EQ(QzSysError::GetHandler(QzSysError::eANY, nullptr, -1), nullptr);
    {
        QzErrorOverride by_name(ById, QzSysError::eWARNING, "Part", -1);
        QzError::Post(QzSysError::eWARNING, &g_part, "to the override");
        EXPECT_EQ(g_calls, std::vector<std::string>({"ById"}));
    }
}

// Without a handler the fatal tail runs: debug-break callback, then abort.
TEST(QzSysErrorDeathTest, UnhandledFatalSeveritiesAbort)
{
    DisableCoreDumps();
    for (QzSysError::Severity severity :
         {QzSysError::eERROR, QzSysError::ePRECONDITION, QzSysError::eASSERT,
          static_cast<QzSysError::Severity>(9)}) {
        SCOPED_TRACE(severity);
        EXPECT_EXIT(
            {
                QzError::Initialise();
                // The callback shows the log on stderr, where the test reads it.
                QzSysError::SetDebugBreakCB([] { std::fputs(ReplayLog().c_str(), stderr); });
                QzError::Post(severity, nullptr, "fatal %d", 1);
            },
            testing::KilledBySignal(SIGABRT), "fatal 1\"\nQzSysError: No handler for error\n");
    }
}

TEST(QzSysErrorDeathTest, ForceExitSkipsDestructorsAndCallsBack)
{
    EXPECT_EXIT(
        {
            static struct Noisy {
                ~Noisy() { std::fputs("destructor ran", stderr); }
            } noisy;
            (void)noisy;
            QzSysError::SetForceExitCB([](int code) {
                std::fprintf(stderr, "callback %d", code);
                throw 1;  // swallowed: the exit happens anyway
            });
            QzSysError::ForceExit(5);
        },
        testing::ExitedWithCode(5), "^callback 5$");
}
