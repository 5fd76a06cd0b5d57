// The error record, raising and continuing. How a raise decides whether to leave is Threading.cpp;
// where it leaves is the end of a format stream, FormatStream.cpp.
#include <vorn/Exceptions.h>

#include <new>

#include <cxxabi.h>

#include <vorn/ModuleInfo.h>
#include <vorn/Threading.h>

namespace Vorn::Exceptions {

namespace {

// Enough for every path of ours; one allocation in a thread's life.
constexpr std::size_t UsualContextLines = 4;

// The thread's record is made anew when it is needed after its destruction: static objects are
// destroyed after the main thread's thread-local ones, and may raise.
alignas(CErrorRecord) thread_local unsigned char t_Storage[sizeof(CErrorRecord)];
thread_local CErrorRecord* t_Record = nullptr;

CErrorRecord& NewThreadRecord()
{
    struct CEndOfThread
    {
        ~CEndOfThread()
        {
            t_Record->~CErrorRecord();
            t_Record = nullptr;
        }
    };
    t_Record = new (t_Storage) CErrorRecord();
    thread_local const CEndOfThread end;
    return *t_Record;
}

CErrorRecord& ThreadRecord()
{
    return t_Record != nullptr ? *t_Record : NewThreadRecord();
}

} // namespace

Strings::CStringVar CErrorRecord::Message() const
{
    return Misc::ErrorMessage(m_Code);
}

void CErrorRecord::Begin(unsigned int code, unsigned int line)
{
    m_Code = code;
    ++m_Number;
    m_Line = line;
    m_Detail.Clear();
    m_Context.clear();
}

const CErrorRecord& LastError()
{
    return ThreadRecord();
}

Output_Streams::CFormatStream CException::Throw(unsigned int code, const char* detailFormat)
{
    CErrorRecord& record = ThreadRecord();
    record.Begin(code, m_Line);
    return Output_Streams::CFormatStream(&record.m_Detail, detailFormat, code);
}

CExceptionLog::CExceptionLog(SOURCE_INFO& source) : m_Source(source)
{
    m_Source.m_Passed.fetch_add(1, std::memory_order_relaxed);
}

Output_Streams::CFormatStream CExceptionLog::Format(const char* format)
{
    CErrorRecord& record = ThreadRecord();
    Strings::CStringVar* text = nullptr;
    try {
        if (record.m_Context.capacity() == 0)
            record.m_Context.reserve(UsualContextLines);
        CContextLine& line = record.m_Context.emplace_back();
        line.m_Source = m_Source.m_Source;
        line.m_Line = m_Source.m_Line;
        text = &line.m_Text;
    } catch (const std::bad_alloc&) {
        // The error matters more than where it passed: the line is dropped.
    }
    return Output_Streams::CFormatStream(text, format, 0U);
}

bool CExceptionLog::Leaves()
{
    return !Threading::Declines() && abi::__cxa_current_exception_type() != nullptr;
}

} // namespace Vorn::Exceptions
