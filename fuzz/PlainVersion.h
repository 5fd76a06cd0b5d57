// The rule of version order, put plainly: for the fuzz target and the test.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "PlainNumber.h"

namespace Fuzz {

// The components up to the first that is empty or no number. One separator in front is stepped
// over.
inline std::vector<int> PlainComponents(const std::string& text, int radix, bool& failed)
{
    std::vector<int> components;
    const auto isSeparator = [](char character) { return character == '.' || character == '-'; };
    auto at = text.begin();
    if (at != text.end() && isSeparator(*at))
        ++at;
    for (;;) {
        const auto end = std::find_if(at, text.end(), isSeparator);
        if (at == end)
            return components;
        const auto number = PlainNumber<std::int32_t>(std::string(at, end).c_str(), radix);
        if (number.m_Outcome != EOutcome::Number) {
            failed = true;
            return components;
        }
        components.push_back(number.m_Value);
        if (end == text.end())
            return components;
        at = end + 1;
    }
}

inline int PlainVersionOrder(const std::string& a, const std::string& b, unsigned int n)
{
    const int radix = (a + b).find_first_of("ABCDEFabcdef") != std::string::npos ? 16 : 10;
    bool failed = false;
    auto left = PlainComponents(a, radix, failed);
    auto right = PlainComponents(b, radix, failed);
    const bool numbers =
        n != 0 ? left.size() >= n && right.size() >= n : !failed && left.size() == right.size();
    if (!numbers)
        return a == b ? 0 : std::strcmp(a.c_str(), b.c_str()) < 0 ? -1 : 1;
    if (n != 0) {
        left.resize(n);
        right.resize(n);
    }
    return left < right ? -1 : left > right ? 1 : 0;
}

} // namespace Fuzz
