// QzTokeniserEngine.h: the token walk shared by QzStringTokeniser and
// QzWideStringTokeniser through one template. Internal: never installed.
#pragma once

// Statics over one tokeniser class, a friend of that class. The tokeniser
// names its code unit (Unit), its result buffer (Buffer), its default
// separators and quotes, and holds the fields m_text, m_position,
// m_separators, m_empty_tokens, m_quotes, m_honour_quotes, m_in_quote and
// m_quote.
//
// The walk never measures the text: the terminator ends it, and the read
// position never passes one beyond the terminator, so each token costs only
// its own length.
// Invariant: 0 <= m_position <= length of the text + 1.
template <typename Tokeniser>
class QzTokeniserEngine {
public:
    using Unit = typename Tokeniser::Unit;
    using Buffer = typename Tokeniser::Buffer;

    // Null separators or quotes take the class's default sets.
    static void Set(Tokeniser *tokeniser, Unit const *text, Unit const *separators,
                    int empty_tokens, int honour_quotes, Unit const *quotes)
    {
        tokeniser->m_text.SetString(text);
        tokeniser->m_position = 0;
        tokeniser->m_separators.SetString(separators != nullptr ? separators
                                                                : Tokeniser::kDefaultSeparators);
        tokeniser->m_empty_tokens = empty_tokens;
        tokeniser->m_quotes.SetString(quotes != nullptr ? quotes : Tokeniser::kDefaultQuotes);
        tokeniser->m_honour_quotes = honour_quotes;
        tokeniser->m_in_quote = 0;
        tokeniser->m_quote = 0;
    }

    static int MoreTokens(Tokeniser const &tokeniser)
    {
        Unit const *text = TextOf(tokeniser);
        int position = tokeniser.m_position;
        if (tokeniser.m_empty_tokens) {
            // Not past the length: every unit before the terminator is non-nul.
            return position == 0 || text[position - 1] != 0 ? 1 : 0;
        }
        if (position > 0 && text[position - 1] == 0)
            return 0;
        for (Unit const *at = text + position; *at != 0; ++at) {
            if (!EndsToken(tokeniser, *at))
                return 1;
        }
        return 0;
    }

    // The next token, quotes kept; empty (not null) when no text is left.
    static Buffer NextToken(Tokeniser *tokeniser)
    {
        Buffer token;
        Unit const *text = TextOf(*tokeniser);
        int position = tokeniser->m_position;
        if (position > 0 && text[position - 1] == 0) {
            token.SetEmptyString();
            return token;
        }
        // A quote left open by the text's end belongs to no later token.
        tokeniser->m_in_quote = 0;
        int start = position;
        bool is_non_empty = false;
        int index = position;
        for (;; ++index) {
            Unit unit = text[index];
            if (tokeniser->m_honour_quotes && unit != 0 && Contains(tokeniser->m_quotes, unit))
                TrackQuote(tokeniser, unit);
            if (!EndsToken(*tokeniser, unit)) {
                is_non_empty = true;
                continue;
            }
            if (is_non_empty || tokeniser->m_empty_tokens || unit == 0)
                break;
            start = index + 1;  // an empty token between separators is dropped
        }
        // At the terminator without text this is the empty result; either
        // way the read position goes one past the end of the token.
        token.SetString(text + start, index - start);
        tokeniser->m_position = index + 1;
        return token;
    }

    static int IsToken(Tokeniser const &tokeniser, int index)
    {
        if (index < 0)
            return 0;
        if (index >= tokeniser.m_text.GetLength())
            return 1;
        return EndsToken(tokeniser, TextOf(tokeniser)[index]) ? 1 : 0;
    }

    static int IsQuote(Tokeniser const &tokeniser, int index)
    {
        if (index < 0 || index >= tokeniser.m_text.GetLength())
            return 0;
        return Contains(tokeniser.m_quotes, TextOf(tokeniser)[index]) ? 1 : 0;
    }

private:
    // A null text reads as the empty one.
    static Unit const *TextOf(Tokeniser const &tokeniser)
    {
        static constexpr Unit kEmpty[1] = {0};
        Unit const *text = tokeniser.m_text.GetString();
        return text != nullptr ? text : kEmpty;
    }

    template <typename Text>
    static bool Contains(Text const &set, Unit unit)
    {
        Unit const *member = set.GetString();
        if (member == nullptr)
            return false;
        for (; *member != 0; ++member) {
            if (*member == unit)
                return true;
        }
        return false;
    }

    // The terminator, or a separator while no quote is open.
    static bool EndsToken(Tokeniser const &tokeniser, Unit unit)
    {
        return unit == 0 || (!tokeniser.m_in_quote && Contains(tokeniser.m_separators, unit));
    }

    // Outside a quote any quote character opens one; inside, only the
    // character that opened it closes it.
    static void TrackQuote(Tokeniser *tokeniser, Unit unit)
    {
        if (!tokeniser->m_in_quote) {
            tokeniser->m_in_quote = 1;
            tokeniser->m_quote = unit;
        } else if (unit == tokeniser->m_quote) {
            tokeniser->m_in_quote = 0;
        }
    }
};
