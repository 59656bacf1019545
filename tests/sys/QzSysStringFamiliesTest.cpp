// The bounded C-string families of QzSysString: copies at every destination
// size with guard units behind it, narrow and wide forms run from the same
// tables, raw memory, integer text against std::to_chars and strtoll, end
// pointers, WideStrtod against strtod, and the C-string conversions.

#include <algorithm>
#include <cerrno>
#include <charconv>
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

// The narrow and the wide form of each operation, chosen by the unit type,
// so that each table runs through both families.
template <typename Unit>
struct Family;

template <>
struct Family<char> {
    static constexpr char kGuard = '\x5A';
    static constexpr auto Copy = &QzSysString::Strcpy;
    static constexpr auto CopyCounted = &QzSysString::Strncpy;
    static constexpr auto Append = &QzSysString::Strcat;
    static constexpr auto AppendCounted = &QzSysString::Strncat;
    static constexpr auto Compare = &QzSysString::Strcmp;
    static constexpr auto CompareCounted = &QzSysString::Strncmp;
    static constexpr auto CompareFolded = &QzSysString::Stricmp;
    static constexpr auto CompareFoldedCounted = &QzSysString::Strnicmp;
    static constexpr auto Find = &QzSysString::Strchr;
    static constexpr auto FindLast = &QzSysString::Strrchr;
    static constexpr auto FindText = &QzSysString::Strstr;
    static constexpr auto Length = &QzSysString::Strlen;
    static constexpr auto BoundedLength = &QzSysString::Strnlen;
    static constexpr auto FromInt64 = &QzSysString::Int64ToStr;
};

template <>
struct Family<LtWChar> {
    static constexpr LtWChar kGuard = 0xA55A;
    static constexpr auto Copy = &QzSysString::Wcscpy;
    static constexpr auto CopyCounted = &QzSysString::Wcsncpy;
    static constexpr auto Append = &QzSysString::Wcscat;
    static constexpr auto AppendCounted = &QzSysString::WideStrncat;
    static constexpr auto Compare = &QzSysString::WideStrcmp;
    static constexpr auto CompareCounted = &QzSysString::WideStrncmp;
    static constexpr auto CompareFolded = &QzSysString::WideStricmp;
    static constexpr auto CompareFoldedCounted = &QzSysString::WideStrnicmp;
    static constexpr auto Find = &QzSysString::WideStrchr;
    static constexpr auto FindLast = &QzSysString::WideStrrchr;
    static constexpr auto FindText = &QzSysString::WideStrstr;
    static constexpr auto Length = &QzSysString::WideStrlen;
    static constexpr auto BoundedLength = &QzSysString::WideStrnlen;
    static constexpr auto FromInt64 = &QzSysString::WideIntToStr;
};

// `whole(args...)` for a count of kAll, else `counted(args..., count)`.
template <typename Whole, typename Counted, typename... Args>
int WholeOrCounted(std::size_t count, Whole whole, Counted counted, Args... args)
{
    return count == kAll ? whole(args...) : counted(args..., count);
}

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
    using String = std::basic_string<Unit>;
    explicit GuardedBuffer(std::size_t size)
        : m_size(size), m_units(size + kGuardUnits, Family<Unit>::kGuard)
    {}
    Unit *Data() { return m_units.data(); }
    bool GuardsIntact() const
    {
        return m_units.find_first_not_of(Family<Unit>::kGuard, m_size) == String::npos;
    }
    // The text before the first nul within the size (all of it if none, so
    // that a missing nul shows as a wrong text).
    String Contents() const { return m_units.substr(0, std::min(m_size, m_units.find(Unit{0}))); }

private:
    std::size_t m_size;
    String m_units;
};

template <typename Unit>
class SysStringFamilyTest : public ::testing::Test {};

using UnitTypes = ::testing::Types<char, LtWChar>;
TYPED_TEST_SUITE(SysStringFamilyTest, UnitTypes);

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

