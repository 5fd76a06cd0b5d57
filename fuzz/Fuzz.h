// What the fuzz targets share. A target ends the run with Fail; libFuzzer keeps the input.
#pragma once

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include <fuzzer/FuzzedDataProvider.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

namespace Fuzz {

[[noreturn]] inline void Fail(const std::string& what)
{
    std::fprintf(stderr, "%s\n", what.c_str());
    std::abort();
}

inline void Expect(bool holds, const char* what)
{
    if (!holds)
        Fail(what);
}

// A text in quotes, with codes for what does not print.
inline std::string Readable(const std::string& text)
{
    std::string shown = "\"";
    for (const char character : text) {
        char code[8];
        if (character == '"' || character == '\\')
            (shown += '\\') += character;
        else if (std::isprint(static_cast<unsigned char>(character)) != 0)
            shown += character;
        else {
            std::snprintf(code, sizeof code, "\\%03o", static_cast<unsigned char>(character));
            shown += code;
        }
    }
    return shown + "\"";
}

inline std::string Readable(long long number)
{
    return std::to_string(number);
}

// What was found and what a plain model of the rules says.
template <class Value>
void ExpectSame(const Value& found, const Value& wanted, const std::string& where)
{
    if (!(found == wanted))
        Fail(where + "\nfound  " + Readable(found) + "\nwanted " + Readable(wanted));
}

// A file in memory that has a path.
class CMemoryFile
{
public:
    CMemoryFile() : m_Descriptor(memfd_create("fuzz", MFD_CLOEXEC))
    {
        Expect(m_Descriptor >= 0, "no file in memory");
        m_Path = "/proc/self/fd/" + std::to_string(m_Descriptor);
    }
    ~CMemoryFile() { close(m_Descriptor); }
    CMemoryFile(const CMemoryFile&) = delete;
    CMemoryFile& operator=(const CMemoryFile&) = delete;

    void Set(const void* bytes, std::size_t size) const
    {
        Expect(ftruncate(m_Descriptor, 0) == 0 &&
                   pwrite(m_Descriptor, bytes, size, 0) == static_cast<ssize_t>(size),
               "a file in memory cannot be written");
    }
    void Set(const std::string& content) const { Set(content.data(), content.size()); }

    int Descriptor() const { return m_Descriptor; }
    const std::string& Path() const { return m_Path; }

private:
    int m_Descriptor;
    std::string m_Path;
};

// Fails when descriptors were opened meanwhile and are open still.
class CDescriptorsKept
{
public:
    CDescriptorsKept() : m_Next(Next()) {}
    ~CDescriptorsKept() { Expect(Next() == m_Next, "a descriptor was left open"); }
    CDescriptorsKept(const CDescriptorsKept&) = delete;
    CDescriptorsKept& operator=(const CDescriptorsKept&) = delete;

private:
    static int Next()
    {
        const int descriptor = dup(STDERR_FILENO);
        close(descriptor);
        return descriptor;
    }

    int m_Next;
};

} // namespace Fuzz
