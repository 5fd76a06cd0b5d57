// Mail: what a message consists of, and how a delivery goes with servers of every kind.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <regex>
#include <thread>

#include <dirent.h>
#include <dlfcn.h>
#include <libetpan/libetpan.h>
#include <sys/resource.h>
#include <sys/time.h>

#include <vorn/Trace.h>
#include <vornex/Module.h>
#include <vornex/Smtp.h>

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

// Trace texts while it lives, of the levels given.
class CTraces
{
public:
    explicit CTraces(unsigned int levels)
    {
        Vorn::Internals::SetTraceSink([this](const Vorn::Internals::CTraceLine& line) {
            m_Lines.emplace_back(line.m_Text.Text(), line.m_Text.Length());
        });
        VornEx::VORN_MODULE_INFO_VornEx.m_TraceMask = levels;
    }
    CTraces(const CTraces&) = delete;
    CTraces& operator=(const CTraces&) = delete;
    ~CTraces()
    {
        VornEx::VORN_MODULE_INFO_VornEx.m_TraceMask = 0;
        Vorn::Internals::SetTraceSink({});
    }

    std::vector<std::string> m_Lines;
};

std::string Header(CSmtp& mail)
{
    Vorn::Strings::TString<16> header;
    return mail.FormatHeader(header) ? header.m_Text : "failed, " + std::string(header.m_Text);
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
    const std::string date = "Date: Tue,\t14 Nov 2023 22:13:20 -0000\r\n";
    const std::string end = "MIME-Version: 1.0\r\nContent-type: text/plain; charset=US-ASCII\r\n"
                            "Content-Transfer-Encoding: 7bit\r\n\r\n";
    EXPECT_EQ(Header(mail), date +
                                "From:  <f@x>\r\nX-Priority: 3 (Normal)\r\nTo: Ann<A@x>\r\n"
                                "Subject:  \r\n" +
                                end);
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
                                "From: Agent <h@x>\r\nX-Mailer: M 1\r\nReply-To: r@x\r\n"
                                "X-Priority: 2 (High)\r\nTo: Ann<A@x>,<B@x>\r\nCc: <c1>,<c2>\r\n"
                                "Bcc: <d1>\r\nSubject: S \xE4\r\n" +
                                end);
    mail.SetXPriority(VornEx::CSMTP_XPRIORITY_LOW);
    EXPECT_NE(Header(mail).find("\r\nX-Priority: 4 (Low)\r\n"), std::string::npos);
    mail.SetXPriority(static_cast<VornEx::CSmtpXPriority>(7));
    EXPECT_NE(Header(mail).find("\r\nX-Priority: 3 (Normal)\r\n"), std::string::npos);

    // Zones without daylight saving, though it is on in the third.
    for (const auto& [zone, suffix] : std::map<std::string, std::string>{
             {"XXX-1", "+0100"}, {"XXX5:30", "-0530"}, {"XXX-1YYY,M1.1.0,M12.5.0", "+0100"}}) {
        setenv("TZ", zone.c_str(), 1);
        EXPECT_NE(Header(mail).find(" " + suffix + "\r\nFrom"), std::string::npos) << zone;
    }
    g_Now = 0;
}

