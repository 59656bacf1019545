// QzReadStreamAscii.cpp: the reader's scanning of the ascii form: bytes and
// words, expected texts, numbers by the scan formats that match the
// writer's print formats, quoted strings, and the parse error messages.

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "qzutil/stream/QzReadStream.h"
#include "qzutil/sys/internal/QzSysCNumericScope.h"

// Scratch for one word of ascii data: numbers, tokens, object heads.
static constexpr int kWordBytes = 128;
// What CheckAscii reports of the text that matched before a mismatch.
static constexpr std::size_t kMaxMatchedEcho = 126;

static bool IsBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// The scan formats mirror the print formats: unsigned values are
// hexadecimal, signed ones decimal.
static int ScanNumber(char const *word, unsigned *value)
{
    return std::sscanf(word, "%x", value);
}

static int ScanNumber(char const *word, int *value)
{
    return std::sscanf(word, "%d", value);
}

static int ScanNumber(char const *word, unsigned long long *value)
{
    return std::sscanf(word, "%llx", value);
}

static int ScanNumber(char const *word, float *value)
{
    return std::sscanf(word, "%g", value);
}

static int ScanNumber(char const *word, double *value)
{
    return std::sscanf(word, "%lg", value);
}

// Scans `word` as a Scanned and stores it narrowed to a Stored at `value`,
// which may be any byte address (a float array read in place of doubles).
template <typename Stored, typename Scanned>
static bool ScanElement(char const *word, void *value)
{
    Scanned scanned{};
    if (ScanNumber(word, &scanned) != 1)
        return false;
    Stored const stored = static_cast<Stored>(scanned);
    std::memcpy(value, &stored, sizeof stored);
    return true;
}

namespace {
// How the words of one element type are read.
struct AsciiScan {
    std::size_t size;      // bytes per element
    char const *expected;  // reported when a word does not scan
    bool (*scan)(char const *word, void *value);
};
}  // namespace

// In the order of QzReadStream::ValueKind. The expected words are what
// readers of this form have always reported; they are kept as they are.
static AsciiScan const kAsciiScans[] = {
    {sizeof(LtNat8), "LI_U_GLUE_2(LtNat8,!)", ScanElement<LtNat8, unsigned>},
    {sizeof(LtInt16), "LI_U_GLUE_2(LtInt16,!)", ScanElement<LtInt16, int>},
    {sizeof(LtNat16), "LI_U_GLUE_2(LtNat16,!)", ScanElement<LtNat16, unsigned>},
    {sizeof(LtInt32), "LI_U_GLUE_2(LtInt32,!)", ScanElement<LtInt32, int>},
    {sizeof(LtNat32), "LI_U_GLUE_2(LtNat32,!)", ScanElement<LtNat32, unsigned>},
    {sizeof(LtNat64), "LI_U_GLUE_2(LtNat64,!)", ScanElement<LtNat64, unsigned long long>},
    {sizeof(LtSingle), "LI_U_GLUE_2(LtSingle,!)", ScanElement<LtSingle, float>},
    {sizeof(LtDouble), "LI_U_GLUE_2(LtDouble,!)", ScanElement<LtDouble, double>},
};

void QzReadStream::ScanAsciiValues(void *values, ValueKind kind, LtInt32 count)
{
    AsciiScan const &scan = kAsciiScans[kind];
    auto *out = static_cast<unsigned char *>(values);
    auto const total = static_cast<std::size_t>(std::max(count, 0));
    std::size_t done = 0;
    bool const is_bracketed = count != 1;
    if (is_bracketed)
        CheckAscii("[");
    // Numbers in files have "." whatever the user's locale.
    QzSysCNumericScope c_numbers;
    char word[kWordBytes];
    for (; done < total && !IsError(); ++done) {
        GetAscii(word, kWordBytes);
        if (IsError())
            break;
        if (!scan.scan(word, out + done * scan.size)) {
            ReportParseError(scan.expected, word);
            break;
        }
    }
    if (is_bracketed)
        CheckAscii("]");
    if (done < total)
        std::memset(out + done * scan.size, 0, (total - done) * scan.size);
}

bool QzReadStream::TakeChar(char *c)
{
    if (IsError())
        return false;
    if (m_cursor == m_block_end && !GetBlock())
        return false;
    *c = static_cast<char>(*m_cursor++);
    m_alignment = 1;
    if (*c == '\n')
        ++m_line_number;
    return true;
}

bool QzReadStream::TakeNonBlank(char *c)
{
    while (TakeChar(c)) {
        if (!IsBlank(*c))
            return true;
    }
    return false;
}

bool QzReadStream::AtEndOfData()
{
    while (!IsError()) {
        if (m_alignment != 0 && m_cursor != m_block_end) {
            char const c = static_cast<char>(*m_cursor);
            if (!IsAscii() || !IsBlank(c))
                return false;
            if (c == '\n')
                ++m_line_number;
            ++m_cursor;
            continue;
        }
        if (!GetBlock())
            return true;  // the end of the data, or an error
    }
    return true;
}

