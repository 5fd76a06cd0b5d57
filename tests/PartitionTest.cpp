// Partitions: tables of real tools against the tools' own listings, hostile tables, mount points.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#include <dirent.h>
#include <mntent.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <vorn/Threading.h>
#include <vornex/PartitionTable.h>

#include "../Src/Linux/PartitionReader.h"
#include "DiskImage.h"

namespace {

// What the mount table holds; no table at all while `m_Missing` counts down the tries to open one.
struct CMount
{
    std::string m_Source, m_Directory, m_Type;
    bool m_NoDirectory = false;
};
std::vector<CMount> g_Mounts;
std::vector<std::string> g_TablesAsked;
int g_TablesMissing = 0;
std::size_t g_NextMount = 0;

int g_Interruptions = 0;
long g_Reads = 0;
off_t g_BadPosition = -1; // reading there fails

} // namespace

extern "C" {

FILE* setmntent(const char* path, const char* /*mode*/) noexcept
{
    g_TablesAsked.emplace_back(path);
    g_NextMount = 0;
    if (g_TablesMissing > 0) {
        --g_TablesMissing;
        return nullptr;
    }
    return std::fopen("/dev/null", "r");
}

mntent* getmntent(FILE* /*table*/) noexcept
{
    static mntent entry;
    if (g_NextMount == g_Mounts.size())
        return nullptr;
    CMount& mount = g_Mounts[g_NextMount++];
    entry.mnt_fsname = mount.m_Source.data();
    entry.mnt_dir = mount.m_NoDirectory ? nullptr : mount.m_Directory.data();
    entry.mnt_type = mount.m_Type.data();
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
    if (g_Interruptions > 0) {
        --g_Interruptions;
        errno = EINTR;
        return -1;
    }
    if (g_BadPosition >= 0 && lseek(descriptor, 0, SEEK_CUR) == g_BadPosition) {
        errno = EIO;
        return -1;
    }
    return syscall(SYS_read, descriptor, buffer, size);
}

} // extern "C"

namespace {

using VornEx::CSystemPartition;
using Partitions = std::vector<CSystemPartition>;

// name start sectors [file system] mount point
std::string Text(const CSystemPartition& partition, std::size_t nameFrom)
{
    return std::string(partition.m_DeviceName.m_Text + nameFrom) + " " +
           std::to_string(partition.m_StartSector) + " " + std::to_string(partition.m_SectorCount) +
           " [" + partition.m_FileSystem.m_Text + "] " + partition.m_MountPoint.m_Text;
}

std::size_t OpenDescriptors()
{
    std::size_t count = 0;
    DIR* const folder = opendir("/proc/self/fd");
    while (readdir(folder) != nullptr)
        ++count;
    closedir(folder);
    return count;
}

class Partition : public testing::Test
{
protected:
    void SetUp() override
    {
        char name[] = "/tmp/vornex-disk-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        m_Folder = name;
        m_Path = m_Folder + "/disk";
        m_Descriptors = OpenDescriptors();
        g_Mounts.clear();
        g_TablesAsked.clear();
        g_TablesMissing = g_Interruptions = 0;
        g_BadPosition = -1;
    }
    void TearDown() override
    {
        EXPECT_EQ(OpenDescriptors(), m_Descriptors);
        EXPECT_EQ(std::system(("rm -rf '" + m_Folder + "'").c_str()), 0);
    }

    Partitions Get(const std::string& path)
    {
        VornEx::CSystemPartitionTable table;
        table.m_Device = Vorn::Strings::CStringRef(path);
        Partitions partitions(3); // is replaced
        g_Reads = 0;
        table.GetPartitions(partitions);
        return partitions;
    }

    std::vector<std::string> Lines(const CDiskImage& image)
    {
        image.Write(m_Path);
        std::vector<std::string> lines;
        for (const auto& partition : Get(m_Path))
            lines.push_back(Text(partition, m_Path.size()));
        return lines;
    }

