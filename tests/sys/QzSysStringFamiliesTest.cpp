// The bounded C-string families of QzSysString: copies and concatenations at
// every destination size with guard units behind the destination, narrow
// and wide forms run from the same tables, comparisons and searches, raw
// memory, integer text in every radix against glibc, overflow and end
// pointers, WideStrtod against strtod, and the C-string conversions.

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/sys/QzSysString.h"

#include "support/QzTestSupport.h"

namespace {

constexpr std::size_t kAll = SIZE_MAX;  // "no count": the whole source
constexpr std::size_t kGuardUnits = 4;

// Narrow and wide forms of one operation, chosen by the unit type, so that
// each table runs through both families.
template <typename Unit>
struct Family;

template <>
struct Family<char> {
    static constexpr char kGuard = '\x5A';
    static int Copy(char *d, std::size_t s, char const *t, std::size_t n)
    {
        return n == kAll ? QzSysString::Strcpy(d, s, t) : QzSysString::Strncpy(d, s, t, n);
    }
    static int Append(char *d, std::size_t s, char const *t, std::size_t n)
    {
        return n == kAll ? QzSysString::Strcat(d, s, t) : QzSysString::Strncat(d, s, t, n);
    }
    static int Compare(char const *a, char const *b, std::size_t n)
    {
        return n == kAll ? QzSysString::Strcmp(a, b) : QzSysString::Strncmp(a, b, n);
    }
    static int CompareFolded(char const *a, char const *b, std::size_t n)
    {
        return n == kAll ? QzSysString::Stricmp(a, b) : QzSysString::Strnicmp(a, b, n);
    }
    static char const *Find(char const *t, char u) { return QzSysString::Strchr(t, u); }
    static char const *FindLast(char const *t, char u) { return QzSysString::Strrchr(t, u); }
    static char const *FindText(char const *t, char const *n) { return QzSysString::Strstr(t, n); }
    static std::size_t Length(char const *t) { return QzSysString::Strlen(t); }
    static std::size_t BoundedLength(char const *t, std::size_t n)
    {
        return QzSysString::Strnlen(t, n);
    }
    static int FromInt64(LtInt64 v, char *b, std::size_t s, int r)
    {
        return QzSysString::Int64ToStr(v, b, s, r);
    }
};

template <>
struct Family<LtWChar> {
    static constexpr LtWChar kGuard = 0xA55A;
    static int Copy(LtWChar *d, std::size_t s, LtWChar const *t, std::size_t n)
    {
        return n == kAll ? QzSysString::Wcscpy(d, s, t) : QzSysString::Wcsncpy(d, s, t, n);
    }
    static int Append(LtWChar *d, std::size_t s, LtWChar const *t, std::size_t n)
    {
        return n == kAll ? QzSysString::Wcscat(d, s, t) : QzSysString::WideStrncat(d, s, t, n);
    }
    static int Compare(LtWChar const *a, LtWChar const *b, std::size_t n)
    {
        return n == kAll ? QzSysString::WideStrcmp(a, b) : QzSysString::WideStrncmp(a, b, n);
    }
    static int CompareFolded(LtWChar const *a, LtWChar const *b, std::size_t n)
    {
        return n == kAll ? QzSysString::WideStricmp(a, b) : QzSysString::WideStrnicmp(a, b, n);
    }
    static LtWChar const *Find(LtWChar const *t, LtWChar u)
    {
        return QzSysString::WideStrchr(t, u);
    }
    static LtWChar const *FindLast(LtWChar const *t, LtWChar u)
    {
        return QzSysString::WideStrrchr(t, u);
    }
    static LtWChar const *FindText(LtWChar const *t, LtWChar const *n)
    {
        return QzSysString::WideStrstr(t, n);
    }
    static std::size_t Length(LtWChar const *t) { return QzSysString::WideStrlen(t); }
    static std::size_t BoundedLength(LtWChar const *t, std::size_t n)
    {
        return QzSysString::WideStrnlen(t, n);
    }
    static int FromInt64(LtInt64 v, LtWChar *b, std::size_t s, int r)
    {
        return QzSysString::WideIntToStr(v, b, s, r);
    }
};

// Table text (bytes taken as Latin-1) in the unit type under test.
template <typename Unit>
std::basic_string<Unit> Text(std::string const &bytes)
{
    std::basic_string<Unit> text;
    for (char byte : bytes)
        text.push_back(static_cast<Unit>(static_cast<unsigned char>(byte)));
    return text;
}

int Sign(int value)
{
    return (value > 0) - (value < 0);
}

// A destination of `size` units followed by guard units that no call may
// touch.
template <typename Unit>
class GuardedBuffer {
public:
    explicit GuardedBuffer(std::size_t size)
        : m_size(size), m_units(size + kGuardUnits, Family<Unit>::kGuard)
    {}
    Unit *Data() { return m_units.data(); }
    std::size_t Size() const { return m_size; }
    bool GuardsIntact() const
    {
        for (std::size_t i = m_size; i < m_units.size(); ++i) {
            if (m_units[i] != Family<Unit>::kGuard)
                return false;
        }
        return true;
    }
    // The text before the first nul within the size.
    std::basic_string<Unit> Contents() const
    {
        std::size_t length = 0;
        while (length < m_size && m_units[length] != 0)
            ++length;
        return std::basic_string<Unit>(m_units.data(), length);
    }
    bool IsTerminated() const
    {
        for (std::size_t i = 0; i < m_size; ++i) {
            if (m_units[i] == 0)
                return true;
        }
        return false;
    }

private:
    std::size_t m_size;
    std::vector<Unit> m_units;
};

template <typename Unit>
class SysStringFamilyTest : public ::testing::Test {};

using UnitTypes = ::testing::Types<char, LtWChar>;
struct UnitName {
    template <typename Unit>
    static std::string GetName(int)
    {
        return sizeof(Unit) == 1 ? "Narrow" : "Wide";
    }
};
TYPED_TEST_SUITE(SysStringFamilyTest, UnitTypes, UnitName);

struct CopyCase {
    char const *name;
    char const *prefix;  // what the destination holds before a concatenation
    char const *source;
    std::size_t count;  // kAll for Strcpy/Strcat
};

CopyCase const kCopyCases[] = {
    {"empty_source", "", "", kAll},       {"plain", "", "hello", kAll},
    {"high_bytes", "", "caf\xE9!", kAll}, {"count_shorter", "", "hello", 3},
    {"count_zero", "", "hello", 0},       {"count_longer", "", "hi", 10},
    {"append", "abc", "defg", kAll},      {"append_to_empty", "", "xyz", kAll},
    {"append_counted", "ab", "cdef", 2},  {"append_nothing", "abcd", "", kAll},
};

// What the destination must hold for a call at `size`: the whole result if
// it fits before the nul, else its first size - 1 units.
template <typename Unit>
void ExpectBoundedResult(CopyCase const &test, bool is_append)
{
    using String = std::basic_string<Unit>;
    String prefix = is_append ? Text<Unit>(test.prefix) : String();
    String source = Text<Unit>(test.source);
    String whole = prefix + source.substr(0, test.count == kAll ? source.size() : test.count);
    for (std::size_t size = 0; size <= whole.size() + 2; ++size) {
        SCOPED_TRACE(std::string(test.name) + " size " + std::to_string(size));
        GuardedBuffer<Unit> buffer(size);
        bool prefix_fits = prefix.size() < size;
        if (is_append) {
            // A prefix that does not fit is stored without its nul: the call
            // must then find no room and terminate the last unit.
            std::copy_n(prefix.begin(), std::min(prefix.size(), size), buffer.Data());
            if (prefix_fits)
                buffer.Data()[prefix.size()] = 0;
        }
        int result = is_append
                         ? Family<Unit>::Append(buffer.Data(), size, source.c_str(), test.count)
                         : Family<Unit>::Copy(buffer.Data(), size, source.c_str(), test.count);
        EXPECT_TRUE(buffer.GuardsIntact());
        if (size == 0) {
            EXPECT_EQ(result, -1);
            continue;
        }
        EXPECT_TRUE(buffer.IsTerminated());
        if (whole.size() < size) {
            EXPECT_EQ(result, static_cast<int>(whole.size()));
            EXPECT_TRUE(buffer.Contents() == whole);
        } else {
            EXPECT_EQ(result, -1);
            EXPECT_TRUE(buffer.Contents() == whole.substr(0, size - 1));
        }
    }
}

TYPED_TEST(SysStringFamilyTest, CopyNeverWritesPastTheSize)
{
    for (CopyCase const &test : kCopyCases)
        ExpectBoundedResult<TypeParam>(test, /*is_append=*/false);
}

TYPED_TEST(SysStringFamilyTest, AppendNeverWritesPastTheSize)
{
    for (CopyCase const &test : kCopyCases)
        ExpectBoundedResult<TypeParam>(test, /*is_append=*/true);
}

TYPED_TEST(SysStringFamilyTest, CopyRefusesANullDestinationAndReadsNullAsEmpty)
{
    auto source = Text<TypeParam>("abc");
    EXPECT_EQ(Family<TypeParam>::Copy(nullptr, 10, source.c_str(), kAll), -1);
    GuardedBuffer<TypeParam> buffer(4);
    EXPECT_EQ(Family<TypeParam>::Copy(buffer.Data(), 4, nullptr, kAll), 0);
    EXPECT_TRUE(buffer.Contents().empty());
    EXPECT_EQ(Family<TypeParam>::Length(nullptr), 0u);
}

TYPED_TEST(SysStringFamilyTest, LengthsStopAtTheNulOrTheBound)
{
    auto text = Text<TypeParam>("abcdef");
    EXPECT_EQ(Family<TypeParam>::Length(text.c_str()), 6u);
    EXPECT_EQ(Family<TypeParam>::BoundedLength(text.c_str(), 4), 4u);
    EXPECT_EQ(Family<TypeParam>::BoundedLength(text.c_str(), 6), 6u);
    EXPECT_EQ(Family<TypeParam>::BoundedLength(text.c_str(), 100), 6u);
    EXPECT_EQ(Family<TypeParam>::BoundedLength(text.c_str(), 0), 0u);
}

struct CompareCase {
    char const *a;
    char const *b;
    std::size_t count;
    int exact;   // sign of the exact comparison
    int folded;  // sign of the case-blind comparison
};

// Expected signs worked by hand from byte values ('A' 0x41 < 'a' 0x61;
// 0xE9 above every ASCII byte, compared unsigned). "_" (0x5F) against "B"
// shows that case-blind comparison folds to lower case, as strcasecmp does.
CompareCase const kCompareCases[] = {
    {"abc", "abc", kAll, 0, 0}, {"abc", "abd", kAll, -1, -1},  {"abd", "abc", kAll, 1, 1},
    {"abc", "ABC", kAll, 1, 0}, {"ABC", "abd", kAll, -1, -1},  {"", "a", kAll, -1, -1},
    {"a", "", kAll, 1, 1},      {"abc", "abcd", kAll, -1, -1}, {"\xE9", "z", kAll, 1, 1},
    {"abcx", "abcy", 3, 0, 0},  {"abcx", "ABCY", 3, 1, 0},     {"abcx", "abcy", 4, -1, -1},
    {"ab", "abc", 2, 0, 0},     {"ab", "abc", 3, -1, -1},      {"xyz", "abc", 0, 0, 0},
    {"_", "B", kAll, 1, -1},
};

TYPED_TEST(SysStringFamilyTest, ComparisonsTellTheOrderOfUnsignedUnits)
{
    for (CompareCase const &test : kCompareCases) {
        SCOPED_TRACE(std::string(test.a) + " vs " + test.b);
        auto a = Text<TypeParam>(test.a);
        auto b = Text<TypeParam>(test.b);
        EXPECT_EQ(Sign(Family<TypeParam>::Compare(a.c_str(), b.c_str(), test.count)), test.exact);
        EXPECT_EQ(Sign(Family<TypeParam>::CompareFolded(a.c_str(), b.c_str(), test.count)),
                  test.folded);
    }
}

TYPED_TEST(SysStringFamilyTest, ComparisonsReadNullAsEmpty)
{
    auto empty = Text<TypeParam>("");
    auto a = Text<TypeParam>("a");
    EXPECT_EQ(Family<TypeParam>::Compare(nullptr, empty.c_str(), kAll), 0);
    EXPECT_LT(Family<TypeParam>::Compare(nullptr, a.c_str(), kAll), 0);
    EXPECT_GT(Family<TypeParam>::CompareFolded(a.c_str(), nullptr, kAll), 0);
}

struct SearchCase {
    char const *text;
    char const *needle;  // a single unit for Strchr and Strrchr
    long long first;     // index found by Strstr (Strchr for one unit), -1: none
    long long last;      // index found by Strrchr, -1: none
};

SearchCase const kSearchCases[] = {
    {"abcabc", "b", 1, 4}, {"abcabc", "z", -1, -1},  {"", "a", -1, -1},
    {"aab", "ab", 1, -1},  {"abcabc", "ca", 2, -1},  {"abc", "abcd", -1, -1},
    {"abc", "", 0, 3},     {"x\xE9y", "\xE9", 1, 1}, {"abab", "bab", 1, -1},
};

TYPED_TEST(SysStringFamilyTest, SearchesFindTheRightPlace)
{
    using Units = Family<TypeParam>;
    for (SearchCase const &test : kSearchCases) {
        SCOPED_TRACE(std::string(test.text) + " / " + test.needle);
        auto text = Text<TypeParam>(test.text);
        auto needle = Text<TypeParam>(test.needle);
        auto index_of = [&](TypeParam const *found) {
            return found == nullptr ? -1LL : static_cast<long long>(found - text.c_str());
        };
        EXPECT_EQ(index_of(Units::FindText(text.c_str(), needle.c_str())), test.first);
        if (needle.size() > 1)
            continue;
        // An empty needle stands for the nul, which both unit searches find.
        TypeParam unit = needle.empty() ? TypeParam{0} : needle[0];
        long long first_unit = needle.empty() ? static_cast<long long>(text.size()) : test.first;
        EXPECT_EQ(index_of(Units::Find(text.c_str(), unit)), first_unit);
        EXPECT_EQ(index_of(Units::FindLast(text.c_str(), unit)), test.last);
    }
    EXPECT_EQ(Units::Find(nullptr, TypeParam{'a'}), nullptr);
    EXPECT_EQ(Units::FindText(nullptr, nullptr), nullptr);
}

struct IntegerCase {
    LtInt64 value;
    int radix;
    char const *text;
};

// Worked by hand: 2147483647 = "zik0zj" in radix 36; the rest are powers of
// two written out.
IntegerCase const kIntegerCases[] = {
    {0, 10, "0"},
    {0, 2, "0"},
    {-1, 16, "-1"},
    {255, 16, "ff"},
    {255, 2, "11111111"},
    {35, 36, "z"},
    {36, 36, "10"},
    {INT32_MAX, 36, "zik0zj"},
    {INT32_MIN, 10, "-2147483648"},
    {INT32_MIN, 16, "-80000000"},
    {INT32_MIN, 2, "-10000000000000000000000000000000"},
    {INT64_MIN, 10, "-9223372036854775808"},
    {INT64_MIN, 16, "-8000000000000000"},
    {INT64_MAX, 8, "777777777777777777777"},
};

TYPED_TEST(SysStringFamilyTest, IntegersBecomeTextInEveryRadix)
{
    for (IntegerCase const &test : kIntegerCases) {
        SCOPED_TRACE(test.text);
        auto expected = Text<TypeParam>(test.text);
        // Exactly enough room works; one unit less fails whole.
        GuardedBuffer<TypeParam> fits(expected.size() + 1);
        EXPECT_EQ(Family<TypeParam>::FromInt64(test.value, fits.Data(), fits.Size(), test.radix),
                  static_cast<int>(expected.size()));
        EXPECT_TRUE(fits.Contents() == expected);
        EXPECT_TRUE(fits.GuardsIntact());
        GuardedBuffer<TypeParam> tight(expected.size());
        EXPECT_EQ(Family<TypeParam>::FromInt64(test.value, tight.Data(), tight.Size(), test.radix),
                  -1);
        EXPECT_TRUE(tight.Contents().empty());
        EXPECT_TRUE(tight.GuardsIntact());
    }
}

TYPED_TEST(SysStringFamilyTest, IntegerTextRefusesARadixOutOfRange)
{
    for (int radix : {-1, 0, 1, 37, 100}) {
        GuardedBuffer<TypeParam> buffer(40);
        buffer.Data()[0] = TypeParam{'x'};
        EXPECT_EQ(Family<TypeParam>::FromInt64(7, buffer.Data(), buffer.Size(), radix), -1);
        EXPECT_TRUE(buffer.Contents().empty());
    }
}

// glibc's printf of an unsigned value in radix 8, 10 or 16.
std::string PrintfInRadix(LtNat64 value, int radix)
{
    char text[32];
    auto wide_value = static_cast<unsigned long long>(value);
    if (radix == 8)
        std::snprintf(text, sizeof text, "%llo", wide_value);
    else if (radix == 10)
        std::snprintf(text, sizeof text, "%llu", wide_value);
    else
        std::snprintf(text, sizeof text, "%llx", wide_value);
    return text;
}

// The narrow 32- and 64-bit forms against glibc's printf in the radices it
// can print, for values at and around every bound.
TEST(SysStringNumberTest, UnsignedTextMatchesPrintf)
{
    LtNat64 const values[] = {0,
                              1,
                              9,
                              10,
                              UINT32_MAX - 1ULL,
                              UINT32_MAX,
                              UINT32_MAX + 1ULL,
                              UINT64_MAX / 3,
                              UINT64_MAX - 1,
                              UINT64_MAX};
    for (LtNat64 value : values) {
        for (int radix : {8, 10, 16}) {
            std::string const expected = PrintfInRadix(value, radix);
            char text[80];
            EXPECT_EQ(QzSysString::UInt64ToStr(value, text, sizeof text, radix),
                      static_cast<int>(expected.size()));
            EXPECT_EQ(text, expected);
            if (value > UINT32_MAX)
                continue;
            EXPECT_GT(
                QzSysString::UInt32ToStr(static_cast<LtNat32>(value), text, sizeof text, radix), 0);
            EXPECT_EQ(text, expected);
        }
    }
    char text[80];
    EXPECT_EQ(QzSysString::UInt64ToStr(UINT64_MAX, text, sizeof text, 36), 13);
    EXPECT_STREQ(text, "3w5e11264sgsf");  // 2^64 - 1 in radix 36
    EXPECT_EQ(QzSysString::UInt64ToStr(UINT64_MAX, text, sizeof text, 2), 64);
    EXPECT_EQ(std::string(text), std::string(64, '1'));
    EXPECT_EQ(QzSysString::Int32ToStr(INT32_MIN, text, sizeof text, 10), 11);
    EXPECT_STREQ(text, "-2147483648");
}

TEST(SysStringNumberTest, EveryRadixRoundTripsAtTheBounds)
{
    LtInt64 const signed_values[] = {INT64_MIN, INT64_MIN + 1, INT32_MIN, -1, 0,
                                     1,         INT32_MAX,     INT64_MAX};
    LtNat64 const unsigned_values[] = {0, 1, UINT32_MAX, UINT64_MAX};
    for (int radix = 2; radix <= 36; ++radix) {
        SCOPED_TRACE(radix);
        char text[80];
        for (LtInt64 value : signed_values) {
            ASSERT_GT(QzSysString::Int64ToStr(value, text, sizeof text, radix), 0);
            LtInt64 back = 0;
            EXPECT_TRUE(QzSysString::StrToInt64(text, &back, radix, nullptr)) << text;
            EXPECT_EQ(back, value);
            if (value < INT32_MIN || value > INT32_MAX)
                continue;
            LtInt32 back32 = 0;
            ASSERT_GT(
                QzSysString::Int32ToStr(static_cast<LtInt32>(value), text, sizeof text, radix), 0);
            EXPECT_TRUE(QzSysString::StrToInt32(text, &back32, radix, nullptr)) << text;
            EXPECT_EQ(back32, value);
        }
        for (LtNat64 value : unsigned_values) {
            ASSERT_GT(QzSysString::UInt64ToStr(value, text, sizeof text, radix), 0);
            LtNat64 back = 0;
            EXPECT_TRUE(QzSysString::StrToUInt64(text, &back, radix, nullptr)) << text;
            EXPECT_EQ(back, value);
        }
    }
}

struct ParseCase {
    char const *text;
    int radix;
    bool converted;
    LtInt32 value;
    std::size_t end;  // units from the start
};

// Bounds and clamps worked by hand; the same table runs through StrToInt32
// and WideStrtol.
ParseCase const kParseCases[] = {
    {"123", 10, true, 123, 3},
    {"  \t-42xyz", 10, true, -42, 6},
    {"+7", 10, true, 7, 2},
    {"2147483647", 10, true, INT32_MAX, 10},
    {"-2147483648", 10, true, INT32_MIN, 11},
    {"2147483648", 10, false, INT32_MAX, 10},
    {"-2147483649", 10, false, INT32_MIN, 11},
    {"99999999999999999999999", 10, false, INT32_MAX, 23},
    {"0x1A", 16, true, 26, 4},
    {"0X1a", 16, true, 26, 4},
    {"0xg", 16, true, 0, 1},
    {"0x1A", 10, true, 0, 1},
    {"7fffffff", 16, true, INT32_MAX, 8},
    {"-80000000", 16, true, INT32_MIN, 9},
    {"zz", 36, true, 1295, 2},
    {"ZZ", 36, true, 1295, 2},
    {"1012", 2, true, 5, 3},
    {"2", 2, false, 0, 0},
    {"", 10, false, 0, 0},
    {"   ", 10, false, 0, 0},
    {"+", 10, false, 0, 0},
    {"- 5", 10, false, 0, 0},
    {"12", 1, false, 0, 0},
    {"12", 37, false, 0, 0},
    {"12", 0, false, 0, 0},
};

TEST(SysStringNumberTest, TextToIntegersClampsAndSetsTheEnd)
{
    for (ParseCase const &test : kParseCases) {
        SCOPED_TRACE(std::string(test.text) + " radix " + std::to_string(test.radix));
        LtInt32 value = 12345;
        char const *end = nullptr;
        EXPECT_EQ(QzSysString::StrToInt32(test.text, &value, test.radix, &end), test.converted);
        EXPECT_EQ(value, test.value);
        EXPECT_EQ(static_cast<std::size_t>(end - test.text), test.end);

        std::u16string wide = Text<LtWChar>(test.text);
        LtWChar const *wide_end = nullptr;
        value = 12345;
        EXPECT_EQ(QzSysString::WideStrtol(wide.c_str(), &value, test.radix, &wide_end),
                  test.converted);
        EXPECT_EQ(value, test.value);
        EXPECT_EQ(static_cast<std::size_t>(wide_end - wide.c_str()), test.end);
    }
}

// StrToInt64 agrees with glibc's strtoll on value, end and overflow.
TEST(SysStringNumberTest, SignedSixtyFourBitsMatchStrtoll)
{
    char const *const texts[] = {"9223372036854775807",    "9223372036854775808",
                                 "-9223372036854775808",   "-9223372036854775809",
                                 " 0x7fffffffffffffffq",   "-0x8000000000000000",
                                 "zzzzzzzzzzzzz",          "777777777777777777777",
                                 "1000000000000000000000", "123 456"};
    for (int radix : {8, 10, 16, 36}) {
        for (char const *text : texts) {
            SCOPED_TRACE(std::string(text) + " radix " + std::to_string(radix));
            errno = 0;
            char *glibc_end = nullptr;
            long long expected = std::strtoll(text, &glibc_end, radix);
            bool expected_ok = errno != ERANGE && glibc_end != text;
            LtInt64 value = 0;
            char const *end = nullptr;
            EXPECT_EQ(QzSysString::StrToInt64(text, &value, radix, &end), expected_ok);
            EXPECT_EQ(value, expected);
            EXPECT_EQ(end, glibc_end);
        }
    }
}

TEST(SysStringNumberTest, UnsignedTextClampsNegativesToZero)
{
    struct Case {
        char const *text;
        bool converted;
        LtNat64 value64;
        LtNat32 value32;
    } const cases[] = {
        {"-0", true, 0, 0},
        {"-1", false, 0, 0},
        {"4294967295", true, UINT32_MAX, UINT32_MAX},
        {"18446744073709551615", true, UINT64_MAX, UINT32_MAX},
        {"18446744073709551616", false, UINT64_MAX, UINT32_MAX},
    };
    for (Case const &test : cases) {
        SCOPED_TRACE(test.text);
        LtNat64 value64 = 1;
        LtNat32 value32 = 1;
        EXPECT_EQ(QzSysString::StrToUInt64(test.text, &value64, 10, nullptr), test.converted);
        EXPECT_EQ(value64, test.value64);
        EXPECT_EQ(QzSysString::StrToUInt32(test.text, &value32, 10, nullptr),
                  test.converted && test.value64 <= UINT32_MAX);
        EXPECT_EQ(value32, test.value32);
    }
    LtNat32 value = 1;
    EXPECT_FALSE(QzSysString::StrToUInt32("4294967296", &value, 10, nullptr));
    EXPECT_EQ(value, UINT32_MAX);
}

TEST(SysStringNumberTest, WithoutAnEndPointerTheNumberMustBeTheWholeText)
{
    LtInt32 value = 0;
    EXPECT_TRUE(QzSysString::StrToInt32(" 12", &value, 10, nullptr));
    EXPECT_FALSE(QzSysString::StrToInt32("12 ", &value, 10, nullptr));
    EXPECT_EQ(value, 12);
    EXPECT_FALSE(QzSysString::StrToInt32(nullptr, &value, 10, nullptr));
    EXPECT_EQ(value, 0);
    EXPECT_TRUE(QzSysString::StrToInt32("5", nullptr, 10, nullptr));
    EXPECT_TRUE(QzSysString::WideStrtol(u"\u3000-9", &value, 10, nullptr));  // ideographic space
    EXPECT_EQ(value, -9);
}

// WideStrtod against glibc's strtod over the same ASCII text, then the
// cases only the wide form has: wide blanks and non-ASCII stops.
TEST(SysStringNumberTest, WideStrtodMatchesStrtodAndMapsTheEndBack)
{
    char const *const texts[] = {"1.5e3xyz", "  -.25", "0x1p4", "inf",   "-nan",   "1e",     "1e+",
                                 ".",        "abc",    "12 34", "1e999", "-1e999", "1e-400", "7,5"};
    for (char const *text : texts) {
        SCOPED_TRACE(text);
        char *glibc_end = nullptr;
        errno = 0;
        double expected = std::strtod(text, &glibc_end);
        bool expected_ok = glibc_end != text && !(errno == ERANGE && std::isinf(expected));
        std::u16string wide = Text<LtWChar>(text);
        double value = 0.5;
        LtWChar const *end = nullptr;
        EXPECT_EQ(QzSysString::WideStrtod(wide.c_str(), &value, &end), expected_ok);
        EXPECT_EQ(end - wide.c_str(), glibc_end - text);
        if (std::isnan(expected)) {
            EXPECT_TRUE(std::isnan(value));
        } else {
            EXPECT_EQ(value, expected);
        }
    }
    double value = 0;
    LtWChar const *end = nullptr;
    std::u16string text = u"\u3000\u20033.25\u00E9";  // wide blanks, then a letter past ASCII
    EXPECT_TRUE(QzSysString::WideStrtod(text.c_str(), &value, &end));
    EXPECT_EQ(value, 3.25);
    EXPECT_EQ(end - text.c_str(), 6);
    EXPECT_FALSE(QzSysString::WideStrtod(text.c_str(), &value, nullptr));
    EXPECT_FALSE(QzSysString::WideStrtod(nullptr, &value, &end));
    EXPECT_EQ(end, nullptr);
}

TEST(SysStringNumberTest, DoubleTextUsesSignificantDigits)
{
    char text[32];
    EXPECT_EQ(QzSysString::DoubleToStr(1.0 / 3.0, text, sizeof text, 5), 7);
    EXPECT_STREQ(text, "0.33333");
    EXPECT_EQ(QzSysString::DoubleToStr(1e20, text, sizeof text, 3), 5);
    EXPECT_STREQ(text, "1e+20");
    EXPECT_EQ(QzSysString::DoubleToStr(-2.5, text, sizeof text, 0), 2);  // %.0g rounds half even
    EXPECT_STREQ(text, "-2");
    EXPECT_EQ(QzSysString::DoubleToStr(2.5, text, sizeof text, -1), -1);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(QzSysString::DoubleToStr(123.5, text, 4, 6), -1);
    EXPECT_STREQ(text, "123");
}

TEST(SysStringMemoryTest, CopiesAndFillsRefuseMoreThanTheSize)
{
    unsigned char dest[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    unsigned char const source[8] = {9, 8, 7, 6, 5, 4, 3, 2};
    EXPECT_FALSE(QzSysString::Memcpy(dest, 4, source, 5));
    EXPECT_FALSE(QzSysString::Memset(dest, 4, 0, 5));
    EXPECT_FALSE(QzSysString::Memmove(dest, 4, source, 5));
    EXPECT_EQ(dest[0], 1);  // refused calls write nothing
    EXPECT_TRUE(QzSysString::Memcpy(dest, 4, source, 4));
    EXPECT_EQ(std::memcmp(dest, "\x09\x08\x07\x06\x01", 5), 0);
    EXPECT_TRUE(QzSysString::Memset(dest, 8, 0x1FF, 2));  // the value is taken as a byte
    EXPECT_EQ(dest[1], 0xFF);
    EXPECT_EQ(dest[2], 7);
    EXPECT_TRUE(QzSysString::Memcpy(nullptr, 0, nullptr, 0));
    EXPECT_FALSE(QzSysString::Memcpy(nullptr, 4, source, 1));

    char overlap[] = "abcdef";
    EXPECT_TRUE(QzSysString::Memmove(overlap + 2, 4, overlap, 4));
    EXPECT_STREQ(overlap, "ababcd");
    EXPECT_TRUE(QzSysString::Memmove(overlap, 6, overlap + 1, 5));
    EXPECT_STREQ(overlap, "babcdd");
}

TEST(SysStringMemoryTest, ComparisonsAreUnsigned)
{
    EXPECT_GT(QzSysString::Memcmp("\x80", "\x7F", 1), 0);
    EXPECT_EQ(QzSysString::Memcmp("ab\0x", "ab\0y", 3), 0);
    EXPECT_LT(QzSysString::Memcmp("ab\0x", "ab\0y", 4), 0);
    LtWChar const high[] = {0x8000};
    LtWChar const low[] = {0x7FFF};
    EXPECT_GT(QzSysString::WideMemcmp(high, low, 1), 0);
    EXPECT_EQ(QzSysString::WideMemcmp(high, low, 0), 0);
}

TEST(SysStringMemoryTest, WideCopiesCountUnits)
{
    LtWChar dest[4] = {1, 1, 1, 1};
    LtWChar const source[3] = {u'x', u'y', 0xD83D};
    EXPECT_FALSE(QzSysString::WideMemcpy(dest, 2, source, 3));
    EXPECT_EQ(dest[0], 1);
    EXPECT_TRUE(QzSysString::WideMemcpy(dest, 4, source, 3));
    EXPECT_EQ(dest[2], 0xD83D);
    EXPECT_EQ(dest[3], 1);
    EXPECT_TRUE(QzSysString::WideMemset(dest, 4, 0xFFFF, 4));
    EXPECT_EQ(dest[3], 0xFFFF);
    EXPECT_TRUE(QzSysString::WideMemmove(dest + 1, 3, source, 3));
    EXPECT_EQ(dest[1], u'x');
}

TEST(SysStringTextTest, DuplicatesAreOwnedCopies)
{
    char const original[] = "duplicate me";
    char *copy = QzSysString::Strdup(original);
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, original);
    EXPECT_STREQ(copy, original);
    QzSysString::FreeString(copy);
    LtWChar *wide = QzSysString::WideStrdup(u"wide \u00E9");
    ASSERT_NE(wide, nullptr);
    EXPECT_EQ(ToU16(wide), u"wide \u00E9");
    QzSysString::FreeString(wide);
    EXPECT_EQ(QzSysString::Strdup(nullptr), nullptr);
    EXPECT_EQ(QzSysString::WideStrdup(nullptr), nullptr);
}

TEST(SysStringTextTest, ErrorMessagesAreBoundedCopies)
{
    char message[128];
    EXPECT_STREQ(QzSysString::Strerror(ENOENT, message, sizeof message),
                 "No such file or directory");  // glibc's text
    char small[6 + kGuardUnits];
    std::memset(small, 'Z', sizeof small);
    EXPECT_STREQ(QzSysString::Strerror(ENOENT, small, 6), "No su");
    EXPECT_EQ(small[6], 'Z');
    EXPECT_STREQ(QzSysString::Strerror(ENOENT, small, 0), "");
    EXPECT_STRNE(QzSysString::Strerror(-12345, message, sizeof message), "");
}

TEST(SysStringTextTest, ClassificationOfBothWidths)
{
    EXPECT_TRUE(QzSysString::IsDigit('7'));
    EXPECT_FALSE(QzSysString::IsDigit('a'));
    EXPECT_TRUE(QzSysString::IsAlpha('Q'));
    EXPECT_FALSE(QzSysString::IsAlpha('\xE9'));  // C locale: no letter above 0x7F
    EXPECT_TRUE(QzSysString::IsSpace('\v'));
    EXPECT_FALSE(QzSysString::IsSpace('_'));
    EXPECT_TRUE(QzSysString::Is7BitAscii("plain text\x7F"));
    EXPECT_FALSE(QzSysString::Is7BitAscii("caf\xC3\xA9"));
    EXPECT_TRUE(QzSysString::Is7BitAscii(nullptr));

    EXPECT_TRUE(QzSysString::WideIsAlpha(u'\u00E9'));
    EXPECT_TRUE(QzSysString::WideIsAlpha(u'\u4E2D'));
    EXPECT_FALSE(QzSysString::WideIsAlpha(0xD83D));  // a surrogate is nothing
    EXPECT_TRUE(QzSysString::WideIsDigit(u'0'));
    EXPECT_TRUE(QzSysString::WideIsSpace(u'\u3000'));
    EXPECT_FALSE(QzSysString::WideIsSpace(u'x'));
}

TEST(SysStringTextTest, WideCaseBlindComparisonFoldsBeyondAscii)
{
    EXPECT_EQ(QzSysString::WideStricmp(u"\u00C9T\u00C9", u"\u00E9t\u00E9"), 0);
    EXPECT_EQ(QzSysString::WideStrnicmp(u"\u0391x", u"\u03B1y", 1), 0);
}

TEST(SysStringTextTest, WideFormattingAliases)
{
    LtWChar buffer[32];
    EXPECT_EQ(QzSysString::Wsprintf(buffer, 32, u"%d-%ls", 42, u"x"), 4);
    EXPECT_EQ(ToU16(buffer), u"42-x");
    EXPECT_EQ(QzSysString::Wsprintf(buffer, 3, u"%d", 12345), -1);
    EXPECT_EQ(ToU16(buffer), u"12");
}

// LC_CTYPE set to C.UTF-8 for a test, restored after.
class SysStringConversionTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_previous = std::setlocale(LC_CTYPE, nullptr);
        ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    }
    void TearDown() override { std::setlocale(LC_CTYPE, m_previous.c_str()); }

