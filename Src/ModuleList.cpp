// The kernel's list of modules, /lib/modules/RELEASE/modules.dep:
//
//     kernel/drivers/net/ethernet/intel/e1000e/e1000e.ko: kernel/drivers/ptp/ptp.ko ...
//
// A line is a module file's path, absolute or below that folder, a colon, and what it depends on.
// One whose first character behind tabs and blanks is "#" is a comment.
//
// A path ends at the first colon behind the line's start, though that may stand lines later: such a
// path names no file.
//
// The list is half a megabyte of mostly dependencies, so it is not taken apart line by line: the
// name is looked for, and the lines around only where it stands. It is read through a buffer that
// holds at least the text between two colons; why it is not mapped says ModuleFile.cpp.
#include "ModuleFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include <sys/utsname.h>
#include <unistd.h>

#include "Processor.h"

namespace VornEx::Internals {

namespace {

constexpr std::uint64_t Nowhere = ~std::uint64_t{0};

// A file's text, of which what lies before a position is let go. Positions count from the start of
// the file.
class CTextWindow
{
public:
    explicit CTextWindow(int descriptor) : m_Descriptor(descriptor) {}
    CTextWindow(const CTextWindow&) = delete;
    CTextWindow& operator=(const CTextWindow&) = delete;

    // Nothing before the position is needed any more. It is not beyond End.
    void Drop(std::uint64_t position) { m_First = Index(position); }

    // The first such character at or behind a position, or Nowhere.
    std::uint64_t Find(char character, std::uint64_t from)
    {
        for (;;) {
            const char* const begin = At(from);
            const auto length = static_cast<std::size_t>(End() - from);
            const void* const found = std::memchr(begin, character, length);
            if (found != nullptr)
                return from + static_cast<std::uint64_t>(static_cast<const char*>(found) - begin);
            from = End();
            if (!Fill())
                return Nowhere;
        }
    }

    // Valid until the next Find.
    const char* At(std::uint64_t position) const { return m_Buffer + Index(position); }
    // Behind the last character that was read so far.
    std::uint64_t End() const { return m_Origin + m_Length; }

    // Reads on; false at the end, which a buffer that cannot grow is too.
    [[gnu::noinline]] bool Fill()
    {
        const std::size_t kept = m_Length - m_First;
        char* buffer = m_Buffer;
        std::unique_ptr<char[]> grown;
        if (kept > m_Capacity / 2) {
            grown.reset(new (std::nothrow) char[2 * m_Capacity]);
            if (grown == nullptr)
                return false;
            buffer = grown.get();
            m_Capacity *= 2;
        }
        std::memmove(buffer, m_Buffer + m_First, kept);
        if (grown != nullptr)
            m_Grown = std::move(grown);
        m_Buffer = buffer;
        m_Origin += m_First;
        m_First = 0;
        m_Length = kept;

        ssize_t got = 0;
        do {
            got = read(m_Descriptor, m_Buffer + m_Length, m_Capacity - m_Length);
        } while (got < 0 && errno == EINTR);
        if (got > 0)
            m_Length += static_cast<std::size_t>(got);
        return got > 0;
    }

private:
    std::size_t Index(std::uint64_t position) const
    {
        return static_cast<std::size_t>(position - m_Origin);
    }

    int m_Descriptor;
    std::uint64_t m_Origin = 0; // of the buffer's first byte
    std::size_t m_First = 0;    // index of the first byte that is needed
    std::size_t m_Length = 0;
    std::size_t m_Capacity = sizeof m_Inline;
    char* m_Buffer = m_Inline;
    std::unique_ptr<char[]> m_Grown;
    char m_Inline[32768];
};

// The name that is looked for. In a file's name "-" and "_" are alike, a ":" of the looked-for name
// stands for any character, and a "." comes behind it.
class CName
{
public:
    explicit CName(std::string_view name) : m_Name(name), m_First(name.size()), m_Last(name.size())
    {
        for (std::size_t index = 0; index < name.size(); ++index) {
            if (name[index] == '-' || name[index] == '_' || name[index] == ':')
                continue;
            if (m_First == name.size())
                m_First = index;
            m_Last = index;
        }
    }

    std::size_t Length() const { return m_Name.size(); }

    // Whether a file's name is the one, or the text behind a place begins with it and the dot.
    bool Is(std::string_view file) const
    {
        if (file.size() <= m_Name.size() || file[m_Name.size()] != '.')
            return false;
        for (std::size_t index = 0; index < m_Name.size(); ++index) {
            const char wanted = m_Name[index];
            const char found = file[index];
            const bool alike = wanted == found || wanted == ':' ||
                               (wanted == '-' && found == '_') || (wanted == '_' && found == '-');
            if (!alike)
                return false;
        }
        return true;
    }

    // The first index, from `from` on, where the text has the name and the dot, or npos.
    std::size_t Find(std::string_view text, std::size_t from) const
    {
        const std::size_t end = text.size() - std::min(text.size(), m_Name.size());
        while (from < end) {
            if (end - from >= BlockSize)
                from = SkipBlocks(text.data(), from, end);
            const std::size_t blockEnd = std::min(end, from + BlockSize);
            for (; from < blockEnd; ++from)
                if (Is(text.substr(from)))
                    return from;
        }
        return std::string_view::npos;
    }

private:
    static constexpr std::size_t BlockSize = 64;

