// vornex mail: a notification through a mail server.
#include "Mail.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>

#include <vorn/Trace.h>
#include <vornex/Module.h>
#include <vornex/Numbers.h>

#include "Text.h"

namespace Tool {

namespace {

constexpr unsigned short DefaultPort = 25;
constexpr std::size_t LongestAddress = 254;    // RFC 5321, 4.5.3.1.3, without its angle brackets
constexpr std::size_t LongestLine = 998;       // RFC 5322, 2.1.1
constexpr std::size_t LongestFieldName = 12;   // "X-Priority: "
constexpr std::size_t LongestCommand = 512;    // RFC 5321, 4.5.3.1.4
constexpr std::size_t LargestBody = 1U << 30U; // what a string of the library takes, with room

// The steps of a delivery: their names in the library's traces, longer ones first where one begins
// with another, and what a person calls them. "%" is replaced by what the step was about.
struct CStep
{
    const char* m_Name;
    const char* m_Meaning;
};

constexpr CStep Steps[] = {
    {"mailsmtp_new", "start a session"},
    {"mailsmtp_socket_connect", "connect to %"},
    {"mailesmtp_ehlo/mailsmtp_helo", "agree with the server % on a greeting"},
    {"mailsmtp_auth", "log in as %"},
    {"mailesmtp_mail/mailsmtp_mail", "name the sender %"},
    {"mailesmtp_rcpt/mailsmtp_rcpt", "name the recipient %"},
    {"mailsmtp_data_message", "hand over the message"},
    {"mailsmtp_data", "begin the message"},
};

// By result code.
constexpr const char* Reasons[] = {
    "the cause is not known",
    "the server gave an unexpected answer",
    "the server is not available",
    "the connection was lost, or no answer came in time",
    "the name of this machine cannot be read",
    "the server does not know the command",
    "the server refused",
    "it is more than the server stores",
    "the server has a problem of its own; later may do",
    "the server is short of storage; later may do",
    "the mailbox is not available",
    "the server does not allow the address",
    "the server wants something else first",
    "the recipient is not known there",
    "the server refused the message",
    "memory is short, or an answer cannot be decoded",
    "no way to log in that both sides know",
    "user name or password is wrong",
    "the server wants a login",
    "the way to log in is too weak for the server",
    "the server wants the password changed over first",
    "the server cannot check logins now; later may do",
    "the server wants encryption for this",
    "encryption is not available now",
    "the server has no encryption",
    "refused, not reachable, or the name is not known",
    "the server refused the login",
    "encryption could not be started",
};

// Follows a delivery through its trace lines, which name the step; lines of the levels that the
// user asked for go on to standard error.
class CFollower
{
public:
    CFollower()
    {
        Vorn::Internals::SetTraceSink([this](const Vorn::Internals::CTraceLine& line) {
            if ((line.m_Level & m_Asked) != 0)
                Vorn::Internals::WriteTraceLine(line);
            Follow(std::string(line.m_Text));
        });
        Mask() = m_Asked | Vorn::Internals::TraceEnterLeave | Vorn::Internals::TraceDetail;
    }
    CFollower(const CFollower&) = delete;
    CFollower& operator=(const CFollower&) = delete;
    ~CFollower()
    {
        Mask() = m_Asked;
        Vorn::Internals::SetTraceSink({});
    }

    bool m_Encrypted = true;
    bool m_LoggedIn = false;
    std::string m_Recipient; // the last one named
    std::string m_Missing;   // what of the mail library could not be loaded, and why
    const CStep* m_Failed = nullptr;

private:
    static std::atomic<unsigned int>& Mask() { return VornEx::VORN_MODULE_INFO_VornEx.m_TraceMask; }

    void Follow(const std::string& line)
    {
        constexpr std::string_view Failure = "LEAVE CSmtp::Send () -> ";
        if (line.rfind(Failure, 0) == 0) {
            m_Encrypted = m_Encrypted && line.find("StartSmtpTls") == std::string::npos;
            for (const auto& step : Steps)
                if (line.find(std::string(step.m_Name) + " failed") == Failure.size())
                    m_Failed = &step;
        }
        constexpr std::string_view Missing = "CLateSymbols () -> ";
        if (line.rfind(Missing, 0) == 0)
            m_Missing = line.substr(Missing.size());
        m_LoggedIn = m_LoggedIn || line.find("-> mailsmtp_auth (") != std::string::npos;
        const std::size_t recipient = line.find("smtp_rcpt ");
        const std::size_t open = line.find('(', std::min(recipient, line.size()));
        if (open != std::string::npos)
            m_Recipient = line.substr(open + 1, line.size() - open - 2);
    }

