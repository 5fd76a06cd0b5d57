// System and library calls that fail: every one that a service makes, with the errors of its
// manual.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <vorn/Trace.h>
#include <vornex/vornex.h>

#include "DataTable.h"
#include "InChild.h"
#include "ScratchFolder.h"
#include "Services.h"

namespace {

constexpr int Short = -1; // Services.h
constexpr int Taken = -2;

// How many times each call was made, and which of those in the set fail: the n-th, or Each.
constexpr int Each = -1;
std::map<std::string, int> g_Made;
std::set<std::string> g_Calls;
int g_Nth = 0;
int g_Error = 0;

int Fault(const char* call)
{
    const int made = ++g_Made[call];
    return (g_Nth == Each || g_Nth == made) && g_Calls.count(call) != 0 ? g_Error : 0;
}

std::string ResultWith(const CService& service, const std::set<std::string>& calls, int nth,
                       int error)
{
    g_Made.clear();
    g_Calls = calls;
    g_Nth = nth;
    g_Error = error;
    g_Fault = Fault;
    std::string result = Result(service);
    g_Fault = nullptr;
    return result;
}

std::vector<CService> AllServices()
{
    std::vector<CService> all = Services();
    all.push_back({"reboot", [] { return std::to_string(VornEx::reboot()); }, false});
    all.push_back({"mail by TLS",
                   [] {
                       VornEx::CSmtp mail;
                       mail.SetServer(Environment().m_Server, 465);
                       const bool sent = mail.Send();
                       return (sent ? "sent, " : "not sent, ") +
                              std::to_string(mail.GetLastError());
                   },
                   false});
    return all;
}

const CService& Service(const std::string& name)
{
    const auto& all = Services();
    return *std::find_if(all.begin(), all.end(),
                         [&](const CService& service) { return service.m_Name == name; });
}

// The words of a list.
template <class Words>
Words Split(std::string list, char between)
{
    std::replace(list.begin(), list.end(), between, ' ');
    std::istringstream stream(list);
    return {std::istream_iterator<std::string>(stream), {}};
}

int ErrorNumber(const std::string& name)
{
    if (name == "short" || name == "taken")
        return name == "short" ? Short : Taken;
    for (int number = 1; number < 200; ++number)
        if (const char* const known = strerrorname_np(number); known != nullptr && known == name)
            return number;
    return std::stoi(name);
}

// What is done once in a process, at its first delivery: before all other tests.
TEST(SystemCallFailure, FirstDelivery)
{
    const struct
    {
        const char* m_Call;
        int m_Nth;
        const char* m_Result;
    } rows[] = {{"dlopen", 1, "not sent, 0"}, // libetpan
                {"dladdr", 1, "sent, 0"},           {"dlopen", 2, "sent, 0"},
                {"readlink", 1, "sent, 0"},         {"stat", 1, "sent, 0"},
                {"sasl_client_init", 1, "sent, 0"}, {"sasl_client_init", Each, "not sent, 17"}};
    for (const auto& row : rows)
        EXPECT_EQ(InChild([&row] {
                      const auto result =
                          ResultWith(Service("mail"), {row.m_Call}, row.m_Nth, ENOMEM);
                      if (g_Made[row.m_Call] == 0)
                          return 2; // a delivery was made before this test
                      return result == row.m_Result ? 0 : 1;
                  }),
                  0)
            << row.m_Call;
}

// One failure of a service; it leaves nothing behind.
void Fail(const CService& service, const std::set<std::string>& calls, int nth, int error,
          const std::function<void(const std::string& result)>& check)
{
    SCOPED_TRACE(service.m_Name + (": " + *calls.begin()) + " " + std::to_string(nth) + ", error " +
                 std::to_string(error));
    const std::string whole = Result(service);
    const auto descriptors = OpenDescriptors();
    check(ResultWith(service, calls, nth, error));
    EXPECT_EQ(OpenDescriptors(), descriptors);
    EXPECT_EQ(Result(service), whole) << "afterwards";
}

// Each call of each service in turn. What its rows say comes of it; with other errors, nothing but
// a result or a raised code. Each call that is made has a row, and each row calls that are made.
TEST(SystemCallFailure, EveryCallOfEveryService)
{
    constexpr int MostCalls = 30; // of one name
    // As in a host that has it blocked: only there has a delivery to ask whether one is waiting.
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    for (const CService& service : AllServices()) {
        const std::string whole = Result(service); // what is made once is made
        ResultWith(service, {}, 0, 0);
        auto calls = g_Made;
        calls.erase("close");  // has closed, whatever it says: see below
        calls.erase("syslog"); // InsideTheCLibrary
        // libpciaccess takes what its stack holds for the content of a file that it cannot read.
        // Its other calls can be defined in some builds of it only.
        if (service.m_Name == std::string("PCI"))
            for (const char* const own : {"open", "pread", "read", "stat"})
                calls.erase(own);
        if (calls.empty())
            continue;
        std::set<std::string> tried;
        EachRow("failing-calls", service.m_Name, [&](const CDataRow& row) {
            const auto failing = Split<std::set<std::string>>(row[0], ' ');
            const int nth = row[1] == "each" ? Each : row.Number(1);
            for (const auto& error : Split<std::vector<std::string>>(row[2], ',')) {
                std::string wanted = row[3] == "same" ? whole : row[3];
                if (!wanted.empty() && wanted.back() == '#')
                    wanted.replace(wanted.size() - 1, 1, error);
                Fail(service, failing, nth, ErrorNumber(error), [&](const std::string& result) {
                    EXPECT_EQ(result, wanted);
                    for (const auto& call : failing)
                        EXPECT_GE(g_Made[call], std::max(nth, 1)) << call << " is not made";
                });
            }
            tried.insert(failing.begin(), failing.end());
        });
        if (service.m_Name == std::string("mail by TLS")) // the rest is as in "mail"
            continue;
        calls["close"] = g_Made["close"];
        for (const auto& [call, made] : calls) {
            EXPECT_TRUE(call == "close" || tried.count(call) != 0)
                << "no row for " << call << " of " << service.m_Name;
            for (int nth = 1; nth <= std::min(made, MostCalls); ++nth)
                for (const int error : {EINTR, EIO, EMFILE, ENOMEM, Short})
                    Fail(service, {call}, nth, error, [&, &call = call](const auto& result) {
                        EXPECT_NE(result, "no memory");
                        const bool same = call == "close" ||
                                          (error == EINTR && (call == "open" || call == "read"));
                        EXPECT_TRUE(result == whole || !same) << result;
                    });
        }
    }
}

// Has a system call of this process fail from now on, whoever makes it. With `onFiles`, only where
// its fifth argument is not -1.
bool Deny(long call, int error, bool onFiles)
{
    constexpr unsigned int FifthArgument = offsetof(seccomp_data, args) + 4 * 8;
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned int>(call), 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, FifthArgument),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, onFiles ? 0xFFFFFFFFU : 0xFFFFFFFEU, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned int>(error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program = {static_cast<unsigned short>(std::size(filter)), filter};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

// Calls that syslog and catopen make where no program can define them.
TEST(SystemCallFailure, InsideTheCLibrary)
{
#if defined(__i386__)
    constexpr long MapCall = SYS_mmap2;
#else
    constexpr long MapCall = SYS_mmap;
#endif
    const struct
    {
        const char* m_Service;
        long m_Call;
        std::vector<int> m_Errors;
    } rows[] = {
        {"log", SYS_socket, {EMFILE, ENFILE, EACCES, ENOBUFS, ENOMEM}},
        {"log", SYS_connect, {ENOENT, ECONNREFUSED, EACCES, EPROTOTYPE, EINTR}},
        {"log", SYS_sendto, {EPIPE, ECONNRESET, ENOBUFS, EMSGSIZE, ENOTCONN, EINTR}},
        {"messages", MapCall, {EACCES, ENODEV, ENOMEM}}, // it is read then
    };
    for (const auto& row : rows) {
        const CService& service = Service(row.m_Service);
        const std::string wanted = Result(service);
        for (const int error : row.m_Errors) {
            const int status = InChild([&] {
                if (!Deny(row.m_Call, error, row.m_Call == MapCall))
                    return 77;
                const auto descriptors = OpenDescriptors();
                const std::string result = ResultWith(service, {"syslog"}, Each, error);
                return result == wanted && OpenDescriptors() == descriptors ? 0 : 1;
            });
            if (status == 77)
                GTEST_SKIP() << "no system call can be denied here";
            EXPECT_EQ(status, 0) << row.m_Service << " " << row.m_Call << " error " << error;
        }
    }
}

// Lines of the default sink, which writes to standard error.
TEST(SystemCallFailure, TraceLines)
{
    const struct
    {
        const char* m_Calls;
        int m_Nth;
        int m_Error;
        bool m_IsWritten;
    } rows[] = {{"", 0, 0, true},
                {"time localtime_r", 1, EOVERFLOW, true}, // without a time
                {"strftime", 1, ERANGE, true},
                {"write", 1, EINTR, true},
                {"write", Each, Short, true},
                {"write", Each, EIO, false},
                {"write", 1, ENOSPC, false},
                {"write", 1, EAGAIN, false}};
    const CService& service = Service("processor"); // one line
    const std::string whole = Result(service);
    const int before = dup(STDERR_FILENO);
    for (const auto& row : rows) {
        const int file = memfd_create("trace", MFD_CLOEXEC);
        dup2(file, STDERR_FILENO);
        VornEx::VORN_MODULE_INFO_VornEx.m_TraceMask = Vorn::Internals::TraceDetail;
        const std::string result = ResultWith(
            service, Split<std::set<std::string>>(row.m_Calls, ' '), row.m_Nth, row.m_Error);
        VornEx::VORN_MODULE_INFO_VornEx.m_TraceMask = 0;
        dup2(before, STDERR_FILENO);
        EXPECT_EQ(result, whole);
        const std::string text = FileContent("/proc/self/fd/" + std::to_string(file));
        EXPECT_EQ(!text.empty() && text.back() == '\n', row.m_IsWritten)
            << row.m_Calls << " " << row.m_Nth << " " << row.m_Error << " " << text;
        EXPECT_EQ(text.find("processorInfo ()") != std::string::npos, row.m_IsWritten);
        close(file);
    }
    close(before);
}

} // namespace
