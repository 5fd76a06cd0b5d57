// Format streams: printf-like formats whose fields are supplied one call after the other.
//
//     text.Format("[%d][%s]").FormatInt(7) << "disk full";
//
// Fields are %d %i %u %x %X %o %c %s with the flags "-", "+", blank, "#" and "0", a width and a
// precision ("%04x", "%-12.8s"); length letters (h, l, ll, z, j, t) are skipped; "%%" is a percent
// sign. Anything else behind a percent sign is no field and is written as it stands.
//
// Each call supplies the next field. What is supplied is never read as a format. A field that is
// not supplied by the time the stream is completed leaves nothing behind, and what is supplied
// beyond the last field is dropped. A text for a number field is written as text, a number for a
// text field in decimal, both under the field's width.
//
// A stream belongs to one thread, lives shortly, and completes its output when it is destroyed.
#pragma once

#include <vorn/Export.h>
#include <vorn/StringRef.h>

namespace Vorn::Exceptions {
class CException;
class CExceptionLog;
} // namespace Vorn::Exceptions

namespace Vorn::Output_Streams {

class CFormatStream;

namespace Base_Classes {

// What a format stream writes to. Output arrives in runs; the signals tell where a field begins
// and that the format is complete.
class VORN_EXPORT CFormatStreamBuffer
{
public:
    // Inline and empty: streams are unwound through while errors are raised.
    virtual ~CFormatStreamBuffer() = default;

    // A stream over this buffer, which must outlive it.
    CFormatStream Format(const char* format);

    // `length` bytes of text from byte `from` on.
    virtual void Write(const char* text, unsigned int from, unsigned int length) = 0;
    // The same byte `count` times.
    virtual void Fill(int character, unsigned int count) = 0;
    // The next output belongs to a field.
    virtual void SignalNewFormatField();
    // The format has been written whole; by default flushes.
    virtual void SignalFormatEnd();
    // Hands on what is collected. The argument is the number of bytes that the caller is about to
    // write, 0 for none: a buffer that collects nothing does nothing.
    virtual void Flush(unsigned int upcoming);
};

} // namespace Base_Classes

// Appends to a string.
class VORN_EXPORT CChrStreamBuffer : public Base_Classes::CFormatStreamBuffer
{
public:
    // A null string drops what is written.
    explicit CChrStreamBuffer(Strings::CStringVar* target) : m_Target(target) {}

    void Write(const char* text, unsigned int from, unsigned int length) override;
    void Fill(int character, unsigned int count) override;
    // Empties the string.
    void Reset();
    // Lets go of the string: what is written afterwards is dropped.
    void Release() { m_Target = nullptr; }

private:
    Strings::CStringVar* m_Target;
};

class VORN_EXPORT CFormatStream
{
public:
    // Format and buffer must outlive the stream.
    CFormatStream(Base_Classes::CFormatStreamBuffer& buffer, const char* format);
    // Appends to the string; a null string drops the output.
    CFormatStream(Strings::CStringVar* target, const char* format);
    CFormatStream(const CFormatStream&) = delete;
    CFormatStream& operator=(const CFormatStream&) = delete;
    // Writes the rest of the format and completes the output. Throws what the buffer throws, unless
    // an exception is on its way already; a stream of an error record never throws that, but raises
    // its error.
    // Inline, so that a raise leaves from the raising function and no frame more is unwound.
    // NOLINTNEXTLINE(bugprone-exception-escape): raising is what it is for
    ~CFormatStream() noexcept(false)
    {
        if (Complete())
            throw m_Raise;
    }

    // A number field; the value counts as signed when the field is %d or %i.
    CFormatStream& FormatInt(unsigned int value);
    // A text field; null counts as empty.
    CFormatStream& operator<<(const char* text);
    CFormatStream& operator<<(const Strings::CSubStringRef& text);

private:
    friend class Exceptions::CException;
    friend class Exceptions::CExceptionLog;
    struct CField;

    // A text of an error record: best effort, then the code is raised, 0 for none.
    CFormatStream(Strings::CStringVar* text, const char* format, unsigned int raise);

    // True when the stream's error is to be raised.
    bool Complete();
    // Writes literal text up to the next field; false when the format holds no further one.
    bool NextField(CField& field);
    void Put(const CField& field, const char* prefix, unsigned int zeros, const char* text,
             unsigned int length);
    void PutNumber(const CField& field, unsigned int value);

    CChrStreamBuffer m_StringBuffer;
    Base_Classes::CFormatStreamBuffer* m_Buffer;
    const char* m_Format;
    bool m_OfRecord = false;
    unsigned int m_Raise = 0;
    int m_Unwinding = 0;
};

} // namespace Vorn::Output_Streams
