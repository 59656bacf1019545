// QzSysFile's disk operations in a fresh directory: raw handles and
// streams, text-mode reading, file creation, copies, removal and pruning,
// sorted listings, times, temporary names, the user's directories, the
// checksum, and the process queries.

#include "qzutil/sys/QzSysFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <deque>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/frame/QzSysError.h"
#include "qzutil/text/QzWideStringBuffer.h"

#include "support/QzTestSupport.h"
#include "sys/QzFileTestDir.h"

namespace {

class QzSysFileTest : public QzFileTestDir {
protected:
    // The path of `name` below the fixture as wide text; valid until the test ends.
    LtWChar const *PathW(std::string const &name)
    {
        return m_wide_paths.emplace_back(WidePath(name)).c_str();
    }

    // A raw handle on `name`; the share mode is accepted and ignored here.
    void *Open(char const *name, QzSysFile::AccessMode access, QzSysFile::CreationMode creation,
               unsigned attributes = QzSysFile::eATTR_NONE)
    {
        return QzSysFile::OpenFile(PathW(name), access, QzSysFile::eSHARE_READ, creation,
                                   attributes);
    }

    // The whole content of a stream opened with `mode`, read byte by byte.
    std::string ReadStream(std::string const &name, char const *mode)
    {
        std::FILE *file = QzSysFile::fopenW(PathW(name), mode);
        EXPECT_NE(file, nullptr) << mode;
        std::string text;
        for (int c; file != nullptr && (c = std::fgetc(file)) != EOF;)
            text += static_cast<char>(c);
        EXPECT_TRUE(QzSysFile::fclose(file));
        return text;
    }

    static void SetTime(std::string const &path, time_t seconds, int nanoseconds)
    {
        struct timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    }

    // An environment value of a table: "@" names a path below the fixture.
    std::string Value(char const *text) const
    {
        return text == nullptr ? "" : text[0] == '@' ? Path(text + 1) : text;
    }

    static std::string Utf8(QzWideStringBuffer const &text)
    {
        return ToUtf8(ToU16(text.GetString()));
    }

private:
    std::deque<std::u16string> m_wide_paths;  // a deque keeps the texts in place
};

}  // namespace

