// vornex mail and vornex report --mail-to: what leaves, what is refused, and what the user is told.
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include "RunProgram.h"
#include "SmtpServer.h"

namespace {

using CWords = std::vector<std::string>;

// Runs "vornex mail" with a complete message, but for options that are given otherwise: the last
// one of an option given twice would be an error of its own.
CRun Mail(const CSmtpServer& server, const CWords& extra, const std::string& input = "text\n")
{
    CWords words = {"mail"};
    const CWords usual = {"--server", server.Place(), "--from",    "f@x",
                          "--to",     "a@x",          "--subject", "S"};
    for (std::size_t at = 0; at < usual.size(); at += 2)
        if (extra.empty() || usual[at] != extra.front())
            words = Joined(words, {usual[at], usual[at + 1]});
    return RunProgram(Joined(words, extra), input);
}

TEST(MailTool, DeliversWithEverything)
{
    const CScratchFolder folder;
    const std::string body = folder.m_Path + "/body";
    WriteFile(body, "first\n.second");
    CSmtpServer server(CAnswers{{"EHLO", "250-x\r\n250 AUTH PLAIN\r\n"}});
    const CRun run = Mail(server,
                          {"--from-name", "Agent", "--cc", "c@x; d@x", "--bcc", "b@x", "--reply-to",
                           "r@x", "--priority", "low", "--user", "u", "--password-file", "-", body},
                          "p w\r\nnot this\n");
    EXPECT_EQ(run.m_Err, "");
    EXPECT_EQ(run.m_Status, 0);
    EXPECT_EQ(run.m_Out, "Delivered to " + server.Place() +
                             " for 4 recipients, not encrypted, logged in as u\n");
    const std::string seen = server.Seen();
    for (const char* const part :
         {"AUTH PLAIN dQB1AHAgdw==\n", "RCPT TO:<d@x>\nRCPT TO:<b@x>\n", "From: Agent <f@x>\r\n",
          "X-Mailer: vornex\r\nReply-To: r@x\r\nX-Priority: 4 (Low)\r\nTo: <a@x>\r\nCc: <c@x>\r\n",
          "Subject: S\r\n", "\r\n\r\nfirst\r\n..second\r\n"})
        EXPECT_NE(seen.find(part), std::string::npos) << part << seen;
}

TEST(MailTool, SaysWhichStepFailed)
{
    EachRow("tool", "mail, failed", [](const CDataRow& row) {
        CAnswers answers;
        std::size_t at = 1;
        for (; row[at] != "ARGUMENTS"; at += 2)
            answers[row[at] == "GREETING" ? "" : row[at]] = row[at + 1];
        CSmtpServer server(answers);
        const CRun run = Mail(server, row.From(at + 1));
        EXPECT_EQ(run.m_Err,
                  "vornex: " + Replaced(row[0], "127.0.0.1:PORT", server.Place()) + "\n");
        EXPECT_EQ(run.m_Status, 1);
        EXPECT_EQ(run.m_Out, "");
        EXPECT_EQ(server.Seen().rfind("connected\n", 0), 0U);
    });
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
    EachRow("tool", "mail, refused", [&server](const CDataRow& row) {
        const CRun run = Mail(server, row.From(1));
        EXPECT_EQ(run.m_Status, 2);
        EXPECT_NE(run.m_Err.find(row[0]), std::string::npos) << run.m_Err;
    });
    EXPECT_EQ(Mail(server, {"/nonexistent"}).m_Status, 1);

    // None of them has used up the one connection.
    EXPECT_EQ(Mail(server, {}).m_Status, 0);
    EXPECT_EQ(server.Seen().find("Bcc"), std::string::npos);
}

TEST(MailTool, ReportByMail)
{
    EXPECT_EQ(RunProgram({"report", "--mail-to", "a@x"}).m_Status, 2);
    CSmtpServer server({});
    const CRun run = RunProgram(
        {"report", "--json", "--mail-to", "a@x", "--server", server.Place(), "--trace=0x10"});
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
