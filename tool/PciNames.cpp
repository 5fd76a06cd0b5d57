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
#include "PciNames.h"

#include <charconv>
#include <fstream>
#include <string_view>

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

std::string Find(const std::unordered_map<std::uint32_t, std::string>& names, std::uint32_t number)
{
    const auto found = names.find(number);
    return found == names.end() ? std::string() : found->second;
}

} // namespace

CPciNames::CPciNames()
{
    std::ifstream file;
    for (const char* const path : Files) {
        file.open(path);
        if (file.is_open())
            break;
    }

    enum class List
    {
        Vendors,
        Classes,
        Others,
    } list = List::Vendors;
    std::uint32_t above = 0; // the vendor, or class, that the indented lines belong to
    std::uint32_t number = 0;
    std::string_view name;
    for (std::string line; std::getline(file, line);) {
        const std::string_view text(line);
        if (text.empty() || text[0] == '#' || text.substr(0, 2) == "\t\t")
            continue;
        if (text[0] == '\t') {
            if (list == List::Vendors && Split(text.substr(1), 4, number, name))
                m_Devices[above << 16U | number] = name;
            else if (list == List::Classes && Split(text.substr(1), 2, number, name))
                m_Subclasses[above << 8U | number] = name;
        } else if (Split(text, 4, above, name)) {
            list = List::Vendors;
            m_Vendors[above] = name;
        } else if (text.substr(0, 2) == "C " && Split(text.substr(2), 2, above, name)) {
            list = List::Classes;
            m_Classes[above] = name;
        } else {
            list = List::Others;
        }
    }
}

std::string CPciNames::Device(std::uint16_t vendor, std::uint16_t device) const
{
    const std::string maker = Find(m_Vendors, vendor);
    const std::string name = Find(m_Devices, std::uint32_t{vendor} << 16U | device);
    return maker.empty() || name.empty() ? maker + name : maker + " " + name;
}

std::string CPciNames::Class(std::uint16_t code) const
{
    const std::string name = Find(m_Subclasses, code);
    return name.empty() ? Find(m_Classes, code >> 8U) : name;
}

} // namespace Tool
