// System calls that fail: every one that a service makes, with the errors of its manual.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <map>

#include <sys/mman.h>
#include <unistd.h>

#include <vorn/Trace.h>
#include <vornex/Module.h>

#include "Services.h"

namespace {

constexpr int Short = -1; // a read that gets one byte

// How many times each call was made, and which of them fails: 0 none, Every all.
constexpr int Every = -1;
std::map<std::string, int> g_Made;
std::string g_Call;
int g_Nth = 0;
int g_Error = 0;

int Fault(const char* call)
{
    const int made = ++g_Made[call];
    return g_Call == call && (g_Nth == Every || g_Nth == made) ? g_Error : 0;
}

std::string ResultWith(const CService& service, const std::string& call, int nth, int error)
{
    g_Made.clear();
    g_Call = call;
    g_Nth = nth;
    g_Error = error;
    g_Fault = Fault;
    std::string result = Result(service);
    g_Fault = nullptr;
    return result;
}

const CService& Service(const std::string& name)
{
    for (const CService& service : Services())
        if (service.m_Name == name)
            return service;
    ADD_FAILURE() << "no service " << name;
    return Services().front();
}

TEST(SystemCallFailure, ResultsAsDocumented)
{
    const char* const same = nullptr;
    const struct
    {
        const char* m_Service;
        const char* m_Call;
        int m_Nth;
        std::vector<int> m_Errors;
        const char* m_Result;
    } rows[] = {
        {"host name", "gethostname", 1, {EFAULT, EINVAL, ENAMETOOLONG, EPERM}, "unknown"},

        {"processor", "nanosleep", 1, {EINTR, EINVAL, EFAULT}, same},

        {"now", "gettimeofday", 1, {EFAULT, EINVAL}, "raised 537198600"},
        {"time", "sysinfo", 1, {EFAULT}, "1709208000000 1971 31 0"},
        {"time", "mktime", 1, {EOVERFLOW}, "1709294400000 1971 31 77000"}, // tried as 1 March
        {"time", "mktime", Every, {EOVERFLOW}, "18446744073709550616 1971 28 77000"},
        {"time", "localtime_r", 1, {EOVERFLOW}, "1709208000000 2024 31 77000"},
        {"time", "localtime_r", 2, {EOVERFLOW}, "1709208000000 1971 0 77000"},

        {"system", "uname", 1, {EFAULT}, "Red Hat, Inc.|Enterprise Linux Server|7.2||"},
        {"system", "stat", Every, {EACCES, EIO, ENOMEM, ELOOP, EOVERFLOW}, "|||x86-64|"},
        {"system", "stat", 1, {EACCES, ENOENT}, same}, // one that is not there anyway
        {"system", "open", 1, {EINTR}, same},
        {"system", "open", Every, {EMFILE, ENFILE, EACCES, EIO, ENOMEM, ENXIO}, "|||x86-64|"},
        {"system", "read", 1, {EINTR}, same},
        {"system", "read", Every, {Short}, same},
        {"system", "read", 1, {EIO, EISDIR, EAGAIN, EBADF}, "Red Hat, Inc.|||x86-64|"},

        {"classic disk", "open", 1, {EINTR}, same},
        {"classic disk", "open", 1, {EMFILE, ENFILE, EACCES, ENXIO, EIO, ENOMEM, ENOMEDIUM}, ""},
        {"classic disk", "lseek", 1, {EINVAL, EOVERFLOW, ESPIPE, EBADF}, ""},
        {"classic disk", "lseek", 2, {EINVAL, EIO}, "p1@1/boot p3@26Swap "},
        {"classic disk", "lseek", 3, {EINVAL}, "p1@1/boot p3@26Swap p5@11 "},
        {"classic disk", "read", 1, {EINTR}, same},
        {"classic disk", "read", 1, {EIO, EISDIR, EINVAL, EAGAIN, Short}, ""},
        {"classic disk", "read", 2, {EIO, Short}, "p1@1/boot p3@26Swap "},
        {"classic disk", "read", 3, {EIO, Short}, "p1@1/boot p3@26Swap p5@11 "},
        {"classic disk", "setmntent", 1, {ENOENT, EACCES, EMFILE, ENOMEM}, same}, // the other one
        {"classic disk", "setmntent", Every, {EMFILE, ENOMEM}, "p1@1 p3@26Swap p5@11 p6@16 "},
        {"classic disk", "getmntent", 1, {EIO, ENOMEM}, "p1@1 p3@26Swap p5@11 p6@16 "},

        {"GUID disk", "read", 1, {EIO, Short}, ""},
        {"GUID disk", "read", 2, {EIO, Short}, ""}, // the header
        {"GUID disk", "read", 3, {EINTR}, same},
        {"GUID disk", "read", 3, {EIO}, ""}, // no later read could end otherwise

        // Call 1 is the console's list.
        {"module file", "open", 2, {EINTR}, same},
        {"module file", "open", Every, {EMFILE, ENFILE, EACCES, EIO, ENOMEM}, " 0"},
        {"module file", "pread", 1, {EINTR}, same},
        {"module file", "pread", Every, {Short}, same},
        {"module file", "pread", Every, {EIO, EISDIR, ESPIPE, EBADF}, " 0"},
        {"module file", "pread", 1, {EIO}, " 0"},

        {"module name", "open", 2, {EACCES, EMFILE}, " 0"}, // only what is missing is a name
        {"module name", "uname", 1, {EFAULT}, " 0"},
        {"module name", "open", 3, {EMFILE, ENFILE, EACCES, EIO, ENOMEM}, " 0"},
        {"module name", "open", 3, {EINTR}, same},
        {"module name", "open", 4, {EMFILE, EACCES, ENOENT}, " 0"},
        {"module name", "read", 1, {EINTR}, same},
        {"module name", "read", Every, {Short}, same},
        {"module name", "read", 1, {EIO, EISDIR, EAGAIN}, " 0"},

        {"PCI", "pci_system_init", 1, {ENOENT, ENOMEM, EACCES}, "none"},
        {"PCI", "pci_slot_match_iterator_create", 1, {ENOMEM}, "none"},

        // 25: no connection, 3: it broke, 1: so it did where an answer to a command was due.
        {"mail", "socket", Every, {EMFILE, ENFILE, EACCES, ENOMEM}, "not sent, 25"},
        {"mail", "connect", Every, {ECONNREFUSED, ETIMEDOUT, EACCES, EINTR}, "not sent, 25"},
        {"mail", "recv", 1, {EIO, ECONNRESET}, "not sent, 3"},
        {"mail", "recv", 3, {EIO, ECONNRESET}, "not sent, 1"},
        {"mail", "recv", 3, {EINTR}, same},
        {"mail", "recv", Every, {Short}, same},
        {"mail", "send", 1, {EPIPE, ECONNRESET, EIO}, "not sent, 3"},
        {"mail", "send", 1, {EINTR}, same},
        {"mail", "send", 6, {EPIPE}, "not sent, 3"},
        {"mail", "send", Every, {Short}, same},

        {"messages", "open", Every, {EMFILE, ENFILE, EACCES, EIO}, same}, // the English text
        {"log", "open", Every, {EMFILE}, same},
    };
    for (const auto& row : rows) {
        const CService& service = Service(row.m_Service);
        const std::string whole = Result(service);
        for (const int error : row.m_Errors) {
            SCOPED_TRACE(row.m_Service + std::string(": ") + row.m_Call + " " +
                         std::to_string(row.m_Nth) + ", error " + std::to_string(error));
            const int descriptors = OpenDescriptors();
            EXPECT_EQ(ResultWith(service, row.m_Call, row.m_Nth, error),
                      row.m_Result != same ? row.m_Result : whole);
            EXPECT_EQ(OpenDescriptors(), descriptors);
            EXPECT_EQ(Result(service), whole) << "afterwards";
        }
    }
}

// Each call of each service in turn, whatever it is: nothing but a result or a raised code comes
// back, and nothing stays open.
TEST(SystemCallFailure, EveryCall)
{
    constexpr int MostCalls = 30; // of one name
    int tried = 0;
    for (const CService& service : Services()) {
        const std::string whole = ResultWith(service, "", 0, 0);
        const std::map<std::string, int> calls = g_Made;
        for (const auto& [call, made] : calls) {
            // libpciaccess takes what its stack holds for the content of a file that it cannot
            // read.
            if (service.m_Name == std::string("PCI") && (call == "read" || call == "pread"))
                continue;
            for (int nth = 1; nth <= std::min(made, MostCalls); ++nth) {
                for (const int error : {EINTR, EIO, EMFILE, ENOMEM, Short}) {
                    SCOPED_TRACE(service.m_Name + (": " + call) + " " + std::to_string(nth) +
                                 ", error " + std::to_string(error));
                    const int descriptors = OpenDescriptors();
                    const std::string result = ResultWith(service, call, nth, error);
                    EXPECT_NE(result, "no memory");
                    const bool repeated = error == EINTR && (call == "open" || call == "read");
                    EXPECT_TRUE(result == whole || (call != "close" && !repeated)) << result;
                    EXPECT_EQ(OpenDescriptors(), descriptors);
                    EXPECT_EQ(Result(service), whole) << "afterwards";
                    ++tried;
                }
            }
        }
    }
    EXPECT_GT(tried, 300);
}

// Lines of the default sink, which writes to standard error.
TEST(SystemCallFailure, TraceLines)
{
    const struct
    {
        int m_Nth;
        int m_Error;
        bool m_IsWritten;
    } rows[] = {{0, 0, true},        {1, EINTR, true},   {Every, Short, true},
                {Every, EIO, false}, {1, ENOSPC, false}, {1, EAGAIN, false}};
    const CService& service = Service("processor"); // one line
    const std::string whole = Result(service);
    const int before = dup(STDERR_FILENO);
    for (const auto& row : rows) {
        const int file = memfd_create("trace", MFD_CLOEXEC);
        dup2(file, STDERR_FILENO);
        VornEx::VORN_MODULE_INFO_VornEx.m_TraceMask = Vorn::Internals::TraceDetail;
        const std::string result = ResultWith(service, "write", row.m_Nth, row.m_Error);
        VornEx::VORN_MODULE_INFO_VornEx.m_TraceMask = 0;
        dup2(before, STDERR_FILENO);
        EXPECT_EQ(result, whole);
        char text[512] = "";
        const ssize_t length = pread(file, text, sizeof text - 1, 0);
        EXPECT_EQ(length > 0 && text[length - 1] == '\n', row.m_IsWritten)
            << row.m_Nth << " " << row.m_Error << " " << text;
        EXPECT_EQ(std::strstr(text, "processorInfo ()") != nullptr, row.m_IsWritten);
        close(file);
    }
    close(before);
}

} // namespace
