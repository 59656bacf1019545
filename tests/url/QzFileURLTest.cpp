// QzFileURL over local files: sharing of open handles, "file:" URIs, the
// edges of a read range, positions beyond 4 GiB, temporary files, and write
// failures reported with the URI.

#include "qzutil/url/QzFileURL.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "qzutil/frame/QzError.h"

#include "support/QzTestSupport.h"
#include "sys/QzFileTestDir.h"

namespace {

constexpr LtNat64 kFiveGiB = 5ULL << 30;

class QzFileURLTest : public QzFileTestDir {
protected:
    void SetUp() override
    {
        QzFileTestDir::SetUp();
        QzFileURL::Initialise();
        m_posts.emplace();
        WriteBytes(Path("ten"), "0123456789");
    }
    void TearDown() override
    {
        m_posts.reset();
        QzFileURL::Terminate();
        QzFileTestDir::TearDown();
    }

    std::u16string FileUri(std::string const &name) const { return u"file://" + WidePath(name); }

    std::optional<QzPostRecording> m_posts;
};

}  // namespace

// Flags 1 and 1 share; 1 after 3 shares; 3 after 1 and 0 after 1 do not.
// One close of two leaves the file open; the last one closes it.
TEST_F(QzFileURLTest, OpenSharesByFlagsUntilTheLastClose)
{
    struct Case {
        char const *name;
        unsigned first;
        unsigned second;
        bool shares;
    };
    Case const kCases[] = {
        {"read_read", 1, 1, true},
        {"read_write_same", 0, 0, true},
        {"read_after_read_temporary", 3, 1, true},
        {"read_temporary_after_read", 1, 3, false},
        {"write_after_read", 1, 0, false},
    };
    std::u16string const uri = WidePath("ten");
    for (Case const &c : kCases) {
        SCOPED_TRACE(c.name);
        WriteBytes(Path("ten"), "0123456789");  // a temporary row removes it
        QzFileURLHandle *first = QzFileURL::OpenURL(uri.c_str(), nullptr, c.first, 0);
        ASSERT_NE(first, nullptr);
        QzFileURLHandle *second = QzFileURL::OpenURL(uri.c_str(), nullptr, c.second, 0);
        EXPECT_EQ(second, c.shares ? first : nullptr);
        if (second != nullptr) {
            QzFileURL::CloseURL(second);
            unsigned char byte = 0;
            EXPECT_EQ(QzFileURL::Read(first, QzFileURL::eTYPE_BLOCKING, 9, &byte, 1, nullptr),
                      QzFileURL::eSTATUS_OK)
                << "one close of two leaves the file open";
            EXPECT_EQ(byte, '9');
        }
        QzFileURL::CloseURL(first);
        EXPECT_EQ(Exists(Path("ten")), (c.first & QzFileURL::eOPEN_TEMPORARY) == 0)
            << "a temporary file goes at the last close, not before";
    }
}

// The handle keeps its own copy of the URI as opened, and Terminate closes
// what is still open (a temporary file then disappears).
TEST_F(QzFileURLTest, UriIsKeptAndTerminateClosesOpenFiles)
{
    std::u16string uri = FileUri("ten");
    std::u16string const expected = uri;
    QzFileURLHandle *handle = QzFileURL::OpenURL(uri.c_str(), nullptr, 3, 0);
    ASSERT_NE(handle, nullptr);
    uri.assign(uri.size(), u'x');
    EXPECT_EQ(ToU16(QzFileURL::GetURI(handle)), expected);
    EXPECT_EQ(QzFileURL::IsRemote(handle), 0);

    QzFileURL::Terminate();
    EXPECT_FALSE(Exists(Path("ten")));
    QzFileURL::Initialise();
}

