// Versions of kernel modules beside libkmod, a bare walk of the module list and a bare mapping of
// the module file; PCI addresses beside bare libpciaccess; version comparison beside rpmvercmp and
// strverscmp; the tokenizer beside strsep and strtok_r.
//
// The modules are those of a kernel package below VORNEX_KERNEL_TREE (./run kernel-tree makes one),
// which becomes the root of the process.
#include "Allocations.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>

#include <fcntl.h>
#include <link.h>
#include <sched.h>
#include <strings.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <libkmod.h>
#include <pciaccess.h>
#include <rpm/rpmver.h>

#include <vornex/vornex.h>

namespace {

std::string g_Release; // of the kernel in the tree; empty without a tree

} // namespace

// Everybody in this process believes to run the kernel of the tree.
extern "C" [[gnu::visibility("default")]] int uname(utsname* kernel) noexcept
{
    const auto result = static_cast<int>(syscall(SYS_uname, kernel));
    if (!g_Release.empty())
        std::snprintf(kernel->release, sizeof kernel->release, "%s", g_Release.c_str());
    return result;
}

namespace {

// Makes the tree the root, with this machine's /proc and /sys in it.
bool EnterTree()
{
    const char* const tree = std::getenv("VORNEX_KERNEL_TREE");
    if (tree == nullptr)
        return false;
    const std::string root = tree;
    if ((geteuid() != 0 && unshare(CLONE_NEWUSER) != 0) || unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("/proc", (root + "/proc").c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0 ||
        mount("/sys", (root + "/sys").c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0 ||
        chroot(tree) != 0 || chdir("/") != 0) {
        std::perror("VORNEX_KERNEL_TREE");
        return false;
    }
    g_Release = std::filesystem::directory_iterator("/lib/modules")->path().filename();
    return true;
}

const bool g_HasTree = EnterTree();

std::string ListFolder()
{
    return "/lib/modules/" + g_Release + "/";
}

// A file mapped as the bare walks do it.
class CMapping
{
public:
    explicit CMapping(const char* path)
    {
        const int descriptor = open(path, O_RDONLY);
        struct stat status
        {};
        if (descriptor >= 0 && fstat(descriptor, &status) == 0) {
            m_Size = static_cast<std::size_t>(status.st_size);
            m_Bytes = static_cast<char*>(
                mmap(nullptr, m_Size, PROT_READ | PROT_WRITE, MAP_PRIVATE, descriptor, 0));
        }
        close(descriptor);
    }
    ~CMapping() { munmap(m_Bytes, m_Size); }

    char* m_Bytes = nullptr;
    std::size_t m_Size = 0;
};

// The line of a module, looked for as simply as can be.
std::size_t BareList(const std::string& module)
{
    const CMapping list((ListFolder() + "modules.dep").c_str());
    const char* const end = list.m_Bytes + list.m_Size;
    for (const char* line = list.m_Bytes; line < end;) {
        const auto* newline =
            static_cast<const char*>(std::memchr(line, '\n', static_cast<std::size_t>(end - line)));
        if (newline == nullptr)
            newline = end;
        const auto* const colon = static_cast<const char*>(
            std::memchr(line, ':', static_cast<std::size_t>(newline - line)));
        if (colon != nullptr) {
            const auto* const slash = static_cast<const char*>(
                memrchr(line, '/', static_cast<std::size_t>(colon - line)));
            const char* const name = slash != nullptr ? slash + 1 : line;
            if (static_cast<std::size_t>(colon - name) > module.size() &&
                name[module.size()] == '.' && std::memcmp(name, module.data(), module.size()) == 0)
                return static_cast<std::size_t>(line - list.m_Bytes);
        }
        line = newline + 1;
    }
    return 0;
}

// The version of a module file of this word size, with nothing checked.
std::size_t BareElf(const std::string& path, char (&version)[64])
{
    const CMapping file(path.c_str());
    const auto* const header = reinterpret_cast<const ElfW(Ehdr)*>(file.m_Bytes);
    if (std::memcmp(header->e_ident, ELFMAG, SELFMAG) != 0)
        return 0;
    const auto* const sections =
        reinterpret_cast<const ElfW(Shdr)*>(file.m_Bytes + header->e_shoff);
    const char* const names = file.m_Bytes + sections[header->e_shstrndx].sh_offset;
    for (unsigned int index = 1; index < header->e_shnum; ++index) {
        if (std::strcmp(names + sections[index].sh_name, ".modinfo") != 0)
            continue;
        const char* entry = file.m_Bytes + sections[index].sh_offset;
        const char* const end = entry + sections[index].sh_size;
        while (entry < end) {
            if (std::strncmp(entry, "version=", 8) == 0) {
                const std::size_t length = std::strcspn(entry + 8, " \t\n");
                std::memcpy(version, entry + 8, length);
                return length;
            }
            entry += std::strlen(entry);
            while (entry < end && *entry == '\0')
                ++entry;
        }
    }
    return 0;
}

std::size_t Kmod(kmod_ctx* context, const std::string& module)
{
    kmod_list* found = nullptr;
    std::size_t length = 0;
    if (kmod_module_new_from_lookup(context, module.c_str(), &found) >= 0 && found != nullptr) {
        kmod_module* const first = kmod_module_get_module(found);
        kmod_list* info = nullptr;
        if (kmod_module_get_info(first, &info) >= 0) {
            kmod_list* entry = nullptr;
            kmod_list_foreach(entry, info)
            {
                if (std::strcmp(kmod_module_info_get_key(entry), "version") == 0)
                    length = std::strlen(kmod_module_info_get_value(entry));
            }
            kmod_module_info_free_list(info);
        }
        kmod_module_unref(first);
        kmod_module_unref_list(found);
    }
    return length;
}

std::size_t Ours(const std::string& module)
{
    static Vorn::Strings::TString<64> version;
    VornEx::GetModuleVersion(module, version);
    return version.m_Length;
}

// What reading a version takes at least: the file's header, its sections' headers, their names and
// the section.
std::size_t ReadModule(const std::string& path)
{
    char page[4096];
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ssize_t length = 0;
    for (off_t at = 0; at < 4; ++at)
        length += pread(descriptor, page, sizeof page, at * 3 * 4096);
    close(descriptor);
    return static_cast<std::size_t>(length);
}

// And finding it: the list up to the module's line.
std::size_t ReadListAndModule(std::size_t line, const std::string& path)
{
    static char block[1 << 16];
    const int descriptor = open((ListFolder() + "modules.dep").c_str(), O_RDONLY | O_CLOEXEC);
    for (std::size_t length = 0; length <= line;)
        length += static_cast<std::size_t>(read(descriptor, block, sizeof block));
    close(descriptor);
    return ReadModule(path);
}

// Modules near the front, the middle and the end of the list.
constexpr const char* Modules[] = {
    "kernel/drivers/scsi/megaraid/megaraid_sas.ko",
    "kernel/drivers/net/vmxnet3/vmxnet3.ko",
    "kernel/net/bluetooth/bluetooth.ko",
};

// Registers one benchmark; each must find something.
template <class Body>
void Add(const std::string& name, Body body)
{
    benchmark::RegisterBenchmark(name.c_str(), [body](benchmark::State& state) {
        if (body() == 0) {
            state.SkipWithError("found nothing");
            return;
        }
        Measure(state, [&body] {
            auto result = body();
            benchmark::DoNotOptimize(result);
        });
    });
}

void AddModules()
{
    if (!g_HasTree) {
        std::fprintf(stderr, "without VORNEX_KERNEL_TREE no modules are measured\n");
        return;
    }
    const CMapping list((ListFolder() + "modules.dep").c_str());
    for (const char* const file : Modules) {
        const std::string path = ListFolder() + file;
        const std::string module = std::filesystem::path(path).stem();
        const std::size_t place = BareList(module);
        const auto line = 1 + std::count(list.m_Bytes, list.m_Bytes + place, '\n');
        const std::string byName =
            "module by name, " + module + " in line " + std::to_string(line) + "/";
        Add(byName + "vornex", [module] { return Ours(module); });
        Add(byName + "list walk alone", [module] { return BareList(module) + 1; });
        Add(byName + "libkmod, fresh context", [module] {
            kmod_ctx* const context = kmod_new(nullptr, nullptr);
            const std::size_t length = Kmod(context, module);
            kmod_unref(context);
            return length;
        });
        Add(byName + "libkmod, context kept", [module] {
            static kmod_ctx* const context = kmod_new(nullptr, nullptr);
            return Kmod(context, module);
        });
        Add(byName + "limit: bare calls", [place, path] { return ReadListAndModule(place, path); });
        const std::string byPath = "module by path, " + module + "/";
        Add(byPath + "vornex", [path] { return Ours(path); });
        Add(byPath + "bare ELF walk", [path] {
            char version[64];
            return BareElf(path, version);
        });
        Add(byPath + "limit: bare calls", [path] { return ReadModule(path); });
    }
}

// The identities of all devices, which stand in the first bytes of each one's configuration space.
std::size_t ReadPci()
{
    std::size_t length = 0;
    for (const auto& device : std::filesystem::directory_iterator("/sys/bus/pci/devices")) {
        char identity[4];
        const int descriptor = open((device.path() / "config").c_str(), O_RDONLY | O_CLOEXEC);
        length += static_cast<std::size_t>(read(descriptor, identity, sizeof identity));
        close(descriptor);
    }
    return length;
}

std::size_t BarePci(unsigned int vendor, unsigned int id)
{
    if (pci_system_init() != 0)
        return 0;
    pci_device_iterator* const iterator = pci_slot_match_iterator_create(nullptr);
    std::size_t found = 0;
    while (const pci_device* const device = pci_device_next(iterator))
        if (device->vendor_id == vendor && device->device_id == id) {
            found = device->dev + 1U;
            break;
        }
    pci_iterator_destroy(iterator);
    pci_system_cleanup();
    return found;
}

// The last of the machine's devices.
void AddPci()
{
    unsigned int vendor = 0;
    unsigned int id = 0;
    if (pci_system_init() != 0)
        return;
    pci_device_iterator* const iterator = pci_slot_match_iterator_create(nullptr);
    while (const pci_device* const device = pci_device_next(iterator)) {
        vendor = device->vendor_id;
        id = device->device_id;
    }
    pci_iterator_destroy(iterator);
    pci_system_cleanup();
    char texts[2][8];
    std::snprintf(texts[0], sizeof texts[0], "%04x", vendor & 0xFFFFU);
    std::snprintf(texts[1], sizeof texts[1], "%04x", id & 0xFFFFU);
    const std::string vendorText = texts[0];
    const std::string idText = texts[1];
    Add("PCI address, the last device/vornex", [vendorText, idText] {
        int domain = 0;
        int bus = 0;
        int device = 0;
        int function = 0;
        return VornEx::CConfigManager().GetLocation(vendorText, idText, 1, domain, bus, device,
                                                    function)
                   ? static_cast<std::size_t>(device) + 1
                   : 0;
    });
    Add("PCI address, the last device/libpciaccess", [vendor, id] { return BarePci(vendor, id); });
    Add("PCI address, the last device/limit: identities read", ReadPci);
}

// Versions as an agent meets them: the one that is installed and the one that is wanted.
using Pair = std::pair<const char*, const char*>;

constexpr Pair Kernels[] = {
    {"6.1.0-31-amd64", "6.1.0-56-amd64"},
    {"5.10.0-9-amd64", "5.10.0-28-amd64"},
    {"2.6.18-92.el5", "2.6.18-128.el5"},
    {"2.6.32-754.35.1.el6.x86_64", "2.6.32-754.33.1.el6.x86_64"},
    {"3.10.0-1160.119.1.el7.x86_64", "3.10.0-1160.118.1.el7.x86_64"},
    {"5.14.21-150500.55.73-default", "5.14.21-150500.55.80-default"},
    {"4.4.0-210-generic", "4.4.0-31-generic"},
    {"6.12.48", "6.12.5"},
};
constexpr Pair Drivers[] = {
    {"07.719.03.00-rc1", "07.714.04.00-rc1"},
    {"14.2.0.7", "14.2.0.12"},
    {"3.4.20-200", "3.4.20-170"},
    {"2.1.18-045", "2.1.22-040"},
    {"1.0.7.0-k", "1.0.5.0-k"},
    {"5.04.00-k6", "5.04.00-k5"},
    {"10.02.07.900-k", "10.02.08.100-k"},
    {"43.100.00.00", "39.100.00.00"},
    {"7.3.21-k8-NAPI", "7.3.21-k7-NAPI"},
    {"1.12.13", "1.12.9"},
    {"2022.3", "2021.4"},
    {"3.137", "3.132"},
    {"2.40", "2.9"},
    {"0.9.33-integrated", "0.9.32-integrated"},
};
constexpr Pair Firmware[] = {
    {"5.0.0.0.0-24", "5.1.0.0.0-9"},
    {"25.5.9.0001", "25.5.6.0009"},
    {"2.65", "2.7"},
    {"1.0a", "1.10"},
    {"22.31.6.7", "22.31.13.70"},
    {"4.40.00.00", "4.63.00.00"},
    {"16.35.2000", "16.32.1010"},
    {"20.5.13", "20.5.13"},
    {"F.3C", "F.2D"},
    {"218.0.219.9", "218.0.152.0"},
    {"6.00.00.00-1", "6.00.00.00-12"},
    {"07.00.00.287", "07.00.01.13"},
};

template <class Compare>
void AddComparison(const std::string& name, Compare compare)
{
    const auto over = [compare](const auto& pairs) {
        std::size_t sum = 1;
        for (auto pair : pairs) {
            benchmark::DoNotOptimize(pair); // or the compiler compares
            sum += static_cast<std::size_t>(compare(pair.first, pair.second) + 2);
        }
        return sum;
    };
    const auto pairs = [](const auto& list, const char* what) {
        return "order of " + std::to_string(std::size(list)) + " pairs of " + what + " versions/";
    };
    Add(pairs(Kernels, "kernel") + name, [over] { return over(Kernels); });
    Add(pairs(Drivers, "driver") + name, [over] { return over(Drivers); });
    Add(pairs(Firmware, "firmware") + name, [over] { return over(Firmware); });
}

constexpr const char* ShortText = "2.6.32-754.35.1";
constexpr const char* LongText = "root@example.org,operator@example.org,duty@example.com,"
                                 "storage-team@example.net,network-team@example.net";

std::size_t Tokenize(const char* text, const char* delimiters)
{
    VornEx::CStringTokenizer tokenizer(text, delimiters);
    Vorn::Strings::TString<64> token;
    std::size_t count = 0;
    while (tokenizer.Next(token)) {
        benchmark::DoNotOptimize(token.m_Text);
        ++count;
    }
    return count;
}

// Counts the tokens of a copy of the text that the function cuts off one after the other.
template <class NextToken>
std::size_t CutUp(const char* text, NextToken next)
{
    char copy[256];
    std::strcpy(copy, text);
    char* rest = copy;
    std::size_t count = 0;
    while (char* token = next(rest)) {
        benchmark::DoNotOptimize(token);
        ++count;
    }
    return count;
}

std::size_t Strsep(const char* text, const char* delimiters)
{
    return CutUp(text, [delimiters](char*& rest) { return strsep(&rest, delimiters); });
}

std::size_t Strtok(const char* text, const char* delimiters)
{
    return CutUp(text, [delimiters, first = true](char*& rest) mutable {
        return strtok_r(std::exchange(first, false) ? rest : nullptr, delimiters, &rest);
    });
}

std::size_t Copy(const char* text, const char* /*delimiters*/)
{
    char copy[256];
    benchmark::DoNotOptimize(text); // hides its length
    std::strcpy(copy, text);
    benchmark::DoNotOptimize(copy);
    return 1;
}

void AddTokenizers()
{
    const struct
    {
        const char* m_Name;
        const char* m_Text;
        const char* m_Delimiters;
    } rows[] = {{"six tokens of a version", ShortText, ".-"},
                {"five mail addresses as tokens", LongText, ","}};
    const struct
    {
        const char* m_Name;
        std::size_t (*m_Split)(const char*, const char*);
    } splitters[] = {{"vornex", Tokenize},
                     {"strsep on a copy", Strsep},
                     {"strtok_r on a copy", Strtok},
                     {"limit: the copy", Copy}};
    for (const auto& row : rows)
        for (const auto& splitter : splitters)
            Add(std::string(row.m_Name) + "/" + splitter.m_Name,
                [row, splitter] { return splitter.m_Split(row.m_Text, row.m_Delimiters); });
}

const bool g_Registered = [] {
    AddModules();
    AddPci();
    AddComparison("vornex",
                  [](const char* a, const char* b) { return VornEx::VersionCompare(a, b, 0); });
    AddComparison("rpmvercmp", rpmvercmp);
    AddComparison("strverscmp", [](const char* a, const char* b) {
        const int order = strverscmp(a, b);
        return order < 0 ? -1 : order > 0 ? 1 : 0;
    });
    AddComparison("limit: strcmp", [](const char* a, const char* b) {
        const int order = std::strcmp(a, b);
        return order < 0 ? -1 : order > 0 ? 1 : 0;
    });
    AddTokenizers();
    return true;
}();

} // namespace