TEST(Smtp, RecipientLists)
{
    struct
    {
        const char* m_List;
        const char* m_To;
    } const rows[] = {
        {"A, B;C", "<A>,<B>,<C>"}, {"A,,B", "<A>"}, {",A,", "<A>"}, {" ", "<>"},
        {"\tA b\v ;", "<A b>"},    {";,", "<f>"},
    };
    for (const auto& row : rows) {
        CSmtp mail;
        mail.SetFrom("f");
        EXPECT_TRUE(mail.AddTO(row.m_List));
        if (Header(mail).rfind("failed", 0) == 0)
            mail.AddTO("f"); // none was added
        EXPECT_NE(Header(mail).find(std::string("\r\nTo: ") + row.m_To + "\r\n"), std::string::npos)
            << row.m_List << Header(mail);
    }

    CTraces traces(0x12);
    CSmtp mail;
    EXPECT_FALSE(mail.AddCC(""));
    EXPECT_FALSE(mail.AddBCC("a", ""));
    EXPECT_FALSE(mail.AddTO("", "n"));
    EXPECT_EQ(mail.GetLastError(), VornEx::CSMTP_ERROR_NO_RECIPIENT_MAIL);
    EXPECT_TRUE(mail.AddBCC(" a ", "n"));
    EXPECT_TRUE(mail.AddCC("b "));
    EXPECT_EQ(
        traces.m_Lines,
        (std::vector<std::string>{
            "ENTER CSmtp::AddCC ()", "LEAVE CSmtp::AddCC () -> CSMTP_ERROR_NO_RECIPIENT_MAIL",
            "ENTER CSmtp::AddBCC ()", "LEAVE CSmtp::AddBCC () -> CSMTP_ERROR_NO_RECIPIENT_MAIL",
            "ENTER CSmtp::AddTO ()", "LEAVE CSmtp::AddTO () -> CSMTP_ERROR_NO_RECIPIENT_MAIL",
            "ENTER CSmtp::AddBCC ()", "CSmtp::AddBCC () add recipient  a (n)",
            "LEAVE CSmtp::AddBCC ()", "ENTER CSmtp::AddCC ()", "CSmtp::AddCC () add recipient b",
            "LEAVE CSmtp::AddCC ()"}));

    Vorn::Strings::TString<16> text;
    text << Vorn::Strings::CSubStringRef("\0 a \0\n \0", 8);
    mail.Trim(text, text); // in place; a NUL in front stays
    EXPECT_EQ(std::string_view(text), std::string_view("\0 a", 3));
    EXPECT_EQ(mail.TranslateEtPanToESmtp(27), 27);
    EXPECT_EQ(mail.TranslateEtPanToESmtp(28), 0);
    EXPECT_EQ(mail.TranslateEtPanToESmtp(-1), 0);
}

std::size_t OpenDescriptors()
{
    std::size_t count = 0;
    DIR* const folder = opendir("/proc/self/fd");
    while (readdir(folder) != nullptr)
        ++count;
    closedir(folder);
    return count;
}

// Steps by the name they have in traces, and what STARTTLS left there before.
constexpr const char* Connect = "mailsmtp_socket_connect";
constexpr const char* Greet = "mailesmtp_ehlo/mailsmtp_helo";
constexpr const char* Auth = "mailsmtp_auth";
constexpr const char* Mail = "mailesmtp_mail/mailsmtp_mail";
constexpr const char* Rcpt = "mailesmtp_rcpt/mailsmtp_rcpt";
constexpr const char* Data = "mailsmtp_data";
constexpr const char* Message = "mailsmtp_data_message";

constexpr const char* Early = "";
constexpr const char* Secure = "";
constexpr const char* Plain = "StartSmtpTls () -> mailesmtp_starttls failed 24|"
                              "Send () -> StartSmtpTls failed 24; continue|";
constexpr const char* Extra = "StartSmtpTls () -> mailesmtp_starttls failed 27|"
                              "Send () -> StartSmtpTls failed 27; continue|";
constexpr const char* Later = "StartSmtpTls () -> mailesmtp_starttls failed 23|"
                              "Send () -> StartSmtpTls failed 23; continue|";
constexpr const char* Lost = "StartSmtpTls () -> mailesmtp_starttls failed 3|"
                             "Send () -> StartSmtpTls failed 3; continue|";
constexpr const char* Broken = "StartSmtpTls () -> mailstream_low_tls_open failed; continue|"
                               "StartSmtpTls () -> mailstream_low_ssl_open failed|"
                               "Send () -> StartSmtpTls failed 8; continue|";

constexpr const char* Offers = "250-test\r\n250 AUTH PLAIN\r\n";
constexpr const char* OffersTls = "250-test\r\n250 STARTTLS\r\n";
constexpr const char* OffersLogin = "250-test\r\n250 AUTH LOGIN\r\n";
constexpr const char* Whole = "EHLO EHLO MAIL RCPT RCPT RCPT RCPT DATA . QUIT";