    const unsigned int m_Asked = Mask();
};

// HOST, HOST:PORT, [ADDRESS]:PORT, or an IPv6 address as it is.
struct CServer
{
    std::string m_Host;
    unsigned short m_Port = DefaultPort;
};

CServer ParseServer(const std::string& text)
{
    CServer server{text};
    std::size_t colon = text.find(':');
    if (text.front() == '[') {
        const std::size_t end = text.find(']');
        if (end == std::string::npos || (end + 1 != text.size() && text[end + 1] != ':'))
            throw CUsageError("--server: not HOST[:PORT]: " + text);
        server.m_Host = text.substr(1, end - 1);
        colon = end + 1 == text.size() ? std::string::npos : end + 1;
    } else if (colon != std::string::npos) {
        if (text.find(':', colon + 1) != std::string::npos)
            return server;
        server.m_Host = text.substr(0, colon);
    }
    if (server.m_Host.empty())
        throw CUsageError("--server: no host: " + text);
    if (colon != std::string::npos) {
        std::uint32_t port = 0;
        try {
            port = VornEx::atoui32(text.c_str() + colon + 1, 10);
        } catch (unsigned int) {
            port = 0;
        }
        if (port == 0 || port > 65535)
            throw CUsageError("--server: the port must be 1 to 65535: " + text);
        server.m_Port = static_cast<unsigned short>(port);
    }
    return server;
}

// What stands in one line of the header or the dialogue must not hold another one.
void CheckLine(const std::string& option, const std::string& value, std::size_t longest)
{
    const auto isControl = [](char character) {
        return static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
    };
    if (std::any_of(value.begin(), value.end(), isControl))
        throw CUsageError(option + ": no line breaks and other control characters, please");
    if (value.size() > longest)
        throw CUsageError(option + ": longer than " + std::to_string(longest) + " bytes");
}

void CheckAddress(const std::string& option, const std::string& address)
{
    if (address.empty())
        throw CUsageError(option + ": an address is empty");
    CheckLine(option, address, LongestAddress);
    if (address.find_first_of(" <>") != std::string::npos)
        throw CUsageError(option +
                          ": only the address itself, without name and brackets: " + address);
}

// Gives the number of addresses. The library ends a list silently at an empty entry.
std::size_t CheckList(const std::string& option, const std::string& list)
{
    std::size_t count = 0;
    for (std::size_t from = 0, end = 0; end != std::string::npos; from = end + 1, ++count) {
        end = list.find_first_of(",;", from);
        std::string entry = list.substr(from, end == std::string::npos ? end : end - from);
        entry.erase(0, std::min(entry.size(), entry.find_first_not_of(' ')));
        entry.erase(entry.find_last_not_of(' ') + 1);
        CheckAddress(option, entry);
    }
    return count;
}

// Of a file, or of standard input for "-".
std::string ReadAll(const std::string& path)
{
    std::ifstream file;
    if (path != "-") {
        file.open(path, std::ios::binary);
        if (!file)
            throw std::runtime_error(path + ": cannot be read");
    }
    std::istream& in = path == "-" ? std::cin : file;
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad())
        throw std::runtime_error(path + ": cannot be read");
    if (text.size() > LargestBody)
        throw std::runtime_error(path + ": too large for a mail");
    return text;
}

// The file's first line.
std::string ReadPassword(const std::string& path)
{
    std::string password = ReadAll(path);
    password.erase(std::min(password.size(), password.find('\n')));
    if (!password.empty() && password.back() == '\r')
        password.pop_back();
    return password;
}

// AUTH PLAIN says the user twice and the password once, as base64 in one command.
void CheckLogin(const std::string& user, const std::string& password)
{
    CheckLine("--user", user, LongestCommand);
    CheckLine("--password-file", password, LongestCommand);
    const std::size_t bytes = 2 * user.size() + password.size() + 2;
    if (std::string("AUTH PLAIN \r\n").size() + (bytes + 2) / 3 * 4 > LongestCommand)
        throw CUsageError("--user and password together are too long for a mail server");
}

int ReportFailure(const CMailOptions& options, const CFollower& follower, int code)
{
    std::string step =
        follower.m_Failed != nullptr ? follower.m_Failed->m_Meaning : "send the mail";
    const std::size_t about = step.find('%');
    if (about != std::string::npos) {
        const std::string_view name = follower.m_Failed->m_Name;
        step.replace(about, 1,
                     name == "mailsmtp_auth"                  ? options.m_User
                     : name == "mailesmtp_mail/mailsmtp_mail" ? options.m_From
                     : name == "mailesmtp_rcpt/mailsmtp_rcpt" ? follower.m_Recipient
                                                              : options.m_Server);
    }
    std::string reason = code >= 0 && static_cast<std::size_t>(code) < std::size(Reasons)
                             ? Reasons[code]
                             : Reasons[0];
    if (!follower.m_Missing.empty())
        reason = follower.m_Missing;
    Complain("cannot " + step + ": " + reason + " (" + std::to_string(code) + ")");
    return Failed;
}

} // namespace

