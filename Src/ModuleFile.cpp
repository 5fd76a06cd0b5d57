// A module file is an ELF relocatable object in the host's byte order (System V ABI, chapter 4).
// What is read of it, by byte offset:
//
//     file                          32-bit     64-bit
//       7F "ELF"                     0  4       0  4
//       class: 1 32-bit, 2 64-bit    4  1       4  1
//       section headers at          32  4      40  4, the low half
//       how many                    48  2      60  2
//       the one of the names        50  2      62  2
//     section header                40 bytes   64 bytes
//       name, within the names       0  4       0  4
//       section at                  16  4      24  4, the low half
//       its size                    20  4      32  4, the low half
//
// Section ".modinfo" is a sequence of entries "key=value", each ended by one or more NUL.
//
// Nothing of that is trusted. A file is read through a small window rather than mapped: a mapped
// file that is cut while it is looked at ends the process, a read beyond its end just finds nothing
// there. So no offset has to be compared with a size, and the few pages that matter cost less than
// setting up a mapping does. Offsets have 32 bits and are added in 64: sums do not overflow.
#include "ModuleFile.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace VornEx::Internals {

namespace {

// The part of a file that was looked at last.
class CFileWindow
{
public:
    explicit CFileWindow(int descriptor) : m_Descriptor(descriptor) {}

    // The `length` bytes at an offset, at most Size; null when the file does not hold them all.
    // Valid until the next call.
    const char* At(std::uint64_t offset, std::size_t length)
    {
        return Reaches(offset, length) ? m_Bytes + (offset - m_Begin) : nullptr;
    }

    // The bytes at an offset that are at hand, of `most` at most; none at the end of the file.
    std::string_view Run(std::uint64_t offset, std::uint64_t most)
    {
        if (most == 0 || !Reaches(offset, 1))
            return {};
        const auto skipped = static_cast<std::size_t>(offset - m_Begin);
        return {m_Bytes + skipped,
                static_cast<std::size_t>(std::min<std::uint64_t>(m_Length - skipped, most))};
    }

    static constexpr std::size_t Size = 4096;

private:
    bool Reaches(std::uint64_t offset, std::size_t length)
    {
        return (offset >= m_Begin && offset + length <= m_Begin + m_Length) || Load(offset, length);
    }

    bool Load(std::uint64_t offset, std::size_t length)
    {
        m_Begin = offset;
        m_Length = 0;
        while (m_Length < length) {
            const ssize_t got = pread(m_Descriptor, m_Bytes + m_Length, sizeof m_Bytes - m_Length,
                                      static_cast<off_t>(offset + m_Length));
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                return false;
            m_Length += static_cast<std::size_t>(got);
        }
        return true;
    }

    int m_Descriptor;
    std::uint64_t m_Begin = 0;
    std::size_t m_Length = 0;
    char m_Bytes[Size];
};

// Where the fields of a class stand.
struct CLayout
{
    std::size_t m_HeaderSize; // as much of the file's as is read
    std::size_t m_Table;
    std::size_t m_Count;
    std::size_t m_NamesIndex;
    std::size_t m_SectionHeaderSize;
    std::size_t m_Offset;
    std::size_t m_Size;
    bool m_Wide; // offsets and sizes have 64 bits
};

constexpr CLayout Layouts[] = {
    {52, 32, 48, 50, 40, 16, 20, false},
    {64, 40, 60, 62, 64, 24, 32, true},
};

template <class Number>
Number Read(const char* at)
{
    Number number = 0;
    std::memcpy(&number, at, sizeof number);
    return number;
}

struct CSection
{
    std::uint64_t m_Begin;
    std::uint64_t m_Size;
};

class CElf
{
public:
    explicit CElf(int descriptor) : m_Headers(descriptor), m_Names(descriptor) {}

