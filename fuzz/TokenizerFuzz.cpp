// Fuzz target of the tokenizer, beside a plain model: how many delimiters, when more of them come,
// delimiters, text.
#include <vornex/StringTokenizer.h>

#include <algorithm>
#include <vector>

#include "Fuzz.h"

namespace {

using Vorn::Strings::CStringRef;

// All pieces between delimiters, but an empty one at the very start or end.
std::vector<std::string> Split(const std::string& text, const std::string& delimiters)
{
    if (text.empty())
        return {};
    std::vector<std::string> pieces;
    for (std::size_t begin = 0;;) {
        const std::size_t end = std::min(text.find_first_of(delimiters, begin), text.size());
        pieces.push_back(text.substr(begin, end - begin));
        if (end == text.size())
            break;
        begin = end + 1;
    }
    if (pieces.size() > 1 && pieces.front().empty())
        pieces.erase(pieces.begin());
    if (pieces.back().empty())
        pieces.pop_back();
    return pieces;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    FuzzedDataProvider data(bytes, size);
    const std::size_t count = data.ConsumeIntegralInRange<std::size_t>(0, 4);
    std::size_t untilMore = data.ConsumeIntegralInRange<std::size_t>(0, 5);
    std::string delimiters = data.ConsumeBytesAsString(count);
    const std::string more = data.ConsumeBytesAsString(1);
    std::string rest = data.ConsumeRemainingBytesAsString();
    const std::string where = Fuzz::Readable(rest) + " at " + Fuzz::Readable(delimiters);

    VornEx::CStringTokenizer tokens(rest, delimiters);
    Vorn::Strings::TString<8> token;
    Vorn::Strings::TString<8> tail(CStringRef("from before"));
    std::vector<std::string> wanted = Split(rest, delimiters);
    std::size_t index = 0;
    for (;;) {
        if (untilMore-- == 0) {
            // From here on it is as if the rest were split by all of them.
            tokens.Tail(tail);
            rest = std::string(tail);
            tokens.SetDelimiters(more);
            delimiters += more;
            wanted = Split(rest, delimiters);
            index = 0;
        }
        const bool found = tokens.Next(token);
        Fuzz::ExpectSame<long long>(found ? 1 : 0, index < wanted.size() ? 1 : 0, where);
        tokens.Tail(tail);
        const std::string left(tail);
        Fuzz::Expect(left.size() <= rest.size() &&
                         rest.compare(rest.size() - left.size(), left.size(), left) == 0,
                     "what is left is no end of the text");
        if (!found)
            break;
        Fuzz::ExpectSame(std::string(token), wanted[index++], where);
        Fuzz::Expect(left.empty() || delimiters.find(left[0]) != std::string::npos,
                     "what is left begins with no delimiter");
    }
    Fuzz::Expect(token.m_Length == 0, "a token where there is none");
    return 0;
}
