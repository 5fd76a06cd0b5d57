#include "Services.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <mntent.h>
#include <pciaccess.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <sys/utsname.h>
#include <syslog.h>
#include <unistd.h>

#include <regex/Explain.h>
#include <vorn/Threading.h>
#include <vornex/vornex.h>

#include "DiskImage.h"
#include "LoopServer.h"
#include "ModuleFileTree.h"

FaultHook g_Fault = nullptr;

namespace {

using Vorn::Strings::CStringRef;

// A file in memory; lives as long as the process. The path of it when it is opened again.
std::string MadeFile(const void* bytes, std::size_t size)
{
    const int descriptor = memfd_create("made", MFD_CLOEXEC);
    if (write(descriptor, bytes, size) != static_cast<ssize_t>(size))
        std::perror("a file in memory");
    return "/proc/self/fd/" + std::to_string(descriptor);
}

std::string MadeFile(const std::string& content)
{
    return MadeFile(content.data(), content.size());
}

struct CFiles
{
    CFiles()
    {
        CDiskImage chain(30);
        chain.Entry(0, 0, 0x83, 1, 2).Entry(0, 1, 0x05, 10, 15).Entry(0, 2, 0x82, 26, 1);
        chain.Entry(10, 0, 0x83, 1, 2).Entry(10, 1, 0x05, 5, 4).Entry(15, 0, 0x83, 1, 2);
        m_Classic = MadeFile(chain.m_Bytes.data(), chain.m_Bytes.size());
        CDiskImage guid(40);
        guid.GptHeader(128, 128).GptEntry(1024, 1, 34, 40).GptEntry(1536, 2, 41, 50);
        m_Guid = MadeFile(guid.m_Bytes.data(), guid.m_Bytes.size());
        m_Mounts = MadeFile(m_Classic + "p1 /boot ext4 rw 0 0\n" + m_Guid + "p5 /home ext4 rw\n");
    }

