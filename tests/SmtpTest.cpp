// Mail: what a message consists of, and how a delivery goes with servers of every kind.
#include <chrono>
#include <memory>
#include <regex>
#include <thread>

#include <dlfcn.h>
#include <libetpan/libetpan.h>
#include <sys/resource.h>

#include <vornex/Smtp.h>

#include "CapturedTrace.h"
#include "DataTable.h"
#include "ScratchFolder.h"
#include "SmtpServer.h"

namespace {

bool g_NoSession = false;
std::time_t g_Now = 0;

} // namespace

extern "C" mailsmtp* mailsmtp_new(std::size_t rate, progress_function* function)
{
    using Make = mailsmtp* (*)(std::size_t, progress_function*);
    static const auto make = reinterpret_cast<Make>(dlsym(RTLD_NEXT, "mailsmtp_new"));
    return g_NoSession ? nullptr : make(rate, function);
}

extern "C" std::time_t time(std::time_t* result) noexcept
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::time_t value = g_Now != 0 ? g_Now : now.tv_sec;
    if (result != nullptr)
        *result = value;
    return value;
}

namespace {

using VornEx::CSmtp;

// Does what pairs of columns say of a message, and gives the column behind "->".
std::size_t Apply(const CDataRow& row, CSmtp& mail)
{
    using Text = const std::string&;
    static const std::map<std::string, void (*)(CSmtp&, Text)> Steps = {
        {"FROM", [](CSmtp& to, Text value) { to.SetFrom(value); }},
        {"FROM-NAME", [](CSmtp& to, Text value) { to.SetFrom("g@x", value); }},
        {"TO", [](CSmtp& to, Text value) { EXPECT_TRUE(to.AddTO(value)); }},
        {"TO-NAME", [](CSmtp& to, Text value) { EXPECT_TRUE(to.AddTO("A@x", value)); }},
        {"CC", [](CSmtp& to, Text value) { EXPECT_TRUE(to.AddCC(value)); }},
        {"BCC", [](CSmtp& to, Text value) { EXPECT_TRUE(to.AddBCC(value)); }},
        {"SUBJECT", [](CSmtp& to, Text value) { to.SetSubject(value); }},
        {"MAILER", [](CSmtp& to, Text value) { to.SetXMailer(value); }},
        {"REPLY", [](CSmtp& to, Text value) { to.SetReplyTo(value); }},
        {"PRIORITY",
         [](CSmtp& to, Text value) { to.SetXPriority(VornEx::CSmtpXPriority(value[0] - '0')); }},
        {"NEW", [](CSmtp& to, Text) { to = CSmtp(); }},
        {"ZONE", [](CSmtp&, Text value) { setenv("TZ", value.c_str(), 1); }},
        {"BODY", [](CSmtp& to, Text value) { to.SetMessageBody(value); }},
        {"USER", [](CSmtp& to, Text value) { to.SetUserName(value); }},
        {"PASSWORD", [](CSmtp& to, Text value) { to.SetPassword(value); }}};
    std::size_t at = 0;
    for (; row[at] != "->"; at += 2)
        Steps.at(row[at])(mail, row[at + 1]);
    return at + 1;
}

TEST(Smtp, Headers)
{
    g_Now = 1700000000;
    setenv("TZ", "UTC0", 1);
    CSmtp mail;
    EachRow("smtp", "headers", [&mail](const CDataRow& row) {
        const std::size_t at = Apply(row, mail);
        Vorn::Strings::TString<16> header;
        EXPECT_EQ(mail.FormatHeader(header), row.Size() > at + 1);
        EXPECT_EQ(mail.GetLastError(), row.Number(at));
        std::string expected;
        for (const auto& line : row.From(at + 1))
            expected += line + "\r\n";
        if (!expected.empty())
            expected += "MIME-Version: 1.0\r\nContent-type: text/plain; charset=US-ASCII\r\n"
                        "Content-Transfer-Encoding: 7bit\r\n\r\n";
        EXPECT_EQ(std::string(header), expected);
    });
    g_Now = 0;
}

TEST(Smtp, Recipients)
{
    CCapturedTrace trace(0x12);
    CSmtp mail;
    EXPECT_FALSE(mail.AddCC(""));
    EXPECT_FALSE(mail.AddBCC("a", ""));
    EXPECT_FALSE(mail.AddTO("", "n"));
    EXPECT_EQ(mail.GetLastError(), VornEx::CSMTP_ERROR_NO_RECIPIENT_MAIL);
    EXPECT_TRUE(mail.AddBCC(" a ", "n"));
    EXPECT_TRUE(mail.AddCC("b "));
    EXPECT_EQ(trace.m_Texts, Words("smtp", "traces of recipients"));

    Vorn::Strings::TString<16> text;
    text << Vorn::Strings::CSubStringRef("\0 a \0\n \0", 8);
    mail.Trim(text, text); // in place; a NUL in front stays
    EXPECT_EQ(std::string_view(text), std::string_view("\0 a", 3));
    EXPECT_EQ(mail.TranslateEtPanToESmtp(27), 27);
    EXPECT_EQ(mail.TranslateEtPanToESmtp(28), 0);
    EXPECT_EQ(mail.TranslateEtPanToESmtp(-1), 0);
}

// A message for a server on loopback.
void Fill(CSmtp& mail, unsigned short port)
{
    mail.SetServer("127.0.0.1", port);
    mail.SetFrom("from@x");
    mail.AddTO("to1@x,to2@x");
    mail.AddCC("cc@x");
    mail.AddBCC("bcc@x");
    mail.SetSubject("S");
    mail.SetMessageBody("b");
    mail.SetUserName("u");
    mail.SetPassword("p");
}

// The first words of what the server saw.
std::string SeenBy(CSmtpServer& server)
{
    std::string words;
    std::istringstream lines(server.Seen());
    for (std::string line; std::getline(lines, line);)
        if (line.find('\r') == std::string::npos && !line.empty())
            words += (words.empty() ? "" : " ") + line.substr(0, line.find(' '));
    return words;
}

// The host's signal mask is looked at.
class CDelivery : public testing::Test
{
protected:
    CDelivery() { mailstream_network_delay = {20, 0}; }
    ~CDelivery() override
    {
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        EXPECT_EQ(sigismember(&mask, SIGPIPE), 0);
    }
};

// What STARTTLS leaves in the trace that fails with this code.
std::string TlsTrace(const std::string& code)
{
    const std::string begin = "StartSmtpTls () -> ";
    const std::string end = "Send () -> StartSmtpTls failed " + code + "; continue|";
    return code == "-"   ? ""
           : code == "8" ? begin + "mailstream_low_tls_open failed; continue|" + begin +
                               "mailstream_low_ssl_open failed|" + end
                         : begin + "mailesmtp_starttls failed " + code + "|" + end;
}

TEST_F(CDelivery, Scenarios)
{
    EachRow("smtp", "scenarios", [&](const CDataRow& row) {
        CSmtp mail;
        Fill(mail, 0);
        const std::size_t first = Apply(row, mail);
        CAnswers answers;
        std::size_t at = first + 4;
        for (; row[at] != "SEEN"; at += 2)
            answers[row[at] == "GREETING" ? "" : row[at]] = row[at + 1];
        const std::string seen = row.Rest(at + 1);
        // Only where a server is mute a wait is to end, which a busy machine must not bring about.
        const bool mute = std::any_of(answers.begin(), answers.end(), [](const auto& answer) {
            return answer.second.find("{stall}") != std::string::npos;
        });
        mailstream_network_delay = {mute ? 1 : 20, 0};
        CSmtpServer server(answers);
        mail.SetServer("127.0.0.1", server.Port());
        const std::size_t before = OpenDescriptors();
        const int error = row.Number(first + 1);
        CCapturedTrace trace(Vorn::Internals::TraceEnterLeave);
        EXPECT_EQ(mail.Send(), error == 0);
        EXPECT_EQ(OpenDescriptors(), before);
        EXPECT_EQ(mail.GetLastError(), error);

        std::string exits;
        for (const auto& line : trace.m_Texts)
            if (line.find(" -> ") != std::string::npos)
                exits += std::regex_replace(line, std::regex("LEAVE (CSmtp::)?"), "") + "|";
        EXPECT_EQ(exits,
                  TlsTrace(row[first + 3]) + (error == 0 ? ""
                                                         : "Send () -> " + row[first + 2] +
                                                               " failed " + row[first + 1] + "|"));
        EXPECT_EQ(trace.m_Texts.back() == "LEAVE CSmtp::Send ()", error == 0);
        EXPECT_EQ(SeenBy(server), seen == "-" ? "connected" : "connected " + seen);
    });
}

// Everything that is said and traced, once with extensions and once without.
TEST_F(CDelivery, DialogueInFull)
{
    char host[256] = "";
    gethostname(host, sizeof host);
    for (const bool extended : {true, false}) {
        CSmtpServer server(CAnswers{
            {"EHLO", extended ? "250-test\r\n250-AUTH PLAIN\r\n250 DSN\r\n" : "502 no\r\n"}});
        CSmtp mail;
        Fill(mail, server.Port());
        mail.SetPassword("");
        mail.SetMessageBody(".a\n..\nlast");
        mail.SetServer("", server.Port()); // localhost
        const std::string kind = extended ? ", extended" : ", simple";
        CCapturedTrace trace(0x12);
        EXPECT_TRUE(mail.Send());
        std::vector<std::string> lines;
        for (const auto& text : trace.m_Texts)
            lines.push_back(
                std::regex_replace(Replaced(text, std::to_string(server.Port()) + ")", "PORT)"),
                                   std::regex("\\(/.*/bin/sasl2\\)$"), "(SASL)"));
        EXPECT_EQ(lines, Words("smtp", "traces" + kind));

        const std::string seen = server.Seen();
        std::string start;
        for (const auto& command : Words("smtp", "commands" + kind))
            start += Replaced(command, "HOST", host) + "\n";
        start += ".\n\r\nDate: ";
        EXPECT_EQ(seen.substr(0, start.size()), start);
        const std::string end = "Content-Transfer-Encoding: 7bit\r\n\r\n..a\r\n...\r\nlast\r\n"
                                "\nQUIT\n";
        EXPECT_EQ(seen.substr(seen.size() - std::min(seen.size(), end.size())), end);
    }
}

// Noticed only after DATA; the slot of an empty subject stays though the mail is sent.
TEST_F(CDelivery, IncompleteMessages)
{
    EachRow("smtp", "incomplete", [](const CDataRow& row) {
        CSmtpServer server({});
        CSmtp mail;
        const std::size_t at = Apply(row, mail);
        mail.SetServer("127.0.0.1", server.Port());
        CCapturedTrace trace(Vorn::Internals::TraceEnterLeave);
        EXPECT_EQ(mail.Send(), row.Number(at) == 31);
        EXPECT_EQ(mail.GetLastError(), row.Number(at));
        EXPECT_EQ(trace.m_Texts.back(), "LEAVE CSmtp::" + row[at + 1]);
        EXPECT_EQ(SeenBy(server), "connected " + row.Rest(at + 2));
    });
}

TEST_F(CDelivery, RefusedBeforeAnythingIsSent)
{
    CSmtp mail;
    Fill(mail, 1);
    EXPECT_FALSE(mail.AddTO(""));
    g_NoSession = true;
    CCapturedTrace trace(Vorn::Internals::TraceEnterLeave);
    EXPECT_FALSE(mail.Send());
    g_NoSession = false;
    EXPECT_EQ(trace.m_Texts.back(), "LEAVE CSmtp::Send () -> mailsmtp_new failed");
    EXPECT_EQ(mail.GetLastError(), VornEx::CSMTP_ERROR_NO_RECIPIENT_MAIL) << "as it was";
    EXPECT_EQ(VornEx::StartSmtpTls(nullptr), 8);

    for (const char* const host : {"127.0.0.1", "/nonexistent", "host.invalid"}) {
        mail.SetServer(host, 1);
        EXPECT_FALSE(mail.Send()) << host;
        EXPECT_EQ(mail.GetLastError(), 25) << host;
    }
    EXPECT_EQ(mail.TranslateEtPanToESmtp(25), MAILSMTP_ERROR_CONNECTION_REFUSED);
}

// With select(2) underneath, a descriptor of 1024 would end the process.
TEST_F(CDelivery, ManyDescriptors)
{
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    if (before.rlim_max < 1100)
        GTEST_SKIP() << "the limit of open files cannot be raised to 1100";
    const rlimit raised = {1100, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &raised);
    // The free ones in the end, as seen from the limit.
    for (const int free : {-4, 0, 36, 60}) {
        CSmtpServer server({});
        std::vector<int> taken;
        for (int next = dup(0); next >= 0 && next < 1024 - free; next = dup(0))
            taken.push_back(next);
        CSmtp mail;
        Fill(mail, server.Port());
        const std::size_t open = OpenDescriptors();
        const bool sent = mail.Send();
        EXPECT_EQ(OpenDescriptors(), open);
        for (const int descriptor : taken)
            close(descriptor);
        EXPECT_EQ(sent, free == 60) << free;
        EXPECT_EQ(mail.GetLastError(), sent ? 0 : 25) << free;
        if (sent) {
            EXPECT_EQ(SeenBy(server), "connected EHLO EHLO MAIL RCPT RCPT RCPT RCPT DATA . QUIT");
        }
    }
    setrlimit(RLIMIT_NOFILE, &before);
}

// A host whose timer runs, and that has a SIGPIPE of its own waiting.
TEST_F(CDelivery, SignalsOfTheHost)
{
    struct sigaction action = {};
    static std::sig_atomic_t ticks;
    ticks = 0;
    action.sa_handler = [](int) { ticks = ticks + 1; };
    sigaction(SIGALRM, &action, nullptr);
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    raise(SIGPIPE);

    CSmtpServer server(CAnswers{{"MAIL", "{stall}"}});
    CSmtp mail;
    Fill(mail, server.Port());
    mailstream_network_delay = {1, 0};
    itimerval often = {{0, 20000}, {0, 20000}};
    // Running only while the server is silent: connecting is not shielded.
    std::thread timer([&often] {
        usleep(300000);
        setitimer(ITIMER_REAL, &often, nullptr);
    });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(mail.Send());
    const auto waited = std::chrono::steady_clock::now() - start;
    timer.join();
    often = {};
    setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_GT(ticks, 10);
    EXPECT_GT(waited, std::chrono::milliseconds(900)) << "a signal ended the wait";
    EXPECT_EQ(mail.GetLastError(), 3);

    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 1) << "the host's own signal was taken";
    const timespec now{};
    EXPECT_EQ(sigtimedwait(&pipe, nullptr, &now), SIGPIPE);
    pthread_sigmask(SIG_UNBLOCK, &pipe, nullptr);
}

