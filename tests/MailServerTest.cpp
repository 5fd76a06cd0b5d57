// Delivery through a real Postfix (with-postfix.sh): each way to connect and to log in, and
// messages read back from the mailbox.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <thread>

#include <vornex/Smtp.h>

namespace {

std::filesystem::path Folder()
{
    return std::getenv("VORNEX_POSTFIX");
}

std::string Content(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// The text that look gives as soon as there is some; empty after ten seconds.
std::string WaitFor(const std::function<std::string()>& look)
{
    for (int tries = 0; tries < 500; ++tries) {
        const std::string text = look();
        if (!text.empty())
            return text;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return {};
}

// The message in the mailbox that has this subject.
std::string Arrived(const std::string& subject)
{
    return WaitFor([&subject]() -> std::string {
        std::error_code error;
        for (const auto& file :
             std::filesystem::directory_iterator(Folder() / "mail/inbox/new", error)) {
            std::string text = Content(file.path());
            if (text.find("\nSubject: " + subject + "\n") != std::string::npos)
                return text;
        }
        return {};
    });
}

void Fill(VornEx::CSmtp& mail, unsigned short port, const std::string& subject)
{
    mail.SetServer("127.0.0.1", port);
    mail.SetFrom("from@probe.test", "Agent");
    mail.AddTO("to@probe.test");
    mail.SetSubject(subject);
}

TEST(MailServer, WaysToConnectAndLogIn)
{
    struct
    {
        const char* m_Name;
        unsigned short m_Port;
        const char* m_Password; // null: no user
        int m_Error;
        std::string m_Protocol; // as the Received line has it
        std::string m_Log;
    } const rows[] = {
        {"plain", 2525, nullptr, 0, "ESMTP", ""},
        {"user without AUTH", 2525, "secret", 0, "ESMTP", ""},
        {"STARTTLS", 2587, nullptr, 0, "ESMTPS", ""},
        {"STARTTLS, best mechanism", 2587, "secret", 0, "ESMTPSA", "sasl_method=DIGEST-MD5"},
        {"TLS", 465, nullptr, 0, "ESMTPS", ""},
        {"TLS, best mechanism", 465, "secret", 0, "ESMTPSA", "sasl_method=DIGEST-MD5"},
        {"PLAIN", 2601, "secret", 0, "ESMTPA", "sasl_method=PLAIN"},
        {"LOGIN", 2602, "secret", 0, "ESMTPA", "sasl_method=LOGIN"},
        {"CRAM-MD5", 2603, "secret", 0, "ESMTPA", "sasl_method=CRAM-MD5"},
        {"DIGEST-MD5", 2604, "secret", 0, "ESMTPA", "sasl_method=DIGEST-MD5"},
        {"PLAIN, wrong", 2601, "wrong", 17, "", "SASL PLAIN authentication failed"},
        {"LOGIN, wrong", 2602, "wrong", 17, "", "SASL LOGIN authentication failed"},
        {"CRAM-MD5, wrong", 2603, "wrong", 17, "", "SASL CRAM-MD5 authentication failed"},
        {"DIGEST-MD5, wrong", 2604, "", 17, "", "SASL DIGEST-MD5 authentication failed"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.m_Name);
        const std::size_t logged = Content(Folder() / "maillog").size();
        VornEx::CSmtp mail;
        Fill(mail, row.m_Port, row.m_Name);
        if (row.m_Password != nullptr) {
            mail.SetUserName("tester");
            mail.SetPassword(row.m_Password);
        }
        mail.SetMessageBody("body");
        EXPECT_EQ(mail.Send(), row.m_Error == 0);
        EXPECT_EQ(mail.GetLastError(), row.m_Error);
        if (row.m_Error == 0) {
            EXPECT_NE(Arrived(row.m_Name).find(" with " + row.m_Protocol + " id "),
                      std::string::npos);
        }
        // The server takes mail without a login too: only its log tells of one.
        const std::string log = WaitFor([&]() -> std::string {
            const std::string news = Content(Folder() / "maillog").substr(logged);
            const bool done = news.find(row.m_Error == 0 ? ": client=" : ": disconnect from") !=
                              std::string::npos;
            return done ? news : "";
        });
        EXPECT_NE(log.find(row.m_Log), std::string::npos) << log;
        if (row.m_Log.empty()) {
            EXPECT_EQ(log.find("sasl_"), std::string::npos) << log;
        }
    }
}

// A mailbox has LF for every line end; the library adds one, libetpan another one.
TEST(MailServer, BodiesReadBack)
{
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte)
        if (byte != '\r' && byte != '\n')
            bytes += static_cast<char>(byte);
    std::string large;
    for (int line = 0; large.size() < 10U << 20U; ++line)
        large +=
            std::to_string(line) + std::string(static_cast<std::size_t>(line % 150), 'x') + "\n";
    struct
    {
        const char* m_Name;
        std::string m_Sent;
        std::string m_Stored;
    } const rows[] = {
        {"empty", "", ""},
        {"dots", ".\n..\n.a\n\n.\n\n..", ".\n..\n.a\n\n.\n\n.."},
        {"line ends", "a\nb\r\nc\rd\n\r\ne\r\n", "a\nb\nc\nd\n\ne\n"},
        {"long lines", std::string(20000, 'l') + "\n." + std::string(9000, 'm'),
         std::string(20000, 'l') + "\n." + std::string(9000, 'm')},
        {"8-bit", bytes, bytes},
        {"10 MB", large, large},
    };
    for (const std::uint16_t port : std::initializer_list<std::uint16_t>{2525, 2587})
        for (const auto& row : rows) {
            const std::string subject = row.m_Name + std::to_string(port);
            VornEx::CSmtp mail;
            Fill(mail, port, subject);
            mail.SetMessageBody(row.m_Sent);
            EXPECT_TRUE(mail.Send()) << subject << mail.GetLastError();
            const std::string message = Arrived(subject);
            const std::size_t body = message.find("\n\n");
            ASSERT_NE(body, std::string::npos) << subject;
            EXPECT_TRUE(message.substr(body + 2) == row.m_Stored + "\n\n") << subject;
        }
}

} // namespace
