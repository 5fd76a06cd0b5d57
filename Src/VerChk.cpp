// The version of a kernel module, and the order of versions.
//
// To compare, two texts are read side by side, and nothing is kept of their components but the
// first difference: what the components decide is known when both texts have ended, or earlier, and
// what they cannot decide the texts do.
#include <vornex/VersionCheck.h>

#include <cerrno>
#include <cstring>

#include <vorn/File.h>
#include <vornex/Numbers.h>

#include "CallFrame.h"
#include "ModuleFile.h"
#include "TokenScan.h"

namespace VornEx {

namespace {

using Vorn::Strings::CStringRef;
using Vorn::Strings::CStringVar;

// The version that a VMware service console lists for the module. True when there is one.
bool FindConsoleVersion(const CStringRef& module, CStringVar& version)
{
    constexpr unsigned int LineLength = 256;
    constexpr char Mark[] = ": v";
    constexpr unsigned int VersionLength = 6;

    Vorn::FileSystem::CFile list;
    if (!list.Open("/proc/vmware/version", Vorn::FileSystem::CFile::Read))
        return false;
    char line[LineLength + 1];
    while (list.ReadLine(line, sizeof line) >= 0) {
        const char* const mark = std::strstr(line, Mark);
        if (mark == nullptr || std::strstr(line, module.Text()) == nullptr)
            continue;
        // Six characters, be the version longer or shorter.
        const char* const begin = mark + sizeof Mark - 1;
        const auto length = static_cast<unsigned int>(strnlen(begin, VersionLength));
        if (length != 0)
            version.AllocCopy(begin, length);
        return true;
    }
    return false;
}

Vorn::Exceptions::SOURCE_INFO g_CompareSource = {{0}, "Src/VerChk.cpp", __LINE__};

// What a character is in a version: its value as a digit, and what it does to the radix.
enum Character : unsigned char
{
    HexDigit = 0x10,  // the low four bits are its value
    HexLetter = 0x20, // one of A to F, a digit too
};

struct CCharacters
{
    unsigned char m_Kind[256];
};

constexpr CCharacters MakeCharacters()
{
    CCharacters characters{};
    for (unsigned int digit = 0; digit < 10; ++digit)
        characters.m_Kind['0' + digit] = static_cast<unsigned char>(HexDigit | digit);
    for (unsigned int letter = 0; letter < 6; ++letter)
        characters.m_Kind['A' + letter] = characters.m_Kind['a' + letter] =
            static_cast<unsigned char>(HexDigit | HexLetter | (letter + 10));
    return characters;
}

constexpr CCharacters Characters = MakeCharacters();

unsigned int KindOf(char character)
{
    return Characters.m_Kind[static_cast<unsigned char>(character)];
}

bool HoldsHexLetter(const CStringRef& text)
{
    for (unsigned int index = 0; index < text.Length(); ++index)
        if ((KindOf(text.Text()[index]) & HexLetter) != 0)
            return true;
    return false;
}

// The components of one text, in order.
class CComponents
{
public:
    CComponents(const CStringRef& text, unsigned int radix) : m_Text(text), m_Radix(radix) {}

    // Takes the next component. False when there is none: at the end, at an empty one, and at one
    // that is no number.
    bool Next()
    {
        const Internals::DelimiterSet& delimiters = Separators.m_Set;
        std::uint32_t begin = 0;
        if (!Internals::NextToken(m_Text.Text(), m_Text.Length(), delimiters, m_Position, begin) ||
            begin == m_Position)
            return false;
        const char* const token = m_Text.Text() + begin;
        const std::uint32_t length = m_Position - begin;
        m_Failed = !IsShortNumber(token, length) && !Converts(token, length);
        return !m_Failed;
    }

    std::int32_t Value() const { return m_Value; }
    // The last component was no number.
    bool Failed() const { return m_Failed; }

private:
    struct CSeparators
    {
        CSeparators()
        {
            Internals::AddDelimiter(m_Set, '.');
            Internals::AddDelimiter(m_Set, '-');
        }
        Internals::DelimiterSet m_Set = {};
    };
    static const CSeparators Separators;

    // Digits of the radix alone, so few that every value fits: what nearly all components are, at a
    // fraction of the price of atoi32, to which it leaves all others.
    bool IsShortNumber(const char* token, std::uint32_t length)
    {
        constexpr std::uint32_t MostDigits = 7;
        if (length > MostDigits)
            return false;
        unsigned int value = 0;
        for (std::uint32_t index = 0; index < length; ++index) {
            const unsigned int kind = KindOf(token[index]);
            const unsigned int digit = kind & 0xFU;
            if ((kind & HexDigit) == 0 || digit >= m_Radix)
                return false;
            value = value * m_Radix + digit;
        }
        m_Value = static_cast<std::int32_t>(value);
        return true;
    }

    [[gnu::noinline]] bool Converts(const char* token, std::uint32_t length)
    {
        const Vorn::Strings::TString<64> text(Vorn::Strings::CSubStringRef(token, length));
        return !Internals::AbsorbsCall(
            g_CompareSource, [&] { m_Value = atoi32(text.m_Text, static_cast<int>(m_Radix)); });
    }

    const CStringRef& m_Text;
    unsigned int m_Radix;
    std::uint32_t m_Position = 0;
    std::int32_t m_Value = 0;
    bool m_Failed = false;
};

const CComponents::CSeparators CComponents::Separators;

int CompareTexts(const CStringRef& a, const CStringRef& b)
{
    if (a == b)
        return 0;
    return std::strcmp(a.Text(), b.Text()) < 0 ? -1 : 1;
}

} // namespace

void GetModuleVersion(const CStringRef& module, CStringVar& version)
{
    // The caller may pass the same string for both.
    const Vorn::Strings::TString<64> name(module);
    version.Clear();
    // The system would take a name with a NUL for a shorter one.
    if (std::memchr(name.m_Text, '\0', name.m_Length) != nullptr ||
        FindConsoleVersion(name, version))
        return;

    const Internals::CInputFile file(name.m_Text);
    if (file.IsOpen()) {
        Internals::ReadModuleVersion(file, version);
        return;
    }
    Vorn::Strings::TString<256> path;
    if (errno != ENOENT || !Internals::FindModulePath(name, path))
        return;
    const Internals::CInputFile found(path.m_Text);
    if (found.IsOpen())
        Internals::ReadModuleVersion(found, version);
}

int VersionCompare(const CStringRef& a, const CStringRef& b, unsigned int n)
{
    // Equal texts are equal by either method.
    if (a == b)
        return 0;

    const unsigned int radix = HoldsHexLetter(a) || HoldsHexLetter(b) ? 16 : 10;
    CComponents left(a, radix);
    CComponents right(b, radix);
    int order = 0; // by the first components that differ
    for (unsigned int count = 0; n == 0 || count < n; ++count) {
        const bool hasLeft = left.Next();
        const bool hasRight = right.Next();
        if (!hasLeft || !hasRight) {
            const bool decided = n == 0 && hasLeft == hasRight && !left.Failed() && !right.Failed();
            return decided ? order : CompareTexts(a, b);
        }
        if (order == 0 && left.Value() != right.Value())
            order = left.Value() < right.Value() ? -1 : 1;
    }
    return order;
}

} // namespace VornEx