    // The first index of the next block of places that one of may be the name's, by two of its
    // characters and the dot: what compilers turn into a few vector instructions.
    [[gnu::always_inline]] inline std::size_t SkipAny(const char* text, std::size_t from,
                                                      std::size_t end) const
    {
        const char first = *(m_First < m_Name.size() ? &m_Name[m_First] : ".");
        const char last = *(m_Last < m_Name.size() ? &m_Name[m_Last] : ".");
        for (; end - from >= BlockSize; from += BlockSize) {
            const char* const firsts = text + from + m_First;
            const char* const lasts = text + from + m_Last;
            const char* const dots = text + from + m_Name.size();
            unsigned char found = 0;
            for (std::size_t place = 0; place < BlockSize; ++place)
                found = static_cast<unsigned char>(
                    found | (static_cast<unsigned char>(firsts[place] == first) &
                             static_cast<unsigned char>(lasts[place] == last) &
                             static_cast<unsigned char>(dots[place] == '.')));
            if (found != 0)
                break;
        }
        return from;
    }

    // The same compiled for what the processor has, which 32-bit code cannot take for granted.
    [[gnu::target("avx2")]] std::size_t SkipAvx2(const char* text, std::size_t from,
                                                 std::size_t end) const
    {
        return SkipAny(text, from, end);
    }
    [[gnu::target("sse2")]] std::size_t SkipSse2(const char* text, std::size_t from,
                                                 std::size_t end) const
    {
        return SkipAny(text, from, end);
    }
    std::size_t SkipBlocks(const char* text, std::size_t from, std::size_t end) const
    {
        if (HasAvx2())
            return SkipAvx2(text, from, end);
        if (HasSse2())
            return SkipSse2(text, from, end);
        return SkipAny(text, from, end);
    }

    std::string_view m_Name;
    std::size_t m_First; // two characters of it that stand for themselves; the dot where none does
    std::size_t m_Last;
};

bool IsComment(std::string_view line)
{
    const std::size_t first = line.find_first_not_of("\t ");
    return first != std::string_view::npos && line[first] == '#';
}

// Of lines that end in the same path, as those do that have no colon before it: the path as it
// stands in the first line whose file is the module's; empty when none is. The text begins with a
// line and ends before the colon.
std::string_view FindInLines(std::string_view text, const CName& module)
{
    const std::size_t slash = text.rfind('/');
    for (std::size_t line = 0;;) {
        const std::size_t name =
            slash != std::string_view::npos && slash >= line ? slash + 1 : line;
        if (module.Is(text.substr(name)) && !IsComment(text.substr(line)))
            return text.substr(line);
        line = text.find('\n', line);
        if (line == std::string_view::npos)
            return {};
        ++line;
    }
}

// Walks the list from one place with the name to the next. Most are dependencies of other modules.
class CSearch
{
public:
    CSearch(CTextWindow& list, const CName& module) : m_List(list), m_Module(module) {}

    // The path of the first line whose file is the module's, as it stands there; empty when none
    // is.
    std::string_view Run()
    {
        for (std::uint64_t from = 0;;) {
            const std::uint64_t place = NextPlace(from);
            if (place == Nowhere)
                return {};
            Pass(place);
            from = place + 1;
            if (m_Line == Nowhere)
                continue;
            const std::uint64_t colon = m_List.Find(':', place);
            if (colon == Nowhere)
                return {};
            const std::string_view path = FindInLines(
                {m_List.At(m_Line), static_cast<std::size_t>(colon - m_Line)}, m_Module);
            if (!path.empty())
                return path;
            from = colon + 1;
        }
    }

private:
    // Where the name stands next, at `from` or behind.
    std::uint64_t NextPlace(std::uint64_t from)
    {
        for (;;) {
            const std::string_view text(m_List.At(from),
                                        static_cast<std::size_t>(m_List.End() - from));
            const std::size_t found = m_Module.Find(text, 0);
            if (found != std::string_view::npos)
                return from + found;
            // What has no room for the name yet is looked at again with more text.
            from += text.size() - std::min(text.size(), m_Module.Length());
            Pass(from);
            m_List.Drop(std::min(m_Line, from));
            if (!m_List.Fill())
                return Nowhere;
        }
    }

    // Takes note of the lines and colons before a position.
    void Pass(std::uint64_t position)
    {
        const auto rest = [&] {
            return std::string_view(m_List.At(m_Passed),
                                    static_cast<std::size_t>(position - m_Passed));
        };
        const std::size_t colon = rest().rfind(':');
        if (colon != std::string_view::npos) {
            m_Line = Nowhere;
            m_Passed += colon + 1;
        }
        if (m_Line == Nowhere) {
            const std::size_t newline = rest().find('\n');
            if (newline != std::string_view::npos)
                m_Line = m_Passed + newline + 1;
        }
        m_Passed = position;
    }

    CTextWindow& m_List;
    const CName& m_Module;
    std::uint64_t m_Passed = 0;
    std::uint64_t m_Line = 0; // the first that has no colon before m_Passed; Nowhere: none begun
};

} // namespace

bool FindModulePath(const Vorn::Strings::CStringRef& module, Vorn::Strings::CStringVar& path)
{
    utsname kernel{};
    if (uname(&kernel) != 0)
        return false;
    Vorn::Strings::TString<128> folder;
    folder << "/lib/modules/" << kernel.release << "/";
    Vorn::Strings::TString<128> list(folder);
    list << "modules.dep";

    const CInputFile file(list.m_Text);
    if (!file.IsOpen())
        return false;
    CTextWindow text(file.Descriptor());
    const CName name(module);
    const std::string_view found = CSearch(text, name).Run();
    // A NUL would make the system see another path than the list has.
    if (found.empty() || found.find('\0') != std::string_view::npos)
        return false;
    if (found.front() != '/')
        path << folder;
    path << found;
    return true;
}

} // namespace VornEx::Internals
