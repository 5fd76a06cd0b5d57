// Names of PCI vendors, devices and classes, from the system's pci.ids.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace Tool {

// All names are empty where the system has no pci.ids, or does not know the number.
class CPciNames
{
public:
    CPciNames(const CPciNames&) = delete;
    CPciNames& operator=(const CPciNames&) = delete;

    // Reads the first pci.ids that the system has.
    CPciNames();

    // "Intel Corporation Ethernet Controller X710", or the vendor's name alone.
    std::string Device(std::uint16_t vendor, std::uint16_t device) const;
    // Of a class and subclass, such as 0x0200: "Ethernet controller". The class's name where that
    // of the subclass is not known.
    std::string Class(std::uint16_t code) const;

private:
    // A vendor or class: its name, and the indented lines below its own.
    struct CEntry
    {
        std::string_view m_Name;
        std::string_view m_Below;
    };
    using Entries = std::unordered_map<std::uint32_t, CEntry>;

    std::string m_Text; // the whole file, which the entries are parts of
    Entries m_Vendors;
    Entries m_Classes;
};

} // namespace Tool
