// Splitting a text at single delimiter bytes.
//
//     VornEx::CStringTokenizer tokens("a,,b", ",");
//     Vorn::Strings::TString<32> token;
//     while (tokens.Next(token))
//         use(token);                       // "a", "", "b"
//
// Two delimiters side by side have an empty token between them. A delimiter at the very start is
// stepped over, and one at the very end ends the text, without an empty token: ",a" and "a," hold
// one token each. That is meant.
//
// Bytes are taken as they are, NUL included. An object is used by one thread at a time; growing a
// string throws std::bad_alloc, and nothing else fails.
//
// What it does not do: no quoting, no escapes, no trimming, no delimiters of several bytes.
#pragma once

#include <cstdint>

#include <vorn/Export.h>
#include <vorn/StringRef.h>
#include <vorn/StringVar.h>

namespace VornEx {

class VORN_EXPORT CStringTokenizer
{
public:
    // Copies the text; neither argument needs to live on.
    CStringTokenizer(const Vorn::Strings::CStringRef& text,
                     const Vorn::Strings::CStringRef& delimiters);

    // Adds every byte to the set of delimiters. They only accumulate, on purpose. Takes effect from
    // the present position on.
    void SetDelimiters(const Vorn::Strings::CStringRef& delimiters);

    // Replaces the content of `token` by the next token. False, with `token` empty, when there is
    // none.
    bool Next(Vorn::Strings::CStringVar& token);

    // Replaces the content of `rest` by the text that no Next has passed yet. After a Next that
    // stopped at a delimiter it begins with that delimiter, on purpose. Moves nothing.
    void Tail(Vorn::Strings::CStringVar& rest) const;

private:
    friend struct CLayoutCheck; // Src/Layout.cpp
    Vorn::Strings::TString<16> m_Text;
    std::uint32_t m_Delimiters[8]; // byte value b: bit b % 32 of word b / 32
    std::uint32_t m_Position;      // where the next scan starts
};

} // namespace VornEx
