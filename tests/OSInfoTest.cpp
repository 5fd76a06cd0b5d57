// Operating system identification: real and made release files in roots of their own, and whatever
// the kernel may say.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <vorn/Threading.h>
#include <vornex/OSInfo.h>

#include "ChangedRoot.h"

namespace {

const char* g_Machine = "x86_64"; // null: uname fails
const char* g_Release = "6.1.0-37-amd64";

const char* g_Refused = ""; // opening this path fails, once

} // namespace

extern "C" {

int uname(utsname* system) noexcept
{
    std::strcpy(system->machine, g_Machine != nullptr ? g_Machine : "x86_64");
    std::strcpy(system->release, g_Release);
    return g_Machine != nullptr ? 0 : -1;
}

int open(const char* path, int flags, ...)
{
    if (std::strcmp(path, g_Refused) == 0) {
        g_Refused = "";
        errno = EACCES;
        return -1;
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags));
}

} // extern "C"

namespace {

using VornEx::COSInfo_Lx;

// vendor|product|version|service pack|build number
std::string Facts()
{
    constexpr bool (COSInfo_Lx::*Getters[])(Vorn::Strings::CStringVar&)
        const = {&COSInfo_Lx::GetOSVendor, &COSInfo_Lx::GetOSProduct, &COSInfo_Lx::GetOSVersion,
                 &COSInfo_Lx::GetOSServicePack, &COSInfo_Lx::GetOSBuildNumber};
    const int descriptor = dup(STDOUT_FILENO);
    close(descriptor);
    const COSInfo_Lx system;
    std::string facts;
    for (const auto getter : Getters) {
        Vorn::Strings::TString<16> text(Vorn::Strings::CStringRef("from before"));
        const bool known = (system.*getter)(text);
        facts.append(text).append(getter == Getters[4] ? "" : "|");
        if (known != (text.m_Length != 0))
            facts += "(but says otherwise)";
    }
    if (dup(STDOUT_FILENO) != descriptor)
        facts += " and a descriptor left open";
    return facts;
}

constexpr const char* NoRoot = "the root cannot be changed here";

// The facts that a process finds whose root is this folder.
std::string FactsIn(const std::string& root)
{
    return InRoot(root, Facts).value_or(NoRoot);
}

class OSInfo : public testing::Test
{
protected:
    void SetUp() override
    {
        char name[] = "/tmp/vornex-root-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        m_Root = name;
        if (FactsIn(m_Root) == NoRoot)
            GTEST_SKIP() << NoRoot;
    }
    void TearDown() override { std::filesystem::remove_all(m_Root); }

