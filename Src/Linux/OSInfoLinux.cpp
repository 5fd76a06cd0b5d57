// Operating system identification.
//
// A distribution is one row of Sources and one function that reads its release file. Where the
// first line tells all, that function names a table of the forms that the line can have.
#include <vornex/OSInfo.h>

#include <cctype>
#include <cstring>

#include <strings.h>
#include <sys/utsname.h>

#include <regex/Regexp.h>
#include <vorn/File.h>
#include <vornex/Numbers.h>

#include "../CallFrame.h"

namespace VornEx {

namespace {

using Vorn::FileSystem::CFile;
using Vorn::Regex::CTextMatch;
using Vorn::Strings::CStringVar;
using Vorn::Strings::CSubStringRef;

constexpr const char* Source = "Src/Linux/OSInfoLinux.cpp";

Vorn::Exceptions::SOURCE_INFO g_KernelMajorSource = {{0}, Source, 102};
Vorn::Exceptions::SOURCE_INFO g_KernelMinorSource = {{0}, Source, 110};

// A text matched against a pattern that is used just once.
CTextMatch Match(const char* pattern, const char* text)
{
    return Vorn::Regex::CRegexpT<char>(pattern).Match(text);
}

void Set(CStringVar& target, const CSubStringRef& text)
{
    target.Clear();
    target << text;
}

// The facts to be filled in, all empty at first, and the release file to fill them in from.
struct CRelease
{
    CStringVar& m_Vendor;
    CStringVar& m_Product;
    CStringVar& m_Version;
    CStringVar& m_ServicePack;
    CStringVar& m_BuildNumber;
    CFile& m_File;
    char m_Line[256];

