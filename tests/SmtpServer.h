// A scripted SMTP server on loopback, one connection, in a process of its own, so that the test's
// descriptors, signals and memory are the client's alone.
#pragma once

#include <algorithm>
#include <csignal>
#include <map>
#include <string>

#include <arpa/inet.h>
#include <gnutls/gnutls.h>
#include <gnutls/x509.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

// Answers by command, "" for the greeting, "." for the message; "RCPT 2" is the second one and goes
// before "RCPT". "BODY" is done after 64 KiB of the message. What is not named is answered as by a
// friendly server without extensions. Behind the text of an answer may stand one of
//   {close} {reset}  the connection ends, by FIN or RST
//   {stall}          nothing is read any more, until the client has given up
//   {tls}            TLS is started
//   {text}           both attempts at TLS are answered with what is none
//   {flood}          the text is sent again and again until the client has given up
using CAnswers = std::map<std::string, std::string>;

class CSmtpServer
{
public:
    explicit CSmtpServer(CAnswers answers) : m_Answers(std::move(answers))
    {
        m_Listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        bind(m_Listener, reinterpret_cast<sockaddr*>(&address), size);
        listen(m_Listener, 5);
        getsockname(m_Listener, reinterpret_cast<sockaddr*>(&address), &size);
        m_Port = ntohs(address.sin_port);
        if ((m_Child = fork()) != 0)
            return;
        pollfd waiting = {m_Listener, POLLIN, 0};
        if (poll(&waiting, 1, 20000) == 1) {
            m_Socket = accept(m_Listener, nullptr, nullptr);
            // A client that is gone does not always say so.
            const timeval limit = {2, 0};
            setsockopt(m_Socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
            m_Seen = "connected\n";
            Serve();
            _exit(write(m_Record, m_Seen.data(), m_Seen.size()) < 0 ? 1 : 0);
        }
        _exit(0);
    }
    CSmtpServer(const CSmtpServer&) = delete;
    CSmtpServer& operator=(const CSmtpServer&) = delete;
    ~CSmtpServer()
    {
        if (m_Child > 0)
            kill(m_Child, SIGKILL);
        Seen();
        close(m_Listener);
        close(m_Record);
    }

    unsigned short Port() const { return m_Port; }
    std::string Place() const { return "127.0.0.1:" + std::to_string(m_Port); }

    // After the client: "connected", then each line as it came, the message without its dots.
    std::string Seen()
    {
        if (m_Child > 0)
            waitpid(m_Child, nullptr, 0);
        m_Child = -1;
        std::string seen(static_cast<std::size_t>(lseek(m_Record, 0, SEEK_END)), '\0');
        pread(m_Record, seen.data(), seen.size(), 0);
        return seen;
    }

private:
    bool Put(const std::string& text)
    {
        if (m_Tls != nullptr)
            return gnutls_record_send(m_Tls, text.data(), text.size()) > 0;
        return send(m_Socket, text.data(), text.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(text.size());
    }

    bool Get()
    {
        char block[65536];
        const ssize_t got = m_Tls != nullptr ? gnutls_record_recv(m_Tls, block, sizeof block)
                                             : recv(m_Socket, block, sizeof block, 0);
        if (got > 0)
            m_Input.append(block, static_cast<std::size_t>(got));
        return got > 0;
    }

    // What stands in front of the next end mark.
    bool Next(const char* mark, std::string& text)
    {
        std::size_t end = 0;
        for (std::size_t from = 0; (end = m_Input.find(mark, from)) == std::string::npos;) {
            from = m_Input.size() > 5 ? m_Input.size() - 5 : 0;
            if (!Get())
                return false;
        }
        text = m_Input.substr(0, end);
        m_Input.erase(0, end + std::string(mark).size());
        return true;
    }

    // False when the connection is over.
    bool Answer(const std::string& command, const std::string& friendly)
    {
        const auto nth = m_Answers.find(command + " " + std::to_string(++m_Count[command]));
        const auto each = nth != m_Answers.end() ? nth : m_Answers.find(command);
        std::string answer = each != m_Answers.end() ? each->second : friendly;
        const std::size_t at = answer.find('{');
        const std::string action = at != std::string::npos ? answer.substr(at) : "";
        answer.erase(std::min(at, answer.size()));
        if (!answer.empty() && !Put(answer))
            return false;
        if (action == "{flood}") {
            while (answer.size() < 8192)
                answer += answer;
            while (Put(answer)) {
            }
        } else if (action == "{stall}") {
            // With the window full the end cannot come through: after 2 s it is taken for granted.
            pollfd peer = {m_Socket, POLLRDHUP, 0};
            poll(&peer, 1, 2000);
        } else if (action == "{reset}") {
            // What was said before has to be read before; a reset takes it back.
            usleep(100000);
            const linger abrupt = {1, 0};
            setsockopt(m_Socket, SOL_SOCKET, SO_LINGER, &abrupt, sizeof abrupt);
        } else if (action == "{tls}") {
            return StartTls();
        } else if (action == "{text}") {
            // Five bytes are what a client reads before it knows.
            return Get() && Put("hello") && Get() && Put("again");
        }
        if (action.empty())
            return true;
        close(m_Socket);
        return false;
    }

    void Serve()
    {
        std::string line;
        for (bool open = Answer("", "220 test\r\n"); open && Next("\r\n", line);) {
            // A client that gives up TLS goes on behind what it had sent of it.
            if (const std::size_t at = line.rfind("EHLO "); at != std::string::npos)
                line.erase(0, at);
            m_Seen += line + "\n";
            const std::string command = line.substr(0, line.find(' '));
            open = Answer(command, command == "DATA"   ? "354 go on\r\n"
                                   : command == "AUTH" ? "235 welcome\r\n"
                                   : command == "QUIT" ? "221 bye\r\n{close}"
                                                       : "250 ok\r\n");
            const auto data = m_Answers.find("DATA");
            if (!open || command != "DATA" || (data != m_Answers.end() && data->second[0] != '3'))
                continue;
            if (m_Answers.count("BODY") != 0) {
                while (m_Input.size() < 65536 && Get()) {
                }
                open = Answer("BODY", "");
            }
            m_Input.insert(0, "\r\n");
            if (open && (open = Next("\r\n.\r\n", line))) {
                m_Seen += ".\n" + line + "\n";
                open = Answer(".", "250 taken\r\n");
            }
        }
    }

    bool StartTls()
    {
        gnutls_x509_privkey_t key = nullptr;
        gnutls_x509_crt_t certificate = nullptr;
        gnutls_certificate_credentials_t credentials = nullptr;
        gnutls_x509_privkey_init(&key);
        gnutls_x509_privkey_generate(key, GNUTLS_PK_ECDSA,
                                     GNUTLS_CURVE_TO_BITS(GNUTLS_ECC_CURVE_SECP256R1), 0);
        gnutls_x509_crt_init(&certificate);
        gnutls_x509_crt_set_version(certificate, 3);
        gnutls_x509_crt_set_serial(certificate, "\1", 1);
        gnutls_x509_crt_set_activation_time(certificate, 0);
        gnutls_x509_crt_set_expiration_time(certificate, 2000000000);
        gnutls_x509_crt_set_key(certificate, key);
        gnutls_x509_crt_sign2(certificate, certificate, key, GNUTLS_DIG_SHA256, 0);
        gnutls_certificate_allocate_credentials(&credentials);
        gnutls_certificate_set_x509_key(credentials, &certificate, 1, key);
        gnutls_x509_crt_deinit(certificate); // it has copies
        gnutls_x509_privkey_deinit(key);
        gnutls_session_t session = nullptr;
        gnutls_init(&session, GNUTLS_SERVER);
        gnutls_set_default_priority(session);
        gnutls_credentials_set(session, GNUTLS_CRD_CERTIFICATE, credentials);
        gnutls_transport_set_int(session, m_Socket);
        int result = 0;
        while ((result = gnutls_handshake(session)) < 0 && gnutls_error_is_fatal(result) == 0) {
        }
        m_Tls = session;
        m_Seen += result == 0 ? "TLS\n" : "no TLS\n";
        return result == 0;
    }

    CAnswers m_Answers;
    int m_Listener = -1;
    int m_Record = memfd_create("seen", MFD_CLOEXEC);
    int m_Socket = -1;
    pid_t m_Child = -1;
    unsigned short m_Port = 0;
    gnutls_session_t m_Tls = nullptr;
    std::map<std::string, int> m_Count;
    std::string m_Input;
    std::string m_Seen;
};