private:
    std::string m_previous;
};

// Runs a conversion at every destination size from 0 to the length + 2 and
// checks the guard units, the all-or-nothing result and the length query.
template <typename Source, typename Unit, typename Convert>
void ExpectConversionAtEverySize(Source const *source, std::basic_string<Unit> const &expected,
                                 Convert convert)
{
    EXPECT_EQ(convert(source, nullptr, 0), static_cast<int>(expected.size()));
    EXPECT_EQ(convert(source, nullptr, 100), static_cast<int>(expected.size()));
    for (std::size_t size = 0; size <= expected.size() + 2; ++size) {
        SCOPED_TRACE(size);
        GuardedBuffer<Unit> buffer(size);
        int result = convert(source, buffer.Data(), size);
        EXPECT_TRUE(buffer.GuardsIntact());
        if (size > expected.size()) {
            EXPECT_EQ(result, static_cast<int>(expected.size()));
            EXPECT_TRUE(buffer.Contents() == expected);
        } else {
            EXPECT_EQ(result, -1);
            EXPECT_TRUE(size == 0 || buffer.Contents().empty());
        }
    }
}

TEST_F(SysStringConversionTest, AsciiWidensAndNarrowsAtEverySize)
{
    auto to_wide = [](char const *s, LtWChar *d, std::size_t n) {
        return QzSysString::AsciiToWideChar(s, d, n);
    };
    auto to_ascii = [](LtWChar const *s, char *d, std::size_t n) {
        return QzSysString::WideCharToAscii(s, d, n);
    };
    ExpectConversionAtEverySize("ASCII~\x7F", std::u16string(u"ASCII~\x7F"), to_wide);
    ExpectConversionAtEverySize(u"ASCII~\x7F", std::string("ASCII~\x7F"), to_ascii);
    ExpectConversionAtEverySize("", std::u16string(), to_wide);
}