char QzReadStream::GetChar()
{
    char c = 0;
    if (TakeChar(&c))
        return c;
    if (!IsError())
        PostError(ErrorEndOfData, this, "Unexpected end of data");
    return 0;
}

void QzReadStream::GetAscii(char *buffer, int size)
{
    if (buffer == nullptr || size <= 0)
        return;
    buffer[0] = '\0';
    char c = 0;
    if (!TakeNonBlank(&c)) {
        if (!IsError())
            PostError(ErrorEndOfData, this, "Unexpected end of data");
        return;
    }
    // The blank that ends the word stays unread, so that a report about the
    // word gives the line that holds it.
    int length = 0;
    for (;;) {
        if (length == size - 1) {
            // The word does not fit: `size` characters or more.
            buffer[length] = '\0';
            SetError(ErrorParse);
            return;
        }
        buffer[length++] = c;
        if (m_cursor == m_block_end && !GetBlock())
            break;  // the end of data ends a word too
        if (IsBlank(static_cast<char>(*m_cursor)))
            break;
        (void)TakeChar(&c);  // the byte is there: it was just looked at
    }
    buffer[length] = '\0';
}

void QzReadStream::CheckAscii(char const *text)
{
    if (text == nullptr || text[0] == '\0' || IsError())
        return;
    char c = 0;
    bool has_char = text[0] == ' ' ? TakeChar(&c) : TakeNonBlank(&c);
    for (std::size_t matched = 0;; ++matched) {
        if (!has_char) {
            if (!IsError())
                PostError(ErrorEndOfData, this, "Unexpected end of data");
            return;
        }
        if (c != text[matched]) {
            char read[kMaxMatchedEcho + 2];
            std::size_t const echoed = std::min(matched, kMaxMatchedEcho);
            std::memcpy(read, text, echoed);
            read[echoed] = c;
            read[echoed + 1] = '\0';
            ReportParseError(text, read);
            return;
        }
        if (text[matched + 1] == '\0')
            return;
        has_char = TakeChar(&c);
    }
}

int QzReadStream::CheckOption(char const *a, char const *b)
{
    char c = 0;
    if (!TakeNonBlank(&c)) {
        if (!IsError())
            PostError(ErrorEndOfData, this, "Unexpected end of data");
        return -1;
    }
    int result = -1;
    if (a != nullptr && a[0] != '\0' && c == a[0]) {
        CheckAscii(a + 1);
        result = 1;
    } else if (b != nullptr && b[0] != '\0' && c == b[0]) {
        CheckAscii(b + 1);
        result = 0;
    } else {
        SetError(ErrorParse);
    }
    return IsError() ? -1 : result;
}

void QzReadStream::ReportParseError(char const *expected, char const *read)
{
    expected = expected != nullptr ? expected : "";
    read = read != nullptr ? read : "";
    if (IsAscii())
        PostError(ErrorParse, this, "Read \"%s\", expected \"%s\" at line %d", read, expected,
                  m_line_number);
    else
        PostError(ErrorParse, this, "Read \"%s\", expected \"%s\"", read, expected);
}

void QzReadStream::ReportParseError(int expected, int read)
{
    // Room for "-2147483648" and the terminator.
    char expected_text[12] = {};
    char read_text[12] = {};
    std::to_chars(expected_text, expected_text + sizeof expected_text - 1, expected);
    std::to_chars(read_text, read_text + sizeof read_text - 1, read);
    ReportParseError(expected_text, read_text);
}

void QzReadStream::ReportParseError(char expected, char read)
{
    char const expected_text[2] = {expected, '\0'};
    char const read_text[2] = {read, '\0'};
    ReportParseError(expected_text, read_text);
}

void QzReadStream::ReadQuotedString(QzStringBuffer *out)
{
    int const is_null = CheckOption("linull", "\"");
    if (is_null != 0) {
        out->SetString(nullptr);
        return;
    }
    out->SetEmptyString();
    bool is_closed = false;
    bool has_nul = false;
    char c = 0;
    while (TakeChar(&c)) {
        if (c == '"') {
            is_closed = true;
            break;
        }
        // A backslash takes the next byte as it stands.
        if (c == '\\' && !TakeChar(&c))
            break;
        // A NUL in the data ends the text there; the rest is consumed.
        has_nul = has_nul || c == '\0';
        if (!has_nul)
            out->Append(c);
    }
    if (!is_closed && !IsError())
        ReportParseError("Quoted String", "End of data!");
}

void QzReadStream::CheckTrailingWhiteSpace()
{
    if (IsError() || m_alignment == 0)
        return;
    for (unsigned char const *next = m_cursor; next < m_block_end; ++next) {
        auto const c = static_cast<char>(*next);
        if (!IsBlank(c)) {
            char const found[2] = {c, '\0'};
            ReportParseError("White Space!", found);
            return;
        }
    }
}