    // Runs a partitioning tool over a fresh image.
    void Make(off_t size, const std::string& command)
    {
        std::ofstream(m_Path).close();
        ASSERT_EQ(truncate(m_Path.c_str(), size), 0);
        ASSERT_EQ(
            std::system(
                ("( " + command + " ) >/dev/null 2>&1 <<TABLE\n" + m_Script + "\nTABLE\n").c_str()),
            0)
            << command << ": is the package installed that has it?";
    }

    // What sfdisk itself lists: "number start size", without extended containers.
    std::vector<std::string> ToolLines()
    {
        std::vector<std::string> lines;
        FILE* const dump = popen(("sfdisk -d '" + m_Path + "'").c_str(), "r");
        char line[512];
        while (dump != nullptr && std::fgets(line, sizeof line, dump) != nullptr) {
            unsigned int number = 0;
            unsigned long long start = 0;
            unsigned long long size = 0;
            char type[64] = "";
            if (std::strncmp(line, m_Path.c_str(), m_Path.size()) == 0 &&
                std::sscanf(line + m_Path.size(), "%u : start= %llu, size= %llu, type=%63[^,\n]",
                            &number, &start, &size, type) == 4 &&
                std::strcmp(type, "5") != 0 && std::strcmp(type, "f") != 0)
                lines.push_back(std::to_string(number) + " " + std::to_string(start) + " " +
                                std::to_string(size));
        }
        pclose(dump);
        return lines;
    }

    void ExpectAgreement(std::size_t atLeast)
    {
        std::vector<std::string> ours;
        for (const auto& partition : Get(m_Path))
            ours.push_back(std::string(partition.m_DeviceName.m_Text + m_Path.size()) + " " +
                           std::to_string(partition.m_StartSector) + " " +
                           std::to_string(partition.m_SectorCount));
        EXPECT_GE(ours.size(), atLeast);
        EXPECT_EQ(ours, ToolLines());
    }