struct CScenario
{
    const char* m_Name;
    int m_Error;        // the failing step's code, 0: delivered
    const char* m_Step; // that failed
    const char* m_Tls;
    CAnswers m_Answers;
    const char* m_Seen; // the commands' first words, "." for the message
    void (*m_Prepare)(CSmtp&) = nullptr;
};

void LargeBody(CSmtp& mail)
{
    mail.SetMessageBody(std::string(16 << 20, 'x'));
}

// Formatted by hand: a row a scenario.
// clang-format off
const CScenario Scenarios[] = {
    {"friendly", 0, "", Plain, {}, Whole},
    {"LF only, many lines", 0, "", Plain, {{"", "220-a\n220-b\n220 c\n"},
     {"EHLO", "250-x\n250 y\n"}, {"MAIL", "250-\n250\n"}}, Whole},
    {"greeting 554", 2, Connect, Early, {{"", "554 no\r\n"}}, ""},
    {"greeting 421", 1, Connect, Early, {{"", "421 no\r\n"}}, ""},
    {"greeting is text", 3, Connect, Early, {{"", "hello\r\n"}}, ""},
    {"greeting is empty", 3, Connect, Early, {{"", "\n"}}, ""},
    {"no greeting", 3, Connect, Early, {{"", "{close}"}}, ""},
    {"reset at once", 3, Connect, Early, {{"", "{reset}"}}, ""},
    {"mute", 3, Connect, Early, {{"", "{stall}"}}, ""},
    {"endless greeting", 3, Connect, Early, {{"", "220-x\r\n{flood}"}}, ""},
    {"endless first line", 3, Connect, Early, {{"", "220 x{flood}"}}, ""},
    {"reset after greeting", 3, Greet, Early, {{"", "220 x\r\n{reset}"}}, ""},
    {"HELO only", 0, "", Plain, {{"EHLO", "500 what\r\n"}},
     "EHLO HELO EHLO HELO MAIL RCPT RCPT RCPT RCPT DATA . QUIT"},
    {"HELO refused", 5, Greet, Early, {{"EHLO", "500 what\r\n"}, {"HELO", "504 no\r\n"}},
     "EHLO HELO QUIT"},
    {"HELO refused later", 6, Greet, Plain, {{"EHLO 2", "500 what\r\n"}, {"HELO", "550 no\r\n"}},
     "EHLO EHLO HELO QUIT"},
    {"dropped at EHLO", 3, Greet, Early, {{"EHLO", "{close}"}}, "EHLO"},
    {"mute at EHLO", 3, Greet, Early, {{"EHLO", "{stall}"}}, "EHLO"},
    {"endless EHLO lines", 3, Greet, Early, {{"EHLO", "250-x\r\n{flood}"}}, "EHLO"},
    {"endless EHLO line", 3, Greet, Early, {{"EHLO", "250 x{flood}"}}, "EHLO"},
    {"TAB behind AUTH", 0, "", Plain, {{"EHLO", "250-x\r\n250 AUTH\tX\tY\t\r\n"}}, Whole},
    {"TAB among mechanisms", 0, "", Plain, {{"EHLO", "250-x\r\n250 AUTH X\tY\t\r\n"}}, Whole},
    {"TAB sent ahead", 1, Data, Plain, {{"", "220 x\r\n250 AUTH X\tY\r\n"}},
     "EHLO EHLO MAIL RCPT RCPT RCPT RCPT DATA"},

    {"STARTTLS", 0, "", Secure, {{"EHLO 1", OffersTls}, {"STARTTLS", "220 go\r\n{tls}"}},
     "EHLO STARTTLS TLS EHLO MAIL RCPT RCPT RCPT RCPT DATA . QUIT"},
    {"STARTTLS, then AUTH", 0, "", Secure, {{"EHLO 1", OffersTls}, {"EHLO 2", Offers},
     {"STARTTLS", "220 go\r\n{tls}"}},
     "EHLO STARTTLS TLS EHLO AUTH MAIL RCPT RCPT RCPT RCPT DATA . QUIT"},
    {"STARTTLS with lines sent ahead", 3, Greet, Extra, {{"EHLO 1", OffersTls},
     {"STARTTLS", "220 go\r\n250-forged\r\n250 AUTH LOGIN\r\n{tls}"}}, "EHLO STARTTLS no"},
    {"lines sent ahead, no TLS meant", 0, "", Extra, {{"EHLO", OffersTls},
     {"STARTTLS", "220 go\r\n250-forged\r\n250 AUTH PLAIN\r\n"}},
     "EHLO STARTTLS EHLO MAIL RCPT RCPT RCPT RCPT DATA . QUIT"},
    {"TAB and flood under TLS", 3, Mail, Secure, {{"EHLO 1", OffersTls},
     {"EHLO 2", "250-x\r\n250 AUTH X\tY\r\n"}, {"STARTTLS", "220 go\r\n{tls}"},
     {"MAIL", "250-x\r\n{flood}"}}, "EHLO STARTTLS TLS EHLO MAIL"},
    {"dropped under TLS", 3, Message, Secure, {{"EHLO 1", OffersTls},
     {"STARTTLS", "220 go\r\n{tls}"}, {"BODY", "{reset}"}},
     "EHLO STARTTLS TLS EHLO MAIL RCPT RCPT RCPT RCPT DATA", LargeBody},
    {"STARTTLS later", 0, "", Later, {{"EHLO", OffersTls}, {"STARTTLS", "454 later\r\n"}},
     "EHLO STARTTLS EHLO MAIL RCPT RCPT RCPT RCPT DATA . QUIT"},
    {"STARTTLS refused with lines sent ahead", 0, "", Extra, {{"EHLO", OffersTls},
     {"STARTTLS", "454 later\r\n250 AUTH PLAIN\r\n"}},
     "EHLO STARTTLS EHLO MAIL RCPT RCPT RCPT RCPT DATA . QUIT"},
    {"dropped at STARTTLS", 3, Greet, Lost, {{"EHLO", OffersTls}, {"STARTTLS", "{close}"}},
     "EHLO STARTTLS"},
    {"dropped after 220", 3, Greet, Broken, {{"EHLO", OffersTls},
     {"STARTTLS", "220 go\r\n{close}"}}, "EHLO STARTTLS"},
    {"reset after 220", 3, Greet, Broken, {{"EHLO", OffersTls}, {"STARTTLS", "220 go\r\n{reset}"}},
     "EHLO STARTTLS"},
    {"text after 220", 0, "", Broken, {{"EHLO", OffersTls}, {"STARTTLS", "220 go\r\n{text}"}},
     "EHLO STARTTLS EHLO MAIL RCPT RCPT RCPT RCPT DATA . QUIT"},
    {"mute after 220", 3, Greet, Broken, {{"EHLO", OffersTls}, {"STARTTLS", "220 go\r\n{stall}"}},
     "EHLO STARTTLS"},

    {"AUTH", 0, "", Plain, {{"EHLO", Offers}},
     "EHLO EHLO AUTH MAIL RCPT RCPT RCPT RCPT DATA . QUIT"},
    {"AUTH=", 0, "", Plain, {{"EHLO", "250-x\r\n250 AUTH=PLAIN\r\n"}},
     "EHLO EHLO AUTH MAIL RCPT RCPT RCPT RCPT DATA . QUIT"},
    {"AUTH refused", 17, Auth, Plain, {{"EHLO", Offers}, {"AUTH", "535 no\r\n"}},
     "EHLO EHLO AUTH QUIT"},
    {"AUTH refused otherwise", 26, Auth, Plain, {{"EHLO", Offers}, {"AUTH", "554 no\r\n"}},
     "EHLO EHLO AUTH QUIT"},
    {"AUTH needs TLS", 22, Auth, Plain, {{"EHLO", Offers}, {"AUTH", "538 no\r\n"}},
     "EHLO EHLO AUTH QUIT"},
    {"AUTH dropped", 3, Auth, Plain, {{"EHLO", Offers}, {"AUTH", "{reset}"}}, "EHLO EHLO AUTH"},
    {"AUTH mute", 3, Auth, Plain, {{"EHLO", Offers}, {"AUTH", "{stall}"}}, "EHLO EHLO AUTH"},
    {"AUTH asks for ever", 17, Auth, Plain, {{"EHLO", OffersLogin}, {"AUTH", "334 \r\n"},
     {"dQ==", "334 \r\n"}, {"cA==", "334 \r\n"}}, "EHLO EHLO AUTH dQ== cA== QUIT"},
    {"AUTH with garbage to decode", 15, Auth, Plain, {{"EHLO", OffersLogin},
     {"AUTH", "334 \x01\xFF=!\r\n"}}, "EHLO EHLO AUTH QUIT"},
    {"unknown mechanisms only", 0, "", Plain,
     {{"EHLO", "250-x\r\n250 AUTH XOAUTH2 SCRAM-SHA-1\r\n"}}, Whole},
    {"unusable mechanism only", 16, Auth, Plain, {{"EHLO", "250-x\r\n250 AUTH GSSAPI\r\n"}},
     "EHLO EHLO QUIT"},
    {"no user", 0, "", Plain, {{"EHLO", Offers}}, Whole, [](CSmtp& mail) { mail.SetUserName(""); }},
    {"long password", 3, Auth, Plain, {{"EHLO", Offers}}, "EHLO EHLO",
     [](CSmtp& mail) { mail.SetPassword(std::string(400, 'p')); }},

    {"sender full", 7, Mail, Plain, {{"MAIL", "552 no\r\n"}}, "EHLO EHLO MAIL QUIT"},
    {"sender busy", 8, Mail, Plain, {{"MAIL", "451 no\r\n"}}, "EHLO EHLO MAIL QUIT"},
    {"sender refused", 10, Mail, Plain, {{"MAIL", "550 no\r\n"}}, "EHLO EHLO MAIL QUIT"},
    {"sender's name", 11, Mail, Plain, {{"MAIL", "553 no\r\n"}}, "EHLO EHLO MAIL QUIT"},
    {"out of order", 12, Mail, Plain, {{"MAIL", "503 no\r\n"}}, "EHLO EHLO MAIL QUIT"},
    {"unknown code", 1, Mail, Plain, {{"MAIL", "299 eh\r\n"}}, "EHLO EHLO MAIL QUIT"},
    {"no code", 3, Mail, Plain, {{"MAIL", "\x80\xFF\r\n"}}, "EHLO EHLO MAIL QUIT"},
    {"dropped at MAIL", 3, Mail, Plain, {{"MAIL", "{close}"}}, "EHLO EHLO MAIL"},
    {"reset at MAIL", 3, Mail, Plain, {{"MAIL", "{reset}"}}, "EHLO EHLO MAIL"},
    {"endless MAIL", 3, Mail, Plain, {{"MAIL", "250-x\r\n{flood}"}}, "EHLO EHLO MAIL"},
    {"long sender", 3, Mail, Plain, {}, "EHLO EHLO",
     [](CSmtp& mail) { mail.SetFrom(std::string(600, 'f')); }},
    {"second To refused", 10, Rcpt, Plain, {{"RCPT 2", "550 no\r\n"}},
     "EHLO EHLO MAIL RCPT RCPT QUIT"},
    {"Cc not local", 13, Rcpt, Plain, {{"RCPT 1", "251 ok\r\n"}, {"RCPT 3", "551 no\r\n"}},
     "EHLO EHLO MAIL RCPT RCPT RCPT QUIT"},
    {"Bcc without room", 9, Rcpt, Plain, {{"RCPT 4", "452 no\r\n"}},
     "EHLO EHLO MAIL RCPT RCPT RCPT RCPT QUIT"},
    {"mute at RCPT", 3, Rcpt, Plain, {{"RCPT", "{stall}"}}, "EHLO EHLO MAIL RCPT"},
    {"DATA refused", 14, Data, Plain, {{"DATA", "554 no\r\n"}},
     "EHLO EHLO MAIL RCPT RCPT RCPT RCPT DATA QUIT"},
    {"dropped at DATA", 3, Data, Plain, {{"DATA", "{close}"}},
     "EHLO EHLO MAIL RCPT RCPT RCPT RCPT DATA"},
    {"dropped in the body", 3, Message, Plain, {{"BODY", "{close}"}},
     "EHLO EHLO MAIL RCPT RCPT RCPT RCPT DATA", LargeBody},
    {"reset in the body", 3, Message, Plain, {{"BODY", "{reset}"}},
     "EHLO EHLO MAIL RCPT RCPT RCPT RCPT DATA", LargeBody},
    {"mute in the body", 3, Message, Plain, {{"BODY", "{stall}"}},
     "EHLO EHLO MAIL RCPT RCPT RCPT RCPT DATA", LargeBody},
    {"message refused", 14, Message, Plain, {{".", "554 no\r\n"}}, Whole},
    {"message too large", 7, Message, Plain, {{".", "552 no\r\n"}}, Whole},
    {"mute after the message", 3, Message, Plain, {{".", "{stall}"}},
     "EHLO EHLO MAIL RCPT RCPT RCPT RCPT DATA ."},
    {"dropped after the message", 3, Message, Plain, {{".", "{reset}"}},
     "EHLO EHLO MAIL RCPT RCPT RCPT RCPT DATA ."},
    {"dropped at QUIT", 0, "", Plain, {{"QUIT", "{reset}"}}, Whole},
};
// clang-format on

