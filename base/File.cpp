#include <vorn/File.h>

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vorn/StringVar.h>

namespace Vorn::FileSystem {

namespace {

// The system would take such a path for a shorter one.
bool HoldsNul(const Strings::CSubStringRef& path)
{
    return std::memchr(path.Text(), '\0', path.Length()) != nullptr;
}

} // namespace

CFile::~CFile()
{
    Close();
}

bool CFile::Exist(const Strings::CStringRef& path)
{
    struct stat status
    {};
    return !HoldsNul(path) && stat(path.Text(), &status) == 0;
}

bool CFile::Open(const Strings::CSubStringRef& path, int mode)
{
    Close();
    if (mode != Read || HoldsNul(path)) {
        errno = EINVAL;
        return false;
    }
    const Strings::TString<128> name(path);
    do {
        m_Descriptor = open(name.m_Text, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    } while (m_Descriptor < 0 && errno == EINTR);
    return m_Descriptor >= 0;
}

void CFile::Close()
{
    if (m_Descriptor >= 0)
        close(m_Descriptor);
    m_Descriptor = -1;
    m_Begin = m_End = 0;
    m_AtEnd = false;
}

bool CFile::Fill(unsigned int wanted)
{
    while (m_End - m_Begin < wanted) {
        if (m_AtEnd || m_Descriptor < 0)
            return false;
        std::memmove(m_Block, m_Block + m_Begin, m_End - m_Begin);
        m_End -= m_Begin;
        m_Begin = 0;
        ssize_t got = 0;
        do {
            got = read(m_Descriptor, m_Block + m_End, sizeof m_Block - m_End);
        } while (got < 0 && errno == EINTR);
        m_AtEnd = got <= 0;
        if (got > 0)
            m_End += static_cast<unsigned int>(got);
    }
    return true;
}

bool CFile::TakeLineFeed()
{
    if (!Fill(1) || m_Block[m_Begin] != '\n')
        return false;
    ++m_Begin;
    return true;
}

void CFile::SkipCrLf()
{
    if (Fill(2) && m_Block[m_Begin] == '\r' && m_Block[m_Begin + 1] == '\n')
        m_Begin += 2;
}

int CFile::ReadLine(void* buffer, int size)
{
    char* const line = static_cast<char*>(buffer);
    if (size > 0)
        line[0] = '\0';
    if (size < 2 || !Fill(1))
        return -1;

    const auto room = static_cast<unsigned int>(size - 1);
    unsigned int length = 0;
    bool ended = false;
    while (!ended && length < room && Fill(1)) {
        const char* const begin = m_Block + m_Begin;
        const unsigned int available = std::min(m_End - m_Begin, room - length);
        const auto* const newline = static_cast<const char*>(std::memchr(begin, '\n', available));
        ended = newline != nullptr;
        const unsigned int run = ended ? static_cast<unsigned int>(newline - begin) : available;
        std::memcpy(line + length, begin, run);
        length += run;
        m_Begin += run + (ended ? 1 : 0);
    }
    if (!ended && length == room) {
        // A line that fills the buffer to the last character has its end right behind it: an LF,
        // whose CR may be the last character taken, or both.
        ended = TakeLineFeed();
        if (!ended)
            SkipCrLf();
    }
    if (ended && length > 0 && line[length - 1] == '\r')
        --length;
    line[length] = '\0';
    return static_cast<int>(length);
}

} // namespace Vorn::FileSystem
