// vornex disks, and the disks' section of the report.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vornex/PartitionTable.h>

#include "Program.h"
#include "Section.h"

namespace Tool {

namespace {

using Partitions = std::vector<VornEx::CSystemPartition>;

constexpr std::uint64_t SectorSize = 512;

struct CDisk
{
    std::string m_Path;
    std::uint64_t m_Bytes = 0;
    Partitions m_Partitions;
    std::string m_Note;    // what a reader has to know before he believes the partitions
    std::string m_Problem; // why it could not be read; else empty
};

// The boot sector as far as file systems use it: a jump over a parameter block with the maker's
// name and the sector size.
bool HasFileSystemParameters(const unsigned char* sector)
{
    const bool jumps = (sector[0] == 0xEB && sector[2] == 0x90) || sector[0] == 0xE9;
    const bool named = std::all_of(sector + 3, sector + 11, [](unsigned char character) {
        return character >= 0x20 && character < 0x7F;
    });
    const unsigned int sectorSize = sector[11] + 256U * sector[12];
    // exFAT keeps its own fields elsewhere, and zeros here.
    const bool sized =
        (sectorSize >= 512 && sectorSize <= 4096 && (sectorSize & (sectorSize - 1)) == 0) ||
        std::memcmp(sector + 3, "EXFAT   ", 8) == 0;
    return jumps && named && sized;
}

// Entries that no partitioning tool writes: an odd indicator, outside the disk, or overlapping.
bool AreNonsense(const unsigned char* sector, const CDisk& disk)
{
    for (int index = 0; index < 4; ++index) {
        const unsigned char* const entry = sector + 446 + std::ptrdiff_t{16} * index;
        if (entry[0] != 0 && entry[0] != 0x80)
            return true;
    }
    const std::uint64_t sectors = disk.m_Bytes / SectorSize;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> runs;
    for (const auto& partition : disk.m_Partitions) {
        const std::uint64_t end = partition.m_StartSector + partition.m_SectorCount;
        if (partition.m_StartSector == 0 || end > sectors || end <= partition.m_StartSector)
            return true;
        runs.emplace_back(partition.m_StartSector, end);
    }
    std::sort(runs.begin(), runs.end());
    for (std::size_t index = 1; index < runs.size(); ++index)
        if (runs[index].first < runs[index - 1].second)
            return true;
    return false;
}

// A file system without a table whose boot sector bears the table's signature.
bool LooksLikeFileSystem(int descriptor, const CDisk& disk)
{
    unsigned char sector[SectorSize];
    if (pread(descriptor, sector, sizeof sector, 0) != static_cast<ssize_t>(sizeof sector) ||
        sector[510] != 0x55 || sector[511] != 0xAA || !HasFileSystemParameters(sector))
        return false;
    return disk.m_Partitions.empty() || AreNonsense(sector, disk);
}

// Fills in what the disk itself tells.
void ReadDisk(CDisk& disk)
{
    const char* const path = disk.m_Path.c_str();
    const int descriptor = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        disk.m_Problem = std::strerror(errno);
        return;
    }
    struct stat status
    {};
    const off_t end = lseek(descriptor, 0, SEEK_END);
    if (fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode)) {
        disk.m_Problem = std::strerror(EISDIR);
    } else if (end < 0) {
        disk.m_Problem = "not a disk or an image of one";
    } else {
        disk.m_Bytes = static_cast<std::uint64_t>(end);
        VornEx::CSystemPartitionTable table;
        table.m_Device = Vorn::Strings::CStringRef(path);
        table.GetPartitions(disk.m_Partitions);
        if (LooksLikeFileSystem(descriptor, disk))
            disk.m_Note = "looks like a file system without a partition table";
    }
    close(descriptor);
}

