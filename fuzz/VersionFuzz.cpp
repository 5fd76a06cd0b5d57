// Fuzz target of version comparison, beside a plain model: count, first text, NUL, second text.
#include <vornex/VersionCheck.h>

#include "Fuzz.h"
#include "PlainVersion.h"

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
    Fuzz::ExpectSame<long long>(order, Fuzz::PlainVersionOrder(a, b, n), where);
    if (b.find('\0') == std::string::npos)
        Fuzz::ExpectSame<long long>(VornEx::VersionCompare(b, a, n), -order, "reversed: " + where);
    Fuzz::ExpectSame<long long>(VornEx::VersionCompare(a, a, n), 0, "with itself: " + where);
    return 0;
}
