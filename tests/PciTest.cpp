// Addresses of PCI devices, beside lspci on this machine's devices.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <vornex/ConfigManager.h>

namespace {

using Address = std::tuple<int, int, int, int>;
using Ids = std::vector<Vorn::Strings::CStringEx>;

constexpr Address Untouched = {-1, -2, -3, -4};

Address Find(const std::string& vendor, const std::string& device, unsigned int instance)
{
    auto [domain, bus, dev, func] = Untouched;
    const Address before = Untouched;
    const bool found =
        VornEx::CConfigManager().GetLocation(vendor, device, instance, domain, bus, dev, func);
    const Address address = {domain, bus, dev, func};
    EXPECT_EQ(found, address != before);
    return address;
}

Address Find(Ids ids, unsigned int instance)
{
    auto [domain, bus, dev, func] = Untouched;
    const bool found = VornEx::CConfigManager().GetLocation(ids, instance, domain, bus, dev, func);
    const Address address = {domain, bus, dev, func};
    EXPECT_EQ(found, address != Untouched);
    return address;
}

Ids Pairs(const std::vector<std::string>& texts)
{
    Ids ids;
    for (const auto& text : texts)
        ids.emplace_back(text);
    return ids;
}

std::string Upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char character) {
        return static_cast<char>(std::toupper(character));
    });
    return text;
}

class Pci : public testing::Test
{
protected:
    void SetUp() override
    {
        std::FILE* const output = popen("lspci -n -D", "r");
        ASSERT_NE(output, nullptr);
        char line[256];
        while (std::fgets(line, sizeof line, output) != nullptr) {
            unsigned int domain = 0;
            unsigned int bus = 0;
            unsigned int device = 0;
            unsigned int function = 0;
            char vendor[5];
            char id[5];
            if (std::sscanf(line, "%x:%x:%x.%x %*s %4[0-9a-f]:%4[0-9a-f]", &domain, &bus, &device,
                            &function, vendor, id) != 6)
                continue;
            m_Devices[vendor + std::string(id)].insert(
                {static_cast<int>(domain), static_cast<int>(bus), static_cast<int>(device),
                 static_cast<int>(function)});
        }
        if (pclose(output) != 0 || m_Devices.empty())
            GTEST_SKIP() << "lspci shows no devices here";
    }

    std::map<std::string, std::set<Address>> m_Devices; // by identifiers
};

TEST_F(Pci, AsLspciSays)
{
    for (const auto& [id, addresses] : m_Devices) {
        SCOPED_TRACE(id);
        std::set<Address> found;
        for (unsigned int instance = 1; instance <= addresses.size(); ++instance) {
            const Address address = Find(id.substr(0, 4), id.substr(4), instance);
            found.insert(address);
            EXPECT_EQ(Find(Upper(id.substr(0, 4)), Upper(id.substr(4)), instance), address);
            EXPECT_EQ(Find(Pairs({Upper(id)}), instance), address);
        }
        EXPECT_EQ(found, addresses);
        const auto beyond = static_cast<unsigned int>(addresses.size()) + 1;
        EXPECT_EQ(Find(id.substr(0, 4), id.substr(4), beyond), Untouched);
        EXPECT_EQ(Find(id.substr(0, 4), id.substr(4), 0), Untouched);
        EXPECT_EQ(Find(Pairs({id}), beyond), Untouched);
        EXPECT_EQ(Find(Pairs({id}), 0), Untouched);
    }
}

TEST_F(Pci, OddIdentifiers)
{
    const std::string id = m_Devices.begin()->first;
    const std::string vendor = id.substr(0, 4);
    const std::string device = id.substr(4);
    EXPECT_EQ(Find("0x" + vendor, "0x" + device, 1), Untouched);
    EXPECT_EQ(Find(vendor.substr(1), device, 1), Untouched);
    EXPECT_EQ(Find(vendor, device + "0", 1), Untouched);
    EXPECT_EQ(Find("", "", 1), Untouched);
    EXPECT_EQ(Find(device, vendor, 1), Untouched);
    EXPECT_EQ(Find(Pairs({}), 1), Untouched);
    EXPECT_EQ(Find(Pairs({id.substr(1), id + "0", vendor + "zzzz", ""}), 1), Untouched);
}

// A device counts once for every element that names it.
TEST_F(Pci, PairsCountNotDevices)
{
    const auto& [id, addresses] = *m_Devices.begin();
    const Address first = Find(Pairs({id}), 1);
    const Ids twice = Pairs({id, "0", Upper(id)});
    EXPECT_EQ(Find(twice, 1), first);
    EXPECT_EQ(Find(twice, 2), first);
    const auto count = static_cast<unsigned int>(addresses.size());
    EXPECT_EQ(Find(twice, 2 * count), Find(Pairs({id}), count));
    EXPECT_EQ(Find(twice, 2 * count + 1), Untouched);
}

} // namespace
