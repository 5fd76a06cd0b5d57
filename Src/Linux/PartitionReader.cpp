// On the disk, all numbers little-endian, a sector 512 bytes:
//
//   boot record: the master record in sector 0, and each extended boot record
//     0    446     boot code
//     446  4 x 16  entries: indicator 1 | start CHS 3 | type 1 | end CHS 3 | start 4 | sectors 4
//     510  2       55 AA
//
//   An entry of type 05, 0F or 85 in the master record is the extended partition, and its start
//   is the base of the chain; in an extended boot record it is the link to the next one, relative
//   to that base. All other entries of an extended boot record are partitions relative to it.
//
//   GUID table, where any entry of the master record has type EE
//     sector 1   header; offset 80: number of entries 4, offset 84: size of an entry E 4
//     sector 2   entries, taken four a sector, at 0, E, 2E and 3E
//     entry      type 16 | identity 16 | first sector 8 | last sector 8 | attributes 8 | name 72
#include "PartitionReader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <unistd.h>

namespace VornEx::Internals {

namespace {

constexpr std::size_t SectorSize = 512;
constexpr std::size_t EntriesOffset = 446;
constexpr std::size_t SignatureOffset = 510;
constexpr unsigned int EntriesPerRecord = 4;
constexpr std::uint8_t ProtectiveType = 0xEE;
// Classic entries beyond this many are not taken.
constexpr unsigned int MostClassicEntries = 60;

constexpr std::size_t HeaderCountOffset = 80;
constexpr std::size_t HeaderEntrySizeOffset = 84;
constexpr std::uint32_t GptEntriesPerSector = 4;
constexpr std::uint32_t MostGptEntries = 65536;
constexpr std::size_t UsualGptEntries = 128;

using Sector = std::uint8_t[SectorSize];

template <class Number, std::size_t... Byte>
Number Combine(const std::uint8_t* at, std::index_sequence<Byte...> /*bytes*/)
{
    return static_cast<Number>(((static_cast<std::uint64_t>(at[Byte]) << (8U * Byte)) | ...));
}

// A little-endian number of any width.
template <class Number>
Number Read(const std::uint8_t* at)
{
    return Combine<Number>(at, std::make_index_sequence<sizeof(Number)>());
}

// Bytes read, 0 at the end of the device, negative for an error.
ssize_t ReadSector(int descriptor, Sector& sector)
{
    ssize_t got = 0;
    do {
        got = read(descriptor, sector, sizeof sector);
    } while (got < 0 && errno == EINTR);
    return got;
}

bool ReadBootRecord(int descriptor, long long number, ipart (&entries)[EntriesPerRecord])
{
    // Only the low 32 bits count, with their sign.
    const auto position = static_cast<std::int32_t>(static_cast<std::uint32_t>(number));
    Sector sector;
    if (sseek(descriptor, position) != 1 ||
        ReadSector(descriptor, sector) != static_cast<ssize_t>(sizeof sector) ||
        Read<std::uint16_t>(sector + SignatureOffset) != 0xAA55)
        return false;
    const std::uint8_t* at = sector + EntriesOffset;
    for (ipart& entry : entries) {
        entry.bootIndicator = at[0];
        std::memcpy(entry.startChs, at + 1, sizeof entry.startChs);
        entry.type = at[4];
        std::memcpy(entry.endChs, at + 5, sizeof entry.endChs);
        entry.startLba = Read<std::uint32_t>(at + 8);
        entry.sectorCount = Read<std::uint32_t>(at + 12);
        at += sizeof(ipart);
    }
    return true;
}

gpart DecodeGptEntry(const std::uint8_t (&bytes)[sizeof(gpart)])
{
    gpart entry;
    std::memcpy(entry.typeGuid, bytes, sizeof entry.typeGuid);
    std::memcpy(entry.uniqueGuid, bytes + 16, sizeof entry.uniqueGuid);
    entry.firstLba = Read<std::uint64_t>(bytes + 32);
    entry.lastLba = Read<std::uint64_t>(bytes + 40);
    entry.attributes = Read<std::uint64_t>(bytes + 48);
    for (std::size_t index = 0; index < std::size(entry.name); ++index)
        entry.name[index] = Read<std::uint16_t>(bytes + 56 + 2 * index);
    return entry;
}

// The entry that begins at an offset of a sector; bytes beyond the sector are zero.
gpart GptEntry(const Sector& sector, std::uint64_t offset)
{
    std::uint8_t bytes[sizeof(gpart)] = {};
    if (offset < sizeof sector) {
        const auto begin = static_cast<std::size_t>(offset);
        std::memcpy(bytes, sector + begin, std::min(sizeof bytes, sizeof sector - begin));
    }
    return DecodeGptEntry(bytes);
}

// The descriptor stands behind the master record.
int ReadGpt(int descriptor, std::vector<gpart>& gpt, unsigned int* count)
{
    Sector sector;
    if (ReadSector(descriptor, sector) != static_cast<ssize_t>(sizeof sector))
        return 0;
    const std::uint32_t announced = Read<std::uint32_t>(sector + HeaderCountOffset);
    const std::uint64_t entrySize = Read<std::uint32_t>(sector + HeaderEntrySizeOffset);
    const std::uint32_t sectors = std::min(announced, MostGptEntries) / GptEntriesPerSector;

    // The usual table; larger ones grow as they are found to be there.
    gpt.reserve(std::min(std::size_t{sectors} * GptEntriesPerSector, UsualGptEntries));
    int appended = 0;
    for (std::uint32_t number = 0; number < sectors; ++number) {
        const ssize_t got = ReadSector(descriptor, sector);
        // Neither the end nor an error moves the position: all later reads would end the same.
        if (got <= 0)
            break;
        if (got != static_cast<ssize_t>(sizeof sector))
            continue;
        for (std::uint32_t index = 0; index < GptEntriesPerSector; ++index) {
            gpt.push_back(GptEntry(sector, index * entrySize));
            ++*count;
            ++appended;
        }
    }
    return appended;
}

bool IsExtended(std::uint8_t type)
{
    return type == 0x05 || type == 0x0F || type == 0x85;
}

// Finds out when a walk in which nothing happens comes back to where it was (Brent's method: a
// remembered stop, moved up after 1, 2, 4, ... steps), in constant memory.
class CCircleDetector
{
public:
    // Something happened: a stop before this one may be seen again.
    void Forget() { m_Steps = m_Limit = 0; }

