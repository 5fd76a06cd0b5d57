// Tells the administrators that a job is done or has failed: through the system log, and by mail
// where a server is named.
//
//     notify STATUS TEXT                       # notify 0 "backup of 214 files"
//     notify STATUS TEXT SERVER:PORT ADDRESS   # ... 127.0.0.1:25 ann@example.org
//
// The status is the job's exit status.
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

void Log(unsigned int status, const std::string& text)
{
    VornEx::CSystemLog_Lx log;
    log.Report(static_cast<int>(status), status == 0 ? LOG_INFO : LOG_ERR, ForLog(text));
    std::printf("logged: [%u] %s\n", status, text.c_str());
}

// False when the mail was not taken, which is told here.
bool Mail(const std::string& server, const std::string& address, const std::string& text)
{
    // Nothing in a message may end a line of its header.
    if ((address + server).find_first_of("\r\n") != std::string::npos) {
        std::fputs("notify: a line break in an address\n", stderr);
        return false;
    }
    const std::size_t colon = server.rfind(':');
    const std::uint32_t port =
        colon == std::string::npos ? 25 : VornEx::atoui32(server.c_str() + colon + 1, 10);
    if (port > 0xFFFF) {
        std::fprintf(stderr, "notify: no port: %u\n", port);
        return false;
    }
    VornEx::CSmtp mail;
    mail.SetServer(server.substr(0, colon), static_cast<unsigned short>(port));
    mail.SetFrom(address, "notify");
    mail.AddTO(address);
    mail.SetSubject("A job has ended");
    mail.SetMessageBody(text);
    if (!mail.Send()) {
        std::fprintf(stderr, "notify: not mailed to %s, code %d\n", server.c_str(),
                     mail.GetLastError());
        return false;
    }
    std::printf("mailed: %s\n", address.c_str());
    return true;
}

} // namespace

int main(int count, char** words)
try {
    if (count != 3 && count != 5) {
        std::fputs("usage: notify STATUS TEXT [SERVER:PORT ADDRESS]\n", stderr);
        return 2;
    }
    Log(VornEx::atoui32(words[1], 10), words[2]);
    return count == 3 || Mail(words[3], words[4], words[2]) ? 0 : 1;
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
