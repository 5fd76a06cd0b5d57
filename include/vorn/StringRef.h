// Read-only views of 8-bit text.
//
// A view never owns and never copies: the text must outlive it. Views are two words, passed by
// reference or by value, and may be read by several threads at once.
#pragma once

#include <cstring>
#include <string>
#include <string_view>

#include <vorn/Export.h>

namespace Vorn::Strings {

class CStringVar;

// A run of bytes, not necessarily ended by a NUL; may hold NUL bytes.
class VORN_EXPORT CSubStringRef
{
public:
    constexpr CSubStringRef() = default;
    constexpr CSubStringRef(const char* text, unsigned int length)
        : m_Text(length != 0 ? text : ""), m_Length(length)
    {}
    // The NUL-terminated text; null counts as empty.
    constexpr CSubStringRef(const char* text) // NOLINT(google-explicit-constructor)
        : m_Text(text != nullptr ? text : ""),
          m_Length(text != nullptr ? static_cast<unsigned int>(std::char_traits<char>::length(text))
                                   : 0)
    {}
    CSubStringRef(const std::string& text) // NOLINT(google-explicit-constructor)
        : CSubStringRef(text.data(), static_cast<unsigned int>(text.size()))
    {}
    CSubStringRef(std::string_view text) // NOLINT(google-explicit-constructor)
        : CSubStringRef(text.data(), static_cast<unsigned int>(text.size()))
    {}
    CSubStringRef(const CStringVar& text); // NOLINT(google-explicit-constructor)

    // The first byte; never null. NUL-terminated only where the class says so.
    constexpr const char* Text() const { return m_Text; }
    // Length in bytes.
    constexpr unsigned int Length() const { return m_Length; }

    // Position of the last occurrence of a byte at or behind `from`, or -1 when there is none.
    int FindLast(int character, unsigned int from) const;

    // Length in UTF-8 characters (RFC 3629: no overlong forms, no surrogates, nothing above
    // U+10FFFF), or -1 when the bytes are not valid UTF-8.
    int UTF8Length() const;

    constexpr operator std::string_view() const // NOLINT(google-explicit-constructor)
    {
        return {m_Text, m_Length};
    }

protected:
    const char* m_Text = "";
    unsigned int m_Length = 0;
};

// A run of bytes with a NUL right behind it.
class VORN_EXPORT CStringRef : public CSubStringRef
{
public:
    constexpr CStringRef() = default;
    constexpr CStringRef(const char* text) // NOLINT(google-explicit-constructor)
        : CSubStringRef(text)
    {}
    CStringRef(const std::string& text) // NOLINT(google-explicit-constructor)
        : CSubStringRef(text)
    {}
    CStringRef(const CStringVar& text); // NOLINT(google-explicit-constructor)
};

// The empty text. Compare a view with it to test for an empty argument.
extern VORN_EXPORT const CStringRef _TEmpty;

// Same length and same bytes. Strings, literals and std::string convert on either side.
inline bool operator==(const CSubStringRef& left, const CSubStringRef& right)
{
    return left.Length() == right.Length() &&
           std::memcmp(left.Text(), right.Text(), left.Length()) == 0;
}

inline bool operator!=(const CSubStringRef& left, const CSubStringRef& right)
{
    return !(left == right);
}

} // namespace Vorn::Strings
