// QzSysDynamicLibTest.cpp: loading libraries by path and by bare name
// through the library's own directory list, finding functions, and the
// PATH guard.
#include "qzutil/sys/QzSysDynamicLib.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "qzutil/text/QzString.h"

#include "support/QzTestSupport.h"
#include "sys/QzScopedEnvironment.h"

#ifndef QZ_TEST_PLUGIN_PATH
#error "QZ_TEST_PLUGIN_PATH comes from the build: the test module's file"
#endif

namespace {

using PluginAnswer = int (*)(int);

std::u16string ToWide(std::string const &text)
{
    return std::u16string(text.begin(), text.end());  // ASCII paths only
}

class QzSysDynamicLibTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/qz_dynamic_lib_XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(pattern));
        m_temp_dir = pattern;
        for (char const *name : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "TMPDIR",
                                 "TY_REGISTRY_USER", "TY_REGISTRY_MACHINE"})
            m_environment.Set(name, m_temp_dir.c_str());
        QzString::Initialise();
        std::string plugin = QZ_TEST_PLUGIN_PATH;
        m_plugin_dir = plugin.substr(0, plugin.rfind('/'));
        m_plugin_name = plugin.substr(plugin.rfind('/') + 1);
    }

    void TearDown() override
    {
        QzString::Terminate();
        std::string command = "rm -rf '" + m_temp_dir + "'";
        EXPECT_EQ(0, std::system(command.c_str()));
    }

    // Writes a file that is no library under `name` in the temporary folder.
    void WriteBogusLibrary(std::string const &name)
    {
        std::FILE *file = std::fopen((m_temp_dir + "/" + name).c_str(), "w");
        ASSERT_NE(nullptr, file);
        std::fputs("not an ELF file\n", file);
        std::fclose(file);
    }

    // Opens by bare name, checks the function if it loaded, and closes.
    static bool LoadsByBareName(std::string const &name)
    {
        QzSysDynamicLibHandle *handle = QzSysDynamicLib::OpenW(ToWide(name).c_str());
        if (handle == nullptr)
            return false;
        auto answer = reinterpret_cast<PluginAnswer>(
            QzSysDynamicLib::FindFunction(handle, "QzTestPluginAnswer"));
        EXPECT_NE(nullptr, answer);
        if (answer != nullptr) {
            EXPECT_EQ(7, answer(2));
        }
        EXPECT_TRUE(QzSysDynamicLib::Close(handle));
        return true;
    }

    QzScopedEnvironment m_environment;
    std::string m_temp_dir;
    std::string m_plugin_dir;
    std::string m_plugin_name;
};

TEST_F(QzSysDynamicLibTest, SystemLibraryByLoaderSearch)
{
    QzSysDynamicLibHandle *libm = QzSysDynamicLib::OpenW(u"libm.so.6");
    ASSERT_NE(nullptr, libm);
    auto cosine = reinterpret_cast<double (*)(double)>(QzSysDynamicLib::FindFunction(libm, "cos"));
    ASSERT_NE(nullptr, cosine);
    EXPECT_EQ(1.0, cosine(0.0));
    EXPECT_EQ(nullptr, QzSysDynamicLib::FindFunction(libm, "no_such_function_qz"));
    EXPECT_EQ(nullptr, QzSysDynamicLib::FindFunction(libm, nullptr));
    EXPECT_TRUE(QzSysDynamicLib::Close(libm));
}

// A full path loads, with "\" taken for "/".
TEST_F(QzSysDynamicLibTest, PluginByPathWithEitherSlash)
{
    std::string path = QZ_TEST_PLUGIN_PATH;
    std::string backslashed = path;
    for (char &unit : backslashed) {
        if (unit == '/')
            unit = '\\';
    }
    for (std::string const &form : {path, backslashed}) {
        QzSysDynamicLibHandle *handle = QzSysDynamicLib::OpenW(ToWide(form).c_str());
        ASSERT_NE(nullptr, handle) << form;
        auto answer = reinterpret_cast<PluginAnswer>(
            QzSysDynamicLib::FindFunction(handle, "QzTestPluginAnswer"));
        ASSERT_NE(nullptr, answer) << form;
        EXPECT_EQ(31, answer(10)) << form;
        EXPECT_TRUE(QzSysDynamicLib::Close(handle)) << form;
    }
}

