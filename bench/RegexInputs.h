// Patterns and texts that the regex benchmark runs on.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Bench {

struct CCase
{
    const char* m_Pattern;
    std::string_view m_Text;
};

// Release lines of real systems, each with the patterns that OS identification tries on it, in
// that order, up to the first that matches.
const std::vector<CCase>& ReleaseCases();

// A line of a web server's log in the common format, with a capture for each of six fields.
const CCase& AccessLogCase();

// Twenty patterns of everyday use with a text that each matches.
const std::vector<CCase>& EverydayCases();

// One megabyte of words, numbers and lines; the same bytes at every run.
const std::string& Prose();

// A line of `length` characters in which "release " stands often, but never before a digit.
std::string FailingLine(std::size_t length);

// "ababab...", `length` characters.
std::string AlternatingText(std::size_t length);

} // namespace Bench
