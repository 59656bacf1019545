// The log file: what it receives when switched on late, when its directory or
// path changes, after the log is cleared, when it cannot be opened, and how
// its path text reaches the file system.

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/frame/QzSysError.h"

#include "frame/QzSysErrorFileFixture.h"

namespace {

// The name of a log file in a directory: the test executable's name, the
// process id, "_", a tick count, ".txt".
bool IsNamedAfterThisProcess(std::string const &name)
{
    std::string const prefix = "qzutil_frame_log_tests" + std::to_string(getpid()) + "_";
    std::string const suffix = ".txt";
    if (name.size() <= prefix.size() + suffix.size() ||
        name.compare(0, prefix.size(), prefix) != 0 ||
        name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
        return false;
    return std::all_of(name.begin() + static_cast<std::ptrdiff_t>(prefix.size()),
                       name.end() - static_cast<std::ptrdiff_t>(suffix.size()),
                       [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; });
}

class QzSysErrorLogFileTest : public QzScratchDirectoryTest {
protected:
    void SetUp() override
    {
        QzScratchDirectoryTest::SetUp();
        QzSysError::ClearLogBuffer();
    }
    void TearDown() override
    {
        QzSysError::SetLogFileEnable(0);
        QzSysError::SetLogFile(nullptr);
        QzSysError::SetLogDir(nullptr);
        QzSysError::ClearLogBuffer();
        QzScratchDirectoryTest::TearDown();
    }

    // The files in a directory of the scratch directory, by name.
    std::vector<std::string> FilesIn(std::string const &name) const
    {
        std::vector<std::string> files;
        for (auto const &entry : std::filesystem::directory_iterator(PathOf(name)))
            files.push_back(entry.path().filename().string());
        return files;
    }

    void MakeDirectory(std::string const &name) const
    {
        ASSERT_TRUE(std::filesystem::create_directory(PathOf(name)));
    }
};

}  // namespace

// The lines logged before the switch come first in the file, in order, then
// what follows; once off, the file gets nothing more.
TEST_F(QzSysErrorLogFileTest, EnablingAfterHundredLinesPutsThemFirst)
{
    std::string const path = PathOf("late.txt");
    QzSysError::SetLogFile(WidePathOf("late.txt").c_str());
    std::string expected;
    for (int i = 0; i < 100; ++i) {
        std::string const line = "line " + std::to_string(i) + " of the start\n";
        QzSysError::LogUTF8String(line.c_str());
        expected += line;
    }
    EXPECT_FALSE(Exists(path)) << "setting the path alone opens nothing";
    EXPECT_EQ(QzSysError::IsLogFileEnable(), 0);

    QzSysError::SetLogFileEnable(1);
    EXPECT_EQ(QzSysError::IsLogFileEnable(), 1);
    EXPECT_EQ(ReadFile(path), expected) << "unbuffered: the replay is on disk at once";
    QzSysError::LogUTF8String("after the switch\n");
    QzSysError::SetLogFileEnable(0);
    QzSysError::LogUTF8String("after switching off\n");
    EXPECT_EQ(ReadFile(path), expected + "after the switch\n");
}

// A new directory while the file is on: the old file stops, a new one in the
// new directory gets the whole log again. Each is named after the process.
TEST_F(QzSysErrorLogFileTest, SetLogDirMovesTheLogToANewFile)
{
    MakeDirectory("first");
    MakeDirectory("second");
    QzSysError::SetLogDir(WidePathOf("first").c_str());
    QzSysError::SetLogFileEnable(1);
    QzSysError::LogUTF8String("one\n");
    QzSysError::SetLogDir(WidePathOf("second").c_str());
    EXPECT_EQ(QzSysError::IsLogFileEnable(), 1);
    QzSysError::LogUTF8String("two\n");
    EXPECT_EQ(ToU16(QzSysError::GetLogDir()), WidePathOf("second"));

    std::vector<std::string> const first = FilesIn("first");
    std::vector<std::string> const second = FilesIn("second");
    ASSERT_EQ(first.size(), 1u);
    ASSERT_EQ(second.size(), 1u);
    EXPECT_TRUE(IsNamedAfterThisProcess(first[0])) << first[0];
    EXPECT_TRUE(IsNamedAfterThisProcess(second[0])) << second[0];
    EXPECT_EQ(ReadFile(PathOf("first/" + first[0])), "one\n");
    EXPECT_EQ(ReadFile(PathOf("second/" + second[0])), "one\ntwo\n");
}

// A new path while on moves the log the same way; with the switch off it
// only changes the text.
TEST_F(QzSysErrorLogFileTest, SetLogFileSwitchesFilesOnlyWhenOn)
{
    QzSysError::SetLogFile(WidePathOf("a.txt").c_str());
    QzSysError::SetLogFileEnable(1);
    QzSysError::LogUTF8String("a\n");
    QzSysError::SetLogFile(WidePathOf("b.txt").c_str());
    QzSysError::LogUTF8String("b\n");
    QzSysError::SetLogFileEnable(0);
    QzSysError::SetLogFile(WidePathOf("c.txt").c_str());
    EXPECT_EQ(ReadFile(PathOf("a.txt")), "a\n");
    EXPECT_EQ(ReadFile(PathOf("b.txt")), "a\nb\n");
    EXPECT_FALSE(Exists(PathOf("c.txt")));
    EXPECT_EQ(QzSysError::IsLogFileEnable(), 0);
}

// With both set, the path wins over the directory.
TEST_F(QzSysErrorLogFileTest, FilePathTakesPrecedenceOverDirectory)
{
    MakeDirectory("dir");
    QzSysError::SetLogDir(WidePathOf("dir").c_str());
    QzSysError::SetLogFile(WidePathOf("named.txt").c_str());
    QzSysError::SetLogFileEnable(1);
    QzSysError::LogUTF8String("x\n");
    EXPECT_EQ(ReadFile(PathOf("named.txt")), "x\n");
    EXPECT_TRUE(FilesIn("dir").empty());
}

// Clearing the in-memory log does not touch what the file already holds.
TEST_F(QzSysErrorLogFileTest, ClearLogBufferLeavesTheFileUntouched)
{
    QzSysError::SetLogFile(WidePathOf("kept.txt").c_str());
    QzSysError::LogUTF8String("kept\n");
    QzSysError::SetLogFileEnable(1);
    QzSysError::ClearLogBuffer();
    EXPECT_EQ(ReadFile(PathOf("kept.txt")), "kept\n");
    QzSysError::LogUTF8String("new\n");
    EXPECT_EQ(ReadFile(PathOf("kept.txt")), "kept\nnew\n");
    EXPECT_EQ(ReplayLog(), "new\n");
}

// Every way of having no file to open leaves the switch off, and logging
// goes on in memory.
TEST_F(QzSysErrorLogFileTest, NoFileToOpenLeavesTheSwitchOff)
{
    struct Row {
        char const *name;
        char const *file;       // relative to the scratch directory; null for none
        char const *directory;  // the same
    };
    Row const rows[] = {
        {"missing_folder", "missing/log.txt", nullptr},
        {"path_is_a_directory", "", nullptr},
        {"directory_missing", nullptr, "missing"},
        {"neither_set", nullptr, nullptr},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        QzSysError::SetLogFile(row.file != nullptr ? WidePathOf(row.file).c_str() : nullptr);
        QzSysError::SetLogDir(row.directory != nullptr ? WidePathOf(row.directory).c_str()
                                                       : nullptr);
        QzSysError::SetLogFileEnable(1);
        EXPECT_EQ(QzSysError::IsLogFileEnable(), 0);
        QzSysError::LogUTF8String("still logged\n");
    }
    EXPECT_FALSE(Exists(PathOf("missing")));
    EXPECT_EQ(ReplayLog(), "still logged\nstill logged\nstill logged\nstill logged\n");
}

// The library keeps its own copies; an empty text means none.
TEST_F(QzSysErrorLogFileTest, PathsAreCopiedAndEmptyMeansNone)
{
    std::u16string path = u"/nowhere/x.txt";
    QzSysError::SetLogFile(path.c_str());
    QzSysError::SetLogDir(u"/nowhere");
    path[1] = u'X';
    EXPECT_EQ(ToU16(QzSysError::GetLogFile()), u"/nowhere/x.txt");
    EXPECT_EQ(ToU16(QzSysError::GetLogDir()), u"/nowhere");
    QzSysError::SetLogFile(u"");
    QzSysError::SetLogDir(nullptr);
    EXPECT_EQ(QzSysError::GetLogFile(), nullptr);
    EXPECT_EQ(QzSysError::GetLogDir(), nullptr);
}

// The file name reaches the kernel as UTF-8 with "\" as "/": pairs combined,
// a lone surrogate in its three-byte form.
TEST_F(QzSysErrorLogFileTest, PathTextReachesTheFileSystemAsUtf8)
{
    struct Row {
        char const *name;
        std::u16string wide_name;  // after the scratch directory
        char const *disk_name;     // the bytes expected on disk
    };
    Row const rows[] = {
        {"backslash", u"\\back.txt", "back.txt"},
        {"two_byte", u"/caf\u00E9.txt", "caf\xC3\xA9.txt"},
        {"three_byte", u"/\u20AC.txt", "\xE2\x82\xAC.txt"},
        {"pair", u"/\U0001F600.txt", "\xF0\x9F\x98\x80.txt"},
        {"lone_high", u"/\xD800x.txt", "\xED\xA0\x80x.txt"},
        {"lone_low", u"/\xDFFF.txt", "\xED\xBF\xBF.txt"},
    };
    std::u16string const directory = WidePathOf("").substr(0, WidePathOf("").size() - 1);
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        std::u16string const path = directory + row.wide_name;
        QzSysError::SetLogFile(path.c_str());
        QzSysError::SetLogFileEnable(1);
        EXPECT_EQ(QzSysError::IsLogFileEnable(), 1);
        QzSysError::SetLogFileEnable(0);
        EXPECT_TRUE(Exists(PathOf(row.disk_name)));
    }
}
