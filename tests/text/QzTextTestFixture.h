// QzTextTestFixture.h: the fixture of the text tests (QzString component up,
// no leaked blocks), the fixture of the checks run on both text widths, and
// small helpers for writing and reading text back.
#pragma once

#include <clocale>
#include <string>

#include <gtest/gtest.h>

#include "qzutil/memory/QzMemory.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideString.h"
#include "qzutil/text/QzWideStringBuffer.h"

#include "support/QzTestSupport.h"

// Brings the text classes up for each test and checks on the way down that
// every block the test took from QzMemory went back.
class QzTextTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QzString::Initialise();
        m_bytes_at_start = QzMemory::GetDirectMemoryAllocated();
    }

    void TearDown() override
    {
        EXPECT_EQ(QzMemory::GetDirectMemoryAllocated(), m_bytes_at_start) << "text blocks leaked";
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

// A wide text as UTF-8, so that checks shared by both widths compare alike.
inline std::string Bytes(LtWChar const *text)
{
    return text != nullptr ? ToUtf8(ToU16(text)) : std::string("<null>");
}

// The classes of one text width, for the checks that both widths share.
template <typename Unit>
struct QzTextClasses;

template <>
struct QzTextClasses<char> {
    using String = QzString;
    using Buffer = QzStringBuffer;
};

template <>
struct QzTextClasses<LtWChar> {
    using String = QzWideString;
    using Buffer = QzWideStringBuffer;
};

// Table text (ASCII) in the unit type under test, byte by byte; null stays
// null. Lives until the end of the full expression that made it.
template <typename Unit>
class QzAscii {
public:
    QzAscii(char const *ascii) : m_is_null(ascii == nullptr)
    {
        for (; ascii != nullptr && *ascii != 0; ++ascii)
            m_units += static_cast<Unit>(static_cast<unsigned char>(*ascii));
    }
    operator Unit const *() const { return m_is_null ? nullptr : m_units.c_str(); }

private:
    bool m_is_null;
    std::basic_string<Unit> m_units;
};

template <typename Unit>
using StringOf = typename QzTextClasses<Unit>::String;
template <typename Unit>
using BufferOf = typename QzTextClasses<Unit>::Buffer;

// The fixture of the typed tests, whose parameter is the unit type.
template <typename Unit>
class QzTextWidthTest : public QzTextTest {};

// Names the typed tests "Narrow" and "Wide".
struct QzTextWidthName {
    template <typename Unit>
    static std::string GetName(int)
    {
        return sizeof(Unit) == 1 ? "Narrow" : "Wide";
    }
};

using QzTextUnits = ::testing::Types<char, LtWChar>;
