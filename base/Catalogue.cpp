// catopen(3) believes the table sizes in a catalogue's header and reads outside the file when they
// are wrong. So the search that it would make is made here, each file found is held against its own
// size, and only a sound one is handed to it by its full path.
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

bool ReadExact(int descriptor, void* buffer, std::size_t size, std::uint64_t position)
{
    char* at = static_cast<char*>(buffer);
    while (size != 0) {
        const ssize_t got = pread(descriptor, at, size, static_cast<off_t>(position));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        at += got;
        size -= static_cast<std::size_t>(got);
        position += static_cast<std::uint64_t>(got);
    }
    return true;
}

// Whether the tables that the header announces lie inside the file, with texts behind them.
bool IsSound(int descriptor)
{
    struct stat status
    {};
    std::uint32_t header[3];
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode) ||
        !ReadExact(descriptor, header, sizeof header, 0))
        return false;
    if (header[0] == MagicSwapped) {
        for (auto& word : header)
            word = __builtin_bswap32(word);
    }
    if (header[0] != Magic)
        return false;

    const auto fileSize = static_cast<std::uint64_t>(status.st_size);
    constexpr std::uint64_t BytesPerSlot = 2 * 3 * sizeof(std::uint32_t);
    const std::uint64_t slots = static_cast<std::uint64_t>(header[1]) * header[2];
    return slots != 0 && slots <= fileSize / BytesPerSlot &&
           sizeof header + slots * BytesPerSlot < fileSize;
}

bool SoundFile(const char* path)
{
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0)
        return false;
    const bool sound = IsSound(descriptor);
    close(descriptor);
    return sound;
}

bool TextFrom(const char* path, unsigned int set, unsigned int number, Strings::CStringVar& text)
{
    const nl_catd catalogue = catopen(path, NL_CAT_LOCALE);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the failure value that catopen defines
    if (catalogue == reinterpret_cast<nl_catd>(-1))
        return false;
    const char* const found =
        catgets(catalogue, static_cast<int>(set), static_cast<int>(number), nullptr);
    if (found != nullptr)
        text = found;
    catclose(catalogue);
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
        if (SoundFile(path.m_Text))
            return TextFrom(path.m_Text, set, number, text);
    }
    return false;
}

} // namespace Vorn::Language_Support
