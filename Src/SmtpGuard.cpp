#include "SmtpGuard.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <new>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

namespace VornEx::Internals {

namespace {

sigset_t PipeSignal()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    return set;
}

} // namespace

CPipeSignalBlock::CPipeSignalBlock()
{
    const sigset_t pipe = PipeSignal();
    pthread_sigmask(SIG_BLOCK, &pipe, &m_Before);
    // A signal that is not blocked does not stay pending.
    sigset_t pending;
    m_WasPending = sigismember(&m_Before, SIGPIPE) == 1 && sigpending(&pending) == 0 &&
                   sigismember(&pending, SIGPIPE) == 1;
}

CPipeSignalBlock::~CPipeSignalBlock()
{
    const int error = errno;
    if (!m_WasPending) {
        const sigset_t pipe = PipeSignal();
        const timespec now{};
        while (sigtimedwait(&pipe, nullptr, &now) == -1 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &m_Before, nullptr);
    errno = error;
}

namespace {

// Whether half of the first 32 descriptors are free, in one call: the usual case.
bool LowDescriptorsAreFree()
{
    std::array<pollfd, 32> low{};
    for (std::size_t index = 0; index < low.size(); ++index)
        low[index].fd = static_cast<int>(index);
    if (poll(low.data(), low.size(), 0) < 0)
        return false;
    const auto isFree = [](const pollfd& entry) { return (entry.revents & POLLNVAL) != 0; };
    return std::count_if(low.begin(), low.end(), isFree) >= static_cast<int>(low.size() / 2);
}

} // namespace

bool DescriptorsFitSelect()
{
    // A socket, two pipes that cancel waits, and one to spare; other threads open files meanwhile.
    constexpr std::size_t Needed = 6;
    constexpr int Limit = FD_SETSIZE - 32;

    if (LowDescriptorsAreFree())
        return true;

    // The system gives the lowest that are free: taking them tells which. When it has no more none
    // can be too high.
    int taken[Needed];
    std::size_t count = 0;
    bool fit = true;
    while (fit && count < Needed) {
        const int descriptor =
            count == 0 ? eventfd(0, EFD_CLOEXEC) : fcntl(taken[0], F_DUPFD_CLOEXEC, 0);
        if (descriptor < 0)
            break;
        taken[count++] = descriptor;
        fit = descriptor < Limit;
    }
    while (count > 0)
        close(taken[--count]);
    return fit;
}

// A stream over another one, which it owns. It belongs to the libetpan stream that it is put into
// and is freed with it.
class CGuardedStream
{
public:
    CGuardedStream(CGuardedSession& session, mailstream_low* inner)
        : m_Session(session), m_Inner(inner)
    {}

    static mailstream_low_driver s_Driver;

private:
    static CGuardedStream& Of(mailstream_low* low)
    {
        return *static_cast<CGuardedStream*>(low->data);
    }

    // A wait that was cut short by a signal is made again, for at most one wait's time.
    template <class Call>
    static ssize_t Uninterrupted(Call call)
    {
        using Clock = std::chrono::steady_clock;
        Clock::time_point end;
        for (bool first = true;; first = false) {
            errno = 0;
            const ssize_t result = call();
            if (result >= 0 || errno != EINTR)
                return result;
            if (first)
                end = Clock::now() + std::chrono::seconds(Mail().mailstream_network_delay->tv_sec) +
                      std::chrono::microseconds(Mail().mailstream_network_delay->tv_usec);
            else if (Clock::now() >= end)
                return -1;
        }
    }

    // A TLS server ends the hand-shake with a packet that nobody answers, and holds back what it
    // says next until that one is acknowledged, which takes 40 ms unless asked for. The system
    // forgets that it was asked as soon as something is sent: the first wait is the time to ask.
    void AcknowledgeAtOnce()
    {
        if (m_HasRead || m_Inner->driver == *Mail().mailstream_socket_driver)
            return;
        m_HasRead = true;
        const int on = 1;
        setsockopt(Mail().mailstream_low_get_fd(m_Inner), IPPROTO_TCP, TCP_QUICKACK, &on,
                   sizeof on);
    }

    static ssize_t Read(mailstream_low* low, void* buffer, std::size_t size)
    {
        mailstream_low* const inner = Of(low).m_Inner;
        if (Of(low).m_Session.m_ReplyBudget == 0)
            return -1;
        Of(low).AcknowledgeAtOnce();
        const ssize_t got =
            Uninterrupted([&] { return inner->driver->mailstream_read(inner, buffer, size); });
        auto* const bytes = static_cast<char*>(buffer);
        std::replace(bytes, bytes + std::max<ssize_t>(got, 0), '\t', ' ');
        return got;
    }

    static ssize_t Write(mailstream_low* low, const void* buffer, std::size_t size)
    {
        CGuardedStream& self = Of(low);
        if (self.m_WriteFailed)
            return -1;
        const bool cut = self.m_Session.m_SendsCommands && size != 0 &&
                         static_cast<const char*>(buffer)[size - 1] != '\n';
        const ssize_t written = cut ? -1 : Uninterrupted([&] {
            return self.m_Inner->driver->mailstream_write(self.m_Inner, buffer, size);
        });
        self.m_WriteFailed = written < 0;
        return written;
    }

    static int Close(mailstream_low* low) { return Mail().mailstream_low_close(Of(low).m_Inner); }

    static int Descriptor(mailstream_low* low)
    {
        return Mail().mailstream_low_get_fd(Of(low).m_Inner);
    }

    static void Free(mailstream_low* low)
    {
        CGuardedStream* const self = &Of(low);
        Mail().mailstream_low_free(self->m_Inner);
        delete self;
        std::free(low);
    }

    static void Cancel(mailstream_low* low) { Mail().mailstream_low_cancel(Of(low).m_Inner); }

    static auto GetCancel(mailstream_low* low) -> decltype(mailstream_low_get_cancel(low))
    {
        return Mail().mailstream_low_get_cancel(Of(low).m_Inner);
    }

    static carray* Certificates(mailstream_low* low)
    {
        return Mail().mailstream_low_get_certificate_chain(Of(low).m_Inner);
    }

    CGuardedSession& m_Session;
    mailstream_low* m_Inner;
    bool m_HasRead = false;
    bool m_WriteFailed = false;
};

mailstream_low_driver CGuardedStream::s_Driver = {
    Read,      Write,        Close,   Descriptor, Free,    Cancel,
    GetCancel, Certificates, nullptr, nullptr,    nullptr, // no waiting for idle servers
};

CGuardedSession::CGuardedSession(std::size_t replyBudget)
    : m_Session(LoadMailLibrary() ? Mail().mailsmtp_new(0, nullptr) : nullptr),
      m_ReplyBudget(replyBudget)
{
    // Connecting and reading the greeting are one call: the first bytes read are the only sign that
    // there is a stream to guard.
    if (m_Session != nullptr)
        Mail().mailsmtp_set_logger(m_Session, Count, this);
}

void CGuardedSession::Free()
{
    if (m_Session != nullptr)
        Mail().mailsmtp_free(m_Session);
    m_Session = nullptr;
}

void CGuardedSession::Count(mailsmtp* session, int kind, const char* /*bytes*/, std::size_t size,
                            void* guard)
{
    if (kind != MAILSTREAM_LOG_TYPE_DATA_RECEIVED)
        return;
    auto& self = *static_cast<CGuardedSession*>(guard);
    self.m_ReplyBudget -= std::min(self.m_ReplyBudget, size);
    // The stream that has just read stays, below the guard.
    if (!self.GuardStream())
        shutdown(Mail().mailstream_low_get_fd(Mail().mailstream_get_low(session->stream)),
                 SHUT_RDWR);
}

bool CGuardedSession::GuardStream()
{
    mailstream* const stream = m_Session->stream;
    // What came with the greeting has passed the guard by.
    std::replace(stream->read_buffer, stream->read_buffer + stream->read_buffer_len, '\t', ' ');

    mailstream_low* const inner = Mail().mailstream_get_low(stream);
    if (inner->driver == &CGuardedStream::s_Driver)
        return true;
    const int on = 1;
    setsockopt(Mail().mailstream_low_get_fd(inner), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);

    auto* const guard = new (std::nothrow) CGuardedStream(*this, inner);
    mailstream_low* const low =
        guard != nullptr ? Mail().mailstream_low_new(guard, &CGuardedStream::s_Driver) : nullptr;
    if (low == nullptr) {
        delete guard;
        return false;
    }
    Mail().mailstream_low_set_logger(inner, nullptr, nullptr);
    Mail().mailstream_set_low(stream, low);
    return true;
}

} // namespace VornEx::Internals
