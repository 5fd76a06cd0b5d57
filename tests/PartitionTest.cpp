// Partitions: tables of real tools against the tools' own listings, hostile tables, mount points.
#include <cerrno>
#include <cstring>
#include <random>

#include <mntent.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <vorn/Threading.h>
#include <vornex/PartitionTable.h>

#include "../Src/Linux/PartitionReader.h"
#include "DataTable.h"
#include "DiskImage.h"
#include "ScratchFolder.h"
#include "Shell.h"

namespace {

using Rows = std::vector<std::string>;

// What the mount table holds: source, directory and kind of each. No table at all while
// `g_TablesMissing` counts down the tries to open one.
Rows g_Mounts;
Rows g_TablesAsked;
int g_TablesMissing = 0;
std::size_t g_NextMount = 0;

long g_Reads = 0;
off_t g_BadPosition = -1; // reading there fails

} // namespace

extern "C" {

FILE* setmntent(const char* path, const char* /*mode*/) noexcept
{
    g_TablesAsked.emplace_back(path);
    g_NextMount = 0;
    return g_TablesMissing-- > 0 ? nullptr : std::fopen("/dev/null", "r");
}

mntent* getmntent(FILE* /*table*/) noexcept
{
    static mntent entry;
    if (g_NextMount + 3 > g_Mounts.size())
        return nullptr;
    std::string* const mount = &g_Mounts[g_NextMount];
    g_NextMount += 3;
    entry.mnt_fsname = mount[0].data();
    entry.mnt_dir = mount[1] == "NULL" ? nullptr : mount[1].data();
    entry.mnt_type = mount[2].data();
    return &entry;
}

int endmntent(FILE* table) noexcept
{
    std::fclose(table);
    return 1;
}

ssize_t read(int descriptor, void* buffer, size_t size)
{
    ++g_Reads;
    if (g_BadPosition >= 0 && lseek(descriptor, 0, SEEK_CUR) == g_BadPosition) {
        errno = EIO;
        return -1;
    }
    return syscall(SYS_read, descriptor, buffer, size);
}

} // extern "C"

namespace {

class Partition : public testing::Test
{
protected:
    Partition()
    {
        g_Mounts.clear();
        g_TablesAsked.clear();
        g_TablesMissing = 0;
        g_BadPosition = -1;
    }
    ~Partition() override { EXPECT_EQ(OpenDescriptors(), m_Descriptors); }

    static std::vector<VornEx::CSystemPartition> Get(const std::string& path)
    {
        VornEx::CSystemPartitionTable table;
        table.m_Device = Vorn::Strings::CStringRef(path);
        std::vector<VornEx::CSystemPartition> partitions(3); // is replaced
        g_Reads = 0;
        table.GetPartitions(partitions);
        return partitions;
    }

    // "number start sectors [file system] mount point" of each partition of the disk.
    Rows Lines() const
    {
        Rows lines;
        for (const auto& partition : Get(m_Path)) {
            lines.push_back(std::string(partition.m_DeviceName.m_Text + m_Path.size()) + " " +
                            std::to_string(partition.m_StartSector) + " " +
                            std::to_string(partition.m_SectorCount) + " [" +
                            partition.m_FileSystem.m_Text + "]");
            if (partition.m_MountPoint.m_Length != 0)
                lines.back() += std::string(" ") + partition.m_MountPoint.m_Text;
        }
        return lines;
    }
    Rows Lines(const CDiskImage& image) const
    {
        image.Write(m_Path);
        return Lines();
    }

    // Runs a partitioning tool over a fresh image; gives our lines, which must agree with what
    // sfdisk lists but for extended containers.
    Rows Made(off_t size, const std::string& command, const std::string& script = "")
    {
        std::ofstream(m_Path).close();
        EXPECT_EQ(truncate(m_Path.c_str(), size), 0);
        const std::string whole = "( " + command + " '" + m_Path + "' ) >/dev/null 2>&1 <<TABLE\n";
        EXPECT_EQ(std::system((whole + script + "\nTABLE\n").c_str()), 0)
            << command << ": is the package installed that has it?";
        Rows ours;
        for (const auto& line : Lines())
            ours.push_back(line.substr(0, line.find(" [")));
        EXPECT_EQ(ours,
                  OutputOf("sfdisk -d '" + m_Path + "' | sed -nE '/type=[5f](,|$)/d; s|^" + m_Path +
                           "([0-9]+) : start= *([0-9]+), size= *([0-9]+),.*|\\1 \\2 \\3|p'"));
        return Lines();
    }