    CLoopServer m_Server;
    std::string m_Classic, m_Guid, m_Mounts;
    std::string m_Module =
        MadeFile(CModuleImage(true, "license=GPL" + std::string(5000, '\0') + "version=1." +
                                        std::string(5000, '2') + std::string(1, '\0'))
                     .m_Bytes);
    std::string m_Release = MadeFile("Red Hat Enterprise Linux Server release 7.2 (Maipo)\n");
    // The second path needs more than the reader's buffer; the last is found.
    std::string m_List = MadeFile("kernel/a.ko:\n" + std::string(50000, 'p') +
                                  ".ko: x\nkernel/drivers/net/e1000e.ko: kernel/ptp.ko\n");
};

const CFiles& Files()
{
    static const CFiles files;
    return files;
}

bool Fails(const char* call)
{
    const int error = g_Fault != nullptr ? g_Fault(call) : 0;
    if (error > 0)
        errno = error;
    return error > 0;
}

// The same for a read or write, the size of which may be cut.
bool ReadFails(const char* call, std::size_t& size)
{
    const int error = g_Fault != nullptr ? g_Fault(call) : 0;
    if (error > 0)
        errno = error;
    if (error < 0 && size > 1)
        size = 1;
    return error > 0;
}

// A path of the system, or the file in memory that stands for it; null where nothing does.
const char* Redirected(const char* path)
{
    if (std::strcmp(path, "/lib/modules/6.1-test/modules.dep") == 0)
        return Files().m_List.c_str();
    if (std::strcmp(path, "/lib/modules/6.1-test/kernel/drivers/net/e1000e.ko") == 0)
        return Files().m_Module.c_str();
    if (std::strcmp(path, "/etc/redhat-release") == 0)
        return Files().m_Release.c_str();
    const bool fixed = std::strncmp(path, "/etc/", 5) == 0 ||
                       std::strncmp(path, "/lib/modules/", 13) == 0 ||
                       std::strncmp(path, "/proc/vmware", 12) == 0;
    return fixed ? nullptr : path;
}

template <class Function>
Function* Next(Function* /*type*/, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

int open(const char* path, int flags, ...)
{
    if (Fails("open"))
        return -1;
    const char* const real = Redirected(path);
    if (real == nullptr) {
        errno = ENOENT;
        return -1;
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, real, flags, 0600));
}

int stat(const char* path, struct stat* /*status*/) noexcept
{
    if (Fails("stat"))
        return -1;
    const char* const real = Redirected(path);
    return real != nullptr ? faccessat(AT_FDCWD, real, F_OK, 0) : -1;
}

ssize_t read(int descriptor, void* buffer, size_t size)
{
    return ReadFails("read", size) ? -1 : syscall(SYS_read, descriptor, buffer, size);
}

ssize_t pread(int descriptor, void* buffer, size_t size, off_t offset)
{
    static auto* const real = Next(&pread, "pread64");
    return ReadFails("pread", size) ? -1 : real(descriptor, buffer, size, offset);
}

off_t lseek(int descriptor, off_t offset, int whence) noexcept
{
    static auto* const real = Next(&lseek, "lseek64");
    return Fails("lseek") ? -1 : real(descriptor, offset, whence);
}

int close(int descriptor)
{
    const auto result = static_cast<int>(syscall(SYS_close, descriptor));
    return Fails("close") ? -1 : result; // the system closes even when it says otherwise
}

ssize_t write(int descriptor, const void* buffer, size_t size)
{
    return ReadFails("write", size) ? -1 : syscall(SYS_write, descriptor, buffer, size);
}

int socket(int domain, int type, int protocol) noexcept
{
    static auto* const real = Next(&socket, "socket");
    return Fails("socket") ? -1 : real(domain, type, protocol);
}

int connect(int descriptor, const sockaddr* address, socklen_t size)
{
    static auto* const real = Next(&connect, "connect");
    return Fails("connect") ? -1 : real(descriptor, address, size);
}

ssize_t recv(int descriptor, void* buffer, size_t size, int flags)
{
    static auto* const real = Next(&recv, "recv");
    return ReadFails("recv", size) ? -1 : real(descriptor, buffer, size, flags);
}

ssize_t send(int descriptor, const void* buffer, size_t size, int flags)
{
    static auto* const real = Next(&send, "send");
    return ReadFails("send", size) ? -1 : real(descriptor, buffer, size, flags);
}

int uname(utsname* kernel) noexcept
{
    if (Fails("uname"))
        return -1;
    *kernel = {};
    std::strcpy(kernel->machine, "x86_64");
    std::strcpy(kernel->release, "6.1-test");
    return 0;
}

int gethostname(char* name, size_t size) noexcept
{
    if (Fails("gethostname"))
        return -1;
    std::strncpy(name, "host", size);
    return 0;
}

int nanosleep(const timespec* wanted, timespec* left)
{
    if (Fails("nanosleep")) {
        *left = {0, wanted->tv_nsec / 2};
        return -1;
    }
    return 0;
}

int gettimeofday(timeval* time, void* /*zone*/) noexcept
{
    *time = {1700000000, 123456};
    return Fails("gettimeofday") ? -1 : 0;
}

int sysinfo(struct sysinfo* info) noexcept
{
    info->uptime = 77;
    return Fails("sysinfo") ? -1 : 0;
}

time_t mktime(tm* calendar) noexcept
{
    return Fails("mktime") ? -1 : timegm(calendar);
}

tm* localtime_r(const time_t* seconds, tm* calendar) noexcept
{
    return Fails("localtime_r") ? nullptr : gmtime_r(seconds, calendar);
}

FILE* setmntent(const char* /*path*/, const char* mode) noexcept
{
    return Fails("setmntent") ? nullptr : std::fopen(Files().m_Mounts.c_str(), mode);
}

mntent* getmntent(FILE* table) noexcept
{
    static auto* const real = Next(&getmntent, "getmntent");
    return Fails("getmntent") ? nullptr : real(table);
}

int pci_system_init()
{
    static auto* const real = Next(&pci_system_init, "pci_system_init");
    return Fails("pci_system_init") ? errno : real();
}

pci_device_iterator* pci_slot_match_iterator_create(const pci_slot_match* match)
{
    static auto* const real =
        Next(&pci_slot_match_iterator_create, "pci_slot_match_iterator_create");
    return Fails("pci_slot_match_iterator_create") ? nullptr : real(match);
}

void syslog(int /*priority*/, const char* /*format*/, ...) {}

} // extern "C"

