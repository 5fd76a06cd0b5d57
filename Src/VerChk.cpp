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

// What a character is in a version. The low four bits are its value as a hexadecimal digit.
enum Kind : unsigned char
{
    Separator = 0x10,
    HexLetter = 0x20, // A to F: a digit that makes the radix 16
    NoDigit = 0x40,   // no hexadecimal digit
    NoNumber = 0x80,  // a letter that no number of either radix has: beyond F, but X of a prefix
};

struct CKinds
{
    unsigned char m_Of[256];
};

constexpr CKinds MakeKinds()
{
    CKinds kinds{};
    for (auto& kind : kinds.m_Of)
        kind = NoDigit;
    for (unsigned int digit = 0; digit < 10; ++digit)
        kinds.m_Of['0' + digit] = static_cast<unsigned char>(digit);
    for (unsigned int letter = 0; letter < 26; ++letter) {
        const bool isDigit = letter < 6;
        const bool isPrefix = 'a' + letter == 'x';
        const unsigned int kind = isDigit    ? HexLetter | (letter + 10)
                                  : isPrefix ? +NoDigit
                                             : NoDigit | NoNumber;
        kinds.m_Of['A' + letter] = kinds.m_Of['a' + letter] = static_cast<unsigned char>(kind);
    }
    for (const char separator : {'.', '-'})
        kinds.m_Of[static_cast<unsigned char>(separator)] = Separator;
    return kinds;
}

constexpr CKinds Kinds = MakeKinds();

unsigned int KindOf(char character)
{
    return Kinds.m_Of[static_cast<unsigned char>(character)];
}

bool HoldsHexLetter(const CStringRef& text)
{
    unsigned int kinds = 0;
    for (unsigned int index = 0; index < text.Length(); ++index)
        kinds |= KindOf(text.Text()[index]);
    return (kinds & HexLetter) != 0;
}

// The components of one text, in order.
class CComponents
{
public:
    explicit CComponents(const CStringRef& text) : m_Text(text) {}

    // Goes to the next component. False when there is none: at the end, and at an empty one.
    bool Next()
    {
        m_Kinds = 0;
        m_Value = 0;
        return Internals::NextToken(m_Text.Text(), m_Text.Length(), m_Position, m_Begin,
                                    [this](char character) {
                                        const unsigned int kind = KindOf(character);
                                        if ((kind & Separator) != 0)
                                            return true;
                                        m_Kinds |= kind;
                                        m_Value = m_Value << 4U | (kind & 0xFU);
                                        return false;
                                    }) &&
               m_Begin != m_Position;
    }

    // A few digits and nothing else, as nearly all components are. Of two such ones Value tells the
    // order in either radix: letters are there in radix 16 alone, and digits without letters have
    // the same order in both.
    bool IsShortNumber() const { return (m_Kinds & NoDigit) == 0 && m_Position - m_Begin <= 7; }
    std::uint32_t Value() const { return m_Value; }

    // What the component is as a number; false when it is none.
    bool Convert(int radix, std::int32_t& value) const
    {
        const Vorn::Strings::CSubStringRef token(m_Text.Text() + m_Begin, m_Position - m_Begin);
        // Failing costs atoi32 many times what finding such a letter does. A NUL ends the number.
        if ((m_Kinds & NoNumber) != 0 && std::memchr(token.Text(), '\0', token.Length()) == nullptr)
            return false;
        const Vorn::Strings::TString<64> text(token);
        return !Internals::AbsorbsCall(g_CompareSource,
                                       [&] { value = atoi32(text.m_Text, radix); });
    }

private:
    const CStringRef& m_Text;
    std::uint32_t m_Position = 0; // behind the component
    std::uint32_t m_Begin = 0;
    std::uint32_t m_Value = 0;
    unsigned int m_Kinds = 0; // of its characters together
};

// The order of two components. False when either is no number.
bool CompareComponents(const CComponents& left, const CComponents& right, int radix, int& order)
{
    std::int32_t leftValue = 0;
    std::int32_t rightValue = 0;
    if (!left.Convert(radix, leftValue) || !right.Convert(radix, rightValue))
        return false;
    order = leftValue < rightValue ? -1 : leftValue > rightValue ? 1 : 0;
    return true;
}

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
    const Vorn::Strings::TString<128> name(module);
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

    CComponents left(a);
    CComponents right(b);
    int order = 0; // by the first components that differ
    for (unsigned int count = 0; n == 0 || count < n; ++count) {
        const bool hasLeft = left.Next();
        const bool hasRight = right.Next();
        if (!hasLeft && !hasRight && n == 0)
            return order;
        if (!hasLeft || !hasRight)
            return CompareTexts(a, b);
        int componentOrder = 0;
        if (left.IsShortNumber() && right.IsShortNumber()) {
            componentOrder = left.Value() < right.Value() ? -1 : left.Value() > right.Value();
        } else {
            const int radix = HoldsHexLetter(a) || HoldsHexLetter(b) ? 16 : 10;
            if (!CompareComponents(left, right, radix, componentOrder))
                return CompareTexts(a, b);
        }
        if (order == 0)
            order = componentOrder;
    }
    return order;
}

} // namespace VornEx
