#include <vornex/SystemLog.h>

#include <syslog.h>

#include <vornex/Module.h>

#include "../CallFrame.h"

namespace VornEx {

namespace {

constexpr const char* Source = "Src/Linux/SystemLogLinux.cpp";
constexpr unsigned int AlreadyOpenLine = 25;
constexpr unsigned int EmptyIdentityLine = 28;
constexpr unsigned int EmptyTextLine = 57;

Vorn::Exceptions::SOURCE_INFO g_OpenSource = {{0}, Source, 35};
Vorn::Exceptions::SOURCE_INFO g_ReportSource = {{0}, Source, 85};

const char* LineFormat(int priority)
{
    switch (priority) {
    case LOG_WARNING:
        return "[%d][Warning] %s";
    case LOG_DEBUG:
        return "[%d][Debug] %s";
    case LOG_ERR:
        return "[%d][Error] %s";
    default:
        return "[%d][Information] %s";
    }
}

// The line is the format, on purpose: see the header.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
void Write(int priority, const char* line)
{
    syslog(priority, line);
}
#pragma GCC diagnostic pop

} // namespace

CSystemLog_Lx::~CSystemLog_Lx()
{
    Close();
}

bool CSystemLog_Lx::Open(const Vorn::Strings::CStringRef& identity)
{
    Internals::WithContext(
        g_OpenSource, "CSystemLog::Open (%s)",
        [&](Internals::CCallFrame& frame) {
            if (m_Identity != Vorn::Strings::_TEmpty)
                frame.Raise(AlreadyOpenLine, LogAlreadyOpened);
            if (identity == Vorn::Strings::_TEmpty)
                frame.Raise(EmptyIdentityLine, InvalidParameter);
            m_Identity = identity;
        },
        identity);
    return true;
}

bool CSystemLog_Lx::Report(int number, int priority, const Vorn::Strings::CStringRef& text)
{
    Internals::WithContext(
        g_ReportSource, "CSystemLog::Report ()", [&](Internals::CCallFrame& frame) {
            if (text == Vorn::Strings::_TEmpty)
                frame.Raise(EmptyTextLine, InvalidParameter);
            Vorn::Strings::TString<16> line;
            line.Format(LineFormat(priority)).FormatInt(static_cast<unsigned int>(number)) << text;
            Write(priority, line.m_Text);
        });
    return true;
}

bool CSystemLog_Lx::Close()
{
    m_Identity.Clear();
    return true;
}

} // namespace VornEx
