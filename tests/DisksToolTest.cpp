// vornex disks: what a person sees of good, odd and missing disks.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "DiskImage.h"
#include "RunProgram.h"

namespace {

class DisksTool : public testing::Test
{
protected:
    void SetUp() override
    {
        char name[] = "/tmp/vornex-tool-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        m_Folder = name;
    }
    void TearDown() override { EXPECT_EQ(std::system(("rm -r '" + m_Folder + "'").c_str()), 0); }

    std::string m_Folder;
};

TEST_F(DisksTool, OthersAreListedWhenOneFails)
{
    const std::string path = m_Folder + "/disk";
    CDiskImage(4096).Entry(0, 0, 0x83, 2048, 1024).Entry(0, 1, 0x82, 3072, 512).Write(path);
    const CRun run = RunProgram({"disks", "/nonexistent/disk", m_Folder, path});
    EXPECT_EQ(run.m_Status, 1);
    EXPECT_NE(run.m_Err.find("/nonexistent/disk: No such file or directory"), std::string::npos);
    EXPECT_NE(run.m_Err.find(m_Folder + ": Is a directory"), std::string::npos);
    EXPECT_NE(run.m_Out.find("2.0 MiB, 4096 sectors"), std::string::npos) << run.m_Out;

    const CRun good = RunProgram({"disks", "--json", path});
    EXPECT_EQ(good.m_Status, 0);
    EXPECT_EQ(good.m_Err, "");
    const auto disk = nlohmann::json::parse(good.m_Out)["disks"][0];
    EXPECT_EQ(disk["bytes"], 4096 * 512);
    EXPECT_EQ(disk["partitions"].size(), 2U);
    EXPECT_EQ(disk["partitions"][1]["device"], path + "2");
    EXPECT_EQ(disk["partitions"][1]["mount_point"], "Swap");
    EXPECT_EQ(disk["partitions"][1]["start_sector"], 3072);
}

TEST_F(DisksTool, FileSystemWithoutTableIsRecognised)
{
    const struct
    {
        const char* m_Name;
        const char* m_Begin; // jump and maker
        std::uint64_t m_SectorSize;
        std::uint8_t m_Indicator;
        std::uint32_t m_Start, m_Count;
        bool m_Recognised;
    } rows[] = {
        {"FAT, message text as entries", "\xEB\x3C\x90mkfs.fat", 512, 0x6F, 778135908, 9, true},
        {"FAT, no entries", "\xEB\x58\x90MSDOS5.0", 512, 0, 0, 0, true},
        {"NTFS", "\xEB\x52\x90NTFS    ", 4096, 0, 5000, 9, true},
        {"exFAT",
         "\xEB\x76\x90"
         "EXFAT   ",
         0, 0, 0, 0, true},
        {"outside the disk", "\xE9\x01\x02IBM  3.3", 512, 0x80, 10, 5000, true},
        {"a boot loader and a sound table", "\xEB\x63\x90\0\0\0\0\0\0\0\0", 0, 0x80, 10, 50, false},
        {"a sound table in a boot sector with parameters", "\xEB\x3C\x90MSDOS5.0", 512, 0x80, 10,
         50, false},
    };
    for (const auto& row : rows) {
        CDiskImage image(1000);
        std::copy(row.m_Begin, row.m_Begin + 11, image.m_Bytes.begin());
        image.Number(11, row.m_SectorSize, 2);
        image.Entry(0, 0, row.m_Count != 0 ? 0x83 : 0, row.m_Start, row.m_Count);
        image.Number(446, row.m_Indicator, 1);
        const std::string path = m_Folder + "/image";
        image.Write(path);
        const CRun run = RunProgram({"disks", path});
        EXPECT_EQ(run.m_Status, 0);
        EXPECT_EQ(run.m_Out.find("looks like a file system") != std::string::npos, row.m_Recognised)
            << row.m_Name << "\n"
            << run.m_Out;
    }
}

// A real disk with a mounted partition, where the machine lets us make one.
TEST_F(DisksTool, MountedLoopDevice)
{
    const std::string path = m_Folder + "/disk";
    const std::string script = "set -e; cd '" + m_Folder +
                               "'; truncate -s 32M disk; echo '2048,40960,83' | sfdisk -q disk; "
                               "losetup -P -f --show disk > device; d=$(cat device); "
                               "trap 'losetup -d $d' EXIT; mkfs.ext4 -q ${d}p1; mkdir mnt; "
                               "mount ${d}p1 mnt; trap - EXIT";
    if (geteuid() != 0 || std::system(("( " + script + " ) >/dev/null 2>&1").c_str()) != 0)
        GTEST_SKIP() << "no loop device can be partitioned and mounted here";
    std::string device;
    std::getline(std::ifstream(m_Folder + "/device"), device);
    const CRun run = RunProgram({"disks", "--json", device});
    EXPECT_EQ(std::system(("umount '" + m_Folder + "/mnt' && losetup -d " + device).c_str()), 0);
    const auto partitions = nlohmann::json::parse(run.m_Out)["disks"][0]["partitions"];
    ASSERT_EQ(partitions.size(), 1U) << run.m_Out;
    EXPECT_EQ(partitions[0]["device"], device + "p1");
    EXPECT_EQ(partitions[0]["mount_point"], m_Folder + "/mnt");
}

} // namespace
