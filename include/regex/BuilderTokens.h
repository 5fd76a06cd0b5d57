// The builder's tokenizer. Included where the builder is instantiated, not by its users.
#pragma once

#include <regex/Builder.h>

namespace Vorn::Regex {

template <class Char>
int CBuilderT<Char>::Emit(Char character, int special, int length)
{
    m_Ahead.m_Char = character;
    m_Ahead.m_Special = special;
    m_Ahead.m_Length = length;
    m_Position += length;
    return 1;
}

template <class Char>
int CBuilderT<Char>::Skip(int length)
{
    m_Position += length;
    return 0;
}

// Reads one token into m_Ahead: 1, or 0 when only text that means nothing here was passed.
template <class Char>
int CBuilderT<Char>::GetNext2()
{
    const int length = m_Pattern.GetSize();
    m_Ahead.m_Index = m_Position;
    if (m_Position >= length)
        return Emit(0, 1, 0);
    const Char* const at = m_Pattern.GetBuffer() + m_Position;
    const int left = length - m_Position;
    const Char character = *at;
    if (m_Quoting != 0)
        return ReadQuoted(character);

    // m_Next and m_Current are the two tokens before the one that is being read.
    const bool isInside = m_BracketDepth > 0;
    switch (character) {
    case '\t':
    case '\n':
    case '\v':
    case '\f':
    case '\r':
    case ' ':
        if ((m_Flags & Extended) != 0 && !isInside)
            return Skip(1);
        break;
    case '#':
        if ((m_Flags & Extended) != 0 && !isInside) {
            int comment = 1;
            while (comment < left && at[comment] != '\n' && at[comment] != '\r')
                ++comment;
            return Skip(comment);
        }
        break;
    case '(':
        if (left >= 3 && at[1] == '?' && at[2] == '#') {
            const void* const end = std::memchr(at, ')', static_cast<std::size_t>(left));
            return Skip(end != nullptr ? static_cast<int>(static_cast<const Char*>(end) - at) + 1
                                       : left);
        }
        return Emit(character, isInside ? 0 : 1, 1);
    case '$':
    case ')':
    case '*':
    case '+':
    case '.':
    case '?':
    case '{':
    case '|':
    case '}':
        return Emit(character, isInside ? 0 : 1, 1);
    case '-':
        return Emit(character, isInside ? 1 : 0, 1);
    case ':':
        return Emit(character, Is(m_Next, '[') ? 1 : 0, 1);
    case '[':
        if (isInside && (left < 2 || at[1] != ':'))
            break;
        ++m_BracketDepth;
        return Emit(character, 1, 1);
    case ']':
        if (!isInside)
            break;
        --m_BracketDepth;
        return Emit(character, 1, 1);
    case '^':
        if (isInside && !Is(m_Next, '[') && !(Is(m_Next, ':') && Is(m_Current, '[')))
            break;
        return Emit(character, 1, 1);
    case '\\':
        return left < 2 ? Emit(character, 0, 1) : ReadEscape();
    default:
        break;
    }
    return Emit(character, 0, 1);
}

template <class Char>
int CBuilderT<Char>::ReadQuoted(Char character)
{
    if (character == '\\' && m_Position + 1 < m_Pattern.GetSize() &&
        m_Pattern[m_Position + 1] == 'E') {
        m_Quoting = 0;
        m_QuoteCase = nullptr;
        return Skip(2);
    }
    if (m_QuoteCase != nullptr)
        character = static_cast<Char>(m_QuoteCase(static_cast<unsigned char>(character)));
    return Emit(character, 0, 1);
}

template <class Char>
int CBuilderT<Char>::ReadEscape()
{
    const Char character = m_Pattern[m_Position + 1];
    const bool isInside = m_BracketDepth > 0;
    if (IsDigit(character))
        return Emit('\\', 1, 1);
    switch (character) {
    case 'a':
        return Emit('\a', 0, 2);
    case 'b':
        return isInside ? Emit('\b', 0, 2) : Emit('b', 1, 2);
    case 'e':
        return Emit('\033', 0, 2);
    case 'f':
        return Emit('\f', 0, 2);
    case 'n':
        return Emit('\n', 0, 2);
    case 'r':
        return Emit('\r', 0, 2);
    case 't':
        return Emit('\t', 0, 2);
    case 'v':
        return Emit('\v', 0, 2);
    case 'x':
        return ReadCode(2);
    case 'u':
        return ReadCode(4);
    case 'd':
    case 'D':
    case 's':
    case 'S':
    case 'w':
    case 'W':
    case 'A':
    case 'B':
    case 'Z':
    case 'z':
    case 'g':
    case 'k':
        return Emit(character, 1, 2);
    case 'G':
        return isInside ? Skip(2) : Emit('G', 1, 2);
    case 'U':
    case 'L':
        if (m_QuoteCase == nullptr)
            m_QuoteCase = character == 'U' ? &::toupper : &::tolower;
        [[fallthrough]];
    case 'Q':
        m_Quoting = 1;
        return Skip(2);
    case 'E':
        m_Quoting = 0;
        m_QuoteCase = nullptr;
        return Skip(2);
    default:
        return Emit(character, 0, 2);
    }
}

// "\xHH" and "\uHHHH", or either with braces; without a digit the letter stands for itself.
template <class Char>
int CBuilderT<Char>::ReadCode(int mostDigits)
{
    constexpr int MostInBraces = 8;
    const int left = m_Pattern.GetSize() - m_Position;
    const Char* const at = m_Pattern.GetBuffer() + m_Position;
    int used = 0;
    if (left > 2 && at[2] == '{') {
        const int room = left - 3;
        const int code = Hex2Int(at + 3, room < MostInBraces ? room : MostInBraces, used);
        const void* const end = std::memchr(at, '}', static_cast<std::size_t>(left));
        return Emit(static_cast<Char>(code), 0,
                    end != nullptr ? static_cast<int>(static_cast<const Char*>(end) - at) + 1
                                   : left);
    }
    const int code = Hex2Int(at + 2, left - 2 < mostDigits ? left - 2 : mostDigits, used);
    return used > 0 ? Emit(static_cast<Char>(code), 0, 2 + used) : Emit(at[1], 0, 2);
}

template <class Char>
int CBuilderT<Char>::MoveNext()
{
    m_Previous = m_Current;
    m_Current = m_Next;
    m_Next = m_Ahead;
    int read = 0;
    while (read == 0)
        read = GetNext2();
    return read;
}

// Makes the token at an index of the pattern, outside classes and quoting, the current one.
template <class Char>
void CBuilderT<Char>::Rescan(int index)
{
    m_Position = index;
    m_BracketDepth = 0;
    m_Quoting = 0;
    m_QuoteCase = nullptr;
    m_Previous = m_Current = m_Next = m_Ahead = CToken();
    for (int token = 0; token < 3; ++token)
        MoveNext();
}

template <class Char>
int CBuilderT<Char>::Hex2Int(const Char* s, int mostDigits, int& used)
{
    unsigned int value = 0;
    for (used = 0; used < mostDigits; ++used) {
        const Char digit = s[used];
        if (IsDigit(digit))
            value = value * 16 + static_cast<unsigned int>(digit - '0');
        else if (digit >= 'A' && digit <= 'F')
            value = value * 16 + static_cast<unsigned int>(digit - 'A' + 10);
        else if (digit >= 'a' && digit <= 'f')
            value = value * 16 + static_cast<unsigned int>(digit - 'a' + 10);
        else
            break;
    }
    return static_cast<int>(value);
}

template <class Char>
int CBuilderT<Char>::ReadDec(const Char*& p, unsigned int& value) const
{
    const Char* const end = m_Pattern.GetBuffer() + m_Pattern.GetSize();
    constexpr int MostDigits = 3;
    while (p < end && std::isspace(static_cast<unsigned char>(*p)) != 0)
        ++p;
    if (p >= end || !IsDigit(*p))
        return 0;
    value = 0;
    for (int digit = 0; digit < MostDigits && p < end && IsDigit(*p); ++digit)
        value = value * 10 + static_cast<unsigned int>(*p++ - '0');
    while (p < end && std::isspace(static_cast<unsigned char>(*p)) != 0)
        ++p;
    return 1;
}

} // namespace Vorn::Regex
