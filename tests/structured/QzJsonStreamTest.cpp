// QzJsonStreamTest.cpp: the JSON write and read streams and CopyJson: the
// text written for each call sequence, number texts and round trips, the
// cursor rules of reading, the sticky error, and the decimal point under a
// locale with a decimal comma. Expected texts are hand-written; number texts
// are glibc's "%.17g".
#include "qzutil/structured/QzJsonStream.h"

#include <locale.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "qzutil/memory/QzMemory.h"
#include "qzutil/structured/QzJsonReadStream.h"
#include "qzutil/structured/QzJsonWriteStream.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideStringBuffer.h"

#include "support/QzTestSupport.h"

// Brings the component up for each test and checks that every block taken
// from QzMemory (property names, read strings) went back.
class QzJsonStreamTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QzJsonStream::Initialise();
        m_bytes_at_start = QzMemory::GetDirectMemoryAllocated();
    }

    void TearDown() override
    {
        EXPECT_EQ(QzMemory::GetDirectMemoryAllocated(), m_bytes_at_start) << "blocks leaked";
        QzJsonStream::Terminate();
    }

private:
    LtNat64 m_bytes_at_start = 0;
};

static std::string TextOf(QzStringBuffer const &buffer)
{
    return buffer.GetString() != nullptr ? std::string(buffer.GetString()) : std::string();
}

// What WriteText gives when EndWrite refuses.
constexpr char const *kRefused = "<refused>";

// Runs `calls` between BeginWrite and EndWrite and gives the text, or
// kRefused after checking what a refusal leaves: `out` emptied, the data
// cleared, and an error that the next BeginWrite clears.
template <typename Calls>
static std::string WriteText(Calls calls, bool formatted = false)
{
    QzJsonStreamData data;
    QzJsonWriteStream writer(&data);
    writer.BeginWrite();
    calls(&writer);
    int const open_containers = data.GetActiveObjectCount() + data.GetActiveArrayCount();
    QzStringBuffer out("stale");
    bool const written = writer.EndWrite(formatted, &out);
    EXPECT_EQ(data.GetRoot(), nullptr) << "EndWrite clears the data";
    if (written) {
        EXPECT_EQ(open_containers, 0);
        return TextOf(out);
    }
    EXPECT_TRUE(out.IsEmpty());
    writer.BeginWrite();
    EXPECT_FALSE(writer.IsError()) << "BeginWrite clears the error";
    return kRefused;
}

TEST_F(QzJsonStreamTest, ComponentCountsAndAnswersBool)
{
    EXPECT_TRUE(QzJsonStream::IsInitialised());
    QzJsonStream::Initialise();
    QzJsonStream::Terminate();
    EXPECT_TRUE(QzJsonStream::IsInitialised());
}

struct WriteCase {
    char const *name;
    bool formatted;
    void (*calls)(QzJsonWriteStream *writer);
    char const *text;  // kRefused: a caller's mistake, the error is set
};

