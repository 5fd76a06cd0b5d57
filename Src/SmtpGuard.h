// What stands between libetpan and the world, so that no server and no host can harm the other:
// measured weaknesses of libetpan 1.9.4, each with the guard against it.
#pragma once

#include <csignal>
#include <cstddef>

#include "MailLibrary.h"

namespace VornEx::Internals {

// Sockets and TLS write without MSG_NOSIGNAL: a server that drops the connection would end the
// process. While one of these lives SIGPIPE is blocked on its thread; what arrived meanwhile is
// taken away, what was pending before stays.
class CPipeSignalBlock
{
public:
    CPipeSignalBlock();
    CPipeSignalBlock(const CPipeSignalBlock&) = delete;
    CPipeSignalBlock& operator=(const CPipeSignalBlock&) = delete;
    ~CPipeSignalBlock();

private:
    sigset_t m_Before{};
    bool m_WasPending = false;
};

// Waits are made with select(2), which ends the process for descriptors of FD_SETSIZE (1024) or
// above. False when a session's descriptors could come near that.
bool DescriptorsFitSelect();

// A session and the guards of its stream. Frees the session.
class CGuardedSession
{
public:
    // Replies of the server may take so many bytes altogether; endless ones would otherwise be
    // collected until memory is full. What comes beyond is a lost connection.
    explicit CGuardedSession(std::size_t replyBudget);
    CGuardedSession(const CGuardedSession&) = delete;
    CGuardedSession& operator=(const CGuardedSession&) = delete;
    ~CGuardedSession() { Free(); }

    // Null when libetpan could not be loaded or make a session, or the session has been freed.
    mailsmtp* Get() const { return m_Session; }
    void Free();

    // To be called when the session is connected and whenever it has got another stream underneath.
    // Sends small packets at once, and puts the stream below in one that
    //  - reads a TAB as a blank: behind AUTH one makes the parser of the EHLO reply loop for ever;
    //  - goes on after a signal handler has run, as long as the wait may take anyway;
    //  - keeps to the budget, and does not write again when writing has failed once, which would
    //    leave a hole in the message;
    //  - fails for a command that was cut at libetpan's 512 bytes and so has lost its line end.
    // False when memory is short.
    bool GuardStream();

    // What is sent from now on is the message, no longer commands.
    void BeginMessage() { m_SendsCommands = false; }

private:
    friend class CGuardedStream;
    static void Count(mailsmtp* session, int kind, const char* bytes, std::size_t size,
                      void* guard);

    mailsmtp* m_Session;
    std::size_t m_ReplyBudget;
    bool m_SendsCommands = true;
};

} // namespace VornEx::Internals
