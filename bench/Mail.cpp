// A message of 2 KB to a local sink, one connection each: CSmtp::Send beside the same calls of
// libetpan, libcurl with a fresh connection, and a bare socket that says the least it has to. Then
// a delivery with STARTTLS to a real server, where VORNEX_POSTFIX says that there is one
// (tests/with-postfix.sh).
#include "Allocations.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>

#include <arpa/inet.h>
#include <csignal>
#include <curl/curl.h>
#include <libetpan/libetpan.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vornex/Smtp.h>

namespace {

constexpr int Messages = 1000;
constexpr unsigned short PostfixPort = 2587;
constexpr const char* From = "from@probe.test";
constexpr const char* To = "to@probe.test";

const std::string& Body()
{
    static const std::string body = [] {
        std::string text;
        while (text.size() < 2048 - 64)
            text += "What happened stands here in lines of the usual length, sixty-four.\r\n";
        return text;
    }();
    return body;
}

// The message as Send makes it, as a host would that makes its own.
std::string WholeMessage()
{
    const std::time_t now = std::time(nullptr);
    const std::tm* const local = std::localtime(&now);
    char date[64];
    std::strftime(date, sizeof date, "Date: %a,\t%d %b %Y %H:%M:%S +0000\r\n", local);
    return date + ("From:  <" + std::string(From)) + ">\r\nX-Priority: 3 (Normal)\r\nTo: <" + To +
           ">\r\nSubject: Benchmark\r\nMIME-Version: 1.0\r\n"
           "Content-type: text/plain; charset=US-ASCII\r\n"
           "Content-Transfer-Encoding: 7bit\r\n\r\n" +
           Body() + "\r\n";
}

int ConnectTo(unsigned short port)
{
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
        return descriptor;
    close(descriptor);
    return -1;
}

// Postfix's sink, which takes everything, as long as the program runs.
class CSink
{
public:
    CSink()
    {
        m_Port = static_cast<unsigned short>(20000 + getpid() % 20000);
        std::string place = "127.0.0.1:" + std::to_string(m_Port);
        std::string backlog = "100";
        std::string option = "-u";
        std::string user = "nobody";
        std::string name = "smtp-sink";
        char* const asRoot[] = {name.data(),  option.data(),  user.data(),
                                place.data(), backlog.data(), nullptr};
        char* const asUser[] = {name.data(), place.data(), backlog.data(), nullptr};
        if (posix_spawn(&m_Child, "/usr/sbin/smtp-sink", nullptr, nullptr,
                        getuid() == 0 ? asRoot : asUser, environ) != 0)
            return;
        for (int tries = 0; tries < 200; ++tries, usleep(10000)) {
            const int descriptor = ConnectTo(m_Port);
            if (descriptor >= 0) {
                close(descriptor);
                return;
            }
        }
    }
    CSink(const CSink&) = delete;
    CSink& operator=(const CSink&) = delete;
    ~CSink()
    {
        if (m_Child > 0) {
            kill(m_Child, SIGTERM);
            waitpid(m_Child, nullptr, 0);
        }
    }