void AddServerOptions(CLI::App* app, CMailOptions& options)
{
    app->add_option("--server", options.m_Server,
                    "Mail server, HOST[:PORT]; port 25 unless given, TLS from the start on 465, "
                    "STARTTLS where offered on all others");
    app->add_option("--user", options.m_User, "Log in by this name where the server lets one");
    app->add_option("--password-file", options.m_PasswordFile,
                    "File with the password in its first line, - for standard input");
    app->add_option("--from", options.m_From, "Sender's address");
    app->add_option("--from-name", options.m_FromName, "Sender's name");
}

int Deliver(const CMailOptions& options, const std::string& body)
{
    const CServer server = ParseServer(options.m_Server);
    CheckLine("--server", server.m_Host, LongestAddress);
    CheckAddress("--from", options.m_From);
    CheckLine("--from-name", options.m_FromName, LongestLine - LongestFieldName - LongestAddress);
    CheckLine("--subject", options.m_Subject, LongestLine - LongestFieldName);
    if (!options.m_ReplyTo.empty())
        CheckAddress("--reply-to", options.m_ReplyTo);
    if (options.m_User.empty() && !options.m_PasswordFile.empty())
        throw CUsageError("--password-file without --user");

    VornEx::CSmtp mail;
    std::size_t recipients = CheckList("--to", options.m_To);
    mail.AddTO(options.m_To);
    if (!options.m_Cc.empty()) {
        recipients += CheckList("--cc", options.m_Cc);
        mail.AddCC(options.m_Cc);
    }
    if (!options.m_Bcc.empty()) {
        recipients += CheckList("--bcc", options.m_Bcc);
        mail.AddBCC(options.m_Bcc);
    }
    if (!options.m_User.empty()) {
        const std::string password =
            options.m_PasswordFile.empty() ? "" : ReadPassword(options.m_PasswordFile);
        CheckLogin(options.m_User, password);
        mail.SetUserName(options.m_User);
        mail.SetPassword(password);
    }
    mail.SetServer(server.m_Host, server.m_Port);
    mail.SetFrom(options.m_From, options.m_FromName);
    mail.SetReplyTo(options.m_ReplyTo);
    mail.SetXMailer("vornex");
    mail.SetXPriority(options.m_Priority);
    mail.SetSubject(options.m_Subject);
    mail.SetMessageBody(body);

    const CFollower follower;
    if (!mail.Send())
        return ReportFailure(options, follower, mail.GetLastError());
    std::cout << "Delivered to " << options.m_Server << " for " << recipients
              << (recipients == 1 ? " recipient, " : " recipients, ")
              << (follower.m_Encrypted ? "encrypted, " : "not encrypted, ")
              << (follower.m_LoggedIn ? "logged in as " + options.m_User : "not logged in") << '\n';
    return Done;
}

namespace {

struct COptions
{
    CMailOptions m_Mail;
    std::string m_Body = "-";
};

int Mail(const COptions& options)
{
    if (options.m_Body == "-" && options.m_Mail.m_PasswordFile == "-")
        throw CUsageError("body and password cannot both come from standard input");
    return Deliver(options.m_Mail, ReadAll(options.m_Body));
}

} // namespace

void AddMail(CProgram& program)
{
    const auto command = program.Add("mail", "Send a notification by mail", Mail);
    CLI::App* const app = command.m_App;
    CMailOptions& mail = command.m_Options->m_Mail;
    AddServerOptions(app, mail);
    app->add_option("--to", mail.m_To, "Recipients, addresses between commas")->required();
    app->add_option("--cc", mail.m_Cc, "More recipients");
    app->add_option("--bcc", mail.m_Bcc,
                    "More recipients; beware: the header names them like the others");
    app->add_option("--subject", mail.m_Subject, "Subject")->required();
    app->add_option("--reply-to", mail.m_ReplyTo, "Where answers go");
    app->add_option("--priority", mail.m_Priority, "high, normal (default) or low")
        ->transform(CLI::CheckedTransformer(std::map<std::string, VornEx::CSmtpXPriority>{
            {"high", VornEx::CSMTP_XPRIORITY_HIGH},
            {"normal", VornEx::CSMTP_XPRIORITY_NORMAL},
            {"low", VornEx::CSMTP_XPRIORITY_LOW}}));
    app->add_option("BODY", command.m_Options->m_Body,
                    "File with the text, - (default) for standard input");
    app->get_option("--server")->required();
    app->get_option("--from")->required();
}

} // namespace Tool
