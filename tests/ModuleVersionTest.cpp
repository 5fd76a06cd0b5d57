// Versions of kernel modules: good, odd and hostile module files, lists and console files, and the
// modules of a real kernel beside modinfo.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <set>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <vornex/VersionCheck.h>

#include "ChangedRoot.h"
#include "ModuleFileTree.h"
#include "ScratchFolder.h"

namespace {

std::string g_Release = "6.1-test";
} // namespace

extern "C" int uname(utsname* kernel) noexcept
{
    *kernel = {};
    std::strncpy(kernel->release, g_Release.c_str(), sizeof kernel->release - 1);
    return 0;
}

namespace {

std::string Version(const std::string& module)
{
    Vorn::Strings::TString<32> version(Vorn::Strings::CStringRef("from before"));
    VornEx::GetModuleVersion(module, version);
    return std::string(version);
}

int NextDescriptor()
{
    const int descriptor = dup(0);
    close(descriptor);
    return descriptor;
}

class ModuleVersion : public testing::Test
{
protected:
    void SetUp() override
    {
        m_File = memfd_create("module", MFD_CLOEXEC);
        ASSERT_GE(m_File, 0);
        m_Descriptor = NextDescriptor();
    }
    void TearDown() override
    {
        EXPECT_EQ(NextDescriptor(), m_Descriptor);
        close(m_File);
    }

    // The version that a file with this content has.
    std::string VersionOf(const std::string& content)
    {
        EXPECT_EQ(ftruncate(m_File, 0), 0);
        EXPECT_EQ(pwrite(m_File, content.data(), content.size(), 0),
                  static_cast<ssize_t>(content.size()));
        return Version("/proc/self/fd/" + std::to_string(m_File));
    }

