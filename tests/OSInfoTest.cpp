// Operating system identification: real and made release files in roots of their own, and whatever
// the kernel may say.
#include <cerrno>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/utsname.h>

#include <vorn/Threading.h>
#include <vornex/OSInfo.h>

#include "ChangedRoot.h"
#include "DataTable.h"
#include "ScratchFolder.h"

namespace {

std::string g_Machine = "x86_64"; // NULL: uname fails
std::string g_Release = "6.1.0-37-amd64";

const char* g_Refused = ""; // opening this path fails, once

} // namespace

extern "C" {

int uname(utsname* system) noexcept
{
    const bool fails = g_Machine == "NULL";
    std::strcpy(system->machine, fails ? "x86_64" : g_Machine.c_str());
    std::strcpy(system->release, g_Release.c_str());
    return fails ? -1 : 0;
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

class OSInfo : public testing::Test
{
protected:
    void SetUp() override
    {
        if (FactsIn(m_Root.m_Path) == NoRoot)
            GTEST_SKIP() << NoRoot;
    }

    // The facts that a process finds whose root is this folder.
    static std::string FactsIn(const std::string& root)
    {
        return InRoot(root, Facts).value_or(NoRoot);
    }
    std::string Here() const { return FactsIn(m_Root.m_Path); }
    void Write(const std::string& file, const std::string& text) const
    {
        WriteFile(m_Root.m_Path + file, text);
    }

    const CScratchFolder m_Root;
};

TEST_F(OSInfo, RealMachinesBranchesAndQuirks)
{
    EachRow("os", "machines", [](const CDataRow& row) {
        EXPECT_EQ(FactsIn(TEST_DATA "/release-files/" + row[0]), row[1]);
    });
    EachRow("os", "files", [this](const CDataRow& row) {
        std::filesystem::remove_all(m_Root.m_Path);
        Write(row[0], row[1]);
        EXPECT_EQ(Here(), row[2]);
    });
}

// The first source that opens decides, whatever it holds.
TEST_F(OSInfo, OrderOfSources)
{
    Write("/etc/asianux-release", "Asianux 4");
    Write("/etc/turbolinux-release", "Turbolinux 10");
    EXPECT_EQ(Here(), "Turbolinux, Inc.|Turbolinux|10||");
    Write("/etc/debian_version", "9.1");
    EXPECT_EQ(Here(), "|Debian GNU/Linux|9.1||");
    Write("/etc/SuSE-release", "openSUSE 11.4 (i586)\nVERSION = 11.4\nPATCHLEVEL = 2\n");
    EXPECT_EQ(Here(), "Novell, Inc.||||");
    // openSUSE's own row is for a file that opens at the second try only.
    g_Refused = "/etc/SuSE-release";
    EXPECT_EQ(Here(), "Novell, Inc.|openSUSE|11|2|");
    g_Refused = "";
    // A link that leads nowhere does not exist, a socket does not open, a folder reads as empty.
    std::filesystem::create_symlink("nowhere", m_Root.m_Path + "/etc/redhat-release");
    ASSERT_EQ(mknod((m_Root.m_Path + "/etc/enterprise-release").c_str(), S_IFSOCK | 0600, 0), 0);
    EXPECT_EQ(Here(), "Novell, Inc.||||");
    Write("/etc/oracle-release", "Oracle Linux Server release 6.0");
    EXPECT_EQ(Here(), "Oracle Corporation|Server|6.0||");
    std::filesystem::create_directories(m_Root.m_Path + "/proc/vmware/version");
    EXPECT_EQ(Here(), "VMWare, Inc.||||");
}

TEST(OSInfoKernel, NumbersAndArchitecture)
{
    for (const bool disabled : {false, true})
        EachRow("os", "kernel", [disabled](const CDataRow& row) {
            std::optional<Vorn::Threading::CThrowDisable> guard;
            if (disabled)
                guard.emplace();
            g_Machine = row[0];
            g_Release = row[1];
            const COSInfo_Lx system;
            Vorn::Strings::CStringVar text(Vorn::Strings::CStringRef("from before"));
            EXPECT_EQ(system.GetProcessorArchitecture(text), !row[2].empty());
            EXPECT_EQ(text.m_Text, row[2]);
            const bool known = row.Size() > 3;
            unsigned int numbers[] = {77, 78};
            EXPECT_EQ(system.GetKernelVersion(numbers[0], numbers[1]), known);
            EXPECT_EQ(numbers[0], known ? row.Number<unsigned int>(3) : 77);
            EXPECT_EQ(numbers[1], known ? row.Number<unsigned int>(4) : 78);

            text = "from before";
            EXPECT_FALSE(system.GetOSFeatures(text));
            EXPECT_STREQ(text.m_Text, "from before");
            EXPECT_FALSE(system.GetOSEdition(text));
            EXPECT_STREQ(text.m_Text, "");
        });
}

} // namespace
