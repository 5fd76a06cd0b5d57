// The system and library calls that services make and that may fail, defined by the program, and
// the environment that they show to the services (Services.h).
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <dlfcn.h>
#include <fcntl.h>
#include <libetpan/libetpan.h>
#include <mntent.h>
#include <nl_types.h>
#include <pciaccess.h>
#include <poll.h>
#include <sasl/sasl.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <sys/utsname.h>
#include <syslog.h>
#include <unistd.h>

#include "Services.h"

FaultHook g_Fault = nullptr;

namespace {

int Fault(const char* call)
{
    const int error = g_Fault != nullptr ? g_Fault(call) : 0;
    if (error != 0)
        errno = error;
    return error;
}

// The same for a read or write, the size of which may be cut.
bool SizedFault(const char* call, std::size_t& size)
{
    const int error = Fault(call);
    if (error < 0 && size > 1)
        size = 1;
    return error > 0;
}

// A path of the system, or the file in memory that stands for it; null where nothing does.
const char* Redirected(const char* path)
{
    const CEnvironment& files = Environment();
    if (std::strcmp(path, "/lib/modules/6.1-test/modules.dep") == 0)
        return files.m_ModuleList.c_str();
    if (std::strcmp(path, "/lib/modules/6.1-test/kernel/drivers/net/e1000e.ko") == 0)
        return files.m_Module.c_str();
    if (std::strcmp(path, "/etc/redhat-release") == 0)
        return files.m_Release.c_str();
    for (const char* const fixed : {"/etc/", "/lib/modules/", "/proc/vmware"})
        if (std::strncmp(path, fixed, std::strlen(fixed)) == 0)
            return nullptr;
    return path;
}

// The definition behind the program's own; the one for large files where there are two.
template <class Function>
Function* Next(Function* /*type*/, const char* name)
{
    void* const large = dlsym(RTLD_NEXT, (std::string(name) + "64").c_str());
    return reinterpret_cast<Function*>(large != nullptr ? large : dlsym(RTLD_NEXT, name));
}

} // namespace

