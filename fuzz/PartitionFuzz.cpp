// Fuzz target of partitions: a disk and a mount table from the input. The disk is either raw bytes
// or made of table entries that point at each other; its entries must be those of a plain model
// that has the whole disk in a vector.
#include <algorithm>
#include <cstring>
#include <set>

#include <mntent.h>

#include <vornex/PartitionTable.h>

#include "../Src/Linux/PartitionReader.h"
#include "../tests/DiskImage.h"
#include "Fuzz.h"

namespace {

std::string mountTable;

} // namespace

FILE* setmntent(const char* /*path*/, const char* /*mode*/) noexcept
{
    return mountTable.empty() ? nullptr : fmemopen(mountTable.data(), mountTable.size(), "r");
}

namespace {

using Disk = std::vector<std::uint8_t>;

std::uint32_t Word(const Disk& disk, std::size_t at)
{
    return disk[at] | static_cast<std::uint32_t>(disk[at + 1]) << 8U |
           static_cast<std::uint32_t>(disk[at + 2]) << 16U |
           static_cast<std::uint32_t>(disk[at + 3]) << 24U;
}

struct CEntries
{
    int m_Result = -1;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> m_Classic; // start, type
    std::vector<std::string> m_Guid;                                // the 128 bytes
};

bool IsExtended(std::uint32_t type)
{
    return type == 0x05 || type == 0x0F || type == 0x85;
}

void TakeGuidTable(const Disk& disk, CEntries& entries)
{
    if (disk.size() < 1024)
        return;
    const std::uint32_t sectors = std::min<std::uint32_t>(Word(disk, 512 + 80), 65536) / 4;
    const std::uint64_t entrySize = Word(disk, 512 + 84);
    for (std::size_t sector = 2; sector < 2 + sectors && 512 * (sector + 1) <= disk.size();
         ++sector) {
        for (std::uint64_t index = 0; index < 4; ++index) {
            std::string entry(128, '\0');
            for (std::uint64_t byte = 0; byte < 128 && index * entrySize + byte < 512; ++byte)
                entry[byte] = static_cast<char>(disk[512 * sector + index * entrySize + byte]);
            entries.m_Guid.push_back(entry);
        }
    }
}

CEntries Plain(const Disk& disk)
{
    CEntries entries;
    std::uint32_t base = 0;
    std::uint32_t sector = 0;
    std::set<std::uint32_t> seen; // since an entry was taken
    for (bool first = true;; first = false) {
        const std::size_t at = std::size_t{512} * sector;
        if (sector > 0x7FFFFFFF || at + 512 > disk.size() || disk[at + 510] != 0x55 ||
            disk[at + 511] != 0xAA)
            break;
        if (first)
            entries.m_Result = 0;
        std::uint32_t types[4];
        for (std::size_t index = 0; index < 4; ++index)
            types[index] = disk[at + 446 + 16 * index + 4];
        if (base == 0 && std::count(types, types + 4, 0xEE) != 0) {
            TakeGuidTable(disk, entries);
            break;
        }
        for (std::size_t index = 0; index < 4; ++index) {
            if (base != 0 && (types[index] == 0 || IsExtended(types[index])))
                continue;
            if (entries.m_Classic.size() == 60) {
                entries.m_Result = 60;
                return entries;
            }
            const std::uint32_t start = Word(disk, at + 446 + 16 * index + 8);
            entries.m_Classic.emplace_back(start + (base != 0 ? sector : 0), types[index]);
            seen.clear();
        }
        const auto* const link = std::find_if(types, types + 4, IsExtended);
        if (link == types + 4)
            break;
        sector = base + Word(disk, at + 446 + 16 * static_cast<std::size_t>(link - types) + 8);
        if (base == 0)
            base = sector;
        if (!seen.insert(sector).second)
            break;
    }
    if (entries.m_Result == 0)
        entries.m_Result = static_cast<int>(entries.m_Classic.size() + entries.m_Guid.size());
    return entries;
}

Disk MadeDisk(FuzzedDataProvider& data)
{
    CDiskImage disk(data.ConsumeIntegralInRange<std::size_t>(1, 80));
    const std::size_t last = disk.m_Bytes.size() / 512 - 1;
    if (data.ConsumeBool())
        disk.GptHeader(data.ConsumeIntegralInRange<std::uint32_t>(0, 400),
                       data.PickValueInArray<std::uint32_t>({128, 128, 0, 64, 150, 0xFFFFFFFF}));
    for (int count = data.ConsumeIntegralInRange<int>(0, 30); count > 0; --count) {
        if (data.ConsumeBool()) {
            disk.Entry(
                data.ConsumeIntegralInRange<std::size_t>(0, last),
                data.ConsumeIntegralInRange<std::size_t>(0, 3),
                data.PickValueInArray<std::uint8_t>({0x83, 0x05, 0x0F, 0x85, 0x82, 0xEE, 0, 0x05}),
                data.ConsumeBool() ? data.ConsumeIntegralInRange<std::uint32_t>(0, 80)
                                   : data.ConsumeIntegral<std::uint32_t>(),
                data.ConsumeIntegral<std::uint32_t>());
        } else {
            disk.GptEntry(data.ConsumeIntegralInRange<std::size_t>(0, 100) * 128,
                          data.ConsumeIntegral<std::uint8_t>(),
                          data.ConsumeIntegral<std::uint64_t>(),
                          data.ConsumeIntegral<std::uint64_t>());
        }
    }
    return disk.m_Bytes;
}

void CheckEntries(int descriptor, const CEntries& wanted)
{
    std::vector<VornEx::ipart> classic;
    std::vector<VornEx::gpart> gpt;
    unsigned int count = 0;
    const int result =
        VornEx::Internals::ReadPartitionTable(descriptor, classic, gpt, 0, 0, &count);
    Fuzz::ExpectSame<long long>(result, wanted.m_Result, "result");
    Fuzz::ExpectSame<long long>(count, std::max(result, 0), "counter");
    Fuzz::Expect(classic.size() == wanted.m_Classic.size() && gpt.size() == wanted.m_Guid.size(),
                 "number of entries");
    for (std::size_t index = 0; index < classic.size(); ++index) {
        Fuzz::ExpectSame<long long>(classic[index].startLba, wanted.m_Classic[index].first,
                                    "start of entry " + std::to_string(index));
        Fuzz::ExpectSame<long long>(classic[index].type, wanted.m_Classic[index].second,
                                    "type of entry " + std::to_string(index));
    }
    for (std::size_t index = 0; index < gpt.size(); ++index)
        Fuzz::Expect(std::memcmp(&gpt[index], wanted.m_Guid[index].data(), 128) == 0,
                     "a GUID entry");
}

void CheckPartitions(const std::string& path, const CEntries& entries)
{
    std::vector<unsigned int> numbers;
    for (std::size_t index = 0; index < entries.m_Classic.size(); ++index)
        if (entries.m_Classic[index].second != 0 && !IsExtended(entries.m_Classic[index].second))
            numbers.push_back(static_cast<unsigned int>(index + 1));
    for (std::size_t index = 0; entries.m_Classic.empty() && index < entries.m_Guid.size(); ++index)
        if (entries.m_Guid[index][0] != '\0')
            numbers.push_back(static_cast<unsigned int>(index + 1));

    VornEx::CSystemPartitionTable table;
    table.m_Device = Vorn::Strings::CStringRef(path);
    std::vector<VornEx::CSystemPartition> partitions(2);
    table.GetPartitions(partitions);
    Fuzz::Expect(partitions.size() == numbers.size(), "number of partitions");
    for (std::size_t index = 0; index < numbers.size(); ++index) {
        const auto& partition = partitions[index];
        Fuzz::ExpectSame(std::string(partition.m_DeviceName),
                         path + "p" + std::to_string(numbers[index]), "name");
        const Vorn::Strings::CSubStringRef mountPoint(partition.m_MountPoint);
        Fuzz::Expect(mountPoint.Length() == 0 || mountPoint == "Swap" ||
                         (mountPoint.Text()[0] == '/' && mountPoint.UTF8Length() > 0),
                     "mount point");
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    static const Fuzz::CMemoryFile file;
    FuzzedDataProvider data(bytes, size);
    const bool made = data.ConsumeBool();
    // "@" stands for the name of the disk.
    mountTable.clear();
    for (const char character :
         data.ConsumeBytesAsString(data.ConsumeIntegralInRange<std::size_t>(0, 200)))
        mountTable += character == '@' ? file.Path() + "p" : std::string(1, character);
    const Disk disk = made ? MadeDisk(data) : data.ConsumeRemainingBytes<std::uint8_t>();

    const CEntries wanted = Plain(disk);
    file.Set(disk.data(), disk.size());
    const Fuzz::CDescriptorsKept kept;
    CheckEntries(file.Descriptor(), wanted);
    CheckPartitions(file.Path(), wanted);
    return 0;
}
