// QzWriteStreamAscii.cpp: the ascii representation of the write stream:
// indented value lines, bracketed arrays in columns, quoted strings, token
// lines, and the real-number formats built from the digit settings. All
// numbers are written in the "C" locale.

#include <cmath>
#include <cstring>

#include "qzutil/stream/QzWriteStream.h"
#include "qzutil/sys/QzSysString.h"
#include "qzutil/sys/internal/QzSysCNumericScope.h"

// Per ValueKind: the integer format (null for the reals, whose formats
// follow the digit settings) and the values per line when no column count is
// set. Unsigned values are hexadecimal, signed ones decimal; the reader scans
// them back by the same split.
static char const *const kIntegerFormat[] = {" %2x", " %6d",  " %4x",  " %11d",
                                             " %8x", " %llx", nullptr, nullptr};
static constexpr int kDefaultColumns[] = {18, 10, 15, 6, 8, 4, 6, 3};

// Room for the widest value: " %19.17g" of a double needs at most 25 bytes.
static constexpr std::size_t kValueTextSize = 64;

template <typename T>
static T ElementAt(void const *values, LtInt32 index)
{
    T value;
    std::memcpy(&value, static_cast<unsigned char const *>(values) + sizeof(T) * std::size_t(index),
                sizeof(T));
    return value;
}

// A real whose magnitude is below `threshold` is written as 0.
static double ApplyZeroThreshold(double value, double threshold)
{
    return threshold > std::fabs(value) ? 0.0 : value;
}

void QzWriteStream::SendAsciiBytes(char const *bytes, std::size_t length)
{
    SendBytes(bytes, 1, length);
}

void QzWriteStream::SendIndent()
{
    static char const kBlanks[] = "                                ";
    constexpr int kBlankCount = static_cast<int>(sizeof(kBlanks) - 1);
    if (!IsAscii())
        return;
    for (int left = m_indent; left > 0; left -= kBlankCount)
        SendAsciiBytes(kBlanks, static_cast<std::size_t>(left < kBlankCount ? left : kBlankCount));
}

void QzWriteStream::SendArrayStart(LtInt32 count)
{
    if (!IsAscii())
        return;
    SendIndent();
    SendAsciiBytes(count == 1 ? " " : "[", 1);
}

void QzWriteStream::SendArrayNewLine()
{
    if (!IsAscii())
        return;
    SendAsciiBytes("\n ", 2);
    SendIndent();
}

void QzWriteStream::SendArrayEnd(LtInt32 count, int columns)
{
    if (!IsAscii())
        return;
    if (count == 1) {
        SendAsciiBytes("\n", 1);
    } else if (columns > 0 && count > columns) {
        SendAsciiBytes("\n", 1);
        SendIndent();
        SendAsciiBytes("]\n", 2);
    } else {
        SendAsciiBytes(" ]\n", 3);
    }
}

void QzWriteStream::SendAsciiArray(ValueKind kind, void const *values, LtInt32 count)
{
    QzSysCNumericScope c_numbers;
    int const columns = m_columns > 0 ? m_columns : kDefaultColumns[kind];
    SendArrayStart(count);
    char text[kValueTextSize];
    for (LtInt32 i = 0; i < count && !IsError(); ++i) {
        if (i > 0 && i % columns == 0)
            SendArrayNewLine();
        int length = 0;
        switch (kind) {
        case eVALUE_NAT8:
            length = QzSysString::Sprintf(text, sizeof text, kIntegerFormat[kind],
                                          unsigned{ElementAt<LtNat8>(values, i)});
            break;
        case eVALUE_INT16:
            length = QzSysString::Sprintf(text, sizeof text, kIntegerFormat[kind],
                                          int{ElementAt<LtInt16>(values, i)});
            break;
        case eVALUE_NAT16:
            length = QzSysString::Sprintf(text, sizeof text, kIntegerFormat[kind],
                                          unsigned{ElementAt<LtNat16>(values, i)});
            break;
        case eVALUE_INT32:
            length = QzSysString::Sprintf(text, sizeof text, kIntegerFormat[kind],
                                          ElementAt<LtInt32>(values, i));
            break;
        case eVALUE_NAT32:
            length = QzSysString::Sprintf(text, sizeof text, kIntegerFormat[kind],
                                          ElementAt<LtNat32>(values, i));
            break;
        case eVALUE_NAT64:
            length = QzSysString::Sprintf(
                text, sizeof text, kIntegerFormat[kind],
                static_cast<unsigned long long>(ElementAt<LtNat64>(values, i)));
            break;
        case eVALUE_SINGLE:
            length = QzSysString::Sprintf(
                text, sizeof text, m_single_format,
                ApplyZeroThreshold(ElementAt<LtSingle>(values, i), m_single_zero));
            break;
        case eVALUE_DOUBLE:
            length = QzSysString::Sprintf(
                text, sizeof text, m_double_format,
                ApplyZeroThreshold(ElementAt<LtDouble>(values, i), m_double_zero));
            break;
        }
        // Every format fits kValueTextSize, so the result is never -1.
        SendAsciiBytes(text, length > 0 ? static_cast<std::size_t>(length) : 0);
    }
    SendArrayEnd(count, columns);
}

void QzWriteStream::SendQuotedString(char const *text, std::size_t length)
{
    SendIndent();
    if (text == nullptr) {
        SendAsciiBytes("linull\n", 7);
        return;
    }
    SendAsciiBytes("\"", 1);
    // Runs between the characters that need a backslash go out whole.
    std::size_t run_start = 0;
    for (std::size_t i = 0; i < length; ++i) {
        if (text[i] != '"' && text[i] != '\\')
            continue;
        SendAsciiBytes(text + run_start, i - run_start);
        SendAsciiBytes("\\", 1);
        run_start = i;  // the character itself starts the next run
    }
    SendAsciiBytes(text + run_start, length - run_start);
    SendAsciiBytes("\"\n", 2);
}

void QzWriteStream::SendAsciiToken(DebugToken token, LtInt32 const *count)
{
    SendIndent();
    SendAscii(GetDebugTokenName(token));
    if (count != nullptr) {
        char text[kValueTextSize];
        int const length = QzSysString::Sprintf(text, sizeof text, " %d", *count);
        SendAsciiBytes(text, length > 0 ? static_cast<std::size_t>(length) : 0);
    }
    SendAsciiBytes("\n", 1);
}

void QzWriteStream::SetSingleDigits(int digits)
{
    m_single_digits = digits < 1 ? 1 : digits > 8 ? 8 : digits;
    (void)QzSysString::Sprintf(m_single_format, sizeof m_single_format, " %%%d.%dg",
                               m_single_digits + 2, m_single_digits);  // " %10.8g" at most
}

void QzWriteStream::SetDoubleDigits(int digits)
{
    m_double_digits = digits < 1 ? 1 : digits > 17 ? 17 : digits;
    (void)QzSysString::Sprintf(m_double_format, sizeof m_double_format, " %%%d.%dg",
                               m_double_digits + 2, m_double_digits);  // " %19.17g" at most
}