// Paths and "file:" URIs that name the same file, and those that name none.
TEST_F(QzFileURLTest, OpensPathsAndFileUris)
{
    WriteBytes(Path("a b\xC3\xA9"), "xyz");  // "a b" and U+00E9
    std::u16string const dir = WidePath("");
    struct Case {
        char const *name;
        std::u16string uri;
        bool opens;
    };
    Case const kCases[] = {
        {"plain_path", dir + u"a b\u00E9", true},
        {"three_slashes", u"file://" + dir + u"a%20b%C3%A9", true},
        {"one_slash", u"file:" + dir + u"a%20b%c3%a9", true},
        {"localhost", u"file://localhost" + dir + u"a%20b%C3%A9", true},
        {"upper_case_scheme_and_host", u"FILE://LocalHost" + dir + u"a b\u00E9", true},
        {"other_host", u"file://elsewhere" + dir + u"a%20b%C3%A9", false},
        {"host_without_path", u"file://localhost", false},
        {"relative_file_uri", u"file:a%20b%C3%A9", false},
        {"encoded_nul", u"file://" + dir + u"a%00b", false},
        {"missing_file", dir + u"absent", false},
        {"directory", dir + u"home", false},
        {"empty", u"", false},
    };
    for (Case const &c : kCases) {
        SCOPED_TRACE(c.name);
        QzFileURLHandle *handle = QzFileURL::OpenURL(c.uri.c_str(), nullptr, 1, 0);
        EXPECT_EQ(handle != nullptr, c.opens);
        if (handle == nullptr)
            continue;
        unsigned char bytes[3] = {};
        EXPECT_EQ(QzFileURL::GetFileSize(handle), 3u);
        EXPECT_EQ(QzFileURL::Read(handle, QzFileURL::eTYPE_NON_BLOCKING, 0, bytes, 3, nullptr),
                  QzFileURL::eSTATUS_OK);
        EXPECT_EQ(std::string(reinterpret_cast<char *>(bytes), 3), "xyz");
        QzFileURL::CloseURL(handle);
    }
    EXPECT_EQ(QzFileURL::OpenURL(nullptr, nullptr, 1, 0), nullptr);
}

// A range may end exactly at the end of the 10-byte file; one byte further
// fails and leaves the buffer as it was. Size 0 succeeds anywhere.
TEST_F(QzFileURLTest, ReadRangeEdges)
{
    struct Case {
        char const *name;
        LtNat64 position;
        unsigned size;
        QzFileURL::Status status;
        char const *bytes;  // the buffer afterwards, filled with '-' before
    };
    Case const kCases[] = {
        {"whole_file", 0, 10, QzFileURL::eSTATUS_OK, "0123456789"},
        {"ends_at_end", 8, 2, QzFileURL::eSTATUS_OK, "89--------"},
        {"one_past_end", 8, 3, QzFileURL::eSTATUS_ERROR, "----------"},
        {"starts_at_end", 10, 1, QzFileURL::eSTATUS_ERROR, "----------"},
        {"far_beyond", kFiveGiB, 1, QzFileURL::eSTATUS_ERROR, "----------"},
        {"size_0_at_end", 10, 0, QzFileURL::eSTATUS_OK, "----------"},
        {"size_0_beyond", 11, 0, QzFileURL::eSTATUS_OK, "----------"},
    };
    QzFileURLHandle *handle = QzFileURL::OpenURL(WidePath("ten").c_str(), nullptr, 1, 0);
    ASSERT_NE(handle, nullptr);
    for (Case const &c : kCases) {
        SCOPED_TRACE(c.name);
        unsigned char buffer[10];
        std::memset(buffer, '-', sizeof(buffer));
        EXPECT_EQ(
            QzFileURL::Read(handle, QzFileURL::eTYPE_BLOCKING, c.position, buffer, c.size, nullptr),
            c.status);
        EXPECT_EQ(std::string(reinterpret_cast<char *>(buffer), 10), c.bytes);
        EXPECT_EQ(QzFileURL::TestRead(handle, c.position, c.size), c.status);
    }
    EXPECT_TRUE(QzPostRecorder::Posts().empty()) << "a range check is no system failure";
    QzFileURL::CloseURL(handle);
}

