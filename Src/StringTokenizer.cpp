#include <vornex/StringTokenizer.h>

#include "TokenScan.h"

namespace VornEx {

namespace {

void Replace(Vorn::Strings::CStringVar& target, const char* text, std::uint32_t length)
{
    target.Clear();
    if (length != 0)
        target.AllocCopy(text, length);
}

} // namespace

CStringTokenizer::CStringTokenizer(const Vorn::Strings::CStringRef& text,
                                   const Vorn::Strings::CStringRef& delimiters)
    : m_Text(text), m_Delimiters{}, m_Position(0)
{
    SetDelimiters(delimiters);
}

void CStringTokenizer::SetDelimiters(const Vorn::Strings::CStringRef& delimiters)
{
    for (unsigned int index = 0; index < delimiters.Length(); ++index)
        Internals::AddDelimiter(m_Delimiters, delimiters.Text()[index]);
}

bool CStringTokenizer::Next(Vorn::Strings::CStringVar& token)
{
    std::uint32_t begin = 0;
    if (!Internals::NextToken(m_Text.m_Text, m_Text.m_Length, m_Delimiters, m_Position, begin)) {
        token.Clear();
        return false;
    }
    Replace(token, m_Text.m_Text + begin, m_Position - begin);
    return true;
}

void CStringTokenizer::Tail(Vorn::Strings::CStringVar& rest) const
{
    Replace(rest, m_Text.m_Text + m_Position, m_Text.m_Length - m_Position);
}

} // namespace VornEx
