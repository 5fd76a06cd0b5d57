// vornex cpu, and the processor's section of the report.
#include <cstring>

#include <vornex/Utilities.h>

#include "Program.h"
#include "Section.h"

namespace Tool {

namespace {

enum Register
{
    EAX,
    EBX,
    ECX,
    EDX
};

std::string Vendor()
{
    unsigned int registers[4];
    VornEx::cpuID(0, registers);
    const unsigned int words[3] = {registers[EBX], registers[EDX], registers[ECX]};
    char text[sizeof words + 1] = "";
    std::memcpy(text, words, sizeof words);
    return text;
}

// The processor's own name for itself; empty where it has none.
std::string Model()
{
    constexpr unsigned int Extended = 0x80000000;
    constexpr unsigned int NameLeaf = 0x80000002;
    constexpr unsigned int NameLeaves = 3;

    unsigned int registers[4];
    VornEx::cpuID(Extended, registers);
    if (registers[EAX] < NameLeaf + NameLeaves - 1)
        return {};
    char text[NameLeaves * sizeof registers + 1] = "";
    for (unsigned int leaf = 0; leaf < NameLeaves; ++leaf) {
        VornEx::cpuID(NameLeaf + leaf, registers);
        std::memcpy(text + leaf * sizeof registers, registers, sizeof registers);
    }
    const char* const name = text + std::strspn(text, " ");
    const std::size_t length = std::strlen(name);
    const std::string_view view(name, length);
    return std::string(view.substr(0, view.find_last_not_of(' ') + 1));
}

struct COptions
{
    bool m_Json = false;
};

int Cpu(const COptions& options)
{
    return PrintSection(ProcessorSection(), options.m_Json);
}

} // namespace

CSection ProcessorSection()
{
    unsigned int cores = 0;
    unsigned int logical = 0;
    bool hyperThreading = false;
    VornEx::processorInfo(cores, logical, hyperThreading);
    const std::string vendor = Vendor();
    const std::string model = Model();

    CSection section;
    section.m_Text.m_Title = "Processor";
    auto& rows = section.m_Text.m_Rows;
    rows.emplace_back("Vendor", vendor);
    if (!model.empty())
        rows.emplace_back("Model", model);
    rows.emplace_back("Cores", std::to_string(cores));
    rows.emplace_back("Logical", std::to_string(logical));
    rows.emplace_back("Hyper-threading", hyperThreading ? "yes" : "no");
    section.m_Json = {{"vendor", vendor},
                      {"model", model},
                      {"cores", cores},
                      {"logical", logical},
                      {"hyper_threading", hyperThreading}};
    return section;
}

void AddCpu(CProgram& program)
{
    const auto command = program.Add("cpu", "Vendor, cores and logical processors", Cpu);
    AddJson(command.m_App, command.m_Options->m_Json);
}

} // namespace Tool
