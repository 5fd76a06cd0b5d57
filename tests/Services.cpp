#include "Services.h"

#include <cstdio>
#include <cstdlib>
#include <new>

#include <sys/mman.h>
#include <syslog.h>
#include <unistd.h>

#include <regex/Explain.h>
#include <vorn/Application.h>
#include <vorn/Threading.h>
#include <vornex/vornex.h>

#include "DiskImage.h"
#include "LoopServer.h"
#include "ModuleFileTree.h"

namespace {

using Vorn::Strings::CStringRef;

// A file in memory, and the path of it when it is opened again.
template <class Content>
std::string MadeFile(const Content& content)
{
    const int file = memfd_create("made", MFD_CLOEXEC);
    if (write(file, content.data(), content.size()) != static_cast<ssize_t>(content.size()))
        std::perror("a file in memory");
    return "/proc/self/fd/" + std::to_string(file);
}

CEnvironment MakeEnvironment()
{
    static const CLoopServer server;
    setenv("NLSPATH", NLS_FOLDER "/de/%N", 1);
    CEnvironment made;
    made.m_Server = server.Path();
    CDiskImage chain(30);
    chain.Entry(0, 0, 0x83, 1, 2).Entry(0, 1, 0x05, 10, 15).Entry(0, 2, 0x82, 26, 1);
    chain.Entry(10, 0, 0x83, 1, 2).Entry(10, 1, 0x05, 5, 4).Entry(15, 0, 0x83, 1, 2);
    made.m_ClassicDisk = MadeFile(chain.m_Bytes);
    CDiskImage guid(40);
    guid.GptHeader(128, 128).GptEntry(1024, 1, 34, 40).GptEntry(1536, 2, 41, 50);
    made.m_GuidDisk = MadeFile(guid.m_Bytes);
    made.m_Mounts = MadeFile(made.m_ClassicDisk + "p1 /boot ext4 rw 0 0\n" + made.m_GuidDisk +
                             "p5 /home ext4 rw\n");
    made.m_Module =
        MadeFile(CModuleImage(true, "license=GPL" + std::string(5000, '\0') + "version=1." +
                                        std::string(5000, '2') + std::string(1, '\0'))
                     .m_Bytes);
    // The second path needs more than the reader's buffer; the last is found.
    made.m_ModuleList = MadeFile("kernel/a.ko:\n" + std::string(50000, 'p') +
                                 ".ko: x\nkernel/drivers/net/e1000e.ko: kernel/ptp.ko\n");
    made.m_Release = MadeFile(std::string("Red Hat Enterprise Linux Server release 7.2 (Maipo)\n"));
    return made;
}

std::string NumberErrors()
{
    try {
        VornEx::atoi32("12a", 10);
    } catch (unsigned int code) {
        const Vorn::Threading::CThrowDisable disabled;
        return std::to_string(code) + " " + std::to_string(VornEx::atoui32("99999999999", 10)) +
               std::to_string(Vorn::Exceptions::LastError().Code());
    }
    return "no error";
}

std::string Tokens()
{
    VornEx::CStringTokenizer tokens("a,," + std::string(300, 'b') + ",c", ",");
    Vorn::Strings::TString<8> token;
    std::string all;
    while (tokens.Next(token))
        all += std::string(token) + "|";
    return all;
}

std::string Formats()
{
    Vorn::Strings::CStringEx text;
    text.Format("[%5d] %-300s %x").FormatInt(7) << "text";
    text.Part(0, 1).InsertReplace("begin", 0);
    Vorn::Strings::CStringVar utf8;
    utf8.CopyAsUTF8(std::string(200, '\xE9'));
    return std::string(text) + std::to_string(utf8.m_Length);
}

std::string Log()
{
    VornEx::CSystemLog_Lx log;
    log.Open(std::string(100, 'i'));
    log.Report(7, LOG_ERR, "disk full, and a text that needs room of its own");
    try {
        log.Report(7, LOG_ERR, "");
    } catch (unsigned int code) {
        return std::to_string(code);
    }
    return "no error";
}

std::string Time()
{
    unsigned long long milliseconds = 1;
    VornEx::CSystemDate_Lx date{2024, 2, 29, 0, 0, 12, 0, 0, 0};
    VornEx::CSystemTime_Lx::GetTime(date, milliseconds);
    VornEx::CSystemTime_Lx::GetDate(86400000ULL * 366, date);
    VornEx::CSystemDate_Lx rule{2024, 3, 0, 0, 5, 2, 0, 0, 0};
    VornEx::CSystemTime_Lx::GetDateByWeek(rule, rule);
    return std::to_string(milliseconds) + " " + std::to_string(date.m_Year) + " " +
           std::to_string(rule.m_Day) + " " + std::to_string(VornEx::CSystemTime_Lx::UpTime());
}

std::string Regex()
{
    const Vorn::Regex::CRegexpT<char> regexp(
        R"((?<x>a|b(?=c)|[^d-f\d]{2,}?)*+(?i:end|(?(1)y|n))(?2)?\k<x>*(\w+)\s\Q.*\E)");
    const auto match = regexp.Match("ab cdEND word .* " + std::string(50, 'a'));
    return std::to_string(match.Matched() ? match.GroupEnd(0) : -1) +
           std::to_string(Vorn::Regex::Explain(regexp).size());
}

std::string System()
{
    const VornEx::COSInfo_Lx system;
    std::string facts;
    for (const auto getter :
         {&VornEx::COSInfo_Lx::GetOSVendor, &VornEx::COSInfo_Lx::GetOSProduct,
          &VornEx::COSInfo_Lx::GetOSVersion, &VornEx::COSInfo_Lx::GetProcessorArchitecture}) {
        Vorn::Strings::TString<8> fact;
        (system.*getter)(fact);
        facts += std::string(fact) + "|";
    }
    return facts;
}

std::string Partitions(const std::string& disk)
{
    VornEx::CSystemPartitionTable table;
    table.m_Device = CStringRef(disk);
    std::vector<VornEx::CSystemPartition> partitions;
    table.GetPartitions(partitions);
    std::string text;
    for (const auto& partition : partitions)
        text += std::string(partition.m_DeviceName.m_Text + disk.size()) + "@" +
                std::to_string(partition.m_StartSector) + partition.m_MountPoint.m_Text + " ";
    return text;
}

// What a service puts into a text that held something else, or "none" and that text.
template <class Call>
std::string Got(Call call)
{
    Vorn::Strings::TString<8> text(CStringRef("from before"));
    const bool found = call(text);
    return (found ? "" : "none") + std::string(text);
}

std::string Version(const std::string& module)
{
    const std::string version =
        Got([&](auto& text) { return VornEx::GetModuleVersion(module, text), true; });
    return version.substr(0, 4) + " " + std::to_string(version.size());
}

std::string Pci()
{
    int at[4] = {};
    return VornEx::CConfigManager().GetLocation("ffff", "ffff", 1, at[0], at[1], at[2], at[3])
               ? "there"
               : "none";
}

std::string Base64()
{
    const std::string bytes(100, '\xAB');
    const std::string text =
        VornEx::base64_encode(reinterpret_cast<const unsigned char*>(bytes.data()),
                              static_cast<unsigned int>(bytes.size()));
    return text + (VornEx::base64_decode(text) == bytes ? "" : ", which is wrong");
}

void Fill(VornEx::CSmtp& mail)
{
    mail.SetServer(Environment().m_Server, 25);
    mail.SetUserName("agent");
    mail.SetPassword("secret");
    mail.SetFrom("agent@example.org", "An agent whose name needs room");
    mail.AddTO("ann@example.org; somebody.with.a.long.name@example.org");
    mail.AddCC("bob@example.org", "Bob");
    mail.SetSubject("A subject that needs room of its own");
    mail.SetMessageBody("All is well.\n" + std::string(500, 'x'));
}

// Behind its date.
std::string Header()
{
    VornEx::CSmtp mail;
    Fill(mail);
    Vorn::Strings::TString<16> header;
    mail.FormatHeader(header);
    const std::string text(header);
    return text.substr(text.find("\r\n"));
}

std::string Delivery()
{
    VornEx::CSmtp mail;
    Fill(mail);
    const bool sent = mail.Send();
    return (sent ? "sent, " : "not sent, ") + std::to_string(mail.GetLastError());
}

} // namespace

