#include <vorn/StringVar.h>

#include <algorithm>
#include <functional>
#include <new>

#include "Utf8.h"

namespace Vorn::Strings {

char CStringVar::s_NoText[1] = {'\0'};

namespace {

// Whether `text` points into [first, first + length], the storage of a string.
bool Within(const char* text, const char* first, unsigned int length)
{
    return !std::less<>()(text, first) && !std::less<>()(first + length, text);
}

} // namespace

CStringVar::CStringVar(const CSubStringRef& text)
{
    Assign(text.Text(), text.Length());
}

CStringVar::CStringVar(const CStringVar& other)
{
    Assign(other.m_Text, other.m_Length);
}

CStringVar::CStringVar(CStringVar&& other) // NOLINT(performance-noexcept-move-constructor)
{
    MoveFrom(other);
}

CStringVar::~CStringVar()
{
    Release({s_NoText, 0});
}

CStringVar& CStringVar::operator=(const CStringVar& other)
{
    if (this != &other)
        Assign(other.m_Text, other.m_Length);
    return *this;
}

CStringVar&
CStringVar::operator=(CStringVar&& other) // NOLINT(performance-noexcept-move-constructor)
{
    if (this != &other)
        MoveFrom(other);
    return *this;
}

CStringVar& CStringVar::operator=(const CStringRef& text)
{
    Assign(text.Text(), text.Length());
    return *this;
}

CStringVar& CStringVar::operator=(const char* text)
{
    const CStringRef view(text);
    Assign(view.Text(), view.Length());
    return *this;
}

CStringVar& CStringVar::operator<<(const CSubStringRef& text)
{
    if (text.Length() != 0)
        AllocCopy(text.Text(), text.Length());
    return *this;
}

void CStringVar::Alloc(unsigned int n)
{
    if (n <= m_Capacity)
        return;
    if (n > MaxLength)
        throw std::bad_alloc();

    // Rounded so that storage is a multiple of 16 bytes.
    const unsigned int wanted =
        std::max(n, m_Capacity <= MaxLength / 2 ? 2 * m_Capacity : MaxLength);
    const unsigned int capacity = wanted | 15U;
    char* const text = new char[static_cast<std::size_t>(capacity) + 1];
    const unsigned int length = m_Length;
    std::memcpy(text, m_Text, static_cast<std::size_t>(length) + 1);
    Release({text, capacity});
    m_Length = length;
}

void CStringVar::AllocCopy(const char* text, unsigned int n)
{
    if (text == nullptr)
        return;
    if (n == 0) {
        n = CSubStringRef(text).Length();
        if (n == 0)
            return;
    }
    if (n > MaxLength - m_Length)
        throw std::bad_alloc();
    if (m_Capacity - m_Length < n) {
        // The text may move with the storage.
        const bool own = Within(text, m_Text, m_Length);
        const auto offset = own ? text - m_Text : 0;
        Alloc(m_Length + n);
        if (own)
            text = m_Text + offset;
    }
    std::memmove(m_Text + m_Length, text, n);
    m_Length += n;
    m_Text[m_Length] = '\0';
}

void CStringVar::CopyAsUTF8(const CSubStringRef& text)
{
    TString<128> converted;
    for (unsigned int position = 0; position < text.Length();) {
        const char* const at = text.Text() + position;
        const unsigned int bytes = Utf8SequenceLength(at, text.Length() - position);
        if (bytes != 0) {
            converted.AllocCopy(at, bytes);
            position += bytes;
        } else {
            const unsigned int character = static_cast<unsigned char>(*at);
            const char latin1[2] = {static_cast<char>(0xC0U | (character >> 6U)),
                                    static_cast<char>(0x80U | (character & 0x3FU))};
            converted.AllocCopy(latin1, sizeof latin1);
            ++position;
        }
    }
    Assign(converted.m_Text, converted.m_Length);
}

Output_Streams::CFormatStream CStringVar::Format(const char* format)
{
    return Output_Streams::CFormatStream(this, format);
}

void CStringVar::Assign(const char* text, unsigned int length)
{
    if (length > m_Capacity) {
        // A part of this string is no longer than the string: the text lies elsewhere.
        const unsigned int kept = m_Length;
        m_Length = 0;
        try {
            Alloc(length);
        } catch (...) {
            m_Length = kept;
            throw;
        }
    }
    if (m_Capacity == 0)
        return;
    std::memmove(m_Text, text, length);
    m_Length = length;
    m_Text[length] = '\0';
}

void CStringVar::MoveFrom(CStringVar& other)
{
    const CStorage initial = other.InitialStorage();
    if (other.m_Text == initial.m_Text) {
        Assign(other.m_Text, other.m_Length);
    } else {
        Release({other.m_Text, other.m_Capacity});
        m_Length = other.m_Length;
        other.m_Text = initial.m_Text;
        other.m_Capacity = initial.m_Capacity;
    }
    other.m_Length = 0;
    other.Clear();
}

void CStringVar::Release(CStorage next) noexcept
{
    // While a string is built or destroyed its storage is what the base class has, none.
    // NOLINTNEXTLINE(clang-analyzer-optin.cplusplus.VirtualCall)
    const char* const initial = InitialStorage().m_Text;
    if (m_Capacity != 0 && m_Text != initial)
        delete[] m_Text;
    m_Text = next.m_Text;
    m_Capacity = next.m_Capacity;
    m_Length = 0;
}

CSubStringVar CStringEx::Part(unsigned int first, unsigned int length)
{
    return {*this, first, length};
}

CSubStringVar::CSubStringVar(CStringVar& owner, unsigned int first, unsigned int length)
    : m_Owner(owner), m_First(std::min(first, owner.m_Length)),
      m_Length(std::min(length, owner.m_Length - m_First))
{}

void CSubStringVar::InsertReplace(const char* text, unsigned int n)
{
    if (text == nullptr)
        text = "";
    if (n == 0)
        n = CSubStringRef(text).Length();
    const unsigned int behind = m_First + m_Length;

    TString<128> result;
    result << CSubStringRef(m_Owner.m_Text, m_First) << CSubStringRef(text, n)
           << CSubStringRef(m_Owner.m_Text + behind, m_Owner.m_Length - behind);
    m_Owner = CStringRef(result);
    m_Length = n;
}

CSubStringVar::operator CSubStringRef() const
{
    return {m_Owner.m_Text + m_First, m_Length};
}

} // namespace Vorn::Strings
