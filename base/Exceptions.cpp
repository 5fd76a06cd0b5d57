// The error record, raising and continuing. How a raise decides whether to leave is Threading.cpp.
#include <vorn/Exceptions.h>

#include <cstdint>
#include <exception>

#include <vorn/ModuleInfo.h>
#include <vorn/Threading.h>

namespace Vorn::Exceptions {

namespace {

// Enough for every path of ours; one allocation in a thread's life.
constexpr std::size_t UsualContextLines = 4;

CErrorRecord& ThreadRecord()
{
    thread_local CErrorRecord record;
    return record;
}

void Leave(void* code)
{
    if (!Threading::Declines())
        throw static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(code));
}

} // namespace

Strings::CStringVar CErrorRecord::Message() const
{
    return Misc::ErrorMessage(m_Code);
}

void CErrorRecord::Begin(unsigned int code, unsigned int line)
{
    m_Code = code;
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
    void* const argument = reinterpret_cast<void*>( // NOLINT(performance-no-int-to-ptr)
        static_cast<std::uintptr_t>(code));
    return Output_Streams::CFormatStream(&record.m_Detail, detailFormat, Leave, argument);
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
    return Output_Streams::CFormatStream(
        text, format, [](void*) {}, nullptr);
}

void CExceptionLog::Throw()
{
    if (Threading::Declines())
        return;
    if (std::current_exception() != nullptr)
        throw;
    throw ThreadRecord().Code();
}

} // namespace Vorn::Exceptions
