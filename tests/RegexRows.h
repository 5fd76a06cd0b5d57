// Rows of regular expressions in tests/data.
#pragma once

#include <map>

#include <regex/Flags.h>

#include "DataTable.h"

// The flags that a column of letters stands for, "-" for none.
inline int Flags(const std::string& letters)
{
    using namespace Vorn::Regex;
    static const std::map<char, int> Meanings = {
        {'-', NoFlags},  {'i', IgnoreCase}, {'m', MultiLine},  {'s', DotMatchesNewline},
        {'x', Extended}, {'g', Global},     {'r', RightToLeft}};
    int flags = NoFlags;
    for (const char letter : letters)
        flags |= Meanings.at(letter);
    return flags;
}
