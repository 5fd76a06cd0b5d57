// The file, as pciutils keeps it:
//
//     8086  Intel Corporation
//     \t1572  Ethernet Controller X710 for 10GbE SFP+
//     \t\t8086 0001  a subsystem
//     C 02  Network controller
//     \t00  Ethernet controller
//     \t\t00  a programming interface
//
// Numbers are hexadecimal; "#" begins a comment line. A line that starts with another letter opens
// a list of another kind.
//
// Of its 38,000 lines a report needs a few: vendors and classes are noted where they stand, and
// what belongs to one is looked through when it is asked for.
#include "PciNames.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>

namespace Tool {

namespace {

// The most recent copy first: what update-pciids fetched, then what distributions install.
constexpr const char* Files[] = {
    "/var/lib/pciutils/pci.ids",
    "/usr/share/misc/pci.ids",
    "/usr/share/hwdata/pci.ids",
    "/usr/share/pci.ids",
};

// "1572  Some name": the number of so many digits, and the name behind the two blanks.
bool Split(std::string_view line, std::size_t digits, std::uint32_t& number, std::string_view& name)
{
    if (line.size() < digits + 2 || line.substr(digits, 2) != "  ")
        return false;
    const char* const end = line.data() + digits;
    const auto result = std::from_chars(line.data(), end, number, 16);
    name = line.substr(digits + 2);
    return result.ec == std::errc() && result.ptr == end;
}

// Takes the first line off a text.
std::string_view TakeLine(std::string_view& text)
{
    const std::size_t length = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
    return line;
}

// The name of a number of so many digits among lines that are indented once; empty when there is
// none.
std::string_view FindBelow(std::string_view lines, std::size_t digits, std::uint32_t wanted)
{
    std::uint32_t number = 0;
    std::string_view name;
    while (!lines.empty()) {
        const std::string_view line = TakeLine(lines);
        if (line.size() > 1 && line[0] == '\t' && Split(line.substr(1), digits, number, name) &&
            number == wanted)
            return name;
    }
    return {};
}

// The first of the files that there is, whole.
std::string ReadNames()
{
    std::string text;
    for (const char* const path : Files) {
        std::error_code error; // also for what is no file
        const auto size = std::filesystem::file_size(path, error);
        std::ifstream file(path, std::ios::binary);
        if (error || !file.is_open())
            continue;
        text.resize(static_cast<std::size_t>(size));
        file.read(text.data(), static_cast<std::streamsize>(text.size()));
        text.resize(static_cast<std::size_t>(file.gcount()));
        break;
    }
    return text;
}

} // namespace

CPciNames::CPciNames() : m_Text(ReadNames())
{
    CEntry none;
    CEntry* above = &none; // the vendor or class that the indented lines belong to
    std::string_view rest = m_Text;
    while (!rest.empty()) {
        const std::string_view line = TakeLine(rest);
        if (line.empty() || line[0] == '#')
            continue;
        if (line[0] == '\t') {
            const char* const start = above->m_Below.empty() ? line.data() : above->m_Below.data();
            above->m_Below = {start, static_cast<std::size_t>(line.data() + line.size() - start)};
            continue;
        }
        std::uint32_t number = 0;
        CEntry entry;
        if (Split(line, 4, number, entry.m_Name))
            above = &(m_Vendors[number] = entry);
        else if (line.substr(0, 2) == "C " && Split(line.substr(2), 2, number, entry.m_Name))
            above = &(m_Classes[number] = entry);
        else
            above = &(none = {});
    }
}

std::string CPciNames::Device(std::uint16_t vendor, std::uint16_t device) const
{
    const auto maker = m_Vendors.find(vendor);
    if (maker == m_Vendors.end())
        return {};
    const std::string_view name = FindBelow(maker->second.m_Below, 4, device);
    std::string text(maker->second.m_Name);
    if (!text.empty() && !name.empty())
        text += ' ';
    return text.append(name);
}

std::string CPciNames::Class(std::uint16_t code) const
{
    const auto entry = m_Classes.find(code >> 8U);
    if (entry == m_Classes.end())
        return {};
    const std::string_view name = FindBelow(entry->second.m_Below, 2, code & 0xFFU);
    return std::string(name.empty() ? entry->second.m_Name : name);
}

} // namespace Tool