// SASL and TLS are started by whoever comes first.
TEST_F(CDelivery, SeveralThreadsAtOnce)
{
    std::vector<std::unique_ptr<CSmtpServer>> servers;
    for (int index = 0; index < 8; ++index)
        servers.push_back(
            std::make_unique<CSmtpServer>(CAnswers{{"EHLO 1", "250-test\r\n250 STARTTLS\r\n"},
                                                   {"EHLO 2", "250-test\r\n250 AUTH PLAIN\r\n"},
                                                   {"STARTTLS", "220 go\r\n{tls}"}}));
    std::vector<std::thread> threads;
    for (auto& server : servers)
        threads.emplace_back([&server] {
            CSmtp mail;
            Fill(mail, server->Port());
            EXPECT_TRUE(mail.Send());
        });
    for (auto& thread : threads)
        thread.join();
    for (auto& server : servers)
        EXPECT_NE(server->Seen().find("TLS"), std::string::npos);
}

TEST_F(CDelivery, TenThousandRecipients)
{
    CSmtpServer server({});
    CSmtp mail;
    Fill(mail, server.Port());
    std::string list;
    for (int number = 0; number < 10000; ++number)
        list += "r" + std::to_string(number) + "@x;";
    EXPECT_TRUE(mail.AddBCC(list));
    EXPECT_TRUE(mail.Send());
    const std::string seen = server.Seen();
    EXPECT_NE(seen.find("RCPT TO:<bcc@x>\nRCPT TO:<r0@x>\nRCPT TO:<r1@x>\n"), std::string::npos);
    EXPECT_NE(seen.find("RCPT TO:<r9999@x>\nDATA\n"), std::string::npos);
}

} // namespace
