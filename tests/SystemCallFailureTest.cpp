// System and library calls that fail: every one that a service makes, with the errors of its
// manual.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <map>
#include <sstream>

#include <libetpan/libetpan.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vorn/Trace.h>
#include <vornex/vornex.h>

#include "ScratchFolder.h"
#include "Services.h"

namespace {

constexpr int Short = -1; // a read that gets one byte
constexpr int Taken = -2; // a STARTTLS that says so and sends nothing

// How many times each call was made, and which of those in the list, names between spaces, fails.
constexpr int Every = -1;
std::map<std::string, int> g_Made;
const char* g_Calls = "";
int g_Nth = 0;
int g_Error = 0;

std::vector<std::string> Words(const char* list)
{
    std::istringstream stream(list);
    return {std::istream_iterator<std::string>(stream), {}};
}

bool IsIn(const char* list, const std::string& name)
{
    const auto words = Words(list);
    return std::find(words.begin(), words.end(), name) != words.end();
}

int Fault(const char* call)
{
    const int made = ++g_Made[call];
    return (g_Nth == Every || g_Nth == made) && IsIn(g_Calls, call) ? g_Error : 0;
}

std::string ResultWith(const CService& service, const char* calls, int nth, int error)
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

const CService& Service(const std::string& name)
{
    static const std::vector<CService> notForAll = {
        {"reboot", [] { return std::to_string(VornEx::reboot()); }, false},
        {"mail by TLS",
         [] {
             VornEx::CSmtp mail;
             mail.SetServer(Environment().m_Server, 465);
             const bool sent = mail.Send();
             return std::string(sent ? "sent, " : "not sent, ") +
                    std::to_string(mail.GetLastError());
         },
         false},
    };
    for (const auto* const services : {&Services(), &notForAll})
        for (const CService& service : *services)
            if (service.m_Name == name)
                return service;
    ADD_FAILURE() << "no service " << name;
    return Services().front();
}

struct CRow
{
    const char* m_Calls;
    int m_Nth;
    std::vector<int> m_Errors;
    const char* m_Result; // # stands for the error
};
constexpr const char* same = nullptr;

const struct
{
    const char* m_Service;
    std::vector<CRow> m_Rows;
} g_Tables[] = {
    {"host name", {{"gethostname", 1, {EFAULT, EINVAL, ENAMETOOLONG, EPERM}, "none"}}},
    {"process path", {{"readlink", 1, {EACCES, EIO, ELOOP, ENOENT, ENOMEM, ENOTDIR}, "none"}}},
    {"processor", {{"nanosleep", 1, {EINTR, EINVAL, EFAULT}, same}}},
    {"reboot", {{"system", 1, {EAGAIN, ENOMEM}, "-1"}, {"sync", 1, {EIO}, same}}},
    {"now", {{"gettimeofday", 1, {EFAULT, EINVAL}, "raised 537198600"}}},
    {"time",
     {{"sysinfo", 1, {EFAULT}, "1709208000000 1971 31 0"},
      {"mktime", 1, {EOVERFLOW}, "1709294400000 1971 31 77000"}, // tried as 1 March
      {"mktime", Every, {EOVERFLOW}, "18446744073709550616 1971 28 77000"},
      {"localtime_r", 1, {EOVERFLOW}, "1709208000000 2024 31 77000"},
      {"localtime_r", 2, {EOVERFLOW}, "1709208000000 1971 0 77000"}}},
    {"log", {{"syslog", Every, {}, same}}}, // InsideTheCLibrary
    // The English text comes where the catalogue cannot be had.
    {"messages",
     {{"setlocale", Every, {ENOENT}, same},
      {"open", Every, {EMFILE, ENFILE, EACCES, EIO}, "Time system call failed"},
      {"fstat", Every, {EIO, ENOMEM, EOVERFLOW}, "Time system call failed"},
      {"read", 1, {EINTR}, same},
      {"read", Every, {Short}, same},
      {"read", Every, {EIO, EISDIR, EAGAIN}, "Time system call failed"},
      {"catopen", Every, {EACCES, EMFILE, ENOENT, ENOMEM}, "Time system call failed"},
      {"catgets", Every, {EBADF, EINTR, ENOMSG}, "Time system call failed"},
      {"catclose", Every, {EBADF, EINTR}, same}}},

    {"system",
     {{"uname", 1, {EFAULT}, "Red Hat, Inc.|Enterprise Linux Server|7.2||"},
      {"stat", Every, {EACCES, EIO, ENOMEM, ELOOP, EOVERFLOW}, "|||x86-64|"},
      {"stat", 1, {EACCES, ENOENT}, same}, // one that is not there anyway
      {"open", 1, {EINTR}, same},
      {"open", Every, {EMFILE, ENFILE, EACCES, EIO, ENOMEM, ENXIO}, "|||x86-64|"},
      {"read", 1, {EINTR}, same},
      {"read", Every, {Short}, same},
      {"read", 1, {EIO, EISDIR, EAGAIN, EBADF}, "Red Hat, Inc.|||x86-64|"}}},

    {"classic disk",
     {{"open", 1, {EINTR}, same},
      {"open", 1, {EMFILE, ENFILE, EACCES, ENXIO, EIO, ENOMEM, ENOMEDIUM}, ""},
      {"lseek", 1, {EINVAL, EOVERFLOW, ESPIPE, EBADF}, ""},
      {"lseek", 2, {EINVAL, EIO}, "p1@1/boot p3@26Swap "},
      {"lseek", 3, {EINVAL}, "p1@1/boot p3@26Swap p5@11 "},
      {"read", 1, {EINTR}, same},
      {"read", 1, {EIO, EISDIR, EINVAL, EAGAIN, Short}, ""},
      {"read", 2, {EIO, Short}, "p1@1/boot p3@26Swap "},
      {"read", 3, {EIO, Short}, "p1@1/boot p3@26Swap p5@11 "},
      {"setmntent", 1, {ENOENT, EACCES, EMFILE, ENOMEM}, same}, // the other one
      {"setmntent", Every, {EMFILE, ENOMEM}, "p1@1 p3@26Swap p5@11 p6@16 "},
      {"getmntent", 1, {EIO, ENOMEM}, "p1@1 p3@26Swap p5@11 p6@16 "}}},
    {"GUID disk",
     {{"open", 1, {EMFILE, ENFILE, EACCES, ENXIO, EIO, ENOMEM, ENOMEDIUM}, ""},
      {"lseek", 1, {EINVAL}, ""},
      {"read", 1, {EIO, Short}, ""},
      {"read", 2, {EIO, Short}, ""}, // the header
      {"read", 3, {EINTR}, same},
      {"setmntent", Every, {EMFILE, ENOMEM}, "p1@34 p5@41 "},
      {"getmntent", 1, {EIO, ENOMEM}, "p1@34 p5@41 "},
      {"read", 3, {EIO}, ""}}}, // no later read could end otherwise

    {"module file", // call 1 is the console's list
     {{"open", 2, {EINTR}, same},
      {"open", Every, {EMFILE, ENFILE, EACCES, EIO, ENOMEM}, " 0"},
      {"pread", 1, {EINTR}, same},
      {"pread", Every, {Short}, same},
      {"pread", Every, {EIO, EISDIR, ESPIPE, EBADF}, " 0"},
      {"pread", 1, {EIO}, " 0"}}},
    {"module name",
     {{"open", 2, {EACCES, EMFILE}, " 0"}, // only what is missing is a name
      {"uname", 1, {EFAULT}, " 0"},
      {"open", 3, {EMFILE, ENFILE, EACCES, EIO, ENOMEM}, " 0"},
      {"open", 3, {EINTR}, same},
      {"open", 4, {EMFILE, EACCES, ENOENT}, " 0"},
      {"read", 1, {EINTR}, same},
      {"read", Every, {Short}, same},
      {"read", 1, {EIO, EISDIR, EAGAIN}, " 0"},
      {"pread", 1, {EIO}, " 0"}}},

    {"PCI",
     {{"pci_system_init", 1, {ENOENT, ENOMEM, EACCES}, "none"},
      {"pci_slot_match_iterator_create", 1, {ENOMEM}, "none"},
      {"pci_device_next", 1, {ENODEV}, "none"}}},

    {"mail header", {{"time localtime_r", 1, {EOVERFLOW}, same}, {"strftime", 1, {ERANGE}, same}}},
    // 25: no connection, 3: it broke, 1: so it did where an answer to a command was due, 15: no
    // memory, 4 to 7: as libetpan's call says.
    {"mail",
     {{"pthread_sigmask", Every, {EINVAL}, same},
      {"sigpending", Every, {EFAULT}, same},
      {"sigtimedwait", 1, {EINTR, EINVAL}, same},
      {"mailsmtp_new", 1, {ENOMEM}, "not sent, 0"},
      {"poll", 1, {EINTR, EINVAL, ENOMEM}, same},
      {"poll eventfd", 1, {EMFILE, ENFILE, ENODEV, ENOMEM}, same}, // the rest decides
      {"poll fcntl", 1, {EMFILE, EINVAL}, same},
      {"mailsmtp_socket_connect", 1, {4, 5}, "not sent, #"},
      {"socket", Every, {EMFILE, ENFILE, EACCES, ENOMEM}, "not sent, 25"},
      {"connect", Every, {ECONNREFUSED, ETIMEDOUT, EACCES, EINTR}, "not sent, 25"},
      {"select", 1, {EINTR, EBADF, ENOMEM}, "not sent, 3"}, // the greeting is not shielded
      {"select", 3, {EINTR}, same},
      {"pipe", 1, {EMFILE, ENFILE}, "not sent, 15"},
      {"mailstream_low_new", 1, {ENOMEM}, "not sent, 15"},
      {"setsockopt", Every, {ENOPROTOOPT, EINVAL}, same},
      {"recv", 1, {EIO, ECONNRESET}, "not sent, 3"},
      {"recv", 3, {EIO, ECONNRESET}, "not sent, 1"},
      {"recv", 3, {EINTR}, same},
      {"recv", Every, {Short}, same},
      {"send", 1, {EPIPE, ECONNRESET, EIO}, "not sent, 3"},
      {"send", 1, {EINTR}, same},
      {"send", 6, {EPIPE}, "not sent, 3"},
      {"send", Every, {Short}, same},
      {"mailesmtp_ehlo", 1, {4}, same}, // greeted again with it
      {"mailesmtp_ehlo", Every, {4}, same},
      {"mailesmtp_ehlo mailsmtp_helo", Every, {4, 5}, "not sent, #"},
      {"mailesmtp_ehlo mailsmtp_mail", Every, {4, 5}, "not sent, #"},
      {"mailesmtp_ehlo mailsmtp_rcpt", Every, {4, 5}, "not sent, #"},
      {"mailesmtp_starttls", 1, {4, 23}, same}, // goes on in the clear
      {"mailesmtp_starttls mailstream_low_tls_open mailstream_low_ssl_open", 1, {Taken}, same},
      {"sasl_client_init", Every, {ENOMEM}, same}, // it has started before
      {"gethostname", Every, {ENAMETOOLONG}, "not sent, 4"},
      {"mailsmtp_auth", 1, {4, 7}, "not sent, #"},
      {"mailesmtp_mail", 1, {4, 5}, "not sent, #"},
      {"mailesmtp_rcpt", 3, {4, 6}, "not sent, #"},
      {"mailsmtp_data", 1, {4, 5}, "not sent, #"},
      {"time localtime_r", 1, {EOVERFLOW}, same},
      {"strftime", 1, {ERANGE}, same},
      {"mailsmtp_data_message", 1, {4, 5}, "not sent, #"}}},
    {"mail by TLS", {{"mailsmtp_ssl_connect", 1, {4, 27}, "not sent, #"}}},
};

// What the body returns in a child process.
template <class Body>
int InChild(Body body)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(body());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// What is done once in a process, at its first delivery: before all other tests.
TEST(SystemCallFailure, FirstDelivery)
{
    const struct
    {
        const char* m_Call;
        int m_Nth;
        const char* m_Result;
    } rows[] = {{"dladdr", 1, "sent, 0"},           {"dlopen", 1, "sent, 0"},
                {"readlink", 1, "sent, 0"},         {"stat", 1, "sent, 0"},
                {"sasl_client_init", 1, "sent, 0"}, {"sasl_client_init", Every, "not sent, 17"}};
    for (const auto& row : rows)
        EXPECT_EQ(InChild([&row] {
                      const auto result =
                          ResultWith(Service("mail"), row.m_Call, row.m_Nth, ENOMEM);
                      if (g_Made[row.m_Call] == 0)
                          return 2; // a delivery was made before this test
                      return result == row.m_Result ? 0 : 1;
                  }),
                  0)
            << row.m_Call;
}

TEST(SystemCallFailure, ResultsAsDocumented)
{
    // As in a host that has it blocked: only there has a delivery to ask whether one is waiting.
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    for (const auto& table : g_Tables) {
        const CService& service = Service(table.m_Service);
        const std::string whole = Result(service);
        for (const auto& row : table.m_Rows) {
            for (const int error : row.m_Errors) {
                SCOPED_TRACE(table.m_Service + std::string(": ") + row.m_Calls + " " +
                             std::to_string(row.m_Nth) + ", error " + std::to_string(error));
                std::string wanted = row.m_Result != same ? row.m_Result : whole;
                if (wanted.back() == '#')
                    wanted.replace(wanted.size() - 1, 1, std::to_string(error));
                const auto descriptors = OpenDescriptors();
                EXPECT_EQ(ResultWith(service, row.m_Calls, row.m_Nth, error), wanted);
                for (const auto& call : Words(row.m_Calls))
                    EXPECT_GE(g_Made[call], std::max(row.m_Nth, 1)) << call << " is not made";
                EXPECT_EQ(OpenDescriptors(), descriptors);
                EXPECT_EQ(Result(service), whole) << "afterwards";
            }
        }
    }
}

// Each call of each service in turn, with errors that its manual need not list: nothing but a
// result or a raised code comes back, and nothing stays open.
TEST(SystemCallFailure, EveryCall)
{
    constexpr int MostCalls = 30; // of one name
    for (const CService& service : Services()) {
        Result(service); // what is made once is made
        const std::string whole = ResultWith(service, "", 0, 0);
        const std::map<std::string, int> calls = g_Made;
        for (const auto& [call, made] : calls) {
            // libpciaccess takes what its stack holds for the content of a file that it cannot
            // read.
            if (service.m_Name == std::string("PCI") && (call == "read" || call == "pread"))
                continue;
            const auto inTable = [&call = call, &service](const auto& table) {
                return table.m_Service == std::string(service.m_Name) &&
                       std::any_of(table.m_Rows.begin(), table.m_Rows.end(),
                                   [&](const CRow& row) { return IsIn(row.m_Calls, call); });
            };
            EXPECT_TRUE(call == "close" ||
                        std::any_of(std::begin(g_Tables), std::end(g_Tables), inTable))
                << "no row for " << call << " of " << service.m_Name;
            for (int nth = 1; nth <= std::min(made, MostCalls); ++nth) {
                for (const int error : {EINTR, EIO, EMFILE, ENOMEM, Short}) {
                    SCOPED_TRACE(service.m_Name + (": " + call) + " " + std::to_string(nth) +
                                 ", error " + std::to_string(error));
                    const auto descriptors = OpenDescriptors();
                    const std::string result = ResultWith(service, call.c_str(), nth, error);
                    EXPECT_NE(result, "no memory");
                    const bool repeated = error == EINTR && (call == "open" || call == "read");
                    EXPECT_TRUE(result == whole || (call != "close" && !repeated)) << result;
                    EXPECT_EQ(OpenDescriptors(), descriptors);
                    EXPECT_EQ(Result(service), whole) << "afterwards";
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
                const std::string result = ResultWith(service, "syslog", Every, error);
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
                {"write", Every, Short, true},
                {"write", Every, EIO, false},
                {"write", 1, ENOSPC, false},
                {"write", 1, EAGAIN, false}};
    const CService& service = Service("processor"); // one line
    const std::string whole = Result(service);
    const int before = dup(STDERR_FILENO);
    for (const auto& row : rows) {
        const int file = memfd_create("trace", MFD_CLOEXEC);
        dup2(file, STDERR_FILENO);
        VornEx::VORN_MODULE_INFO_VornEx.m_TraceMask = Vorn::Internals::TraceDetail;
        const std::string result = ResultWith(service, row.m_Calls, row.m_Nth, row.m_Error);
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
