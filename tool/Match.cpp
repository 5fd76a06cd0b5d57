// vornex match: the regular-expression engine from a shell, and the tree that it compiles to.
#include <climits>
#include <fstream>
#include <iostream>

#include <regex/Explain.h>

#include "Program.h"
#include "Text.h"

namespace Tool {

namespace {

struct COptions
{
    bool m_IgnoreCase = false;
    bool m_MultiLine = false;
    bool m_DotMatchesNewline = false;
    bool m_Extended = false;
    bool m_Global = false;
    bool m_RightToLeft = false;
    bool m_All = false;
    bool m_Explain = false;
    bool m_Json = false;
    std::string m_Pattern;
    std::vector<std::string> m_Files;

    int Flags() const
    {
        using namespace Vorn::Regex;
        return (m_IgnoreCase ? IgnoreCase : 0) | (m_MultiLine ? MultiLine : 0) |
               (m_DotMatchesNewline ? DotMatchesNewline : 0) | (m_Extended ? Extended : 0) |
               (m_Global ? Global : 0) | (m_RightToLeft ? RightToLeft : 0);
    }
};

using CMatches = std::vector<Vorn::Regex::MatchResultT<0>>;

struct CLine
{
    const std::string& m_File; // empty: standard input
    std::size_t m_Number;      // from 1
    const std::string& m_Text; // without its line end
};

// The first match of a line, or with --all each of them, in the order in which they are found.
CMatches MatchesOf(const Vorn::Regex::CRegexpT<char>& regexp, const std::string& text,
                   const COptions& options)
{
    const int length = static_cast<int>(text.size());
    Vorn::Regex::CContext context(text.data(), length);
    if (options.m_RightToLeft)
        context.currentPos = context.beginPos = length;
    CMatches matches;
    do {
        matches.push_back(regexp.Match(&context));
    } while (options.m_All && matches.back().Matched());
    if (!matches.back().Matched())
        matches.pop_back();
    return matches;
}

std::string GroupText(const Vorn::Regex::MatchResultT<0>& match, int group, const std::string& text)
{
    return text.substr(static_cast<std::size_t>(match.GroupBegin(group)),
                       static_cast<std::size_t>(match.GroupEnd(group) - match.GroupBegin(group)));
}

// The line with its matches standing out, then a row for each group: number, place, text.
void PrintLine(const CLine& line, const CMatches& matches, bool namesFile)
{
    std::string marked;
    std::size_t done = 0;
    // Right to left, the matches come last first.
    CMatches ordered = matches;
    std::sort(ordered.begin(), ordered.end(), [](const auto& left, const auto& right) {
        return left.GroupBegin(0) < right.GroupBegin(0);
    });
    for (const auto& match : ordered) {
        const auto begin = static_cast<std::size_t>(match.GroupBegin(0));
        marked += Printable(line.m_Text.substr(done, begin - done));
        const std::string matched = Printable(GroupText(match, 0, line.m_Text));
        marked += matched.empty() ? matched : Bright(matched);
        done = static_cast<std::size_t>(match.GroupEnd(0));
    }
    marked += Printable(line.m_Text.substr(done));
    if (namesFile)
        std::cout << (line.m_File.empty() ? "-" : line.m_File) << ':';
    std::cout << line.m_Number << ": " << marked << '\n';

    for (const auto& match : matches)
        for (int group = 0; group <= match.MaxGroup(); ++group) {
            std::cout << "  " << group << "  ";
            if (match.GroupBegin(group) < 0)
                std::cout << "-\n";
            else
                std::cout << match.GroupBegin(group) << '-' << match.GroupEnd(group) << "  "
                          << Printable(GroupText(match, group, line.m_Text)) << '\n';
        }
}

Json LineJson(const CLine& line, const CMatches& matches)
{
    Json found = Json::array();
    for (const auto& match : matches) {
        Json groups = Json::array();
        for (int group = 0; group <= match.MaxGroup(); ++group)
            if (match.GroupBegin(group) < 0)
                groups.push_back(nullptr);
            else
                groups.push_back({{"begin", match.GroupBegin(group)},
                                  {"end", match.GroupEnd(group)},
                                  {"text", GroupText(match, group, line.m_Text)}});
        found.push_back({{"groups", std::move(groups)}});
    }
    Json json;
    if (!line.m_File.empty())
        json["file"] = line.m_File;
    json["line"] = line.m_Number;
    json["text"] = line.m_Text;
    json["matches"] = std::move(found);
    return json;
}

int Explain(const COptions& options)
{
    const Vorn::Regex::CRegexpT<char> regexp(options.m_Pattern.c_str(), options.Flags());
    const std::string tree = Vorn::Regex::Explain(regexp);
    if (options.m_Json)
        Print(Json{{"pattern", options.m_Pattern}, {"tree", tree}});
    else
        std::cout << tree;
    return Done;
}

int Match(const COptions& options)
{
    if (options.m_Explain)
        return Explain(options);

    const Vorn::Regex::CRegexpT<char> regexp(options.m_Pattern.c_str(), options.Flags());
    Json lines = Json::array();
    bool matched = false;
    bool unread = false;
    const auto search = [&](std::istream& stream, const std::string& file) {
        std::string text;
        for (std::size_t number = 1; std::getline(stream, text); ++number) {
            if (text.size() > INT_MAX)
                throw std::runtime_error("a line of more than 2 GiB in " + file);
            const CMatches matches = MatchesOf(regexp, text, options);
            if (matches.empty())
                continue;
            matched = true;
            const CLine line = {file, number, text};
            if (options.m_Json)
                lines.push_back(LineJson(line, matches));
            else
                PrintLine(line, matches, options.m_Files.size() > 1);
        }
    };

    if (options.m_Files.empty())
        search(std::cin, {});
    for (const auto& file : options.m_Files) {
        if (file == "-") {
            search(std::cin, {});
            continue;
        }
        std::ifstream stream(file, std::ios::binary);
        // A directory opens, but cannot be read.
        if (!stream || (stream.peek() == std::ifstream::traits_type::eof() && stream.bad())) {
            Complain("cannot read " + file);
            unread = true;
            continue;
        }
        search(stream, file);
    }

    if (options.m_Json)
        Print(Json{{"matched", matched}, {"lines", std::move(lines)}});
    if (unread)
        return WrongUsage;
    return matched ? Done : Failed;
}

} // namespace

void AddMatch(CProgram& program)
{
    const auto command =
        program.Add("match", "Search lines with the regular-expression engine", Match);
    COptions& options = *command.m_Options;
    CLI::App* const app = command.m_App;
    app->add_flag("-i,--ignore-case", options.m_IgnoreCase, "Compare without case");
    app->add_flag("-m,--multi-line", options.m_MultiLine, "^ and $ match at line ends");
    app->add_flag("-s,--dot-all", options.m_DotMatchesNewline, ". also matches a line end");
    app->add_flag("-x,--extended", options.m_Extended,
                  "Blanks and # comments in PATTERN are skipped");
    app->add_flag("-g,--global", options.m_Global, "\\G holds a match to where the last one ended");
    app->add_flag("--rtl", options.m_RightToLeft, "Search from the end of a line to its start");
    app->add_flag("--all", options.m_All, "All matches of a line, not only the first");
    app->add_flag("--explain", options.m_Explain,
                  "Print what PATTERN compiles to, an element a line");
    app->add_option("PATTERN", options.m_Pattern, "What to search for")->required();
    app->add_option("FILE", options.m_Files, "Where; standard input when none is named, or for -");
    app->footer("Exit status: 0 when a line matched, 1 when none did, 2 for wrong usage or a file "
                "that cannot be read.");
    AddJson(app, options.m_Json);
}

} // namespace Tool
