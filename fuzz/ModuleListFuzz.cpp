// Fuzz target of the list of modules and of a service console's list: the name that is looked for,
// how much text comes before, and the list. The file that is opened in the end must be the one that
// a plain model, line by line, finds.
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/utsname.h>

#include <vornex/VersionCheck.h>

#include "Fuzz.h"

namespace {

const Fuzz::CMemoryFile& List()
{
    static const Fuzz::CMemoryFile file;
    return file;
}

const Fuzz::CMemoryFile& Console()
{
    static const Fuzz::CMemoryFile file;
    return file;
}

bool hasConsole = false;
int asked = 0; // times a module file was to be opened: by the name itself, then from the list
std::string askedLast;

} // namespace

int uname(utsname* kernel) noexcept
{
    *kernel = {};
    std::strcpy(kernel->release, "6.1");
    return 0;
}

int open(const char* path, int flags, ...)
{
    const char* real = nullptr;
    if (std::strcmp(path, "/lib/modules/6.1/modules.dep") == 0 && asked > 0)
        real = List().Path().c_str();
    else if (std::strcmp(path, "/proc/vmware/version") == 0 && asked == 0)
        real = hasConsole ? Console().Path().c_str() : nullptr;
    else {
        ++asked;
        askedLast = path;
    }
    if (real == nullptr) {
        errno = ENOENT;
        return -1;
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, real, flags));
}

namespace {

bool IsModule(const std::string& name, const std::string& file)
{
    if (file.size() <= name.size() || file[name.size()] != '.')
        return false;
    for (std::size_t index = 0; index < name.size(); ++index) {
        const bool dashes = (name[index] == '-' && file[index] == '_') ||
                            (name[index] == '_' && file[index] == '-');
        if (name[index] != file[index] && name[index] != ':' && !dashes)
            return false;
    }
    return true;
}

// The path to be opened, if there is one.
std::optional<std::string> Plain(const std::string& list, const std::string& name)
{
    for (std::size_t line = 0; line != std::string::npos;) {
        const std::size_t colon = list.find(':', line);
        if (colon == std::string::npos)
            return {};
        const std::size_t mark = list.find_first_not_of("\t ", line);
        const std::string path = list.substr(line, colon - line);
        const std::size_t slash = path.rfind('/');
        if (list[mark] != '#' &&
            IsModule(name, slash != std::string::npos ? path.substr(slash + 1) : path)) {
            if (path.find('\0') != std::string::npos)
                return {};
            return path[0] == '/' ? path : "/lib/modules/6.1/" + path;
        }
        line = list.find('\n', line);
        if (line != std::string::npos)
            ++line;
    }
    return {};
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    FuzzedDataProvider data(bytes, size);
    const std::string name =
        data.ConsumeBytesAsString(data.ConsumeIntegralInRange<std::size_t>(0, 12)).c_str();
    hasConsole = data.ConsumeIntegralInRange<int>(0, 7) == 0;
    // Lines before, and inside of the first line, as they fill the reader's buffer.
    std::string list;
    const bool padded = data.ConsumeIntegralInRange<int>(0, 7) == 0;
    for (int lines = padded ? data.ConsumeIntegralInRange<int>(0, 1200) : 0; lines > 0; --lines)
        list += "kernel/drivers/pad.ko: kernel/lib/dep.ko\n";
    list.append(padded ? data.ConsumeIntegralInRange<std::size_t>(0, 70000) : 0, 'p');
    const std::string text = data.ConsumeRemainingBytesAsString();
    list += text;

    asked = 0;
    askedLast.clear();
    List().Set(list);
    Console().Set(text);
    const Fuzz::CDescriptorsKept kept;
    Vorn::Strings::TString<16> version(Vorn::Strings::CStringRef("from before"));
    VornEx::GetModuleVersion(name, version);

    const std::string where = Fuzz::Readable(name) + " in " + Fuzz::Readable(text);
    if (asked == 0) {
        Fuzz::Expect(hasConsole && version.m_Length <= 6, where.c_str());
        Fuzz::Expect(text.find(std::string(version)) != std::string::npos, where.c_str());
        return 0;
    }
    Fuzz::Expect(version.m_Length == 0, where.c_str());
    const auto wanted = Plain(list, name);
    Fuzz::ExpectSame<long long>(asked, wanted ? 2 : 1, where);
    Fuzz::ExpectSame(askedLast, wanted ? *wanted : name, where);
    return 0;
}
