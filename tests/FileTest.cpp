// CFile line by line, and the process's folder.
#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

#include <vorn/Application.h>
#include <vorn/File.h>

#include "DataTable.h"
#include "ScratchFolder.h"

using Vorn::FileSystem::CFile;

namespace {

class File : public testing::Test
{
protected:
    // All lines as ReadLine gives them to a buffer of this size.
    std::vector<std::string> Lines(const std::string& content, int size)
    {
        WriteFile(m_Path, content);
        CFile file;
        EXPECT_TRUE(file.Open(m_Path, CFile::Read));
        std::vector<char> buffer(static_cast<std::size_t>(size) + 1, '#');
        std::vector<std::string> lines;
        for (int length; (length = file.ReadLine(buffer.data(), size)) >= 0;) {
            EXPECT_EQ(buffer[static_cast<std::size_t>(length)], '\0');
            EXPECT_EQ(buffer.back(), '#') << "written past the buffer";
            lines.emplace_back(buffer.data(), static_cast<std::size_t>(length));
        }
        EXPECT_EQ(file.ReadLine(buffer.data(), size), -1) << "the end stays the end";
        return lines;
    }

    const CScratchFolder m_Scratch;
    const std::string m_Folder = m_Scratch.m_Path;
    const std::string m_Path = m_Folder + "/text";
};

using Rows = std::vector<std::string>;

TEST_F(File, Lines)
{
    EachRow("files", "lines",
            [this](const CDataRow& row) { EXPECT_EQ(Lines(row[0], 256), row.From(1)); });
    const Rows parts = Lines(std::string(10000, 'x') + "\r\nend", 256);
    EXPECT_EQ(parts.size(), 41U);
    EXPECT_EQ(parts.back(), "end");

    // Every position of the line end against the border of the block that is read at a time.
    for (std::size_t length = 4090; length < 4100; ++length) {
        const std::string line(length, 'x');
        EXPECT_EQ(Lines(line + "\r\nnext", 8192), (Rows{line, "next"})) << length;
    }
}

TEST_F(File, WhatCannotBeRead)
{
    CFile file;
    char buffer[16];
    EXPECT_EQ(file.ReadLine(buffer, sizeof buffer), -1) << "nothing open";
    EXPECT_FALSE(file.Open("/nonexistent/file", CFile::Read));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(file.Open(m_Folder, 2)) << "no such mode";
    EXPECT_FALSE(file.Open(Vorn::Strings::CSubStringRef("/etc/passwd\0x", 13), CFile::Read));

    ASSERT_TRUE(file.Open(m_Folder, CFile::Read));
    EXPECT_EQ(file.ReadLine(buffer, sizeof buffer), -1) << "a directory";
    ASSERT_EQ(mkfifo(m_Path.c_str(), 0600), 0);
    ASSERT_TRUE(file.Open(m_Path, CFile::Read)) << "must not wait for a writer";
    EXPECT_EQ(file.ReadLine(buffer, sizeof buffer), -1);
    unlink(m_Path.c_str());

    EXPECT_TRUE(CFile::Exist(m_Folder));
    EXPECT_FALSE(CFile::Exist(m_Folder + std::string("\0x", 2)));
    EXPECT_FALSE(CFile::Exist(m_Path));
    std::ofstream(m_Path) << "line\n";
    ASSERT_TRUE(file.Open(m_Path, CFile::Read));
    EXPECT_EQ(file.ReadLine(buffer, 1), -1) << "a buffer without room for a character";
    EXPECT_EQ(file.ReadLine(buffer, sizeof buffer), 4);
}

TEST_F(File, ProcessPathIsTheFolderOfTheProgram)
{
    Vorn::Strings::TString<16> path;
    ASSERT_TRUE(Vorn::Misc::CVornApplication::GetProcessPath(path));
    char name[4096] = "";
    ASSERT_GT(readlink("/proc/self/exe", name, sizeof name - 1), 0);
    EXPECT_EQ(std::string(path.m_Text) + "/FileTest", name);
}

} // namespace
