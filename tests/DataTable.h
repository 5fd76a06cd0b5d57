// Tables of test data: files below tests/data, a row a line, which a person reads and adds to.
//
// A line "== NAME" begins a group of rows. Columns stand apart by blanks. A column is a bare word
// or stands in '...', both taken as they are, or in "...", with the escapes \n \r \t \f \v \a \e \0
// \" \\ \xHH, and \{N TEXT} for N times the text. "#" where a column would begin starts a comment.
// A line that begins with a blank goes on with the row above it.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

class CDataRow
{
public:
    explicit CDataRow(const std::string& line)
    {
        const char* const blanks = " \t\n";
        for (std::size_t at = 0; (at = line.find_first_not_of(blanks, at)) != std::string::npos;) {
            const char quote = line[at];
            std::size_t end = line.find_first_of(quote == '#' ? "\n" : blanks, at);
            if (quote == '#') {
                at = end;
                continue;
            }
            if (quote == '\'' || quote == '"') {
                for (end = ++at; end < line.size() && line[end] != quote; ++end)
                    end += quote == '"' && line[end] == '\\' ? 1 : 0;
                if (end >= line.size())
                    throw std::runtime_error("a quotation is not closed");
            }
            const std::string column = line.substr(at, end - at);
            m_Columns.push_back(quote == '"' ? Resolved(column) : column);
            at = end == std::string::npos ? line.size() : end + 1;
        }
    }

    std::size_t Size() const { return m_Columns.size(); }

    const std::string& operator[](std::size_t column) const
    {
        m_Used = std::max(m_Used, column + 1);
        return m_Columns.at(column); // std::out_of_range: the row has too few
    }

    // A decimal or 0x number; of an unsigned type "-1" is its largest value.
    template <class Value = int>
    Value Number(std::size_t column) const
    {
        const std::string& text = (*this)[column];
        std::size_t used = 0;
        const auto value = static_cast<Value>(std::stoull(text, &used, 0)); // negates
        if (used != text.size())
            throw std::runtime_error("no number: " + text);
        return value;
    }

    // The columns from one on.
    std::vector<std::string> From(std::size_t column) const
    {
        m_Used = m_Columns.size();
        return {m_Columns.begin() + static_cast<std::ptrdiff_t>(std::min(column, m_Used)),
                m_Columns.end()};
    }

    // The same, with a blank between them.
    std::string Rest(std::size_t column) const
    {
        std::string rest;
        for (const auto& word : From(column))
            rest += (rest.empty() ? "" : " ") + word;
        return rest;
    }

    bool IsUsedUp() const { return m_Used == m_Columns.size(); }

private:
    static std::string Resolved(const std::string& text)
    {
        static const std::string Letters = "nrtfvae0\"\\";
        static const std::string Meanings("\n\r\t\f\v\a\033\0\"\\", 10);
        std::string resolved;
        for (std::size_t at = 0; at < text.size(); ++at) {
            const char escape = text[at] == '\\' ? text.at(++at) : '\0';
            const std::size_t letter = Letters.find(escape);
            if (escape == '\0')
                resolved += text[at];
            else if (letter != std::string::npos)
                resolved += Meanings[letter];
            else if (escape == 'x') {
                resolved += static_cast<char>(std::stoi(text.substr(at + 1, 2), nullptr, 16));
                at += 2;
            } else if (escape == '{') {
                const std::size_t blank = text.find(' ', at);
                const std::size_t end = text.find('}', blank);
                const std::string part = Resolved(text.substr(blank + 1, end - blank - 1));
                for (int left = std::stoi(text.substr(at + 1)); left > 0; --left)
                    resolved += part;
                at = end;
            } else
                throw std::runtime_error(std::string("no such escape: \\") + escape);
        }
        return resolved;
    }

    std::vector<std::string> m_Columns;
    mutable std::size_t m_Used = 0;
};

// Calls the body with each row of a group of tests/data/FILE.txt; a failure in it names file and
// line. A row must have the columns that the body asks for, and no others.
template <class Body>
void EachRow(const std::string& file, const std::string& group, Body body)
{
    std::vector<std::pair<std::string, std::string>> rows; // places and texts
    std::ifstream lines(TEST_DATA "/" + file + ".txt");
    std::size_t number = 0;
    bool isWanted = false;
    for (std::string line; std::getline(lines, line);) {
        const std::string place = file + ".txt:" + std::to_string(++number);
        if (line.rfind("== ", 0) == 0)
            isWanted = line.substr(3) == group;
        else if (isWanted && line[0] == ' ' && !rows.empty())
            rows.back().second += "\n" + line;
        else if (isWanted && !line.empty() && line[0] != '#')
            rows.emplace_back(place, line);
    }
    EXPECT_FALSE(rows.empty()) << "no group " << group << " in " << TEST_DATA << "/" << file;
    for (const auto& [place, text] : rows) {
        SCOPED_TRACE(place + ": " + text.substr(0, 200));
        try {
            const CDataRow row(text);
            body(row);
            EXPECT_TRUE(row.IsUsedUp()) << "too many columns";
        } catch (const std::exception& error) { // also where a row itself is wrong
            ADD_FAILURE() << error.what();
        }
    }
}

// The columns of a group, all of its rows one after the other.
inline std::vector<std::string> Words(const std::string& file, const std::string& group)
{
    std::vector<std::string> words;
    EachRow(file, group, [&words](const CDataRow& row) {
        const auto more = row.From(0);
        words.insert(words.end(), more.begin(), more.end());
    });
    return words;
}

// The text with another one, where it holds that, in its place.
inline std::string Replaced(std::string text, const std::string& what, const std::string& by)
{
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
        text.replace(at, what.size(), by);
    return text;
}
