// GetPartitions beside the bare system calls that it has to make, libblkid and libfdisk, on an
// image with a classic table of 20 logical partitions and one with a GUID table of 128 entries.
// libblkid is given the same mount table to read, since it looks at none.
#include "Allocations.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <blkid/blkid.h>
#include <fcntl.h>
#include <libfdisk/libfdisk.h>
#include <mntent.h>
#include <unistd.h>

#include <vornex/PartitionTable.h>

#include "../tests/DiskImage.h"

namespace {

constexpr std::uint32_t Logical = 20;
constexpr std::uint32_t GptEntries = 128;

// An image, and the sectors that a reader of its table cannot do without.
struct CDisk
{
    std::string m_Path;
    std::vector<long long> m_Sectors;
    std::size_t m_Partitions;
};

CDisk MakeClassic()
{
    CDisk disk{"/tmp/vornex-bench-classic", {0}, Logical};
    CDiskImage image(30000);
    image.Entry(0, 0, 0x05, 1000, 29000);
    for (std::uint32_t number = 0; number < Logical; ++number) {
        const std::uint32_t record = 1000 + 1000 * number;
        disk.m_Sectors.push_back(record);
        image.Entry(record, 0, 0x83, 63, 500);
        if (number + 1 < Logical)
            image.Entry(record, 1, 0x05, 1000 * (number + 1), 563);
    }
    image.Write(disk.m_Path);
    return disk;
}

// By sgdisk, since the others check sums.
CDisk MakeGpt()
{
    CDisk disk{"/tmp/vornex-bench-gpt", {}, GptEntries};
    for (long long sector = 0; sector < 2 + GptEntries / 4; ++sector)
        disk.m_Sectors.push_back(sector);
    CDiskImage(30000).Write(disk.m_Path);
    std::string command = "sgdisk -a 1";
    for (std::uint32_t number = 1; number <= GptEntries; ++number)
        command += " -n " + std::to_string(number) + ":" + std::to_string(100 * number) + ":" +
                   std::to_string(100 * number + 50);
    if (std::system((command + " " + disk.m_Path + " >/dev/null").c_str()) != 0)
        std::exit(1);
    return disk;
}

const CDisk& Classic()
{
    static const CDisk disk = MakeClassic();
    return disk;
}

const CDisk& Gpt()
{
    static const CDisk disk = MakeGpt();
    return disk;
}

std::size_t Ours(const CDisk& disk)
{
    static VornEx::CSystemPartitionTable table;
    static std::vector<VornEx::CSystemPartition> partitions;
    table.m_Device = Vorn::Strings::CStringRef(disk.m_Path);
    table.GetPartitions(partitions);
    return partitions.size();
}

std::size_t ReadMountTable()
{
    std::size_t count = 0;
    FILE* table = setmntent("/etc/mtab", "r");
    if (table == nullptr)
        table = setmntent("/proc/mounts", "r");
    if (table == nullptr)
        return 0;
    while (getmntent(table) != nullptr)
        ++count;
    endmntent(table);
    return count;
}

std::size_t BareCalls(const CDisk& disk)
{
    const int descriptor = open(disk.m_Path.c_str(), O_RDONLY | O_NONBLOCK);
    char sector[512];
    for (const long long number : disk.m_Sectors) {
        // A classic chain is sought; a GUID table is read on.
        if (disk.m_Partitions == Logical)
            benchmark::DoNotOptimize(lseek(descriptor, number * 512, SEEK_SET));
        benchmark::DoNotOptimize(read(descriptor, sector, sizeof sector));
    }
    close(descriptor);
    benchmark::DoNotOptimize(ReadMountTable());
    return disk.m_Partitions;
}

std::size_t Blkid(const CDisk& disk)
{
    blkid_probe probe = blkid_new_probe_from_filename(disk.m_Path.c_str());
    blkid_probe_enable_superblocks(probe, 0);
    blkid_probe_enable_partitions(probe, 1);
    std::size_t count = 0;
    if (blkid_do_safeprobe(probe) == 0) {
        blkid_partlist list = blkid_probe_get_partitions(probe);
        for (int index = 0; index < blkid_partlist_numof_partitions(list); ++index) {
            blkid_partition partition = blkid_partlist_get_partition(list, index);
            benchmark::DoNotOptimize(blkid_partition_get_start(partition));
            count += blkid_partition_is_extended(partition) == 0 ? 1U : 0U;
        }
    }
    blkid_free_probe(probe);
    benchmark::DoNotOptimize(ReadMountTable());
    return count;
}

std::size_t Fdisk(const CDisk& disk)
{
    fdisk_context* const context = fdisk_new_context();
    std::size_t count = 0;
    fdisk_table* table = nullptr;
    if (fdisk_assign_device(context, disk.m_Path.c_str(), 1) == 0 &&
        fdisk_get_partitions(context, &table) == 0) {
        for (std::size_t index = 0; index < fdisk_table_get_nents(table); ++index) {
            fdisk_partition* const partition = fdisk_table_get_partition(table, index);
            benchmark::DoNotOptimize(fdisk_partition_get_start(partition));
            count += fdisk_partition_is_container(partition) == 0 ? 1U : 0U;
        }
    }
    fdisk_unref_table(table);
    fdisk_deassign_device(context, 1);
    fdisk_unref_context(context);
    return count;
}

void Run(benchmark::State& state, const CDisk& (*disk)(), std::size_t (*list)(const CDisk&))
{
    // The same partitions, or there is nothing to compare.
    if (list(disk()) != disk().m_Partitions) {
        state.SkipWithError("wrong number of partitions");
        return;
    }
    Measure(state, [&] { benchmark::DoNotOptimize(list(disk())); });
}

const bool g_Registered = [] {
    const struct
    {
        const char* m_Name;
        const CDisk& (*m_Disk)();
    } disks[] = {{"partitions of an MBR with 20 logical ones", Classic},
                 {"partitions of a GPT with 128", Gpt}};
    const struct
    {
        const char* m_Name;
        std::size_t (*m_List)(const CDisk&);
    } readers[] = {{"vornex", Ours},
                   {"libblkid", Blkid},
                   {"libfdisk", Fdisk},
                   {"limit: bare calls", BareCalls}};
    for (const auto& disk : disks)
        for (const auto& reader : readers)
            benchmark::RegisterBenchmark((std::string(disk.m_Name) + "/" + reader.m_Name).c_str(),
                                         Run, disk.m_Disk, reader.m_List);
    return true;
}();

} // namespace