// Copies, and appends to the row's prefix, at every size: the destination
// must hold the whole result if it fits before the nul, else its first
// size - 1 units.
TYPED_TEST(SysStringFamilyTest, CopyAndAppendNeverWritePastTheSize)
{
    using Units = Family<TypeParam>;
    using String = std::basic_string<TypeParam>;
    for (bool is_append : {false, true}) {
        for (CopyCase const &test : kCopyCases) {
            String prefix = is_append ? Text<TypeParam>(test.prefix) : String();
            String source = Text<TypeParam>(test.source);
            String whole = prefix + source.substr(0, std::min(test.count, source.size()));
            for (std::size_t size = 0; size <= whole.size() + 2; ++size) {
                SCOPED_TRACE(std::string(test.name) + (is_append ? " append" : " copy") + " size " +
                             std::to_string(size));
                GuardedBuffer<TypeParam> buffer(size);
                // A copy starts from guard units alone. A prefix that does
                // not fit is stored without its nul: the call must then find
                // no room and terminate the last unit.
                prefix.copy(buffer.Data(), std::min(prefix.size(), size));
                if (is_append && prefix.size() < size)
                    buffer.Data()[prefix.size()] = 0;
                int result = is_append
                                 ? WholeOrCounted(test.count, Units::Append, Units::AppendCounted,
                                                  buffer.Data(), size, source.c_str())
                                 : WholeOrCounted(test.count, Units::Copy, Units::CopyCounted,
                                                  buffer.Data(), size, source.c_str());
                EXPECT_TRUE(buffer.GuardsIntact());
                EXPECT_EQ(result, size > whole.size() ? static_cast<int>(whole.size()) : -1);
                if (size > 0) {
                    EXPECT_EQ(buffer.Contents(), whole.substr(0, size - 1));
                }
            }
        }
    }
}

// Null text reads as empty in lengths, copies and comparisons and finds
// nothing; a null destination is refused.
TYPED_TEST(SysStringFamilyTest, NullTextAndLengthBounds)
{
    using Units = Family<TypeParam>;
    auto abc = Text<TypeParam>("abc");
    auto empty = Text<TypeParam>("");
    EXPECT_EQ(Units::Copy(nullptr, 10, abc.c_str()), -1);
    GuardedBuffer<TypeParam> buffer(4);
    EXPECT_EQ(Units::Copy(buffer.Data(), 4, nullptr), 0);
    EXPECT_TRUE(buffer.Contents().empty());
    EXPECT_EQ(Units::Compare(nullptr, empty.c_str()), 0);
    EXPECT_LT(Units::Compare(nullptr, abc.c_str()), 0);
    EXPECT_GT(Units::CompareFolded(abc.c_str(), nullptr), 0);
    EXPECT_EQ(Units::Find(nullptr, TypeParam{'a'}), nullptr);
    EXPECT_EQ(Units::FindText(nullptr, nullptr), nullptr);
    EXPECT_EQ(Units::Length(nullptr), 0u);
    EXPECT_EQ(Units::Length(abc.c_str()), 3u);
    EXPECT_EQ(Units::BoundedLength(abc.c_str(), 2), 2u);
    EXPECT_EQ(Units::BoundedLength(abc.c_str(), 100), 3u);
    EXPECT_EQ(Units::BoundedLength(abc.c_str(), 0), 0u);
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
    using Units = Family<TypeParam>;
    for (CompareCase const &test : kCompareCases) {
        SCOPED_TRACE(std::string(test.a) + " vs " + test.b);
        auto a = Text<TypeParam>(test.a);
        auto b = Text<TypeParam>(test.b);
        EXPECT_EQ(Sign(WholeOrCounted(test.count, Units::Compare, Units::CompareCounted, a.c_str(),
                                      b.c_str())),
                  test.exact);
        EXPECT_EQ(Sign(WholeOrCounted(test.count, Units::CompareFolded, Units::CompareFoldedCounted,
                                      a.c_str(), b.c_str())),
                  test.folded);
    }
}

struct SearchCase {
    char const *text;
    char const *needle;  // a single unit for Strchr and Strrchr
    int first;           // index found by Strstr (Strchr for one unit), -1: none
    int last;            // index found by Strrchr, -1: none
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
            return found == nullptr ? -1 : static_cast<int>(found - text.c_str());
        };
        EXPECT_EQ(index_of(Units::FindText(text.c_str(), needle.c_str())), test.first);
        if (needle.size() > 1)
            continue;
        // An empty needle stands for the nul, which both unit searches find.
        TypeParam unit = needle.empty() ? TypeParam{0} : needle[0];
        int first_unit = needle.empty() ? static_cast<int>(text.size()) : test.first;
        EXPECT_EQ(index_of(Units::Find(text.c_str(), unit)), first_unit);
        EXPECT_EQ(index_of(Units::FindLast(text.c_str(), unit)), test.last);
    }
}

// The standard library's to_chars text of `value` in `radix`.
template <typename Unit, typename Value>
std::basic_string<Unit> ToChars(Value value, int radix)
{
    char text[80];
    return Text<Unit>(std::string(text, std::to_chars(text, text + sizeof text, value, radix).ptr));
}

