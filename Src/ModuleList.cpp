// The kernel's list of modules, /lib/modules/RELEASE/modules.dep:
//
//     kernel/drivers/net/ethernet/intel/e1000e/e1000e.ko: kernel/drivers/ptp/ptp.ko ...
//
// A line is a module file's path, absolute or below that folder, a colon, and what it depends on.
// One whose first character behind tabs and blanks is "#" is a comment.
//
// A path ends at the first colon behind the line's start, though that may stand lines later: such a
// path names no file. The list is read through a buffer that holds one line at least; why it is not
// mapped says ModuleFile.cpp.
#include "ModuleFile.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include <sys/utsname.h>
#include <unistd.h>

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

private:
    std::size_t Index(std::uint64_t position) const
    {
        return static_cast<std::size_t>(position - m_Origin);
    }

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

    int m_Descriptor;
    std::uint64_t m_Origin = 0; // of the buffer's first byte
    std::size_t m_First = 0;    // index of the first byte that is needed
    std::size_t m_Length = 0;
    std::size_t m_Capacity = sizeof m_Inline;
    char* m_Buffer = m_Inline;
    std::unique_ptr<char[]> m_Grown;
    char m_Inline[32768];
};

// Whether a file name is the module's: the characters equal, "-" and "_" alike and ":" for any,
// and a "." behind them.
bool IsNamed(std::string_view file, std::string_view module)
{
    if (file.size() <= module.size() || file[module.size()] != '.')
        return false;
    for (std::size_t index = 0; index < module.size(); ++index) {
        const char wanted = module[index];
        const char found = file[index];
        const bool alike = wanted == found || wanted == ':' || (wanted == '-' && found == '_') ||
                           (wanted == '_' && found == '-');
        if (!alike)
            return false;
    }
    return true;
}

bool IsComment(std::string_view line)
{
    const std::size_t first = line.find_first_not_of("\t ");
    return first != std::string_view::npos && line[first] == '#';
}

// The path of the first line whose file is the module's, as it stands there; empty when none is.
std::string_view FindLine(CTextWindow& text, std::string_view module)
{
    std::uint64_t colon = Nowhere; // the first at or behind the line's start
    std::uint64_t slash = Nowhere; // the last before it
    for (std::uint64_t line = 0;;) {
        text.Drop(line);
        const std::uint64_t newline = text.Find('\n', line);
        const std::uint64_t lineEnd = newline != Nowhere ? newline : text.End();
        // Looked for once a colon, however many lines stand before it.
        if (line == 0 || colon < line) {
            colon = text.Find(':', line);
            if (colon == Nowhere)
                return {};
            const void* const found =
                memrchr(text.At(line), '/', static_cast<std::size_t>(colon - line));
            slash = found == nullptr ? Nowhere
                                     : line + static_cast<std::uint64_t>(
                                                  static_cast<const char*>(found) - text.At(line));
        }
        const std::uint64_t name = slash != Nowhere && slash >= line ? slash + 1 : line;
        if (IsNamed({text.At(name), static_cast<std::size_t>(colon - name)}, module) &&
            !IsComment({text.At(line), static_cast<std::size_t>(lineEnd - line)}))
            return {text.At(line), static_cast<std::size_t>(colon - line)};
        if (newline == Nowhere)
            return {};
        line = newline + 1;
    }
}

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
    const std::string_view found = FindLine(text, module);
    // A NUL would make the system see another path than the list has.
    if (found.empty() || found.find('\0') != std::string_view::npos)
        return false;
    if (found.front() != '/')
        path << folder;
    path << found;
    return true;
}

} // namespace VornEx::Internals
