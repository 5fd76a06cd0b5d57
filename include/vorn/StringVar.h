// Owning, growable strings of 8-bit text.
//
// Strings are NUL-terminated at all times and may hold NUL bytes. An object is used by one thread
// at a time. Growing throws std::bad_alloc when memory is short or when a length would pass
// CStringVar::MaxLength; the string then keeps its text.
#pragma once

#include <vorn/FormatStream.h>
#include <vorn/StringRef.h>

namespace Vorn::Strings {

// Services write the three fields directly. What they rely on:
//  - m_Text[m_Length] is NUL, and m_Length never exceeds m_Capacity.
//  - m_Capacity is the number of characters that fit, the terminator not counted: the storage is
//    m_Capacity + 1 bytes.
//  - With a capacity of 0, m_Text points to a shared empty text that must not be written.
class VORN_EXPORT CStringVar
{
public:
    static constexpr unsigned int MaxLength = 0x7FFFFFF0;

    CStringVar() = default;
    explicit CStringVar(const CSubStringRef& text);
    CStringVar(const CStringVar& other);
    // Moving copies a text that lives inside other, which can throw.
    CStringVar(CStringVar&& other); // NOLINT(performance-noexcept-move-constructor)
    virtual ~CStringVar();

    CStringVar& operator=(const CStringVar& other);
    CStringVar& operator=(CStringVar&& other); // NOLINT(performance-noexcept-move-constructor)
    // The text may be a part of this string.
    CStringVar& operator=(const CStringRef& text);
    CStringVar& operator=(const char* text);

    // Appends; the text may be a part of this string.
    CStringVar& operator<<(const CSubStringRef& text);

    // Makes room for n characters and the terminator, keeping the text. Storage never shrinks; what
    // has to grow at least doubles, so that appending piece by piece stays linear.
    void Alloc(unsigned int n);

    // Appends n bytes of text at the current length; n = 0 means the whole NUL-terminated text. The
    // text may be a part of this string. Set the length to 0 first to replace.
    void AllocCopy(const char* text, unsigned int n);

    // Replaces the content by the text as UTF-8: valid UTF-8 sequences are taken as they are, every
    // other byte as the Latin-1 character of that value. The text may be a part of this string.
    void CopyAsUTF8(const CSubStringRef& text);

    // A stream whose fields are written at the end of the string, after its present text; the
    // string is complete when that stream is destroyed. See FormatStream.h for the fields. The
    // string must outlive the stream and must not be touched meanwhile.
    Output_Streams::CFormatStream Format(const char* format);

    // Length 0; the storage stays.
    void Clear()
    {
        m_Length = 0;
        if (m_Capacity != 0)
            m_Text[0] = '\0';
    }

    operator std::string_view() const // NOLINT(google-explicit-constructor)
    {
        return {m_Text, m_Length};
    }

    char* m_Text = s_NoText;
    unsigned int m_Length = 0;
    unsigned int m_Capacity = 0;

protected:
    // Where a string lives before it has to grow: nowhere, or a buffer inside the derived object.
    struct CStorage
    {
        char* m_Text;
        unsigned int m_Capacity;
    };
    virtual CStorage InitialStorage() { return {s_NoText, 0}; }

    CStringVar(char* inlineBuffer, unsigned int capacity)
        : m_Text(inlineBuffer), m_Capacity(capacity)
    {
        inlineBuffer[0] = '\0';
    }

    void Assign(const char* text, unsigned int length);
    // Takes the heap text of other, or copies a text that lives inside other. Other ends empty.
    void MoveFrom(CStringVar& other);
    // Frees heap text and goes back to the given storage, empty.
    void Release(CStorage initial) noexcept;

private:
    static char s_NoText[1];
};

// A string with room for N characters inside the object; it moves to the heap only when a longer
// text is stored.
template <unsigned int N>
class TString : public CStringVar
{
public:
    TString() : CStringVar(m_Inline, N) {}
    explicit TString(const CSubStringRef& text) : TString() { Assign(text.Text(), text.Length()); }
    TString(const TString& other) : TString() { Assign(other.m_Text, other.m_Length); }
    TString(TString&& other) noexcept : TString() { MoveFrom(other); }
    // Nothing is left for the base class to free.
    ~TString() override { Release({m_Inline, 0}); }

    TString& operator=(const TString& other)
    {
        if (this != &other)
            Assign(other.m_Text, other.m_Length);
        return *this;
    }
    TString& operator=(TString&& other) noexcept
    {
        if (this != &other)
            MoveFrom(other);
        return *this;
    }
    using CStringVar::operator=;

protected:
    typename CStringVar::CStorage InitialStorage() override { return {m_Inline, N}; }

private:
    char m_Inline[N + 1];
};

class CSubStringVar;

// A string with editing of a part of it.
class VORN_EXPORT CStringEx : public CStringVar
{
public:
    CStringEx() = default;
    explicit CStringEx(const CSubStringRef& text) : CStringVar(text) {}
    CStringEx(const CStringEx&) = default;
    CStringEx(CStringEx&& other) noexcept { MoveFrom(other); }
    CStringEx& operator=(const CStringEx&) = default;
    CStringEx& operator=(CStringEx&& other) noexcept
    {
        if (this != &other)
            MoveFrom(other);
        return *this;
    }
    using CStringVar::operator=;

    // The part from `first` on, `length` bytes of it, both cut to the string's end.
    CSubStringVar Part(unsigned int first, unsigned int length = MaxLength);
};

// A part of a string that can be replaced. It belongs to that string, which must outlive it; any
// other change to the string ends its use.
class VORN_EXPORT CSubStringVar
{
public:
    CSubStringVar(CStringVar& owner, unsigned int first, unsigned int length);

    // Puts n bytes of text (0: the whole NUL-terminated text) in the place of the part, which then
    // is what was put there. The text may be a part of the same string.
    void InsertReplace(const char* text, unsigned int n);

    operator CSubStringRef() const; // NOLINT(google-explicit-constructor)

private:
    CStringVar& m_Owner;
    unsigned int m_First;
    unsigned int m_Length;
};

inline CSubStringRef::CSubStringRef(const CStringVar& text)
    : m_Text(text.m_Text), m_Length(text.m_Length)
{}

inline CStringRef::CStringRef(const CStringVar& text) : CSubStringRef(text) {}

} // namespace Vorn::Strings
