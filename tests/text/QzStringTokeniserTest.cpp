// QzStringTokeniserTest.cpp: QzStringTokeniser and QzWideStringTokeniser:
// token splitting with and without empty tokens, quotes, custom separators,
// the single-character queries, and the component.

#include "qzutil/text/QzStringTokeniser.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/text/QzWideStringTokeniser.h"

#include "text/QzTextTestFixture.h"

template <typename Unit>
struct QzTokeniserOf;
template <>
struct QzTokeniserOf<char> {
    using Type = QzStringTokeniser;
};
template <>
struct QzTokeniserOf<LtWChar> {
    using Type = QzWideStringTokeniser;
};

template <typename Unit>
using QzTokeniserWidthTest = QzTextWidthTest<Unit>;
TYPED_TEST_SUITE(QzTokeniserWidthTest, QzTextUnits, QzTextWidthName);

// Every token NextToken gives while MoreTokens says there is one, as UTF-8;
// stops at 50 so that a tokeniser that never ends fails instead of hanging.
template <typename Tokeniser>
static std::vector<std::string> AllTokens(Tokeniser *tokeniser)
{
    std::vector<std::string> tokens;
    while (tokeniser->MoreTokens() && tokens.size() < 50)
        tokens.push_back(Bytes(tokeniser->NextToken().GetString()));
    return tokens;
}

struct TokenCase {
    char const *name;
    char const *text;
    char const *separators;  // null: the default set
    int empty_tokens;
    int honour_quotes;
    char const *quotes;  // null: the default set
    std::vector<std::string> tokens;
};

const TokenCase kTokenCases[] = {
    {"empty_text", "", nullptr, 0, 1, nullptr, {}},
    {"empty_text_with_empty_tokens", "", nullptr, 1, 1, nullptr, {""}},
    {"null_text", nullptr, nullptr, 0, 1, nullptr, {}},
    {"null_text_with_empty_tokens", nullptr, nullptr, 1, 1, nullptr, {""}},
    {"only_blanks", " \t\r\n ", nullptr, 0, 1, nullptr, {}},
    {"default_blanks", " a\tbc\r\nd  ", nullptr, 0, 1, nullptr, {"a", "bc", "d"}},
    {"comma_is_no_default_separator", "a,b c", nullptr, 0, 1, nullptr, {"a,b", "c"}},
    {"custom_separators", "a,b;;c", ",;", 0, 1, nullptr, {"a", "b", "c"}},
    {"custom_separators_blank_kept", "a b,c", ",", 0, 1, nullptr, {"a b", "c"}},
    {"empty_tokens_between", "a,b;;c", ",;", 1, 1, nullptr, {"a", "b", "", "c"}},
    {"empty_tokens_at_ends", ",a,", ",", 1, 1, nullptr, {"", "a", ""}},
    {"only_separators_empty_tokens", ",,", ",", 1, 1, nullptr, {"", "", ""}},
    {"one_token_no_separator", "word", ",", 1, 1, nullptr, {"word"}},
    {"double_quotes", "say \"hi you\" x", nullptr, 0, 1, nullptr, {"say", "\"hi you\"", "x"}},
    {"single_and_back_quotes", "'a b' `c d`", nullptr, 0, 1, nullptr, {"'a b'", "`c d`"}},
    {"other_quote_does_not_close", "\"it's ok\" x", nullptr, 0, 1, nullptr, {"\"it's ok\"", "x"}},
    {"quote_inside_token", "ab'c d'e f", nullptr, 0, 1, nullptr, {"ab'c d'e", "f"}},
    {"unclosed_quote_runs_to_end", "x 'a b", nullptr, 0, 1, nullptr, {"x", "'a b"}},
    {"quotes_not_honoured", "\"a b\"", nullptr, 0, 0, nullptr, {"\"a", "b\""}},
    {"custom_quotes", "|a b| 'c d'", nullptr, 0, 1, "|", {"|a b|", "'c", "d'"}},
    {"quoted_custom_separator", "a,'b,c',d", ",", 1, 1, nullptr, {"a", "'b,c'", "d"}},
};

TYPED_TEST(QzTokeniserWidthTest, SplitsLikeTheTable)
{
    using Tokeniser = typename QzTokeniserOf<TypeParam>::Type;
    for (TokenCase const &c : kTokenCases) {
        SCOPED_TRACE(c.name);
        Tokeniser tokeniser(QzAscii<TypeParam>(c.text), QzAscii<TypeParam>(c.separators),
                            c.empty_tokens, c.honour_quotes, QzAscii<TypeParam>(c.quotes));
        EXPECT_EQ(AllTokens(&tokeniser), c.tokens);
        // Past the end there is nothing more, and asking again gives empty text.
        EXPECT_EQ(tokeniser.MoreTokens(), 0);
        auto after = tokeniser.NextToken();
        EXPECT_FALSE(after.IsNull());
        EXPECT_TRUE(after.IsEmpty());
    }
}

