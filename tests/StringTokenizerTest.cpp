// The tokenizer: which tokens a text holds, and what is left behind each.
#include <vornex/StringTokenizer.h>

#include "DataTable.h"

namespace {

using Vorn::Strings::CStringVar;
using Vorn::Strings::TString;

std::string Text(const CStringVar& text)
{
    EXPECT_EQ(text.m_Text[text.m_Length], '\0');
    return std::string(text.m_Text, text.m_Length);
}

TEST(StringTokenizer, Tokens)
{
    EachRow("tokens", "tokens", [](const CDataRow& row) {
        VornEx::CStringTokenizer tokenizer(row[0], row[1]);
        CStringVar token; // without storage at first
        TString<16> tail;
        std::vector<std::string> words;
        std::vector<std::string> tails;
        for (bool more = true; more;) {
            tokenizer.Tail(tail);
            tails.push_back(Text(tail));
            if ((more = tokenizer.Next(token)))
                words.push_back(Text(token));
        }
        EXPECT_EQ(words.size(), row.Number<std::size_t>(2));
        words.insert(words.end(), tails.begin(), tails.end());
        EXPECT_EQ(words, row.From(3));
        EXPECT_EQ(Text(token), "");
        EXPECT_FALSE(tokenizer.Next(token));
    });
}

TEST(StringTokenizer, DelimitersAccumulateFromThePresentPositionOn)
{
    VornEx::CStringTokenizer tokenizer("a;b,c;d", ",");
    TString<16> token;
    for (const char* const expected : {"a;b", "c", "d"}) {
        EXPECT_TRUE(tokenizer.Next(token));
        EXPECT_EQ(Text(token), expected);
        tokenizer.SetDelimiters(";");
    }
}

} // namespace
