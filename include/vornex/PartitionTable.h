// Partitions of a disk, with their mount points.
//
//     VornEx::CSystemPartitionTable disk;
//     disk.m_Device = "/dev/sda";
//     std::vector<VornEx::CSystemPartition> partitions;
//     disk.GetPartitions(partitions);
//
// Read are the classic table of the master boot record with its chain of extended boot records, and
// the GUID partition table (UEFI specification 2.10, chapter 5) where a protective record announces
// one. Sectors are 512 bytes throughout. Numbers in device names are the kernel's.
//
// A disk is not trusted. Chains that run in circles end where they began, an entry that reaches
// beyond its sector reads as zero there, and of a GUID table at most 65,536 entries are looked at;
// no real table comes near that.
//
// What it does not do: it looks at no check sums, does not ask where a GUID table lies (sector 2,
// four entries a sector), does not support sectors of another size, does not know BSD, Sun or
// Apple labels, and does not recognise file systems: one that covers a whole disk and bears the
// boot signature reads as partitions that are not there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <vorn/Export.h>
#include <vorn/StringVar.h>

// Positions a descriptor at a sector (byte sector * 512, lseek(2)). 1 when it stands there
// afterwards, else 0. Its symbol is not mangled.
extern "C" VORN_EXPORT int sseek(int descriptor, long long sector);

namespace VornEx {

// One entry of the classic table, as its 16 bytes on the disk.
struct ipart
{
    std::uint8_t bootIndicator; // 0x80: active
    std::uint8_t startChs[3];   // not interpreted
    std::uint8_t type;          // 0: empty; 0x05, 0x0F, 0x85: extended; 0xEE: protective
    std::uint8_t endChs[3];     // not interpreted
    std::uint32_t startLba;     // in an extended boot record relative to it; then made absolute
    std::uint32_t sectorCount;
};
static_assert(sizeof(ipart) == 16 && offsetof(ipart, type) == 4 && offsetof(ipart, startLba) == 8);

// One entry of a GUID partition table, as its 128 bytes on the disk.
struct gpart
{
    std::uint8_t typeGuid[16]; // all zero: empty
    std::uint8_t uniqueGuid[16];
    std::uint64_t firstLba;
    std::uint64_t lastLba; // inclusive
    std::uint64_t attributes;
    std::uint16_t name[36]; // UTF-16
};
static_assert(sizeof(gpart) == 128 && offsetof(gpart, firstLba) == 32 &&
              offsetof(gpart, attributes) == 48 && offsetof(gpart, name) == 56);

// One partition. A plain value.
struct VORN_EXPORT CSystemPartition
{
    // "Unknown" for every partition of a classic table and for swap space of a GUID table, empty
    // for the other partitions of a GUID table. The difference is meant.
    Vorn::Strings::TString<16> m_FileSystem;
    std::uint64_t m_StartSector = 0; // on the disk
    std::uint64_t m_SectorCount = 0;
    Vorn::Strings::TString<16> m_Text1;      // empty on this system
    Vorn::Strings::TString<16> m_Text2;      // empty on this system
    std::uint32_t m_Number = 0;              // 0 on this system
    Vorn::Strings::TString<16> m_Text3;      // empty on this system
    Vorn::Strings::TString<16> m_MountPoint; // directory, "Swap" for swap space, or empty
    Vorn::Strings::TString<16> m_DeviceName; // such as /dev/sda1 or /dev/cciss/c0d0p1
};

// The partitions of one disk.
class VORN_EXPORT CSystemPartitionTable
{
public:
    // Device node, or image file, of the whole disk; set before the call.
    Vorn::Strings::TString<64> m_Device;

    // Replaces the content of the vector by the partitions of m_Device. An empty path and a disk
    // that cannot be read give none; nothing is raised. A partition is mounted where the last
    // entry of /etc/mtab (/proc/mounts, when that cannot be opened) says whose source is exactly
    // its device name. A classic table gives at most its first 60 entries.
    //
    // Nothing is kept between calls. getmntent(3) works in a buffer of the process: calls must not
    // overlap with each other. Throws std::bad_alloc; the descriptor is closed all the same.
    void GetPartitions(std::vector<CSystemPartition>& partitions);
};

} // namespace VornEx