    std::string Path(const char* file)
    {
        const std::string path = m_Root + file;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        return path;
    }
    void Write(const char* file, const std::string& text)
    {
        std::ofstream(Path(file), std::ios::binary) << text;
    }
    std::string m_Root;
};

TEST_F(OSInfo, RealMachines)
{
    const struct
    {
        const char* m_Machine;
        const char* m_Facts;
    } rows[] = {
        {"ohai-enterprise5.1", "Oracle Corporation|Enterprise Linux Server|5.1||"},
        {"ohai-oracle6.0", "Oracle Corporation|Server|6.0||"}, // has a redhat-release too
        {"facter-rhel5.10", "Red Hat, Inc.|Enterprise Linux Server|5.10||"},
        {"distro-centos5", "|CentOS|5.11||"},
        {"ohai-centos5.1", "Red Hat, Inc.||||"},   // nothing behind the version
        {"facter-centos7.2", "Red Hat, Inc.||||"}, // "CentOS Linux release"
        {"facter-xenserver", "Citrix Systems, Inc.|XenServer|5.6.0||"},
        {"distro-sles12", "Novell, Inc.|SUSE LINUX Enterprise Server|12|1|"},
        {"ohai-opensuse12.2", "Novell, Inc.||||"},
        {"distro-debian10", "|Debian GNU/Linux|10.11||"},
        {"distro-linuxmint17", "|Debian GNU/Linux|||"}, // "jessie/sid"
        {"ohai-debian-empty", "|Debian GNU/Linux|||"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(FactsIn(std::string(TEST_DATA "/release-files/") + row.m_Machine), row.m_Facts)
            << row.m_Machine;
}

TEST_F(OSInfo, BranchesAndQuirks)
{
    constexpr const char* VMware = "/proc/vmware/version";
    constexpr const char* Oracle = "/etc/oracle-release";
    constexpr const char* RedHat = "/etc/redhat-release";
    constexpr const char* Suse = "/etc/SuSE-release";
    constexpr const char* Debian = "/etc/debian_version";
    constexpr const char* Turbo = "/etc/turbolinux-release";
    constexpr const char* Asianux = "/etc/asianux-release";
    const std::string sles = "SUSE LINUX Enterprise Server 10 (i586)\n";
    const std::string endless(300, '1');
    using namespace std::string_literals;
    const struct
    {
        const char* m_File;
        std::string m_Text;
        std::string m_Facts;
    } rows[] = {
        {VMware, "VMware ESX Server 3.5.0 build-123\nvmkernel build: 153875, Intel\n",
         "VMWare, Inc.|ESX Server|3.5.0||153875"},
        {VMware, "\nvmware esx 4.1\r\nVMKERNEL BUILD: 26-0\nVMware ESX Server .2",
         "VMWare, Inc.|ESX Server|4.1.2||26"},
        {VMware, "VMware ESXi 5.0\n VMware ESX 5.0\n", "VMWare, Inc.||||"},
        {VMware, "VMware ESX " + endless, "VMWare, Inc.|ESX|" + endless.substr(0, 244) + "||"},
        {Oracle, "Red Hat Enterprise Linux AS release 4 (October Update 4)",
         "Oracle Corporation|Enterprise Linux AS|4||"},
        {Oracle, "Oracle VM server release 2.2.1\n", "Oracle Corporation|VM server|2.2.1||"},
        {Oracle, "oracle linux server release 7.5\n", "Oracle Corporation||||"},
        {RedHat, "Red Hat Enterprise Linux AS release 4 (Nahant Update 8)\n",
         "Red Hat, Inc.|Enterprise Linux AS|4|8|"},
        {RedHat, "Red Hat Linux release 9 (Shrike)\n", "Red Hat, Inc.|Linux|9||"},
        {RedHat, "Red Hat Linux release 7.3\n", "Red Hat, Inc.||||"},
        {RedHat, "XenServer release 5.6\n", "Red Hat, Inc.||||"},
        {RedHat, "", "Red Hat, Inc.||||"},
        {RedHat, "Red Hat\0 Linux release 9 (Shrike)\n"s, "Red Hat, Inc.||||"},
        {RedHat, "Red Hat Linux release " + endless, "Red Hat, Inc.||||"},
        {Suse, sles + "VERSION = 10.2\nPATCHLEVEL = 11\n",
         "Novell, Inc.|SUSE LINUX Enterprise Server|10|1|"},
        {Suse, sles + "version = x\npatchlevel = \n",
         "Novell, Inc.|SUSE LINUX Enterprise Server|||"},
        {Suse, sles + "VERSION = 9", "Novell, Inc.|SUSE LINUX Enterprise Server|9||"},
        {Suse, sles + "PATCHLEVEL = 3\nVERSION = 10\n", "Novell, Inc.||||"},
        {Suse, "\n" + sles + "VERSION = 10\n", "Novell, Inc.||||"},
        {Debian, "5.0.4\n", "|Debian GNU/Linux|5.0||"},
        {Debian, "testing\n12.1\n", "|Debian GNU/Linux|||"},
        {Turbo, "Turbolinux Server 10.5 (X)\n", "Turbolinux, Inc.|Turbolinux Server|10.5||"},
        {Turbo, "Turbolinux\n", "Turbolinux, Inc.||||"},
        {Asianux, "Asianux Server 3 (Quartet SP2)\n", "Asianux Corporation|Asianux Server|3||"},
        {Asianux, std::string(255, 'A') + " 4\n", "Asianux Corporation||||"},
        {"/etc/os-release", "ID=debian\n", "||||"},
    };
    for (const auto& row : rows) {
        std::filesystem::remove_all(m_Root);
        Write(row.m_File, row.m_Text);
        EXPECT_EQ(FactsIn(m_Root), row.m_Facts) << row.m_File << ": " << row.m_Text;
    }
}

// The first source that opens decides, whatever it holds.
TEST_F(OSInfo, OrderOfSources)
{
    Write("/etc/asianux-release", "Asianux 4");
    Write("/etc/turbolinux-release", "Turbolinux 10");
    EXPECT_EQ(FactsIn(m_Root), "Turbolinux, Inc.|Turbolinux|10||");
    Write("/etc/debian_version", "9.1");
    EXPECT_EQ(FactsIn(m_Root), "|Debian GNU/Linux|9.1||");
    Write("/etc/SuSE-release", "openSUSE 11.4 (i586)\nVERSION = 11.4\nPATCHLEVEL = 2\n");
    EXPECT_EQ(FactsIn(m_Root), "Novell, Inc.||||");
    // openSUSE's own row is for a file that opens at the second try only.
    g_Refused = "/etc/SuSE-release";
    EXPECT_EQ(FactsIn(m_Root), "Novell, Inc.|openSUSE|11|2|");
    g_Refused = "";
    // A link that leads nowhere does not exist, a socket does not open, a folder reads as empty.
    ASSERT_EQ(symlink("nowhere", Path("/etc/redhat-release").c_str()), 0);
    ASSERT_EQ(mknod(Path("/etc/enterprise-release").c_str(), S_IFSOCK | 0600, 0), 0);
    EXPECT_EQ(FactsIn(m_Root), "Novell, Inc.||||");
    Write("/etc/oracle-release", "Oracle Linux Server release 6.0");
    EXPECT_EQ(FactsIn(m_Root), "Oracle Corporation|Server|6.0||");
    std::filesystem::create_directories(Path("/proc/vmware/version"));
    EXPECT_EQ(FactsIn(m_Root), "VMWare, Inc.||||");
}

TEST(OSInfoKernel, NumbersAndArchitecture)
{
    const struct
    {
        const char* m_Machine;
        const char* m_Release;
        const char* m_Architecture;
        bool m_Known;
        unsigned int m_Major, m_Minor;
    } rows[] = {
        {"x86_64", "3.10 custom", "x86-64", true, 3, 10},
        {"i686", "2.6.32-220.el6.x86_64", "x86-32", false, 0, 0},
        {"ia64", "2 6 x", "x86-32", false, 0, 0},
        {"", "3.10", "x86-32", false, 0, 0},
        {"x86_64 ", " 3.10 x", "x86-32", false, 0, 0},
        {"x86_64", "2147483647.0 ", "x86-64", true, 2147483647, 0},
        {"x86_64", "2147483648.7 x", "x86-64", true, 0, 7},
        {nullptr, "3.10 custom", "", false, 0, 0},
        {"x86_64", "5.99999999999999999999 x", "x86-64", true, 5, 0},
        {"x86_64", "4294967296.4294967296 x", "x86-64", false, 0, 0},
    };
    for (const bool disabled : {false, true}) {
        std::unique_ptr<Vorn::Threading::CThrowDisable> guard;
        if (disabled)
            guard = std::make_unique<Vorn::Threading::CThrowDisable>();
        for (const auto& row : rows) {
            SCOPED_TRACE(row.m_Release);
            g_Machine = row.m_Machine;
            g_Release = row.m_Release;
            const COSInfo_Lx system;
            Vorn::Strings::CStringVar text(Vorn::Strings::CStringRef("from before"));
            EXPECT_EQ(system.GetProcessorArchitecture(text), *row.m_Architecture != '\0');
            EXPECT_STREQ(text.m_Text, row.m_Architecture);
            unsigned int numbers[] = {77, 78};
            EXPECT_EQ(system.GetKernelVersion(numbers[0], numbers[1]), row.m_Known);
            EXPECT_EQ(numbers[0], row.m_Known ? row.m_Major : 77);
            EXPECT_EQ(numbers[1], row.m_Known ? row.m_Minor : 78);
        }
    }
}

TEST(OSInfoGetters, EditionIsEmptiedAndFeaturesAreNot)
{
    const COSInfo_Lx system;
    Vorn::Strings::CStringVar text(Vorn::Strings::CStringRef("from before"));
    EXPECT_FALSE(system.GetOSFeatures(text));
    EXPECT_STREQ(text.m_Text, "from before");
    EXPECT_FALSE(system.GetOSEdition(text));
    EXPECT_STREQ(text.m_Text, "");
}

} // namespace
