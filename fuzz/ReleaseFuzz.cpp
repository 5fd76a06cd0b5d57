// Fuzz target of operating system identification: which release files there are, what the kernel
// says, and the files' text. Also of reading a file line by line, beside a plain model.
#include <cerrno>
#include <cstring>
#include <iterator>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/utsname.h>

#include <vorn/File.h>
#include <vornex/OSInfo.h>

#include "Fuzz.h"

namespace {

constexpr const char* ReleaseFiles[] = {
    "/proc/vmware/version",    "/etc/enterprise-release", "/etc/oracle-release",
    "/etc/redhat-release",     "/etc/SuSE-release",       "/etc/debian_version",
    "/etc/turbolinux-release", "/etc/asianux-release",
};

const Fuzz::CMemoryFile& File()
{
    static const Fuzz::CMemoryFile file;
    return file;
}

std::string kernelRelease;
unsigned int present = 0; // one bit a file
int opensRefused = 0;

bool IsThere(const char* path)
{
    for (std::size_t index = 0; index < std::size(ReleaseFiles); ++index)
        if (std::strcmp(path, ReleaseFiles[index]) == 0)
            return (present >> index & 1U) != 0;
    return false;
}

} // namespace

int uname(utsname* kernel) noexcept
{
    *kernel = {};
    std::strcpy(kernel->machine, "x86_64");
    std::strncpy(kernel->release, kernelRelease.c_str(), sizeof kernel->release - 1);
    return 0;
}

int stat(const char* path, struct stat* /*status*/) noexcept
{
    return IsThere(path) ? 0 : -1;
}

int open(const char* path, int flags, ...)
{
    const bool refused = IsThere(path) && opensRefused > 0;
    opensRefused -= refused ? 1 : 0;
    if (refused) {
        errno = EACCES;
        return -1;
    }
    return static_cast<int>(
        syscall(SYS_openat, AT_FDCWD, IsThere(path) ? File().Path().c_str() : path, flags));
}

namespace {

using VornEx::COSInfo_Lx;

std::string Facts(const std::string& text)
{
    const COSInfo_Lx system;
    Vorn::Strings::TString<16> fact;
    std::string facts;

    system.GetOSVendor(fact);
    bool known = fact.m_Length == 0;
    for (const char* const vendor :
         {"VMWare, Inc.", "Oracle Corporation", "Red Hat, Inc.", "Novell, Inc.", "Turbolinux, Inc.",
          "Asianux Corporation", "Citrix Systems, Inc."})
        known = known || fact == vendor;
    Fuzz::Expect(known, "a vendor that nobody knows");
    facts += std::string(fact) + "|";
    system.GetOSProduct(fact);
    facts += std::string(fact) + "|";
    for (const auto getter : {&COSInfo_Lx::GetOSVersion, &COSInfo_Lx::GetOSServicePack,
                              &COSInfo_Lx::GetOSBuildNumber}) {
        const bool has = (system.*getter)(fact);
        Fuzz::Expect(has == (fact.m_Length != 0), "what a getter says of its fact");
        Fuzz::Expect(std::strlen(fact.m_Text) == fact.m_Length, "a NUL in a fact");
        if ((present & 1U) == 0) // the first file's, a console's, lines together make a fact
            Fuzz::Expect(text.find(fact.m_Text) != std::string::npos, "a fact from nowhere");
        facts += std::string(fact) + "|";
    }
    unsigned int majorNumber = 7;
    unsigned int minorNumber = 7;
    if (system.GetKernelVersion(majorNumber, minorNumber))
        Fuzz::Expect(majorNumber <= 0x7FFFFFFF && minorNumber <= 0x7FFFFFFF, "a kernel number");
    else
        Fuzz::Expect(majorNumber == 7 && minorNumber == 7, "numbers that are not known");
    return facts + std::to_string(majorNumber) + "." + std::to_string(minorNumber);
}

// All lines as a reader with that much room gets them.
void CheckLines(const std::string& text, std::size_t room)
{
    Vorn::FileSystem::CFile file;
    Fuzz::Expect(file.Open(File().Path(), Vorn::FileSystem::CFile::Read), "open");
    std::string buffer(room + 1, '!');
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text.find('\n', at);
        const bool ends = end != std::string::npos;
        std::string line = text.substr(at, ends ? end - at : std::string::npos);
        const bool carriage = ends && !line.empty() && line.back() == '\r';
        if (line.size() <= room || (line.size() == room + 1 && carriage)) {
            at = ends ? end + 1 : text.size();
            if (carriage)
                line.pop_back();
        } else {
            line.resize(room);
            at += room;
        }
        const int length = file.ReadLine(buffer.data(), static_cast<int>(buffer.size()));
        Fuzz::Expect(length >= 0 && buffer[static_cast<std::size_t>(length)] == '\0', "a line");
        Fuzz::ExpectSame(buffer.substr(0, static_cast<std::size_t>(length)), line,
                         "line before byte " + std::to_string(at));
    }
    Fuzz::Expect(file.ReadLine(buffer.data(), static_cast<int>(buffer.size())) == -1, "the end");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    FuzzedDataProvider data(bytes, size);
    const bool several = data.ConsumeBool();
    const unsigned int chosen = data.ConsumeIntegral<std::uint8_t>();
    present = several ? chosen : 1U << chosen % 8;
    const int refused = data.ConsumeIntegralInRange<int>(0, 2);
    const std::size_t room = data.ConsumeIntegralInRange<std::size_t>(1, 300);
    const std::size_t padding =
        data.ConsumeBool() ? data.ConsumeIntegralInRange<std::size_t>(0, 5000) : 0;
    kernelRelease = data.ConsumeBytesAsString(data.ConsumeIntegralInRange<std::size_t>(0, 64));
    const std::string text = std::string(padding, '\n') + data.ConsumeRemainingBytesAsString();
    File().Set(text);

    const Fuzz::CDescriptorsKept kept;
    opensRefused = refused;
    const std::string facts = Facts(text);
    opensRefused = refused;
    Fuzz::ExpectSame(Facts(text), facts, "asked again");
    CheckLines(text, room);
    return 0;
}
