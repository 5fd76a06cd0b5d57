// Raising errors, adding context to them, and reading what happened.
//
// The language exception that travels is an `unsigned int`, the error's code: 0x2 in the top four
// bits, the module number in bits 16 to 27, the error number in the low sixteen. What belongs to
// it - line, message, detail, context - stays in a record of the raising thread:
//
//     try {
//         port = VornEx::atoui32(text, 10);
//     } catch (unsigned int) {
//         const auto& error = Vorn::Exceptions::LastError();
//         report(error.Message(), error.Context().front().m_Text);
//     }
//
// A raise can decline: while a Threading::CThrowDisable lives on the thread, and while an exception
// is unwinding it (so that a raise in a destructor never ends the program). The error is recorded
// all the same, nothing leaves, and control comes back to the code after the raise.
#pragma once

#include <atomic>
#include <vector>

#include <vorn/Export.h>
#include <vorn/FormatStream.h>
#include <vorn/StringVar.h>

namespace Vorn::Exceptions {

// A place that adds context to a passing error. Static, writable data, one a catching function.
struct SOURCE_INFO
{
    std::atomic<unsigned int> m_Passed; // how many errors have passed here; starts at 0
    const char* m_Source;               // source path, such as "Src/Str2Num.cpp"
    unsigned int m_Line;
};

// One line of context: which function an error passed through, and on what input.
struct CContextLine
{
    const char* m_Source = "";
    unsigned int m_Line = 0;
    Strings::TString<64> m_Text;
};

// The newest error of a thread.
class VORN_EXPORT CErrorRecord
{
public:
    // 0 when nothing was raised on this thread yet.
    unsigned int Code() const { return m_Code; }
    // How many errors the thread has raised, this one included: tells after a call whether it
    // raised where throwing is disabled.
    unsigned int Number() const { return m_Number; }
    // The source line of the raise.
    unsigned int Line() const { return m_Line; }
    // The text of the code, translated where the host's locale has a catalogue (ModuleInfo.h).
    Strings::CStringVar Message() const;
    // What the raise added; often empty.
    const Strings::CStringVar& Detail() const { return m_Detail; }
    // Innermost first.
    const std::vector<CContextLine>& Context() const { return m_Context; }

private:
    friend class CException;
    friend class CExceptionLog;
    void Begin(unsigned int code, unsigned int line);

    unsigned int m_Code = 0;
    unsigned int m_Number = 0;
    unsigned int m_Line = 0;
    Strings::TString<64> m_Detail;
    std::vector<CContextLine> m_Context;
};

// The calling thread's record. The reference is valid on this thread until the thread ends; the
// content until the next raise on it.
VORN_EXPORT const CErrorRecord& LastError();

// An error about to be raised, carrying the line of the failing test.
class VORN_EXPORT CException
{
public:
    explicit CException(unsigned int line) : m_Line(line) {}

    // Records the error. The stream returned takes a detail text, by default one "%s"; when it is
    // completed the code leaves as an `unsigned int`, unless the raise declines. Allocation failure
    // while recording costs the text, never the error.
    Output_Streams::CFormatStream Throw(unsigned int code, const char* detailFormat = "%s");

private:
    unsigned int m_Line;
};

// A passing error that gets one more line of context.
class VORN_EXPORT CExceptionLog
{
public:
    explicit CExceptionLog(SOURCE_INFO& source);

    // The text of this line of context.
    Output_Streams::CFormatStream Format(const char* format);
    // Raises the error that is being handled again; comes back when the raise declines, and when
    // none is being handled. Inline, so that there is no frame more to unwind.
    void Throw()
    {
        if (Leaves())
            throw;
    }

private:
    // True while an error is being handled and raises do not decline.
    static bool Leaves();

    SOURCE_INFO& m_Source;
};

} // namespace Vorn::Exceptions