// The shorter constructors take the default separators and quotes, empty
// tokens off and quotes honoured.
TYPED_TEST(QzTokeniserWidthTest, ShortConstructorsTakeTheDefaults)
{
    using Tokeniser = typename QzTokeniserOf<TypeParam>::Type;
    Tokeniser one(QzAscii<TypeParam>(" a\t'b c'\r\n\nd "));
    EXPECT_EQ(AllTokens(&one), (std::vector<std::string>{"a", "'b c'", "d"}));

    Tokeniser two(QzAscii<TypeParam>(",a,,\"b,c\" d,"), QzAscii<TypeParam>(","));
    EXPECT_EQ(AllTokens(&two), (std::vector<std::string>{"a", "\"b,c\" d"}));
}

// A token taken by hand between MoreTokens checks: trailing separators leave
// no further token when empty tokens are off.
TYPED_TEST(QzTokeniserWidthTest, TrailingSeparatorsLeaveNoToken)
{
    using Tokeniser = typename QzTokeniserOf<TypeParam>::Type;
    Tokeniser tokeniser(QzAscii<TypeParam>("a \t "));
    EXPECT_EQ(tokeniser.MoreTokens(), 1);
    EXPECT_EQ(Bytes(tokeniser.NextToken().GetString()), "a");
    EXPECT_EQ(tokeniser.MoreTokens(), 0);
}

// "a 'b c'": index 1 is a blank outside quotes; the end and beyond end a
// token; quotes are found whether or not they are honoured.
TYPED_TEST(QzTokeniserWidthTest, IsTokenAndIsQuoteLookAtOneCharacter)
{
    using Tokeniser = typename QzTokeniserOf<TypeParam>::Type;
    Tokeniser tokeniser(QzAscii<TypeParam>("a 'b c'"));
    EXPECT_EQ(tokeniser.IsToken(0), 0);
    EXPECT_EQ(tokeniser.IsToken(1), 1);
    EXPECT_EQ(tokeniser.IsToken(2), 0);
    EXPECT_EQ(tokeniser.IsToken(7), 1);
    EXPECT_EQ(tokeniser.IsToken(100), 1);
    EXPECT_EQ(tokeniser.IsToken(-1), 0);
    EXPECT_EQ(tokeniser.IsQuote(2), 1);
    EXPECT_EQ(tokeniser.IsQuote(6), 1);
    EXPECT_EQ(tokeniser.IsQuote(0), 0);
    EXPECT_EQ(tokeniser.IsQuote(7), 0);
    EXPECT_EQ(tokeniser.IsQuote(-1), 0);

    Tokeniser plain(QzAscii<TypeParam>("'x'"), QzAscii<TypeParam>(" "), 0, 0, nullptr);
    EXPECT_EQ(plain.IsQuote(0), 1);
}

TEST(QzStringTokeniserTest, DefaultSetsAreWhiteSpaceAndThreeQuotes)
{
    EXPECT_EQ(std::string(QzStringTokeniser::kDefaultSeparators), " \t\r\n");
    EXPECT_EQ(std::string(QzStringTokeniser::kDefaultQuotes), "\"'`");
    EXPECT_EQ(std::u16string(QzWideStringTokeniser::kDefaultSeparators), u" \t\r\n");
    EXPECT_EQ(std::u16string(QzWideStringTokeniser::kDefaultQuotes), u"\"'`");
}

using QzWideStringTokeniserTest = QzTextTest;

// Separators and quotes beyond ASCII, and a surrogate pair inside a token,
// which no separator may split.
TEST_F(QzWideStringTokeniserTest, SplitsAtUnitsBeyondAscii)
{
    QzWideStringTokeniser tokeniser(u"\u00ABa b\u00AB\u00B7\U0001F600\u00B7\u00B7c", u"\u00B7", 1,
                                    1, u"\u00AB");
    std::vector<std::u16string> tokens;
    while (tokeniser.MoreTokens() && tokens.size() < 10)
        tokens.push_back(ToU16(tokeniser.NextToken().GetString()));
    EXPECT_EQ(tokens, (std::vector<std::u16string>{u"\u00ABa b\u00AB", u"\U0001F600", u"", u"c"}));
}

TEST(QzStringTokeniserComponentTest, IsACountedComponentWithoutDependencies)
{
    EXPECT_EQ(QzStringTokeniser::IsInitialised(), 0);
    QzStringTokeniser::Initialise();
    QzStringTokeniser::Initialise();
    EXPECT_EQ(QzStringTokeniser::IsInitialised(), 2);
    EXPECT_STREQ(QzStringTokeniser::GetComponent()->GetName(), "QzStringTokeniser");
    EXPECT_EQ(QzString::IsInitialised(), 0);
    QzStringTokeniser::Terminate();
    QzStringTokeniser::Terminate();
    EXPECT_EQ(QzStringTokeniser::IsInitialised(), 0);
}