// Exactly enough room works and one unit less fails whole; so does a radix
// out of range.
TYPED_TEST(SysStringFamilyTest, IntegersBecomeTextInEveryRadix)
{
    for (int radix = 2; radix <= 36; ++radix) {
        for (LtInt64 value : {INT64_MIN, LtInt64{INT32_MIN}, LtInt64{-1}, LtInt64{0}, LtInt64{35},
                              LtInt64{36}, INT64_MAX}) {
            SCOPED_TRACE(std::to_string(value) + " radix " + std::to_string(radix));
            auto expected = ToChars<TypeParam>(value, radix);
            for (std::size_t size : {expected.size() + 1, expected.size()}) {
                bool fits = size > expected.size();
                GuardedBuffer<TypeParam> buffer(size);
                EXPECT_EQ(Family<TypeParam>::FromInt64(value, buffer.Data(), size, radix),
                          fits ? static_cast<int>(expected.size()) : -1);
                EXPECT_EQ(buffer.Contents(), fits ? expected : Text<TypeParam>(""));
                EXPECT_TRUE(buffer.GuardsIntact());
            }
        }
    }
    for (int radix : {-1, 0, 1, 37}) {
        GuardedBuffer<TypeParam> buffer(40);
        buffer.Data()[0] = TypeParam{'x'};
        EXPECT_EQ(Family<TypeParam>::FromInt64(7, buffer.Data(), 40, radix), -1);
        EXPECT_TRUE(buffer.Contents().empty());
    }
}

// `to_text` of `value` gives the standard library's to_chars text in
// `radix`, and `from_text` reads that text back to the value.
template <typename Value, typename ToText, typename FromText>
void ExpectRadixText(Value value, int radix, ToText to_text, FromText from_text)
{
    std::string expected = ToChars<char>(value, radix);
    char text[80];
    EXPECT_EQ(to_text(value, text, sizeof text, radix), static_cast<int>(expected.size()));
    EXPECT_EQ(text, expected);
    Value back = 0;
    EXPECT_TRUE(from_text(expected.c_str(), &back, radix, nullptr)) << expected;
    EXPECT_EQ(back, value);
}

// The four narrow integer forms, each way, in every radix, at and around the
// bounds of each type.
TEST(SysStringNumberTest, EveryRadixMatchesToCharsAndReadsBack)
{
    LtInt64 const signed_values[] = {
        INT64_MIN, INT64_MIN + 1, INT32_MIN - 1LL, INT32_MIN, -1, 0, 1, 35,
        36,        INT32_MAX,     INT64_MAX};
    LtNat64 const unsigned_values[] = {
        0, 1, 35, 36, 0xFFFFFFFEu, 0xFFFFFFFFu, 0x100000000, INT64_MAX + 1ULL, UINT64_MAX};
    for (int radix = 2; radix <= 36; ++radix) {
        SCOPED_TRACE(radix);
        for (LtInt64 value : signed_values) {
            ExpectRadixText(value, radix, &QzSysString::Int64ToStr, &QzSysString::StrToInt64);
            if (value >= INT32_MIN && value <= INT32_MAX)
                ExpectRadixText(static_cast<LtInt32>(value), radix, &QzSysString::Int32ToStr,
                                &QzSysString::StrToInt32);
        }
        for (LtNat64 value : unsigned_values) {
            ExpectRadixText(value, radix, &QzSysString::UInt64ToStr, &QzSysString::StrToUInt64);
            if (value <= UINT32_MAX)
                ExpectRadixText(static_cast<LtNat32>(value), radix, &QzSysString::UInt32ToStr,
                                &QzSysString::StrToUInt32);
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
        bool converted;  // by StrToUInt64; StrToUInt32 also needs the value to fit
        LtNat64 value64;
        LtNat32 value32;
    } const cases[] = {
        {"-0", true, 0, 0},
        {"-1", false, 0, 0},
        {"4294967295", true, UINT32_MAX, UINT32_MAX},
        {"4294967296", true, 0x100000000, UINT32_MAX},
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

TEST(SysStringMemoryTest, WideCopiesCountUnitsAndComparisonsAreUnsigned)
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

    EXPECT_GT(QzSysString::Memcmp("\x80", "\x7F", 1), 0);
    EXPECT_EQ(QzSysString::Memcmp("ab\0x", "ab\0y", 3), 0);
    EXPECT_LT(QzSysString::Memcmp("ab\0x", "ab\0y", 4), 0);
    LtWChar const high[] = {0x8000};
    LtWChar const low[] = {0x7FFF};
    EXPECT_GT(QzSysString::WideMemcmp(high, low, 1), 0);
    EXPECT_EQ(QzSysString::WideMemcmp(high, low, 0), 0);
}

TEST(SysStringTextTest, DuplicatesAreOwnedCopies)
{
    char const original[] = "duplicate me";
    char *copy = QzSysString::Strdup(original);
    EXPECT_NE(copy, original);
    EXPECT_STREQ(copy, original);
    QzSysString::FreeString(copy);
    LtWChar *wide = QzSysString::WideStrdup(u"wide \u00E9");
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

TEST(SysStringTextTest, ClassificationAndFoldingOfBothWidths)
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
    EXPECT_EQ(QzSysString::WideStricmp(u"\u00C9T\u00C9", u"\u00E9t\u00E9"), 0);
    EXPECT_EQ(QzSysString::WideStrnicmp(u"\u0391x", u"\u03B1y", 1), 0);
}

TEST(SysStringTextTest, WideFormattingAlias)
{
    LtWChar buffer[32];
    EXPECT_EQ(QzSysString::Wsprintf(buffer, 32, u"%d-%ls", 42, u"x"), 4);
    EXPECT_EQ(ToU16(buffer), u"42-x");
    EXPECT_EQ(QzSysString::Wsprintf(buffer, 3, u"%d", 12345), -1);
    EXPECT_EQ(ToU16(buffer), u"12");
}

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
            EXPECT_EQ(buffer.Contents(), expected);
        } else {
            EXPECT_EQ(result, -1);
            EXPECT_TRUE(size == 0 || buffer.Contents().empty());
        }
    }
}

