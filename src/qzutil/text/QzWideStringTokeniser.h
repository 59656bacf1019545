// QzWideStringTokeniser.h: the UTF-16 twin of QzStringTokeniser, splitting
// wide text into tokens at separator units, optionally keeping quoted runs
// whole.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"
#include "qzutil/memory/QzDeletable.h"
#include "qzutil/text/QzWideString.h"
#include "qzutil/text/QzWideStringBuffer.h"

template <typename Tokeniser>
class QzTokeniserEngine;  // the shared token walk, inside the library

// The rules of QzStringTokeniser, on 16-bit units; a surrogate pair is two
// units, so separators and quotes are characters of the BMP. The class has
// no component of its own: QzStringTokeniser's stands for both.
//
// Ownership: the text and both character sets are copied at construction.
// Threads:   no synchronisation; a tokeniser belongs to one thread.
// Invariant: the read position lies between 0 and one past the text's end.
// Lifetime:  needs QzString::Initialise (the copies come from QzMemory).
class QZUTIL_API QzWideStringTokeniser {
public:
    QZ_DECLARE_ALLOCATORS()

    // Blank, tab, carriage return and line feed.
    static constexpr LtWChar kDefaultSeparators[] = u" \t\r\n";
    static constexpr LtWChar kDefaultQuotes[] = u"\"'`";

    explicit QzWideStringTokeniser(LtWChar const *text);
    QzWideStringTokeniser(LtWChar const *text, LtWChar const *separators);
    QzWideStringTokeniser(LtWChar const *text, LtWChar const *separators, int empty_tokens,
                          int honour_quotes, LtWChar const *quotes);

    // As in QzStringTokeniser.
    int MoreTokens() const;
    QzWideStringBuffer NextToken();
    int IsToken(int index) const;
    int IsQuote(int index) const;

private:
    friend class QzTokeniserEngine<QzWideStringTokeniser>;
    using Unit = LtWChar;
    using Buffer = QzWideStringBuffer;

    QzWideString m_text;
    int m_position;  // index of the next unread unit
    QzWideString m_separators;
    int m_empty_tokens;  // non-zero: empty tokens are returned
    QzWideString m_quotes;
    int m_honour_quotes;  // non-zero: separators inside quotes do not split
    int m_in_quote;       // non-zero while a quote is open
    LtWChar m_quote;      // the unit that opened the present quote
};
