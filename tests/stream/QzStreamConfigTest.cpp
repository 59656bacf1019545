// The header line, copying of settings, and the wiring of filter chains.

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/stream/QzStreamFilter.h"
#include "qzutil/stream/QzStreamFormat.h"
#include "qzutil/stream/QzWriteStream.h"

#include "support/QzTestSupport.h"

namespace {

std::vector<std::string> g_calls;  // "<name>.<operation>", in call order

// Logs each begin and end, and whether it was still wired at its end.
class LoggingFilter : public QzStreamFilter {
public:
    LoggingFilter(char const *name, bool refuse_begin = false)
        : m_name(name), m_refuse_begin(refuse_begin)
    {}
    int WriteBegin(QzWriteStream const *) override
    {
        g_calls.push_back(std::string(m_name) + ".WriteBegin");
        return !m_refuse_begin;
    }
    int WriteEnd() override
    {
        g_calls.push_back(std::string(m_name) + (GetSink() ? ".WriteEnd(wired)" : ".WriteEnd"));
        return 1;
    }
    int WriteLock(unsigned char **, int *) override { return 0; }
    int WriteProcess(int) override { return 0; }
    QzFileURL::Status ReadLock(unsigned char const **, int *) override
    {
        return QzFileURL::eSTATUS_ERROR;
    }
    int ReadProcess(int) override { return 0; }
    char const *GetName() const override { return m_name; }

private:
    char const *m_name;
    bool m_refuse_begin;
};

class QzStreamConfigTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QzStream::Initialise();
        g_calls.clear();
        m_posts.emplace("QzStream", QzStream::ErrorNotBegun);
    }
    void TearDown() override
    {
        m_posts.reset();
        QzStream::Terminate();
    }

    std::optional<QzPostRecording> m_posts;
};

TEST_F(QzStreamConfigTest, TheHeaderLineSpellsEverySetting)
{
    LoggingFilter sink("sink");
    QzWriteStream stream(&sink);
    EXPECT_EQ(std::string(stream.GetConfig().GetString()),
              "#QzStream-V1.1 binary double release utf8 linull\n");
    EXPECT_EQ(stream.GetError(), QzStream::ErrorNotBegun);

    LoggingFilter first("liblowfish"), second("lizlib");
    QzStreamFormat format("geometry-7", false);
    format.SetVersion(7);
    stream.SetAscii(1);
    stream.SetDouble(0);
    stream.SetDebug(1);
    stream.SetWideStringEncoding(QzStream::eWIDE_MULTIBYTE);
    stream.SetFormat(&format);
    stream.AddActiveFilter(&first);
    stream.AddActiveFilter(&second);
    EXPECT_EQ(std::string(stream.GetConfig().GetString()),
              "#QzStream-V1.1 ascii single debug C geometry-7 liblowfish lizlib\n");
    EXPECT_EQ(stream.GetFormatVersion(), 7);

    // The older UTF-8 form is spelt as UTF-8; an unknown encoding and an
    // empty format name add nothing.
    stream.SetWideStringEncoding(QzStream::eWIDE_UTF8_UNITS);
    stream.PopActiveFilter();
    stream.SetFormatName("");
    EXPECT_EQ(std::string(stream.GetConfig().GetString()),
              "#QzStream-V1.1 ascii single debug utf8  liblowfish\n");
    stream.SetWideStringEncoding(static_cast<QzStream::WideStringEncoding>(7));
    stream.SetFormat(nullptr);
    EXPECT_EQ(std::string(stream.GetConfig().GetString()),
              "#QzStream-V1.1 ascii single debug linull liblowfish\n");
    EXPECT_EQ(stream.GetFormatVersion(), 0);
}

TEST_F(QzStreamConfigTest, CopyConfigTakesTheSettingsButNotTheRun)
{
    LoggingFilter sink_a("a"), sink_b("b"), filter("f");
    QzStreamFormat format("fmt", false);
    QzWriteStream from(&sink_a);
    from.SetAscii(1);
    from.SetDebug(1);
    from.SetFormat(&format);
    from.AddActiveFilter(&filter);
    from.SetUserData(QzStream::eSLOT_SCHEMA_CONTEXT, &format);
    from.SetError(QzStream::ErrorParse);

    QzWriteStream to(&sink_b);
    to.CopyConfig(static_cast<QzStream const &>(from));
    EXPECT_EQ(to.GetConfig().GetString(), std::string(from.GetConfig().GetString()));
    EXPECT_EQ(to.GetUserData(QzStream::eSLOT_SCHEMA_CONTEXT), &format);
    EXPECT_EQ(to.GetSink(), &sink_b);
    EXPECT_EQ(to.GetError(), QzStream::ErrorNotBegun);
}

// Writes through a chain to see how InitChain linked it.
class ChainProbe : public QzWriteStream {
public:
    using QzWriteStream::QzWriteStream;
    QzStreamSink *Head() const { return GetHead(); }
};

TEST_F(QzStreamConfigTest, InitChainBeginsInOrderAndLinksFilterToFilterToSink)
{
    LoggingFilter sink("sink"), first("f1"), second("f2");
    ChainProbe stream(&sink);
    stream.AddActiveFilter(&first);
    stream.AddActiveFilter(&second);
    ASSERT_TRUE(stream.InitChain(1, 1));
    EXPECT_EQ(g_calls,
              (std::vector<std::string>{"f1.WriteBegin", "f2.WriteBegin", "sink.WriteBegin"}));
    EXPECT_EQ(stream.Head(), &first);
    EXPECT_EQ(first.GetSink(), &second);
    EXPECT_EQ(second.GetSink(), &sink);

    // Every filter is unlinked before any is ended, then the sink ends.
    g_calls.clear();
    EXPECT_TRUE(stream.ClearChain(1, 1));
    EXPECT_EQ(g_calls, (std::vector<std::string>{"f1.WriteEnd", "f2.WriteEnd", "sink.WriteEnd"}));
    EXPECT_EQ(stream.Head(), nullptr);
}

TEST_F(QzStreamConfigTest, ARefusedBeginEndsWhatWasBegunAndPosts)
{
    LoggingFilter sink("sink", true), first("f1"), second("f2");
    QzWriteStream stream(&sink);
    stream.AddActiveFilter(&first);
    stream.AddActiveFilter(&second);
    EXPECT_FALSE(stream.InitChain(1, 1));
    EXPECT_EQ(g_calls, (std::vector<std::string>{"f1.WriteBegin", "f2.WriteBegin",
                                                 "sink.WriteBegin", "f1.WriteEnd", "f2.WriteEnd"}));
    EXPECT_EQ(stream.GetError(), QzStream::ErrorWriteBegin);
    ASSERT_EQ(QzPostRecorder::Posts().size(), 1u);
    QzRecordedPost const &post = QzPostRecorder::Posts()[0];
    EXPECT_EQ(ToUtf8(post.message), "WriteBegin failed");
    EXPECT_EQ(post.severity, QzSysError::eDEBUG);
    EXPECT_EQ(post.id, QzStream::ErrorWriteBegin);
    EXPECT_EQ(post.data, &sink);
}

}  // namespace
