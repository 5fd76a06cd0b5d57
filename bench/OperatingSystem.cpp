// Constructing COSInfo_Lx beside the bare work that it cannot do without: uname, a stat of each
// release file up to the first that is there, one open and read of it, and its two patterns
// compiled and matched by PCRE2; and beside the calls alone. On a Debian system.
#define PCRE2_CODE_UNIT_WIDTH 8

#include "Allocations.h"

#include <cstring>

#include <fcntl.h>
#include <pcre2.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <vornex/OSInfo.h>

namespace {

constexpr const char* Release = "/etc/debian_version";

// The matched text's end, or 0.
std::size_t CompileAndMatch(const char* pattern, const char* text)
{
    int error = 0;
    std::size_t at = 0;
    pcre2_code* const code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern),
                                           PCRE2_ZERO_TERMINATED, 0, &error, &at, nullptr);
    pcre2_match_data* const match = pcre2_match_data_create_from_pattern(code, nullptr);
    const int groups = pcre2_match(code, reinterpret_cast<PCRE2_SPTR>(text), std::strlen(text), 0,
                                   0, match, nullptr);
    const std::size_t end = groups > 0 ? pcre2_get_ovector_pointer(match)[1] : 0;
    pcre2_match_data_free(match);
    pcre2_code_free(code);
    return end;
}

void BareCalls(utsname& kernel, char (&line)[256])
{
    static constexpr const char* Probes[] = {
        "/proc/vmware/version",
        "/etc/enterprise-release",
        "/etc/oracle-release",
        "/etc/redhat-release",
        "/etc/SuSE-release",
        "/etc/SuSE-release",
        Release,
    };
    uname(&kernel);
    struct stat status;
    for (const char* const probe : Probes)
        benchmark::DoNotOptimize(stat(probe, &status));
    const int descriptor = open(Release, O_RDONLY | O_CLOEXEC);
    const ssize_t got = read(descriptor, line, sizeof line - 1);
    line[got > 0 ? got : 0] = '\0';
    close(descriptor);
}

std::size_t Patterns(const char* release, const char* line)
{
    return CompileAndMatch(R"(^(\d+)\.(\d+) (.*))", release) +
           CompileAndMatch(R"((\d+\.\d+))", line);
}

// There is nothing to compare where another branch would be taken.
bool IsDebian(benchmark::State& state)
{
    Vorn::Strings::TString<64> product;
    Vorn::Strings::TString<64> version;
    const VornEx::COSInfo_Lx system;
    system.GetOSProduct(product);
    const bool is = product == "Debian GNU/Linux" && system.GetOSVersion(version);
    if (!is)
        state.SkipWithError("needs a Debian system");
    return is;
}

void COSInfo_ours(benchmark::State& state)
{
    if (IsDebian(state))
        Measure(state, [] { benchmark::DoNotOptimize(VornEx::COSInfo_Lx()); });
}
BENCHMARK(COSInfo_ours)->Name("COSInfo_Lx on Debian/vornex");

void COSInfo_bare_calls_and_pcre2(benchmark::State& state)
{
    utsname kernel;
    char line[256];
    if (IsDebian(state))
        Measure(state, [&] {
            BareCalls(kernel, line);
            benchmark::DoNotOptimize(Patterns(kernel.release, line));
        });
}
BENCHMARK(COSInfo_bare_calls_and_pcre2)->Name("COSInfo_Lx on Debian/bare calls and PCRE2");

void COSInfo_bare_calls(benchmark::State& state)
{
    utsname kernel;
    char line[256];
    if (IsDebian(state))
        Measure(state, [&] { BareCalls(kernel, line); });
}
BENCHMARK(COSInfo_bare_calls)->Name("COSInfo_Lx on Debian/limit: bare calls");

} // namespace
