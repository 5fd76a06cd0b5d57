// Counts the lines of a system log by program, and shows those that speak of trouble.
//
//     match < /var/log/syslog
#include <exception>
#include <iostream>
#include <map>
#include <string>

#include <regex/regex.h>

namespace {

// Compiled once; any number of threads may match with them.
const Vorn::Regex::CRegexpT<char> Line(R"(^\w+ +\d+ [\d:]+ \S+ ([^:\[]+)(\[(\d+)\])?: (.*)$)");
const Vorn::Regex::CRegexpT<char> Trouble(R"(\b(error|fail(ed|ure)?|refused)\b)",
                                          Vorn::Regex::IgnoreCase);

// The numbers of the groups of Line.
enum Group
{
    Program = 1,
    Process = 3,
    Text = 4,
};

} // namespace

int main()
try {
    std::map<std::string, unsigned int, std::less<>> lines;
    unsigned int unknown = 0;
    for (std::string line; std::getline(std::cin, line);) {
        const auto match = Line.Match(line);
        if (!match) {
            ++unknown;
            continue;
        }
        ++lines[std::string(match.Group(Program))];
        if (Trouble.Match(match.Group(Text)))
            std::cout << match.Group(Program) << ' ' << match.Group(Process) << ": "
                      << match.Group(Text) << '\n';
    }
    for (const auto& [program, count] : lines)
        std::cout << count << ' ' << program << '\n';
    if (unknown != 0)
        std::cout << unknown << " in another form\n";
    return 0;
} catch (const std::exception& problem) {
    std::cerr << "match: " << problem.what() << '\n';
    return 1;
}
