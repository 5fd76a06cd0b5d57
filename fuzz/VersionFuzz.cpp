// Fuzz target of version comparison, beside a plain model: count, first text, NUL, second text.
#include <algorithm>
#include <cstring>
#include <vector>

#include <vornex/VersionCheck.h>

#include "Fuzz.h"
#include "PlainNumber.h"

namespace {

// The components up to the first that is empty or no number. One separator in front is stepped
// over.
std::vector<int> Components(const std::string& text, int radix, bool& failed)
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
        const auto number = Fuzz::PlainNumber<std::int32_t>(std::string(at, end).c_str(), radix);
        if (number.m_Outcome != Fuzz::EOutcome::Number) {
            failed = true;
            return components;
        }
        components.push_back(number.m_Value);
        if (end == text.end())
            return components;
        at = end + 1;
    }
}

int Plain(const std::string& a, const std::string& b, unsigned int n)
{
    const int radix = (a + b).find_first_of("ABCDEFabcdef") != std::string::npos ? 16 : 10;
    bool failed = false;
    auto left = Components(a, radix, failed);
    auto right = Components(b, radix, failed);
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

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    if (size == 0)
        return 0;
    const unsigned int n = bytes[0] % 6;
    const std::string content(bytes + 1, bytes + size);
    const std::string a = content.c_str();
    // Behind it anything goes, NUL bytes too.
    const std::string b = content.substr(std::min(a.size() + 1, content.size()));
    const std::string where =
        Fuzz::Readable(a) + " and " + Fuzz::Readable(b) + ", " + std::to_string(n);

    const int order = VornEx::VersionCompare(a, b, n);
    Fuzz::ExpectSame<long long>(order, Plain(a, b, n), where);
    if (b.find('\0') == std::string::npos)
        Fuzz::ExpectSame<long long>(VornEx::VersionCompare(b, a, n), -order, "reversed: " + where);
    Fuzz::ExpectSame<long long>(VornEx::VersionCompare(a, a, n), 0, "with itself: " + where);
    return 0;
}
