// Numbered, severity-tagged messages to the Linux system log.
//
//     VornEx::CSystemLog_Lx log;
//     log.Report(12, LOG_ERR, "disk full");        // [12][Error] disk full
//
// Beware of percent signs. The finished line is handed to syslog(3) as its format, so a percent
// sign in the text is interpreted there, and "%s" or "%n" from outside is an attack. That is how
// the service is meant. Whoever logs text that is not his own doubles every percent sign first
// ("100%" becomes "100%%").
//
// What it does not do: it never calls openlog(3) or closelog(3); identity, facility and options
// are the process's own affair, and the identity given to Open never reaches the log.
#pragma once

#include <vorn/Export.h>
#include <vorn/StringVar.h>

namespace VornEx {

// One thread at a time an object. Copying copies the open mark.
class VORN_EXPORT CSystemLog_Lx
{
public:
    CSystemLog_Lx() = default;
    CSystemLog_Lx(const CSystemLog_Lx&) = default;
    CSystemLog_Lx& operator=(const CSystemLog_Lx&) = default;
    ~CSystemLog_Lx();

    // Marks the log as open. Raises LogAlreadyOpened when it is, InvalidParameter for an empty
    // identity, with the context "CSystemLog::Open (identity)". Always true; where throwing is
    // disabled the identity is stored in spite of the error.
    bool Open(const Vorn::Strings::CStringRef& identity);

    // Writes "[number][severity] text" at a priority of syslog(3), passed on unchanged: LOG_ERR
    // (3) is an Error, LOG_WARNING (4) a Warning, LOG_DEBUG (7) Debug, all others Information.
    // Writes whether the log is open or not. Raises InvalidParameter for an empty text, with the
    // context "CSystemLog::Report ()". Always true; where throwing is disabled the empty message
    // is written.
    bool Report(int number, int priority, const Vorn::Strings::CStringRef& text);

    // Marks the log as closed, which it may be already. Always true, never raises.
    bool Close();

private:
    friend struct CLayoutCheck;            // Src/Layout.cpp
    Vorn::Strings::TString<64> m_Reserved; // kept empty
    Vorn::Strings::TString<64> m_Identity; // empty means closed
};

} // namespace VornEx
