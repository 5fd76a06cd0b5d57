#include <vornex/Smtp.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <new>

#include <dlfcn.h>
#include <sys/stat.h>

#include <vorn/Application.h>
#include <vornex/StringTokenizer.h>

#include "SmtpGuard.h"
#include "Tracing.h"

namespace VornEx {

using Internals::Mail;
using Internals::TraceCall;
using Internals::TraceDetail;
using Vorn::Strings::CStringRef;
using Vorn::Strings::CStringVar;
using Vorn::Strings::CSubStringRef;

namespace {

constexpr const char* Source = "Src/ESmtp.cpp";

constexpr unsigned short SslPort = 465;
constexpr const char* DefaultHost = "localhost";
constexpr const char* SaslDirectory = "sasl2";
constexpr const char* SaslParent = "bin";
constexpr int ReturnFull = 1;
constexpr const char* EnvelopeId = "__MESSAGE__ID__54yg6f6h6y456345"; // the same for every message
constexpr int Notify = MAILSMTP_DSN_NOTIFY_FAILURE | MAILSMTP_DSN_NOTIFY_DELAY;
constexpr int TlsFailed = 8;
constexpr int LastEtPanCode = 27;

constexpr std::size_t ReplyBudget = 262'144;
constexpr std::size_t ReplyBudgetPerRecipient = 1024;

void AppendEntries(CStringVar& header, const char* field,
                   const std::vector<CSmtp::Recipient>& recipients, std::size_t count)
{
    header << field;
    for (std::size_t index = 0; index < std::min(count, recipients.size()); ++index) {
        if (index != 0)
            header << ",";
        header << recipients[index].m_Name << "<" << recipients[index].m_Address << ">";
    }
    header << "\r\n";
}

void AppendDate(CStringVar& header)
{
    const std::time_t now = std::time(nullptr);
    char date[64] = "";
    std::tm local{};
    tzset(); // localtime_r alone need not notice that TZ has changed
    // The TAB is meant.
    if (localtime_r(&now, &local) == nullptr ||
        std::strftime(date, sizeof date, "%a,\t%d %b %Y %H:%M:%S", &local) == 0)
        date[0] = '\0';
    const auto west = static_cast<unsigned int>(std::labs(timezone));
    (header.Format("Date: %s %c%02d%02d\r\n") << date)
        .FormatInt(timezone < 0 ? '+' : '-')
        .FormatInt(west / 3600)
        .FormatInt(west / 60 % 60);
}

} // namespace

CSmtp::~CSmtp() = default;

void CSmtp::SetFrom(const CStringRef& address)
{
    m_From = address;
}

void CSmtp::SetFrom(const CStringRef& address, const CStringRef& name)
{
    m_From = address;
    m_FromName = name;
}

void CSmtp::SetSubject(const CStringRef& subject)
{
    m_Subject = subject;
}

void CSmtp::SetMessageBody(const CStringRef& body)
{
    m_Body = body;
}

void CSmtp::SetReplyTo(const CStringRef& address)
{
    m_ReplyTo = address;
}

void CSmtp::SetXMailer(const CStringRef& program)
{
    m_XMailer = program;
}

void CSmtp::SetUserName(const CStringRef& user)
{
    m_UserName = user;
}

void CSmtp::SetPassword(const CStringRef& password)
{
    m_Password = password;
}

void CSmtp::SetServer(const CStringRef& host, unsigned short port)
{
    m_Port = port;
    m_Server = host;
}

void CSmtp::SetXPriority(CSmtpXPriority priority)
{
    m_Priority = priority;
}

bool CSmtp::AddTO(const CStringRef& list)
{
    return AddList(m_To, list, "AddTO");
}

bool CSmtp::AddCC(const CStringRef& list)
{
    return AddList(m_Cc, list, "AddCC");
}

bool CSmtp::AddBCC(const CStringRef& list)
{
    return AddList(m_Bcc, list, "AddBCC");
}

bool CSmtp::AddTO(const CStringRef& address, const CStringRef& name)
{
    return AddNamed(m_To, address, name, "AddTO");
}

bool CSmtp::AddCC(const CStringRef& address, const CStringRef& name)
{
    return AddNamed(m_Cc, address, name, "AddCC");
}

bool CSmtp::AddBCC(const CStringRef& address, const CStringRef& name)
{
    return AddNamed(m_Bcc, address, name, "AddBCC");
}

bool CSmtp::AddList(std::vector<Recipient>& recipients, const CStringRef& list,
                    const char* operation)
{
    TraceCall(Source, __LINE__, "ENTER CSmtp::%s ()", operation);
    if (list == Vorn::Strings::_TEmpty) {
        m_LastError = CSMTP_ERROR_NO_RECIPIENT_MAIL;
        TraceCall(Source, __LINE__, "LEAVE CSmtp::%s () -> CSMTP_ERROR_NO_RECIPIENT_MAIL",
                  operation);
        return false;
    }
    CStringTokenizer entries(list, ",;");
    Vorn::Strings::TString<64> entry;
    // An empty entry ends the list, on purpose.
    while (entries.Next(entry) && entry.m_Length != 0) {
        Recipient recipient;
        Trim(entry, recipient.m_Address);
        TraceDetail(Source, __LINE__, "CSmtp::%s () add recipient %s", operation,
                    recipient.m_Address);
        recipients.push_back(std::move(recipient));
    }
    TraceCall(Source, __LINE__, "LEAVE CSmtp::%s ()", operation);
    return true;
}

bool CSmtp::AddNamed(std::vector<Recipient>& recipients, const CStringRef& address,
                     const CStringRef& name, const char* operation)
{
    TraceCall(Source, __LINE__, "ENTER CSmtp::%s ()", operation);
    if (address == Vorn::Strings::_TEmpty || name == Vorn::Strings::_TEmpty) {
        m_LastError = CSMTP_ERROR_NO_RECIPIENT_MAIL;
        TraceCall(Source, __LINE__, "LEAVE CSmtp::%s () -> CSMTP_ERROR_NO_RECIPIENT_MAIL",
                  operation);
        return false;
    }
    TraceDetail(Source, __LINE__, "CSmtp::%s () add recipient %s(%s)", operation, address, name);
    Recipient recipient;
    recipient.m_Address = address;
    recipient.m_Name = name;
    recipients.push_back(std::move(recipient));
    TraceCall(Source, __LINE__, "LEAVE CSmtp::%s ()", operation);
    return true;
}

void CSmtp::Trim(const CStringRef& in, CStringVar& out)
{
    const auto isSpace = [](char character) {
        return std::isspace(static_cast<unsigned char>(character)) != 0;
    };
    const char* start = in.Text();
    const char* end = start + in.Length();
    start = std::find_if_not(start, end, isSpace);
    while (end > start && (isSpace(end[-1]) || end[-1] == '\0'))
        --end;
    const CSubStringRef trimmed(start, static_cast<unsigned int>(end - start));
    if (trimmed.Length() == 0) {
        out.Clear();
    } else {
        // The text may be that of out: it is moved, not overwritten first.
        out.m_Length = 0;
        out << trimmed;
    }
}

bool CSmtp::FormatHeader(CStringVar& header)
{
    TraceCall(Source, __LINE__, "ENTER CSmtp::FormatHeader ()");
    if (m_To.empty()) {
        m_LastError = CSMTP_ERROR_NO_RECIPIENTS;
        TraceCall(Source, __LINE__,
                  "LEAVE CSmtp::FormatHeader () -> failed CSMTP_ERROR_NO_RECIPIENTS");
        return false;
    }
    if (m_From == Vorn::Strings::_TEmpty) {
        m_LastError = CSMTP_ERROR_NO_MAILFROM;
        TraceCall(Source, __LINE__,
                  "LEAVE CSmtp::FormatHeader () -> failed CSMTP_ERROR_NO_MAILFROM");
        return false;
    }

    AppendDate(header);
    // A sender without a name leaves two blanks behind the colon, on purpose.
    header << "From: " << m_FromName << " <" << m_From << ">\r\n";
    if (m_XMailer.m_Length != 0)
        header << "X-Mailer: " << m_XMailer << "\r\n";
    if (m_ReplyTo.m_Length != 0)
        header << "Reply-To: " << m_ReplyTo << "\r\n";
    header << (m_Priority == CSMTP_XPRIORITY_HIGH  ? "X-Priority: 2 (High)\r\n"
               : m_Priority == CSMTP_XPRIORITY_LOW ? "X-Priority: 4 (Low)\r\n"
                                                   : "X-Priority: 3 (Normal)\r\n");
    // The To list's length counts for all three, on purpose.
    AppendEntries(header, "To: ", m_To, m_To.size());
    if (!m_Cc.empty())
        AppendEntries(header, "Cc: ", m_Cc, m_To.size());
    if (!m_Bcc.empty())
        AppendEntries(header, "Bcc: ", m_Bcc, m_To.size());
    if (m_Subject == Vorn::Strings::_TEmpty) {
        m_LastError = CSMTP_ERROR_NO_SUBJECT;
        header << "Subject:  \r\n";
    } else {
        header << "Subject: " << m_Subject << "\r\n";
    }
    header << "MIME-Version: 1.0\r\n"
              "Content-type: text/plain; charset=US-ASCII\r\n"
              "Content-Transfer-Encoding: 7bit\r\n"
              "\r\n";
    TraceCall(Source, __LINE__, "LEAVE CSmtp::FormatHeader ()");
    return true;
}

int CSmtp::TranslateEtPanToESmtp(int etpanCode)
{
    return etpanCode >= 1 && etpanCode <= LastEtPanCode ? etpanCode : 0;
}

namespace {

// SASL's own default are locks that do nothing, and mechanisms keep state that connections share.
void UseRealLocksInSasl()
{
    // SASL may call these as long as the process lives: this library must not be unloaded.
    Dl_info self{};
    if (dladdr(&SaslDirectory, &self) != 0)
        dlopen(self.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
    Mail().sasl_set_mutex([]() -> void* { return new (std::nothrow) std::mutex; },
                          [](void* mutex) {
                              static_cast<std::mutex*>(mutex)->lock();
                              return SASL_OK;
                          },
                          [](void* mutex) {
                              static_cast<std::mutex*>(mutex)->unlock();
                              return SASL_OK;
                          },
                          [](void* mutex) { delete static_cast<std::mutex*>(mutex); });
}

// Has mechanisms loaded from the directory, if it exists. The first call in the process decides:
// SASL looks at the path only while it starts. A directory that does not exist would leave it
// without any mechanism; a relative one would let whoever owns the current directory supply them.
void mailsmtp_auth_path(const char* directory)
{
    static const int started = [directory] {
        UseRealLocksInSasl();
        struct stat status = {};
        if (directory[0] == '/' && stat(directory, &status) == 0 && S_ISDIR(status.st_mode)) {
            Vorn::Strings::TString<128> path; // SASL copies it, though it does not say const
            path = directory;
            Mail().sasl_set_path(SASL_PATH_TYPE_PLUGIN, path.m_Text);
        }
        // Never ended: libetpan starts and leaves it with every session.
        return Mail().sasl_client_init(nullptr);
    }();
    static_cast<void>(started);
}

// The directory "sasl2" in the "bin" beside the running program's own.
const CStringVar& SaslPath()
{
    static const Vorn::Strings::CStringEx path = [] {
        Vorn::Strings::CStringEx result;
        Vorn::Misc::CVornApplication::GetProcessPath(result);
        const int slash = CSubStringRef(result).FindLast('/', 0);
        result.Part(static_cast<unsigned int>(slash + 1)).InsertReplace(SaslParent, 0);
        result << "/" << SaslDirectory;
        return result;
    }();
    return path;
}

int Connect(Internals::CGuardedSession& session, const char* host, unsigned short port)
{
    const bool ssl = port == SslPort;
    TraceDetail(Source, __LINE__,
                ssl ? "CSmtp::Send () -> mailsmtp_ssl_connect (%s, %d)"
                    : "CSmtp::Send () -> mailsmtp_socket_connect (%s, %d)",
                host, static_cast<int>(port));
    if (!Internals::DescriptorsFitSelect())
        return MAILSMTP_ERROR_CONNECTION_REFUSED;
    const int result = ssl ? Mail().mailsmtp_ssl_connect(session.Get(), host, port)
                           : Mail().mailsmtp_socket_connect(session.Get(), host, port);
    if (result != MAILSMTP_NO_ERROR)
        return result;
    return session.GuardStream() ? MAILSMTP_NO_ERROR : MAILSMTP_ERROR_MEMORY;
}

// Tells by `extended` whether the server knows EHLO.
int Greet(mailsmtp* session, bool& extended)
{
    extended = Mail().mailesmtp_ehlo(session) == MAILSMTP_NO_ERROR;
    if (extended) {
        TraceDetail(Source, __LINE__, "CSmtp::Send () -> mailesmtp_ehlo");
        return MAILSMTP_NO_ERROR;
    }
    const int result = Mail().mailsmtp_helo(session);
    if (result == MAILSMTP_NO_ERROR)
        TraceDetail(Source, __LINE__, "CSmtp::Send () -> mailsmtp_helo");
    return result;
}

// A server that announces no mechanism, or is no extended one, is not asked.
int Authenticate(mailsmtp* session, bool extended, const CStringVar& user,
                 const CStringVar& password)
{
    if (!extended || session->auth <= MAILSMTP_AUTH_CHECKED || user.m_Length == 0)
        return MAILSMTP_NO_ERROR;
    TraceDetail(Source, __LINE__,
                password.m_Length == 0 ? "CSmtp::Send () -> mailsmtp_auth (%s)"
                                       : "CSmtp::Send () -> mailsmtp_auth (%s, ****)",
                user);
    return Mail().mailsmtp_auth(session, user.m_Text, password.m_Text);
}

int GiveSender(mailsmtp* session, bool extended, const CStringVar& from)
{
    TraceDetail(Source, __LINE__,
                extended ? "CSmtp::Send () -> mailesmtp_mail (%s)"
                         : "CSmtp::Send () -> mailsmtp_mail (%s)",
                from);
    return extended ? Mail().mailesmtp_mail(session, from.m_Text, ReturnFull, EnvelopeId)
                    : Mail().mailsmtp_mail(session, from.m_Text);
}

int GiveRecipients(mailsmtp* session, bool extended,
                   const std::vector<CSmtp::Recipient>& recipients, const char* list)
{
    for (const auto& recipient : recipients) {
        TraceDetail(Source, __LINE__,
                    extended ? "CSmtp::Send () -> mailesmtp_rcpt %s (%s)"
                             : "CSmtp::Send () -> mailsmtp_rcpt %s (%s)",
                    list, recipient.m_Address);
        const char* const address = recipient.m_Address.m_Text;
        const int result = extended ? Mail().mailesmtp_rcpt(session, address, Notify, nullptr)
                                    : Mail().mailsmtp_rcpt(session, address);
        if (result != MAILSMTP_NO_ERROR)
            return result;
    }
    return MAILSMTP_NO_ERROR;
}

} // namespace

bool CSmtp::Send()
{
    TraceCall(Source, __LINE__, "ENTER CSmtp::Send ()");
    const Internals::CPipeSignalBlock noPipeSignal;
    Internals::CGuardedSession session(
        ReplyBudget + ReplyBudgetPerRecipient * (m_To.size() + m_Cc.size() + m_Bcc.size()));
    if (session.Get() == nullptr) {
        TraceCall(Source, __LINE__, "LEAVE CSmtp::Send () -> mailsmtp_new failed");
        return false;
    }
    const auto fail = [&](int result, const char* leave) {
        session.Free();
        m_LastError = TranslateEtPanToESmtp(result);
        TraceCall(Source, __LINE__, leave, result);
        return false;
    };
    const auto failedGreeting = "LEAVE CSmtp::Send () -> mailesmtp_ehlo/mailsmtp_helo failed %d";

    TraceDetail(Source, __LINE__, "CSmtp::Send () -> mailsmtp_auth_path (%s)", SaslPath());
    mailsmtp_auth_path(SaslPath().m_Text);
    const char* const host = m_Server.m_Length != 0 ? m_Server.m_Text : DefaultHost;
    if (const int result = Connect(session, host, m_Port))
        return fail(result, "LEAVE CSmtp::Send () -> mailsmtp_socket_connect failed %d");

    bool extended = false;
    if (const int result = Greet(session.Get(), extended))
        return fail(result, failedGreeting);
    if (m_Port != SslPort) {
        // Without TLS it goes on: encryption is taken where it can be had.
        if (const int result = StartSmtpTls(session.Get()))
            TraceCall(Source, __LINE__, "LEAVE CSmtp::Send () -> StartSmtpTls failed %d; continue",
                      result);
        else if (!session.GuardStream())
            return fail(MAILSMTP_ERROR_MEMORY, failedGreeting);
        if (const int result = Greet(session.Get(), extended))
            return fail(result, failedGreeting);
    }
    if (const int result = Authenticate(session.Get(), extended, m_UserName, m_Password))
        return fail(result, "LEAVE CSmtp::Send () -> mailsmtp_auth failed %d");
    if (const int result = GiveSender(session.Get(), extended, m_From))
        return fail(result, "LEAVE CSmtp::Send () -> mailesmtp_mail/mailsmtp_mail failed %d");

    const struct
    {
        const std::vector<Recipient>& m_Recipients;
        const char* m_Name;
    } lists[] = {{m_To, "TO"}, {m_Cc, "CC"}, {m_Bcc, "BCC"}};
    for (const auto& list : lists)
        if (const int result =
                GiveRecipients(session.Get(), extended, list.m_Recipients, list.m_Name))
            return fail(result, "LEAVE CSmtp::Send () -> mailesmtp_rcpt/mailsmtp_rcpt failed %d");

    TraceDetail(Source, __LINE__, "CSmtp::Send () -> mailsmtp_data");
    if (const int result = Mail().mailsmtp_data(session.Get()))
        return fail(result, "LEAVE CSmtp::Send () -> mailsmtp_data failed %d");

    Vorn::Strings::TString<128> message;
    TraceDetail(Source, __LINE__, "CSmtp::Send () -> FormatHeader");
    // As late as this, and without a line of its own, on purpose.
    if (!FormatHeader(message))
        return false;
    message.Alloc(message.m_Length + m_Body.m_Length + 2);
    message.Format("%s\r\n") << m_Body;

    TraceDetail(Source, __LINE__, "CSmtp::Send () -> mailsmtp_data_message");
    session.BeginMessage();
    if (const int result =
            Mail().mailsmtp_data_message(session.Get(), message.m_Text, message.m_Length))
        return fail(result, "LEAVE CSmtp::Send () -> mailsmtp_data_message failed %d");

    TraceDetail(Source, __LINE__, "CSmtp::Send () -> mailsmtp_free");
    session.Free();
    TraceCall(Source, __LINE__, "LEAVE CSmtp::Send ()");
    return true;
}

namespace {

int SwitchToTls(mailsmtp* session)
{
    if (const int result = Mail().mailesmtp_starttls(session)) {
        TraceCall(Source, __LINE__, "LEAVE StartSmtpTls () -> mailesmtp_starttls failed %d",
                  result);
        return result;
    }
    mailstream_low* const plain = Mail().mailstream_get_low(session->stream);
    if (plain == nullptr) {
        TraceCall(Source, __LINE__, "LEAVE StartSmtpTls () -> mailstream_get_low failed");
        return TlsFailed;
    }
    const int socket = Mail().mailstream_low_get_fd(plain);
    if (socket < 0) {
        TraceCall(Source, __LINE__, "LEAVE StartSmtpTls () -> mailstream_low_get_fd failed");
        return TlsFailed;
    }
    mailstream_low* tls = Mail().mailstream_low_tls_open(socket);
    if (tls == nullptr) {
        TraceCall(Source, __LINE__,
                  "LEAVE StartSmtpTls () -> mailstream_low_tls_open failed; continue");
        tls = Mail().mailstream_low_ssl_open(socket);
    }
    if (tls == nullptr) {
        TraceCall(Source, __LINE__, "LEAVE StartSmtpTls () -> mailstream_low_ssl_open failed");
        return TlsFailed;
    }
    Mail().mailstream_low_free(plain);
    Mail().mailstream_set_low(session->stream, tls);
    return 0;
}

} // namespace

int StartSmtpTls(mailsmtp* session)
{
    if (session == nullptr || !Internals::LoadMailLibrary())
        return TlsFailed;
    const int result = SwitchToTls(session);
    // What was sent ahead would be taken for the answer to the next command.
    if (session->stream != nullptr)
        session->stream->read_buffer_len = 0;
    return result;
}

} // namespace VornEx