    // False at the end of the file; the line is then empty.
    bool ReadLine() { return m_File.ReadLine(m_Line, sizeof m_Line) >= 0; }
};

// A form of a release line, and what it says.
struct CForm
{
    const char* m_Pattern;
    const char* m_Product = nullptr; // null: group 1, and the version is the group behind it
    void (*m_More)(CRelease& release, const CTextMatch& match) = nullptr;
};

// Reads the first line; the first form that it has decides.
template <std::size_t Count>
void ReadFirstLine(CRelease& release, const CForm (&forms)[Count])
{
    release.ReadLine();
    for (const CForm& form : forms) {
        const CTextMatch match = Match(form.m_Pattern, release.m_Line);
        if (!match)
            continue;
        int group = 1;
        if (form.m_Product != nullptr)
            release.m_Product = form.m_Product;
        else
            Set(release.m_Product, match.Group(group++));
        Set(release.m_Version, match.Group(group));
        if (form.m_More != nullptr)
            form.m_More(release, match);
        return;
    }
}

// The text behind a prefix, the case of which does not matter; null when the line begins otherwise.
const char* SkipPrefixNoCase(const char* prefix, const char* line)
{
    const std::size_t length = std::strlen(prefix);
    return strncasecmp(prefix, line, length) == 0 ? line + length : nullptr;
}

// Appends the text up to the first character that ends it, or to its own end.
template <class Ends>
void AppendUntil(CStringVar& target, const char* text, Ends ends)
{
    const char* end = text;
    while (*end != '\0' && !ends(static_cast<unsigned char>(*end)))
        ++end;
    target << CSubStringRef(text, static_cast<unsigned int>(end - text));
}

void ReadVMware(CRelease& release)
{
    static constexpr struct
    {
        const char* m_Prefix;
        const char* m_Product; // the version follows; null: the build number does
    } Lines[] = {
        {"VMware ESX Server ", "ESX Server"},
        {"VMware ESX ", "ESX"},
        {"vmkernel build: ", nullptr},
    };
    constexpr unsigned int MaxLines = 65536; // real files have some ten; this ends endless ones

    const auto isSpace = [](int character) { return std::isspace(character) != 0; };
    const auto isSpaceOrPunctuation = [](int character) {
        return std::isspace(character) != 0 || std::ispunct(character) != 0;
    };

    release.m_Vendor = "VMWare, Inc.";
    for (unsigned int count = 0; count < MaxLines && release.ReadLine(); ++count) {
        for (const auto& line : Lines) {
            const char* const text = SkipPrefixNoCase(line.m_Prefix, release.m_Line);
            if (text == nullptr)
                continue;
            if (line.m_Product != nullptr) {
                release.m_Product = line.m_Product;
                AppendUntil(release.m_Version, text, isSpace);
            } else {
                AppendUntil(release.m_BuildNumber, text, isSpaceOrPunctuation);
            }
            break;
        }
    }
}

void ReadOracle(CRelease& release)
{
    static constexpr CForm Forms[] = {
        {R"(^Enterprise Linux (.*) release (\d+(\.\d+)*){1} (.*))"},
        {R"(^Red Hat (.*) release (\d+(\.\d+)*){1} (.*))"},
        {R"(^Oracle VM server release (\d+(\.\d+)*){1})", "VM server"},
        {R"(^Oracle Linux (.*) release (\d+(\.\d+)*){1})"},
    };
    release.m_Vendor = "Oracle Corporation";
    ReadFirstLine(release, Forms);
}

void ReadRedHat(CRelease& release)
{
    static constexpr CForm Forms[] = {
        {R"(^Red Hat (.*) release (\d+) (\([^)]*\)))", nullptr,
         [](CRelease& system, const CTextMatch& match) {
             const char* const codename = system.m_Line + match.GroupBegin(3);
             const CTextMatch update = Match(R"(\(.* Update (\d+)\))", codename);
             if (update)
                 Set(system.m_ServicePack, update.Group(1));
         }},
        {R"(^Red Hat (.*) release (\d+)\.(\d+) (.*))", nullptr,
         [](CRelease& system, const CTextMatch& match) {
             system.m_Version.Format(".%s") << match.Group(3);
         }},
        {R"(^CentOS release (\d+(\.\d+)*){1} (.*))", "CentOS",
         [](CRelease& system, const CTextMatch& /*match*/) { system.m_Vendor.Clear(); }},
        {R"(^XenServer release (\d+\.\d+\.\d+)(.*))", "XenServer",
         [](CRelease& system, const CTextMatch& /*match*/) {
             system.m_Vendor = "Citrix Systems, Inc.";
         }},
    };
    release.m_Vendor = "Red Hat, Inc.";
    ReadFirstLine(release, Forms);
}

// The prefix of the first line is the product and a blank.
void ReadSuse(CRelease& release, const CSubStringRef& prefix)
{
    release.m_Vendor = "Novell, Inc.";
    release.ReadLine();
    if (SkipPrefixNoCase(prefix.Text(), release.m_Line) == nullptr)
        return;
    release.ReadLine();
    const char* const version = SkipPrefixNoCase("VERSION = ", release.m_Line);
    if (version == nullptr)
        return;
    Set(release.m_Product, {prefix.Text(), prefix.Length() - 1});
    AppendUntil(release.m_Version, version,
                [](int character) { return std::isdigit(character) == 0; });
    release.ReadLine();
    const char* const level = SkipPrefixNoCase("PATCHLEVEL = ", release.m_Line);
    // One character is meant, whatever follows it.
    if (level != nullptr && *level != '\0')
        release.m_ServicePack << CSubStringRef(level, 1);
}

void ReadSuseEnterprise(CRelease& release)
{
    ReadSuse(release, "SUSE LINUX Enterprise Server ");
}

void ReadOpenSuse(CRelease& release)
{
    ReadSuse(release, "openSUSE ");
}

void ReadDebian(CRelease& release)
{
    // Also where the file names no version, as between two releases.
    release.m_Product = "Debian GNU/Linux";
    release.ReadLine();
    const CTextMatch match = Match(R"((\d+\.\d+))", release.m_Line);
    if (match)
        Set(release.m_Version, match.Group(1));
}

void ReadTurbolinux(CRelease& release)
{
    static constexpr CForm Forms[] = {{R"(^(.*) (\d+[.]*[\d]*))"}};
    release.m_Vendor = "Turbolinux, Inc.";
    ReadFirstLine(release, Forms);
}

void ReadAsianux(CRelease& release)
{
    static constexpr CForm Forms[] = {{R"(^(.*) (\d+))"}};
    release.m_Vendor = "Asianux Corporation";
    ReadFirstLine(release, Forms);
}

constexpr const char* SuseFile = "/etc/SuSE-release";

// In the order in which they are tried.
constexpr struct
{
    const char* m_Path;
    void (*m_Read)(CRelease& release);
} Sources[] = {
    {"/proc/vmware/version", ReadVMware},
    {"/etc/enterprise-release", ReadOracle},
    {"/etc/oracle-release", ReadOracle},
    {"/etc/redhat-release", ReadRedHat},
    {SuseFile, ReadSuseEnterprise},
    // Reached only when the file could not be opened a moment ago. That is meant: an openSUSE
    // system whose file opens at once is read by the row above and has no product.
    {SuseFile, ReadOpenSuse},
    {"/etc/debian_version", ReadDebian},
    {"/etc/turbolinux-release", ReadTurbolinux},
    {"/etc/asianux-release", ReadAsianux},
};

std::uint32_t KernelNumber(const CSubStringRef& digits, Vorn::Exceptions::SOURCE_INFO& source)
{
    const Vorn::Strings::TString<64> text(digits);
    std::int32_t number = 0;
    if (Internals::Absorbs(source, [&] { number = atoi32(text.m_Text, 10); }))
        return 0;
    return static_cast<std::uint32_t>(number);
}

bool Copy(const CStringVar& fact, CStringVar& target)
{
    target = fact;
    return target.m_Length != 0;
}

} // namespace

COSInfo_Lx::COSInfo_Lx()
{
    utsname kernel{};
    if (uname(&kernel) == 0) {
        m_ProcessorArchitecture = std::strcmp(kernel.machine, "x86_64") == 0 ? "x86-64" : "x86-32";
        // The blank behind the minor number is meant.
        const CTextMatch match = Match(R"(^(\d+)\.(\d+) (.*))", kernel.release);
        if (match) {
            m_KernelMajor = KernelNumber(match.Group(1), g_KernelMajorSource);
            m_KernelMinor = KernelNumber(match.Group(2), g_KernelMinorSource);
        }
    }

    CFile file;
    CRelease release{m_Vendor, m_Product, m_Version, m_ServicePack, m_BuildNumber, file, {}};
    for (const auto& source : Sources) {
        if (CFile::Exist(source.m_Path) && file.Open(source.m_Path, CFile::Read)) {
            source.m_Read(release);
            return;
        }
    }
}

bool COSInfo_Lx::GetOSVendor(CStringVar& vendor) const
{
    return Copy(m_Vendor, vendor);
}

bool COSInfo_Lx::GetOSProduct(CStringVar& product) const
{
    return Copy(m_Product, product);
}

bool COSInfo_Lx::GetOSVersion(CStringVar& version) const
{
    return Copy(m_Version, version);
}

bool COSInfo_Lx::GetOSServicePack(CStringVar& servicePack) const
{
    return Copy(m_ServicePack, servicePack);
}

bool COSInfo_Lx::GetOSBuildNumber(CStringVar& buildNumber) const
{
    return Copy(m_BuildNumber, buildNumber);
}

bool COSInfo_Lx::GetProcessorArchitecture(CStringVar& architecture) const
{
    return Copy(m_ProcessorArchitecture, architecture);
}

bool COSInfo_Lx::GetKernelVersion(unsigned int& majorNumber, unsigned int& minorNumber) const
{
    if (m_KernelMajor == 0 && m_KernelMinor == 0)
        return false;
    majorNumber = m_KernelMajor;
    minorNumber = m_KernelMinor;
    return true;
}

bool COSInfo_Lx::GetOSEdition(CStringVar& edition) const
{
    edition.Clear();
    return false;
}

bool COSInfo_Lx::GetOSFeatures(CStringVar& /*features*/) const
{
    return false;
}

} // namespace VornEx
