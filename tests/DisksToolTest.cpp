// vornex disks: what a person sees of good, odd and missing disks.
#include <nlohmann/json.hpp>

#include "DiskImage.h"
#include "RunProgram.h"

namespace {

class DisksTool : public testing::Test
{
protected:
    const CScratchFolder m_Scratch;
    const std::string m_Folder = m_Scratch.m_Path;
    const std::string m_Path = m_Folder + "/disk";
};

TEST_F(DisksTool, OthersAreListedWhenOneFails)
{
    CDiskImage(4096).Entry(0, 0, 0x83, 2048, 1024).Entry(0, 1, 0x82, 3072, 512).Write(m_Path);
    const CRun run = RunProgram({"disks", "/nonexistent/disk", m_Folder, m_Path});
    EXPECT_EQ(run.m_Status, 1);
    EXPECT_NE(run.m_Err.find("/nonexistent/disk: No such file or directory"), std::string::npos);
    EXPECT_NE(run.m_Err.find(m_Folder + ": Is a directory"), std::string::npos);
    EXPECT_NE(run.m_Out.find("2.0 MiB, 4096 sectors"), std::string::npos) << run.m_Out;

    const CRun good = RunProgram({"disks", "--json", m_Path});
    EXPECT_EQ(good.m_Status, 0);
    EXPECT_EQ(good.m_Err, "");
    const auto disk = nlohmann::json::parse(good.m_Out)["disks"][0];
    EXPECT_EQ(disk["bytes"], 4096 * 512);
    EXPECT_EQ(disk["partitions"].size(), 2U);
    EXPECT_EQ(disk["partitions"][1]["device"], m_Path + "2");
    EXPECT_EQ(disk["partitions"][1]["mount_point"], "Swap");
    EXPECT_EQ(disk["partitions"][1]["start_sector"], 3072);
}

TEST_F(DisksTool, FileSystemWithoutTableIsRecognised)
{
    EachRow("tool", "file systems", [this](const CDataRow& row) {
        CDiskImage image(1000);
        std::copy(row[0].begin(), row[0].end(), image.m_Bytes.begin());
        image.Number(11, row.Number<std::uint64_t>(1), 2);
        const auto count = row.Number<std::uint32_t>(4);
        image.Entry(0, 0, count != 0 ? 0x83 : 0, row.Number<std::uint32_t>(3), count);
        image.Number(446, row.Number<std::uint64_t>(2), 1).Write(m_Path);
        const CRun run = RunProgram({"disks", m_Path});
        EXPECT_EQ(run.m_Status, 0);
        EXPECT_EQ(run.m_Out.find("looks like a file system") != std::string::npos, row[5] == "yes")
            << run.m_Out;
    });
}

// A real disk with a mounted partition, where the machine lets us make one.
TEST_F(DisksTool, MountedLoopDevice)
{
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