    const CScratchFolder m_Folder;
    const std::string m_Path = m_Folder.m_Path + "/disk";
    const std::size_t m_Descriptors = OpenDescriptors();
};

TEST_F(Partition, TablesOfRealTools)
{
    const Rows classic = Made(16 << 20, "sfdisk", // 17 is hidden
                              "label: dos\n2048,2048,83\n4096,2048,82,*\n6144,2048,17\n");
    ASSERT_EQ(classic.size(), 3U);
    EXPECT_EQ(classic[1], "2 4096 2048 [Unknown] Swap");

    // Logical partitions created out of order: the chain's order counts, as for the kernel.
    EXPECT_EQ(Made(16 << 20, "sfdisk",
                   "label: dos\n1: start=2048,size=2048,type=83\n3: start=8192,size=24000,type=5\n"
                   "5: start=20480,size=2048,type=82\n6: start=12288,size=2048,type=83\n"
                   "7: start=28672,size=1024,type=7\n")
                  .size(),
              4U);

    std::string create = "sgdisk -a 1";
    for (int number = 1; number <= 128; ++number)
        create += " -n " + std::to_string(number) + ":" + std::to_string(100 * number) + ":" +
                  std::to_string(100 * number + number % 50);
    EXPECT_EQ(Made(16 << 20, create).size(), 128U);
    EXPECT_EQ(
        Made(16 << 20, "sgdisk -a 1 -n 2:2048:4095 -n 7:6000:6099 -t 7:8200 -n 128:9000:9000"),
        (Rows{"2 2048 2048 []", "7 6000 100 [Unknown] Swap", "128 9000 1 []"}));
    EXPECT_EQ(Made(off_t{8} << 40, "sfdisk", "label: gpt\n,1T\n").size(), 1U);
}

TEST_F(Partition, HostileTablesEnd)
{
    EachRow("partitions", "images", [this](const CDataRow& row) {
        CDiskImage image(row.Number<std::size_t>(1));
        std::size_t at = 3;
        while (row[at] != "LINES") {
            const std::string& what = row[at++];
            std::uint64_t n[5] = {};
            for (auto& number : n)
                if (row[at].find_first_not_of("0123456789ABCDEFx") == std::string::npos)
                    number = row.Number<std::uint64_t>(at++);
            const auto size = [&n](int i) { return static_cast<std::size_t>(n[i]); };
            if (what == "header")
                image.GptHeader(static_cast<std::uint32_t>(n[0]), static_cast<std::uint32_t>(n[1]));
            else if (what == "guid")
                image.GptEntry(size(0), static_cast<std::uint8_t>(n[1]), n[2], n[3]);
            else
                image.Entry(size(0), size(1), static_cast<std::uint8_t>(n[2]),
                            static_cast<std::uint32_t>(n[3]), static_cast<std::uint32_t>(n[4]));
        }
        const Rows lines = Lines(image);
        const Rows expected = row.From(at + 1);
        EXPECT_LE(g_Reads, row.Number(2));
        if (!expected.empty() && expected[0] == "any")
            EXPECT_EQ(lines.size(), std::stoul(expected[1]));
        else
            EXPECT_EQ(lines, expected);
    });
    // A read error does not move the position: it would come back for ever.
    g_BadPosition = 1024;
    EXPECT_EQ(Lines(), Rows{});
    EXPECT_LT(g_Reads, 10);
    g_BadPosition = -1;

    // A long chain of links alone; walked, so that no stack grows.
    CDiskImage links(100001);
    links.Entry(0, 0, 0x05, 1, 1);
    for (std::uint32_t link = 1; link < 100000; ++link)
        links.Entry(link, 0, 0x05, link, 1);
    links.Entry(100000, 0, 0x83, 1, 7);
    EXPECT_EQ(Lines(links), (Rows{"5 100001 7 [Unknown]"}));
}

TEST_F(Partition, AtMostSixtyEntries)
{
    // The four of the master record are among them.
    CDiskImage many(200);
    many.Entry(0, 0, 0x83, 9, 9).Entry(0, 1, 0x05, 1, 150);
    for (std::uint32_t link = 0; link < 70; ++link)
        many.Entry(1 + link, 0, 0x83, 1, 1).Entry(1 + link, 1, 0x05, link + 1, 1);
    const Rows sixty = Lines(many);
    EXPECT_EQ(sixty.size(), 57U);
    EXPECT_EQ(sixty.back(), "60 57 1 [Unknown]");

    FILE* const disk = std::fopen(m_Path.c_str(), "r");
    std::vector<VornEx::ipart> classic;
    std::vector<VornEx::gpart> gpt;
    const auto read = [&](unsigned int counter, int file, long long sector, int level) {
        return VornEx::Internals::ReadPartitionTable(file, classic, gpt, sector, level, &counter);
    };
    // The counter decides over the limit, and must not lead outside the vector.
    for (const auto& [counter, result] :
         std::map<unsigned int, int>{{0, 60}, {56, 4}, {59, 1}, {60, 0}, {0xFFFFFFFF, 0}}) {
        classic.clear();
        EXPECT_EQ(read(counter, fileno(disk), 0, 0), result);
        EXPECT_EQ(classic.size(), static_cast<std::size_t>(result));
    }
    // Called for a nested record, with a counter far from the vector's length.
    classic.resize(2);
    EXPECT_EQ(read(50, fileno(disk), 1, 1), 10);
    EXPECT_EQ(classic.size(), 12U);
    EXPECT_EQ(read(56, -1, 0, 0), -1);
    EXPECT_EQ(read(56, fileno(disk), 199, 0), -1) << "no signature";
    // Only the low 32 bits of a sector count, with their sign.
    EXPECT_EQ(read(56, fileno(disk), 1LL << 32, 0), 4);
    EXPECT_EQ(sseek(fileno(disk), 5), 1);
    EXPECT_EQ(ftell(disk), 5 * 512);
    EXPECT_EQ(sseek(fileno(disk), -1), 0);
    EXPECT_EQ(sseek(fileno(disk), 1LL << 55), 0) << "beyond what an offset can say";
    std::fclose(disk);
}

TEST_F(Partition, DamagedDisks)
{
    EXPECT_TRUE(Get("").empty());
    EXPECT_TRUE(Get("/nonexistent/disk").empty());
    EXPECT_TRUE(g_TablesAsked.empty()) << "not read without a disk";
    EXPECT_TRUE(Get(m_Folder.m_Path).empty());

    CDiskImage chain(70);
    chain.Entry(0, 0, 0x83, 1, 1).Entry(0, 1, 0x05, 20, 50);
    chain.Entry(20, 0, 0x83, 1, 1).Entry(20, 1, 0x05, 20, 9).Entry(40, 0, 0x83, 1, 1);
    for (std::size_t cut = 0; cut <= 70 * 512; cut += cut % 512 == 511 ? 1 : 511) {
        CDiskImage part = chain;
        part.m_Bytes.resize(cut);
        const std::size_t whole = cut / 512;
        const std::size_t read =
            (whole >= 1 ? 1 : 0) + (whole >= 21 ? 1 : 0) + (whole >= 41 ? 1 : 0);
        EXPECT_EQ(Lines(part).size(), read) << cut;
    }

    std::mt19937 random(42);
    for (int round = 0; round < 300; ++round) {
        CDiskImage noise(64);
        for (auto& byte : noise.m_Bytes)
            byte = static_cast<std::uint8_t>(random());
        for (std::size_t sector = 0; sector < 64; ++sector) {
            noise.Number(512 * sector + 510, 0xAA55, 2);
            if (random() % 2 == 0) // links that lead somewhere
                noise.Entry(sector, random() % 4, 0x05, random() % 64, 1);
        }
        EXPECT_LE(Lines(noise).size(), 65536U);
    }
}

TEST_F(Partition, NamesOfPartitions)
{
    CDiskImage image(10);
    image.Entry(0, 2, 0x83, 1, 2);
    // Behind a digit comes a "p", on a path of any length, whether raises throw or not.
    std::string deep = m_Folder.m_Path;
    for (int level = 0; level < 15; ++level)
        deep += "/" + std::string(200, 'd');
    std::filesystem::create_directories(deep);
    for (const auto& [path, end] :
         std::map<std::string, std::string>{{m_Folder.m_Path + "/c0d0", "p3"},
                                            {m_Folder.m_Path + "/sda", "3"},
                                            {m_Folder.m_Path + "/x-", "3"},
                                            {deep + "/7", "p3"}}) {
        image.Write(path);
        ASSERT_EQ(Get(path).size(), 1U) << path;
        EXPECT_TRUE(Get(path)[0].m_DeviceName == path + end);
        const Vorn::Threading::CThrowDisable guard;
        EXPECT_TRUE(Get(path)[0].m_DeviceName == path + end);
        EXPECT_TRUE(Vorn::Threading::Declines()) << "the thread's state is put back";
    }
}

TEST_F(Partition, MountPoints)
{
    CDiskImage image(20);
    image.Entry(0, 0, 0x83, 1, 2).Entry(0, 1, 0x83, 3, 2).Entry(0, 2, 0x82, 5, 2);
    image.Entry(0, 3, 0x83, 7, 2).Write(m_Path);
    EachRow("partitions", "mounts", [this](const CDataRow& row) {
        g_Mounts = row.From(2);
        for (auto& text : g_Mounts)
            text = Replaced(text, "DISK", m_Path);
        const auto partitions = Get(m_Path);
        ASSERT_EQ(partitions.size(), 4U);
        EXPECT_STREQ(partitions[0].m_MountPoint.m_Text, row[1].c_str()) << row[0];
        EXPECT_STREQ(partitions[2].m_MountPoint.m_Text, "Swap") << "by its type";
    });

    g_TablesAsked.clear();
    g_TablesMissing = 1;
    g_Mounts = {m_Path + "1", "/boot", "ext4"};
    EXPECT_TRUE(Get(m_Path)[0].m_MountPoint == "/boot");
    EXPECT_EQ(g_TablesAsked, (Rows{"/etc/mtab", "/proc/mounts"}));
    g_TablesMissing = 2;
    EXPECT_TRUE(Get(m_Path)[0].m_MountPoint == "");
}

} // namespace
