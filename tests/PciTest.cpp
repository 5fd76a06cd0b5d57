// Addresses of PCI devices, beside lspci on this machine's devices.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include <vornex/ConfigManager.h>

#include "Shell.h"

namespace {

using Names = std::vector<std::string>;

// "domain:bus:device.function" as lspci writes it; the outputs are untouched where nothing is
// found.
template <class Call>
std::string Found(Call call)
{
    int address[] = {-1, -2, -3, -4};
    if (!call(address[0], address[1], address[2], address[3])) {
        EXPECT_TRUE(address[0] == -1 && address[1] == -2 && address[2] == -3 && address[3] == -4);
        return "none";
    }
    char text[32];
    std::snprintf(text, sizeof text, "%04x:%02x:%02x.%x", address[0], address[1], address[2],
                  address[3]);
    return text;
}

std::string Find(const std::string& vendor, const std::string& device, std::size_t instance)
{
    return Found([&](auto&... address) {
        return VornEx::CConfigManager().GetLocation(
            vendor, device, static_cast<unsigned int>(instance), address...);
    });
}

std::string Find(const Names& pairs, std::size_t instance)
{
    std::vector<Vorn::Strings::CStringEx> ids;
    for (const auto& pair : pairs)
        ids.emplace_back(pair);
    return Found([&](auto&... address) {
        return VornEx::CConfigManager().GetLocation(ids, static_cast<unsigned int>(instance),
                                                    address...);
    });
}

std::string Upper(std::string text)
{
    for (char& character : text)
        character = static_cast<char>(std::toupper(character));
    return text;
}

class Pci : public testing::Test
{
protected:
    void SetUp() override
    {
        for (const auto& line : OutputOf("lspci -n -D")) {
            char address[16];
            char vendor[5];
            char id[5];
            if (std::sscanf(line.c_str(), "%15s %*s %4[0-9a-f]:%4[0-9a-f]", address, vendor, id) ==
                3)
                m_Devices[vendor + std::string(id)].insert(address);
        }
        if (m_Devices.empty())
            GTEST_SKIP() << "lspci shows no devices here";
    }

    std::map<std::string, std::set<std::string>> m_Devices; // addresses by identifiers
};

TEST_F(Pci, AsLspciSays)
{
    for (const auto& [id, addresses] : m_Devices) {
        SCOPED_TRACE(id);
        const std::string vendor = id.substr(0, 4);
        const std::string device = id.substr(4);
        std::set<std::string> found;
        for (std::size_t instance = 1; instance <= addresses.size(); ++instance) {
            const std::string address = Find(vendor, device, instance);
            found.insert(address);
            EXPECT_EQ(Find(Upper(vendor), Upper(device), instance), address);
            EXPECT_EQ(Find({Upper(id)}, instance), address);
        }
        EXPECT_EQ(found, addresses);
        for (const std::size_t outside : {std::size_t{0}, addresses.size() + 1}) {
            EXPECT_EQ(Find(vendor, device, outside), "none");
            EXPECT_EQ(Find({id}, outside), "none");
        }
    }
}

TEST_F(Pci, OddIdentifiers)
{
    const std::string id = m_Devices.begin()->first;
    const std::string vendor = id.substr(0, 4);
    const std::string device = id.substr(4);
    for (const auto& [wrongVendor, wrongDevice] :
         std::map<std::string, std::string>{{"0x" + vendor, "0x" + device},
                                            {vendor.substr(1), device},
                                            {vendor, device + "0"},
                                            {"", ""},
                                            {device, vendor}})
        EXPECT_EQ(Find(wrongVendor, wrongDevice, 1), "none") << wrongVendor << ":" << wrongDevice;
    EXPECT_EQ(Find(Names{}, 1), "none");
    EXPECT_EQ(Find({id.substr(1), id + "0", vendor + "zzzz", ""}, 1), "none");
}

// A device counts once for every element that names it.
TEST_F(Pci, PairsCountNotDevices)
{
    const auto& [id, addresses] = *m_Devices.begin();
    const Names twice = {id, "0", Upper(id)};
    const std::string first = Find(Names{id}, 1);
    EXPECT_EQ(Find(twice, 1), first);
    EXPECT_EQ(Find(twice, 2), first);
    EXPECT_EQ(Find(twice, 2 * addresses.size()), Find(Names{id}, addresses.size()));
    EXPECT_EQ(Find(twice, 2 * addresses.size() + 1), "none");
}

} // namespace
