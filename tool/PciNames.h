// Names of PCI vendors, devices and classes, from the system's pci.ids.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

namespace Tool {

// All names are empty where the system has no pci.ids, or does not know the number.
class CPciNames
{
public:
    // Reads the first pci.ids that the system has.
    CPciNames();

    // "Intel Corporation Ethernet Controller X710", or the vendor's name alone.
    std::string Device(std::uint16_t vendor, std::uint16_t device) const;
    // Of a class and subclass, such as 0x0200: "Ethernet controller". The class's name where that
    // of the subclass is not known.
    std::string Class(std::uint16_t code) const;

private:
    using Names = std::unordered_map<std::uint32_t, std::string>;

    Names m_Vendors;
    Names m_Devices; // by vendor << 16 | device
    Names m_Classes;
    Names m_Subclasses; // by class << 8 | subclass
};

} // namespace Tool
