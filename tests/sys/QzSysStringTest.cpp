// The formatting engine and the multi-byte code page: numbers against glibc's
// printf in both output widths, the width rules of strings and characters,
// %p, %n, the truncating contract, and strict conversions of the code page.

#include "qzutil/sys/QzSysString.h"

#include <langinfo.h>

#include <cfloat>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include "support/QzTestSupport.h"

namespace {

constexpr std::size_t kBufferUnits = 8192;  // LDBL_MAX in "%Lf" has 4933 digits

// ASCII text widened unit by unit.
std::u16string Widen(std::string const &ascii)
{
    return std::u16string(ascii.begin(), ascii.end());
}

// Sets LC_CTYPE for one scope, restoring the previous setting.
class ScopedCtype {
public:
    explicit ScopedCtype(char const *name) : m_previous(std::setlocale(LC_CTYPE, nullptr))
    {
        m_is_set = std::setlocale(LC_CTYPE, name) != nullptr;
    }
    ~ScopedCtype() { std::setlocale(LC_CTYPE, m_previous.c_str()); }
    ScopedCtype(ScopedCtype const &) = delete;
    ScopedCtype &operator=(ScopedCtype const &) = delete;
    bool IsSet() const { return m_is_set; }

private:
    std::string m_previous;
    bool m_is_set = false;
};

// Formats with glibc (the expectation) and with the engine in both widths:
// the narrow result must equal glibc's, the wide one glibc's widened. `ours`
// may use prefixes glibc lacks; `glibc` is the same conversion in its terms.
testing::AssertionResult MatchesGlibc(char const *ours, char const *glibc, ...)
{
    va_list args;
    va_start(args, glibc);
    va_list for_narrow, for_wide;
    va_copy(for_narrow, args);
    va_copy(for_wide, args);
    static char expected[kBufferUnits], narrow[kBufferUnits];
    static LtWChar wide[kBufferUnits];
    // The glibc format comes from each test's table row; Clang cannot see it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    int expected_length = std::vsnprintf(expected, kBufferUnits, glibc, args);
#pragma GCC diagnostic pop
    int narrow_length = QzSysString::Vsprintf(narrow, kBufferUnits, ours, for_narrow);
    std::u16string wide_format = Widen(ours);
    int wide_length = QzSysString::WideVsprintf(wide, kBufferUnits, wide_format.c_str(), for_wide);
    va_end(for_narrow);
    va_end(for_wide);
    va_end(args);
    if (narrow_length == expected_length && std::string(narrow) == expected &&
        wide_length == expected_length && ToU16(wide) == Widen(expected))
        return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << "format \"" << ours << "\": glibc " << expected_length << " \"" << expected
           << "\", narrow " << narrow_length << " \"" << narrow << "\", wide " << wide_length
           << " \"" << ToUtf8(ToU16(wide)) << "\"";
}

// Counts failed comparisons of a sweep, reporting only the first few.
class SweepFailures {
public:
    void Check(testing::AssertionResult const &result)
    {
        if (!result && ++m_count <= 10)
            ADD_FAILURE() << result.message();
    }
    int Count() const { return m_count; }

private:
    int m_count = 0;
};

struct SizePrefixRow {
    char const *ours;
    char const *glibc;
    bool is_64_bit;
};

const SizePrefixRow kIntegerSizes[] = {
    {"hh", "hh", false}, {"h", "h", false},  {"", "", false},     {"I32", "", false},
    {"l", "l", true},    {"ll", "ll", true}, {"I64", "ll", true}, {"I", "z", true},
    {"z", "z", true},    {"t", "t", true},   {"j", "j", true},
};
const char *const kFlags[] = {"", "-", "+", " ", "#", "0", "-+", "+0", " 0", "#0", "-#0"};

// "%" with every flag set, width and precision: the heads of a sweep.
std::vector<std::string> Heads(std::vector<char const *> const &widths,
                               std::vector<char const *> const &precisions)
{
    std::vector<std::string> heads;
    for (char const *flags : kFlags) {
        for (char const *width : widths) {
            for (char const *precision : precisions)
                heads.push_back(std::string("%") + flags + width + precision);
        }
    }
    return heads;
}

// Every integer letter with every size prefix, flag set, width and precision.
TEST(QzSysStringTest, IntegersMatchGlibc)
{
    const LtInt64 values[] = {0,       1,        -1,        42,       127,   128,
                              255,     256,      -32768,    65535,    65536, INT_MAX,
                              INT_MIN, UINT_MAX, LLONG_MAX, LLONG_MIN};
    SweepFailures failures;
    for (std::string const &head : Heads({"", "1", "8", "25"}, {"", ".", ".0", ".1", ".12", ".30"}))
        for (SizePrefixRow const &size : kIntegerSizes)
            for (char letter : std::string("diouxX")) {
                std::string ours = head + size.ours + letter;
                std::string glibc = head + size.glibc + letter;
                for (LtInt64 value : values) {
                    if (size.is_64_bit)
                        failures.Check(MatchesGlibc(ours.c_str(), glibc.c_str(), value));
                    else
                        failures.Check(
                            MatchesGlibc(ours.c_str(), glibc.c_str(), static_cast<int>(value)));
                }
            }
    EXPECT_EQ(failures.Count(), 0);
}

// Every floating-point letter with flags, widths, precisions and the edges
// of double: signed zero, denormals, the extremes, infinities and NaNs.
TEST(QzSysStringTest, FloatsMatchGlibc)
{
    const double values[] = {0.0,      -0.0,      1.0,     -1.5,     0.1,     123456.789,
                             1e-5,     1e21,      DBL_MAX, -DBL_MAX, DBL_MIN, DBL_TRUE_MIN,
                             INFINITY, -INFINITY, NAN,     -NAN};
    SweepFailures failures;
    for (std::string const &head :
         Heads({"", "1", "12", "40"}, {"", ".", ".0", ".3", ".17", ".60"}))
        for (char const *size : {"", "l"})
            for (char letter : std::string("eEfFgGaA")) {
                std::string ours = head + size + letter;
                std::string glibc = head + letter;
                for (double value : values)
                    failures.Check(MatchesGlibc(ours.c_str(), glibc.c_str(), value));
            }
    EXPECT_EQ(failures.Count(), 0);
}

TEST(QzSysStringTest, LongDoublesMatchGlibc)
{
    const long double values[] = {0.0L,     -2.5L,         1.0L / 3, LDBL_MAX,
                                  LDBL_MIN, LDBL_TRUE_MIN, INFINITY, NAN};
    SweepFailures failures;
    for (char letter : std::string("eEfFgGaA"))
        for (char const *format : {"%L", "%+20.10L", "%-#30L", "%.0L", "%012.4L"}) {
            std::string conversion = std::string(format) + letter;
            for (long double value : values)
                failures.Check(MatchesGlibc(conversion.c_str(), conversion.c_str(), value));
        }
    EXPECT_EQ(failures.Count(), 0);
}

// Output beyond the engine's stack buffer: precisions above 300 and wide fields.
TEST(QzSysStringTest, LongNumbersMatchGlibc)
{
    EXPECT_TRUE(MatchesGlibc("%.400f", "%.400f", 1.0 / 3));
    EXPECT_TRUE(MatchesGlibc("%.350e", "%.350e", DBL_MAX));
    EXPECT_TRUE(MatchesGlibc("%-.320f|", "%-.320f|", -DBL_MAX));
    EXPECT_TRUE(MatchesGlibc("%1000d|", "%1000d|", -7));
    EXPECT_TRUE(MatchesGlibc("%.700llx", "%.700llx", 0xABCDEFULL));
    EXPECT_TRUE(MatchesGlibc("%.500Lf", "%.500Lf", LDBL_TRUE_MIN));
}

TEST(QzSysStringTest, StarWidthAndPrecisionComeFromTheArguments)
{
    SweepFailures failures;
    for (int width : {-12, -1, 0, 1, 9})
        for (int precision : {-5, -1, 0, 2, 7}) {
            failures.Check(MatchesGlibc("%*.*d|%d", "%*.*d|%d", width, precision, -42, 7));
            failures.Check(MatchesGlibc("%-*.*x|%d", "%-*.*x|%d", width, precision, 255u, 7));
            failures.Check(MatchesGlibc("%0*.*f|%d", "%0*.*f|%d", width, precision, -2.25, 7));
            failures.Check(MatchesGlibc("%*.*Le|%d", "%*.*Le|%d", width, precision, 1e10L, 7));
        }
    failures.Check(MatchesGlibc("%.*I64d|%*hhu", "%.*lld|%*hhu", 4, -9LL, 5, 300));
    EXPECT_EQ(failures.Count(), 0);
}

// The truncated output of a number is the prefix glibc would print, also on
// the heap path.
TEST(QzSysStringTest, CutNumberIsGlibcPrefix)
{
    char expected[1024];
    ASSERT_GT(std::snprintf(expected, sizeof expected, "%.400f", 2.0 / 3), 100);
    char narrow[101];
    LtWChar wide[101];
    EXPECT_EQ(QzSysString::Sprintf(narrow, sizeof narrow, "%.400f", 2.0 / 3), -1);
    EXPECT_EQ(std::string(narrow), std::string(expected, 100));
    EXPECT_EQ(QzSysString::WideSprintf(wide, 101, u"%.400f", 2.0 / 3), -1);
    EXPECT_EQ(ToU16(wide), Widen(std::string(expected, 100)));
}

// The text as UTF-8 for failure messages.
template <typename Unit>
std::string Printable(std::basic_string<Unit> const &text)
{
    if constexpr (sizeof(Unit) == 1)
        return text;
    else
        return ToUtf8(text);
}

// Formats in the width of `format` into a buffer filled with '#', and checks
// the result, the text, and the terminator right after it.
template <typename Unit, typename... Args>
testing::AssertionResult Gives(std::basic_string<Unit> const &expected, Unit const *format,
                               Args... args)
{
    constexpr std::size_t kUnits = 64;
    Unit buffer[kUnits];
    std::fill(buffer, buffer + kUnits, Unit('#'));
    int length = 0;
    if constexpr (sizeof(Unit) == 1)
        length = QzSysString::Sprintf(buffer, kUnits, format, args...);
    else
        length = QzSysString::WideSprintf(buffer, kUnits, format, args...);
    std::basic_string<Unit> text(buffer, length < 0 ? 0 : static_cast<std::size_t>(length));
    if (length == static_cast<int>(expected.size()) && text == expected && buffer[length] == 0)
        return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << "format \"" << Printable<Unit>(format) << "\" gave " << length << " \""
           << Printable(text) << "\", not \"" << Printable(expected) << "\"";
}

// The one argument of a row of the string and character rules.
using Arg = std::variant<char const *, LtWChar const *, int>;

template <typename Unit>
testing::AssertionResult GivesFor(std::basic_string<Unit> const &expected, Unit const *format,
                                  Arg const &arg)
{
    return std::visit([&](auto value) { return Gives(expected, format, value); }, arg);
}

// A row of the string and character rules: the format, its one argument, and
// what it must give under both assumable locales, whose code pages are UTF-8.
template <typename Unit>
struct WidthRow {
    char const *name;
    Unit const *format;
    Arg arg;
    std::basic_string<Unit> expected;
};

LtWChar const *const kNullWide = nullptr;
char const *const kNullNarrow = nullptr;
char const kUnterminated[2] = {'x', 'y'};

// ASCII rows of "%s" and "%c", which take the format's own width: run in both
// widths, the text argument widened for the wide format.
const WidthRow<char> kSameWidthRows[] = {
    {"s", "[%s]", "abc", "[abc]"},
    {"s_width", "%5s", "abc", "  abc"},
    {"s_left", "%-5s|", "abc", "abc  |"},
    {"s_precision", "%.2s", "abc", "ab"},
    {"s_zero_flag_pads_blanks", "%05s", "abc", "  abc"},
    {"s_null", "%s", kNullNarrow, "(null)"},
    {"s_null_precision", "%.3s", kNullNarrow, "(nu"},
    {"c", "%c", 'x', "x"},
    {"c_width", "%3c", 'x', "  x"},
    {"c_left_precision_ignored", "%-3.0c|", 'x', "x  |"},
    {"c_nul", "a%cb", 0, std::string("a\0b", 3)},
};

const WidthRow<char> kNarrowRows[] = {
    {"s_unterminated_precision", "%.2s", kUnterminated, "xy"},
    {"hs", "%hs", "abc", "abc"},
    {"S", "%S", u"h\u00E9", "h\xC3\xA9"},
    {"ls", "%ls", u"\u20AC", "\xE2\x82\xAC"},
    {"ws", "%ws", u"\U0001F600", "\xF0\x9F\x98\x80"},
    {"S_width_counts_bytes", "%4S", u"\u00E9", "  \xC3\xA9"},
    {"S_left", "%-4S|", u"\u00E9", "\xC3\xA9  |"},
    {"S_precision_keeps_whole_sequence", "%.3S", u"\u00E9\u00E9", "\xC3\xA9"},
    {"S_precision_all", "%.4S", u"\u00E9\u00E9", "\xC3\xA9\xC3\xA9"},
    {"S_precision_before_pair", "%.4S", u"a\U0001F600", "a"},
    {"S_precision_pads", "%4.3S|", u"a\u20AC", "   a|"},
    {"S_lone_high", "%S", u"a\xD800z", "a?z"},
    {"S_lone_low", "%S", u"\xDC00", "?"},
    {"S_reversed_pair", "%S", u"\xDC00\xD800", "??"},
    {"S_null_width", "%8S", kNullWide, "  (null)"},
    {"s_precision_keeps_utf8_whole", "%.3s", "a\xE2\x82\xAC", "a"},
    {"s_precision_keeps_utf8_four", "%.4s", "a\xF0\x9F\x98\x80", "a"},
    {"s_precision_at_boundary", "%.4s", "a\xE2\x82\xAC!", "a\xE2\x82\xAC"},
    {"s_precision_cut_padded", "%4.1s|", "\xC3\xA9", "    |"},
    {"hc", "%hc", 'y', "y"},
    {"C", "%C", u'\u00E9', "\xC3\xA9"},
    {"lc", "%lc", u'\u20AC', "\xE2\x82\xAC"},
    {"wc_width", "%4wc", u'\u00E9', "  \xC3\xA9"},
    {"C_surrogate", "%C", 0xD800, "?"},
};

const WidthRow<LtWChar> kWideRows[] = {
    {"ls", u"%ls", u"abc", u"abc"},
    {"ws", u"%ws", u"abc", u"abc"},
    {"S", u"%S", "h\xC3\xA9", u"h\u00E9"},
    {"hs", u"%hs", "\xF0\x9F\x98\x80", u"\U0001F600"},
    {"S_width_counts_units", u"%4S", "\xC3\xA9", u"   \u00E9"},
    {"S_left", u"%-2S|", "\xC3\xA9", u"\u00E9 |"},
    {"S_invalid_byte", u"%S", "a\xFFz", u"a\uFFFDz"},
    {"S_cut_sequence_is_one_error", u"%S", "a\xE2\x82z", u"a\uFFFDz"},
    {"S_overlong_bytes_each", u"%S", "\xC0\x80", u"\uFFFD\uFFFD"},
    {"S_encoded_surrogate", u"%S", "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},
    {"S_precision_keeps_pair", u"%.2S", "a\xF0\x9F\x98\x80", u"a"},
    {"S_precision_takes_pair", u"%.3S", "a\xF0\x9F\x98\x80", u"a\U0001F600"},
    {"s_precision_keeps_pair", u"%.2s", u"a\U0001F600", u"a"},
    {"s_precision_cut_padded", u"%3.1s|", u"\U0001F600", u"   |"},
    {"s_precision_takes_pair", u"%.2ls", u"\U0001F600", u"\U0001F600"},
    {"S_null_precision", u"%.2S", kNullNarrow, u"(n"},
    {"c", u"%c", u'\u00E9', u"\u00E9"},
    {"lc", u"%lc", u'\u20AC', u"\u20AC"},
    {"C", u"%C", 'x', u"x"},
    {"hc_width", u"%3hc", 'x', u"  x"},
    {"C_high_byte", u"%C", '\xE9', u"\uFFFD"},
};

class QzSysStringLocaleTest : public testing::TestWithParam<char const *> {};

// The C locale counts as UTF-8, so both assumable locales give one result.
TEST_P(QzSysStringLocaleTest, StringAndCharacterWidthRules)
{
    ScopedCtype ctype(GetParam());
    ASSERT_TRUE(ctype.IsSet());
    EXPECT_TRUE(QzSysString::IsMultiByteUTF8());
    for (WidthRow<char> const &row : kSameWidthRows) {
        SCOPED_TRACE(row.name);
        EXPECT_TRUE(GivesFor(row.expected, row.format, row.arg));
        // The same text, widened, for the wide format.
        char const *const *bytes = std::get_if<char const *>(&row.arg);
        std::u16string wide_text = Widen(bytes != nullptr && *bytes != nullptr ? *bytes : "");
        Arg wide_arg = bytes == nullptr    ? row.arg
                       : *bytes != nullptr ? Arg(wide_text.c_str())
                                           : Arg(kNullWide);
        EXPECT_TRUE(GivesFor(Widen(row.expected), Widen(row.format).c_str(), wide_arg));
    }
    for (WidthRow<char> const &row : kNarrowRows)
        EXPECT_TRUE(GivesFor(row.expected, row.format, row.arg)) << row.name;
    for (WidthRow<LtWChar> const &row : kWideRows)
        EXPECT_TRUE(GivesFor(row.expected, row.format, row.arg)) << row.name;
    EXPECT_TRUE(Gives<char>("abc=h\xC3\xA9;5", "%s=%S;%d", "abc", u"h\u00E9", 5));
    EXPECT_TRUE(Gives<LtWChar>(u"h\u00E9=abc;5", u"%S=%s;%d", "h\xC3\xA9", u"abc", 5));
}

INSTANTIATE_TEST_SUITE_P(Locales, QzSysStringLocaleTest, testing::Values("C", "C.UTF-8"));

// In both widths, with the same arguments and the ASCII result.
template <typename... Args>
testing::AssertionResult GivesInBothWidths(char const *expected, char const *format, Args... args)
{
    testing::AssertionResult narrow = Gives<char>(expected, format, args...);
    return narrow ? Gives<LtWChar>(Widen(expected), Widen(format).c_str(), args...) : narrow;
}

TEST(QzSysStringTest, PointerIsSixteenUpperCaseHexDigits)
{
    void *address = reinterpret_cast<void *>(std::uintptr_t{0x00007FFF1234ABCD});
    EXPECT_TRUE(GivesInBothWidths("0000000000000000|00007FFF1234ABCD|7", "%p|%p|%d",
                                  static_cast<void *>(nullptr), address, 7));
    EXPECT_TRUE(GivesInBothWidths("  00007FFF1234ABCD|00007FFF1234ABCD  |", "%18p|%-18p|", address,
                                  address));
}

// %n takes its argument, so the next conversion gets the right one, but
// stores nothing; %% and anything that is not a conversion are copied.
TEST(QzSysStringTest, PercentNPercentAndUnknownConversions)
{
    int stored = -7;
    EXPECT_TRUE(GivesInBothWidths("abcd5", "ab%ncd%d", &stored, 5));
    EXPECT_TRUE(GivesInBothWidths("5", "%hn%lln%d", &stored, &stored, 5));
    EXPECT_EQ(stored, -7);
    const char *const copied[][2] = {
        {"100%%%d", "100%5"},  {"%y%d", "%y5"},     {"%-5k|%d", "%-5k|5"}, {"%hf %d", "%hf 5"},
        {"%lls|%d", "%lls|5"}, {"%Ld|%d", "%Ld|5"}, {"%d%", "5%"},         {"%d%-5", "5%-5"},
    };
    for (auto const &row : copied)
        EXPECT_TRUE(GivesInBothWidths(row[1], row[0], 5));
}

// Checks the truncating contract at every count from 0 to the full length
// plus one: always terminated, -1 when cut, nothing written past count.
template <typename Unit, typename Format>
void CheckTruncation(std::basic_string<Unit> const &full, Format const &format)
{
    constexpr std::size_t kUnits = 32;
    constexpr Unit kSentinel = static_cast<Unit>('#');
    ASSERT_LT(full.size() + 2, kUnits);
    for (std::size_t count = 0; count <= full.size() + 1; ++count) {
        SCOPED_TRACE(count);
        Unit buffer[kUnits];
        std::fill(buffer, buffer + kUnits, kSentinel);
        int result = format(buffer, count);
        bool fits = count > full.size();
        EXPECT_EQ(result, fits ? static_cast<int>(full.size()) : -1);
        std::size_t kept = count == 0 ? 0 : std::min(count - 1, full.size());
        EXPECT_EQ(std::basic_string<Unit>(buffer, kept), full.substr(0, kept));
        if (count > 0) {
            EXPECT_EQ(buffer[kept], Unit(0));
        }
        for (std::size_t i = count == 0 ? 0 : kept + 1; i < kUnits; ++i)
            ASSERT_EQ(buffer[i], kSentinel) << "unit " << i;
    }
}

TEST(QzSysStringTest, TruncatingContractAtEveryCount)
{
    CheckTruncation<char>("abc=  12345|x", [](char *buffer, std::size_t count) {
        return QzSysString::Sprintf(buffer, count, "%s=%7d|%c", "abc", 12345, 'x');
    });
    CheckTruncation<LtWChar>(u"abc=  12345|x", [](LtWChar *buffer, std::size_t count) {
        return QzSysString::WideSprintf(buffer, count, u"%s=%7d|%c", u"abc", 12345, u'x');
    });
    CheckTruncation<LtWChar>(u"h\u00E9 -0.50", [](LtWChar *buffer, std::size_t count) {
        return QzSysString::WideSprintf(buffer, count, u"%S %.2f", "h\xC3\xA9", -0.5);
    });
    char buffer[4] = "xyz";
    EXPECT_EQ(QzSysString::Sprintf(nullptr, 4, "abc"), -1);
    EXPECT_EQ(QzSysString::Sprintf(buffer, 4, nullptr), 0);
    EXPECT_STREQ(buffer, "");
}

TEST(QzSysStringTest, WidePrintfWritesTheCodePage)
{
    ScopedCtype ctype("C.UTF-8");
    testing::internal::CaptureStdout();
    int short_length = QzSysString::WidePrintf(u"%s=%d\n", u"h\u00E9\U0001F600", 5);
    int long_length = QzSysString::WidePrintf(u"%700d|", 1);  // beyond the first buffer
    std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(short_length, 7);
    EXPECT_EQ(long_length, 701);
    EXPECT_EQ(printed, "h\xC3\xA9\xF0\x9F\x98\x80=5\n" + std::string(699, ' ') + "1|");
}

// Strict decoding: boundary code points of each sequence length succeed;
// overlong forms, encoded surrogates, values above U+10FFFF, stray and
// missing continuation bytes fail.
struct DecodeRow {
    char const *name;
    std::string bytes;
    std::u16string wide;  // empty: decoding fails
};

const DecodeRow kDecodeRows[] = {
    {"ascii", "A", u"A"},
    {"last_one_byte", "\x7F", u"\u007F"},
    {"first_two_byte", "\xC2\x80", u"\u0080"},
    {"last_two_byte", "\xDF\xBF", u"\u07FF"},
    {"first_three_byte", "\xE0\xA0\x80", u"\u0800"},
    {"before_surrogates", "\xED\x9F\xBF", u"\uD7FF"},
    {"after_surrogates", "\xEE\x80\x80", u"\uE000"},
    {"last_three_byte", "\xEF\xBF\xBF", u"\uFFFF"},
    {"first_four_byte", "\xF0\x90\x80\x80", u"\U00010000"},  // D800 DC00
    {"last_scalar", "\xF4\x8F\xBF\xBF", u"\U0010FFFF"},      // DBFF DFFF
    {"embedded_nul", std::string("a\0b", 3), std::u16string(u"a\0b", 3)},
    {"overlong_nul", "\xC0\x80", u""},
    {"overlong_two_byte", "\xC1\xBF", u""},
    {"overlong_three_byte", "\xE0\x9F\xBF", u""},
    {"overlong_four_byte", "\xF0\x8F\xBF\xBF", u""},
    {"high_surrogate", "\xED\xA0\x80", u""},
    {"low_surrogate", "\xED\xBF\xBF", u""},
    {"above_last_scalar", "\xF4\x90\x80\x80", u""},
    {"lead_F5", "\xF5\x80\x80\x80", u""},
    {"byte_FF", "\xFF", u""},
    {"stray_continuation", "a\x80", u""},
    {"cut_three_byte", "\xE2\x82", u""},
    {"cut_four_byte", "\xF0\x9F\x98", u""},
    {"bad_continuation", "\xC3\x41", u""},
};

// Runs one code-page conversion over a row: the size query, the conversion
// into a buffer filled with '#' (nothing written past a result), and an
// output one short of the need, which fails with 0. An empty `to`: fails.
template <typename From, typename To, typename Convert>
void CheckConversion(std::basic_string<From> const &from, std::basic_string<To> const &to,
                     Convert const &convert)
{
    auto length = static_cast<int>(from.size());
    auto needed = static_cast<int>(to.size());
    EXPECT_EQ(convert(from.data(), length, nullptr, 0), needed);
    To out[16];
    std::fill(out, out + 16, To('#'));
    EXPECT_EQ(convert(from.data(), length, out, 16), needed);
    EXPECT_EQ(std::basic_string<To>(out, to.size()), to);
    if (needed > 0) {
        EXPECT_EQ(out[to.size()], To('#'));  // a failure may leave a partial output
    }
    if (needed > 1) {  // (an output count of 0 is a size query)
        EXPECT_EQ(convert(from.data(), length, out, needed - 1), 0);
    }
}

TEST(QzSysStringTest, MultiByteToWideCharIsStrictUtf8)
{
    ScopedCtype ctype("C.UTF-8");
    for (DecodeRow const &row : kDecodeRows) {
        SCOPED_TRACE(row.name);
        // The four-argument form: the name also has a C-string overload.
        CheckConversion(row.bytes, row.wide,
                        [](char const *text, int length, LtWChar *out, int out_count) {
                            return QzSysString::MultiByteToWideChar(text, length, out, out_count);
                        });
    }
}

// Encoding never fails: lone surrogates, in any position, become "?".
TEST(QzSysStringTest, WideCharToMultiByteReplacesLoneSurrogates)
{
    ScopedCtype ctype("C.UTF-8");
    struct Row {
        char const *name;
        std::u16string wide;
        std::string bytes;
    };
    const Row rows[] = {
        {"ascii", u"Az", "Az"},
        {"two_byte", u"\u00E9", "\xC3\xA9"},
        {"three_byte", u"\u20AC\uFFFF", "\xE2\x82\xAC\xEF\xBF\xBF"},
        {"pair", u"\U0001F600", "\xF0\x9F\x98\x80"},
        {"high_at_end", u"a\xD83D", "a?"},
        {"high_before_ascii", u"\xD83Dz", "?z"},
        {"lone_low", u"\xDE00", "?"},
        {"reversed_pair", u"\xDE00\xD83D", "??"},
        {"high_then_pair", u"\xD83D\xD83D\xDE00", "?\xF0\x9F\x98\x80"},
        {"embedded_nul", std::u16string(u"a\0b", 3), std::string("a\0b", 3)},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        CheckConversion(row.wide, row.bytes,
                        [](LtWChar const *text, int length, char *out, int out_count) {
                            return QzSysString::WideCharToMultiByte(text, length, out, out_count);
                        });
    }
}

// A length of -1 converts and counts the nul; bad arguments give 0.
TEST(QzSysStringTest, CodePageConventions)
{
    ScopedCtype ctype("C");
    LtWChar wide[8];
    char bytes[8];
    EXPECT_EQ(QzSysString::MultiByteToWideChar("h\xC3\xA9", -1, nullptr, 0), 3);
    EXPECT_EQ(QzSysString::MultiByteToWideChar("h\xC3\xA9", -1, wide, 8), 3);
    EXPECT_EQ(std::u16string(wide, 3), std::u16string(u"h\u00E9\0", 3));
    EXPECT_EQ(QzSysString::MultiByteToWideChar("", -1, wide, 8), 1);
    EXPECT_EQ(QzSysString::WideCharToMultiByte(u"h\u00E9", -1, nullptr, 0), 4);
    EXPECT_EQ(QzSysString::WideCharToMultiByte(u"h\u00E9", -1, bytes, 8), 4);
    EXPECT_EQ(std::string(bytes, 4), std::string("h\xC3\xA9\0", 4));
    EXPECT_EQ(QzSysString::WideCharToMultiByte(u"h\u00E9", -1, bytes, 3), 0);
    EXPECT_EQ(QzSysString::MultiByteToWideChar(nullptr, -1, wide, 8), 0);
    EXPECT_EQ(QzSysString::MultiByteToWideChar("a", 0, wide, 8), 0);
    EXPECT_EQ(QzSysString::MultiByteToWideChar("a", -2, wide, 8), 0);
    EXPECT_EQ(QzSysString::MultiByteToWideChar("a", 1, wide, -1), 0);
    EXPECT_EQ(QzSysString::MultiByteToWideChar("a", 1, nullptr, 4), 0);
    EXPECT_EQ(QzSysString::WideCharToMultiByte(nullptr, -1, bytes, 8), 0);
    EXPECT_EQ(QzSysString::WideCharToMultiByte(u"a", 1, bytes, -1), 0);
}

// Every 97th scalar value survives a trip out to the code page and back.
TEST(QzSysStringTest, CodePageRoundTripsScalarValues)
{
    ScopedCtype ctype("C.UTF-8");
    std::u16string wide;
    for (char32_t c = 1; c <= 0x10FFFF; c += 97) {
        if (c >= 0xD800 && c <= 0xDFFF)
            continue;
        if (c < 0x10000) {
            wide += static_cast<char16_t>(c);
        } else {
            wide += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
            wide += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
        }
    }
    auto wide_length = static_cast<int>(wide.size());
    int byte_length = QzSysString::WideCharToMultiByte(wide.data(), wide_length, nullptr, 0);
    ASSERT_GT(byte_length, wide_length);
    std::string bytes(static_cast<std::size_t>(byte_length), '\0');
    ASSERT_EQ(QzSysString::WideCharToMultiByte(wide.data(), wide_length, &bytes[0], byte_length),
              byte_length);
    std::u16string back(wide.size(), u'\0');
    ASSERT_EQ(QzSysString::MultiByteToWideChar(bytes.data(), byte_length, &back[0], wide_length),
              wide_length);
    EXPECT_EQ(back, wide);
}

// A thread locale with the single-byte codeset ISO-8859-1, so that the
// iconv path runs. scripts/setup.sh compiles it; only C and C.UTF-8 may be
// assumed, so the tests skip where it is missing.
class QzSysStringLatin1Test : public testing::Test {
protected:
    void SetUp() override
    {
        m_latin1 = newlocale(LC_CTYPE_MASK, "en_US.ISO-8859-1", nullptr);
        if (m_latin1 == nullptr)
            GTEST_SKIP() << "en_US.ISO-8859-1 is not installed";
        ASSERT_STREQ(nl_langinfo_l(CODESET, m_latin1), "ISO-8859-1");
    }
    void TearDown() override
    {
        if (m_latin1 != nullptr)
            freelocale(m_latin1);
    }

    // Runs body with the calling thread (only) in the locale.
    template <typename Body>
    void InLatin1(Body const &body) const
    {
        locale_t previous = uselocale(m_latin1);
        body();
        uselocale(previous);
    }

    locale_t m_latin1 = nullptr;
};

TEST_F(QzSysStringLatin1Test, SingleByteCodesetGoesThroughIconv)
{
    InLatin1([] {
        EXPECT_FALSE(QzSysString::IsMultiByteUTF8());
        LtWChar wide[8];
        EXPECT_EQ(QzSysString::MultiByteToWideChar("caf\xE9\xA4", 5, wide, 8), 5);
        EXPECT_EQ(std::u16string(wide, 5), u"caf\u00E9\u00A4");
        char bytes[16];
        std::u16string text = u"\u00E9\u20AC\U0001F600\xD800z";
        EXPECT_EQ(QzSysString::WideCharToMultiByte(text.data(), 6, bytes, 16), 5);
        EXPECT_EQ(std::string(bytes, 5), "\xE9???z");
        EXPECT_EQ(QzSysString::Sprintf(bytes, 16, "%.3S|%S", u"ab\u00E9\u00E9", u"\u20AC"), 5);
        EXPECT_STREQ(bytes, "ab\xE9|?");
        EXPECT_EQ(QzSysString::Sprintf(bytes, 16, "%.2s", "\xC3\xA9"), 2);  // two characters
        EXPECT_EQ(QzSysString::WideSprintf(wide, 8, u"%4S", "\xE9"), 4);
        EXPECT_EQ(ToU16(wide), u"   \u00E9");
    });
    EXPECT_TRUE(QzSysString::IsMultiByteUTF8()) << "the locale was the thread's only";
}

// Each thread keeps its own iconv descriptors; threads converting at once
// must not disturb one another.
TEST_F(QzSysStringLatin1Test, ThreadsConvertThroughIconvAtOnce)
{
    std::vector<int> failures(4, 0);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < failures.size(); ++t) {
        threads.emplace_back([this, &failures, t] {
            InLatin1([&failures, t] {
                for (int i = 0; i < 500; ++i) {
                    LtWChar wide[4];
                    char bytes[4];
                    if (QzSysString::MultiByteToWideChar("\xE9\xFF", 2, wide, 4) != 2 ||
                        wide[0] != u'\u00E9' || wide[1] != u'\u00FF' ||
                        QzSysString::WideCharToMultiByte(u"\u00FC\u20AC", 2, bytes, 4) != 2 ||
                        bytes[0] != '\xFC' || bytes[1] != '?')
                        ++failures[t];
                }
            });
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(failures, std::vector<int>(4, 0));
}

}  // namespace
