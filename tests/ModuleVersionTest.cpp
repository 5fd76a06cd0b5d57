// Versions of kernel modules: good, odd and hostile module files, lists and console files, and the
// modules of a real kernel beside modinfo.
#include <map>
#include <set>

#include <sys/stat.h>
#include <sys/utsname.h>

#include <vornex/VersionCheck.h>

#include "ChangedRoot.h"
#include "DataTable.h"
#include "ModuleFileTree.h"
#include "ScratchFolder.h"
#include "Shell.h"

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
    ~ModuleVersion() override
    {
        EXPECT_EQ(NextDescriptor(), m_Descriptor);
        close(m_File);
    }

    // The version that a file with this content has.
    std::string VersionOf(const std::string& content) const
    {
        EXPECT_EQ(ftruncate(m_File, 0), 0);
        EXPECT_EQ(pwrite(m_File, content.data(), content.size(), 0),
                  static_cast<ssize_t>(content.size()));
        return Version("/proc/self/fd/" + std::to_string(m_File));
    }

    const CScratchFolder m_Folder;
    const int m_File = memfd_create("module", MFD_CLOEXEC);
    const int m_Descriptor = NextDescriptor();
};

const std::string Info("license=GPL\0version=1.2.3\0", 26);

TEST_F(ModuleVersion, Entries)
{
    EachRow("modules", "entries", [this](const CDataRow& row) {
        for (const bool wide : {false, true})
            EXPECT_EQ(VersionOf(CModuleImage(wide, row[0]).m_Bytes), row[1])
                << (wide ? "64 bits" : "32 bits");
    });
}

TEST_F(ModuleVersion, OddFiles)
{
    CModuleImage good(true, Info.substr(12));
    const std::tuple<std::size_t, std::uint64_t, std::size_t, const char*> rows[] = {
        {1, 'e', 1, ""}, // no magic
        {4, 0, 1, ""},   // no class
        {4, 3, 1, ""},
        {60, 1, 2, ""},               // one section header
        {60, 2, 2, ""},               // names beyond the count
        {58, 1, 2, "1.2.3"},          // their size is fixed
        {44, 0xFFFFFFFF, 4, "1.2.3"}, // the high half
        {good.OffsetField(CModuleImage::Info) + 4, 9, 4, "1.2.3"},
        {good.SizeField(CModuleImage::Info), 11, 8, "1.2"}, // not beyond the section
        {good.SizeField(CModuleImage::Names), 0, 8, "1.2.3"}};
    for (const auto& [at, value, width, version] : rows)
        EXPECT_EQ(VersionOf(CModuleImage(good).Number(at, value, width).m_Bytes), version) << at;

    EXPECT_EQ(VersionOf(CModuleImage(false, Info).Number(4, 3, 1).m_Bytes), "") << "no class";

    // The first section of the name counts, and section 0 never.
    CModuleImage twice(true, Info.substr(12) + std::string("version=4\0", 10));
    twice.Section(1, 7, 64 + 14, 10);
    EXPECT_EQ(VersionOf(twice.m_Bytes), "4");
    twice.Section(0, 7, 64, 14);
    EXPECT_EQ(VersionOf(twice.m_Bytes), "4");
    twice.Number(twice.Header(1), 8, 4); // "modinfo"
    EXPECT_EQ(VersionOf(twice.m_Bytes), "1.2.3");

    EXPECT_EQ(VersionOf(""), "");
    const std::string path = m_Folder.m_Path + "/module.ko";
    WriteFile(path, good.m_Bytes);
    EXPECT_EQ(Version(path), "1.2.3");
    const std::string pipe = m_Folder.m_Path + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const auto& other : {m_Folder.m_Path, pipe, path + "/below", path + std::string(1, '\0'),
                              std::string(10000, 'a')})
        EXPECT_EQ(Version(other), "") << other;
}

TEST_F(ModuleVersion, CutAtEveryLength)
{
    for (const bool wide : {false, true}) {
        const CModuleImage image(wide, Info);
        // The same with the information at the end: no part of a version is taken for one.
        CModuleImage moved = image;
        moved.Section(CModuleImage::Info, 7, moved.m_Bytes.size(), Info.size());
        moved.m_Bytes += Info;
        for (const auto& bytes : {image.m_Bytes, moved.m_Bytes})
            for (std::size_t length = 0; length <= bytes.size(); ++length)
                ASSERT_EQ(VersionOf(bytes.substr(0, length)), length == bytes.size() ? "1.2.3" : "")
                    << length << " of " << wide;
    }
}

