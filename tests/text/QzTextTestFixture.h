// QzTextTestFixture.h: the fixture of the text tests (QzString component up,
// no leaked blocks) and small helpers for reading text back.
#pragma once

#include <clocale>
#include <string>

#include <gtest/gtest.h>

#include "qzutil/memory/QzMemory.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideStringBuffer.h"

// Brings the text classes up for each test and checks on the way down that
// every block the test took from QzMemory went back.
class QzTextTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QzString::Initialise();
        m_bytes_at_start = QzMemory::GetMallocMemoryAllocated();
    }

    void TearDown() override
    {
        EXPECT_EQ(QzMemory::GetMallocMemoryAllocated(), m_bytes_at_start) << "text blocks leaked";
        QzString::Terminate();
    }

private:
    LtNat64 m_bytes_at_start = 0;
};

// Sets the thread's LC_CTYPE for the scope and restores it after.
class QzScopedCType {
public:
    explicit QzScopedCType(char const *name) : m_previous(std::setlocale(LC_CTYPE, nullptr))
    {
        EXPECT_NE(std::setlocale(LC_CTYPE, name), nullptr) << name;
    }
    ~QzScopedCType() { std::setlocale(LC_CTYPE, m_previous.c_str()); }
    QzScopedCType(QzScopedCType const &) = delete;
    QzScopedCType &operator=(QzScopedCType const &) = delete;

private:
    std::string m_previous;
};

// The capacity, in units, of the block that a buffer of `Unit` gets when it
// asks the allocator for room for `units` units and the terminator.
template <typename Unit>
int CapacityFor(int units)
{
    unsigned bytes = static_cast<unsigned>(units + 1) * static_cast<unsigned>(sizeof(Unit));
    return static_cast<int>(QzMemory::GetBestBlockSize(bytes) / sizeof(Unit));
}

// The bytes of a narrow text for comparisons; null reads as "<null>".
inline std::string Bytes(char const *text)
{
    return text != nullptr ? std::string(text) : std::string("<null>");
}
