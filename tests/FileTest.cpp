// CFile line by line, and the process's folder.
#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <vorn/Application.h>
#include <vorn/File.h>

using Vorn::FileSystem::CFile;

namespace {

class File : public testing::Test
{
protected:
    void SetUp() override
    {
        char name[] = "/tmp/vornex-file-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        m_Folder = name;
        m_Path = m_Folder + "/text";
    }
    void TearDown() override
    {
        unlink(m_Path.c_str());
        rmdir(m_Folder.c_str());
    }

    // All lines as ReadLine gives them to a buffer of this size.
    std::vector<std::string> Lines(const std::string& content, int size)
    {
        std::ofstream(m_Path, std::ios::binary) << content;
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

    std::string m_Folder;
    std::string m_Path;
};

using Rows = std::vector<std::string>;

TEST_F(File, Lines)
{
    const auto x = [](std::size_t length) { return std::string(length, 'x'); };
    struct
    {
        const char* m_What;
        std::string m_Content;
        Rows m_Lines;
    } const rows[] = {
        {"empty file", "", {}},
        {"only a line end", "\n", {""}},
        {"no final line end", "a\nb", {"a", "b"}},
        {"empty lines", "\n\na\n\n", {"", "", "a", ""}},
        {"CR LF", "a\r\n\r\nb\r\n", {"a", "", "b"}},
        {"CR elsewhere", "a\rb\n\r\r\nc\r", {"a\rb", "\r", "c\r"}},
        {"NUL bytes", std::string("a\0b\n\0\n", 6), {std::string("a\0b", 3), std::string(1, '\0')}},
        {"255", x(255) + "\nnext\n", {x(255), "next"}},
        {"255 and CR LF", x(255) + "\r\nnext\n", {x(255), "next"}},
        {"254 and CR LF", x(254) + "\r\nnext\n", {x(254), "next"}},
        {"255 and a lone CR", x(255) + "\rnext\n", {x(255), "\rnext"}},
        {"255 at the end", x(255), {x(255)}},
        {"256", x(256) + "\nnext\n", {x(255), "x", "next"}},
        {"256 CR LF", x(256) + "\r\nnext", {x(255), "x", "next"}},
        {"CR CR LF", "a\r\r\nb", {"a\r", "b"}},
        {"254 and CR CR LF", x(254) + "\r\r\nnext", {x(254) + "\r", "next"}},
        {"510", x(510) + "\n", {x(255), x(255)}},
        // Around the block that is read at a time.
        {"CR LF across blocks", x(15) + "\n" + std::string(4079, '\n') + "\r\nnext\n", {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.m_What);
        const Rows lines = Lines(row.m_Content, 256);
        if (!row.m_Lines.empty() || row.m_Content.empty())
            EXPECT_EQ(lines, row.m_Lines);
        else
            EXPECT_EQ(lines.back(), "next");
    }
    const Rows parts = Lines(x(10000) + "\r\nend", 256);
    EXPECT_EQ(parts.size(), 41U);
    EXPECT_EQ(parts.back(), "end");

    // Every position of the line end against the block border.
    for (std::size_t length = 4090; length < 4100; ++length)
        EXPECT_EQ(Lines(x(length) + "\r\nnext", 8192), (Rows{x(length), "next"})) << length;
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
