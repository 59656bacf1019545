// QzStringTokeniser.h: splits 8-bit text into tokens at separator
// characters, optionally keeping quoted runs whole. The UTF-16 twin is
// QzWideStringTokeniser.h.
#pragma once

#include "qzutil/frame/QzExport.h"
#include "qzutil/memory/QzDeletable.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"

class QzComponent;
template <typename Tokeniser>
class QzTokeniserEngine;  // the shared token walk, inside the library

// Hands out the tokens of a text one at a time. A token ends at a separator
// outside quotes or at the end of the text. Empty tokens (two separators in
// a row, or a separator at either end) are dropped unless asked for. With
// quotes honoured, a quote character opens a quote that only the same
// character closes; separators inside do not split, and the quote
// characters stay in the token.
//
// Ownership: the text and both character sets are copied at construction.
// Threads:   no synchronisation; a tokeniser belongs to one thread.
// Invariant: the read position lies between 0 and one past the text's end.
// Lifetime:  needs QzString::Initialise (the copies come from QzMemory). The
//            component trio only registers the class; it has no dependency.
class QZUTIL_API QzStringTokeniser {
public:
    QZ_DECLARE_ALLOCATORS()

    // Blank, tab, carriage return and line feed.
    static constexpr char kDefaultSeparators[] = " \t\r\n";
    static constexpr char kDefaultQuotes[] = "\"'`";

    static void Initialise();
    static void Terminate();
    static int IsInitialised();
    static QzComponent *GetComponent();

    // Default separators, empty tokens off, quotes honoured, default quotes.
    // A null text tokenises as the empty text.
    explicit QzStringTokeniser(char const *text);
    // As above with the given separators (null: the default set).
    QzStringTokeniser(char const *text, char const *separators);
    // Null separators or quotes take the default sets.
    QzStringTokeniser(char const *text, char const *separators, int empty_tokens, int honour_quotes,
                      char const *quotes);

    // 1 if NextToken has a token to give. With empty tokens on, that is
    // while the read position has not passed the end (so an empty text has
    // one, empty, token); otherwise while some character from the read
    // position on is not a token end.
    int MoreTokens() const;
    // The next token, quote characters included, and moves past its end.
    // Empty (not null) when no text is left, or for an empty token.
    QzStringBuffer NextToken();
    // 1 if the character at `index` ends a token in the present quote
    // state: an index at or past the end of the text, or a separator outside
    // a quote. 0 for a negative index.
    int IsToken(int index) const;
    // 1 if the character at `index` is one of the quote characters, whether
    // or not quotes are honoured; 0 outside the text.
    int IsQuote(int index) const;

private:
    friend class QzTokeniserEngine<QzStringTokeniser>;
    using Unit = char;
    using Buffer = QzStringBuffer;

    static QzComponent m_component;

    QzString m_text;
    int m_position;  // index of the next unread character
    QzString m_separators;
    int m_empty_tokens;  // non-zero: empty tokens are returned
    QzString m_quotes;
    int m_honour_quotes;  // non-zero: separators inside quotes do not split
    int m_in_quote;       // non-zero while a quote is open
    char m_quote;         // the character that opened the present quote
};
