// What an agent tells its server when it starts: one line a fact, name and value.
#include <cstdio>
#include <exception>

#include <vornex/vornex.h>

namespace {

void Tell(const char* name, const Vorn::Strings::CStringVar& value)
{
    std::printf("%-14s %s\n", name, value.m_Length != 0 ? value.m_Text : "unknown");
}

void TellHost()
{
    Vorn::Strings::TString<64> name;
    VornEx::hostname(name);
    Tell("host", name);
}

// Every getter replaces the text, by nothing when the fact is not known.
void TellSystem()
{
    const VornEx::COSInfo_Lx system;
    Vorn::Strings::TString<64> fact;
    system.GetOSProduct(fact);
    Tell("product", fact);
    system.GetOSVersion(fact);
    Tell("version", fact);
    system.GetProcessorArchitecture(fact);
    Tell("architecture", fact);
}

void TellProcessor()
{
    unsigned int cores = 0;
    unsigned int logical = 0;
    bool hyperThreading = false;
    VornEx::processorInfo(cores, logical, hyperThreading);
    Vorn::Strings::TString<64> text;
    text.Format("%u of %u").FormatInt(cores).FormatInt(logical);
    Tell("cores", text);
}

void TellUpTime()
{
    Vorn::Strings::TString<64> text;
    const unsigned long long minutes = VornEx::CSystemTime_Lx::UpTime() / 60000;
    text.Format("%u minutes").FormatInt(static_cast<unsigned int>(minutes));
    Tell("up", text);
}

} // namespace

int main()
try {
    TellHost();
    TellSystem();
    TellProcessor();
    TellUpTime();
    return 0;
} catch (const std::exception& problem) {
    std::fprintf(stderr, "report: %s\n", problem.what());
    return 1;
}
