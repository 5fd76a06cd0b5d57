// catopen(3) believes the sizes and offsets in a catalogue and reads outside the file when they are
// wrong. So the search that it would make is made here, each file found is looked through first,
// and only a sound one is handed to it by its full path.
//
// The file as gencat(1) writes it, all words 32 bits in the byte order of the writer:
//
//     magic 0x960408DE | P (plane size) | D (plane depth)
//     P * D rows {set, message, offset}, little-endian; the same rows, big-endian
//     the texts, NUL-terminated; offsets count from here
#include "Catalogue.h"

#include <cerrno>
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <nl_types.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Vorn::Language_Support {

namespace {

using Strings::CSubStringRef;
using Strings::TString;

// Where catopen looks behind NLSPATH.
constexpr const char* SystemPath = "/usr/share/locale/%L/%N:/usr/share/locale/%L/LC_MESSAGES/%N:"
                                   "/usr/share/locale/%l/%N:/usr/share/locale/%l/LC_MESSAGES/%N";

constexpr std::uint32_t Magic = 0x960408DE;
constexpr std::uint32_t MagicSwapped = 0xDE080496;

// The parts of a locale's name: language[_territory][.codeset][@modifier].
struct CLocaleName
{
    explicit CLocaleName(const char* name)
    {
        m_Whole = CSubStringRef(name);
        m_Language = Upto(name, "_.@");
        if (*name == '_')
            m_Territory = Upto(++name, ".@");
        if (*name == '.')
            m_Codeset = Upto(++name, "@");
    }

    CSubStringRef m_Whole;
    CSubStringRef m_Language;
    CSubStringRef m_Territory;
    CSubStringRef m_Codeset;

private:
    static CSubStringRef Upto(const char*& at, const char* stops)
    {
        const char* const begin = at;
        at += std::strcspn(at, stops);
        return {begin, static_cast<unsigned int>(at - begin)};
    }
};

// Expands one template of a search path, up to its colon or end, and steps over it.
void Expand(const char*& at, const char* file, const CLocaleName& locale, Strings::CStringVar& path)
{
    path.Clear();
    for (; *at != '\0' && *at != ':'; ++at) {
        if (*at != '%' || at[1] == '\0') {
            path.AllocCopy(at, 1);
            continue;
        }
        switch (*++at) {
        case 'N':
            path << file;
            break;
        case 'L':
            path << locale.m_Whole;
            break;
        case 'l':
            path << locale.m_Language;
            break;
        case 't':
            path << locale.m_Territory;
            break;
        case 'c':
            path << locale.m_Codeset;
            break;
        default:
            path.AllocCopy(at, 1);
            break;
        }
    }
    if (*at == ':')
        ++at;
    if (path.m_Length == 0)
        path << file;
}

struct CDescriptor
{
    int m_Number;
    ~CDescriptor() { close(m_Number); }
};

// The whole file; empty when it cannot be read or is larger than any catalogue of messages.
std::vector<unsigned char> Content(const char* path)
{
    constexpr off_t MostBytes = off_t{16} << 20U;

    std::vector<unsigned char> content;
    int opened = -1;
    do {
        opened = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    } while (opened < 0 && errno == EINTR);
    if (opened < 0)
        return content;
    const CDescriptor file{opened};
    struct stat status
    {};
    if (fstat(file.m_Number, &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size > MostBytes)
        return content;
    content.resize(static_cast<std::size_t>(status.st_size));
    std::size_t filled = 0;
    while (filled < content.size()) {
        const ssize_t got = read(file.m_Number, content.data() + filled, content.size() - filled);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        filled += static_cast<std::size_t>(got);
    }
    content.resize(filled);
    return content;
}

std::uint32_t LittleEndian(const unsigned char* at)
{
    return at[0] | static_cast<std::uint32_t>(at[1]) << 8U |
           static_cast<std::uint32_t>(at[2]) << 16U | static_cast<std::uint32_t>(at[3]) << 24U;
}

// Whether the tables that the header announces lie inside the file, and every text that they name
// does too, with its terminator.
bool IsSound(const std::vector<unsigned char>& content)
{
    constexpr std::size_t HeaderSize = 3 * sizeof(std::uint32_t);
    constexpr std::size_t RowSize = 3 * sizeof(std::uint32_t);

    if (content.size() < HeaderSize)
        return false;
    const std::uint32_t magic = LittleEndian(content.data());
    if (magic != Magic && magic != MagicSwapped)
        return false;
    const auto size = [&](std::size_t word) {
        const std::uint32_t value = LittleEndian(content.data() + word * sizeof(std::uint32_t));
        return static_cast<std::uint64_t>(magic == Magic ? value : __builtin_bswap32(value));
    };
    const std::uint64_t rows = size(1) * size(2);
    if (rows == 0 || rows > content.size() / (2 * RowSize) ||
        HeaderSize + rows * 2 * RowSize >= content.size())
        return false;

    const std::size_t texts = HeaderSize + static_cast<std::size_t>(rows) * 2 * RowSize;
    std::size_t lastEnd = content.size();
    while (lastEnd > texts && content[lastEnd - 1] != 0)
        --lastEnd;
    for (std::size_t row = 0; row < rows; ++row)
        if (LittleEndian(content.data() + HeaderSize + row * RowSize + 2 * sizeof(std::uint32_t)) >=
            lastEnd - texts)
            return false;
    return true;
}

bool TextFrom(const char* path, unsigned int set, unsigned int number, Strings::CStringVar& text)
{
    nl_catd catalogue = catopen(path, NL_CAT_LOCALE);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the failure value that catopen defines
    if (catalogue == reinterpret_cast<nl_catd>(-1))
        return false;
    const auto closing = [](nl_catd opened) { catclose(opened); };
    const std::unique_ptr<void, decltype(closing)> owner(catalogue, closing);
    const char* const found =
        catgets(catalogue, static_cast<int>(set), static_cast<int>(number), nullptr);
    if (found != nullptr)
        text = found;
    return found != nullptr;
}

} // namespace

bool CatalogueText(const char* file, unsigned int set, unsigned int number,
                   Strings::CStringVar& text)
{
    const char* name = std::setlocale(LC_MESSAGES, nullptr);
    // A slash would lead out of the search path.
    if (name == nullptr || std::strchr(name, '/') != nullptr)
        name = "C";
    const CLocaleName locale(name);

    TString<256> search;
    const char* const nlsPath = secure_getenv("NLSPATH");
    if (nlsPath != nullptr && *nlsPath != '\0')
        search << nlsPath << ":";
    search << SystemPath;

    TString<256> path;
    for (const char* at = search.m_Text; *at != '\0';) {
        Expand(at, file, locale, path);
        // A path without a slash would make catopen search again.
        if (std::strchr(path.m_Text, '/') == nullptr)
            path = Strings::CStringRef(std::string("./") + path.m_Text);
        if (IsSound(Content(path.m_Text)))
            return TextFrom(path.m_Text, set, number, text);
    }
    return false;
}

} // namespace Vorn::Language_Support