    unsigned short m_Port = 0;

private:
    pid_t m_Child = -1;
};

unsigned short SinkPort()
{
    static const CSink sink;
    return sink.m_Port;
}

bool Ours(unsigned short port)
{
    VornEx::CSmtp mail;
    mail.SetServer("127.0.0.1", port);
    mail.SetFrom(From);
    mail.AddTO(To);
    mail.SetSubject("Benchmark");
    mail.SetMessageBody(Body());
    return mail.Send();
}

// The calls that Send makes, and what they need.
bool BareCalls(unsigned short port)
{
    mailsmtp* const session = mailsmtp_new(0, nullptr);
    bool good =
        mailsmtp_socket_connect(session, "127.0.0.1", port) == 0 && mailesmtp_ehlo(session) == 0;
    if (good && mailesmtp_starttls(session) == 0) {
        mailstream_low* const plain = mailstream_get_low(session->stream);
        mailstream_low* const tls = mailstream_low_tls_open(mailstream_low_get_fd(plain));
        good = tls != nullptr;
        if (good) {
            mailstream_low_free(plain);
            mailstream_set_low(session->stream, tls);
        }
    }
    const std::string message = WholeMessage();
    good = good && mailesmtp_ehlo(session) == 0 &&
           mailesmtp_mail(session, From, 1, "__MESSAGE__ID__54yg6f6h6y456345") == 0 &&
           mailesmtp_rcpt(session, To, 6, nullptr) == 0 && mailsmtp_data(session) == 0 &&
           mailsmtp_data_message(session, message.data(), message.size()) == 0;
    mailsmtp_free(session);
    return good;
}

std::size_t Upload(char* buffer, std::size_t size, std::size_t count, void* rest)
{
    auto& text = *static_cast<std::string_view*>(rest);
    const std::size_t length = std::min(size * count, text.size());
    std::memcpy(buffer, text.data(), length);
    text.remove_prefix(length);
    return length;
}

bool Curl(unsigned short port)
{
    CURL* const curl = curl_easy_init();
    curl_slist* const recipients = curl_slist_append(nullptr, "<to@probe.test>");
    const std::string message = WholeMessage();
    std::string_view rest = message;
    const std::string url = "smtp://127.0.0.1:" + std::to_string(port);
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_MAIL_FROM, "<from@probe.test>");
    curl_easy_setopt(curl, CURLOPT_MAIL_RCPT, recipients);
    curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(curl, CURLOPT_READFUNCTION, Upload);
    curl_easy_setopt(curl, CURLOPT_READDATA, &rest);
    curl_easy_setopt(curl, CURLOPT_FRESH_CONNECT, 1L);
    curl_easy_setopt(curl, CURLOPT_FORBID_REUSE, 1L);
    const bool good = curl_easy_perform(curl) == CURLE_OK;
    curl_slist_free_all(recipients);
    curl_easy_cleanup(curl);
    return good;
}

bool BareSocket(unsigned short port)
{
    const int descriptor = ConnectTo(port);
    const auto say = [descriptor](const std::string& text, char expected) {
        if (!text.empty() && send(descriptor, text.data(), text.size(), 0) < 0)
            return false;
        char reply[4096];
        ssize_t length = 0;
        for (;;) {
            const ssize_t got = recv(descriptor, reply + length,
                                     sizeof reply - static_cast<std::size_t>(length), 0);
            if (got <= 0)
                return false;
            length += got;
            // The last line is the one with a blank behind its code.
            ssize_t line = length - 2;
            while (line > 0 && reply[line - 1] != '\n')
                --line;
            if (reply[length - 1] == '\n' && reply[line + 3] == ' ')
                return reply[line] == expected;
        }
    };
    const bool good = say("", '2') && say("EHLO bench\r\n", '2') &&
                      say("MAIL FROM:<from@probe.test>\r\n", '2') &&
                      say("RCPT TO:<to@probe.test>\r\n", '2') && say("DATA\r\n", '3') &&
                      say(WholeMessage() + ".\r\n", '2') && say("QUIT\r\n", '2');
    close(descriptor);
    return good;
}

void Run(benchmark::State& state, bool (*send)(unsigned short), unsigned short (*port)())
{
    const unsigned short to = port();
    bool good = send(to);
    Measure(state, [&] { good = send(to) && good; });
    if (!good)
        state.SkipWithError("a message was not delivered");
    state.SetItemsProcessed(state.iterations());
}

unsigned short Postfix()
{
    return PostfixPort;
}

const bool g_Registered = [] {
    curl_global_init(CURL_GLOBAL_ALL);
    const struct
    {
        const char* m_Name;
        bool (*m_Send)(unsigned short);
    } rows[] = {{"vornex", Ours},
                {"libetpan", BareCalls},
                {"libcurl", Curl},
                {"limit: bare socket", BareSocket}};
    for (const auto& row : rows)
        benchmark::RegisterBenchmark((std::string("mail of 2 KB/") + row.m_Name).c_str(), Run,
                                     row.m_Send, SinkPort)
            ->Iterations(Messages)
            ->MeasureProcessCPUTime()
            ->UseRealTime();
    if (std::getenv("VORNEX_POSTFIX") != nullptr)
        for (const auto& row : {rows[0], rows[1]})
            benchmark::RegisterBenchmark(
                (std::string("mail of 2 KB, STARTTLS/") + row.m_Name).c_str(), Run, row.m_Send,
                Postfix)
                ->Iterations(20)
                ->MeasureProcessCPUTime()
                ->UseRealTime();
    return true;
}();

} // namespace