// The whole disks that the kernel knows, in the order of their names.
std::vector<CDisk> KernelDisks()
{
    std::vector<CDisk> disks;
    DIR* const folder = opendir("/sys/block");
    if (folder == nullptr)
        return disks;
    while (const dirent* const entry = readdir(folder)) {
        std::string name = entry->d_name;
        if (name[0] == '.' || name.rfind("ram", 0) == 0 || name.rfind("zram", 0) == 0)
            continue;
        std::uint64_t sectors = 0;
        std::ifstream("/sys/block/" + name + "/size") >> sectors;
        if (name.rfind("loop", 0) == 0 && sectors == 0)
            continue;
        // The kernel writes a slash in a device's name as an exclamation mark.
        std::replace(name.begin(), name.end(), '!', '/');
        disks.push_back({"/dev/" + name, sectors * SectorSize, {}, {}, {}});
    }
    closedir(folder);
    std::sort(disks.begin(), disks.end(),
              [](const CDisk& left, const CDisk& right) { return left.m_Path < right.m_Path; });
    return disks;
}

void AddText(const CDisk& disk, CText& text)
{
    text.m_Rows.emplace_back(disk.m_Path, Size(disk.m_Bytes) + ", " +
                                              std::to_string(disk.m_Bytes / SectorSize) +
                                              " sectors");
    if (!disk.m_Problem.empty())
        text.m_Rows.emplace_back("", "cannot be read: " + disk.m_Problem);
    else if (!disk.m_Note.empty())
        text.m_Rows.emplace_back("", disk.m_Note);
    else if (disk.m_Partitions.empty())
        text.m_Rows.emplace_back("", "no partitions");
}

CTable PartitionTable(const std::vector<CDisk>& disks)
{
    CTable table;
    table.m_Head = {"Partition", "Start", "Sectors", "Size", "File system", "Mounted on"};
    for (const auto& disk : disks)
        for (const auto& partition : disk.m_Partitions)
            table.m_Rows.push_back({partition.m_DeviceName.m_Text,
                                    std::to_string(partition.m_StartSector),
                                    std::to_string(partition.m_SectorCount),
                                    Size(partition.m_SectorCount * SectorSize),
                                    partition.m_FileSystem.m_Text, partition.m_MountPoint.m_Text});
    return table;
}

Json AsJson(const CDisk& disk)
{
    Json partitions = Json::array();
    for (const auto& partition : disk.m_Partitions)
        partitions.push_back({{"device", partition.m_DeviceName.m_Text},
                              {"start_sector", partition.m_StartSector},
                              {"sectors", partition.m_SectorCount},
                              {"file_system", partition.m_FileSystem.m_Text},
                              {"mount_point", partition.m_MountPoint.m_Text}});
    Json json = {{"device", disk.m_Path}, {"bytes", disk.m_Bytes}, {"partitions", partitions}};
    if (!disk.m_Note.empty())
        json["note"] = disk.m_Note;
    if (!disk.m_Problem.empty())
        json["error"] = disk.m_Problem;
    return json;
}

CSection Section(std::vector<CDisk> disks)
{
    CSection section;
    section.m_Text.m_Title = "Disks";
    section.m_Json = Json::array();
    for (auto& disk : disks) {
        ReadDisk(disk);
        if (!disk.m_Problem.empty())
            section.m_Problems.push_back(disk.m_Path + ": " + disk.m_Problem);
        AddText(disk, section.m_Text);
        section.m_Json.push_back(AsJson(disk));
    }
    CTable table = PartitionTable(disks);
    if (!table.m_Rows.empty())
        section.m_Text.m_Tables.push_back(std::move(table));
    if (disks.empty())
        section.m_Text.m_Rows.emplace_back("none", "");
    return section;
}

struct COptions
{
    std::vector<std::string> m_Paths;
    bool m_Json = false;
};

int Disks(const COptions& options)
{
    std::vector<CDisk> disks;
    for (const auto& path : options.m_Paths)
        disks.push_back({path, 0, {}, {}, {}});
    CSection section = Section(disks.empty() ? KernelDisks() : std::move(disks));
    section.m_Json = Json{{"disks", section.m_Json}};
    return PrintSection(section, options.m_Json);
}

} // namespace

CSection DisksSection()
{
    CSection section = Section(KernelDisks());
    // To be no administrator is no failure of the report; its rows say what could not be read.
    section.m_Problems.clear();
    return section;
}

void AddDisks(CProgram& program)
{
    const auto command = program.Add("disks", "Disks and their partitions", Disks);
    command.m_App->add_option("PATH", command.m_Options->m_Paths,
                              "Devices or image files (default: the disks of this machine)");
    AddJson(command.m_App, command.m_Options->m_Json);
}

} // namespace Tool
