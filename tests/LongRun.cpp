// Every service many times in one process: LongRun ROUNDS. What the process holds at the end must
// be what it held after the first thousand rounds: descriptors and bytes of the heap to the last
// one, resident memory to a few pages.
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include <malloc.h>
#include <unistd.h>

#include "ScratchFolder.h"
#include "Services.h"

namespace {

struct CHolding
{
    std::size_t m_Descriptors = 0;
    std::size_t m_HeapBytes = 0;
    long m_ResidentKiB = 0;
};

CHolding Holding()
{
    CHolding holding;
    holding.m_Descriptors = OpenDescriptors();
    long size = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    holding.m_ResidentKiB = resident * (sysconf(_SC_PAGESIZE) / 1024);
    // Last, so that what the looking itself leaves with the heap is counted each time.
    holding.m_HeapBytes = mallinfo2().uordblks;
    return holding;
}

void Show(long rounds, const CHolding& holding)
{
    std::printf("after %7ld rounds: %zu descriptors, %zu bytes of heap, %ld KiB resident\n", rounds,
                holding.m_Descriptors, holding.m_HeapBytes, holding.m_ResidentKiB);
}

} // namespace

int main(int count, char** arguments)
{
    constexpr long FirstRounds = 1000;
    constexpr long MostGrowthKiB = 64;
    const long rounds = count > 1 ? std::atol(arguments[1]) : 100000;
    if (rounds <= FirstRounds) {
        std::fprintf(stderr, "usage: LongRun ROUNDS, more than %ld\n", FirstRounds);
        return 2;
    }

    // What the heap keeps at hand for each thread counts as in use, and changes with the timing of
    // the mail server. The program starts itself again without it.
    constexpr const char* Tunables = "GLIBC_TUNABLES";
    if (std::getenv(Tunables) == nullptr && setenv(Tunables, "glibc.malloc.tcache_count=0", 1) == 0)
        execv("/proc/self/exe", arguments);
    mallopt(M_MXFAST, 0);
    std::setvbuf(stdout, nullptr, _IONBF, 0); // a buffer would be made in between
    std::vector<std::string> wanted;
    for (const CService& service : Services())
        wanted.push_back(Result(service));
    CHolding first = Holding();
    for (long round = 1; round <= rounds; ++round) {
        for (std::size_t index = 0; index < wanted.size(); ++index) {
            if (Result(Services()[index]) != wanted[index]) {
                std::printf("round %ld: %s gives another result\n", round,
                            Services()[index].m_Name);
                return 1;
            }
        }
        if (round == FirstRounds) {
            first = Holding();
            Show(round, first);
        } else if (round % 25000 == 0 && round != rounds) {
            Show(round, Holding());
        }
    }
    const CHolding last = Holding();
    Show(rounds, last);
    const bool same = last.m_Descriptors == first.m_Descriptors &&
                      last.m_HeapBytes == first.m_HeapBytes &&
                      last.m_ResidentKiB <= first.m_ResidentKiB + MostGrowthKiB;
    std::printf("%zu services: %s\n", wanted.size(), same ? "nothing grows" : "something grows");
    return same ? 0 : 1;
}