TEST(SysStringConversionTest, AsciiAtEverySizeAndOnlyAscii)
{
    ExpectConversionAtEverySize("ASCII~\x7F", std::u16string(u"ASCII~\x7F"),
                                &QzSysString::AsciiToWideChar);
    ExpectConversionAtEverySize(u"ASCII~\x7F", std::string("ASCII~\x7F"),
                                &QzSysString::WideCharToAscii);
    ExpectConversionAtEverySize("", std::u16string(), &QzSysString::AsciiToWideChar);

    // Units above 0x7F fail whole.
    GuardedBuffer<LtWChar> wide(8);
    EXPECT_EQ(QzSysString::AsciiToWideChar("ab\x80", wide.Data(), 8), -1);
    EXPECT_TRUE(wide.Contents().empty());
    EXPECT_EQ(QzSysString::AsciiToWideChar("ab\x80", nullptr, 0), -1);
    GuardedBuffer<char> narrow(8);
    EXPECT_EQ(QzSysString::WideCharToAscii(u"ab\u0080", narrow.Data(), 8), -1);
    EXPECT_TRUE(narrow.Contents().empty());
    EXPECT_EQ(QzSysString::AsciiToWideChar(nullptr, wide.Data(), 8), -1);
}

// The C-string forms of the code page (the process's "C" locale, whose code
// page is UTF-8); its strictness and the four-argument forms' counting are
// covered with the formatting engine's tests.
TEST(SysStringConversionTest, MultiByteAtEverySize)
{
    // "é€😀": 2 + 3 + 4 bytes, 1 + 1 + 2 units.
    char const utf8[] = "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    std::u16string const utf16 = u"\u00E9\u20AC\U0001F600";
    ExpectConversionAtEverySize(utf8, utf16, [](char const *s, LtWChar *d, std::size_t n) {
        return QzSysString::MultiByteToWideChar(s, d, n);
    });
    ExpectConversionAtEverySize(utf16.c_str(), std::string(utf8),
                                [](LtWChar const *s, char *d, std::size_t n) {
                                    return QzSysString::WideCharToMultiByte(s, d, n);
                                });
    LtWChar wide[8];
    EXPECT_EQ(QzSysString::MultiByteToWideChar("a\xC3", wide, 8), -1);
    EXPECT_EQ(QzSysString::MultiByteToWideChar("\xED\xA0\x80", nullptr, 0), -1);
    LtWChar const lone[] = {u'a', 0xD800, u'b', 0};
    char narrow[8];
    EXPECT_EQ(QzSysString::WideCharToMultiByte(lone, narrow, sizeof narrow), 3);
    EXPECT_STREQ(narrow, "a?b");
}

}  // namespace
