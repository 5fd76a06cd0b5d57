// A program that prints one number, from its start to its end: linked with libvornex, with
// libpcre2-8 and libblkid, and with neither. load-time.sh looks closer.
#include "Spawn.h"

namespace {

const bool g_Registered = [] {
    Bench::AddCommands("start to end of a program/vornex", {{START_VORNEX}}, false);
    Bench::AddCommands("start to end of a program/libpcre2-8 + libblkid", {{START_PEERS}}, false);
    Bench::AddCommands("start to end of a program/limit: neither", {{START_NEITHER}}, false);
    return true;
}();

} // namespace
