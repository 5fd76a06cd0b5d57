// Plain-text mail notifications over SMTP.
//
//     VornEx::CSmtp mail;
//     mail.SetServer("mail.example.org", 587);
//     mail.SetUserName("agent");
//     mail.SetPassword(password);
//     mail.SetFrom("agent@example.org", "Backup agent");
//     mail.AddTO("ann@example.org; bob@example.org");
//     mail.SetSubject("Backup done");
//     mail.SetMessageBody("All 214 files are safe.\n");
//     if (!mail.Send())
//         Complain(mail.GetLastError());
//
// One object is one message. Send makes one connection to one server: TLS from the start on port
// 465; on every other port plain, with an attempt at STARTTLS. It logs in when a user name is set
// and the server offers a mechanism (DIGEST-MD5, CRAM-MD5, PLAIN, LOGIN, the best that is offered),
// gives the sender and every To, Cc and Bcc recipient, and transfers header and body. Failures are
// told by false and GetLastError(); nothing is raised, nothing is tried twice. Memory that runs out
// throws std::bad_alloc, or fails the session, with everything given back.
//
// What it does not do, so that a host can decide:
//  - Values are not checked, folded, encoded or escaped. A line break in a name, an address or the
//    subject is a line break in the header, and in an address one in the dialogue: take it out of
//    text that is not your own. Text that is not ASCII goes out as it is, under a header that says
//    US-ASCII and 7bit.
//  - An address, or user name and password, for which a command would pass SMTP's 512 bytes fails
//    its step; the command is not sent.
//  - STARTTLS is opportunistic. When the server does not offer it, or it fails, the session goes
//    on unencrypted, and so does the password with PLAIN and LOGIN. Port 465 never does.
//  - Certificates are not verified by the TLS layer underneath, and the server's name is not sent
//    to it: encryption keeps a listener out, not somebody who stands in for the server.
//  - A server that offers no mechanism, or none that the library underneath knows, gets the mail
//    unauthenticated, user name and password set or not; so does one that only knows HELO.
//  - The Bcc list is written into the header, where all recipients see it.
//  - There is no time limit on the whole. Each wait for the server ends after 300 seconds, the
//    library's default; a signal handler that runs meanwhile does not end it, except while
//    connecting.
//
// What a server, however hostile, cannot do: kill the process by SIGPIPE, which is blocked for the
// calling thread meanwhile (mask, disposition and pending signals are afterwards as they were);
// make it loop; or make it keep more than 256 KiB of replies and 1 KiB for each recipient. A host
// with so many descriptors open that a new one would come near 1024, where select(2) ends, is
// refused before it connects, with the code of a refused connection.
//
// SASL. Mechanisms are loaded from the directory "sasl2" in the directory "bin" beside the
// program's own, where that exists, and from the system's place otherwise. Cyrus SASL takes such a
// path only before it is started, so that the first Send of a process decides for its whole life;
// SASL then stays started. A host that starts SASL itself keeps its own choice.
//
// libetpan and SASL are loaded by the first Send, or StartSmtpTls, of a process and stay. Where
// they cannot be loaded Send fails and leaves the code as it was; the trace has the reason.
#pragma once

#include <vector>

#include <vorn/Export.h>
#include <vorn/StringVar.h>

struct mailsmtp; // a session of libetpan

namespace VornEx {

// What GetLastError tells beyond 0 (no error, or one that has no code) and 1 to 27, which are the
// codes of libetpan's <libetpan/mailsmtp_types.h>: 25 is MAILSMTP_ERROR_CONNECTION_REFUSED.
enum CSmtpError : int
{
    CSMTP_ERROR_NO_RECIPIENT_MAIL = 28, // an adder was given an empty text
    CSMTP_ERROR_NO_RECIPIENTS = 29,     // the To list is empty
    CSMTP_ERROR_NO_MAILFROM = 30,       // the sender is empty
    CSMTP_ERROR_NO_SUBJECT = 31,        // a warning: the header is made and the mail sent
};

enum CSmtpXPriority : int
{
    CSMTP_XPRIORITY_HIGH = 2,
    CSMTP_XPRIORITY_NORMAL = 3, // and every other value
    CSMTP_XPRIORITY_LOW = 4,
};

// One thread at a time an object; several objects may send at once. All texts are copied.
class VORN_EXPORT CSmtp
{
public:
    struct Recipient
    {
        Vorn::Strings::CStringEx m_Address;
        Vorn::Strings::CStringEx m_Name; // may be empty
    };

    CSmtp() = default;
    CSmtp(const CSmtp&) = default;
    CSmtp& operator=(const CSmtp&) = default;
    virtual ~CSmtp();

    // The code of the newest failure; nothing sets it back to 0, a later success neither.
    int GetLastError() const { return m_LastError; }

