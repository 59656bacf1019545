// Component counts, the order of the component list, the Init/Term lines and
// the report of components left initialised.

#include "qzutil/frame/QzComponent.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/frame/QzError.h"
#include "qzutil/frame/QzSysError.h"
#include "qzutil/memory/QzMemory.h"
#include "qzutil/text/QzString.h"

#include "support/QzTestSupport.h"

namespace {

struct ListEntry {
    std::string name;
    int count;
    bool operator==(ListEntry const &other) const
    {
        return name == other.name && count == other.count;
    }
};

std::ostream &operator<<(std::ostream &out, ListEntry const &entry)
{
    return out << entry.name << ":" << entry.count;
}

std::vector<ListEntry> ComponentList()
{
    std::vector<ListEntry> list;
    for (QzComponent *c = QzSysError::GetFirstComponent(); c != nullptr; c = c->GetNext())
        list.push_back({c->GetName(), c->GetInitialisationCount()});
    return list;
}

// A client's own component, as an application would declare one.
QzComponent g_client;

class QzComponentTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(QzSysError::GetFirstComponent(), nullptr) << "a previous test leaked";
        QzSysError::ClearLogBuffer();
    }
    void TearDown() override
    {
        QzSysError::SetComponentConsoleEnable(0);
        while (g_client.IsInitialised())
            g_client.Terminate();
        EXPECT_EQ(QzSysError::GetFirstComponent(), nullptr);
    }
};

}  // namespace

// Counts make Initialise idempotent; an unmatched Terminate is harmless.
TEST_F(QzComponentTest, CountsBalance)
{
    EXPECT_EQ(g_client.Initialise("Client", "info"), 1);
    EXPECT_EQ(g_client.Initialise("Client", "info"), 0);
    EXPECT_EQ(g_client.GetInitialisationCount(), 2);
    EXPECT_EQ(g_client.Terminate(), 0);
    EXPECT_EQ(g_client.IsInitialised(), 1);
    EXPECT_EQ(QzSysError::FindComponent("Client"), &g_client);
    EXPECT_EQ(g_client.Terminate(), 1);
    EXPECT_EQ(g_client.Terminate(), 0);
    EXPECT_EQ(QzSysError::FindComponent("Client"), nullptr) << "found after its Terminate";
    EXPECT_STREQ(g_client.GetName(), "Client") << "name is kept after Terminate";
}

// A first QzString::Initialise brings up the chain below it, depth first.
TEST_F(QzComponentTest, StringChainOrderAndCounts)
{
    QzString::Initialise();
    std::vector<ListEntry> const expected = {
        {"QzString", 1}, {"QzSysError", 3}, {"QzMemory", 1}, {"QzSysMemory", 1}};
    EXPECT_EQ(ComponentList(), expected);
    EXPECT_EQ(QzSysError::GetLastComponent()->GetName(), std::string("QzSysMemory"));
    QzString::Terminate();
    EXPECT_TRUE(ComponentList().empty());
}

TEST_F(QzComponentTest, ErrorChainOrderAndCounts)
{
    QzError::Initialise();
    QzError::Initialise();
    std::vector<ListEntry> const expected = {
        {"QzError", 2}, {"QzSysError", 4}, {"QzString", 1}, {"QzMemory", 1}, {"QzSysMemory", 1}};
    EXPECT_EQ(ComponentList(), expected);
    QzError::Terminate();
    EXPECT_EQ(QzError::IsInitialised(), 1);
    QzError::Terminate();
    EXPECT_TRUE(ComponentList().empty());
}