void Fill(CSmtp& mail)
{
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
std::string Words(const std::string& seen)
{
    std::string words;
    std::istringstream lines(seen);
    for (std::string line; std::getline(lines, line);)
        if (line.find('\r') == std::string::npos && !line.empty())
            words += line.substr(0, line.find(' ')) + " ";
    return words.substr(0, words.find_last_not_of(' ') + 1);
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

TEST_F(CDelivery, Scenarios)
{
    for (const auto& row : Scenarios) {
        SCOPED_TRACE(row.m_Name);
        // Only where a server is mute a wait is to end, which a busy machine must not bring about.
        const bool mute =
            std::any_of(row.m_Answers.begin(), row.m_Answers.end(), [](const auto& answer) {
                return answer.second.find("{stall}") != std::string::npos;
            });
        mailstream_network_delay = {mute ? 1 : 20, 0};
        CSmtpServer server(row.m_Answers);
        CSmtp mail;
        Fill(mail);
        mail.SetServer("127.0.0.1", server.Port());
        if (row.m_Prepare != nullptr)
            row.m_Prepare(mail);
        const std::size_t before = OpenDescriptors();
        CTraces traces(Vorn::Internals::TraceEnterLeave);
        EXPECT_EQ(mail.Send(), row.m_Error == 0);
        EXPECT_EQ(OpenDescriptors(), before);
        EXPECT_EQ(mail.GetLastError(), row.m_Error);

        std::string exits;
        for (const auto& line : traces.m_Lines)
            if (line.find(" -> ") != std::string::npos)
                exits += std::regex_replace(line, std::regex("LEAVE (CSmtp::)?"), "") + "|";
        std::string expected = row.m_Tls;
        if (row.m_Error != 0)
            expected += std::string("Send () -> ") + row.m_Step + " failed " +
                        std::to_string(row.m_Error) + "|";
        EXPECT_EQ(exits, expected);
        if (row.m_Error == 0) {
            EXPECT_EQ(traces.m_Lines.back(), "LEAVE CSmtp::Send ()");
        }

        const std::string seen = Words(server.Seen());
        EXPECT_EQ(seen, *row.m_Seen != '\0' ? "connected " + std::string(row.m_Seen) : "connected");
    }
}

// Everything that is said and traced, once with extensions and once without.
TEST_F(CDelivery, DialogueInFull)
{
    char host[256] = "";
    gethostname(host, sizeof host);
    const std::string ehlo = std::string("EHLO ") + host + "\n";
    const CAnswers extended = {{"EHLO", "250-test\r\n250-AUTH PLAIN\r\n250 DSN\r\n"}};
    const CAnswers simple = {{"EHLO", "502 no\r\n"}};
    for (const bool dsn : {true, false}) {
        CSmtpServer server(dsn ? extended : simple);
        CSmtp mail;
        Fill(mail);
        mail.SetPassword("");
        mail.SetMessageBody(".a\n..\nlast");
        mail.SetServer("", server.Port()); // localhost
        const std::string port = std::to_string(server.Port());
        CTraces traces(0x12);
        EXPECT_TRUE(mail.Send());
        auto& lines = traces.m_Lines;
        ASSERT_GE(lines.size(), 3U);
        EXPECT_TRUE(std::regex_match(
            lines[1], std::regex("CSmtp::Send \\(\\) -> mailsmtp_auth_path \\(/.*/bin/sasl2\\)")))
            << lines[1];
        lines.erase(lines.begin() + 1);
        std::vector<std::string> expected = {
            "ENTER CSmtp::Send ()",
            "CSmtp::Send () -> mailsmtp_socket_connect (localhost, " + port + ")",
            "CSmtp::Send () -> mailesmtp_ehlo",
            "LEAVE StartSmtpTls () -> mailesmtp_starttls failed 24",
            "LEAVE CSmtp::Send () -> StartSmtpTls failed 24; continue",
            "CSmtp::Send () -> mailesmtp_ehlo",
            "CSmtp::Send () -> mailsmtp_auth (u)",
            "CSmtp::Send () -> mailesmtp_mail (from@x)",
            "CSmtp::Send () -> mailesmtp_rcpt TO (to1@x)",
            "CSmtp::Send () -> mailesmtp_rcpt TO (to2@x)",
            "CSmtp::Send () -> mailesmtp_rcpt CC (cc@x)",
            "CSmtp::Send () -> mailesmtp_rcpt BCC (bcc@x)",
            "CSmtp::Send () -> mailsmtp_data",
            "CSmtp::Send () -> FormatHeader",
            "ENTER CSmtp::FormatHeader ()",
            "LEAVE CSmtp::FormatHeader ()",
            "CSmtp::Send () -> mailsmtp_data_message",
            "CSmtp::Send () -> mailsmtp_free",
            "LEAVE CSmtp::Send ()"};
        if (!dsn) {
            expected.erase(expected.begin() + 6);
            for (auto& line : expected)
                line = std::regex_replace(line, std::regex("mailesmtp_(mail|rcpt)"), "mailsmtp_$1");
            expected[2] = expected[5] = "CSmtp::Send () -> mailsmtp_helo";
        }
        EXPECT_EQ(lines, expected);

        const std::string seen = server.Seen();
        const std::string greeting =
            dsn ? ehlo : ehlo + std::regex_replace(ehlo, std::regex("EHLO"), "HELO");
        const std::string notify = dsn ? " NOTIFY=FAILURE,DELAY" : "";
        const std::string start =
            "connected\n" + greeting + greeting + (dsn ? "AUTH PLAIN dQB1AA==\n" : "") +
            "MAIL FROM:<from@x>" + (dsn ? " RET=FULL ENVID=__MESSAGE__ID__54yg6f6h6y456345" : "") +
            "\nRCPT TO:<to1@x>" + notify + "\nRCPT TO:<to2@x>" + notify + "\nRCPT TO:<cc@x>" +
            notify + "\nRCPT TO:<bcc@x>" + notify + "\nDATA\n.\n\r\nDate: ";
        EXPECT_EQ(seen.substr(0, start.size()), start);
        const std::string end = "Content-Transfer-Encoding: 7bit\r\n\r\n..a\r\n...\r\nlast\r\n"
                                "\nQUIT\n";
        EXPECT_EQ(seen.substr(seen.size() - std::min(seen.size(), end.size())), end);
    }
}

// Noticed only after DATA; the slot of an empty subject stays though the mail is sent.
TEST_F(CDelivery, IncompleteMessages)
{
    struct
    {
        void (*m_Prepare)(CSmtp&);
        int m_Error;
        const char* m_Seen;
        const char* m_Last;
    } const rows[] = {
        {[](CSmtp& mail) {
             mail.SetFrom("f");
             mail.AddCC("c");
         },
         29, "connected EHLO EHLO MAIL RCPT DATA",
         "LEAVE CSmtp::FormatHeader () -> failed CSMTP_ERROR_NO_RECIPIENTS"},
        {[](CSmtp& mail) { mail.AddTO("t"); }, 30, "connected EHLO EHLO MAIL RCPT DATA",
         "LEAVE CSmtp::FormatHeader () -> failed CSMTP_ERROR_NO_MAILFROM"},
        {[](CSmtp& mail) {
             mail.SetFrom("f");
             mail.AddTO("t");
         },
         31, "connected EHLO EHLO MAIL RCPT DATA . QUIT", "LEAVE CSmtp::Send ()"},
    };
    for (const auto& row : rows) {
        CSmtpServer server({});
        CSmtp mail;
        row.m_Prepare(mail);
        mail.SetServer("127.0.0.1", server.Port());
        CTraces traces(Vorn::Internals::TraceEnterLeave);
        EXPECT_EQ(mail.Send(), row.m_Error == 31);
        EXPECT_EQ(mail.GetLastError(), row.m_Error);
        EXPECT_EQ(traces.m_Lines.back(), row.m_Last);
        EXPECT_EQ(Words(server.Seen()), row.m_Seen);
    }
}

TEST_F(CDelivery, RefusedBeforeAnythingIsSent)
{
    CSmtp mail;
    Fill(mail);
    EXPECT_FALSE(mail.AddTO(""));
    g_NoSession = true;
    CTraces traces(Vorn::Internals::TraceEnterLeave);
    EXPECT_FALSE(mail.Send());
    g_NoSession = false;
    EXPECT_EQ(traces.m_Lines.back(), "LEAVE CSmtp::Send () -> mailsmtp_new failed");
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
        const std::size_t open = OpenDescriptors();
        CSmtp mail;
        Fill(mail);
        mail.SetServer("127.0.0.1", server.Port());
        const bool sent = mail.Send();
        EXPECT_EQ(OpenDescriptors(), open);
        for (const int descriptor : taken)
            close(descriptor);
        EXPECT_EQ(sent, free == 60) << free;
        EXPECT_EQ(mail.GetLastError(), sent ? 0 : 25) << free;
        if (sent) {
            EXPECT_EQ(Words(server.Seen()), "connected " + std::string(Whole));
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
    Fill(mail);
    mail.SetServer("127.0.0.1", server.Port());
    mailstream_network_delay = {1, 0};
    itimerval often = {{0, 20000}, {0, 20000}};
    // Running only while the server is silent: connecting is not shielded.
    std::thread timer([&often] {
        usleep(300000);
        setitimer(ITIMER_REAL, &often, nullptr);
    });
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
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
    mailstream_network_delay = {10, 0};
    std::vector<std::unique_ptr<CSmtpServer>> servers;
    for (int index = 0; index < 8; ++index)
        servers.push_back(std::make_unique<CSmtpServer>(
            CAnswers{{"EHLO 1", OffersTls}, {"EHLO 2", Offers}, {"STARTTLS", "220 go\r\n{tls}"}}));
    std::vector<std::thread> threads;
    for (auto& server : servers)
        threads.emplace_back([&server] {
            CSmtp mail;
            Fill(mail);
            mail.SetServer("127.0.0.1", server->Port());
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
    Fill(mail);
    std::string list;
    for (int number = 0; number < 10000; ++number)
        list += "r" + std::to_string(number) + "@x;";
    EXPECT_TRUE(mail.AddBCC(list));
    mail.SetServer("127.0.0.1", server.Port());
    EXPECT_TRUE(mail.Send());
    const std::string seen = server.Seen();
    EXPECT_NE(seen.find("RCPT TO:<bcc@x>\nRCPT TO:<r0@x>\nRCPT TO:<r1@x>\n"), std::string::npos);
    EXPECT_NE(seen.find("RCPT TO:<r9999@x>\nDATA\n"), std::string::npos);
}

} // namespace