const CEnvironment& Environment()
{
    static const CEnvironment environment = MakeEnvironment();
    return environment;
}

const std::vector<CService>& Services()
{
    static const std::vector<CService> services = {
        {"numbers",
         [] {
             return std::to_string(VornEx::atoi32("-2147483648", 10)) +
                    std::to_string(VornEx::atoui32("ffffffff", 16)) +
                    std::to_string(VornEx::atoi64("0x10", 0)) +
                    std::to_string(VornEx::atoui64("18", 10));
         },
         true},
        {"number errors", NumberErrors, true},
        {"messages", [] { return std::string(Vorn::Misc::ErrorMessage(VornEx::TimeCallFailed)); },
         true},
        {"host name", [] { return Got(VornEx::hostname); }, true},
        {"processor",
         [] {
             VornEx::msleep(3);
             unsigned int cores = 0;
             unsigned int logical = 0;
             bool hyperThreading = false;
             VornEx::processorInfo(cores, logical, hyperThreading);
             return std::to_string(cores) + " " + std::to_string(logical);
         },
         true},
        {"process path", [] { return Got(Vorn::Misc::CVornApplication::GetProcessPath); }, true},
        {"tokenizer", Tokens, true},
        {"formats", Formats, true},
        {"log", Log, true},
        {"time", Time, true},
        {"now", [] { return std::to_string(VornEx::CSystemTime_Lx::Now()); }, true},
        {"regex", Regex, true},
        {"system", System, true},
        {"classic disk", [] { return Partitions(Environment().m_ClassicDisk); }, false},
        {"GUID disk", [] { return Partitions(Environment().m_GuidDisk); }, false},
        {"module file", [] { return Version(Environment().m_Module); }, true},
        {"module name", [] { return Version("e1000e"); }, true},
        {"versions",
         [] {
             const std::string zeros = "1." + std::string(100, '0') + "1";
             return std::to_string(VornEx::VersionCompare(zeros, "1.1", 0)) +
                    std::to_string(VornEx::VersionCompare("1.99999999999", "1.x", 2));
         },
         true},
        {"PCI", Pci, false},
        {"base64", Base64, true},
        {"mail header", Header, true},
        {"mail", Delivery, true},
    };
    Environment();
    return services;
}

std::string Result(const CService& service)
{
    try {
        return service.m_Call();
    } catch (unsigned int code) {
        char text[16]; // no allocation: memory may have ended
        std::snprintf(text, sizeof text, "raised %08x", code);
        return text;
    } catch (const std::bad_alloc&) {
        return "no memory";
    }
}