    // True when the walk has been at this stop with nothing happening since.
    bool IsBackAt(long long stop)
    {
        if (m_Limit != 0 && stop == m_Remembered)
            return true;
        if (m_Steps == m_Limit) {
            m_Remembered = stop;
            m_Limit = m_Limit == 0 ? 1 : 2 * m_Limit;
            m_Steps = 0;
        }
        ++m_Steps;
        return false;
    }

private:
    long long m_Remembered = 0;
    std::uint64_t m_Steps = 0;
    std::uint64_t m_Limit = 0;
};

} // namespace

int ReadPartitionTable(int descriptor, std::vector<ipart>& classic, std::vector<gpart>& gpt,
                       long long sector, long long extendedBase, unsigned int* count)
{
    ipart entries[EntriesPerRecord];
    if (descriptor < 0 || !ReadBootRecord(descriptor, sector, entries))
        return -1;

    classic.reserve(MostClassicEntries);
    // A chain is walked, not recursed into: it may be as long as the disk.
    CCircleDetector circle;
    int appended = 0;
    for (;;) {
        const bool nested = extendedBase != 0;
        if (!nested && std::any_of(std::begin(entries), std::end(entries),
                                   [](const ipart& entry) { return entry.type == ProtectiveType; }))
            return appended + ReadGpt(descriptor, gpt, count);

        // The master record's entries are all taken, empty ones and the extended partition too, so
        // that an entry's place is the kernel's number for it.
        for (const ipart& entry : entries) {
            if (nested && (entry.type == 0 || IsExtended(entry.type)))
                continue;
            if (*count >= MostClassicEntries)
                return appended;
            classic.push_back(entry);
            if (nested && *count < classic.size())
                classic[*count].startLba += static_cast<std::uint32_t>(sector);
            ++*count;
            ++appended;
            circle.Forget();
        }

        const auto* const link =
            std::find_if(std::begin(entries), std::end(entries),
                         [](const ipart& entry) { return IsExtended(entry.type); });
        if (link == std::end(entries))
            return appended;
        sector = extendedBase + link->startLba;
        if (!nested)
            extendedBase = sector;
        if (circle.IsBackAt(sector) || !ReadBootRecord(descriptor, sector, entries))
            return appended;
    }
}

} // namespace VornEx::Internals
