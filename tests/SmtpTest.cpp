// Mail: what a message consists of, and how a delivery goes with servers of every kind.
#include <chrono>
#include <functional>
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

// With "|" for the end of a line.
std::string Header(CSmtp& mail)
{
    Vorn::Strings::TString<16> header;
    return mail.FormatHeader(header) ? Replaced(header.m_Text, "\r\n", "|")
                                     : "failed, " + std::string(header.m_Text);
}

bool HeaderHas(CSmtp& mail, const std::string& line)
{
    return Header(mail).find("|" + line + "|") != std::string::npos;
}

TEST(Smtp, HeaderWhole)
{
    g_Now = 1700000000;
    setenv("TZ", "UTC0", 1);
    CSmtp mail;
    EXPECT_EQ(Header(mail), "failed, ");
    EXPECT_EQ(mail.GetLastError(), VornEx::CSMTP_ERROR_NO_RECIPIENTS);
    mail.AddTO("A@x", "Ann");
    EXPECT_EQ(Header(mail), "failed, ");
    EXPECT_EQ(mail.GetLastError(), VornEx::CSMTP_ERROR_NO_MAILFROM);
    mail.SetFrom("f@x");
    const std::string date = "Date: Tue,\t14 Nov 2023 22:13:20 -0000|From: ";
    const std::string end = "|MIME-Version: 1.0|Content-type: text/plain; charset=US-ASCII|"
                            "Content-Transfer-Encoding: 7bit||";
    EXPECT_EQ(Header(mail), date + " <f@x>|X-Priority: 3 (Normal)|To: Ann<A@x>|Subject:  " + end);
    EXPECT_EQ(mail.GetLastError(), VornEx::CSMTP_ERROR_NO_SUBJECT);

    mail.SetFrom("g@x", "Agent");
    mail.SetFrom("h@x"); // the name stays
    mail.AddTO("B@x");
    mail.AddCC("c1,c2;c3"); // cut to the number of To recipients
    mail.AddBCC("d1");      // and not made longer
    mail.SetSubject("S \xE4");
    mail.SetXMailer("M 1");
    mail.SetReplyTo("r@x");
    mail.SetXPriority(VornEx::CSMTP_XPRIORITY_HIGH);
    EXPECT_EQ(Header(mail), date +
                                "Agent <h@x>|X-Mailer: M 1|Reply-To: r@x|X-Priority: 2 (High)|"
                                "To: Ann<A@x>,<B@x>|Cc: <c1>,<c2>|Bcc: <d1>|Subject: S \xE4" +
                                end);
    mail.SetXPriority(VornEx::CSMTP_XPRIORITY_LOW);
    EXPECT_TRUE(HeaderHas(mail, "X-Priority: 4 (Low)"));
    mail.SetXPriority(static_cast<VornEx::CSmtpXPriority>(7));
    EXPECT_TRUE(HeaderHas(mail, "X-Priority: 3 (Normal)"));

    // Zones without daylight saving, though it is on in the third.
    for (const auto& [zone, suffix] : std::map<std::string, std::string>{
             {"XXX-1", "+0100"}, {"XXX5:30", "-0530"}, {"XXX-1YYY,M1.1.0,M12.5.0", "+0100"}}) {
        setenv("TZ", zone.c_str(), 1);
        EXPECT_NE(Header(mail).find(" " + suffix + "|From"), std::string::npos) << zone;
    }
    g_Now = 0;
}

TEST(Smtp, RecipientLists)
{
    EachRow("smtp", "recipients", [](const CDataRow& row) {
        CSmtp mail;
        mail.SetFrom("f");
        EXPECT_TRUE(mail.AddTO(row[0]));
        if (Header(mail).rfind("failed", 0) == 0)
            mail.AddTO("f"); // none was added
        EXPECT_TRUE(HeaderHas(mail, "To: " + row[1])) << Header(mail);
    });

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
    const std::map<std::string, std::function<void(CSmtp&)>> preparations = {
        {"-", [](CSmtp&) {}},
        {"large-body", [](CSmtp& mail) { mail.SetMessageBody(std::string(16 << 20, 'x')); }},
        {"no-user", [](CSmtp& mail) { mail.SetUserName(""); }},
        {"long-password", [](CSmtp& mail) { mail.SetPassword(std::string(400, 'p')); }},
        {"long-sender", [](CSmtp& mail) { mail.SetFrom(std::string(600, 'f')); }}};
    EachRow("smtp", "scenarios", [&](const CDataRow& row) {
        CAnswers answers;
        std::size_t at = 5;
        for (; row[at] != "SEEN"; at += 2)
            answers[row[at] == "GREETING" ? "" : row[at]] = row[at + 1];
        const std::string seen = row.Rest(at + 1);
        // Only where a server is mute a wait is to end, which a busy machine must not bring about.
        const bool mute = std::any_of(answers.begin(), answers.end(), [](const auto& answer) {
            return answer.second.find("{stall}") != std::string::npos;
        });
        mailstream_network_delay = {mute ? 1 : 20, 0};
        CSmtpServer server(answers);
        CSmtp mail;
        Fill(mail, server.Port());
        preparations.at(row[4])(mail);
        const std::size_t before = OpenDescriptors();
        const int error = row.Number(1);
        CCapturedTrace trace(Vorn::Internals::TraceEnterLeave);
        EXPECT_EQ(mail.Send(), error == 0);
        EXPECT_EQ(OpenDescriptors(), before);
        EXPECT_EQ(mail.GetLastError(), error);

        std::string exits;
        for (const auto& line : trace.m_Texts)
            if (line.find(" -> ") != std::string::npos)
                exits += std::regex_replace(line, std::regex("LEAVE (CSmtp::)?"), "") + "|";
        EXPECT_EQ(exits,
                  TlsTrace(row[3]) +
                      (error == 0 ? "" : "Send () -> " + row[2] + " failed " + row[1] + "|"));
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
    const struct
    {
        const char *m_From, *m_To;
        int m_Error;
        const char *m_Seen, *m_Last;
    } rows[] = {{"f", "", 29, "", "FormatHeader () -> failed CSMTP_ERROR_NO_RECIPIENTS"},
                {"", "t", 30, "", "FormatHeader () -> failed CSMTP_ERROR_NO_MAILFROM"},
                {"f", "t", 31, " . QUIT", "Send ()"}};
    for (const auto& row : rows) {
        CSmtpServer server({});
        CSmtp mail;
        if (*row.m_From != '\0')
            mail.SetFrom(row.m_From);
        if (*row.m_To != '\0')
            mail.AddTO(row.m_To);
        else
            mail.AddCC("c");
        mail.SetServer("127.0.0.1", server.Port());
        CCapturedTrace trace(Vorn::Internals::TraceEnterLeave);
        EXPECT_EQ(mail.Send(), row.m_Error == 31);
        EXPECT_EQ(mail.GetLastError(), row.m_Error);
        EXPECT_EQ(trace.m_Texts.back(), std::string("LEAVE CSmtp::") + row.m_Last);
        EXPECT_EQ(SeenBy(server), std::string("connected EHLO EHLO MAIL RCPT DATA") + row.m_Seen);
    }
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
