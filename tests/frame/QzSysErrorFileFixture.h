// QzSysErrorFileFixture.h: a scratch directory for the tests of the log file
// and the crash dumps, shared with the children of their death tests.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "support/QzTestSupport.h"
#include "sys/QzScopedEnvironment.h"

// Makes a fresh directory and points HOME, the XDG folders, TMPDIR and the
// registry files into it before each test; removes it and restores the
// environment after. A death test's child runs the test again from the
// start: it finds the parent's directory through the environment and uses
// it, so that files the child writes are there for the parent to read.
class QzScratchDirectoryTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (char const *inherited = std::getenv(kInheritedVariable)) {
            m_dir = inherited;  // the child of a death test: the parent cleans up
            return;
        }
        std::string pattern = std::filesystem::temp_directory_path().string() + "/qzlog-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr) << "cannot make " << pattern;
        m_dir = pattern;
        m_owns_dir = true;
        for (Variable const &variable : kVariables)
            m_environment.Set(variable.name, (m_dir + variable.suffix).c_str());
        m_environment.Set(kInheritedVariable, m_dir.c_str());
    }

    // The environment comes back when m_environment goes.
    void TearDown() override
    {
        if (!m_owns_dir)
            return;
        std::error_code ignored;  // a leftover temp dir is no test failure
        std::filesystem::remove_all(m_dir, ignored);
    }

    std::string PathOf(std::string const &name) const { return m_dir + "/" + name; }
    // The same path as UTF-16, the form the library takes.
    std::u16string WidePathOf(std::string const &name) const
    {
        std::string const path = PathOf(name);
        return std::u16string(path.begin(), path.end());  // temp paths are ASCII
    }

    static std::string ReadFile(std::string const &path)
    {
        std::ifstream stream(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(stream),
                           std::istreambuf_iterator<char>());
    }

    static bool Exists(std::string const &path) { return std::filesystem::exists(path); }

private:
    static constexpr char const *kInheritedVariable = "QZ_TEST_SCRATCH_DIR";
    struct Variable {
        char const *name;
        char const *suffix;  // appended to the scratch directory
    };
    static constexpr Variable kVariables[] = {
        {"HOME", ""},
        {"XDG_CONFIG_HOME", "/config"},
        {"XDG_DATA_HOME", "/data"},
        {"TMPDIR", ""},
        {"TY_REGISTRY_USER", "/registry-user"},
        {"TY_REGISTRY_MACHINE", "/registry-machine"},
    };

    QzScopedEnvironment m_environment;
    std::string m_dir;
    bool m_owns_dir = false;
};