    // Reads the file's header and finds the section names.
    bool Open()
    {
        constexpr char Magic[] = {0x7F, 'E', 'L', 'F'};
        const char* const start = m_Names.At(0, sizeof Magic + 1);
        if (start == nullptr || std::memcmp(start, Magic, sizeof Magic) != 0)
            return false;
        const auto kind = static_cast<unsigned char>(start[sizeof Magic]);
        if (kind != 1 && kind != 2)
            return false;
        m_Layout = &Layouts[kind - 1];
        const char* const header = m_Names.At(0, m_Layout->m_HeaderSize);
        if (header == nullptr)
            return false;
        m_Table = Low32(header + m_Layout->m_Table);
        m_Count = Read<std::uint16_t>(header + m_Layout->m_Count);
        const unsigned int names = Read<std::uint16_t>(header + m_Layout->m_NamesIndex);
        if (m_Count < 2 || names >= m_Count)
            return false;
        // The table is looked at from its start, so that one window holds that of most modules.
        m_Headers.Run(m_Table, 1);
        CSection section{};
        if (!ReadHeader(names, section))
            return false;
        m_NamesBegin = section.m_Begin;
        return true;
    }

    // The first section of the name, given with its NUL. The one of index 0 is none.
    template <std::size_t Size>
    bool Find(const char (&name)[Size], CSection& section)
    {
        for (unsigned int index = 1; index < m_Count; ++index) {
            const char* const header = ReadHeader(index, section);
            if (header == nullptr)
                return false;
            const char* const found = m_Names.At(m_NamesBegin + Read<std::uint32_t>(header), Size);
            if (found != nullptr && std::memcmp(found, name, Size) == 0)
                return true;
        }
        return false;
    }

private:
    // Of a 64-bit field the low half.
    std::uint32_t Low32(const char* at) const
    {
        return m_Layout->m_Wide ? static_cast<std::uint32_t>(Read<std::uint64_t>(at))
                                : Read<std::uint32_t>(at);
    }

    // The header's bytes, and the section that it describes; null when it lies outside the file.
    const char* ReadHeader(unsigned int index, CSection& section)
    {
        const std::size_t size = m_Layout->m_SectionHeaderSize;
        const char* const header = m_Headers.At(m_Table + std::uint64_t{index} * size, size);
        if (header != nullptr)
            section = {Low32(header + m_Layout->m_Offset), Low32(header + m_Layout->m_Size)};
        return header;
    }

    CFileWindow m_Headers;
    CFileWindow m_Names;
    const CLayout* m_Layout = nullptr;
    std::uint64_t m_Table = 0;
    unsigned int m_Count = 0;
    std::uint64_t m_NamesBegin = 0;
};

} // namespace

CInputFile::CInputFile(const char* path)
{
    do {
        m_Descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    } while (m_Descriptor < 0 && errno == EINTR);
}

CInputFile::~CInputFile()
{
    if (IsOpen())
        close(m_Descriptor);
}

void ReadModuleVersion(const CInputFile& file, Vorn::Strings::CStringVar& version)
{
    CSection section{};
    {
        CElf elf(file.Descriptor());
        if (!elf.Open() || !elf.Find(".modinfo", section))
            return;
    }
    constexpr std::string_view Key = "version=";
    CFileWindow window(file.Descriptor());
    std::uint64_t at = section.m_Begin;
    const std::uint64_t end = section.m_Begin + section.m_Size;

    // Behind this loop `at` is at the value.
    for (;;) {
        if (end - at < Key.size())
            return;
        const char* const entry = window.At(at, Key.size());
        if (entry == nullptr)
            return;
        if (std::memcmp(entry, Key.data(), Key.size()) == 0)
            break;
        bool inEntry = true;
        for (bool atNext = false; !atNext;) {
            const std::string_view run = window.Run(at, end - at);
            if (run.empty())
                return;
            const std::size_t length = inEntry ? run.find('\0') : run.find_first_not_of('\0');
            at += std::min(length, run.size());
            if (length != std::string_view::npos) {
                atNext = !inEntry;
                inEntry = false;
            }
        }
    }

    at += Key.size();
    for (;;) {
        const std::string_view run = window.Run(at, end - at);
        const auto* const stop = std::find_if(run.begin(), run.end(), [](char character) {
            return character == '\0' || std::isspace(static_cast<unsigned char>(character)) != 0;
        });
        const auto length = static_cast<unsigned int>(stop - run.begin());
        if (length != 0)
            version.AllocCopy(run.data(), length);
        at += length;
        if (length != run.size() || at == end)
            return;
        if (run.empty()) {
            // The file was cut inside of the value: a part of a version is another version.
            version.Clear();
            return;
        }
    }
}

} // namespace VornEx::Internals
