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

// Calls that fail, the n-th of each or all of them, how, and what comes of it.
constexpr int Each = -1;
struct CFailure
{
    std::set<std::string> m_Calls;
    int m_Nth = 0;
    int m_Error = 0;
    std::string m_Result;
};

CFailure g_Failure;
std::map<std::string, int> g_Made; // how many times each call was made

int Fault(const char* call)
{
    const int made = ++g_Made[call];
    const bool fails = g_Failure.m_Nth == Each || g_Failure.m_Nth == made;
    return fails && g_Failure.m_Calls.count(call) != 0 ? g_Failure.m_Error : 0;
}

std::string ResultWith(const CService& service, const CFailure& failure)
{
    g_Made.clear();
    g_Failure = failure;
    g_Fault = Fault;
    std::string result = Result(service);
    g_Fault = nullptr;
    return result;
}

std::vector<CService> AllServices()
{
    std::vector<CService> all = Services();
    all.push_back({"reboot",
                   [] {
                       setenv("PATH", "/nowhere", 1); // should system() be the system's own
                       return std::to_string(VornEx::reboot());
                   },
                   false});
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

// Calls the body with each failure in a group of the table; "same" there is `whole`.
void EachFailure(const std::string& group, const std::string& whole,
                 const std::function<void(const CFailure&)>& body)
{
    EachRow("failing-calls", group, [&](const CDataRow& row) {
        CFailure failure;
        failure.m_Calls = Split<std::set<std::string>>(row[0], ' ');
        failure.m_Nth = row[1] == "each" ? Each : row.Number(1);
        for (const auto& error : Split<std::vector<std::string>>(row[2], ',')) {
            SCOPED_TRACE(error);
            failure.m_Error = ErrorNumber(error);
            failure.m_Result = row[3] == "same" ? whole : row[3];
            if (!failure.m_Result.empty() && failure.m_Result.back() == '#')
                failure.m_Result.replace(failure.m_Result.size() - 1, 1, error);
            body(failure);
        }
    });
}

// Whether each call of the failure was made so often that it could fail.
void ExpectMade(const CFailure& failure)
{
    for (const auto& call : failure.m_Calls)
        EXPECT_GE(g_Made[call], std::max(failure.m_Nth, 1)) << call << " is not made";
}

// What is done once in a process, at its first delivery: before all other tests.
TEST(SystemCallFailure, FirstDelivery)
{
    Environment(); // the server is not the children's
    EachFailure("first mail", "sent, 0", [](const CFailure& failure) {
        EXPECT_EQ(InChild([&failure] {
                      const std::string result = ResultWith(Service("mail"), failure);
                      ExpectMade(failure);
                      return result == failure.m_Result && !testing::Test::HasFailure() ? 0 : 1;
                  }),
                  0);
    });
}

// The result of a service that fails; it leaves nothing behind.
std::string Failed(const CService& service, const CFailure& failure)
{
    const std::string whole = Result(service);
    const auto descriptors = OpenDescriptors();
    std::string result = ResultWith(service, failure);
    EXPECT_EQ(OpenDescriptors(), descriptors);
    EXPECT_EQ(Result(service), whole) << "afterwards";
    return result;
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
        ResultWith(service, {});
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
        const int closes = g_Made["close"];
        std::set<std::string> tried = {"close"};
        EachFailure(service.m_Name, whole, [&](const CFailure& failure) {
            EXPECT_EQ(Failed(service, failure), failure.m_Result);
            ExpectMade(failure);
            tried.insert(failure.m_Calls.begin(), failure.m_Calls.end());
        });
        if (service.m_Name == std::string("mail by TLS")) // the rest is as in "mail"
            continue;
        calls["close"] = closes;
        for (const auto& [call, made] : calls) {
            SCOPED_TRACE(service.m_Name + (": " + call));
            EXPECT_TRUE(tried.count(call) != 0) << "no row";
            for (int nth = 1; nth <= std::min(made, MostCalls); ++nth) {
                for (const int error : {EINTR, EIO, EMFILE, ENOMEM, Short}) {
                    const std::string result = Failed(service, {{call}, nth, error, {}});
                    const bool same =
                        call == "close" || (error == EINTR && (call == "open" || call == "read"));
                    EXPECT_TRUE(same ? result == whole : result != "no memory")
                        << result << ", " << nth << ", error " << error;
                }
            }
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
                const std::string result = ResultWith(service, {{"syslog"}, Each, error, {}});
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
    const CService& service = Service("processor"); // one line
    const std::string whole = Result(service);
    const int before = dup(STDERR_FILENO);
    EachFailure("trace line", "written", [&](const CFailure& failure) {
        const int file = memfd_create("trace", MFD_CLOEXEC);
        dup2(file, STDERR_FILENO);
        VornEx::VORN_MODULE_INFO_VornEx.m_TraceMask = Vorn::Internals::TraceDetail;
        const std::string result = ResultWith(service, failure);
        VornEx::VORN_MODULE_INFO_VornEx.m_TraceMask = 0;
        dup2(before, STDERR_FILENO);
        ExpectMade(failure);
        EXPECT_EQ(result, whole);
        const std::string text = FileContent("/proc/self/fd/" + std::to_string(file));
        const bool isWritten = text.find("processorInfo ()") != std::string::npos;
        EXPECT_EQ(isWritten && text.back() == '\n' ? "written" : "lost", failure.m_Result) << text;
        close(file);
    });
    close(before);
}

} // namespace