const WriteCase kWrites[] = {
    {"every_kind_in_call_order", false,
     [](QzJsonWriteStream *w) {
         w->BeginObject();
         w->WritePropertyName("name");
         w->WriteString("box");
         w->WritePropertyName("count");
         w->WriteInteger(-3);
         w->WritePropertyName("on");
         w->WriteBoolean(true);
         w->WritePropertyName("none");
         w->WriteString(nullptr);
         w->WritePropertyName("point");
         double const point[3] = {1.0, 2.5, -3.0};
         w->Write(point);
         w->WritePropertyName("inner");
         w->BeginObject();
         w->WritePropertyName("empty");
         w->BeginArray();
         w->EndArray();
         w->EndObject();
         w->EndObject();
     },
     "{\"name\":\"box\",\"count\":-3,\"on\":true,\"none\":\"\",\"point\":[1,2.5,-3],"
     "\"inner\":{\"empty\":[]}}"},
    {"formatted_with_tabs", true,
     [](QzJsonWriteStream *w) {
         w->BeginObject();
         w->WritePropertyName("a");
         w->BeginArray();
         w->WriteInteger(1);
         w->WriteInteger(2);
         w->EndArray();
         w->EndObject();
     },
     "{\n\t\"a\":\t[1, 2]\n}"},
    // 2^53 + 1 has no double: as a number it goes out as 2^53, as a string
    // exactly; the ends of both 64-bit ranges survive as strings.
    {"sixty_four_bit_values", false,
     [](QzJsonWriteStream *w) {
         w->BeginArray();
         w->WriteNat64AsNumber((LtNat64{1} << 53) + 1);
         w->WriteNat64AsString((LtNat64{1} << 53) + 1);
         w->WriteNat64AsString(std::numeric_limits<LtNat64>::max());
         w->WriteInt64AsString(std::numeric_limits<LtInt64>::min());
         w->WriteInt64AsNumber(-5);
         w->EndArray();
     },
     "[9007199254740992,\"9007199254740993\",\"18446744073709551615\",\"-9223372036854775808\","
     "-5]"},
    // UTF-16 goes out as UTF-8, non-ASCII unescaped and controls as \u.
    {"wide_text_as_utf8", false,
     [](QzJsonWriteStream *w) {
         w->BeginArray();
         w->WriteWideString(u"\u00E9\u20AC\U0001F600");
         w->WriteString("a\nb\x01\"");
         w->EndArray();
     },
     "[\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\",\"a\\nb\\u0001\\\"\"]"},
    {"value_in_object_without_name", false,
     [](QzJsonWriteStream *w) {
         w->BeginObject();
         w->WriteInteger(1);
         w->EndObject();
     },
     kRefused},
    {"end_object_closes_an_array", false,
     [](QzJsonWriteStream *w) {
         w->BeginArray();
         w->EndObject();
     },
     kRefused},
    {"end_without_begin", false, [](QzJsonWriteStream *w) { w->EndArray(); }, kRefused},
    {"second_document", false,
     [](QzJsonWriteStream *w) {
         w->BeginArray();
         w->EndArray();
         w->BeginObject();
         w->EndObject();
     },
     kRefused},
    {"container_left_open", false, [](QzJsonWriteStream *w) { w->BeginArray(); }, kRefused},
    {"no_document", false, [](QzJsonWriteStream *w) { w->WriteInteger(3); }, kRefused},
    {"error_set_by_caller", false,
     [](QzJsonWriteStream *w) {
         w->BeginArray();
         w->SetError(true);
         w->EndArray();
     },
     kRefused},
};

TEST_F(QzJsonStreamTest, EachCallSequenceWritesItsTextOrIsRefused)
{
    for (WriteCase const &c : kWrites) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(WriteText(c.calls, c.formatted), c.text);
    }
}

// One number written alone in an array.
static std::string WriteNumber(double value)
{
    return WriteText([value](QzJsonWriteStream *w) {
        w->BeginArray();
        w->WriteDouble(value);
        w->EndArray();
    });
}

struct NumberTextCase {
    char const *name;
    double value;
    char const *text;
};

