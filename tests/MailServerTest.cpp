// Delivery through a real Postfix (with-postfix.sh): each way to connect and to log in, and
// messages read back from the mailbox.
#include <chrono>
#include <thread>

#include <vornex/Smtp.h>

#include "DataTable.h"
#include "ScratchFolder.h"

namespace {

const std::string Folder = std::getenv("VORNEX_POSTFIX");

// The text that look gives as soon as there is some; empty after ten seconds.
template <class Look>
std::string WaitFor(Look look)
{
    std::string text;
    for (int tries = 0; text.empty() && tries < 500; ++tries) {
        text = look();
        if (text.empty())
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return text;
}

// The message in the mailbox that has this subject.
std::string Arrived(const std::string& subject)
{
    return WaitFor([&subject]() -> std::string {
        std::error_code error;
        for (const auto& file :
             std::filesystem::directory_iterator(Folder + "/mail/inbox/new", error)) {
            std::string text = FileContent(file.path());
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
    EachRow("mail-server", "ways", [](const CDataRow& row) {
        const std::size_t logged = FileContent(Folder + "/maillog").size();
        const int error = row.Number(3);
        VornEx::CSmtp mail;
        Fill(mail, row.Number<unsigned short>(1), row[0]);
        if (row[2] != "NULL") {
            mail.SetUserName("tester");
            mail.SetPassword(row[2]);
        }
        mail.SetMessageBody("body");
        EXPECT_EQ(mail.Send(), error == 0);
        EXPECT_EQ(mail.GetLastError(), error);
        const std::string protocol = " with " + row[4] + " id ";
        if (error == 0) {
            EXPECT_NE(Arrived(row[0]).find(protocol), std::string::npos);
        }
        // The server takes mail without a login too: only its log tells of one.
        const char* const last = error == 0 ? ": client=" : ": disconnect from";
        std::string log; // in which the connection before may still be seen off
        WaitFor([&]() -> std::string {
            log = FileContent(Folder + "/maillog").substr(logged);
            const bool isThere =
                log.find(last) != std::string::npos && log.find(row[5]) != std::string::npos;
            return isThere ? log : "";
        });
        EXPECT_NE(log.find(row[5]), std::string::npos) << log;
        if (row[5].empty()) {
            EXPECT_EQ(log.find("sasl_"), std::string::npos) << log;
        }
    });
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
    for (const unsigned short port : std::initializer_list<unsigned short>{2525, 2587}) {
        const auto check = [port](const std::string& sent, const std::string& stored) {
            static int number = 0;
            const std::string subject = "body " + std::to_string(++number);
            VornEx::CSmtp mail;
            Fill(mail, port, subject);
            mail.SetMessageBody(sent);
            EXPECT_TRUE(mail.Send()) << mail.GetLastError();
            const std::string message = Arrived(subject);
            const std::size_t body = message.find("\n\n");
            ASSERT_NE(body, std::string::npos);
            EXPECT_TRUE(message.substr(body + 2) == stored + "\n\n");
        };
        EachRow("mail-server", "bodies", [&check](const CDataRow& row) { check(row[0], row[1]); });
        check(bytes, bytes);
        check(large, large);
    }
}

} // namespace
