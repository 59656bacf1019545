// QzFileTestDir.h: the fixture of the file tests: a fresh directory with
// HOME, the XDG directories, TMPDIR and the registry hives pointed into it,
// the text classes initialised, and small helpers to make and read files
// with plain system calls.
#pragma once

#include <ftw.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "qzutil/text/QzString.h"

#include "sys/QzScopedEnvironment.h"

class QzFileTestDir : public ::testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/qzfiletest_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_root = pattern;
        for (char const *sub : {"home", "config", "data", "tmp"})
            ASSERT_EQ(mkdir(Path(sub).c_str(), 0700), 0);
        m_environment.Set("HOME", Path("home").c_str());
        m_environment.Set("XDG_CONFIG_HOME", Path("config").c_str());
        m_environment.Set("XDG_DATA_HOME", Path("data").c_str());
        m_environment.Set("TMPDIR", Path("tmp").c_str());
        m_environment.Set("TY_REGISTRY_USER", Path("user.db").c_str());
        m_environment.Set("TY_REGISTRY_MACHINE", Path("machine.db").c_str());
        QzString::Initialise();
    }

    void TearDown() override
    {
        QzString::Terminate();
        nftw(m_root.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
    }

    std::string Path(std::string const &name) const { return m_root + "/" + name; }

    // ASCII and UTF-8 paths as wide text (enough for these tests).
    static std::u16string Wide(std::string const &utf8)
    {
        std::u16string out;
        for (std::size_t i = 0; i < utf8.size(); ++i) {
            unsigned char byte = static_cast<unsigned char>(utf8[i]);
            if (byte < 0x80 || i + 1 >= utf8.size()) {
                out += static_cast<char16_t>(byte);
            } else {  // two-byte sequences only
                out += static_cast<char16_t>(((byte & 0x1F) << 6) |
                                             (static_cast<unsigned char>(utf8[i + 1]) & 0x3F));
                ++i;
            }
        }
        return out;
    }
    std::u16string WidePath(std::string const &name) const { return Wide(Path(name)); }

    static void WriteBytes(std::string const &path, std::string const &bytes)
    {
        std::ofstream(path, std::ios::binary) << bytes;
    }
    static std::string ReadBytes(std::string const &path)
    {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    static bool Exists(std::string const &path)
    {
        struct stat info;
        return lstat(path.c_str(), &info) == 0;
    }

    QzScopedEnvironment m_environment;
    std::string m_root;  // removed with all it holds at TearDown

private:
    static int RemoveEntry(char const *path, struct stat const *, int, struct FTW *)
    {
        chmod(path, 0700);  // directories made read-only by a test must still go
        return remove(path);
    }
};