    CScratchFolder m_Folder;
    int m_File = -1;
    int m_Descriptor = -1;
};

std::string Text(const char* text, std::size_t size)
{
    return std::string(text, size - 1);
}
#define INFO(text) Text(text, sizeof(text))

TEST_F(ModuleVersion, Entries)
{
    const std::string longKey(5000, 'k');
    const std::string longValue(9000, '7');
    const struct
    {
        std::string m_Info;
        std::string m_Version;
    } rows[] = {
        {INFO("version=1.2.3\0"), "1.2.3"},
        {INFO("license=GPL\0version=1.2\0name=x\0"), "1.2"},
        {INFO("srcversion=ABCDEF\0license=GPL\0"), ""},
        {INFO("srcversion=ABCDEF\0version=2-k_rc1\0"), "2-k_rc1"},
        {INFO("a=b\0\0\0\0version=3\0"), "3"},
        {INFO("\0\0version=4\0"), "4"},
        {INFO("version=0.29 04Jul2016\0"), "0.29"},
        {INFO("version=5\tx\0"), "5"},
        {INFO("version= 5\0"), ""},
        {INFO("version=\0version=6\0"), ""},
        {INFO("version=first\0version=second\0"), "first"},
        {INFO("version\0versions=1\0Version=2\0"), ""},
        {INFO("version=7"), "7"}, // ended by the section alone
        {INFO("version="), ""},
        {INFO("a=b\0version"), ""},
        {INFO("a=b"), ""},
        {INFO(""), ""},
        {INFO("\0"), ""},
        {longKey + INFO("=v\0version=8\0"), "8"}, // beyond what is read at once
        {std::string(4093, 'k') + INFO("\0version=9\0"), "9"},
        {std::string(4095, '\0') + INFO("version=10\0"), "10"},
        {"version=" + longValue + INFO(" x\0"), longValue},
    };
    for (const auto& row : rows)
        for (const bool wide : {false, true})
            EXPECT_EQ(VersionOf(CModuleImage(wide, row.m_Info).m_Bytes), row.m_Version)
                << row.m_Info.substr(0, 40) << (wide ? ", 64 bits" : ", 32 bits");
}

TEST_F(ModuleVersion, OddFiles)
{
    const std::string info = INFO("version=1.2.3\0");
    CModuleImage good(true, info);
    const auto with = [&](std::size_t at, std::uint64_t value, std::size_t width) {
        return VersionOf(CModuleImage(good).Number(at, value, width).m_Bytes);
    };
    EXPECT_EQ(with(1, 'e', 1), ""); // no magic
    EXPECT_EQ(with(4, 0, 1), "");   // no class
    EXPECT_EQ(with(4, 3, 1), "");
    EXPECT_EQ(with(60, 1, 2), "");               // one section header
    EXPECT_EQ(with(60, 2, 2), "");               // names beyond the count
    EXPECT_EQ(with(58, 1, 2), "1.2.3");          // their size is fixed
    EXPECT_EQ(with(44, 0xFFFFFFFF, 4), "1.2.3"); // the high half
    EXPECT_EQ(with(good.OffsetField(CModuleImage::Info) + 4, 9, 4), "1.2.3");
    EXPECT_EQ(with(good.SizeField(CModuleImage::Info), 11, 8), "1.2"); // not beyond the section
    EXPECT_EQ(with(good.SizeField(CModuleImage::Names), 0, 8), "1.2.3");

    // The first section of the name counts, and section 0 never.
    CModuleImage twice(true, INFO("version=1.2.3\0version=4\0"));
    twice.Section(1, 7, 64 + 14, 10);
    EXPECT_EQ(VersionOf(twice.m_Bytes), "4");
    twice.Section(0, 7, 64, 14);
    EXPECT_EQ(VersionOf(twice.m_Bytes), "4");
    twice.Number(twice.Header(1), 8, 4); // "modinfo"
    EXPECT_EQ(VersionOf(twice.m_Bytes), "1.2.3");

    EXPECT_EQ(VersionOf(""), "");
    WriteFile(m_Folder.m_Path + "/module.ko", good.m_Bytes);
    EXPECT_EQ(Version(m_Folder.m_Path + "/module.ko"), "1.2.3");
    EXPECT_EQ(Version(m_Folder.m_Path), "");
    const std::string pipe = m_Folder.m_Path + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(Version(pipe), "");
    EXPECT_EQ(Version(m_Folder.m_Path + "/module.ko/below"), "");
    EXPECT_EQ(Version(m_Folder.m_Path + std::string("/module.ko\0", 11)), "");
    EXPECT_EQ(Version(std::string(10000, 'a')), "");
}

TEST_F(ModuleVersion, CutAtEveryLength)
{
    const std::string info = INFO("license=GPL\0version=1.2.3\0");
    for (const bool wide : {false, true}) {
        const CModuleImage image(wide, info);
        for (std::size_t length = 0; length < image.m_Bytes.size(); ++length)
            ASSERT_EQ(VersionOf(image.m_Bytes.substr(0, length)), "") << length << " of " << wide;
        // The same with the information at the end: no part of a version is taken for one.
        CModuleImage moved(wide, info);
        moved.Section(CModuleImage::Info, 7, moved.m_Bytes.size(), info.size());
        moved.m_Bytes += info;
        for (std::size_t length = image.m_Bytes.size(); length < moved.m_Bytes.size(); ++length) {
            ASSERT_EQ(VersionOf(moved.m_Bytes.substr(0, length)), "") << length;
        }
        EXPECT_EQ(VersionOf(moved.m_Bytes), "1.2.3");
    }
}

// Every field that is looked at, at every value that could go wrong.
TEST_F(ModuleVersion, FieldsAtTheirExtremes)
{
    const std::string info = INFO("license=GPL\0version=1.2.3\0");
    for (const bool wide : {false, true}) {
        const CModuleImage image(wide, info);
        const std::uint64_t size = image.m_Bytes.size();
        const std::vector<std::uint64_t> values = {0,
                                                   1,
                                                   2,
                                                   3,
                                                   0x7F,
                                                   0xFF,
                                                   0x7FFF,
                                                   0xFFFE,
                                                   0xFFFF,
                                                   0x7FFFFFFF,
                                                   0x80000000,
                                                   0xFFFFFFC0,
                                                   0xFFFFFFFE,
                                                   0xFFFFFFFF,
                                                   0xFFFFFFFF00000000,
                                                   ~0ULL,
                                                   size - 1,
                                                   size,
                                                   size + 1,
                                                   size - 8,
                                                   0 - size,
                                                   0xFFFFFFFF - size};
        std::vector<std::pair<std::size_t, std::size_t>> fields = {
            {4, 1}, {wide ? 40 : 32, image.Width()}, {wide ? 60 : 48, 2}, {wide ? 62 : 50, 2}};
        for (unsigned int section = 0; section < CModuleImage::Sections; ++section) {
            fields.emplace_back(image.Header(section), 4);
            fields.emplace_back(image.OffsetField(section), image.Width());
            fields.emplace_back(image.SizeField(section), image.Width());
        }
        int empty = 0;
        for (const auto& first : fields)
            for (const auto& second : fields)
                for (const auto value : values) {
                    CModuleImage changed(image);
                    changed.Number(first.first, value, first.second);
                    changed.Number(second.first, value, second.second);
                    const std::string version = VersionOf(changed.m_Bytes);
                    ASSERT_TRUE(version.empty() || version == "1.2.3")
                        << first.first << ", " << second.first << ": " << value << ": " << version;
                    empty += version.empty() ? 1 : 0;
                }
        EXPECT_GT(empty, 1000);
    }
}

// A tree of a kernel's modules, each of which has its own file name as version.
class ModuleLookup : public ModuleVersion
{
protected:
    void SetUp() override
    {
        ModuleVersion::SetUp();
        if (!InRoot(m_Folder.m_Path, [] { return ""; }).has_value())
            GTEST_SKIP() << "the root cannot be changed here";
        for (const char* file : {"k/e1000.ko", "k/e1000e.ko", "k/snd-hda-intel.ko", "k/a_b.o",
                                 "top.ko", "k/odd:name.ko", "k/second/top.ko", " blank.ko"})
            Write("/lib/modules/6.1-test/", file);
        Write("/opt/", "extra.ko");
    }

