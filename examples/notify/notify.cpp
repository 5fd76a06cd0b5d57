// Tells the administrators that a job is done or has failed, through the system log.
//
//     notify STATUS TEXT        # notify 0 "backup of 214 files"
//
// The status is the job's exit status, a number from 0 to 255.
#include <cstdio>
#include <exception>
#include <string>

#include <syslog.h>
#include <vornex/vornex.h>

namespace {

// A text that the log takes as it is: percent signs would be read as syslog(3)'s formats.
std::string ForLog(const std::string& text)
{
    std::string escaped;
    for (const char character : text)
        escaped.append(character == '%' ? 2 : 1, character);
    return escaped;
}

int Notify(const char* statusText, const std::string& text)
{
    const unsigned int status = VornEx::atoui32(statusText, 10);
    VornEx::CSystemLog_Lx log;
    log.Report(static_cast<int>(status), status == 0 ? LOG_INFO : LOG_ERR, ForLog(text));
    std::printf("logged: [%u] %s\n", status, text.c_str());
    return 0;
}

} // namespace

int main(int count, char** words)
try {
    if (count != 3) {
        std::fputs("usage: notify STATUS TEXT\n", stderr);
        return 2;
    }
    return Notify(words[1], words[2]);
} catch (unsigned int code) {
    // What the library raises is a code; what belongs to it is in the thread's record.
    const auto& error = Vorn::Exceptions::LastError();
    std::fprintf(stderr, "notify: %s (0x%08X)\n", error.Message().m_Text, code);
    for (const auto& line : error.Context())
        std::fprintf(stderr, "  in %s\n", line.m_Text.m_Text);
    return 1;
} catch (const std::exception& problem) {
    std::fprintf(stderr, "notify: %s\n", problem.what());
    return 1;
}
