// vornex compare, module and pci: what a shell sees of them.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "ModuleFileTree.h"
#include "RunProgram.h"
#include "ScratchFolder.h"

namespace {

using Words = std::vector<std::string>;

TEST(CompareTool, OrderAndStatus)
{
    const struct
    {
        Words m_Arguments;
        const char* m_Out;
        int m_Status;
    } rows[] = {
        {{"1.2.9", "1.2.10"}, "<\n", 0},
        {{"1.2.10", "1.2.10"}, "=\n", 0},
        {{"1.2.10", "1.2.9"}, ">\n", 0},
        {{"1.10", "1.9.1"}, "<\n", 0},
        {{"1.10", "1.9.1", "-n", "2"}, ">\n", 0},
        {{"--quiet", "1", "2"}, "", 10},
        {{"--quiet", "2", "2"}, "", 0},
        {{"--quiet", "3", "2"}, "", 11},
        {{"1.x", "1.2"}, ">\n", 0}, // no complaint of what is no number
        {{"", ""}, "=\n", 0},
        {{"1"}, "", 2},
        {{"1", "2", "-n", "-1"}, "", 2},
        {{"1", "2", "--quiet", "--json"}, "", 2},
    };
    for (const auto& row : rows) {
        Words arguments = {"compare"};
        arguments.insert(arguments.end(), row.m_Arguments.begin(), row.m_Arguments.end());
        const CRun run = RunProgram(arguments);
        const std::string name = testing::PrintToString(row.m_Arguments);
        EXPECT_EQ(run.m_Status, row.m_Status) << name;
        EXPECT_EQ(run.m_Out, row.m_Out) << name;
        EXPECT_EQ(run.m_Err.empty(), row.m_Status != 2) << name;
    }
    const auto json = nlohmann::json::parse(RunProgram({"compare", "--json", "1", "2"}).m_Out);
    EXPECT_EQ(json["order"], "<");
}

TEST(ModuleTool, OthersAreShownWhenOneFails)
{
    const CScratchFolder folder;
    const std::string path = folder.m_Path + "/module.ko";
    WriteFile(path, CModuleImage(true, "version=7.3.21-k8\x1B[1m").m_Bytes);
    const CRun run = RunProgram({"module", "no_such_module", path});
    EXPECT_EQ(run.m_Status, 1);
    EXPECT_EQ(run.m_Err, "vornex: no_such_module: no version found\n");
    EXPECT_EQ(run.m_Out, "  " + path + "  7.3.21-k8?[1m\n"); // nothing acts on the terminal

    const CRun good = RunProgram({"module", "--json", path});
    EXPECT_EQ(good.m_Status, 0);
    const auto json = nlohmann::json::parse(good.m_Out);
    EXPECT_EQ(json["modules"][0]["version"], "7.3.21-k8\x1B[1m");
}

TEST(PciTool, ListAndLookUpAgree)
{
    for (const char* const wrong : {"8086", "8086:100", "8086:100g", "0x8086:0x100e", ""})
        EXPECT_EQ(RunProgram({"pci", wrong}).m_Status, 2) << wrong;
    const CRun none = RunProgram({"pci", "ffff:ffff"});
    EXPECT_EQ(none.m_Status, 1);
    EXPECT_EQ(none.m_Err, "vornex: there is no such device\n");

    const auto report = nlohmann::json::parse(RunProgram({"report", "--json"}).m_Out);
    const auto devices = nlohmann::json::parse(RunProgram({"pci", "--json"}).m_Out)["devices"];
    EXPECT_EQ(report["pci"], devices);
    if (devices.empty())
        GTEST_SKIP() << "no PCI devices here";
    std::map<std::string, int> seen;
    for (const auto& device : devices) {
        const std::string id =
            device["vendor"].get<std::string>() + ":" + device["device"].get<std::string>();
        const CRun run = RunProgram({"pci", id, "-n", std::to_string(++seen[id])});
        EXPECT_EQ(run.m_Out, device["address"].get<std::string>() + "\n") << id;
    }
}

} // namespace
