// A friendly SMTP server, where anybody may log in, behind a UNIX socket, in a process of its own:
// one connection after the other, for as long as the object or the process that made it lives.
#pragma once

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

class CLoopServer
{
public:
    CLoopServer()
    {
        char folder[] = "/tmp/vornex-server-XXXXXX";
        m_Folder = mkdtemp(folder) != nullptr ? folder : "";
        m_Path = m_Folder + "/socket";
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, m_Path.c_str(), sizeof address.sun_path - 1);
        const pid_t parent = getpid();
        const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
            listen(listener, 64) == 0 && (m_Child = fork()) == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() != parent)
                _exit(0); // it was too late for that
            std::signal(SIGPIPE, SIG_IGN);
            for (;;)
                Serve(accept(listener, nullptr, nullptr));
        }
        close(listener);
    }
    CLoopServer(const CLoopServer&) = delete;
    CLoopServer& operator=(const CLoopServer&) = delete;
    ~CLoopServer()
    {
        kill(m_Child, SIGKILL);
        waitpid(m_Child, nullptr, 0);
        unlink(m_Path.c_str());
        rmdir(m_Folder.c_str());
    }

    // The server's name for a client.
    const std::string& Path() const { return m_Path; }

private:
    static void Serve(int connection)
    {
        std::string input;
        bool inMessage = false;
        for (const char* answer = "220 loop\r\n"; answer != nullptr;) {
            if (*answer != '\0' && write(connection, answer, std::strlen(answer)) < 0)
                break;
            std::size_t end = 0;
            char block[4096];
            while ((end = input.find("\r\n")) == std::string::npos) {
                const ssize_t got = recv(connection, block, sizeof block, 0);
                if (got <= 0) {
                    close(connection);
                    return;
                }
                input.append(block, static_cast<std::size_t>(got));
            }
            const std::string line = input.substr(0, end);
            input.erase(0, end + 2);
            if (inMessage) {
                inMessage = line != ".";
                answer = inMessage ? "" : "250 taken\r\n";
            } else if (line == "DATA") {
                inMessage = true;
                answer = "354 go on\r\n";
            } else if (line == "QUIT") {
                answer = nullptr;
            } else if (line.rfind("AUTH", 0) == 0) {
                answer = "235 come in\r\n";
            } else {
                answer =
                    line.rfind("EHLO", 0) == 0 ? "250-loop\r\n250 AUTH PLAIN\r\n" : "250 ok\r\n";
            }
        }
        close(connection);
    }

    std::string m_Folder, m_Path;
    pid_t m_Child = -1;
};