    std::string m_Folder;
    std::string m_Path;
    std::string m_Script;
    std::size_t m_Descriptors = 0;
};

using Rows = std::vector<std::string>;

TEST_F(Partition, ClassicTablesOfRealTools)
{
    m_Script = "label: dos\n2048,2048,83\n4096,2048,82,*\n6144,2048,17\n"; // 17 is hidden
    Make(16 << 20, "sfdisk '" + m_Path + "'");
    ExpectAgreement(3);
    EXPECT_EQ(Text(Get(m_Path)[1], m_Path.size()), "2 4096 2048 [Unknown] Swap");

    // Logical partitions created out of order: the chain's order counts, as for the kernel.
    m_Script = "label: dos\n1: start=2048,size=2048,type=83\n3: start=8192,size=24000,type=5\n"
               "5: start=20480,size=2048,type=82\n6: start=12288,size=2048,type=83\n"
               "7: start=28672,size=1024,type=7\n";
    Make(16 << 20, "sfdisk '" + m_Path + "'");
    ExpectAgreement(4);
}

TEST_F(Partition, GuidTablesOfRealTools)
{
    std::string create = "sgdisk -a 1";
    for (int number = 1; number <= 128; ++number)
        create += " -n " + std::to_string(number) + ":" + std::to_string(100 * number) + ":" +
                  std::to_string(100 * number + number % 50);
    Make(16 << 20, create + " '" + m_Path + "'");
    ExpectAgreement(128);

    Make(16 << 20,
         "sgdisk -a 1 -n 2:2048:4095 -n 7:6000:6099 -t 7:8200 -n 128:9000:9000 '" + m_Path + "'");
    ExpectAgreement(3);
    Rows lines;
    for (const auto& partition : Get(m_Path))
        lines.push_back(Text(partition, m_Path.size()));
    EXPECT_EQ(lines, (Rows{"2 2048 2048 [] ", "7 6000 100 [Unknown] Swap", "128 9000 1 [] "}));

    m_Script = "label: gpt\n,1T\n";
    Make(off_t{8} << 40, "sfdisk '" + m_Path + "'");
    ExpectAgreement(1);
}

TEST_F(Partition, RulesOfTheTables)
{
    // The first extended entry leads on; relative starts become absolute; EE inside is ordinary.
    CDiskImage chain(7000);
    chain.Entry(0, 0, 0x83, 63, 100).Entry(0, 1, 0x0F, 1000, 6000).Entry(0, 3, 0x05, 2000, 10);
    chain.Entry(1000, 0, 0x83, 63, 5).Entry(1000, 1, 0x85, 5000, 9);
    chain.Entry(6000, 0, 0xEE, 7, 8).Entry(6000, 2, 0xC3, 20, 3).Entry(6000, 3, 0x42, 30, 3);
    EXPECT_EQ(Lines(chain),
              (Rows{"1 63 100 [Unknown] ", "5 1063 5 [Unknown] ", "6 6007 8 [Unknown] ",
                    "7 6020 3 [Unknown] Swap", "8 6030 3 [Unknown] Swap"}));

    // At most sixty entries, the four of the master record among them.
    CDiskImage many(200);
    many.Entry(0, 0, 0x83, 9, 9).Entry(0, 1, 0x05, 1, 150);
    for (std::uint32_t link = 0; link < 70; ++link)
        many.Entry(1 + link, 0, 0x83, 1, 1).Entry(1 + link, 1, 0x05, link + 1, 1);
    const Rows sixty = Lines(many);
    EXPECT_EQ(sixty.size(), 57U);
    EXPECT_EQ(sixty.back(), "60 57 1 [Unknown] ");

    // The counter decides over the limit, and must not lead outside the vector.
    const struct
    {
        unsigned int m_Counter;
        int m_Result;
    } counters[] = {{0, 60}, {56, 4}, {59, 1}, {60, 0}, {0xFFFFFFFF, 0}};
    for (const auto& row : counters) {
        FILE* const disk = std::fopen(m_Path.c_str(), "r");
        std::vector<VornEx::ipart> classic;
        std::vector<VornEx::gpart> gpt;
        unsigned int count = row.m_Counter;
        EXPECT_EQ(VornEx::Internals::ReadPartitionTable(fileno(disk), classic, gpt, 0, 0, &count),
                  row.m_Result);
        EXPECT_EQ(classic.size(), static_cast<std::size_t>(row.m_Result));
        std::fclose(disk);
    }
    // Called for a nested record, with a counter far from the vector's length.
    FILE* const disk = std::fopen(m_Path.c_str(), "r");
    std::vector<VornEx::ipart> classic(2);
    std::vector<VornEx::gpart> gpt;
    unsigned int count = 50;
    EXPECT_EQ(VornEx::Internals::ReadPartitionTable(fileno(disk), classic, gpt, 1, 1, &count), 10);
    EXPECT_EQ(classic.size(), 12U);
    EXPECT_EQ(VornEx::Internals::ReadPartitionTable(-1, classic, gpt, 0, 0, &count), -1);
    EXPECT_EQ(VornEx::Internals::ReadPartitionTable(fileno(disk), classic, gpt, 199, 0, &count), -1)
        << "no signature";
    // Only the low 32 bits of a sector count, with their sign.
    EXPECT_EQ(VornEx::Internals::ReadPartitionTable(fileno(disk), classic, gpt, 1LL << 32, 0,
                                                    &(count = 56)),
              4);
    EXPECT_EQ(sseek(fileno(disk), 5), 1);
    EXPECT_EQ(ftell(disk), 5 * 512);
    EXPECT_EQ(sseek(fileno(disk), -1), 0);
    EXPECT_EQ(sseek(fileno(disk), 1LL << 55), 0) << "beyond what an offset can say";
    std::fclose(disk);
}

TEST_F(Partition, HostileTablesEnd)
{
    CDiskImage self(50);
    self.Entry(0, 0, 0x05, 10, 40).Entry(10, 1, 0x05, 0, 1);
    EXPECT_EQ(Lines(self), Rows{}) << "a record linked to itself";
    CDiskImage mutual(50);
    mutual.Entry(0, 0, 0x05, 10, 40).Entry(10, 1, 0x05, 7, 1).Entry(17, 1, 0x05, 3, 1);
    mutual.Entry(13, 1, 0x05, 7, 1);
    EXPECT_EQ(Lines(mutual), Rows{}) << "two that link to each other, behind an approach";
    EXPECT_LT(g_Reads, 20);
    mutual.Entry(13, 0, 0x83, 1, 2);
    EXPECT_EQ(Lines(mutual).size(), 56U) << "a circle that appends goes on to the limit";
    CDiskImage zero(50);
    zero.Entry(0, 0, 0x83, 1, 2).Entry(0, 1, 0x05, 0, 40);
    EXPECT_EQ(Lines(zero).size(), 15U) << "an extended partition in sector 0 is the table again";
    CDiskImage outside(50);
    outside.Entry(0, 0, 0x83, 1, 2).Entry(0, 1, 0x05, 0xFFFFFFFF, 40);
    EXPECT_EQ(Lines(outside), (Rows{"1 1 2 [Unknown] "}));

    // A long chain of links alone; walked, so that no stack grows.
    CDiskImage links(100001);
    links.Entry(0, 0, 0x05, 1, 1);
    for (std::uint32_t link = 1; link < 100000; ++link)
        links.Entry(link, 0, 0x05, link, 1);
    links.Entry(100000, 0, 0x83, 1, 7);
    EXPECT_EQ(Lines(links), (Rows{"5 100001 7 [Unknown] "}));

    CDiskImage gpt(40);
    gpt.GptHeader(0xFFFFFFFF, 128).GptEntry(1024, 1, 5, 6).GptEntry(1024 + 384, 2, 0, ~0ULL);
    EXPECT_EQ(Lines(gpt), (Rows{"1 5 2 [] ", "4 0 0 [] "}));
    EXPECT_LT(g_Reads, 50) << "the end of the disk is the end";
    gpt.GptHeader(3, 128);
    EXPECT_EQ(Lines(gpt), Rows{}) << "fewer than four";
    gpt.GptHeader(4, 0xFFFFFFFF);
    EXPECT_EQ(Lines(gpt), (Rows{"1 5 2 [] "})) << "the others lie outside the sector";
    gpt.GptHeader(4, 0);
    EXPECT_EQ(Lines(gpt).size(), 4U) << "one entry four times";
    gpt.GptHeader(4, 150).GptEntry(1024 + 450, 9, 3, 0);
    EXPECT_EQ(Lines(gpt).back(), "4 3 18446744073709551614 [] ")
        << "cut at 62 bytes, the rest zero";

    CDiskImage wide(65536 / 4 + 10);
    wide.GptHeader(0x7FFFFFFF, 128).GptEntry(512 * 16385 + 384, 1, 1, 1);
    wide.GptEntry(512 * 16386, 1, 1, 1);
    EXPECT_EQ(Lines(wide), (Rows{"65536 1 1 [] "})) << "one more is not looked at";

    g_BadPosition = 1024; // a read error does not move the position: it would come back for ever
    EXPECT_EQ(Lines(wide), Rows{});
    EXPECT_LT(g_Reads, 10);
}

TEST_F(Partition, DamagedDisks)
{
    EXPECT_TRUE(Get("").empty());
    EXPECT_TRUE(Get("/nonexistent/disk").empty());
    EXPECT_TRUE(g_TablesAsked.empty()) << "not read without a disk";
    EXPECT_TRUE(Get(m_Folder).empty());

    CDiskImage chain(70);
    chain.Entry(0, 0, 0x83, 1, 1).Entry(0, 1, 0x05, 20, 50);
    chain.Entry(20, 0, 0x83, 1, 1).Entry(20, 1, 0x05, 20, 9).Entry(40, 0, 0x83, 1, 1);
    for (std::size_t cut = 0; cut <= 70 * 512; cut += cut % 512 == 511 ? 1 : 511) {
        CDiskImage part = chain;
        part.m_Bytes.resize(cut);
        const std::size_t whole = cut / 512;
        EXPECT_EQ(Lines(part).size(), whole < 1    ? 0U
                                      : whole < 21 ? 1U
                                      : whole < 41 ? 2U
                                                   : 3U)
            << cut;
    }
    g_Interruptions = 3;
    EXPECT_EQ(Lines(chain).size(), 3U) << "signals";

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
    std::string deep = m_Folder;
    for (int level = 0; level < 15; ++level)
        mkdir((deep += "/" + std::string(200, 'd')).c_str(), 0700);
    for (const auto& path :
         {m_Folder + "/c0d0", m_Folder + "/sda", m_Folder + "/x-", deep + "/7"}) {
        image.Write(path);
        const bool digit = path.back() >= '0' && path.back() <= '9';
        const std::string name = path + (digit ? "p3" : "3");
        ASSERT_EQ(Get(path).size(), 1U) << path;
        EXPECT_TRUE(Get(path)[0].m_DeviceName == name);
        const Vorn::Threading::CThrowDisable guard;
        EXPECT_TRUE(Get(path)[0].m_DeviceName == name);
        EXPECT_TRUE(Vorn::Threading::Declines()) << "the thread's state is put back";
    }
}

TEST_F(Partition, MountPoints)
{
    CDiskImage image(20);
    image.Entry(0, 0, 0x83, 1, 2).Entry(0, 1, 0x83, 3, 2).Entry(0, 2, 0x82, 5, 2);
    image.Entry(0, 3, 0x83, 7, 2);
    const std::string one = m_Path + "1";
    const struct
    {
        const char* m_What;
        std::vector<CMount> m_Mounts;
        const char* m_First; // where the first partition is mounted
    } rows[] = {
        {"none", {}, ""},
        {"mounted", {{one, "/boot", "ext4"}}, "/boot"},
        {"the last one wins", {{one, "/a", "ext4"}, {one, "/b", "ext4"}}, "/b"},
        {"swap", {{one, "none", "swap"}}, "Swap"},
        {"another source", {{m_Path + "11", "/x", "ext4"}, {m_Path, "/y", "ext4"}}, ""},
        {"a label", {{"LABEL=boot", "/x", "ext4"}, {"/dev/root", "/", "ext4"}}, ""},
        {"kinds that do not count",
         {{one, "/x", "ignore"}, {one, "/x", "proc"}, {one, "/x", "devfs"}, {one, "/x", "devpts"}},
         ""},
        {"no directory", {{one, "", "ext4", true}, {one, "", "swap"}, {one, "", "ext4"}}, ""},
        {"not a path", {{one, "somewhere", "ext4"}}, ""},
        {"blanks and UTF-8", {{one, "/m\xC3\xBC ll", "ext4"}}, "/m\xC3\xBC ll"},
        {"Latin-1", {{one, "/caf\xE9", "ext4"}}, "/caf\xC3\xA9"},
        {"long",
         {{one, "/a/directory/of/more/than/sixteen", "ext4"}},
         "/a/directory/of/more/than/sixteen"},
    };
    for (const auto& row : rows) {
        g_Mounts = row.m_Mounts;
        image.Write(m_Path);
        const Partitions partitions = Get(m_Path);
        ASSERT_EQ(partitions.size(), 4U);
        EXPECT_STREQ(partitions[0].m_MountPoint.m_Text, row.m_First) << row.m_What;
        EXPECT_STREQ(partitions[2].m_MountPoint.m_Text, "Swap") << "by its type";
    }

    g_TablesAsked.clear();
    g_TablesMissing = 1;
    g_Mounts = {{one, "/boot", "ext4"}};
    EXPECT_TRUE(Get(m_Path)[0].m_MountPoint == "/boot");
    EXPECT_EQ(g_TablesAsked, (Rows{"/etc/mtab", "/proc/mounts"}));
    g_TablesMissing = 2;
    EXPECT_TRUE(Get(m_Path)[0].m_MountPoint == "");
}

} // namespace