TEST_F(QzSysDynamicLibTest, MissingLibrariesAndNullArguments)
{
    EXPECT_EQ(nullptr, QzSysDynamicLib::OpenW(u"libqz_no_such_library.so"));
    // The loader's reason is logged; it starts with the name.
    EXPECT_NE(std::string::npos,
              ReplayLog().find("QzSysDynamicLib::OpenW: libqz_no_such_library.so"));
    EXPECT_EQ(nullptr, QzSysDynamicLib::OpenW(u"/nonexistent/dir/libqz.so"));
    EXPECT_EQ(nullptr, QzSysDynamicLib::OpenW(nullptr));
    EXPECT_EQ(nullptr, QzSysDynamicLib::OpenW(u""));
    EXPECT_FALSE(QzSysDynamicLib::Close(nullptr));
    EXPECT_EQ(nullptr, QzSysDynamicLib::FindFunction(nullptr, "cos"));
    EXPECT_EQ(u".so", ToU16(QzSysDynamicLib::GetDynamicLibExtensionW()));
}

// A bare name loads from a guard's directory only while the guard lives.
TEST_F(QzSysDynamicLibTest, DllDirectoryGuardServesBareNames)
{
    EXPECT_FALSE(LoadsByBareName(m_plugin_name));
    {
        QzSysDllDirectoryModifier directory(ToWide(m_plugin_dir).c_str());
        EXPECT_TRUE(LoadsByBareName(m_plugin_name));
        QzSysDllDirectoryModifier nothing(nullptr);  // adds no directory
        EXPECT_TRUE(LoadsByBareName(m_plugin_name));
    }
    EXPECT_FALSE(LoadsByBareName(m_plugin_name));
}

// The newest guard is searched first, and a file found there is final even
// when it cannot load.
TEST_F(QzSysDynamicLibTest, NewestDirectoryFirstAndItsFileIsFinal)
{
    WriteBogusLibrary(m_plugin_name);
    QzSysDllDirectoryModifier plugins(ToWide(m_plugin_dir).c_str());
    {
        QzSysDllDirectoryModifier bogus(ToWide(m_temp_dir).c_str());
        EXPECT_FALSE(LoadsByBareName(m_plugin_name));
    }
    EXPECT_TRUE(LoadsByBareName(m_plugin_name));
    {
        // A directory without the file passes the search on.
        QzSysDllDirectoryModifier empty(ToWide(m_temp_dir + "/none").c_str());
        EXPECT_TRUE(LoadsByBareName(m_plugin_name));
    }
}

struct PathRow {
    char const *name;
    char const *before;  // null: PATH unset
    char16_t const *directory;
    QzSysPathModifier::ModifyMode mode;
    char const *during;  // null: PATH unset
};

// Each mode's PATH inside the guard, and the earlier value after it.
TEST_F(QzSysDynamicLibTest, PathGuardChangesAndRestoresPath)
{
    PathRow const rows[] = {
        {"prepend", "/usr/bin:/bin", u"/opt/qz/bin", QzSysPathModifier::ePREPEND,
         "/opt/qz/bin:/usr/bin:/bin"},
        {"append", "/usr/bin:/bin", u"/opt/qz/bin", QzSysPathModifier::eAPPEND,
         "/usr/bin:/bin:/opt/qz/bin"},
        {"replace", "/usr/bin:/bin", u"/opt/qz/bin", QzSysPathModifier::eREPLACE, "/opt/qz/bin"},
        {"backslashes", "/bin", u"\\opt\\qz", QzSysPathModifier::ePREPEND, "/opt/qz:/bin"},
        {"prepend to unset", nullptr, u"/opt/qz/bin", QzSysPathModifier::ePREPEND, "/opt/qz/bin"},
        {"append to empty", "", u"/opt/qz/bin", QzSysPathModifier::eAPPEND, "/opt/qz/bin"},
        {"null directory", "/bin", nullptr, QzSysPathModifier::ePREPEND, "/bin"},
        {"empty directory", nullptr, u"", QzSysPathModifier::eREPLACE, nullptr},
        {"unknown mode", "/bin", u"/x", static_cast<QzSysPathModifier::ModifyMode>(7), "/bin"},
    };
    for (PathRow const &row : rows) {
        m_environment.Set("PATH", row.before);
        {
            QzSysPathModifier guard(row.directory, row.mode);
            char const *during = std::getenv("PATH");
            EXPECT_EQ(row.during == nullptr, during == nullptr) << row.name;
            if (row.during != nullptr && during != nullptr) {
                EXPECT_STREQ(row.during, during) << row.name;
            }
        }
        char const *after = std::getenv("PATH");
        EXPECT_EQ(row.before == nullptr, after == nullptr) << row.name;
        if (row.before != nullptr && after != nullptr) {
            EXPECT_STREQ(row.before, after) << row.name;
        }
    }
}

}  // namespace
