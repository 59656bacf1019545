// QzStringTokeniser.cpp: the QzStringTokeniser component and its members;
// the token walk is QzTokeniserEngine's.
#include "qzutil/text/QzStringTokeniser.h"

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/text/internal/QzTokeniserEngine.h"

using Engine = QzTokeniserEngine<QzStringTokeniser>;

QzComponent QzStringTokeniser::m_component;

void QzStringTokeniser::Initialise()
{
    (void)m_component.Initialise("QzStringTokeniser", QZ_COMPONENT_INFO);
}

void QzStringTokeniser::Terminate()
{
    (void)m_component.Terminate();
}

int QzStringTokeniser::IsInitialised()
{
    return m_component.IsInitialised();
}

QzComponent *QzStringTokeniser::GetComponent()
{
    return &m_component;
}

QzStringTokeniser::QzStringTokeniser(char const *text)
    : QzStringTokeniser(text, kDefaultSeparators, 0, 1, kDefaultQuotes)
{}

QzStringTokeniser::QzStringTokeniser(char const *text, char const *separators)
    : QzStringTokeniser(text, separators, 0, 1, kDefaultQuotes)
{}

QzStringTokeniser::QzStringTokeniser(char const *text, char const *separators, int empty_tokens,
                                     int honour_quotes, char const *quotes)
    : m_position(0), m_empty_tokens(0), m_honour_quotes(0), m_in_quote(0), m_quote(0)
{
    Engine::Set(this, text, separators, empty_tokens, honour_quotes, quotes);
}

int QzStringTokeniser::MoreTokens() const
{
    return Engine::MoreTokens(*this);
}

QzStringBuffer QzStringTokeniser::NextToken()
{
    return Engine::NextToken(this);
}

int QzStringTokeniser::IsToken(int index) const
{
    return Engine::IsToken(*this, index);
}

int QzStringTokeniser::IsQuote(int index) const
{
    return Engine::IsQuote(*this, index);
}