// With component logging on, each registration logs one line; QzSysError's
// own line comes once, after its lock exists, between its dependants' lines.
TEST_F(QzComponentTest, InitAndTermLines)
{
    QzSysError::SetComponentConsoleEnable(1);
    QzString::Initialise();
    QzString::Terminate();
    std::string const log = ReplayLog();
    std::string const version = " 0.1.0 $)\n";
    std::string const expected = "Init: QzString (@(#)$Id: QzString.cpp" + version +
                                 "Init: QzSysError (@(#)$Id: QzSysError.cpp" + version +
                                 "Init: QzMemory (@(#)$Id: QzMemory.cpp" + version +
                                 "Init: QzSysMemory (@(#)$Id: QzSysMemory.cpp" + version;
    EXPECT_EQ(log.substr(0, expected.size()), expected) << log;
    EXPECT_NE(log.find("Term: QzString (@(#)$Id: QzString.cpp" + version), std::string::npos);
    EXPECT_NE(log.find("Term: QzSysError"), std::string::npos);
    EXPECT_EQ(log.find("Init: QzSysError"), log.rfind("Init: QzSysError")) << "logged twice";
}

// Without info no line end is written.
TEST_F(QzComponentTest, InitLineWithoutInfo)
{
    QzSysError::SetComponentConsoleEnable(1);
    g_client.Initialise("Bare", nullptr);
    g_client.Terminate();
    EXPECT_EQ(ReplayLog(), "Init: BareTerm: Bare");
}

// Only the last release of QzSysError reports, once per listed component.
TEST_F(QzComponentTest, StillInitialisedReport)
{
    QzString::Initialise();
    g_client.Initialise("Leaky", "info");
    QzString::Terminate();
    EXPECT_NE(ReplayLog().find("*** Component Leakystill initialised\n"), std::string::npos);
    EXPECT_EQ(QzSysError::GetFirstComponent(), nullptr) << "the list is emptied";
    EXPECT_EQ(g_client.GetInitialisationCount(), 1) << "counts are left as they stand";
}

TEST_F(QzComponentTest, NoReportWhileSysErrorIsHeld)
{
    QzError::Initialise();
    QzString::Initialise();
    QzError::Terminate();  // QzString still holds QzSysError
    EXPECT_EQ(ReplayLog().find("still initialised"), std::string::npos);
    QzString::Terminate();
    EXPECT_EQ(ReplayLog().find("still initialised"), std::string::npos);
}

TEST_F(QzComponentTest, IsNameNullRules)
{
    QzComponent unnamed{};
    EXPECT_EQ(unnamed.IsName(nullptr), 1);
    EXPECT_EQ(unnamed.IsName("x"), 0);
    g_client.Initialise("Client", "info");
    EXPECT_EQ(g_client.IsName(nullptr), 0);
    EXPECT_EQ(g_client.IsName("Client"), 1);
    EXPECT_EQ(g_client.IsName("Clien"), 0);
}

// A second registration of a listed name is an error; a handler that takes
// it lets registration go on, and both stand in the list.
TEST_F(QzComponentTest, DuplicateNameIsPosted)
{
    QzString::Initialise();
    QzPostRecorder::Posts().clear();
    QzSysError::SetHandler(QzPostRecorder::Handler, QzSysError::eERROR,
                           static_cast<QzComponent *>(nullptr), -1);
    g_client.Initialise("QzMemory", "info");
    ASSERT_EQ(QzPostRecorder::Posts().size(), 1u);
    EXPECT_EQ(QzPostRecorder::Posts()[0].message, u"Component with name already registered.");
    EXPECT_EQ(QzPostRecorder::Posts()[0].component, &g_client);
    EXPECT_EQ(QzSysError::GetLastComponent(), &g_client);
    g_client.Terminate();
    QzSysError::RemoveHandler(QzSysError::eERROR, static_cast<QzComponent *>(nullptr), -1);
    QzString::Terminate();
}

TEST(QzComponentDeathTest, DuplicateNameWithoutHandlerAborts)
{
    DisableCoreDumps();
    EXPECT_EXIT(
        {
            QzString::Initialise();
            g_client.Initialise("QzString", "info");
        },
        testing::KilledBySignal(SIGABRT), "");
}
