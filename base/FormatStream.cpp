#include <vorn/FormatStream.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <exception>

#include <vorn/StringVar.h>
#include <vorn/Threading.h>

namespace Vorn::Output_Streams {

// One field of a format, as it was written there.
struct CFormatStream::CField
{
    bool m_Left = false;
    bool m_Plus = false;
    bool m_Blank = false;
    bool m_Alternate = false;
    bool m_Zero = false;
    unsigned int m_Width = 0;
    unsigned int m_Precision = 0;
    bool m_HasPrecision = false;
    char m_Conversion = '\0';
};

namespace {

bool IsDigit(char character)
{
    return character >= '0' && character <= '9';
}

// Widths and precisions above this are taken as this: no line of ours is longer, and a wild format
// must not fill the memory.
constexpr unsigned int MaxWidth = 4096;

unsigned int ReadCount(const char*& at)
{
    unsigned int count = 0;
    for (; IsDigit(*at); ++at)
        count = std::min(count * 10 + static_cast<unsigned int>(*at - '0'), MaxWidth);
    return count;
}

// Runs body(). In an error record's stream what it throws costs the rest of the text only.
template <class Body>
inline void Guarded(bool ofRecord, CChrStreamBuffer& text, Body body)
{
    try {
        body();
    } catch (...) {
        if (!ofRecord)
            throw;
        text.Release();
    }
}

} // namespace

namespace Base_Classes {

CFormatStream CFormatStreamBuffer::Format(const char* format)
{
    return CFormatStream(*this, format);
}

void CFormatStreamBuffer::SignalNewFormatField() {}

void CFormatStreamBuffer::SignalFormatEnd()
{
    Flush(0);
}

void CFormatStreamBuffer::Flush(unsigned int /*upcoming*/) {}

} // namespace Base_Classes

void CChrStreamBuffer::Write(const char* text, unsigned int from, unsigned int length)
{
    if (m_Target != nullptr && length != 0)
        m_Target->AllocCopy(text + from, length);
}

void CChrStreamBuffer::Fill(int character, unsigned int count)
{
    if (m_Target == nullptr)
        return;
    m_Target->Alloc(m_Target->m_Length + count);
    const char byte = static_cast<char>(character);
    for (; count != 0; --count)
        m_Target->AllocCopy(&byte, 1);
}

void CChrStreamBuffer::Reset()
{
    if (m_Target != nullptr)
        m_Target->Clear();
}

CFormatStream::CFormatStream(Base_Classes::CFormatStreamBuffer& buffer, const char* format)
    : m_StringBuffer(nullptr), m_Buffer(&buffer), m_Format(format != nullptr ? format : ""),
      m_Unwinding(std::uncaught_exceptions())
{}

CFormatStream::CFormatStream(Strings::CStringVar* target, const char* format)
    : m_StringBuffer(target), m_Buffer(&m_StringBuffer), m_Format(format != nullptr ? format : ""),
      m_Unwinding(std::uncaught_exceptions())
{}

CFormatStream::CFormatStream(Strings::CStringVar* text, const char* format, unsigned int raise)
    : CFormatStream(text, format)
{
    m_OfRecord = true;
    m_Raise = raise;
}

bool CFormatStream::Complete()
{
    const bool unwinding = std::uncaught_exceptions() > m_Unwinding;
    try {
        CField field;
        while (NextField(field)) {
        }
        m_Buffer->SignalFormatEnd();
    } catch (...) {
        if (!unwinding && !m_OfRecord)
            throw;
    }
    return m_Raise != 0 && !unwinding && !Threading::Declines();
}

CFormatStream& CFormatStream::FormatInt(unsigned int value)
{
    Guarded(m_OfRecord, m_StringBuffer, [&] {
        CField field;
        if (NextField(field))
            PutNumber(field, value);
    });
    return *this;
}

CFormatStream& CFormatStream::operator<<(const char* text)
{
    return *this << Strings::CSubStringRef(text);
}

CFormatStream& CFormatStream::operator<<(const Strings::CSubStringRef& text)
{
    Guarded(m_OfRecord, m_StringBuffer, [&] {
        CField field;
        if (!NextField(field))
            return;
        // A precision cuts text, but in a number field it means digits.
        unsigned int length = text.Length();
        if (field.m_HasPrecision && field.m_Conversion == 's')
            length = std::min(length, field.m_Precision);
        field.m_Zero = false;
        Put(field, "", 0, text.Text(), length);
    });
    return *this;
}

bool CFormatStream::NextField(CField& field)
{
    for (;;) {
        const char* const percent = std::strchr(m_Format, '%');
        const auto literal = percent != nullptr ? static_cast<std::size_t>(percent - m_Format)
                                                : std::strlen(m_Format);
        if (literal != 0)
            m_Buffer->Write(m_Format, 0, static_cast<unsigned int>(literal));
        m_Format += literal;
        if (percent == nullptr)
            return false;

        field = CField();
        const char* at = percent + 1;
        for (bool flag = true; flag;) {
            switch (*at) {
            case '-':
                field.m_Left = true;
                break;
            case '+':
                field.m_Plus = true;
                break;
            case ' ':
                field.m_Blank = true;
                break;
            case '#':
                field.m_Alternate = true;
                break;
            case '0':
                field.m_Zero = true;
                break;
            default:
                flag = false;
                continue;
            }
            ++at;
        }
        field.m_Width = ReadCount(at);
        if (*at == '.') {
            ++at;
            field.m_HasPrecision = true;
            field.m_Precision = ReadCount(at);
        }
        while (*at != '\0' && std::strchr("hlzjt", *at) != nullptr)
            ++at;

        if (*at != '\0' && std::strchr("diuxXocs", *at) != nullptr) {
            field.m_Conversion = *at;
            m_Format = at + 1;
            m_Buffer->SignalNewFormatField();
            return true;
        }
        if (*at == '%' && at == percent + 1) {
            m_Buffer->Write(at, 0, 1);
            m_Format = at + 1;
        } else {
            m_Buffer->Write(percent, 0, 1);
            m_Format = percent + 1;
        }
    }
}

void CFormatStream::Put(const CField& field, const char* prefix, unsigned int zeros,
                        const char* text, unsigned int length)
{
    const auto prefixLength = static_cast<unsigned int>(std::strlen(prefix));
    const unsigned long long content = 0ULL + prefixLength + zeros + length;
    const unsigned int padding =
        field.m_Width > content ? static_cast<unsigned int>(field.m_Width - content) : 0;

    const bool zeroPadded = field.m_Zero && !field.m_Left;
    if (padding != 0 && !field.m_Left && !zeroPadded)
        m_Buffer->Fill(' ', padding);
    m_Buffer->Write(prefix, 0, prefixLength);
    if (zeroPadded)
        zeros += padding;
    if (zeros != 0)
        m_Buffer->Fill('0', zeros);
    m_Buffer->Write(text, 0, length);
    if (padding != 0 && field.m_Left)
        m_Buffer->Fill(' ', padding);
}

void CFormatStream::PutNumber(const CField& given, unsigned int value)
{
    CField field = given;
    if (field.m_Conversion == 'c') {
        const char character = static_cast<char>(value);
        field.m_Zero = false;
        Put(field, "", 0, &character, 1);
        return;
    }

    const bool isSigned = std::strchr("dis", field.m_Conversion) != nullptr;
    const bool negative = isSigned && value > static_cast<unsigned int>(INT_MAX);
    const int base = field.m_Conversion == 'x' || field.m_Conversion == 'X' ? 16
                     : field.m_Conversion == 'o'                            ? 8
                                                                            : 10;
    char digits[16];
    char* end =
        std::to_chars(digits, digits + sizeof digits, negative ? 0U - value : value, base).ptr;
    if (field.m_Conversion == 'X')
        std::transform(digits, end, digits, [](char digit) {
            return digit >= 'a' ? static_cast<char>(digit - 'a' + 'A') : digit;
        });

    auto length = static_cast<unsigned int>(end - digits);
    unsigned int zeros = 0;
    if (field.m_HasPrecision && field.m_Conversion != 's') {
        field.m_Zero = false;
        if (field.m_Precision == 0 && value == 0)
            length = 0;
        zeros = field.m_Precision > length ? field.m_Precision - length : 0;
    }

    const char* prefix = "";
    if (negative)
        prefix = "-";
    else if (isSigned && field.m_Plus)
        prefix = "+";
    else if (isSigned && field.m_Blank)
        prefix = " ";
    else if (field.m_Alternate && base == 16 && value != 0)
        prefix = field.m_Conversion == 'x' ? "0x" : "0X";
    if (field.m_Alternate && base == 8 && zeros == 0 && (length == 0 || digits[0] != '0'))
        zeros = 1;
    Put(field, prefix, zeros, digits, length);
}

} // namespace Vorn::Output_Streams
