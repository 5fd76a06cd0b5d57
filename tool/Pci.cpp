// vornex pci: the devices on the PCI bus with their drivers, and where a certain one sits.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>

#include <vornex/ConfigManager.h>
#include <vornex/VersionCheck.h>

#include "PciNames.h"
#include "Program.h"
#include "Section.h"

namespace Tool {

namespace {

constexpr const char* DevicesFolder = "/sys/bus/pci/devices";

struct CDevice
{
    std::string m_Address; // 0000:00:1f.2
    std::uint16_t m_Vendor = 0;
    std::uint16_t m_Device = 0;
    std::uint16_t m_Class = 0; // class and subclass
    std::string m_Driver;      // empty when none is bound
    std::string m_Module;      // ... of the driver; empty when it is built into the kernel
    std::string m_Version;     // ... of the module; empty when it has none
};

std::string Hex4(unsigned int value)
{
    char text[8];
    std::snprintf(text, sizeof text, "%04x", value & 0xFFFFU);
    return text;
}

unsigned int ReadHex(const std::filesystem::path& path)
{
    unsigned int value = 0;
    std::ifstream(path) >> std::hex >> value;
    return value;
}

// The last part of what a symbolic link names; empty when there is none.
std::string LinkName(const std::filesystem::path& path)
{
    std::error_code error;
    return std::filesystem::read_symlink(path, error).filename();
}

CDevice ReadDevice(const std::filesystem::path& folder)
{
    CDevice device;
    device.m_Address = folder.filename();
    device.m_Vendor = static_cast<std::uint16_t>(ReadHex(folder / "vendor"));
    device.m_Device = static_cast<std::uint16_t>(ReadHex(folder / "device"));
    device.m_Class = static_cast<std::uint16_t>(ReadHex(folder / "class") >> 8U);
    device.m_Driver = LinkName(folder / "driver");
    device.m_Module = LinkName(folder / "driver" / "module");
    if (!device.m_Module.empty()) {
        Vorn::Strings::TString<32> version;
        VornEx::GetModuleVersion(device.m_Module, version);
        device.m_Version = version.m_Text;
    }
    return device;
}

// In the order of their addresses; none where there is no PCI bus.
std::vector<CDevice> Devices()
{
    std::vector<CDevice> devices;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(DevicesFolder, error))
        devices.push_back(ReadDevice(entry.path()));
    std::sort(devices.begin(), devices.end(), [](const CDevice& left, const CDevice& right) {
        return left.m_Address < right.m_Address;
    });
    return devices;
}

struct COptions
{
    std::vector<std::string> m_Ids;
    unsigned int m_Instance = 1;
    bool m_Json = false;
};

// "8086:100e" as the library wants it.
std::string PairOf(const std::string& id)
{
    std::string digits = id;
    if (digits.size() == 9 && digits[4] == ':')
        digits.erase(4, 1);
    const bool good = digits.size() == 8 && id.size() == 9 &&
                      std::all_of(digits.begin(), digits.end(), [](unsigned char character) {
                          return std::isxdigit(character) != 0;
                      });
    if (!good)
        throw CUsageError("not VENDOR:DEVICE in four hexadecimal digits each: " + id);
    return digits;
}

int Locate(const COptions& options)
{
    VornEx::CConfigManager manager;
    int domain = 0;
    int bus = 0;
    int device = 0;
    int function = 0;
    bool found = false;
    std::vector<Vorn::Strings::CStringEx> pairs;
    for (const auto& id : options.m_Ids)
        pairs.emplace_back(PairOf(id));
    if (options.m_Ids.size() == 1) {
        const std::string& id = options.m_Ids.front();
        found = manager.GetLocation(id.substr(0, 4), id.substr(5), options.m_Instance, domain, bus,
                                    device, function);
    } else {
        found = manager.GetLocation(pairs, options.m_Instance, domain, bus, device, function);
    }
    if (!found) {
        Complain("there is no such device");
        return Failed;
    }
    char address[32];
    std::snprintf(address, sizeof address, "%04x:%02x:%02x.%x", static_cast<unsigned int>(domain),
                  static_cast<unsigned int>(bus), static_cast<unsigned int>(device),
                  static_cast<unsigned int>(function));
    if (options.m_Json)
        Print(Json{{"address", address},
                   {"domain", domain},
                   {"bus", bus},
                   {"device", device},
                   {"function", function}});
    else
        std::cout << address << '\n';
    return Done;
}

int Pci(const COptions& options)
{
    if (!options.m_Ids.empty())
        return Locate(options);
    CSection section = PciSection();
    section.m_Json = Json{{"devices", section.m_Json}};
    return PrintSection(section, options.m_Json);
}

} // namespace

CSection PciSection()
{
    CSection section;
    section.m_Text.m_Title = "PCI devices";
    section.m_Json = Json::array();
    const std::vector<CDevice> devices = Devices();
    if (devices.empty()) {
        section.m_Text.m_Rows.emplace_back("none", "");
        return section;
    }
    const CPciNames names;
    CTable table;
    table.m_Head = {"Address", "Identity", "Driver", "Version", "Class", "Name"};
    for (const auto& device : devices) {
        const std::string name = names.Device(device.m_Vendor, device.m_Device);
        const std::string className = names.Class(device.m_Class);
        table.m_Rows.push_back(
            {device.m_Address, Hex4(device.m_Vendor) + ":" + Hex4(device.m_Device), device.m_Driver,
             device.m_Version, className.empty() ? Hex4(device.m_Class) : className, name});
        section.m_Json.push_back({{"address", device.m_Address},
                                  {"vendor", Hex4(device.m_Vendor)},
                                  {"device", Hex4(device.m_Device)},
                                  {"class", Hex4(device.m_Class)},
                                  {"class_name", className},
                                  {"name", name},
                                  {"driver", device.m_Driver},
                                  {"module", device.m_Module},
                                  {"version", device.m_Version}});
    }
    section.m_Text.m_Tables.push_back(std::move(table));
    return section;
}

void AddPci(CProgram& program)
{
    const auto command =
        program.Add("pci", "PCI devices with their drivers, or the address of one", Pci);
    COptions& options = *command.m_Options;
    CLI::Option* const ids =
        command.m_App->add_option("VENDOR:DEVICE", options.m_Ids,
                                  "Print the address of the device with one of these identifiers");
    command.m_App
        ->add_option("-n,--instance", options.m_Instance,
                     "Which one of several, counted from 1 (default 1)")
        ->needs(ids);
    AddJson(command.m_App, options.m_Json);
}

} // namespace Tool
