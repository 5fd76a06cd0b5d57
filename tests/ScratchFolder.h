// A folder of the test's own, gone with the object, and what tests do with files.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

inline void WriteFile(const std::string& path, const std::string& content)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

// Empty where there is no such file.
inline std::string FileContent(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class CScratchFolder
{
public:
    CScratchFolder()
    {
        char name[] = "/tmp/vornex-test-XXXXXX";
        m_Path = mkdtemp(name);
    }
    ~CScratchFolder() { std::filesystem::remove_all(m_Path); }
    CScratchFolder(const CScratchFolder&) = delete;
    CScratchFolder& operator=(const CScratchFolder&) = delete;

    std::string m_Path;
};

// Descriptors that this process has open.
inline std::size_t OpenDescriptors()
{
    using Folder = std::filesystem::directory_iterator;
    return static_cast<std::size_t>(std::distance(Folder("/proc/self/fd"), Folder()));
}
