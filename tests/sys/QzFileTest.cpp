// QzFile (the buffered-file owner), QzFileUtils (directory creation and
// permission trials with their user messages) and QzTempFile (lifetime by
// reference count, ownership taken over).

#include "qzutil/sys/QzFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "qzutil/frame/QzError.h"
#include "qzutil/sys/QzFileUtils.h"
#include "qzutil/sys/QzSysFile.h"
#include "qzutil/sys/QzTempFile.h"
#include "qzutil/text/QzWideStringBuffer.h"

#include "support/QzTestSupport.h"
#include "sys/QzFileTestDir.h"

namespace {

class QzFileTest : public QzFileTestDir {
protected:
    void SetUp() override
    {
        QzFileTestDir::SetUp();
        QzError::Initialise();
        m_posts.emplace();
    }
    void TearDown() override
    {
        m_posts.reset();
        QzError::Terminate();
        QzFileTestDir::TearDown();
    }

    static std::string Utf8(LtWChar const *text) { return ToUtf8(ToU16(text)); }

    std::optional<QzPostRecording> m_posts;
};

using QzFileDeathTest = QzFileTest;

std::u16string const kPlease =
    u".  Please ask your administrator to ensure you have full permissions to this folder.";

}  // namespace

TEST_F(QzFileTest, WriteThenReadWithPositions)
{
    std::u16string path = WidePath("f");
    {
        QzFile file(path.c_str(), QzSysFile::eACCESS_WRITE, QzSysFile::eCREATE_ALWAYS);
        ASSERT_TRUE(file.IsValid());
        EXPECT_EQ(file.Write("0123456789", 10), 10u);
        EXPECT_EQ(file.GetPosition(), 10);
    }  // closed by the destructor
    EXPECT_EQ(ReadBytes(Path("f")), "0123456789");

    QzFile file;
    EXPECT_FALSE(file.IsValid());
    EXPECT_EQ(file.GetPosition(), -1);
    ASSERT_TRUE(file.Open(path.c_str(), QzSysFile::eACCESS_READ, QzSysFile::eOPEN_EXISTING));
    char buffer[16] = {};
    EXPECT_EQ(file.Read(buffer, 3), 3u);
    EXPECT_EQ(std::string(buffer, 3), "012");
    EXPECT_TRUE(file.Skip(2));
    EXPECT_EQ(file.Read(buffer, 2), 2u);
    EXPECT_EQ(std::string(buffer, 2), "56");
    EXPECT_TRUE(file.Seek(-1, QzSysFile::eSEEK_END));
    EXPECT_FALSE(file.IsEOF());
    EXPECT_EQ(file.Read(buffer, sizeof(buffer)), 1u);
    EXPECT_EQ(buffer[0], '9');
    EXPECT_TRUE(file.IsEOF());
    EXPECT_EQ(file.GetError(), 0) << "reaching the end is no failure";
    EXPECT_FALSE(file.Seek(-100, QzSysFile::eSEEK_SET));
    EXPECT_EQ(file.GetError(), QzSysFile::eERROR_INVALID_PARAMETER);
    EXPECT_TRUE(file.Close());
    EXPECT_TRUE(file.Close()) << "closing a closed file is fine";
    EXPECT_EQ(file.Read(buffer, 1), 0u);
}

TEST_F(QzFileTest, OpenFailureKeepsReason)
{
    QzFile file(WidePath("missing").c_str(), QzSysFile::eACCESS_READ, QzSysFile::eOPEN_EXISTING);
    EXPECT_FALSE(file.IsValid());
    EXPECT_EQ(file.GetError(), QzSysFile::eERROR_FILE_NOT_FOUND);
    EXPECT_EQ(file.GetHandle(), nullptr);
    WriteBytes(Path("present"), "x");
    EXPECT_TRUE(
        file.Open(WidePath("present").c_str(), QzSysFile::eACCESS_READ, QzSysFile::eOPEN_EXISTING));
    EXPECT_EQ(file.GetError(), 0) << "a new Open starts without failure";
}

TEST_F(QzFileTest, TextModeAndExtractedHandle)
{
    WriteBytes(Path("t"), "a\r\nb");
    QzFile file(WidePath("t").c_str(), QzSysFile::eACCESS_READ, QzSysFile::eOPEN_EXISTING,
                QzSysFile::eTEXT);
    ASSERT_TRUE(file.IsValid());
    std::FILE *stream = file.ExtractHandle();
    ASSERT_NE(stream, nullptr);
    EXPECT_FALSE(file.IsValid());
    char buffer[8] = {};
    EXPECT_EQ(std::fread(buffer, 1, sizeof(buffer), stream), 3u);
    EXPECT_EQ(std::string(buffer, 3), "a\nb");
    EXPECT_TRUE(QzSysFile::fclose(stream)) << "the caller owns the stream now";
}

