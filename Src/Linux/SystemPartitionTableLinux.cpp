// From a disk's raw entries to its partitions: names, kinds, mount points.
#include <vornex/PartitionTable.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <mntent.h>
#include <unistd.h>

#include <vornex/Numbers.h>

#include "../CallFrame.h"
#include "PartitionReader.h"

namespace VornEx {

namespace {

using Vorn::Strings::CStringVar;
using Vorn::Strings::CSubStringRef;

constexpr const char* Source = "Src/Linux/SystemPartitionTableLinux.cpp";
Vorn::Exceptions::SOURCE_INFO g_ClassicNameSource = {{0}, Source, 317};
Vorn::Exceptions::SOURCE_INFO g_GptNameSource = {{0}, Source, 352};

constexpr const char* Unknown = "Unknown";
constexpr const char* Swap = "Swap";
constexpr unsigned int MostClassicEntries = 60;

// 0657FD6D-A4AB-43C4-84E5-0933C84B4F4F as it stands on the disk.
constexpr std::uint8_t SwapGuid[16] = {0x6D, 0xFD, 0x57, 0x06, 0xAB, 0xA4, 0xC4, 0x43,
                                       0x84, 0xE5, 0x09, 0x33, 0xC8, 0x4B, 0x4F, 0x4F};

// A descriptor closed on every way out.
class CDescriptor
{
public:
    explicit CDescriptor(int descriptor) : m_Descriptor(descriptor) {}
    ~CDescriptor()
    {
        if (m_Descriptor >= 0)
            close(m_Descriptor);
    }
    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;

    int Get() const { return m_Descriptor; }

private:
    int m_Descriptor;
};

// How the device names of a disk's partitions are made: with a "p" behind a digit.
const char* NameFormat(const CStringVar& device, Vorn::Exceptions::SOURCE_INFO& source)
{
    const char last[2] = {device.m_Text[device.m_Length - 1], '\0'};
    const bool isDigit = !Internals::Absorbs(source, [&last] { atoui32(last, 10); });
    return isDigit ? "%sp%d" : "%s%d";
}

// Makes the records of one disk; what their names have in common is found out once.
class CRecordMaker
{
public:
    CRecordMaker(const CStringVar& device, Vorn::Exceptions::SOURCE_INFO& source,
                 std::vector<CSystemPartition>& partitions)
        : m_Device(device), m_Source(source), m_Partitions(partitions)
    {}

