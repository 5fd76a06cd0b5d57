#include "RegexInputs.h"

#include <random>

namespace Bench {

namespace {

constexpr const char* Oracle[] = {
    R"(^Enterprise Linux (.*) release (\d+(\.\d+)*){1} (.*))",
    R"(^Red Hat (.*) release (\d+(\.\d+)*){1} (.*))",
    R"(^Oracle VM server release (\d+(\.\d+)*){1})",
    R"(^Oracle Linux (.*) release (\d+(\.\d+)*){1})",
};

constexpr const char* RedHat[] = {
    R"(^Red Hat (.*) release (\d+) (\([^)]*\)))",
    R"(^Red Hat (.*) release (\d+)\.(\d+) (.*))",
    R"(^CentOS release (\d+(\.\d+)*){1} (.*))",
    R"(^XenServer release (\d+\.\d+\.\d+)(.*))",
};

constexpr const char* ServicePack = R"(\(.* Update (\d+)\))";
constexpr const char* Debian = R"((\d+\.\d+))";
constexpr const char* Turbolinux = R"(^(.*) (\d+[.]*[\d]*))";
constexpr const char* Asianux = R"(^(.*) (\d+))";
constexpr const char* Kernel = R"(^(\d+)\.(\d+) (.*))";

template <std::size_t Count>
void AddUpTo(std::vector<CCase>& cases, const char* const (&patterns)[Count], std::size_t tried,
             std::string_view line)
{
    for (std::size_t i = 0; i < tried && i < Count; ++i)
        cases.push_back({patterns[i], line});
}

std::vector<CCase> MakeReleaseCases()
{
    std::vector<CCase> cases;
    AddUpTo(cases, Oracle, 1, "Enterprise Linux Enterprise Linux Server release 5.1 (Carthage)");
    AddUpTo(cases, Oracle, 4, "Oracle Linux Server release 6.0");
    AddUpTo(cases, Oracle, 4, "Oracle Linux Server release 7.5");
    AddUpTo(cases, RedHat, 1, "Red Hat Enterprise Linux AS release 4 (Nahant Update 8)");
    cases.push_back({ServicePack, "(Nahant Update 8)"});
    AddUpTo(cases, RedHat, 2, "Red Hat Enterprise Linux Server release 5.11 (Tikanga)");
    AddUpTo(cases, RedHat, 2, "Red Hat Enterprise Linux Server release 6.0 (Santiago)");
    AddUpTo(cases, RedHat, 2, "Red Hat Enterprise Linux Server release 7.2 (Maipo)");
    AddUpTo(cases, RedHat, 2, "Red Hat Enterprise Linux release 8.0 (Ootpa)");
    AddUpTo(cases, RedHat, 3, "CentOS release 5.11 (Final)");
    AddUpTo(cases, RedHat, 4, "XenServer release 5.6.0-31188p (xenenterprise)");
    AddUpTo(cases, RedHat, 4, "CentOS Linux release 7.2.1511 (Core)");
    AddUpTo(cases, RedHat, 4, "Fedora release 32 (Thirty Two)");
    AddUpTo(cases, RedHat, 4, "Scientific Linux release 6.4 (Carbon)");
    AddUpTo(cases, RedHat, 4, "CloudLinux Server release 6.8 (Oleg Makarov)");
    AddUpTo(cases, RedHat, 4, "Rocky Linux release 8.4 (Green Obsidian)");
    cases.push_back({Debian, "10.11"});
    cases.push_back({Debian, "8.2"});
    cases.push_back({Debian, "trixie/sid"});
    cases.push_back({Turbolinux, "Turbolinux Server 10.0 (10s)"});
    cases.push_back({Asianux, "Asianux Server 3 (Quartet SP2)"});
    cases.push_back({Kernel, "2.6.32-220.el6.x86_64"});
    cases.push_back({Kernel, "3.10 custom"});
    return cases;
}

} // namespace

const std::vector<CCase>& ReleaseCases()
{
    static const std::vector<CCase> cases = MakeReleaseCases();
    return cases;
}

const CCase& AccessLogCase()
{
    static const CCase line = {
        R"re(^(\S+) \S+ \S+ \[([^\]]+)\] "([A-Z]+) ([^ "]+)[^"]*" (\d+) (\d+))re",
        R"(192.0.2.17 - frank [10/Oct/2026:13:55:36 -0700] "GET /icons/release.gif HTTP/1.1" 200 2326 )"
        R"re("http://www.example.com/start.html" "Mozilla/5.0 (X11; Linux x86_64)")re"};
    return line;
}

const std::vector<CCase>& EverydayCases()
{
    static const std::vector<CCase> cases = {
        {Oracle[0], "Enterprise Linux Enterprise Linux Server release 5.1 (Carthage)"},
        {Oracle[3], "Oracle Linux Server release 7.5"},
        {RedHat[0], "Red Hat Enterprise Linux AS release 4 (Nahant Update 8)"},
        {RedHat[3], "XenServer release 5.6.0-31188p (xenenterprise)"},
        {Turbolinux, "Turbolinux Server 10.0 (10s)"},
        {Kernel, "3.10 custom"},
        {AccessLogCase().m_Pattern, AccessLogCase().m_Text},
        {R"(^(\w+)://([^/:]+)(:\d+)?(/.*)?$)", "https://www.example.com:8443/a/b"},
        {R"(\b\d{1,3}\.\d{1,3}\.\d{1,3}\.\d{1,3}\b)", "from 192.0.2.17 port 22"},
        {R"([\w.+-]+@[\w-]+(\.[\w-]+)+)", "mail to frank.o+x@mail.example.com now"},
        {R"((\d{4})-(\d\d)-(\d\d)T(\d\d):(\d\d):(\d\d))", "at 2026-11-21T08:00:05Z"},
        {R"(^\s*([A-Za-z_]\w*)\s*=\s*(.*?)\s*$)", "  PRETTY_NAME = Debian 12  "},
        {R"("([^"\\]|\\.)*")", R"(say "a \"quoted\" word" twice)"},
        {R"(\b(\w+) \1\b)", "it was the the last"},
        {R"(0[xX][0-9a-fA-F]+|\d+)", "value 0x1Fe0"},
        {R"(Monday|Tuesday|Wednesday|Thursday|Friday|Saturday|Sunday)", "on Thursday"},
        {R"(^(?:\+|00)(\d{1,3})[ -]?(\d+(?:[ -]\d+)*)$)", "+49 711 55 66-77"},
        {R"(#([0-9a-f]{2})([0-9a-f]{2})([0-9a-f]{2})\b)", "colour #1e90ff;"},
        {R"(<(\w+)[^>]*>.*?</\1>)", "<p><b class=x>bold</b></p>"},
        {R"(^(?=.*\d)(?=.*[a-z])(?!.*\s).{8,}$)", "secret2026word"},
    };
    return cases;
}

const std::string& Prose()
{
    static const std::string text = [] {
        constexpr std::size_t Length = 1 << 20;
        constexpr const char* Words[] = {
            "the",   "kernel",    "of",     "a",      "machine", "writes",  "lines",  "into",
            "its",   "journal",   "and",    "reads",  "them",    "back",    "when",   "somebody",
            "asks",  "partition", "which",  "module", "version", "was",     "loaded", "Thursday",
            "after", "boot",      "system", "mail",   "server",  "answers", "slowly", "Friday",
        };
        std::mt19937 random(20261121);
        std::string made;
        made.reserve(Length + 32);
        unsigned int column = 0;
        while (made.size() < Length) {
            const auto choice = static_cast<unsigned int>(random());
            const char* const word = Words[choice % std::size(Words)];
            made += word;
            // Once in a few hundred words: a number, a word written twice, a rare literal.
            if (choice >> 8 << 24 == 0)
                made += " " + std::to_string(random() % 100000);
            else if (choice >> 8 << 24 == 1U << 24)
                (made += " ") += word;
            else if (choice >> 8 << 22 == 2U << 22)
                made += " XenServer";
            made += ++column % 12 == 0 ? '\n' : ' ';
        }
        made.resize(Length);
        return made;
    }();
    return text;
}

std::string FailingLine(std::size_t length)
{
    std::string line;
    while (line.size() < length)
        line += "Enterprise Linux release candidate ";
    line.resize(length);
    return line;
}

std::string AlternatingText(std::size_t length)
{
    std::string text;
    while (text.size() < length)
        text += "ab";
    text.resize(length);
    return text;
}

} // namespace Bench