TEST_F(SysStringConversionTest, AsciiRefusesWiderUnits)
{
    GuardedBuffer<LtWChar> wide(8);
    EXPECT_EQ(QzSysString::AsciiToWideChar("ab\x80", wide.Data(), 8), -1);
    EXPECT_TRUE(wide.Contents().empty());
    EXPECT_EQ(QzSysString::AsciiToWideChar("ab\x80", nullptr, 0), -1);
    GuardedBuffer<char> narrow(8);
    EXPECT_EQ(QzSysString::WideCharToAscii(u"ab\u0080", narrow.Data(), 8), -1);
    EXPECT_TRUE(narrow.Contents().empty());
    EXPECT_EQ(QzSysString::AsciiToWideChar(nullptr, wide.Data(), 8), -1);
}

TEST_F(SysStringConversionTest, MultiByteAtEverySize)
{
    auto to_wide = [](char const *s, LtWChar *d, std::size_t n) {
        return QzSysString::MultiByteToWideChar(s, d, n);
    };
    auto to_multi = [](LtWChar const *s, char *d, std::size_t n) {
        return QzSysString::WideCharToMultiByte(s, d, n);
    };
    // "é€😀": 2 + 3 + 4 bytes, 1 + 1 + 2 units.
    char const utf8[] = "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    std::u16string const utf16 = u"\u00E9\u20AC\U0001F600";
    ExpectConversionAtEverySize(utf8, utf16, to_wide);
    ExpectConversionAtEverySize(utf16.c_str(), std::string(utf8), to_multi);
}

TEST_F(SysStringConversionTest, MultiByteDecodesStrictlyAndEncodesLoneSurrogatesAsQuestionMarks)
{
    LtWChar wide[8];
    EXPECT_EQ(QzSysString::MultiByteToWideChar("a\xC3", wide, 8), -1);
    EXPECT_EQ(QzSysString::MultiByteToWideChar("\xED\xA0\x80", nullptr, 0), -1);
    LtWChar const lone[] = {u'a', 0xD800, u'b', 0};
    char narrow[8];
    EXPECT_EQ(QzSysString::WideCharToMultiByte(lone, narrow, sizeof narrow), 3);
    EXPECT_STREQ(narrow, "a?b");
    // The four-argument forms keep counting the nul.
    EXPECT_EQ(QzSysString::MultiByteToWideChar("ab", -1, nullptr, 0), 3);
    EXPECT_EQ(QzSysString::WideCharToMultiByte(u"ab", -1, nullptr, 0), 3);
}

}  // namespace