    void Write(const std::string& folder, const std::string& file)
    {
        WriteFile(m_Folder.m_Path + folder + file,
                  CModuleImage(true, "version=" + file.substr(file.rfind('/') + 1)).m_Bytes);
    }

    void List(const std::string& list)
    {
        WriteFile(m_Folder.m_Path + "/lib/modules/6.1-test/modules.dep", list);
    }

    std::string Find(const std::string& module)
    {
        return InRoot(m_Folder.m_Path, [&] { return Version(module); }).value_or("no root");
    }
};

TEST_F(ModuleLookup, Names)
{
    List("# k/e1000.ko: k/e1000e.ko\n"
         " \t# k/second/top.ko:\n"
         "k/e1000e.ko: k/e1000.ko k/top.ko\n"
         "\n"
         "k/gone.ko:\n"
         "k/e1000.ko:\n"
         "k/snd-hda-intel.ko: k/second/a.ko\r\n"
         "k/a_b.o:\n"
         "top.ko:\n"
         "k/second/top.ko:\n"
         " blank.ko:\n"
         "/opt/extra.ko:\n"
         "a line without a mark\n"
         "k/odd:name.ko:\n"
         "k/last.ko: k/e1000.ko");
    const struct
    {
        const char* m_Name;
        const char* m_Version;
    } rows[] = {
        {"e1000", "e1000.ko"},
        {"e1000e", "e1000e.ko"},
        {"e100", ""},
        {"E1000", ""},
        {"e1000.ko", ""}, // what follows must be a dot
        {"snd_hda_intel", "snd-hda-intel.ko"},
        {"snd-hda-intel", "snd-hda-intel.ko"},
        {"a-b", "a_b.o"},
        {"a:b", "a_b.o"},
        {"e1:::e", "e1000e.ko"},
        {"e1000:", "e1000e.ko"},
        {"top", "top.ko"}, // the first line
        {" blank", ""},    // cut at its white space
        {"extra", "extra.ko"},
        {"a line without a mark\nk/odd", ""},
        {"odd", ""}, // its line ends at the first colon, "k/odd"
        {"gone", ""},
        {"last", ""},
        {"", ""},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Find(row.m_Name), row.m_Version) << "'" << row.m_Name << "'";

    EXPECT_EQ(Find("lib/modules/6.1-test/k/e1000.ko"), "e1000.ko"); // a path from where we are
    EXPECT_EQ(Find("/lib/modules/6.1-test/k/none.ko"), "");
    // A file that has the name comes before the list, whatever is in it.
    WriteFile(m_Folder.m_Path + "/e1000", "text");
    EXPECT_EQ(Find("e1000"), "");
}

TEST_F(ModuleLookup, OddLists)
{
    EXPECT_EQ(Find("top"), ""); // none
    List("");
    EXPECT_EQ(Find("top"), "");
    List("top.ko");
    EXPECT_EQ(Find("top"), "");
    List("top.ko:");
    EXPECT_EQ(Find("top"), "top.ko");
    // A path ends at the next colon, lines later, and names no file then; yet its line matches.
    List("odd\nk/second/top.ko:\ntop.ko:\n");
    EXPECT_EQ(Find("top"), "");
    List("odd\nk/e1000.ko:\ntop.ko:\n");
    EXPECT_EQ(Find("top"), "top.ko");
    List(std::string("to\0p.ko:\ntop.ko:\n", 17));
    EXPECT_EQ(Find("top"), "top.ko");
    List(std::string("k\0/top.ko:\ntop.ko:\n", 19));
    EXPECT_EQ(Find("top"), "");
    // Lines longer than any buffer, and many lines before the only colon.
    List("k/e1000.ko:" + std::string(300000, ' ') + "\n" + std::string(300000, 'x') +
         "\ntop.ko:\n");
    EXPECT_EQ(Find("top"), "top.ko");
    List("k/e1000.ko:" + std::string(300000, ' ') + "\n" + std::string(300000, 'x') +
         "/top.ko:\ntop.ko:\n");
    EXPECT_EQ(Find("top"), "");
    List(std::string(2000000, '\n') + "top.ko:\n");
    EXPECT_EQ(Find("top"), "top.ko");
    List(std::string(2000000, '/') + "\n");
    EXPECT_EQ(Find("top"), "");

    List("top.ko:\n");
    g_Release = "none";
    EXPECT_EQ(Find("top"), "");
    g_Release = "6.1-test";
}

// Whatever stands at the edges of what is read at once.
TEST_F(ModuleLookup, LongLists)
{
    std::string list;
    for (unsigned int number = 0; number < 4000; ++number)
        list +=
            "k/filler" + std::to_string(number) + ".ko: " + std::string(number % 97, 'd') + "\n";
    const std::size_t begin = list.size();
    for (std::size_t pad = 0; pad < 64; ++pad) {
        List(list.substr(begin - (32768U - 40U) - pad % 64) + "k/e1000.ko: k/top.ko\ntop.ko:\n");
        ASSERT_EQ(Find("e1000"), "e1000.ko") << pad;
        ASSERT_EQ(Find("top"), "top.ko") << pad;
    }
}

TEST_F(ModuleLookup, ServiceConsole)
{
    List("top.ko:\n");
    const std::string path = m_Folder.m_Path + "/proc/vmware/version";
    WriteFile(path, "VMware ESX, 6.1\n"
                    "e1000: v8.0.3.1-NAPI\n"
                    "short: v1.2\n"
                    "nothing: v\n"
                    "top without a mark\n"
                    "two: v1.0.00 top: v9.9.99\r\n"
                    "blank: v 1 2 3 4\n" +
                        std::string(250, 'x') + " cut: v1.2.3\n");
    const struct
    {
        const char* m_Name;
        const char* m_Version;
    } rows[] = {
        {"e1000", "8.0.3."},                    // six characters, whatever they are
        {"000", "8.0.3."},                      // anywhere in the line
        {"short", "1.2"},                       // never beyond the line
        {"nothing", ""},     {"top", "1.0.00"}, // the line's first mark
        {"blank", " 1 2 3"}, {"cut", ""},       // beyond what counts of a line, and not in the list
        {"", "8.0.3."},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Find(row.m_Name), row.m_Version) << "'" << row.m_Name << "'";
}

// The modules of a kernel that lies below VORNEX_KERNEL_TREE (as ./run kernel-tree makes one), or
// of this machine's: by path as modinfo has them, and by name.
TEST(RealModules, AsModinfoSays)
{
    const char* const variable = std::getenv("VORNEX_KERNEL_TREE");
    const std::string root = variable != nullptr ? variable : "";
    const std::string folder = root + "/lib/modules";
    if (!std::filesystem::is_directory(folder) || std::filesystem::is_empty(folder))
        GTEST_SKIP() << "no kernel modules in " << folder;

    std::FILE* const output =
        popen(("find " + folder + " -name '*.ko' -print0 | xargs -0r modinfo").c_str(), "r");
    ASSERT_NE(output, nullptr);
    std::map<std::string, std::string> versions; // by path
    std::string* current = nullptr;
    char line[4096];
    while (std::fgets(line, sizeof line, output) != nullptr) {
        char value[4096] = "";
        if (std::sscanf(line, "filename: %4095s", value) == 1)
            current = &versions[value];
        else if (std::sscanf(line, "version: %4095s", value) == 1 && current->empty())
            *current = value;
    }
    if (pclose(output) != 0 || versions.empty())
        GTEST_SKIP() << "no uncompressed modules, or no modinfo";

    std::map<std::string, std::set<std::string>> byName; // a name may be there twice
    for (const auto& [path, version] : versions) {
        EXPECT_EQ(Version(path), version) << path;
        byName[std::filesystem::path(path).stem()].insert(version);
    }
    const std::size_t releaseAt = folder.size() + 1;
    const std::string first = versions.begin()->first;
    g_Release = first.substr(releaseAt, first.find('/', releaseAt) - releaseAt);
    const auto wrong = InRoot(root.empty() ? "/" : root, [&] {
        std::string names;
        for (const auto& [name, expected] : byName)
            if (expected.count(Version(name)) == 0)
                names += name + " ";
        return names;
    });
    EXPECT_EQ(wrong.value_or(""), "");
    g_Release = "6.1-test";
}

} // namespace