namespace {

std::string Numbers()
{
    return std::to_string(VornEx::atoi32("-2147483648", 10)) +
           std::to_string(VornEx::atoui32("ffffffff", 16)) +
           std::to_string(VornEx::atoi64("0x10", 0)) + std::to_string(VornEx::atoui64("18", 10));
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

std::string Messages()
{
    return std::string(Vorn::Misc::ErrorMessage(VornEx::TimeCallFailed));
}

std::string HostName()
{
    Vorn::Strings::TString<2> name(CStringRef("from before"));
    const bool known = VornEx::hostname(name);
    return std::string(name) + (known ? "" : "unknown");
}

std::string Processor()
{
    VornEx::msleep(3);
    unsigned int cores = 0;
    unsigned int logical = 0;
    bool hyperThreading = false;
    VornEx::processorInfo(cores, logical, hyperThreading);
    return std::to_string(cores) + " " + std::to_string(logical);
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

std::string Now()
{
    return std::to_string(VornEx::CSystemTime_Lx::Now());
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

// Its beginning and how long it is.
std::string Version(const std::string& module)
{
    Vorn::Strings::TString<8> version(CStringRef("from before"));
    VornEx::GetModuleVersion(module, version);
    return std::string(version).substr(0, 4) + " " + std::to_string(version.m_Length);
}

std::string Compare()
{
    return std::to_string(VornEx::VersionCompare("1." + std::string(100, '0') + "1", "1.1", 0)) +
           std::to_string(VornEx::VersionCompare("1.99999999999", "1.x", 2));
}

std::string Pci()
{
    int domain = 0;
    int bus = 0;
    int device = 0;
    int function = 0;
    return VornEx::CConfigManager().GetLocation("ffff", "ffff", 1, domain, bus, device, function)
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
    mail.SetServer(Files().m_Server.Path(), 25);
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

const std::vector<CService>& Services()
{
    static const std::vector<CService> services = {
        {"numbers", Numbers, true},
        {"number errors", NumberErrors, true},
        {"messages", Messages, true},
        {"host name", HostName, true},
        {"processor", Processor, true},
        {"tokenizer", Tokens, true},
        {"formats", Formats, true},
        {"log", Log, true},
        {"time", Time, true},
        {"now", Now, true},
        {"regex", Regex, true},
        {"system", System, true},
        {"classic disk", [] { return Partitions(Files().m_Classic); }, false},
        {"GUID disk", [] { return Partitions(Files().m_Guid); }, false},
        {"module file", [] { return Version(Files().m_Module); }, true},
        {"module name", [] { return Version("e1000e"); }, true},
        {"versions", Compare, true},
        {"PCI", Pci, false},
        {"base64", Base64, true},
        {"mail header", Header, true},
        {"mail", Delivery, true},
    };
    Files();
    return services;
}

std::string Result(const CService& service)
{
    try {
        return service.m_Call();
    } catch (unsigned int code) {
        return "raised " + std::to_string(code);
    } catch (const std::bad_alloc&) {
        return "no memory";
    }
}

int OpenDescriptors()
{
    int count = 0;
    DIR* const folder = opendir("/proc/self/fd");
    while (readdir(folder) != nullptr)
        ++count;
    closedir(folder);
    return count;
}