// Each failure posts its text once, with the path, at eERROR against no
// component; the operation answers false after a handler took the post.
TEST_F(QzFileTest, FileUtilsPostsMessages)
{
    WriteBytes(Path("plain"), "x");
    std::u16string blocked = WidePath("plain/sub");
    EXPECT_FALSE(QzFileUtils::CreateDirW(blocked.c_str()));
    ASSERT_EQ(QzPostRecorder::Posts().size(), 1u);
    QzRecordedPost const &post = QzPostRecorder::Posts()[0];
    EXPECT_EQ(post.severity, QzSysError::eERROR);
    EXPECT_EQ(post.component, nullptr);
    EXPECT_EQ(post.id, -1);
    EXPECT_EQ(post.message, u"Failed to create directory: " + blocked + kPlease);

    QzPostRecorder::Posts().clear();
    std::u16string absent = WidePath("absent");
    EXPECT_FALSE(QzFileUtils::CheckPermissions(absent.c_str()));
    ASSERT_EQ(QzPostRecorder::Posts().size(), 1u);
    EXPECT_EQ(QzPostRecorder::Posts()[0].message, u"Unable to read directory: " + absent + kPlease);

    QzPostRecorder::Posts().clear();
    EXPECT_TRUE(QzFileUtils::CreateDirW(WidePath("made/deep").c_str()));
    EXPECT_TRUE(QzFileUtils::CheckPermissions(WidePath("made/deep").c_str()));
    EXPECT_TRUE(QzPostRecorder::Posts().empty());
    EXPECT_EQ(rmdir(Path("made/deep").c_str()), 0) << "the trial file is gone again";

    if (geteuid() != 0) {  // the superuser may write anywhere
        ASSERT_EQ(chmod(Path("made").c_str(), 0500), 0);
        std::u16string read_only = WidePath("made");
        EXPECT_FALSE(QzFileUtils::CheckPermissions(read_only.c_str()));
        ASSERT_EQ(QzPostRecorder::Posts().size(), 1u);
        EXPECT_EQ(QzPostRecorder::Posts()[0].message,
                  u"Unable to write directory: " + read_only + kPlease);
        ASSERT_EQ(chmod(Path("made").c_str(), 0700), 0);
    }
}

// Without a handler the eERROR post ends the process by the fatal tail.
TEST_F(QzFileDeathTest, FileUtilsFailureWithoutHandlerIsFatal)
{
    WriteBytes(Path("plain"), "x");
    QzSysError::RemoveHandler(QzSysError::eANY, static_cast<QzComponent *>(nullptr), -1);
    std::u16string blocked = WidePath("plain/sub");
    EXPECT_EXIT(
        {
            DisableCoreDumps();
            QzFileUtils::CreateDirW(blocked.c_str());
        },
        testing::KilledBySignal(SIGABRT), "");
}

TEST_F(QzFileTest, TempFileGoesWithLastReference)
{
    auto *temp = new QzTempFile();
    ASSERT_TRUE(temp->IsValid());
    std::string path = Utf8(temp->GetFilename());
    EXPECT_EQ(path.rfind(Path("tmp") + "/file_", 0), 0u) << path;
    EXPECT_EQ(ReadBytes(path), "");
    temp->Ref();
    temp->Ref();
    EXPECT_EQ(temp->GetRefCount(), 2);
    temp->Unref();
    EXPECT_TRUE(Exists(path));
    temp->Unref();
    EXPECT_FALSE(Exists(path));
}

TEST_F(QzFileTest, TempFileOwnershipTaken)
{
    auto *temp = new QzTempFile(WidePath("home").c_str(), u"keep", u"dat", 10);
    std::string path = Utf8(temp->GetFilename());
    EXPECT_EQ(path.rfind(Path("home") + "/keep_", 0), 0u) << path;
    EXPECT_EQ(path.substr(path.size() - 4), ".dat");
    EXPECT_EQ(ReadBytes(path), std::string(10, '\0'));
    temp->TakeOwnership();
    temp->Ref();
    temp->Unref();
    EXPECT_TRUE(Exists(path)) << "the caller owns the file now";
}

TEST_F(QzFileTest, TempFileAdoptsPathAndCopiesContents)
{
    WriteBytes(Path("adopted"), "old");
    auto *adopted = new QzTempFile(WidePath("adopted").c_str());
    auto *source = new QzTempFile(LtNat64{4});
    EXPECT_EQ(QzSysFile::GetFileSizeW(source->GetFilename()), 4u);
    WriteBytes(Utf8(source->GetFilename()), "new bytes");
    EXPECT_TRUE(adopted->CopyContents(*source));
    EXPECT_EQ(ReadBytes(Path("adopted")), "new bytes");
    auto *failed = new QzTempFile(WidePath("absent").c_str(), nullptr, nullptr);
    EXPECT_FALSE(failed->IsValid());
    EXPECT_EQ(ToU16(failed->GetFilename()), u"");
    EXPECT_FALSE(failed->CopyContents(*source));
    failed->Unref();
    adopted->Ref();
    adopted->Unref();
    source->Unref();
    EXPECT_FALSE(Exists(Path("adopted")));
}