// Each creation mode and attribute, the transfers, and the errors that say
// why an open failed.
TEST_F(QzSysFileTest, RawHandlesByModeAndAttribute)
{
    void *file = Open("raw", QzSysFile::eACCESS_READ_WRITE, QzSysFile::eCREATE_NEW,
                      QzSysFile::eATTR_RANDOM_ACCESS);
    ASSERT_NE(file, nullptr);
    std::size_t done = 0;
    EXPECT_TRUE(QzSysFile::WriteFile(file, "hello world", 11, &done));
    EXPECT_EQ(done, 11u);
    LtInt64 position = -1;
    EXPECT_TRUE(QzSysFile::SeekFile(file, -5, QzSysFile::eSEEK_END, &position));
    EXPECT_EQ(position, 6);
    char buffer[16] = {};
    EXPECT_TRUE(QzSysFile::ReadFile(file, buffer, sizeof(buffer), &done));
    EXPECT_EQ(std::string(buffer, done), "world");
    EXPECT_TRUE(QzSysFile::ReadFile(file, buffer, sizeof(buffer), &done));
    EXPECT_EQ(done, 0u) << "at the end a read gives nothing and succeeds";
    EXPECT_TRUE(QzSysFile::FlushFileBuffer(file));
    EXPECT_TRUE(QzSysFile::CloseFile(file));

    file = Open("raw", QzSysFile::eACCESS_APPEND, QzSysFile::eOPEN_ALWAYS,
                QzSysFile::eATTR_NO_BUFFERING);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(QzSysFile::WriteFile(file, "ab", 2, nullptr));
    EXPECT_TRUE(QzSysFile::CloseFile(file));
    EXPECT_EQ(ReadBytes(Path("raw")), "hello worldab");
    file = Open("raw", QzSysFile::eACCESS_WRITE, QzSysFile::eTRUNCATE_EXISTING);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(QzSysFile::CloseFile(file));
    EXPECT_EQ(ReadBytes(Path("raw")), "");

    EXPECT_EQ(Open("raw", QzSysFile::eACCESS_WRITE, QzSysFile::eCREATE_NEW), nullptr);
    EXPECT_EQ(QzSysFile::GetLastError(), QzSysFile::eERROR_FILE_EXISTS);
    EXPECT_EQ(Open("missing", QzSysFile::eACCESS_READ, QzSysFile::eOPEN_EXISTING), nullptr);
    EXPECT_EQ(QzSysFile::GetLastError(), QzSysFile::eERROR_FILE_NOT_FOUND);
    EXPECT_EQ(Open("missing", QzSysFile::eACCESS_WRITE, QzSysFile::eTRUNCATE_EXISTING), nullptr);
    EXPECT_EQ(QzSysFile::GetLastError(), QzSysFile::eERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(QzSysFile::CloseFile(nullptr));
    EXPECT_EQ(QzSysFile::GetLastError(), QzSysFile::eERROR_INVALID_HANDLE);

    // Delete on close: the name goes at once; the descriptor keeps the data until closed.
    file = Open("scratch", QzSysFile::eACCESS_READ_WRITE, QzSysFile::eCREATE_ALWAYS,
                QzSysFile::eATTR_DELETE_ON_CLOSE);
    ASSERT_NE(file, nullptr);
    EXPECT_FALSE(Exists(Path("scratch")));
    EXPECT_TRUE(QzSysFile::WriteFile(file, "kept", 4, nullptr));
    EXPECT_TRUE(QzSysFile::SeekFile(file, 0, QzSysFile::eSEEK_SET, nullptr));
    EXPECT_TRUE(QzSysFile::ReadFile(file, buffer, sizeof(buffer), &done));
    EXPECT_EQ(std::string(buffer, done), "kept");
    EXPECT_TRUE(QzSysFile::CloseFile(file));
}

// Text mode drops the CR of each CR LF, and nothing else; binary mode and
// writing change nothing.
TEST_F(QzSysFileTest, TextModeReadingDropsCrOfCrLf)
{
    struct Row {
        char const *name;
        std::string bytes;
        std::string text;
    } const rows[] = {
        {"pairs", "a\r\nb\r\n", "a\nb\n"},
        {"lone_crs_stay", "a\rb\r\rc", "a\rb\r\rc"},
        {"cr_before_pair", "a\r\r\nb", "a\r\nb"},
        {"blank_lines", "\r\n\r\n", "\n\n"},
        {"cr_at_end", "d\r", "d\r"},
        {"pair_across_staging", std::string(4095, 'x') + "\r\ny", std::string(4095, 'x') + "\ny"},
        {"cr_ends_staging", std::string(4095, 'x') + "\rz", std::string(4095, 'x') + "\rz"},
        {"empty", "", ""},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        WriteBytes(Path("t"), row.bytes);
        EXPECT_EQ(ReadStream("t", "r"), row.text) << "text is the default";
        EXPECT_EQ(ReadStream("t", "rt"), row.text);
        EXPECT_EQ(ReadStream("t", "rb"), row.bytes);
    }
    std::FILE *file = QzSysFile::fopenW(PathW("w"), "wt");
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(QzSysFile::fwrite("a\nb\r\n", 5, file));
    EXPECT_TRUE(QzSysFile::fclose(file));
    EXPECT_EQ(ReadBytes(Path("w")), "a\nb\r\n");
}

// A text stream that reads may also write and seek: writes land where the
// reader stopped, not behind what was staged.
TEST_F(QzSysFileTest, TextModeUpdateWritesAtReadPosition)
{
    WriteBytes(Path("u"), "ab\r\ncd\r\n");
    std::FILE *file = QzSysFile::fopenW(PathW("u"), "r+");
    ASSERT_NE(file, nullptr);
    char line[8] = {};
    ASSERT_NE(std::fgets(line, sizeof(line), file), nullptr);
    EXPECT_STREQ(line, "ab\n");
    EXPECT_EQ(QzSysFile::ftell(file), 4);
    EXPECT_TRUE(QzSysFile::fseek(file, 0, QzSysFile::eSEEK_CUR));
    EXPECT_TRUE(QzSysFile::fwrite("XY", 2, file));
    EXPECT_TRUE(QzSysFile::fseek(file, 0, QzSysFile::eSEEK_SET));
    char all[16] = {};
    EXPECT_EQ(QzSysFile::fread(all, 1, sizeof(all), file), 6u);
    EXPECT_STREQ(all, "ab\nXY\n");
    EXPECT_TRUE(QzSysFile::fclose(file));
    EXPECT_EQ(ReadBytes(Path("u")), "ab\r\nXY\r\n");
}

TEST_F(QzSysFileTest, StreamModesAndLargePositions)
{
    struct Row {
        char const *name;
        char const *mode;
        int error;  // 0: opens
    } const rows[] = {
        {"read_missing", "r", QzSysFile::eERROR_FILE_NOT_FOUND},
        {"bad_letter", "q", QzSysFile::eERROR_INVALID_PARAMETER},
        {"bad_suffix", "rz", QzSysFile::eERROR_INVALID_PARAMETER},
        {"null_mode", nullptr, QzSysFile::eERROR_INVALID_PARAMETER},
        {"write_creates", "wb", 0},
        {"exclusive_on_existing", "wx", QzSysFile::eERROR_FILE_EXISTS},
        {"update", "rb+", 0},
        {"append_update", "a+b", 0},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        std::FILE *file = QzSysFile::fopenW(PathW("s"), row.mode);
        EXPECT_EQ(file == nullptr, row.error != 0);
        if (file == nullptr)
            EXPECT_EQ(QzSysFile::GetLastError(), row.error);
        else
            EXPECT_TRUE(QzSysFile::fclose(file));
    }
    std::FILE *file = QzSysFile::fopenU(Path("s").c_str(), "rb");
    ASSERT_NE(file, nullptr);
    LtInt64 const five_gib = LtInt64{5} << 30;
    EXPECT_TRUE(QzSysFile::fseek(file, five_gib, QzSysFile::eSEEK_SET));
    EXPECT_EQ(QzSysFile::ftell(file), five_gib);
    EXPECT_TRUE(QzSysFile::fclose(file));
    EXPECT_FALSE(QzSysFile::fclose(nullptr));
}

TEST_F(QzSysFileTest, CreateFileSizesAndZeros)
{
    ASSERT_TRUE(QzSysFile::CreateFileW(PathW("sparse"), 5000));
    EXPECT_EQ(ReadBytes(Path("sparse")), std::string(5000, '\0'));
    ASSERT_TRUE(QzSysFile::CreateFileW(PathW("sparse"), 3));
    EXPECT_EQ(ReadBytes(Path("sparse")), std::string(3, '\0')) << "an existing file is emptied";

    LtNat64 const size = 100000;
    ASSERT_TRUE(QzSysFile::CreateUninitialisedFileW(PathW("full"), size));
    EXPECT_EQ(ReadBytes(Path("full")), std::string(size, '\0'));
    struct stat info;
    ASSERT_EQ(stat(Path("full").c_str(), &info), 0);
    EXPECT_GE(static_cast<LtNat64>(info.st_blocks) * 512, size) << "the space is taken";
    EXPECT_FALSE(QzSysFile::CreateFileW(PathW("no/such/dir"), 1));
}

TEST_F(QzSysFileTest, CopyRenameAndUnlink)
{
    WriteBytes(Path("src"), "source bytes");
    ASSERT_EQ(chmod(Path("src").c_str(), 0640), 0);
    ASSERT_TRUE(QzSysFile::CopyFileW(PathW("src"), PathW("dst"), true));
    EXPECT_EQ(ReadBytes(Path("dst")), "source bytes");
    struct stat info;
    ASSERT_EQ(stat(Path("dst").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);

    WriteBytes(Path("other"), "other");
    EXPECT_FALSE(QzSysFile::CopyFileW(PathW("src"), PathW("other"), true));
    EXPECT_EQ(QzSysFile::GetLastError(), QzSysFile::eERROR_FILE_EXISTS);
    EXPECT_EQ(ReadBytes(Path("other")), "other") << "refused copy leaves the target";
    EXPECT_TRUE(QzSysFile::CopyFileW(PathW("src"), PathW("other"), false));
    EXPECT_EQ(ReadBytes(Path("other")), "source bytes");
    EXPECT_FALSE(QzSysFile::CopyFileW(PathW("src"), PathW("src"), false));
    EXPECT_EQ(ReadBytes(Path("src")), "source bytes") << "a copy onto itself must not empty it";
    EXPECT_FALSE(QzSysFile::CopyFileW(PathW("nothing"), PathW("n2"), false));
    EXPECT_FALSE(Exists(Path("n2")));

    EXPECT_TRUE(QzSysFile::RenameW(PathW("dst"), PathW("other")));
    EXPECT_FALSE(Exists(Path("dst")));
    EXPECT_EQ(ReadBytes(Path("other")), "source bytes");

    ASSERT_EQ(chmod(Path("other").c_str(), 0444), 0);
    EXPECT_FALSE(QzSysFile::UnlinkW(PathW("other"), false));
    EXPECT_EQ(QzSysFile::GetLastError(), QzSysFile::eERROR_ACCESS_DENIED);
    EXPECT_TRUE(Exists(Path("other")));
    EXPECT_TRUE(QzSysFile::UnlinkW(PathW("other"), true));
    EXPECT_FALSE(Exists(Path("other")));
    EXPECT_TRUE(QzSysFile::UnlinkU(Path("src").c_str(), false));
    EXPECT_FALSE(QzSysFile::UnlinkW(PathW("src"), false));
    EXPECT_EQ(QzSysFile::GetLastError(), QzSysFile::eERROR_FILE_NOT_FOUND);
}

// Paths reach the kernel with "\" as "/".
TEST_F(QzSysFileTest, BackslashesReachKernelAsSlashes)
{
    ASSERT_EQ(mkdir(Path("sub").c_str(), 0700), 0);
    WriteBytes(Path("sub/f"), "x");
    std::u16string backslashed = Wide(m_root) + u"\\sub\\f";
    EXPECT_TRUE(QzSysFile::ExistsW(backslashed.c_str()));
    EXPECT_TRUE(QzSysFile::IsDirectoryW((Wide(m_root) + u"\\sub").c_str()));
    EXPECT_FALSE(QzSysFile::IsDirectoryW(backslashed.c_str()));
    EXPECT_FALSE(QzSysFile::ExistsW(nullptr));
}

TEST_F(QzSysFileTest, CreateDirDeleteAndRemove)
{
    EXPECT_TRUE(QzSysFile::CreateDirW((WidePath("a/b/c") + u"/").c_str()));
    EXPECT_TRUE(QzSysFile::IsDirectoryU(Path("a/b/c").c_str()));
    EXPECT_TRUE(QzSysFile::CreateDirW(PathW("a/b/c"))) << "an existing directory is success";
    WriteBytes(Path("a/b/file"), "x");
    EXPECT_FALSE(QzSysFile::CreateDirW(PathW("a/b/file")));
    EXPECT_FALSE(QzSysFile::CreateDirW(PathW("a/b/file/d")));

    EXPECT_FALSE(QzSysFile::RemoveDirectoryW(PathW("a/b")));
    EXPECT_EQ(QzSysFile::GetLastError(), QzSysFile::eERROR_DIR_NOT_EMPTY);
    EXPECT_FALSE(QzSysFile::DeleteW(PathW("a"), false, false));
    EXPECT_TRUE(QzSysFile::RemoveDirectoryW(PathW("a/b/c")));

    ASSERT_EQ(symlink(Path("keep").c_str(), Path("a/b/link").c_str()), 0);
    ASSERT_EQ(mkdir(Path("keep").c_str(), 0700), 0);
    WriteBytes(Path("keep/precious"), "x");
    ASSERT_EQ(chmod(Path("a/b/file").c_str(), 0400), 0);
    EXPECT_FALSE(QzSysFile::DeleteW(PathW("a"), true, false)) << "read-only file";
    EXPECT_TRUE(QzSysFile::DeleteW(PathW("a"), true, true));
    EXPECT_FALSE(Exists(Path("a")));
    EXPECT_TRUE(Exists(Path("keep/precious"))) << "a link is removed, not followed";
    EXPECT_TRUE(QzSysFile::CreateDirU(Path("u/v").c_str()));
    EXPECT_TRUE(QzSysFile::ExistsU(Path("u/v").c_str()));
}

TEST_F(QzSysFileTest, PruneRemovesOnlyEmptyBranches)
{
    for (char const *dir : {"r", "r/a", "r/a/b", "r/c", "r/d", "r/d/e", "r/d/e/f"})
        ASSERT_EQ(mkdir(Path(dir).c_str(), 0700), 0);
    WriteBytes(Path("r/c/file"), "x");
    EXPECT_FALSE(QzSysFile::PruneEmptyDirectoriesW(PathW("r")));
    EXPECT_TRUE(Exists(Path("r/c/file")));
    EXPECT_FALSE(Exists(Path("r/a")));
    EXPECT_FALSE(Exists(Path("r/d")));
    ASSERT_EQ(unlink(Path("r/c/file").c_str()), 0);
    EXPECT_TRUE(QzSysFile::PruneEmptyDirectoriesW(PathW("r")));
    EXPECT_TRUE(Exists(Path("r"))) << "the root stays";
    EXPECT_FALSE(Exists(Path("r/c")));
    EXPECT_TRUE(QzSysFile::PruneEmptyDirectoriesRecurse(PathW("r"), true));
    EXPECT_FALSE(Exists(Path("r")));
}

// ASCII case folded first, then bytes: "_" (0x5F) sorts before letters once
// they are folded to lower case, and UTF-8 after ASCII. A directory is
// shown here with a trailing "/".
TEST_F(QzSysFileTest, OpenDirListsSortedWithoutDots)
{
    ASSERT_EQ(mkdir(Path("l").c_str(), 0700), 0);
    for (char const *name : {"b", "B2", "a", "_x", "A", "\xC3\xA9", "\xFF"})
        WriteBytes(Path(std::string("l/") + name), "");
    ASSERT_EQ(mkdir(Path("l/c").c_str(), 0700), 0);
    QzSysDirHandle *dir = QzSysFile::OpenDirW(PathW("l"));
    ASSERT_NE(dir, nullptr);
    std::vector<std::u16string> names;
    QzWideStringBuffer name;
    bool is_directory = false;
    while (QzSysFile::ReadDirW(dir, &name, &is_directory))
        names.push_back(ToU16(name.GetString()) + (is_directory ? u"/" : u""));
    EXPECT_FALSE(QzSysFile::ReadDirW(dir, &name, &is_directory));
    QzSysFile::CloseDir(dir);
    EXPECT_EQ(names, (std::vector<std::u16string>{u"_x", u"A", u"a", u"b", u"B2", u"c/", u"\u00E9",
                                                  u"\uFFFD"}));
    EXPECT_EQ(QzSysFile::OpenDirW(PathW("nothing")), nullptr);
    QzSysFile::CloseDir(nullptr);
}

TEST_F(QzSysFileTest, FileInfoAndStat)
{
    WriteBytes(Path("i"), "12345");
    ASSERT_EQ(chmod(Path("i").c_str(), 0604), 0);
    SetTime(Path("i"), 1234567890, 999999999);
    QzSysFileInfoHandle *info = QzSysFile::OpenFileInfoW(PathW("i"));
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(QzSysFile::GetFileInfoSize(info), 5u);
    EXPECT_EQ(QzSysFile::GetFileInfoTime(info), 1234567890);
    EXPECT_EQ(QzSysFile::GetFileInfoPermissions(info), 0604);
    EXPECT_FALSE(QzSysFile::IsFileInfoDirectory(info));
    QzSysFile::CloseFileInfo(info);
    LtInt64 time = 0;
    LtNat64 size = 0;
    EXPECT_TRUE(QzSysFile::StatW(PathW("i"), &time, &size));
    EXPECT_EQ(time, 1234567890) << "whole seconds";
    EXPECT_EQ(size, 5u);
    EXPECT_TRUE(QzSysFile::StatW(PathW("i"), nullptr, nullptr));
    EXPECT_TRUE(QzSysFile::GetFileSizeU(Path("i").c_str(), &size));
    EXPECT_FALSE(QzSysFile::GetFileSizeW(PathW("home"), &size)) << "a directory has no file size";
    EXPECT_FALSE(QzSysFile::GetFileSizeW(PathW("missing"), &size));
    EXPECT_EQ(QzSysFile::GetLastError(), QzSysFile::eERROR_FILE_NOT_FOUND);
    EXPECT_EQ(QzSysFile::OpenFileInfoW(PathW("missing")), nullptr);
    EXPECT_TRUE(QzSysFile::ChangePermissionsW(PathW("i"), 0100600));
    EXPECT_TRUE(QzSysFile::CanReadW(PathW("i")));
    EXPECT_TRUE(QzSysFile::CanWriteW(PathW("i")));
    EXPECT_TRUE(QzSysFile::ChangePermissionsW(PathW("i"), 0));
    if (geteuid() != 0) {  // the superuser passes every permission test
        EXPECT_FALSE(QzSysFile::CanReadW(PathW("i")));
        EXPECT_FALSE(QzSysFile::CanWriteW(PathW("i")));
    }
}

// Nanoseconds count; a missing a is older than any b; b must be a file.
TEST_F(QzSysFileTest, IsNewerComparesWriteTimes)
{
    WriteBytes(Path("a"), "");
    WriteBytes(Path("b"), "");
    SetTime(Path("a"), 1000, 500);
    SetTime(Path("b"), 1000, 400);
    EXPECT_TRUE(QzSysFile::IsNewerW(PathW("a"), PathW("b")));
    EXPECT_FALSE(QzSysFile::IsNewerW(PathW("b"), PathW("a")));
    SetTime(Path("b"), 1000, 500);
    EXPECT_FALSE(QzSysFile::IsNewerW(PathW("a"), PathW("b"))) << "equal";
    SetTime(Path("b"), 999, 999999999);
    EXPECT_TRUE(QzSysFile::IsNewerW(PathW("a"), PathW("b")));
    EXPECT_TRUE(QzSysFile::IsNewerW(PathW("missing"), PathW("b")));
    EXPECT_FALSE(QzSysFile::IsNewerW(PathW("a"), PathW("missing")));
    EXPECT_FALSE(QzSysFile::IsNewerW(PathW("home"), PathW("b")));
    EXPECT_FALSE(QzSysFile::IsNewerW(PathW("a"), PathW("home")));
    EXPECT_FALSE(QzSysFile::IsNewerW(nullptr, PathW("b")));
    EXPECT_FALSE(QzSysFile::IsNewerW(PathW("a"), nullptr));
}

// Published Adler-32 values: "Wikipedia" is 0x11E60398; 5,000 bytes of "a"
// (more than one 4,096-byte read) give A = 1 + 5000 * 97 mod 65521 = 26354
// and B = 5000 + 97 * 5000 * 5001 / 2 mod 65521 = 19311.
TEST_F(QzSysFileTest, ChecksumIsAdler32OfWholeFile)
{
    struct Row {
        char const *name;
        std::string bytes;
        LtNat32 adler;
    } const rows[] = {
        {"empty", "", 0x00000001},
        {"wikipedia", "Wikipedia", 0x11E60398},
        {"two_reads", std::string(5000, 'a'), 0x4B6F66F2},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        WriteBytes(Path("c"), row.bytes);
        int checksum = 0;
        EXPECT_TRUE(QzSysFile::GetChecksum(PathW("c"), &checksum));
        EXPECT_EQ(static_cast<LtNat32>(checksum), row.adler);
    }
    int checksum = 7;
    EXPECT_FALSE(QzSysFile::GetChecksum(PathW("missing"), &checksum));
    EXPECT_EQ(checksum, 7);
}

TEST_F(QzSysFileTest, TempDirRules)
{
    QzWideStringBuffer dir;
    struct Row {
        char const *name;
        char const *tmpdir;  // null: unset; "@" prefix: below the fixture
        std::string expected;
    } const rows[] = {
        {"fresh_dir", "@tmp", Path("tmp")}, {"trailing_slash", "@tmp/", Path("tmp")},
        {"relative", "tmp", "/tmp"},        {"missing", "@absent", "/tmp"},
        {"unset", nullptr, "/tmp"},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        std::string value = Value(row.tmpdir);
        m_environment.Set("TMPDIR", row.tmpdir == nullptr ? nullptr : value.c_str());
        EXPECT_TRUE(QzSysFile::GetTempDir(&dir));
        EXPECT_EQ(Utf8(dir), row.expected);
    }
    EXPECT_FALSE(QzSysFile::GetOverrideTempDir(&dir));
    EXPECT_TRUE(QzSysFile::SetOverrideTempDir(PathW("over/ride/"), true));
    EXPECT_TRUE(Exists(Path("over/ride")));
    EXPECT_TRUE(QzSysFile::GetTempDir(&dir));
    EXPECT_EQ(Utf8(dir), Path("over/ride"));
    EXPECT_TRUE(QzSysFile::GetOverrideTempDir(&dir));
    EXPECT_TRUE(QzSysFile::SetOverrideTempDir(nullptr, false));
    EXPECT_FALSE(QzSysFile::GetOverrideTempDir(&dir));
    WriteBytes(Path("plainfile"), "");
    EXPECT_FALSE(QzSysFile::SetOverrideTempDir(PathW("plainfile/sub"), true));
    EXPECT_FALSE(QzSysFile::GetOverrideTempDir(&dir)) << "a failed create sets nothing";
}

// True for "%4x" of a number from 0 to 7fff: blanks, then hex digits
// without a leading zero (unless the number is 0), four columns in all.
static bool IsPaddedHexUpTo7fff(std::string const &column)
{
    std::size_t const digits = column.find_first_not_of(' ');
    return column.size() == 4 && digits != std::string::npos &&
           column.find_first_not_of("0123456789abcdef", digits) == std::string::npos &&
           (column[digits] != '0' || digits == 3) && (digits > 0 || column[0] <= '7');
}

// "<stem>_<pid>_", two "%4x" numbers, and the extension.
TEST_F(QzSysFileTest, TempNamesHaveShapeAndDiffer)
{
    struct Row {
        char const *name;
        char16_t const *stem;
        char16_t const *ext;
        std::string expected_stem;
        std::string expected_suffix;
    } const rows[] = {
        {"defaults", nullptr, nullptr, "file", ""},
        {"extension", u"ty", u"tmp", "ty", ".tmp"},
        {"extension_with_dot", u"ty", u".x", "ty", ".x"},
        {"long_stem_cut_at_30", u"abcdefghijklmnopqrstuvwxyz0123456789", nullptr,
         "abcdefghijklmnopqrstuvwxyz0123", ""},
        {"reserved_characters", u"a:b*c", nullptr, "abc", ""},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        QzWideStringBuffer path;
        ASSERT_TRUE(QzSysFile::MakeTempFileNameW(nullptr, row.stem, row.ext, &path));
        std::string const text = Utf8(path);
        std::string const stem =
            Path("tmp") + "/" + row.expected_stem + "_" + std::to_string(getpid()) + "_";
        ASSERT_EQ(text.rfind(stem, 0), 0u) << text;
        EXPECT_TRUE(IsPaddedHexUpTo7fff(text.substr(stem.size(), 4))) << text;
        EXPECT_TRUE(IsPaddedHexUpTo7fff(text.substr(stem.size() + 4, 4))) << text;
        EXPECT_EQ(text.substr(stem.size() + 8), row.expected_suffix);
        EXPECT_FALSE(Exists(text)) << "only a name is made";
    }
    std::set<std::string> made;
    for (int i = 0; i < 200; ++i) {
        QzWideStringBuffer path;
        ASSERT_TRUE(QzSysFile::MakeTempFileW(PathW("home"), u"u", nullptr, 0, &path));
        made.insert(Utf8(path));
    }
    EXPECT_EQ(made.size(), 200u);
    for (std::string const &path : made)
        EXPECT_TRUE(Exists(path)) << path;
    QzWideStringBuffer sized;
    ASSERT_TRUE(QzSysFile::MakeTempFileW(1234, &sized));
    EXPECT_EQ(QzSysFile::GetFileSizeW(sized.GetString()), 1234u);
    QzWideStringBuffer failed(u"sentinel");
    EXPECT_FALSE(QzSysFile::MakeTempFileW(PathW("absent"), nullptr, nullptr, 0, &failed));
    EXPECT_EQ(ToU16(failed.GetString()), u"") << "after 100 tries the name is empty";
}

TEST_F(QzSysFileTest, SearchPathFindsFirstDirectoryWithName)
{
    for (char const *dir : {"d1", "d2", "d3"})
        ASSERT_EQ(mkdir(Path(dir).c_str(), 0700), 0);
    WriteBytes(Path("d2/name"), "");
    WriteBytes(Path("d3/name"), "");
    QzWideStringBuffer list, found;
    QzSysFile::PushSearchPathW(&list, PathW("d1"));
    QzSysFile::PushSearchPathW(&list, (u" " + WidePath("d2") + u" ").c_str());
    QzSysFile::PushSearchPathW(&list, PathW("d3"));
    EXPECT_TRUE(QzSysFile::SearchPathW(list.GetString(), u"name", &found));
    EXPECT_EQ(Utf8(found), Path("d2/name"));
    EXPECT_FALSE(QzSysFile::SearchPathW(list.GetString(), u"other", &found));
    EXPECT_EQ(Utf8(found), "");
}

TEST_F(QzSysFileTest, OSDirectoriesFollowXdg)
{
    struct Row {
        char const *name;
        char const *variable;
        char const *value;  // null: unset; "@" prefix: below the fixture
        QzSysFile::OSDirectory which;
        std::string expected;
    } const rows[] = {
        {"home", "HOME", "@home", QzSysFile::eOS_DIR_HOME, Path("home")},
        {"config", "XDG_CONFIG_HOME", "@config", QzSysFile::eOS_DIR_ROAMING_APP_DATA,
         Path("config")},
        {"config_unset", "XDG_CONFIG_HOME", nullptr, QzSysFile::eOS_DIR_ROAMING_APP_DATA,
         Path("home/.config")},
        {"data", "XDG_DATA_HOME", "@data", QzSysFile::eOS_DIR_LOCAL_APP_DATA, Path("data")},
        {"data_relative_ignored", "XDG_DATA_HOME", "data", QzSysFile::eOS_DIR_LOCAL_APP_DATA,
         Path("home/.local/share")},
        {"common_first_entry", "XDG_DATA_DIRS", "/opt/share:/usr/share",
         QzSysFile::eOS_DIR_COMMON_APP_DATA, "/opt/share"},
        {"common_unset", "XDG_DATA_DIRS", nullptr, QzSysFile::eOS_DIR_COMMON_APP_DATA,
         "/usr/local/share"},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        std::string value = Value(row.value);
        m_environment.Set(row.variable, row.value == nullptr ? nullptr : value.c_str());
        QzWideStringBuffer dir;
        EXPECT_TRUE(QzSysFile::GetOSDirectoryPath(row.which, &dir));
        EXPECT_EQ(Utf8(dir), row.expected);
    }
    QzWideStringBuffer dir(u"sentinel");
    EXPECT_FALSE(QzSysFile::GetOSDirectoryPath(static_cast<QzSysFile::OSDirectory>(4), &dir));
    EXPECT_EQ(ToU16(dir.GetString()), u"");
}

TEST_F(QzSysFileTest, ProcessQueries)
{
    QzWideStringBuffer text, saved;
    ASSERT_TRUE(QzSysFile::GetCurrentDirectoryW(&saved));
    EXPECT_TRUE(QzSysFile::SetCurrentDirectoryW(PathW("home")));
    EXPECT_TRUE(QzSysFile::GetCurrentDirectoryW(&text));
    EXPECT_EQ(Utf8(text), Path("home"));
    EXPECT_TRUE(QzSysFile::SetCurrentDirectoryW(saved.GetString()));
    EXPECT_FALSE(QzSysFile::SetCurrentDirectoryW(PathW("absent")));

    m_environment.Set("QZ_FILE_TEST_VALUE", nullptr);
    EXPECT_TRUE(QzSysFile::SetEnvironmentVariableW(u"QZ_FILE_TEST_VALUE", u"a\\b \u00E9"));
    EXPECT_STREQ(getenv("QZ_FILE_TEST_VALUE"), "a\\b \xC3\xA9") << "values are not paths";
    EXPECT_TRUE(QzSysFile::GetEnvironmentVariableW(u"QZ_FILE_TEST_VALUE", &text));
    EXPECT_EQ(ToU16(text.GetString()), u"a\\b \u00E9");
    EXPECT_FALSE(QzSysFile::GetEnvironmentVariableW(u"qz_file_test_value", &text))
        << "names are case-sensitive";
    EXPECT_TRUE(QzSysFile::SetEnvironmentVariableW(u"QZ_FILE_TEST_VALUE", nullptr));
    EXPECT_EQ(getenv("QZ_FILE_TEST_VALUE"), nullptr);

    QzWideStringBuffer executable, dir, module;
    ASSERT_TRUE(QzSysFile::GetExecutablePathW(&executable));
    ASSERT_TRUE(QzSysFile::GetExecutableDirW(&dir));
    EXPECT_EQ(Utf8(executable), Utf8(dir) + "/qzutil_sys_files_tests");
    ASSERT_TRUE(QzSysFile::GetModuleFileNameW(nullptr, &module));
    EXPECT_EQ(Utf8(module), Utf8(executable));
    ASSERT_TRUE(QzSysFile::GetModuleFileNameW(
        reinterpret_cast<void const *>(&QzSysFile::IsWow64Process), &module));
    EXPECT_NE(Utf8(module).find("/libqzutil.so"), std::string::npos) << Utf8(module);
    EXPECT_FALSE(QzSysFile::IsWow64Process());
    EXPECT_EQ(QzSysFile::GetFileTimeStampResolution(), 1);
}

// Arguments split at blanks; quotes group and \" is a quote. The shell is
// the program here, not the means of starting it.
TEST_F(QzSysFileTest, RunExecutableSplitsArguments)
{
    struct Row {
        char const *name;
        char16_t const *arguments;
        bool succeeds;
    } const rows[] = {
        {"exit_zero", u"-c \"exit 0\"", true},
        {"exit_three", u"-c \"exit 3\"", false},
        {"quoted_blank_argument", u"-c \"test \\\"$0\\\" = 'x y'\" \"x y\"", true},
        {"blanks_separate", u"-c \"test \\\"$0\\\" = x\"   x  ", true},
        {"escaped_quote_inside", u"-c \"test \\\"$0\\\" = '\\\"'\" \\\"", true},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(QzSysFile::RunExecutable(u"/bin/sh", row.arguments, true), row.succeeds);
    }
}

TEST_F(QzSysFileTest, ImageTypeFromHeader)
{
    // "MZ", at 0x3C the offset 0x40 of "PE\0\0", then the machine number.
    std::string pe(0x44, '\0');
    pe.replace(0, 2, "MZ");
    pe[0x3C] = 0x40;
    pe.replace(0x40, 2, "PE");
    // A 64-byte ELF header, little-endian, version 1; class 1 is 32 bits, 2 is 64.
    auto elf = [](char elf_class) {
        return std::string("\x7F\x45LF") + elf_class + "\x01\x01" + std::string(57, '\0');
    };
    struct Row {
        char const *name;
        std::string bytes;
        QzSysFile::PEImageType type;
    } const rows[] = {
        {"elf64", elf('\x02'), QzSysFile::ePE_IMAGE_64BIT},
        {"elf32", elf('\x01'), QzSysFile::ePE_IMAGE_32BIT},
        {"pe_amd64", pe + std::string("\x64\x86", 2), QzSysFile::ePE_IMAGE_64BIT},
        {"pe_i386", pe + std::string("\x4C\x01", 2), QzSysFile::ePE_IMAGE_32BIT},
        {"pe_unknown_machine", pe + std::string("\x00\x00", 2), QzSysFile::ePE_IMAGE_UNKNOWN},
        {"text", "just text, long enough", QzSysFile::ePE_IMAGE_UNKNOWN},
        {"empty", "", QzSysFile::ePE_IMAGE_UNKNOWN},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        WriteBytes(Path("image"), row.bytes);
        EXPECT_EQ(QzSysFile::GetPEImageType(PathW("image")), row.type);
    }
    QzWideStringBuffer executable;
    ASSERT_TRUE(QzSysFile::GetExecutablePathW(&executable));
    EXPECT_EQ(QzSysFile::GetPEImageType(executable.GetString()), QzSysFile::ePE_IMAGE_64BIT);

    QzSysError::ClearLogBuffer();
    EXPECT_EQ(QzSysFile::GetPEImageType(PathW("absent")), QzSysFile::ePE_IMAGE_UNKNOWN);
    EXPECT_EQ(ReplayLog(), "QzSysFile::GetPEImageType() : " + Path("absent") + " doesn't exist.\n");
    if (geteuid() != 0) {
        WriteBytes(Path("locked"), "");
        ASSERT_EQ(chmod(Path("locked").c_str(), 0), 0);
        QzSysError::ClearLogBuffer();
        EXPECT_EQ(QzSysFile::GetPEImageType(PathW("locked")), QzSysFile::ePE_IMAGE_UNKNOWN);
        EXPECT_EQ(ReplayLog(), "QzSysFile::GetPEImageType() : Can't open " + Path("locked") + "\n");
    }
}
