// The program as its users meet it: output, standard error and exit status.
#include <nlohmann/json.hpp>

#include <sys/utsname.h>

#include "ModuleFileTree.h"
#include "RunProgram.h"

namespace {

// What a subcommand says in JSON.
nlohmann::json JsonOf(const std::vector<std::string>& arguments, const std::string& input = "")
{
    const CRun run = RunProgram(Joined(arguments, {"--json"}), input);
    EXPECT_EQ(run.m_Err, "");
    return nlohmann::json::parse(run.m_Out, nullptr, false);
}

TEST(Tool, OutputAndStatus)
{
    EachRow("tool", "uses", [](const CDataRow& row) {
        std::vector<std::string> arguments;
        std::size_t at = 0;
        while (row[at] != "->")
            arguments.push_back(row[at++]);
        const int status = row.Number(++at);
        std::map<std::string, std::string> texts;
        for (++at; at < row.Size(); at += 2)
            texts[row[at]] = row[at + 1];
        const CRun run = RunProgram(arguments, texts["IN"], {"TZ=UTC"});
        EXPECT_EQ(run.m_Status, status);
        EXPECT_EQ(run.m_Out, texts["OUT"]);
        EXPECT_EQ(run.m_Err.empty(), texts["ERR"].empty()) << run.m_Err;
        EXPECT_NE(run.m_Err.find(texts["ERR"]), std::string::npos) << run.m_Err;
    });
}

// What a shell user types is what is logged; without the doubling this would read the stack.
TEST(Tool, LogsTextAsTyped)
{
    const std::vector<std::string> preload = {"LD_PRELOAD=" SYSLOG_PRELOAD};
    const CRun run =
        RunProgram({"log", "-p", "error", "-n", "12", "100% of %s and %n"}, "", preload);
    EXPECT_EQ(run.m_Status, 0);
    EXPECT_EQ(run.m_Err, "<3>[12][Error] 100% of %s and %n\n");

    const CRun empty = RunProgram({"log", ""}, "", preload);
    EXPECT_EQ(empty.m_Status, 1);
    EXPECT_NE(empty.m_Err.find("Invalid parameter (0x20050002)"), std::string::npos);
}

TEST(Tool, ReportAgreesWithTheSystem)
{
    const auto report = JsonOf({"report"});
    ASSERT_TRUE(report.is_object());
    char name[256] = "";
    ASSERT_EQ(gethostname(name, sizeof name), 0);
    EXPECT_EQ(report["host"]["name"], name);
    utsname kernel;
    ASSERT_EQ(uname(&kernel), 0);
    EXPECT_EQ(report["os"]["kernel"]["release"], kernel.release);
    EXPECT_NE(report["os"]["architecture"].get<std::string>().find("x86-"), std::string::npos);
    EXPECT_EQ(report["processor"]["vendor"].get<std::string>().size(), 12U);
    const auto now = report["time"]["milliseconds"].get<long long>() / 1000;
    EXPECT_NEAR(static_cast<double>(now), static_cast<double>(time(nullptr)), 60);

    const CRun text = RunProgram({"report"});
    EXPECT_NE(text.m_Out.find(name), std::string::npos);
    EXPECT_EQ(text.m_Out.find('\033'), std::string::npos) << "colour without a terminal";
}

TEST(Tool, TraceGoesToStandardError)
{
    const CRun run = RunProgram({"cpu", "--trace"});
    EXPECT_NE(run.m_Err.find("vornex 0x10 Src/Str2Num.cpp:84 processorInfo ()"), std::string::npos);
    EXPECT_EQ(RunProgram({"cpu", "--trace=0x2"}).m_Err, "");
}

TEST(Tool, ModulesAreShownThoughOneFails)
{
    const CScratchFolder folder;
    const std::string path = folder.m_Path + "/module.ko";
    WriteFile(path, CModuleImage(true, "version=7.3.21-k8\x1B[1m").m_Bytes);
    const CRun run = RunProgram({"module", "no_such_module", path});
    EXPECT_EQ(run.m_Status, 1);
    EXPECT_EQ(run.m_Err, "vornex: no_such_module: no version found\n");
    EXPECT_EQ(run.m_Out, "  " + path + "  7.3.21-k8?[1m\n"); // nothing acts on the terminal
    EXPECT_EQ(JsonOf({"module", path})["modules"][0]["version"], "7.3.21-k8\x1B[1m");
}

TEST(Tool, PciListAndLookUpAgree)
{
    const auto devices = JsonOf({"pci"})["devices"];
    EXPECT_EQ(JsonOf({"report"})["pci"], devices);
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

TEST(Tool, MatchesAndOrderAsJson)
{
    EXPECT_EQ(JsonOf({"compare", "1", "2"})["order"], "<");
    EXPECT_EQ(JsonOf({"match", "--all", "(a)(b)?"}, "x\nab a\n"),
              nlohmann::json::parse(R"({"matched": true, "lines": [{
        "line": 2, "text": "ab a", "matches": [
            {"groups": [{"begin": 0, "end": 2, "text": "ab"}, {"begin": 0, "end": 1, "text": "a"},
                        {"begin": 1, "end": 2, "text": "b"}]},
            {"groups": [{"begin": 3, "end": 4, "text": "a"}, {"begin": 3, "end": 4, "text": "a"},
                        null]}]}]})"));
    EXPECT_EQ(RunProgram({"match", "--json", "q"}, "x\n").m_Status, 1);
}

} // namespace
