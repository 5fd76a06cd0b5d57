#include <vornex/StringTokenizer.h>

#include <cstring>

#include "TokenScan.h"

namespace VornEx {

namespace {

// The string keeps its storage from token to token: nearly always there is room.
inline void Replace(Vorn::Strings::CStringVar& target, const char* text, std::uint32_t length)
{
    if (length > target.m_Capacity)
        target.Alloc(length);
    if (target.m_Capacity == 0)
        return;
    std::memcpy(target.m_Text, text, length);
    target.m_Text[length] = '\0';
    target.m_Length = length;
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
    for (unsigned int index = 0; index < delimiters.Length(); ++index) {
        const auto byte = static_cast<unsigned char>(delimiters.Text()[index]);
        m_Delimiters[byte / 32U] |= std::uint32_t{1} << (byte % 32U);
    }
}

bool CStringTokenizer::Next(Vorn::Strings::CStringVar& token)
{
    const auto isDelimiter = [this](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return ((m_Delimiters[byte / 32U] >> (byte % 32U)) & 1U) != 0;
    };
    std::uint32_t begin = 0;
    if (!Internals::NextToken(m_Text.m_Text, m_Text.m_Length, m_Position, begin, isDelimiter)) {
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
