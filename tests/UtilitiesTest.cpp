// Utilities: bounded text, host name, sleeping, the processor, the speaker, the reboot command.
// System calls are defined here, and the library resolves to them; port instructions are trapped.
#include <cerrno>
#include <csignal>
#include <cstring>

#include <cpuid.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <ucontext.h>

#include <vornex/Utilities.h>

#include "DataTable.h"
#include "InChild.h"
#include "ScratchFolder.h"

namespace {

// What the defined system calls answer, and what they were asked. Shared with forked children.
struct CSystem
{
    int m_HostNameError;
    std::size_t
        m_HostNameLength; // of a name of 'h's; it is not terminated when it fills the buffer
    int m_Interruptions;  // sleeps that a signal ends early
    int m_SleepError;
    unsigned long m_DeniedPort; // ioperm fails for it
    int m_DeniedSwitch;         // ... when turned to this
    int m_SyncCalls;
    char m_Events[4096]; // each with a blank before it
};

CSystem* const g_System = static_cast<CSystem*>(
    mmap(nullptr, sizeof(CSystem), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

void Record(const char* format, unsigned long a, unsigned long b = 0, unsigned long c = 0)
{
    const std::size_t length = std::strlen(g_System->m_Events);
    std::snprintf(g_System->m_Events + length, sizeof g_System->m_Events - length, format, a, b, c);
}

} // namespace

extern "C" {

int gethostname(char* name, size_t size) noexcept
{
    if (g_System->m_HostNameError != 0) {
        errno = g_System->m_HostNameError;
        return -1;
    }
    std::memset(name, 'h', std::min(size, g_System->m_HostNameLength));
    if (g_System->m_HostNameLength < size)
        name[g_System->m_HostNameLength] = '\0';
    return 0;
}

int nanosleep(const timespec* wanted, timespec* remaining)
{
    Record(" sleep(%lu.%09lu)", static_cast<unsigned long>(wanted->tv_sec),
           static_cast<unsigned long>(wanted->tv_nsec));
    if (g_System->m_Interruptions > 0) {
        --g_System->m_Interruptions;
        *remaining = {0, 250000000};
        errno = EINTR;
        return -1;
    }
    errno = g_System->m_SleepError;
    return g_System->m_SleepError != 0 ? -1 : 0;
}

int ioperm(unsigned long from, unsigned long count, int on) noexcept
{
    Record(" ioperm(%lx,%lu,%lu)", from, count, static_cast<unsigned long>(on));
    return from == g_System->m_DeniedPort && on == g_System->m_DeniedSwitch ? -1 : 0;
}

void sync() noexcept
{
    ++g_System->m_SyncCalls;
}

} // extern "C"

namespace {

class Utilities : public testing::Test
{
protected:
    void SetUp() override { std::memset(g_System, 0, sizeof *g_System); }
};

TEST_F(Utilities, BoundedCopyAndAppend)
{
    EachRow("utilities", "bounded", [](const CDataRow& row) {
        char buffer[8];
        std::memcpy(buffer, row[1].data(), sizeof buffer);
        const auto call = row[0] == "append" ? VornEx::strlcat : VornEx::strlcpy;
        EXPECT_EQ(call(buffer, row[2].c_str(), row.Number<unsigned int>(3)),
                  row.Number<unsigned int>(4));
        EXPECT_EQ(std::string(buffer, sizeof buffer), row[5]);
    });
}

TEST_F(Utilities, HostName)
{
    Vorn::Strings::TString<16> name;
    for (const unsigned int length : {0U, 5U, 64U, 511U}) {
        name = "old";
        g_System->m_HostNameLength = length;
        EXPECT_TRUE(VornEx::hostname(name));
        EXPECT_TRUE(name == std::string(length, 'h'));
    }
    g_System->m_HostNameLength = 600; // fills the buffer without a terminator
    EXPECT_TRUE(VornEx::hostname(name));
    EXPECT_EQ(name.m_Length, 511U);
    g_System->m_HostNameError = ENAMETOOLONG;
    EXPECT_FALSE(VornEx::hostname(name));
    EXPECT_TRUE(name == "");
}

TEST_F(Utilities, SleepGoesOnAfterSignals)
{
    g_System->m_Interruptions = 2;
    VornEx::msleep(1500);
    EXPECT_STREQ(g_System->m_Events, " sleep(1.500000000) sleep(0.250000000) sleep(0.250000000)");
    SetUp();
    g_System->m_SleepError = EINVAL;
    VornEx::msleep(4294967295U);
    EXPECT_STREQ(g_System->m_Events, " sleep(4294967.295000000)");
}

TEST_F(Utilities, ProcessorIdentification)
{
    for (const unsigned int leaf : {0U, 1U, 4U, 0x80000000U, 0x80000008U}) {
        unsigned int expected[4];
        __cpuid_count(leaf, 0, expected[0], expected[1], expected[2], expected[3]);
        unsigned int got[4] = {};
        VornEx::cpuID(leaf, got);
        // Bits 31 to 24 of leaf 1's EBX are the processor that the thread happens to be on.
        const unsigned int mask = leaf == 1 ? 0x00FFFFFFU : ~0U;
        EXPECT_EQ(got[0], expected[0]) << leaf;
        EXPECT_EQ(got[1] & mask, expected[1] & mask) << leaf;
    }
    const std::string info = FileContent("/proc/cpuinfo");
    const std::string vendor = info.substr(info.find(": ", info.find("vendor_id")) + 2, 12);
    unsigned int registers[4];
    VornEx::cpuID(0, registers);
    const unsigned int words[] = {registers[1], registers[3], registers[2]};
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(words), 12), vendor);

    unsigned int cores = 0;
    unsigned int logical = 0;
    bool hyperThreading = false;
    EXPECT_TRUE(VornEx::processorInfo(cores, logical, hyperThreading));
    EXPECT_GE(cores, 1U);
    VornEx::cpuID(1, registers);
    EXPECT_EQ(logical, (registers[1] >> 16U) & 0xFFU);
    EXPECT_EQ(hyperThreading, ((registers[3] >> 28U) & 1U) != 0 && cores < logical);
}

// Records a port instruction that faulted and steps over it. A port reads as 0xF4.
void StepOverPortAccess(int /*signal*/, siginfo_t* /*info*/, void* context)
{
    auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
#if defined(__x86_64__)
    constexpr std::size_t IP = REG_RIP, AX = REG_RAX, DX = REG_RDX;
#else
    constexpr std::size_t IP = REG_EIP, AX = REG_EAX, DX = REG_EDX;
#endif
    const auto* const code = reinterpret_cast<const unsigned char*>(registers[IP]);
    const auto al = static_cast<unsigned long>(registers[AX]) & 0xFF;
    const auto dx = static_cast<unsigned long>(registers[DX]) & 0xFFFF;
    switch (code[0]) {
    case 0xEE: // out dx, al
    case 0xE6: // out imm8, al
        Record(" out(%lx,%lx)", code[0] == 0xEE ? dx : code[1], al);
        break;
    case 0xEC: // in al, dx
    case 0xE4: // in al, imm8
        Record(" in(%lx)", code[0] == 0xEC ? dx : code[1]);
        registers[AX] = (registers[AX] & ~0xFF) | 0xF4;
        break;
    default:
        _exit(99);
    }
    registers[IP] += code[0] >= 0xE8 ? 1 : 2;
}

constexpr int Quieted[] = {SIGINT, SIGQUIT, SIGABRT, SIGTSTP, SIGTERM, SIGHUP};

// A beep in a child, and the disposition that all the signals are left in: 'I'gnore, 'D'efault, or
// '?' when they differ.
char BeepAndDisposition(unsigned int frequency, unsigned int duration)
{
    return static_cast<char>(InChild([&] {
        struct sigaction trap
        {};
        trap.sa_sigaction = StepOverPortAccess;
        trap.sa_flags = SA_SIGINFO;
        sigaction(SIGSEGV, &trap, nullptr);
        for (const int number : Quieted)
            std::signal(number, [](int) {});
        VornEx::beep(frequency, duration);
        char left = '\0';
        for (const int number : Quieted) {
            const auto now = std::signal(number, SIG_DFL);
            const char one = now == SIG_IGN ? 'I' : now == SIG_DFL ? 'D' : '?';
            left = left == '\0' || left == one ? one : '?';
        }
        return static_cast<int>(left);
    }));
}

TEST_F(Utilities, BeepProgramsTheSpeaker)
{
    EXPECT_EQ(BeepAndDisposition(1000, 200), 'D');
    EXPECT_STREQ(g_System->m_Events, " ioperm(61,32,1) ioperm(42,2,1) ioperm(43,2,1) "
                                     "in(61) out(61,f7) out(43,b6) out(42,a9) out(42,4) "
                                     "sleep(0.200000000) in(61) out(61,f4) "
                                     "ioperm(61,32,0) ioperm(42,2,0) ioperm(43,2,0)");
}

TEST_F(Utilities, BeepWithoutPermissionLeavesSignalsIgnored)
{
    g_System->m_DeniedPort = 0x61;
    g_System->m_DeniedSwitch = 1;
    EXPECT_EQ(BeepAndDisposition(1000, 200), 'I');
    EXPECT_STREQ(g_System->m_Events, " ioperm(61,32,1)");
    SetUp();
    g_System->m_DeniedPort = 0x61; // granted, but not given back
    EXPECT_EQ(BeepAndDisposition(440, 1), 'I');
    EXPECT_STREQ(std::strrchr(g_System->m_Events, ' '), " ioperm(61,32,0)");
}

TEST_F(Utilities, RebootRunsTheCommand)
{
    const CScratchFolder folder;
    const std::string command = folder.m_Path + "/reboot";
    const std::string called = folder.m_Path + "/called";
    WriteFile(command, "#!/bin/sh\n: > " + called + "\nexit 3\n");
    ASSERT_EQ(chmod(command.c_str(), 0700), 0);
    // The folder is all that PATH holds, so that no other reboot can be found.
    EXPECT_EQ(InChild([&] {
                  if (setenv("PATH", folder.m_Path.c_str(), 1) != 0 ||
                      access(command.c_str(), X_OK) != 0)
                      return 98;
                  return WEXITSTATUS(VornEx::reboot());
              }),
              3);
    EXPECT_TRUE(std::filesystem::exists(called));
    EXPECT_EQ(g_System->m_SyncCalls, 1);
}

} // namespace