    CSystemPartition& Add(unsigned int number)
    {
        if (m_Name.m_Length == 0) {
            m_Name.Format(NameFormat(m_Device, m_Source)) << m_Device;
            m_Common = m_Name.m_Length;
        }
        m_Name.m_Length = m_Common;
        char digits[16];
        const char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
        m_Name.AllocCopy(digits, static_cast<unsigned int>(end - digits));
        CSystemPartition& partition = m_Partitions.emplace_back();
        partition.m_DeviceName = Vorn::Strings::CStringRef(m_Name);
        return partition;
    }

private:
    const CStringVar& m_Device;
    Vorn::Exceptions::SOURCE_INFO& m_Source;
    std::vector<CSystemPartition>& m_Partitions;
    Vorn::Strings::TString<64> m_Name;
    unsigned int m_Common = 0; // length of what all names begin with
};

bool IsPartition(const ipart& entry)
{
    return entry.type != 0 && entry.type != 0x05 && entry.type != 0x0F && entry.type != 0x85;
}

bool IsPartition(const gpart& entry)
{
    return entry.typeGuid[0] != 0;
}

bool IsSwap(const ipart& entry)
{
    return entry.type == 0x82 || entry.type == 0xC3 || entry.type == 0x42;
}

bool IsSwap(const gpart& entry)
{
    return std::memcmp(entry.typeGuid, SwapGuid, sizeof SwapGuid) == 0;
}

template <class Entry>
std::size_t PartitionCount(const std::vector<Entry>& entries)
{
    return static_cast<std::size_t>(std::count_if(
        entries.begin(), entries.end(), [](const Entry& entry) { return IsPartition(entry); }));
}

void AddClassic(const CStringVar& device, const std::vector<ipart>& entries, unsigned int count,
                std::vector<CSystemPartition>& partitions)
{
    partitions.reserve(PartitionCount(entries));
    CRecordMaker maker(device, g_ClassicNameSource, partitions);
    const std::size_t last = std::min<std::size_t>({entries.size(), count, MostClassicEntries});
    for (std::size_t index = 0; index < last; ++index) {
        const ipart& entry = entries[index];
        if (!IsPartition(entry))
            continue;
        CSystemPartition& partition = maker.Add(static_cast<unsigned int>(index + 1));
        partition.m_StartSector = entry.startLba;
        partition.m_SectorCount = entry.sectorCount;
        partition.m_FileSystem = Unknown;
        if (IsSwap(entry))
            partition.m_MountPoint = Swap;
    }
}

void AddGpt(const CStringVar& device, const std::vector<gpart>& entries, unsigned int count,
            std::vector<CSystemPartition>& partitions)
{
    partitions.reserve(PartitionCount(entries));
    CRecordMaker maker(device, g_GptNameSource, partitions);
    const std::size_t last = std::min<std::size_t>(entries.size(), count);
    for (std::size_t index = 0; index < last; ++index) {
        const gpart& entry = entries[index];
        if (!IsPartition(entry))
            continue;
        CSystemPartition& partition = maker.Add(static_cast<unsigned int>(index + 1));
        partition.m_StartSector = entry.firstLba;
        partition.m_SectorCount = entry.lastLba - entry.firstLba + 1;
        if (IsSwap(entry)) {
            partition.m_FileSystem = Unknown;
            partition.m_MountPoint = Swap;
        }
    }
}

// What one entry of the mount table says of the partitions.
void TakeMount(const mntent& mount, const CStringVar& device,
               std::vector<CSystemPartition>& partitions)
{
    // Most sources are no partition of this disk: seen before anything else is looked at.
    if (std::strncmp(mount.mnt_fsname, device.m_Text, device.m_Length) != 0)
        return;
    const CSubStringRef type(mount.mnt_type);
    const CSubStringRef source(mount.mnt_fsname);
    const CSubStringRef directory(mount.mnt_dir);
    for (const char* const none : {"ignore", "proc", "devfs", "devpts"})
        if (type == none)
            return;
    if (source == "none" || directory.Length() == 0)
        return;
    const auto found = std::find_if(
        partitions.begin(), partitions.end(),
        [&source](const CSystemPartition& partition) { return partition.m_DeviceName == source; });
    if (found == partitions.end())
        return;

    if (type == "swap")
        found->m_MountPoint = Swap;
    else if (directory.Text()[0] != '/')
        return;
    else if (directory.UTF8Length() != -1)
        found->m_MountPoint = mount.mnt_dir;
    else
        found->m_MountPoint.CopyAsUTF8(directory);
}

void FillMountPoints(const CStringVar& device, std::vector<CSystemPartition>& partitions)
{
    struct CEnd
    {
        void operator()(FILE* table) const { endmntent(table); }
    };
    std::unique_ptr<FILE, CEnd> table(setmntent("/etc/mtab", "r"));
    if (table == nullptr)
        table.reset(setmntent("/proc/mounts", "r"));
    if (table == nullptr)
        return;
    while (const mntent* const mount = getmntent(table.get()))
        TakeMount(*mount, device, partitions);
}

} // namespace

void CSystemPartitionTable::GetPartitions(std::vector<CSystemPartition>& partitions)
{
    partitions.clear();
    if (m_Device.m_Length == 0)
        return;

    std::vector<ipart> classic;
    std::vector<gpart> gpt;
    unsigned int count = 0;
    {
        int descriptor = -1;
        do {
            descriptor = open(m_Device.m_Text, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        } while (descriptor < 0 && errno == EINTR);
        const CDescriptor disk(descriptor);
        if (disk.Get() < 0)
            return;
        Internals::ReadPartitionTable(disk.Get(), classic, gpt, 0, 0, &count);
    }
    if (!classic.empty())
        AddClassic(m_Device, classic, count, partitions);
    else if (count != 0)
        AddGpt(m_Device, gpt, count, partitions);
    FillMountPoints(m_Device, partitions);
}

} // namespace VornEx
