// vornex mail and vornex report --mail-to: what leaves, what is refused, and what the user is told.
#include <gtest/gtest.h>

#include <fstream>

#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include "RunProgram.h"
#include "SmtpServer.h"

namespace {

using CWords = std::vector<std::string>;

CRun Mail(CWords extra, const std::string& input = "text\n")
{
    CWords words = {"mail", "--from", "f@x", "--to", "a@x", "--subject", "S"};
    words.insert(words.end(), extra.begin(), extra.end());
    return RunProgram(words, input);
}

TEST(MailTool, DeliversWithEverything)
{
    const std::string body = "/tmp/vornex-test-body-" + std::to_string(getpid());
    std::ofstream(body) << "first\n.second";
    CSmtpServer server(CAnswers{{"EHLO", "250-x\r\n250 AUTH PLAIN\r\n"}});
    const std::string place = "127.0.0.1:" + std::to_string(server.Port());
    const CRun run = Mail({"--server", place, "--from-name", "Agent", "--cc", "c@x; d@x", "--bcc",
                           "b@x", "--reply-to", "r@x", "--priority", "low", "--user", "u",
                           "--password-file", "-", body},
                          "p w\r\nnot this\n");
    unlink(body.c_str());
    EXPECT_EQ(run.m_Err, "");
    EXPECT_EQ(run.m_Status, 0);
    EXPECT_EQ(run.m_Out,
              "Delivered to " + place + " for 4 recipients, not encrypted, logged in as u\n");
    const std::string seen = server.Seen();
    for (const char* const part :
         {"AUTH PLAIN dQB1AHAgdw==\n", "RCPT TO:<d@x>\nRCPT TO:<b@x>\n", "From: Agent <f@x>\r\n",
          "X-Mailer: vornex\r\nReply-To: r@x\r\nX-Priority: 4 (Low)\r\nTo: <a@x>\r\nCc: <c@x>\r\n",
          "Subject: S\r\n", "\r\n\r\nfirst\r\n..second\r\n"})
        EXPECT_NE(seen.find(part), std::string::npos) << part << seen;
    EXPECT_EQ(run.m_Out.find("p w"), std::string::npos);
}

TEST(MailTool, SaysWhichStepFailed)
{
    struct
    {
        CAnswers m_Answers;
        CWords m_Extra;
        std::string m_Err;
    } const rows[] = {
        {{{"", "554 no\r\n"}},
         {},
         "cannot connect to 127.0.0.1:PORT: the server is not available (2)"},
        {{{"EHLO", "{close}"}},
         {},
         "cannot agree with the server 127.0.0.1:PORT on a greeting: the "
         "connection was lost, or no answer came in time (3)"},
        {{{"EHLO", "250-x\r\n250 AUTH LOGIN PLAIN\r\n"}, {"AUTH", "535 no\r\n"}},
         {"--user", "me"},
         "cannot log in as me: user name or password is wrong (17)"},
        {{{"MAIL", "553 no\r\n"}},
         {},
         "cannot name the sender f@x: the server does not allow the address (11)"},
        {{{"RCPT 2", "550 no\r\n"}},
         {"--cc", "c@x"},
         "cannot name the recipient c@x: the mailbox is not available (10)"},
        {{{"DATA", "554 no\r\n"}},
         {},
         "cannot begin the message: the server refused the message (14)"},
        {{{".", "552 no\r\n"}},
         {},
         "cannot hand over the message: it is more than the server stores (7)"},
    };
    for (const auto& row : rows) {
        CSmtpServer server(row.m_Answers);
        const std::string port = std::to_string(server.Port());
        CWords words = {"--server", "127.0.0.1:" + port};
        words.insert(words.end(), row.m_Extra.begin(), row.m_Extra.end());
        const CRun run = Mail(words);
        std::string expected = "vornex: " + row.m_Err + "\n";
        if (const std::size_t at = expected.find("PORT"); at != std::string::npos)
            expected.replace(at, 4, port);
        EXPECT_EQ(run.m_Err, expected);
        EXPECT_EQ(run.m_Status, 1);
        EXPECT_EQ(run.m_Out, "");
        EXPECT_EQ(server.Seen().rfind("connected\n", 0), 0U);
    }
}

// What stands in its place is no library.
TEST(MailTool, SaysThatTheMailLibraryIsMissing)
{
    const std::string folder = "/tmp/vornex-test-late-" + std::to_string(getpid());
    const std::string library = folder + "/" + LIBETPAN;
    mkdir(folder.c_str(), 0700);
    std::ofstream(library) << "none";
    const CRun run =
        RunProgram({"mail", "--from", "f@x", "--to", "a@x", "--subject", "S", "--server", "x"}, "",
                   {"LD_LIBRARY_PATH=" + folder});
    unlink(library.c_str());
    rmdir(folder.c_str());
    EXPECT_EQ(run.m_Err.rfind("vornex: cannot start a session: " + library, 0), 0U) << run.m_Err;
    EXPECT_EQ(run.m_Status, 1);
}

TEST(MailTool, RefusesWhatMustNotGoOut)
{
    CSmtpServer server({});
    const std::string place = "127.0.0.1:" + std::to_string(server.Port());
    struct
    {
        CWords m_Extra;
        const char* m_Err;
    } const rows[] = {
        {{"--subject", "a\nBcc: x@y"}, "--subject: no line breaks"},
        {{"--from-name", "a\rb"}, "--from-name: no line breaks"},
        {{"--reply-to", "a\n"}, "--reply-to: no line breaks"},
        {{"--to", "a@x>\r\nRCPT TO:<b@x"}, "--to: no line breaks"},
        {{"--bcc", "a@x,,b@x"}, "--bcc: an address is empty"},
        {{"--cc", "a@x; "}, "--cc: an address is empty"},
        {{"--to", "Ann <a@x>"}, "--to: only the address"},
        {{"--from", std::string(255, 'f')}, "--from: longer than 254 bytes"},
        {{"--subject", std::string(1000, 's')}, "--subject: longer than"},
        {{"--user", std::string(200, 'u')}, "too long for a mail server"},
        {{"--password-file", "/dev/null"}, "--password-file without --user"},
        {{"--user", "u", "--password-file", "-"}, "cannot both come from standard input"},
        {{"--server", "127.0.0.1:65536"}, "the port must be 1 to 65535"},
        {{"--server", ":25"}, "--server: no host"},
        {{"--server", "[::1"}, "not HOST[:PORT]"},
        {{"--priority", "urgent"}, "--priority"},
    };
    for (const auto& row : rows) {
        // The last one of an option given twice would be an error of its own.
        CWords words = {"mail"};
        const CWords usual = {"--server", place, "--from", "f@x", "--to", "a@x", "--subject", "S"};
        for (std::size_t at = 0; at < usual.size(); at += 2)
            if (usual[at] != row.m_Extra.front())
                words.insert(words.end(), {usual[at], usual[at + 1]});
        words.insert(words.end(), row.m_Extra.begin(), row.m_Extra.end());
        const CRun run = RunProgram(words, "text");
        EXPECT_EQ(run.m_Status, 2) << row.m_Err;
        EXPECT_NE(run.m_Err.find(row.m_Err), std::string::npos) << row.m_Err << "\n" << run.m_Err;
    }
    EXPECT_EQ(Mail({"--server", place, "/nonexistent"}).m_Status, 1);

    // None of them has used up the one connection.
    EXPECT_EQ(Mail({"--server", place}).m_Status, 0);
    EXPECT_EQ(server.Seen().find("Bcc"), std::string::npos);
}

TEST(MailTool, ReportByMail)
{
    EXPECT_EQ(RunProgram({"report", "--mail-to", "a@x"}).m_Status, 2);
    CSmtpServer server({});
    const CRun run = RunProgram({"report", "--json", "--mail-to", "a@x", "--server",
                                 "127.0.0.1:" + std::to_string(server.Port()), "--trace=0x10"});
    EXPECT_NE(run.m_Out.find("Delivered to"), std::string::npos);
    EXPECT_NE(run.m_Err.find("-> mailesmtp_rcpt TO (a@x)"), std::string::npos);
    EXPECT_EQ(run.m_Err.find("ENTER"), std::string::npos) << "a level that was not asked for";
    const std::string seen = server.Seen();
    const std::size_t body = seen.find("\r\n\r\n{");
    ASSERT_NE(body, std::string::npos) << seen;
    const auto report = nlohmann::json::parse(seen.substr(body, seen.rfind('}') + 1 - body));
    char name[256] = "";
    gethostname(name, sizeof name);
    EXPECT_EQ(report["host"]["name"], name);
    EXPECT_NE(seen.find(std::string("Subject: Report of ") + name + "\r\n"), std::string::npos);
}

} // namespace
