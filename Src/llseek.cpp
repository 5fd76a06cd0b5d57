#include <vornex/PartitionTable.h>

#include <unistd.h>

extern "C" int sseek(int descriptor, long long sector)
{
    // Shifted without a sign; a sector whose offset 64 bits cannot say is no position.
    const auto offset = static_cast<long long>(static_cast<unsigned long long>(sector) << 9U);
    if (offset / 512 != sector)
        return 0;
    return lseek64(descriptor, offset, SEEK_SET) == offset ? 1 : 0;
}
