// The regex engine beside std::regex, Boost.Regex, Oniguruma and PCRE2 (interpreter, interpreter
// without its search shortcuts, JIT). Rows are named workload/engine:
//
//   cold            the release lines: compile, match, destroy
//   warm            the release lines: match only
//   log             an access-log line with six captures, match only
//   compile         twenty patterns: compile, destroy
//   scan_*          all matches in one megabyte
//   fail_*          a line of 1 KB to 1 MB that "^(.*) release (\d+)" does not match
//   pairs_*         "(a|ab)*c" on "abab...", 250 to 2000 characters without a "c"
//
// Before anything is timed, every engine must give the engine's results, group by group; a
// difference ends the program. After the rows come the ratios and the targets.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

#include <benchmark/benchmark.h>

#include "MemoryUse.h"
#include "RatioReporter.h"
#include "RegexEngines.h"
#include "RegexInputs.h"

namespace {

using namespace Bench;

struct CScan
{
    const char* m_Name;
    const char* m_Pattern;
};

constexpr CScan Scans[] = {
    {"scan_class", "[0-9]+"},
    {"scan_alternatives",
     "Monday|Tuesday|Wednesday|Thursday|Friday|Saturday|Sunday|January|February|March"},
    {"scan_backreference", R"(\b(\w+) \1\b)"},
    {"scan_literal", "XenServer"},
};

constexpr const char* ScanLiteral = "XenServer";

constexpr const char* FailingPattern = R"(^(.*) release (\d+))";
constexpr std::size_t FailingLengths[] = {1000, 10'000, 100'000, 1'000'000};

constexpr const char* PairsPattern = "(a|ab)*c";
constexpr std::size_t PairsLengths[] = {250, 500, 1000, 2000};

// std::regex calls itself for each character that a repetition takes, and ends the process where
// the stack does.
constexpr std::size_t LongestForStd = 10'000;

template <class Engine>
bool Takes(std::size_t length)
{
    return !std::is_same_v<Engine, CStdEngine> || length <= LongestForStd;
}

std::string FailName(std::size_t length)
{
    return "fail_" + (length < 1'000'000 ? std::to_string(length / 1000) + "KB" : "1MB");
}

std::string PairsName(std::size_t length)
{
    return "pairs_" + std::to_string(length);
}

std::string RowName(const std::string& workload, const char* engine)
{
    return workload + "/" + engine;
}

template <class Body>
void AddRow(const std::string& workload, const char* engine, Body body)
{
    benchmark::RegisterBenchmark(RowName(workload, engine).c_str(), body);
}

// Every group of the first match, as text that can be compared and read.
template <class Engine>
std::string Outcome(const CCase& one)
{
    Engine engine(one.m_Pattern);
    if (!engine.Search(one.m_Text))
        return "no match";
    std::string outcome;
    for (int n = 0; n <= engine.Groups(); ++n) {
        const CSpan group = engine.Group(n);
        outcome += "[" + std::to_string(group.m_Begin) + "," + std::to_string(group.m_End) + ")";
    }
    return outcome;
}

template <class Engine>
std::string AllMatches(const CCase& one)
{
    Engine engine(one.m_Pattern);
    std::string outcome;
    engine.ForEach(one.m_Text, [&outcome](long begin, long end) {
        outcome += "[" + std::to_string(begin) + "," + std::to_string(end) + ")";
    });
    return outcome;
}

[[noreturn]] void Differ(const char* engine, const CCase& one, const std::string& own,
                         const std::string& other)
{
    std::fprintf(stderr, "%s on \"%.60s\": vornex gives %.200s, %s gives %.200s\n", one.m_Pattern,
                 std::string(one.m_Text).c_str(), own.c_str(), engine, other.c_str());
    std::exit(EXIT_FAILURE);
}

template <class Engine>
void CheckFirst(const CCase& one)
{
    const std::string own = Outcome<CVornexEngine>(one);
    const std::string other = Outcome<Engine>(one);
    if (own != other)
        Differ(Engine::Name, one, own, other);
}

template <class Engine>
void CheckAll(const CCase& one)
{
    const std::string own = AllMatches<CVornexEngine>(one);
    const std::string other = AllMatches<Engine>(one);
    if (own != other)
        Differ(Engine::Name, one, own, other);
}

template <class Engine>
void AddLines()
{
    for (const auto& one : ReleaseCases())
        CheckFirst<Engine>(one);
    CheckFirst<Engine>(AccessLogCase());
    for (const auto& one : EverydayCases()) {
        CheckFirst<Engine>(one);
        if (Outcome<Engine>(one) == "no match")
            Differ(Engine::Name, one, "a match", "none");
    }

    AddRow("cold", Engine::Name, [](benchmark::State& state) {
        for (auto _ : state)
            for (const auto& one : ReleaseCases()) {
                Engine engine(one.m_Pattern);
                benchmark::DoNotOptimize(engine.Search(one.m_Text));
            }
    });
    AddRow("warm", Engine::Name, [](benchmark::State& state) {
        std::vector<std::unique_ptr<Engine>> engines;
        for (const auto& one : ReleaseCases())
            engines.push_back(std::make_unique<Engine>(one.m_Pattern));
        for (auto _ : state)
            for (std::size_t i = 0; i < engines.size(); ++i)
                benchmark::DoNotOptimize(engines[i]->Search(ReleaseCases()[i].m_Text));
    });
    AddRow("log", Engine::Name, [](benchmark::State& state) {
        Engine engine(AccessLogCase().m_Pattern);
        for (auto _ : state)
            benchmark::DoNotOptimize(engine.Search(AccessLogCase().m_Text));
    });
    AddRow("compile", Engine::Name, [](benchmark::State& state) {
        for (auto _ : state)
            for (const auto& one : EverydayCases()) {
                Engine engine(one.m_Pattern);
                benchmark::DoNotOptimize(&engine);
            }
    });
}

template <class Engine>
void AddScans()
{
    for (const auto& scan : Scans) {
        CheckAll<Engine>({scan.m_Pattern, Prose()});
        AddRow(scan.m_Name, Engine::Name, [scan](benchmark::State& state) {
            Engine engine(scan.m_Pattern);
            for (auto _ : state) {
                long taken = 0;
                engine.ForEach(Prose(), [&taken](long begin, long end) { taken += end - begin; });
                benchmark::DoNotOptimize(taken);
            }
        });
    }
}

// A row on a text that some engine may give up on; it is then left out, and the reason is printed.
template <class Engine>
void AddGrowing(const std::string& workload, const char* pattern, const std::string& text,
                bool measuresMemory)
{
    std::optional<CMemoryUse> memory;
    try {
        CheckFirst<Engine>({pattern, text});
        if (measuresMemory) {
            Engine engine(pattern);
            memory = MeasureMemory([&engine, &text] { engine.Search(text); });
        }
    } catch (const std::exception& error) {
        std::printf("%s is left out: %s\n", RowName(workload, Engine::Name).c_str(), error.what());
        return;
    }
    AddRow(workload, Engine::Name, [pattern, text, memory](benchmark::State& state) {
        Engine engine(pattern);
        for (auto _ : state)
            benchmark::DoNotOptimize(engine.Search(text));
        state.counters["length"] = static_cast<double>(text.size());
        if (memory) {
            state.counters["stack"] = static_cast<double>(memory->m_Stack);
            state.counters["heap"] = static_cast<double>(memory->m_Heap);
        }
    });
}

template <class Engine>
void AddGrowths()
{
    constexpr std::size_t Longest = FailingLengths[std::size(FailingLengths) - 1];
    for (const std::size_t length : FailingLengths)
        if (Takes<Engine>(length))
            AddGrowing<Engine>(FailName(length), FailingPattern, FailingLine(length),
                               length == Longest);
    for (const std::size_t length : PairsLengths)
        AddGrowing<Engine>(PairsName(length), PairsPattern, AlternatingText(length), false);
}

// What a plain scan costs at least: a virtual call at each start position, which compares the
// literal there.
struct CLiteralTest
{
    virtual ~CLiteralTest() = default;
    virtual bool At(const char* place, const char* end) const = 0;
};

struct CMemcmpTest : CLiteralTest
{
    bool At(const char* place, const char* end) const override
    {
        const std::size_t length = std::strlen(ScanLiteral);
        return end - place >= static_cast<std::ptrdiff_t>(length) && *place == *ScanLiteral &&
               std::memcmp(place, ScanLiteral, length) == 0;
    }
};

void AddLimit()
{
    AddRow("scan_literal", "limit", [](benchmark::State& state) {
        const CMemcmpTest compare;
        const CLiteralTest* test = &compare;
        benchmark::DoNotOptimize(test); // hides the class from the compiler
        const char* const end = Prose().data() + Prose().size();
        for (auto _ : state) {
            long found = 0;
            for (const char* place = Prose().data(); place <= end; ++place)
                found += test->At(place, end) ? 1 : 0;
            benchmark::DoNotOptimize(found);
        }
    });
}

// What the table of all benchmarks calls the workloads.
void DescribeWorkloads()
{
    benchmark::AddCustomContext("cold", "58 release lines: compile, match, destroy");
    benchmark::AddCustomContext("warm", "58 release lines: match");
    benchmark::AddCustomContext("log", "access-log line, six captures: match");
    benchmark::AddCustomContext("compile", "twenty patterns: compile, destroy");
    for (const auto& scan : Scans)
        benchmark::AddCustomContext(scan.m_Name,
                                    "1 MB, all matches of `" + std::string(scan.m_Pattern) + "`");
    const std::string fails = "a line without a match of `" + std::string(FailingPattern) + "`";
    benchmark::AddCustomContext("fail", fails);
    for (const std::size_t length : FailingLengths)
        benchmark::AddCustomContext(FailName(length),
                                    fails + ", " + std::to_string(length) + " characters");
    const std::string pairs = "`" + std::string(PairsPattern) + "` without c";
    benchmark::AddCustomContext("pairs", pairs);
    for (const std::size_t length : PairsLengths)
        benchmark::AddCustomContext(PairsName(length),
                                    pairs + ", " + std::to_string(length) + " characters");
}

template <class... Engines>
std::vector<std::string> AddEngines()
{
    (AddLines<Engines>(), ...);
    (AddScans<Engines>(), ...);
    (AddGrowths<Engines>(), ...);
    AddLimit();
    return {Engines::Name...};
}

std::vector<std::string> Workloads()
{
    std::vector<std::string> names = {"cold", "warm", "log", "compile"};
    for (const auto& scan : Scans)
        names.emplace_back(scan.m_Name);
    for (const std::size_t length : FailingLengths)
        names.push_back(FailName(length));
    for (const std::size_t length : PairsLengths)
        names.push_back(PairsName(length));
    return names;
}

// The exponent k of time = c * length^k, fitted to all lengths by least squares. 0: a row is
// missing.
template <std::size_t Count, class Name>
double GrowthExponent(const CRatioReporter& reporter, const char* engine,
                      const std::size_t (&lengths)[Count], Name name)
{
    double sumX = 0;
    double sumY = 0;
    double sumXX = 0;
    double sumXY = 0;
    for (const std::size_t length : lengths) {
        const double time = reporter.Median(name(length), engine);
        if (time == 0)
            return 0;
        const double x = std::log(static_cast<double>(length));
        const double y = std::log(time);
        sumX += x;
        sumY += y;
        sumXX += x * x;
        sumXY += x * y;
    }
    return (Count * sumXY - sumX * sumY) / (Count * sumXX - sumX * sumX);
}

void PrintTarget(const std::string& what, double value, double limit)
{
    if (value != 0)
        std::printf("  %-44s %9.2f  at most %8.2f  %s\n", what.c_str(), value, limit,
                    value <= limit ? "reached" : "NOT REACHED");
}

void PrintTargets(const CRatioReporter& reporter)
{
    const auto target = [&reporter](const std::string& workload, const char* peer, double limit) {
        const double own = reporter.Median(workload, "vornex");
        const double other = reporter.Median(workload, peer);
        if (own != 0 && other != 0)
            PrintTarget(RowName(workload, "vornex") + " / " + peer, own / other, limit);
    };
    std::printf("\ntargets\n");
    target("cold", "boost", 0.5);
    target("warm", "std", 0.25);
    target("warm", "boost", 1.2);
    target("log", "boost", 1.2);
    for (const auto& scan : Scans)
        target(scan.m_Name, "pcre2_plain", 0.4);
    target("scan_literal", "limit", 1.25);
    PrintTarget("fail: growth exponent",
                GrowthExponent(reporter, "vornex", FailingLengths, FailName), 1.05);
    PrintTarget("fail_1MB: bytes of stack", reporter.Counter("fail_1MB", "vornex", "stack"), 16384);
    PrintTarget("fail_1MB: bytes of heap", reporter.Counter("fail_1MB", "vornex", "heap"), 1024);
    PrintTarget("pairs: growth exponent",
                GrowthExponent(reporter, "vornex", PairsLengths, PairsName), 2.05);
}

} // namespace

int main(int count, char** words)
{
    // Rows are many and steady: a short time each, unless the command line asks for another.
    std::string minimumTime = "--benchmark_min_time=0.05";
    std::vector<char*> arguments(words, words + count);
    arguments.insert(arguments.begin() + 1, minimumTime.data());
    arguments.push_back(nullptr);
    count = static_cast<int>(arguments.size()) - 1;
    words = arguments.data();
    benchmark::Initialize(&count, words);
    if (benchmark::ReportUnrecognizedArguments(count, words))
        return EXIT_FAILURE;
    try {
        std::vector<std::string> engines =
            AddEngines<CVornexEngine, CStdEngine, CBoostEngine, COnigurumaEngine, CPcre2Interpreter,
                       CPcre2Plain, CPcre2Jit>();
        engines.emplace_back("limit");
        DescribeWorkloads();
        CRatioReporter reporter;
        benchmark::RunSpecifiedBenchmarks(&reporter);
        reporter.PrintRatios(Workloads(), engines);
        PrintTargets(reporter);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
