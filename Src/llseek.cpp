#include <vornex/PartitionTable.h>

#include <unistd.h>

extern "C" int sseek(int descriptor, long long sector)
{
    // Shifted without a sign, so that an absurd sector is an offset that the system refuses.
    const auto offset = static_cast<long long>(static_cast<unsigned long long>(sector) << 9U);
    return lseek64(descriptor, offset, SEEK_SET) == offset ? 1 : 0;
}