// Positions above 4 GiB reach the file: a write at 5 GiB + 3 into an empty
// file makes it sparse and sets the size, and the bytes read back.
TEST_F(QzFileURLTest, WritesAndReadsBeyondFourGiB)
{
    WriteBytes(Path("big"), "");
    QzFileURLHandle *handle = QzFileURL::OpenURL(FileUri("big").c_str(), nullptr, 0, 0);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(QzFileURL::GetFileSize(handle), 0u);
    unsigned char const data[] = {'a', 'b', 'c'};
    EXPECT_EQ(QzFileURL::Write(handle, QzFileURL::eTYPE_BLOCKING, kFiveGiB + 3, data, 3, nullptr),
              QzFileURL::eSTATUS_OK);
    EXPECT_EQ(QzFileURL::GetFileSize(handle), kFiveGiB + 6);
    EXPECT_EQ(QzFileURL::Write(handle, QzFileURL::eTYPE_BLOCKING, 0, data, 0, nullptr),
              QzFileURL::eSTATUS_OK);
    EXPECT_EQ(QzFileURL::GetFileSize(handle), kFiveGiB + 6) << "size 0 writes nothing";

    unsigned char back[5] = {9, 9, 9, 9, 9};
    EXPECT_EQ(QzFileURL::Read(handle, QzFileURL::eTYPE_BLOCKING, kFiveGiB + 1, back, 5, nullptr),
              QzFileURL::eSTATUS_OK);
    unsigned char const expected[] = {0, 0, 'a', 'b', 'c'};  // the hole reads as zero
    EXPECT_EQ(std::memcmp(back, expected, 5), 0);
    QzFileURL::CloseURL(handle);

    struct stat info;
    ASSERT_EQ(stat(Path("big").c_str(), &info), 0);
    EXPECT_EQ(static_cast<LtNat64>(info.st_size), kFiveGiB + 6);
}

// A write that the system refuses is eSTATUS_ERROR with one warning that
// names the operation, the position and the URI; the size stays.
TEST_F(QzFileURLTest, RefusedWritesAreReported)
{
    WriteBytes(Path("locked"), "0123456789");
    ASSERT_EQ(chmod(Path("locked").c_str(), 0444), 0);
    struct Case {
        char const *name;
        std::u16string uri;
        unsigned flags;
    };
    Case const kCases[] = {
        {"read_only_flag", WidePath("ten"), QzFileURL::eOPEN_READ_ONLY},
        {"read_only_on_disk", WidePath("locked"), 0},
        {"device_full", u"/dev/full", 0},
    };
    for (Case const &c : kCases) {
        SCOPED_TRACE(c.name);
        QzFileURLHandle *handle = QzFileURL::OpenURL(c.uri.c_str(), nullptr, c.flags, 0);
        ASSERT_NE(handle, nullptr);
        LtNat64 const size = QzFileURL::GetFileSize(handle);
        QzPostRecorder::Posts().clear();
        unsigned char const data[] = {'z', 'z'};
        EXPECT_EQ(QzFileURL::Write(handle, QzFileURL::eTYPE_BLOCKING, 7, data, 2, nullptr),
                  QzFileURL::eSTATUS_ERROR);
        EXPECT_EQ(QzFileURL::GetFileSize(handle), size);
        ASSERT_EQ(QzPostRecorder::Posts().size(), 1u);
        QzRecordedPost const &post = QzPostRecorder::Posts()[0];
        EXPECT_EQ(post.severity, QzSysError::eWARNING);
        std::string const message = ToUtf8(post.message);
        EXPECT_NE(message.find("write of 2 bytes at 7"), std::string::npos) << message;
        EXPECT_NE(message.find(ToUtf8(c.uri)), std::string::npos) << message;
        QzFileURL::CloseURL(handle);
    }
    EXPECT_EQ(ReadBytes(Path("locked")), "0123456789");
}
