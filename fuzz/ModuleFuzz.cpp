// Fuzz target of module files: raw bytes, or an ELF object with a few bytes of it overwritten. The
// version must be that of a plain model that has the whole file in a string.
#include <algorithm>
#include <cstring>
#include <optional>

#include <vornex/VersionCheck.h>

#include "../tests/ModuleFileTree.h"
#include "Fuzz.h"

namespace {

// A number of the file, of `width` bytes; what lies outside ends the walk.
std::optional<std::uint64_t> Number(const std::string& file, std::uint64_t at, std::size_t width)
{
    if (at > file.size() || file.size() - at < width)
        return {};
    std::uint64_t value = 0;
    std::memcpy(&value, file.data() + at, width);
    return value;
}

// The value of "version=" among the entries that begin at `at`.
std::string ValueOf(const std::string& file, std::uint64_t at, std::uint64_t end)
{
    static const std::string Key = "version=";
    for (;;) {
        if (end - at < Key.size() || at > file.size() || file.size() - at < Key.size())
            return {};
        if (file.compare(at, Key.size(), Key) == 0)
            break;
        at = file.find('\0', at);
        at = at == std::string::npos ? at : file.find_first_not_of('\0', at);
        if (at >= std::min<std::uint64_t>(end, file.size()))
            return {};
    }
    at += Key.size();
    std::string value;
    for (; at != end; ++at) {
        if (at == file.size())
            return {}; // cut
        if (file[at] == '\0' || std::isspace(static_cast<unsigned char>(file[at])) != 0)
            break;
        value += file[at];
    }
    return value;
}

std::string Plain(const std::string& file)
{
    static const std::string Name(".modinfo", 9);
    if (file.size() < 5 ||
        file.compare(0, 4,
                     "\x7F"
                     "ELF") != 0 ||
        (file[4] != 1 && file[4] != 2))
        return {};
    const bool wide = file[4] == 2;
    if (file.size() < (wide ? 64U : 52U))
        return {};
    const std::uint64_t table = *Number(file, wide ? 40 : 32, 4);
    const std::uint64_t count = *Number(file, wide ? 60 : 48, 2);
    const std::uint64_t namesIndex = *Number(file, wide ? 62 : 50, 2);
    const std::uint64_t headerSize = wide ? 64 : 40;
    const auto header = [&](std::uint64_t index) -> std::optional<std::uint64_t> {
        const std::uint64_t at = table + index * headerSize;
        if (at > file.size() || file.size() - at < headerSize)
            return {};
        return at;
    };
    if (count < 2 || namesIndex >= count || !header(namesIndex))
        return {};
    const std::uint64_t offsetField = wide ? 24 : 16;
    const std::uint64_t sizeField = wide ? 32 : 20;
    const std::uint64_t names = *Number(file, *header(namesIndex) + offsetField, 4);
    for (std::uint64_t index = 1; index < count; ++index) {
        const auto at = header(index);
        if (!at)
            return {};
        const std::uint64_t name = names + *Number(file, *at, 4);
        if (name > file.size() || file.size() - name < Name.size() ||
            file.compare(name, Name.size(), Name) != 0)
            continue;
        const std::uint64_t begin = *Number(file, *at + offsetField, 4);
        return ValueOf(file, begin, begin + *Number(file, *at + sizeField, 4));
    }
    return {};
}

std::string MadeModule(FuzzedDataProvider& data)
{
    // Long enough for values and keys that cross the reader's window.
    std::string info(data.ConsumeIntegralInRange<std::size_t>(0, 5000), 'k');
    const bool wide = data.ConsumeBool();
    const int patches = data.ConsumeIntegralInRange<int>(0, 4);
    struct
    {
        unsigned int m_Field, m_Section;
        std::uint64_t m_Value;
    } patch[4] = {};
    for (int index = 0; index < patches; ++index)
        patch[index] = {data.ConsumeIntegralInRange<unsigned int>(0, 4),
                        data.ConsumeIntegralInRange<unsigned int>(0, 3),
                        data.ConsumeBool() ? data.ConsumeIntegralInRange<std::uint64_t>(0, 8192)
                                           : data.ConsumeIntegral<std::uint64_t>()};
    const std::size_t cut =
        data.ConsumeBool() ? data.ConsumeIntegralInRange<std::size_t>(0, 8192) : std::string::npos;
    info += data.ConsumeRemainingBytesAsString();

    CModuleImage module(wide, info);
    for (int index = 0; index < patches; ++index) {
        const auto& [field, section, value] = patch[index];
        const std::size_t places[] = {module.OffsetField(section), module.SizeField(section),
                                      module.Header(section), wide ? 40U : 32U, wide ? 60U : 48U};
        module.Number(places[field], value, field == 4 ? 4 : field == 2 ? 4 : module.Width());
    }
    module.m_Bytes.resize(std::min(cut, module.m_Bytes.size()));
    return module.m_Bytes;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    static const Fuzz::CMemoryFile file;
    FuzzedDataProvider data(bytes, size);
    const std::string module =
        data.ConsumeBool() ? MadeModule(data) : data.ConsumeRemainingBytesAsString();
    file.Set(module);
    const Fuzz::CDescriptorsKept kept;
    Vorn::Strings::TString<16> version(Vorn::Strings::CStringRef("from before"));
    VornEx::GetModuleVersion(file.Path(), version);
    Fuzz::ExpectSame(std::string(version), Plain(module), "version");
    return 0;
}