// Every field that is looked at, at every value that could go wrong.
TEST_F(ModuleVersion, FieldsAtTheirExtremes)
{
    for (const bool wide : {false, true}) {
        const CModuleImage image(wide, Info);
        const std::uint64_t size = image.m_Bytes.size();
        std::vector<std::uint64_t> values = {size - 1, size,     size + 1,
                                             size - 8, 0 - size, 0xFFFFFFFF - size};
        for (const auto& word : Words("modules", "extremes"))
            values.push_back(std::stoull(word, nullptr, 0));
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
        if (!InRoot(m_Folder.m_Path, [] { return ""; }).has_value())
            GTEST_SKIP() << "the root cannot be changed here";
        for (const std::string file :
             {"k/e1000.ko", "k/e1000e.ko", "k/snd-hda-intel.ko", "k/a_b.o", "top.ko",
              "k/odd:name.ko", "k/second/top.ko", " blank.ko", "/../../../opt/extra.ko"})
            Write(file, CModuleImage(true, "version=" + file.substr(file.rfind('/') + 1)).m_Bytes);
    }

    void Write(const std::string& file, const std::string& content) const
    {
        WriteFile(m_Folder.m_Path + "/lib/modules/6.1-test/" + file, content);
    }
    void List(const std::string& list) const { Write("modules.dep", list); }

    std::string Find(const std::string& module) const
    {
        return InRoot(m_Folder.m_Path, [&] { return Version(module); }).value_or("no root");
    }

    // The names of a group of rows against the lines of another one.
    void ExpectNames(const std::string& group) const
    {
        EachRow("modules", group, [this](const CDataRow& row) { EXPECT_EQ(Find(row[0]), row[1]); });
    }
    static std::string Lines(const std::string& group)
    {
        std::string lines;
        for (const auto& line : Words("modules", group))
            lines += (lines.empty() ? "" : "\n") + line;
        return lines;
    }
};

TEST_F(ModuleLookup, Names)
{
    EXPECT_EQ(Find("top"), "") << "no list";
    List(Lines("list"));
    ExpectNames("names");
    // A file that has the name comes before the list, whatever is in it.
    WriteFile(m_Folder.m_Path + "/e1000", "text");
    EXPECT_EQ(Find("e1000"), "");
    g_Release = "none";
    EXPECT_EQ(Find("top"), "");
    g_Release = "6.1-test";
}

TEST_F(ModuleLookup, OddLists)
{
    EachRow("modules", "odd lists", [this](const CDataRow& row) {
        List(row[0]);
        EXPECT_EQ(Find("top"), row[1]);
    });
    // Whatever stands at the edges of what is read at once.
    std::string list;
    for (unsigned int number = 0; number < 4000; ++number)
        list +=
            "k/filler" + std::to_string(number) + ".ko: " + std::string(number % 97, 'd') + "\n";
    const std::size_t begin = list.size() - (32768 - 40);
    for (std::size_t pad = 0; pad < 64; ++pad) {
        List(list.substr(begin - pad) + "k/e1000.ko: k/top.ko\ntop.ko:\n");
        ASSERT_EQ(Find("e1000"), "e1000.ko") << pad;
        ASSERT_EQ(Find("top"), "top.ko") << pad;
    }
}

TEST_F(ModuleLookup, ServiceConsole)
{
    List("top.ko:\n");
    WriteFile(m_Folder.m_Path + "/proc/vmware/version", Lines("console") + "\n");
    ExpectNames("names on the console");
}

// The modules of a kernel that lies below VORNEX_KERNEL_TREE (as ./run kernel-tree makes one), or
// of this machine's: by path as modinfo has them, and by name.
TEST(RealModules, AsModinfoSays)
{
    const char* const variable = std::getenv("VORNEX_KERNEL_TREE");
    const std::string root = variable != nullptr ? variable : "";
    const std::string folder = root + "/lib/modules/";
    std::map<std::string, std::string> versions; // by path
    for (const auto& line :
         OutputOf("find " + folder +
                  " -name '*.ko' -print0 2>/dev/null | xargs -0r modinfo | awk '"
                  "$1 == \"filename:\" { if (f) print f, v; f = $2; v = \"\" }"
                  "$1 == \"version:\" && v == \"\" { v = $2 } END { if (f) print f, v }'"))
        versions[line.substr(0, line.find(' '))] = line.substr(line.find(' ') + 1);
    if (versions.empty())
        GTEST_SKIP() << "no uncompressed modules in " << folder << ", or no modinfo";

    std::map<std::string, std::set<std::string>> byName; // a name may be there twice
    for (const auto& [path, version] : versions) {
        EXPECT_EQ(Version(path), version) << path;
        byName[std::filesystem::path(path).stem()].insert(version);
    }
    const std::string first = versions.begin()->first.substr(folder.size());
    g_Release = first.substr(0, first.find('/'));
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
