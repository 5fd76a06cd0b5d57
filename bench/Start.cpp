// A program from its start to its end that prints one number: linked with libvornex, with
// libpcre2-8 and libblkid, and with neither. load-time.sh looks closer.
#include "Spawn.h"

int main(int count, char** words)
{
    Bench::AddCommands("start/vornex", {{START_VORNEX}});
    Bench::AddCommands("start/peers", {{START_PEERS}});
    Bench::AddCommands("start/neither", {{START_NEITHER}});
    Bench::CRatioReporter reporter;
    return Bench::RunCommands(count, words, reporter, "start", {"vornex", "peers", "neither"});
}
