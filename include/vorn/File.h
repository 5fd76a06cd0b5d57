// Reading text files line by line.
#pragma once

#include <vorn/Export.h>
#include <vorn/StringRef.h>

namespace Vorn::FileSystem {

// A file open for reading. One thread at a time. Reads in blocks, so the descriptor's position is
// the object's own affair. Nothing is raised.
class VORN_EXPORT CFile
{
public:
    // The only mode there is.
    static constexpr int Read = 1;

    CFile() = default;
    ~CFile();
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;

    // True when the path names something, of whatever kind (stat(2) succeeds). A path that holds a
    // NUL byte names nothing.
    static bool Exist(const Strings::CStringRef& path);

    // Opens the path, closing what was open. False, with errno set, when that fails, the mode is
    // not Read, or the path holds a NUL byte. Never waits for a writer of a pipe.
    bool Open(const Strings::CSubStringRef& path, int mode);

    // Reads the next line into a buffer of `size` bytes (at least 2) and gives its length, or -1
    // at the end of the file. The line end, LF or CR LF, is removed; a CR elsewhere stays. At most
    // size - 1 characters are taken, the rest of a longer line is left for the next call, and the
    // buffer always ends in a NUL. NUL bytes of the file are kept and counted. A directory, or a
    // read that fails, reads as the end of the file.
    int ReadLine(void* buffer, int size);

    // Does nothing when nothing is open.
    void Close();

private:
    // Makes the next bytes available, 1 or 2; false when the file ends before.
    bool Fill(unsigned int wanted);
    // Steps over an LF; false when something else comes next.
    bool TakeLineFeed();
    // Steps over a CR LF, if one comes next.
    void SkipCrLf();

    int m_Descriptor = -1;
    unsigned int m_Begin = 0; // unread bytes are m_Block[m_Begin .. m_End)
    unsigned int m_End = 0;
    bool m_AtEnd = false;
    char m_Block[4096];
};

} // namespace Vorn::FileSystem