// Every number is "%.17g" of its double, integral or not (texts from glibc).
const NumberTextCase kNumberTexts[] = {
    {"one_tenth", 0.1, "0.10000000000000001"},
    {"one_third", 1.0 / 3.0, "0.33333333333333331"},
    {"one_and_a_half", 1.5, "1.5"},
    {"integral", 100.0, "100"},
    {"int_max", 2147483647.0, "2147483647"},
    {"short_fraction", 123456.789, "123456.789"},
    {"ten_to_23", 1e23, "9.9999999999999992e+22"},
    {"largest", std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
    {"smallest_normal_negative", -2.2250738585072014e-308, "-2.2250738585072014e-308"},
    {"smallest_subnormal", 5e-324, "4.9406564584124654e-324"},
    {"negative_zero", -0.0, "-0"},
    {"nan", std::nan(""), "null"},
    {"infinity", std::numeric_limits<double>::infinity(), "null"},
};

// Each finite double also reads back bit for bit.
TEST_F(QzJsonStreamTest, NumbersPrintWithSeventeenDigitsAndReadBackIdentically)
{
    for (NumberTextCase const &c : kNumberTexts) {
        SCOPED_TRACE(c.name);
        std::string const text = WriteNumber(c.value);
        EXPECT_EQ(text, std::string("[") + c.text + "]");
        if (!std::isfinite(c.value))
            continue;
        QzJsonStreamData data;
        QzJsonReadStream reader(&data);
        ASSERT_TRUE(reader.BeginRead(text.c_str()));
        EXPECT_EQ(reader.BeginArray(), 1);
        double const read = reader.ReadDouble();
        EXPECT_EQ(std::memcmp(&read, &c.value, sizeof read), 0) << read;
        EXPECT_TRUE(reader.EndRead());
    }
}

TEST_F(QzJsonStreamTest, SixtyFourBitValuesReadExactOnlyFromStrings)
{
    QzJsonStreamData data;
    QzJsonReadStream reader(&data);
    ASSERT_TRUE(
        reader.BeginRead("[9007199254740993, \"9007199254740993\", \"18446744073709551615\","
                         "\"-9223372036854775808\", -5, 3.9, -5, 1e30, -3.9, -1e30, 1e30]"));
    EXPECT_EQ(reader.BeginArray(), 11);
    EXPECT_EQ(reader.ReadNat64AsNumber(), LtNat64{1} << 53);
    EXPECT_EQ(reader.ReadNat64AsString(), (LtNat64{1} << 53) + 1);
    EXPECT_EQ(reader.ReadNat64AsString(), std::numeric_limits<LtNat64>::max());
    EXPECT_EQ(reader.ReadInt64AsString(), std::numeric_limits<LtInt64>::min());
    EXPECT_EQ(reader.ReadInt64AsNumber(), -5);
    // Numbers truncate toward zero and clamp to the type.
    EXPECT_EQ(reader.ReadNat64AsNumber(), 3u);
    EXPECT_EQ(reader.ReadNat64AsNumber(), 0u);
    EXPECT_EQ(reader.ReadNat64AsNumber(), std::numeric_limits<LtNat64>::max());
    EXPECT_EQ(reader.ReadInt64AsNumber(), -3);
    EXPECT_EQ(reader.ReadInt64AsNumber(), std::numeric_limits<LtInt64>::min());
    EXPECT_EQ(reader.ReadInt64AsNumber(), std::numeric_limits<LtInt64>::max());
    EXPECT_TRUE(reader.EndArray());
    EXPECT_TRUE(reader.EndRead());
}

// Only a plain run of digits (with '-' when signed) within the type reads.
TEST_F(QzJsonStreamTest, SixtyFourBitStringsMustBeWholeDecimals)
{
    struct Row {
        char const *name;
        char const *text;
        bool is_signed;
        bool is_good;
    } const rows[] = {
        {"nat_zero", "0", false, true},
        {"nat_empty", "", false, false},
        {"nat_minus", "-1", false, false},
        {"nat_plus", "+1", false, false},
        {"nat_leading_blank", " 1", false, false},
        {"nat_trailing_letter", "1x", false, false},
        {"nat_over_max", "18446744073709551616", false, false},
        {"int_max", "9223372036854775807", true, true},
        {"int_over_max", "9223372036854775808", true, false},
        {"int_under_min", "-9223372036854775809", true, false},
        {"int_lone_minus", "-", true, false},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        std::string const text = std::string("[\"") + row.text + "\"]";
        QzJsonStreamData data;
        QzJsonReadStream reader(&data);
        ASSERT_TRUE(reader.BeginRead(text.c_str()));
        reader.BeginArray();
        if (row.is_signed)
            (void)reader.ReadInt64AsString();  // values: the test above
        else
            (void)reader.ReadNat64AsString();
        EXPECT_EQ(reader.IsError(), !row.is_good);
    }
}

// Only an object or an array is a document, with nothing but blanks after.
TEST_F(QzJsonStreamTest, BeginReadTakesOnlyObjectsAndArrays)
{
    struct Row {
        char const *name;
        char const *text;
        bool is_read;
    } const rows[] = {
        {"object", "{}", true},
        {"array_with_blanks", " \n[1] \t", true},
        {"bare_number", "42", false},
        {"bare_string", "\"text\"", false},
        {"bare_true", "true", false},
        {"bare_null", "null", false},
        {"empty", "", false},
        {"null_text", nullptr, false},
        {"unclosed", "{\"a\":1", false},
        {"trailing_comma", "[1,]", false},
        {"text_after", "{} x", false},
        {"single_quotes", "{'a':1}", false},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        QzJsonStreamData data;
        QzJsonReadStream reader(&data);
        EXPECT_EQ(reader.BeginRead(row.text), row.is_read);
        EXPECT_EQ(reader.IsError(), !row.is_read);
        EXPECT_EQ(reader.EndRead(), row.is_read);
    }
}

// An absent property is no error, so optional ones read naturally; a value
// read after the miss has no name and is an error.
TEST_F(QzJsonStreamTest, AbsentPropertyIsOptionalButItsValueIsAnError)
{
    QzJsonStreamData data;
    QzJsonReadStream reader(&data);
    ASSERT_TRUE(reader.BeginRead("{\"Width\":4,\"Label\":\"x\"}"));
    ASSERT_TRUE(reader.BeginObject());
    int height = 7;  // the default stays when the property is absent
    if (reader.ReadPropertyName("Height"))
        height = reader.ReadInteger();
    EXPECT_EQ(height, 7);
    EXPECT_FALSE(reader.IsError());
    EXPECT_TRUE(reader.ReadPropertyName("width")) << "names compare without case";
    EXPECT_EQ(reader.ReadInteger(), 4);
    EXPECT_TRUE(reader.ReadPropertyName("LABEL"));
    QzStringBuffer label;
    EXPECT_TRUE(reader.ReadString(&label));
    EXPECT_EQ(TextOf(label), "x");

    EXPECT_FALSE(reader.ReadPropertyName("Depth"));
    EXPECT_EQ(reader.ReadInteger(), 0);
    EXPECT_TRUE(reader.IsError());
    EXPECT_FALSE(reader.EndRead());
}

// One read of each kind; true when what it gave is the "nothing" of its
// kind (0, false, empty).
struct ReadKind {
    char const *name;
    char const *fits;  // the one-letter kinds of value it takes, see kValueKinds
    bool (*gives_nothing)(QzJsonReadStream *reader);
};

// The elements of kKindsDocument: string, number, boolean, null, object, array.
constexpr char const *kKindsDocument = "[\"12\", 7, true, null, {}, []]";
constexpr char kValueKinds[] = "snbzoa";

const ReadKind kReadKinds[] = {
    {"integer", "n", [](QzJsonReadStream *r) { return r->ReadInteger() == 0; }},
    {"double", "n", [](QzJsonReadStream *r) { return r->ReadDouble() == 0.0; }},
    {"boolean", "b", [](QzJsonReadStream *r) { return !r->ReadBoolean(); }},
    {"string", "s",
     [](QzJsonReadStream *r) {
         QzStringBuffer text("stale");
         return !r->ReadString(&text) && text.IsEmpty();
     }},
    {"wide_string", "s",
     [](QzJsonReadStream *r) {
         QzWideStringBuffer text(u"stale");
         return !r->ReadWideString(&text) && text.IsEmpty();
     }},
    {"nat64_string", "s", [](QzJsonReadStream *r) { return r->ReadNat64AsString() == 0; }},
    {"int64_number", "n", [](QzJsonReadStream *r) { return r->ReadInt64AsNumber() == 0; }},
    {"object", "o", [](QzJsonReadStream *r) { return !r->BeginObject(); }},
    {"array", "a", [](QzJsonReadStream *r) { return r->BeginArray() == 0; }},
};

// Every read against every kind of value it does not take: the error is set,
// the result is nothing, and the stream stays frozen (the next element, which
// would read well, gives nothing too).
TEST_F(QzJsonStreamTest, WrongTypeSetsTheErrorAndLaterReadsGiveNothing)
{
    for (ReadKind const &kind : kReadKinds) {
        for (int element = 0; element < 6; ++element) {
            if (std::strchr(kind.fits, kValueKinds[element]) != nullptr)
                continue;
            SCOPED_TRACE(std::string(kind.name) + " of element " + std::to_string(element));
            QzJsonStreamData data;
            QzJsonReadStream reader(&data);
            ASSERT_TRUE(reader.BeginRead(kKindsDocument));
            ASSERT_EQ(reader.BeginArray(), 6);
            for (int i = 0; i < element; ++i)
                ASSERT_TRUE(reader.SkipArrayItem());
            EXPECT_TRUE(kind.gives_nothing(&reader));
            EXPECT_TRUE(reader.IsError());
            EXPECT_FALSE(reader.SkipArrayItem());
            EXPECT_EQ(data.CurrentArrayIndex(), element + 1) << "no step after the error";
            EXPECT_FALSE(reader.EndRead());
        }
    }
}

// Counts, the expected count, and the calls that do not fit the open
// container: each sets the error.
TEST_F(QzJsonStreamTest, ArrayCountsEndsAndMisplacedCalls)
{
    QzJsonStreamData data;
    QzJsonReadStream reader(&data);
    ASSERT_TRUE(reader.BeginRead("[[], [1, 2], [3]]"));
    EXPECT_EQ(reader.BeginArray(), 3);
    EXPECT_EQ(reader.BeginArray(), 0);
    EXPECT_TRUE(reader.EndArray());
    EXPECT_TRUE(reader.BeginArray(2));
    EXPECT_EQ(reader.ReadInteger(), 1);
    EXPECT_EQ(reader.ReadInteger(), 2);
    EXPECT_EQ(reader.ReadInteger(), 0) << "past the end";
    EXPECT_TRUE(reader.IsError());

    ASSERT_TRUE(reader.BeginRead("[[3]]"));
    EXPECT_EQ(reader.BeginArray(), 1);
    EXPECT_FALSE(reader.BeginArray(2)) << "a count other than expected";
    EXPECT_TRUE(reader.IsError());

    ASSERT_TRUE(reader.BeginRead("[1]"));
    EXPECT_EQ(reader.BeginArray(), 1);
    EXPECT_FALSE(reader.EndObject()) << "an array is open, not an object";
    EXPECT_FALSE(reader.EndRead());

    ASSERT_TRUE(reader.BeginRead("[{\"a\":1}]"));
    EXPECT_FALSE(reader.ReadPropertyName("a")) << "no container open yet";
    EXPECT_TRUE(reader.IsError());

    ASSERT_TRUE(reader.BeginRead("{\"list\":[1]}"));
    ASSERT_TRUE(reader.BeginObject());
    EXPECT_FALSE(reader.SkipArrayItem()) << "an object is open";
    EXPECT_TRUE(reader.IsError());
}

// SkipArrayItem steps over any value, but not past the end.
TEST_F(QzJsonStreamTest, SkipArrayItemStepsOverAnyValueButNotPastTheEnd)
{
    QzJsonStreamData data;
    QzJsonReadStream reader(&data);
    ASSERT_TRUE(reader.BeginRead("[{\"deep\":[1]}, \"b\", 7]"));
    EXPECT_EQ(reader.BeginArray(), 3);
    EXPECT_TRUE(reader.SkipArrayItem());
    EXPECT_TRUE(reader.SkipArrayItem());
    EXPECT_EQ(data.CurrentArrayIndex(), 2);
    EXPECT_EQ(reader.ReadInteger(), 7);
    EXPECT_FALSE(reader.SkipArrayItem()) << "past the end";
    EXPECT_FALSE(reader.EndRead());
}

// PeekTVObject looks without taking: the same object can be read after it,
// in an array and under a pending property name alike.
TEST_F(QzJsonStreamTest, PeekTVObjectLeavesThePositionAlone)
{
    QzJsonStreamData data;
    QzJsonReadStream reader(&data);
    ASSERT_TRUE(reader.BeginRead("[{\"Type\":\"Box\",\"Version\":3,\"Size\":2},{\"Version\":1},"
                                 "5,{\"Item\":{\"type\":\"Cone\",\"version\":2}}]"));
    EXPECT_EQ(reader.BeginArray(), 4);

    QzStringBuffer type;
    int version = -1;
    EXPECT_TRUE(reader.PeekTVObject(&type, &version));
    EXPECT_EQ(TextOf(type), "Box");
    EXPECT_EQ(version, 3);
    ASSERT_TRUE(reader.BeginObject());
    EXPECT_TRUE(reader.ReadPropertyName("Size"));
    EXPECT_EQ(reader.ReadInteger(), 2);
    EXPECT_TRUE(reader.EndObject());

    type.SetString("stale");
    EXPECT_FALSE(reader.PeekTVObject(&type, &version)) << "no Type";
    EXPECT_EQ(TextOf(type), "");
    EXPECT_EQ(version, 0);
    EXPECT_FALSE(reader.IsError());
    EXPECT_TRUE(reader.SkipArrayItem());

    EXPECT_FALSE(reader.PeekTVObject(&type, &version)) << "not an object";
    EXPECT_FALSE(reader.IsError());
    EXPECT_EQ(reader.ReadInteger(), 5);

    ASSERT_TRUE(reader.BeginObject());
    EXPECT_TRUE(reader.ReadPropertyName("Item"));
    EXPECT_TRUE(reader.PeekTVObject(&type, &version));
    EXPECT_EQ(TextOf(type), "Cone");
    EXPECT_EQ(version, 2);
    EXPECT_TRUE(reader.BeginObject()) << "the name still selects Item";
    EXPECT_TRUE(reader.EndObject());
    EXPECT_TRUE(reader.EndObject());
    EXPECT_EQ(data.GetActiveObjectCount(), 0);
    EXPECT_TRUE(reader.EndArray());
    EXPECT_TRUE(reader.EndRead());
}

// \u escapes with a surrogate pair come back as the same units; bytes that
// are no UTF-8 are an error.
TEST_F(QzJsonStreamTest, WideTextReadsFromUtf8AndEscapes)
{
    QzJsonStreamData data;
    QzJsonReadStream reader(&data);
    ASSERT_TRUE(reader.BeginRead("[\"\\u00e9\\u20AC\\ud83d\\ude00\", \"\xC3\xA9\", \"\xFF\"]"));
    EXPECT_EQ(reader.BeginArray(), 3);
    QzWideStringBuffer wide;
    EXPECT_TRUE(reader.ReadWideString(&wide));
    EXPECT_EQ(ToU16(wide.GetString()), u"\u00E9\u20AC\U0001F600");
    EXPECT_TRUE(reader.ReadWideString(&wide));
    EXPECT_EQ(ToU16(wide.GetString()), u"\u00E9");
    EXPECT_FALSE(reader.ReadWideString(&wide)) << "0xFF is no UTF-8";
    EXPECT_TRUE(wide.IsEmpty());
    EXPECT_FALSE(reader.EndRead());
}

TEST_F(QzJsonStreamTest, DeepNestingRoundTrips)
{
    constexpr int kDepth = 200;
    std::string const text = WriteText([](QzJsonWriteStream *w) {
        for (int i = 0; i < kDepth; ++i)
            w->BeginArray();
        w->WriteInteger(kDepth);
        for (int i = 0; i < kDepth; ++i)
            w->EndArray();
    });
    EXPECT_EQ(text, std::string(kDepth, '[') + "200" + std::string(kDepth, ']'));

    QzJsonStreamData data;
    QzJsonReadStream reader(&data);
    ASSERT_TRUE(reader.BeginRead(text.c_str()));
    for (int i = 0; i < kDepth; ++i)
        ASSERT_EQ(reader.BeginArray(), 1) << "depth " << i;
    EXPECT_EQ(data.StackSize(), kDepth);
    EXPECT_EQ(reader.ReadInteger(), kDepth);
    for (int i = 0; i < kDepth; ++i)
        reader.EndArray();
    EXPECT_TRUE(reader.EndRead());
}

TEST_F(QzJsonStreamTest, CopyJsonReprintsWithFullDigits)
{
    QzStringBuffer out;
    EXPECT_TRUE(
        QzJsonStream::CopyJson(" { \"a\" : [ 0.1 , 1E2 ], \"b\":\"\\u0041\" } ", false, &out));
    EXPECT_EQ(TextOf(out), "{\"a\":[0.10000000000000001,100],\"b\":\"A\"}");
    EXPECT_TRUE(QzJsonStream::CopyJson("{\"a\":[0.5]}", true, &out));
    EXPECT_EQ(TextOf(out), "{\n\t\"a\":\t[0.5]\n}");
    EXPECT_TRUE(QzJsonStream::CopyJson("-7", false, &out)) << "any value copies";
    EXPECT_EQ(TextOf(out), "-7");
    EXPECT_FALSE(QzJsonStream::CopyJson("{\"a\":", false, &out));
    EXPECT_TRUE(out.IsEmpty());
}

// Switches the calling thread to a locale for the scope; IsMade() is false
// when the system does not have it.
class QzScopedThreadLocale {
public:
    explicit QzScopedThreadLocale(char const *name)
        : m_locale(newlocale(LC_ALL_MASK, name, static_cast<locale_t>(nullptr))),
          m_previous(m_locale != nullptr ? uselocale(m_locale) : nullptr)
    {}
    ~QzScopedThreadLocale()
    {
        if (m_locale == nullptr)
            return;
        uselocale(m_previous);
        freelocale(m_locale);
    }
    QzScopedThreadLocale(QzScopedThreadLocale const &) = delete;
    QzScopedThreadLocale &operator=(QzScopedThreadLocale const &) = delete;
    bool IsMade() const { return m_locale != nullptr; }

private:
    locale_t m_locale;
    locale_t m_previous;
};

// Under a decimal comma (de_DE, which scripts/setup.sh compiles) numbers are
// still written and read with a point, and the caller's locale is kept.
TEST_F(QzJsonStreamTest, DecimalCommaLocaleKeepsThePoint)
{
    QzScopedThreadLocale german("de_DE.UTF-8");
    if (!german.IsMade())
        GTEST_SKIP() << "the de_DE.UTF-8 locale is not installed";
    char probe[16];
    std::snprintf(probe, sizeof probe, "%.1f", 0.5);
    ASSERT_STREQ(probe, "0,5") << "the locale has a decimal comma";

    EXPECT_EQ(WriteNumber(1.0 / 3.0), "[0.33333333333333331]");
    QzStringBuffer out;
    EXPECT_TRUE(QzJsonStream::CopyJson("[2.25]", false, &out));
    EXPECT_EQ(TextOf(out), "[2.25]");

    QzJsonStreamData data;
    QzJsonReadStream reader(&data);
    ASSERT_TRUE(reader.BeginRead("[0.25, 1e-3]"));
    EXPECT_EQ(reader.BeginArray(), 2);
    EXPECT_EQ(reader.ReadDouble(), 0.25);
    EXPECT_EQ(reader.ReadDouble(), 1e-3);
    EXPECT_TRUE(reader.EndRead());

    std::snprintf(probe, sizeof probe, "%.1f", 0.5);
    EXPECT_STREQ(probe, "0,5") << "the thread's locale is back";
}