    // A name set earlier stays when only the address is given.
    void SetFrom(const Vorn::Strings::CStringRef& address);
    void SetFrom(const Vorn::Strings::CStringRef& address, const Vorn::Strings::CStringRef& name);
    void SetSubject(const Vorn::Strings::CStringRef& subject);
    // Lines may end in LF or CR LF; they leave in CR LF. A last line end is added.
    void SetMessageBody(const Vorn::Strings::CStringRef& body);
    void SetReplyTo(const Vorn::Strings::CStringRef& address);
    void SetXMailer(const Vorn::Strings::CStringRef& program);
    void SetUserName(const Vorn::Strings::CStringRef& user);
    void SetPassword(const Vorn::Strings::CStringRef& password);
    // A name or a numeric address of IPv4 or IPv6, "" for localhost (the default, with port 25); a
    // name with "/" in front is the path of a UNIX socket. Port 0 is what the system's services
    // call smtp.
    void SetServer(const Vorn::Strings::CStringRef& host, unsigned short port);
    void SetXPriority(CSmtpXPriority priority);

    // Adds recipients from a list of addresses separated by commas or semicolons, blanks around
    // them taken off. An empty entry ("a,,b") ends the list: what follows it is not added, which is
    // meant; an entry of blanks adds an empty address. False with CSMTP_ERROR_NO_RECIPIENT_MAIL,
    // and nothing added, for an empty list.
    bool AddTO(const Vorn::Strings::CStringRef& list);
    bool AddCC(const Vorn::Strings::CStringRef& list);
    bool AddBCC(const Vorn::Strings::CStringRef& list);

    // Adds one recipient as given. False with CSMTP_ERROR_NO_RECIPIENT_MAIL, and nothing added,
    // when either text is empty.
    bool AddTO(const Vorn::Strings::CStringRef& address, const Vorn::Strings::CStringRef& name);
    bool AddCC(const Vorn::Strings::CStringRef& address, const Vorn::Strings::CStringRef& name);
    bool AddBCC(const Vorn::Strings::CStringRef& address, const Vorn::Strings::CStringRef& name);

    // The text without white space (isspace(3)) at its ends and without NUL bytes at its end.
    void Trim(const Vorn::Strings::CStringRef& in, Vorn::Strings::CStringVar& out);

    // Appends the message header up to and with its blank line. False, with nothing appended, for
    // CSMTP_ERROR_NO_RECIPIENTS and CSMTP_ERROR_NO_MAILFROM. Of the Cc and Bcc lists as many
    // entries are written as the To list has, at most their own; the rest gets the mail all the
    // same. That rule is meant.
    //
    // The date is made with localtime_r(3) and the variable timezone, in the host's locale: not for
    // several threads at once while one of them changes the time zone. The zone it names is that
    // of standard time, also in summer, which is meant.
    bool FormatHeader(Vorn::Strings::CStringVar& header);

    // Delivers the message. Blocks for the whole dialogue. True when the server took the message
    // for every recipient; the first refusal ends the session, and nobody gets it. The object stays
    // as it is and can send again.
    //
    // A message without To recipients or without sender is noticed only after the server has been
    // told to expect data; the session then ends and the server drops the message.
    bool Send();

    // 1 to 27 as they are, everything else 0.
    int TranslateEtPanToESmtp(int etpanCode);

private:
    friend struct CLayoutCheck; // Src/Layout.cpp
    bool AddList(std::vector<Recipient>& recipients, const Vorn::Strings::CStringRef& list,
                 const char* operation);
    bool AddNamed(std::vector<Recipient>& recipients, const Vorn::Strings::CStringRef& address,
                  const Vorn::Strings::CStringRef& name, const char* operation);

    int m_LastError = 0;
    Vorn::Strings::CStringEx m_From;
    Vorn::Strings::CStringEx m_FromName;
    Vorn::Strings::TString<16> m_Subject;
    Vorn::Strings::TString<16> m_Body;
    Vorn::Strings::TString<16> m_XMailer;
    Vorn::Strings::TString<16> m_ReplyTo;
    Vorn::Strings::TString<16> m_UserName;
    Vorn::Strings::TString<16> m_Password;
    Vorn::Strings::TString<16> m_Server;
    unsigned short m_Port = 25;
    CSmtpXPriority m_Priority = CSMTP_XPRIORITY_NORMAL;
    std::vector<Recipient> m_To;
    std::vector<Recipient> m_Cc;
    std::vector<Recipient> m_Bcc;
};

// Turns the plain connection of a greeted session into a TLS one. 0 when done; 8 or libetpan's
// result of the STARTTLS command when not, with the session as it was. Whatever happened, bytes
// that the server had sent ahead are dropped: they were not protected. Greet again afterwards.
//
// For hosts that hold a session of libetpan's themselves; CSmtp::Send calls it. SIGPIPE is theirs
// to deal with. A null session gives 8, and so does a libetpan that cannot be loaded.
VORN_EXPORT int StartSmtpTls(mailsmtp* session);

} // namespace VornEx
