// Fuzz target of mail messages: calls of the adders and setters with texts of any bytes, a text
// ended by a line feed, then the header, which must be that of a plain model.
#include <algorithm>
#include <vector>

#include <vornex/Smtp.h>

#include "Fuzz.h"

namespace {

using VornEx::CSmtp;

struct CEntry
{
    std::string m_Address, m_Name;
};

// An isspace of its own, for "C" is the only locale here.
bool IsSpace(char character)
{
    return character == ' ' || (character >= '\t' && character <= '\r');
}

std::string Trimmed(std::string text)
{
    while (!text.empty() && (IsSpace(text.back()) || text.back() == '\0'))
        text.pop_back();
    // What is left of NUL bytes alone is nothing; others stay at the start.
    const auto begin = std::find_if_not(text.begin(), text.end(), IsSpace);
    return {begin, text.end()};
}

// The entries of a list up to the first empty one; one separator in front is stepped over.
std::vector<CEntry> ListEntries(std::string list)
{
    static constexpr const char* Separators = ",;";
    if (list.find_first_of(Separators) == 0)
        list.erase(0, 1);
    std::vector<CEntry> entries;
    while (!list.empty()) {
        const std::size_t end = std::min(list.find_first_of(Separators), list.size());
        if (end == 0)
            break;
        entries.push_back({Trimmed(list.substr(0, end)), ""});
        list.erase(0, end + 1);
    }
    return entries;
}

std::string Line(const char* name, const std::vector<CEntry>& entries, std::size_t count)
{
    std::string line = name;
    for (std::size_t index = 0; index < std::min(count, entries.size()); ++index)
        line +=
            (index != 0 ? "," : "") + entries[index].m_Name + "<" + entries[index].m_Address + ">";
    return line + "\r\n";
}

struct CModel
{
    // The header behind its date.
    std::string Header() const
    {
        std::string text = "From: " + m_FromName + " <" + m_From + ">\r\n";
        if (!m_XMailer.empty())
            text += "X-Mailer: " + m_XMailer + "\r\n";
        if (!m_ReplyTo.empty())
            text += "Reply-To: " + m_ReplyTo + "\r\n";
        text += m_Priority == 2   ? "X-Priority: 2 (High)\r\n"
                : m_Priority == 4 ? "X-Priority: 4 (Low)\r\n"
                                  : "X-Priority: 3 (Normal)\r\n";
        const std::size_t count = m_Lists[0].size();
        text += Line("To: ", m_Lists[0], count);
        if (!m_Lists[1].empty())
            text += Line("Cc: ", m_Lists[1], count);
        if (!m_Lists[2].empty())
            text += Line("Bcc: ", m_Lists[2], count);
        text += "Subject: " + (m_Subject.empty() ? " " : m_Subject) + "\r\n";
        return text + "MIME-Version: 1.0\r\n"
                      "Content-type: text/plain; charset=US-ASCII\r\n"
                      "Content-Transfer-Encoding: 7bit\r\n"
                      "\r\n";
    }

    std::string m_From, m_FromName, m_Subject, m_XMailer, m_ReplyTo;
    int m_Priority = 3;
    int m_LastError = 0;
    std::vector<CEntry> m_Lists[3]; // To, Cc, Bcc
};

void AddList(CSmtp& mail, CModel& model, unsigned int which, const std::string& list)
{
    const bool added = which == 0   ? mail.AddTO(list)
                       : which == 1 ? mail.AddCC(list)
                                    : mail.AddBCC(list);
    Fuzz::Expect(added == !list.empty(), "a list's result");
    for (const CEntry& entry : ListEntries(list))
        model.m_Lists[which].push_back(entry);
    if (!added)
        model.m_LastError = VornEx::CSMTP_ERROR_NO_RECIPIENT_MAIL;
}

void AddNamed(CSmtp& mail, CModel& model, unsigned int which, const CEntry& entry)
{
    const bool added = which == 0   ? mail.AddTO(entry.m_Address, entry.m_Name)
                       : which == 1 ? mail.AddCC(entry.m_Address, entry.m_Name)
                                    : mail.AddBCC(entry.m_Address, entry.m_Name);
    Fuzz::Expect(added == !(entry.m_Address.empty() || entry.m_Name.empty()), "a name's result");
    if (added)
        model.m_Lists[which].push_back(entry);
    else
        model.m_LastError = VornEx::CSMTP_ERROR_NO_RECIPIENT_MAIL;
}

void CheckHeader(CSmtp& mail, CModel& model)
{
    Vorn::Strings::TString<16> header(Vorn::Strings::CStringRef("before "));
    const bool made = mail.FormatHeader(header);
    std::string text(header);
    if (model.m_Lists[0].empty() || model.m_From.empty()) {
        Fuzz::Expect(!made && text == "before ", "a header where there is none");
        model.m_LastError = model.m_Lists[0].empty() ? VornEx::CSMTP_ERROR_NO_RECIPIENTS
                                                     : VornEx::CSMTP_ERROR_NO_MAILFROM;
    } else {
        Fuzz::Expect(made && text.compare(0, 13, "before Date: ") == 0, "a date");
        text.erase(0, text.find("\r\n") + 2);
        Fuzz::ExpectSame(text, model.Header(), "header");
        if (model.m_Subject.empty())
            model.m_LastError = VornEx::CSMTP_ERROR_NO_SUBJECT;
    }
    Fuzz::ExpectSame<long long>(mail.GetLastError(), model.m_LastError, "error");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    std::string input(bytes, bytes + size);
    const auto next = [&input] {
        const std::size_t end = std::min(input.find('\n'), input.size());
        std::string text = input.substr(0, end);
        input.erase(0, end + 1);
        return text;
    };
    CSmtp mail;
    CModel model;
    while (!input.empty()) {
        const char kind = input[0];
        input.erase(0, 1);
        const std::string text = next();
        switch (kind) {
        case 'f':
            mail.SetFrom(model.m_From = text);
            break;
        case 'F':
            model.m_From = text;
            mail.SetFrom(text, model.m_FromName = next());
            break;
        case 's':
            mail.SetSubject(model.m_Subject = text);
            break;
        case 'x':
            mail.SetXMailer(model.m_XMailer = text);
            break;
        case 'r':
            mail.SetReplyTo(model.m_ReplyTo = text);
            break;
        case 'p':
            model.m_Priority = text.empty() ? 0 : text[0] - '0';
            mail.SetXPriority(static_cast<VornEx::CSmtpXPriority>(model.m_Priority));
            break;
        case 'h':
            CheckHeader(mail, model);
            break;
        default:
            if (kind >= 'A' && kind <= 'C')
                AddNamed(mail, model, static_cast<unsigned int>(kind - 'A'), {text, next()});
            else
                AddList(mail, model, static_cast<unsigned char>(kind) % 3U, text);
            break;
        }
    }
    CheckHeader(mail, model);

    const CSmtp copy(mail);
    Fuzz::ExpectSame<long long>(copy.GetLastError(), model.m_LastError, "a copy's error");
    return 0;
}
