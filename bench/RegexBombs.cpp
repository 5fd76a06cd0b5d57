// Nested repetitions on texts that they do not match, the regex engine beside its peers. Rows are
// named pattern_length/engine; lengths are those of the repeated part of the text.
//
// Most peers take exponential time here, and some end the process where their stack does: each
// engine first tries a length in a process of its own, for some seconds, and gets no longer texts
// once that fails. What makes the match fail stands behind the repeated part, and
// behind it what the pattern ends with, so that no engine can tell beforehand.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "RatioReporter.h"
#include "RegexEngines.h"

namespace {

using namespace Bench;

struct CBomb
{
    const char* m_Name;
    const char* m_Pattern;
    char m_Repeated;
    const char* m_Behind;
    std::vector<std::size_t> m_Lengths;
    double m_Degree; // of the time that is aimed at: length to this power
};

const std::vector<CBomb>& Bombs()
{
    static const std::vector<CBomb> bombs = {
        {"star_star", "^(a*)*b", 'a', "#b", {20, 25, 30, 100, 1000, 10'000}, 2},
        {"same_twice", "^(a|a)*b", 'a', "#b", {20, 25, 30, 100, 1000, 10'000}, 1},
        {"one_or_two", "^(a|aa)+$", 'a', "#", {20, 25, 30, 100, 1000, 10'000}, 1},
        {"words", R"(^(\w+\s?)*!)", 'w', "#!", {20, 25, 30, 100, 1000, 10'000}, 2},
        {"plus_plus", "^(x+x+)+y", 'x', "#y", {20, 25, 30, 100, 500}, 3},
    };
    return bombs;
}

std::string RowName(const CBomb& bomb, std::size_t length)
{
    return std::string(bomb.m_Name) + "_" + std::to_string(length);
}

// Whether the engine comes to the right result in its time, tried where nothing else is lost.
template <class Engine>
bool Survives(const CBomb& bomb, const std::string& text)
{
    const itimerval limit = {{0, 0}, {text.size() < 200 ? 1 : 8, 0}}; // seconds
    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error("no process can be made");
    if (child == 0) {
        setitimer(ITIMER_VIRTUAL, &limit, nullptr); // its signal ends the process
        try {
            Engine engine(bomb.m_Pattern);
            _exit(engine.Search(text) ? EXIT_FAILURE : EXIT_SUCCESS);
        } catch (const std::exception&) {
            _exit(EXIT_FAILURE);
        }
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS;
}

template <class Engine>
void AddEngine()
{
    for (const auto& bomb : Bombs())
        for (const std::size_t length : bomb.m_Lengths) {
            const std::string text = std::string(length, bomb.m_Repeated) + bomb.m_Behind;
            if (!Survives<Engine>(bomb, text)) {
                std::printf("%s ends at %zu characters of %s\n", Engine::Name, length,
                            bomb.m_Pattern);
                break;
            }
            const auto run = [&bomb, text, length](benchmark::State& state) {
                Engine engine(bomb.m_Pattern);
                for (auto _ : state)
                    benchmark::DoNotOptimize(engine.Search(text));
                state.counters["length"] = static_cast<double>(length);
            };
            // Some take seconds.
            benchmark::RegisterBenchmark((RowName(bomb, length) + "/" + Engine::Name).c_str(), run)
                ->MinTime(0.01)
                ->Repetitions(3);
        }
}

// What the table of all benchmarks calls the workloads.
void DescribeWorkloads()
{
    for (const auto& bomb : Bombs()) {
        const std::string pattern = "`" + std::string(bomb.m_Pattern) + "`";
        benchmark::AddCustomContext(bomb.m_Name, pattern);
        for (const std::size_t length : bomb.m_Lengths)
            benchmark::AddCustomContext(RowName(bomb, length), pattern + " on " +
                                                                   std::to_string(length) + " " +
                                                                   bomb.m_Repeated);
    }
}

template <class... Engines>
std::vector<std::string> AddEngines()
{
    (AddEngine<Engines>(), ...);
    return {Engines::Name...};
}

// The growth between the two longest texts.
void PrintGrowths(const CRatioReporter& reporter)
{
    std::printf("\ngrowth between the two longest texts: time as length to the power of\n");
    for (const auto& bomb : Bombs()) {
        const std::size_t longest = bomb.m_Lengths.back();
        const std::size_t before = bomb.m_Lengths[bomb.m_Lengths.size() - 2];
        const double time = reporter.Median(RowName(bomb, longest), "vornex");
        const double timeBefore = reporter.Median(RowName(bomb, before), "vornex");
        if (time == 0 || timeBefore == 0)
            continue;
        const double power = std::log(time / timeBefore) /
                             std::log(static_cast<double>(longest) / static_cast<double>(before));
        std::printf("  %-16s %5.2f  at most %.1f  %s\n", bomb.m_Pattern, power, bomb.m_Degree + 0.1,
                    power <= bomb.m_Degree + 0.1 ? "reached" : "NOT REACHED");
    }
}

} // namespace

int main(int count, char** words)
{
    benchmark::Initialize(&count, words);
    if (benchmark::ReportUnrecognizedArguments(count, words))
        return EXIT_FAILURE;
    try {
        const std::vector<std::string> engines =
            AddEngines<CVornexEngine, CStdEngine, CBoostEngine, COnigurumaEngine, CPcre2Interpreter,
                       CPcre2Jit>();
        DescribeWorkloads();
        CRatioReporter reporter;
        benchmark::RunSpecifiedBenchmarks(&reporter);
        std::vector<std::string> workloads;
        for (const auto& bomb : Bombs())
            for (const std::size_t length : bomb.m_Lengths)
                workloads.push_back(RowName(bomb, length));
        reporter.PrintRatios(workloads, engines);
        PrintGrowths(reporter);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