// A call that fails with `failure` where the test lets it, and is the system's own otherwise.
#define CALL(Type, name, parameters, arguments, failure)                                           \
    Type name parameters                                                                           \
    {                                                                                              \
        static auto* const next = Next(&(name), #name);                                            \
        return Fault(#name) != 0 ? (failure) : next arguments;                                     \
    }
// The same for one that reads or writes `size` bytes.
#define SIZED(name, parameters, arguments)                                                         \
    ssize_t name parameters                                                                        \
    {                                                                                              \
        static auto* const next = Next(&(name), #name);                                            \
        return SizedFault(#name, size) ? -1 : next arguments;                                      \
    }
// One that never is the system's own: the statement says what it gives.
#define MADE(Type, name, parameters, failure, statement)                                           \
    Type name parameters                                                                           \
    {                                                                                              \
        if (Fault(#name) != 0)                                                                     \
            return failure;                                                                        \
        statement;                                                                                 \
    }

extern "C" {

// clang-format off
SIZED(read, (int file, void* to, size_t size), (file, to, size))
SIZED(pread, (int file, void* to, size_t size, off_t at), (file, to, size, at))
SIZED(write, (int file, const void* from, size_t size), (file, from, size))
SIZED(recv, (int file, void* to, size_t size, int flags), (file, to, size, flags))
SIZED(send, (int file, const void* from, size_t size, int flags), (file, from, size, flags))
SIZED(readlink, (const char* path, char* to, size_t size) noexcept, (path, to, size))

CALL(off_t, lseek, (int file, off_t at, int whence) noexcept, (file, at, whence), -1)
CALL(int, fstat, (int file, struct stat* status) noexcept, (file, status), -1)
CALL(int, socket, (int domain, int type, int protocol) noexcept, (domain, type, protocol), -1)
CALL(int, connect, (int file, const sockaddr* to, socklen_t size), (file, to, size), -1)
CALL(int, setsockopt, (int file, int level, int name, const void* value, socklen_t size) noexcept, (file, level, name, value, size), -1)
CALL(int, select, (int count, fd_set* in, fd_set* out, fd_set* other, timeval* time), (count, in, out, other, time), -1)
CALL(int, poll, (pollfd* files, nfds_t count, int time), (files, count, time), -1)
CALL(int, pipe, (int* ends) noexcept, (ends), -1)
CALL(int, eventfd, (unsigned int value, int flags) noexcept, (value, flags), -1)
CALL(int, pthread_sigmask, (int how, const sigset_t* set, sigset_t* before) noexcept, (how, set, before), errno)
CALL(int, sigpending, (sigset_t* set) noexcept, (set), -1)
CALL(int, sigtimedwait, (const sigset_t* set, siginfo_t* info, const timespec* time), (set, info, time), -1)
CALL(size_t, strftime, (char* to, size_t size, const char* format, const tm* time) noexcept, (to, size, format, time), 0)
CALL(time_t, time, (time_t* to) noexcept, (to), -1)
CALL(mntent*, getmntent, (FILE* table) noexcept, (table), nullptr)
CALL(char*, setlocale, (int category, const char* name) noexcept, (category, name), nullptr)
CALL(nl_catd, catopen, (const char* name, int flag), (name, flag), reinterpret_cast<nl_catd>(-1))
CALL(char*, catgets, (nl_catd file, int set, int number, const char* other) noexcept, (file, set, number, other), nullptr)
CALL(int, catclose, (nl_catd file) noexcept, (file), (next(file), -1)) // it has closed
CALL(int, dladdr, (const void* address, Dl_info* info) noexcept, (address, info), 0)
CALL(void*, dlopen, (const char* name, int mode) noexcept, (name, mode), nullptr)

CALL(int, pci_system_init, (), (), errno)
CALL(pci_device_iterator*, pci_slot_match_iterator_create, (const pci_slot_match* match), (match), nullptr)
CALL(pci_device*, pci_device_next, (pci_device_iterator* at), (at), nullptr)

CALL(int, sasl_client_init, (const sasl_callback_t* calls), (calls), SASL_NOMEM)
CALL(mailsmtp*, mailsmtp_new, (size_t rate, progress_function* progress), (rate, progress), nullptr)
CALL(int, mailsmtp_socket_connect, (mailsmtp* mail, const char* host, uint16_t port), (mail, host, port), errno)
CALL(int, mailsmtp_ssl_connect, (mailsmtp* mail, const char* host, uint16_t port), (mail, host, port), errno)
CALL(int, mailesmtp_ehlo, (mailsmtp* mail), (mail), errno)
CALL(int, mailsmtp_helo, (mailsmtp* mail), (mail), errno)
CALL(int, mailesmtp_starttls, (mailsmtp* mail), (mail), errno == -2 ? 0 : errno)
CALL(mailstream_low*, mailstream_low_tls_open, (int file), (file), nullptr)
CALL(mailstream_low*, mailstream_low_ssl_open, (int file), (file), nullptr)
CALL(mailstream_low*, mailstream_low_new, (void* data, mailstream_low_driver* driver), (data, driver), nullptr)
CALL(int, mailsmtp_auth, (mailsmtp* mail, const char* user, const char* password), (mail, user, password), errno)
CALL(int, mailesmtp_mail, (mailsmtp* mail, const char* from, int full, const char* id), (mail, from, full, id), errno)
CALL(int, mailsmtp_mail, (mailsmtp* mail, const char* from), (mail, from), errno)
CALL(int, mailesmtp_rcpt, (mailsmtp* mail, const char* to, int notify, const char* original), (mail, to, notify, original), errno)
CALL(int, mailsmtp_rcpt, (mailsmtp* mail, const char* to), (mail, to), errno)
CALL(int, mailsmtp_data, (mailsmtp* mail), (mail), errno)
CALL(int, mailsmtp_data_message, (mailsmtp* mail, const char* text, size_t size), (mail, text, size), errno)

MADE(int, uname, (utsname* kernel) noexcept, -1, *kernel = {}; std::strcpy(kernel->machine, "x86_64"); std::strcpy(kernel->release, "6.1-test"); return 0)
MADE(int, gethostname, (char* name, size_t size) noexcept, -1, std::strncpy(name, "localhost", size); return 0)
MADE(int, nanosleep, (const timespec* wanted, timespec* left), (*left = {0, wanted->tv_nsec / 2}, -1), return 0)
MADE(int, gettimeofday, (timeval* now, void*) noexcept, -1, now->tv_sec = 1700000000; now->tv_usec = 123456; return 0)
MADE(int, sysinfo, (struct sysinfo* info) noexcept, -1, info->uptime = 77; return 0)
MADE(time_t, mktime, (tm* calendar) noexcept, -1, return timegm(calendar))
MADE(tm*, localtime_r, (const time_t* seconds, tm* calendar) noexcept, nullptr, return gmtime_r(seconds, calendar))
MADE(FILE*, setmntent, (const char*, const char* mode) noexcept, nullptr, return std::fopen(Environment().m_Mounts.c_str(), mode))
MADE(int, system, (const char*), -1, return 0)
MADE(void, sync, () noexcept, , )
// clang-format on

int open(const char* path, int flags, ...)
{
    if (Fault("open") != 0)
        return -1;
    const char* const real = Redirected(path);
    if (real == nullptr)
        errno = ENOENT;
    return real == nullptr ? -1
                           : static_cast<int>(syscall(SYS_openat, AT_FDCWD, real, flags, 0600));
}

int stat(const char* path, struct stat* /*status*/) noexcept
{
    const char* const real = Fault("stat") != 0 ? nullptr : Redirected(path);
    return real != nullptr ? faccessat(AT_FDCWD, real, F_OK, 0) : -1;
}

int fcntl(int file, int command, ...)
{
    va_list rest;
    va_start(rest, command);
    const int argument = va_arg(rest, int); // of the commands that are used
    va_end(rest);
    return Fault("fcntl") != 0 ? -1 : static_cast<int>(syscall(SYS_fcntl, file, command, argument));
}

int close(int file)
{
    const auto result = static_cast<int>(syscall(SYS_close, file));
    return Fault("close") != 0 ? -1 : result; // the system closes even when it says otherwise
}

// The system's own only where the test lets it fail inside.
void syslog(int priority, const char* format, ...)
{
    va_list values;
    va_start(values, format);
    if (Fault("syslog") != 0)
        vsyslog(priority, format, values);
    va_end(values);
}

} // extern "C"
