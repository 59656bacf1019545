// QzWideStringTokeniser.cpp: the members of QzWideStringTokeniser; the token
// walk is QzTokeniserEngine's.
#include "qzutil/text/QzWideStringTokeniser.h"

#include "qzutil/text/internal/QzTokeniserEngine.h"

using Engine = QzTokeniserEngine<QzWideStringTokeniser>;

QzWideStringTokeniser::QzWideStringTokeniser(LtWChar const *text)
    : QzWideStringTokeniser(text, kDefaultSeparators, 0, 1, kDefaultQuotes)
{}

QzWideStringTokeniser::QzWideStringTokeniser(LtWChar const *text, LtWChar const *separators)
    : QzWideStringTokeniser(text, separators, 0, 1, kDefaultQuotes)
{}

QzWideStringTokeniser::QzWideStringTokeniser(LtWChar const *text, LtWChar const *separators,
                                             int empty_tokens, int honour_quotes,
                                             LtWChar const *quotes)
    : m_position(0), m_empty_tokens(0), m_honour_quotes(0), m_in_quote(0), m_quote(0)
{
    Engine::Set(this, text, separators, empty_tokens, honour_quotes, quotes);
}

int QzWideStringTokeniser::MoreTokens() const
{
    return Engine::MoreTokens(*this);
}

QzWideStringBuffer QzWideStringTokeniser::NextToken()
{
    return Engine::NextToken(this);
}

int QzWideStringTokeniser::IsToken(int index) const
{
    return Engine::IsToken(*this, index);
}

int QzWideStringTokeniser::IsQuote(int index) const
{
    return Engine::IsQuote(*this, index);
}
