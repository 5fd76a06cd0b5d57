// The tokenizer: which tokens a text holds, and what is left behind each.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <vornex/StringTokenizer.h>

namespace {

using Vorn::Strings::CStringVar;
using Vorn::Strings::TString;
using Words = std::vector<std::string>;

std::string Text(const CStringVar& text)
{
    EXPECT_EQ(text.m_Text[text.m_Length], '\0');
    return std::string(text.m_Text, text.m_Length);
}

TEST(StringTokenizer, Tokens)
{
    const struct
    {
        std::string m_Text;
        std::string m_Delimiters;
        Words m_Tokens;
        Words m_Tails; // before the first token and behind each
    } rows[] = {
        {"a.b.c", ".", {"a", "b", "c"}, {"a.b.c", ".b.c", ".c", ""}},
        {"a,,b", ",", {"a", "", "b"}, {"a,,b", ",,b", ",b", ""}},
        {",a", ",", {"a"}, {",a", ""}},
        {"a,", ",", {"a"}, {"a,", ","}},
        {",", ",", {}, {","}},
        {",,", ",", {""}, {",,", ","}},
        {",,a", ",", {"", "a"}, {",,a", ",a", ""}},
        {"", ",", {}, {""}},
        {"a,b", "", {"a,b"}, {"a,b", ""}},
        {"2.6.18-92", ".-", {"2", "6", "18", "92"}, {"2.6.18-92", ".6.18-92", ".18-92", "-92", ""}},
        {"a\xFF\x80z", "\xFF\x80", {"a", "", "z"}, {"a\xFF\x80z", "\xFF\x80z", "\x80z", ""}},
        {std::string("a\0b,c", 5),
         ",",
         {std::string("a\0b", 3), "c"},
         {std::string("a\0b,c", 5), ",c", ""}},
        {std::string("a\0b", 3),
         std::string("\0", 1),
         {"a", "b"},
         {std::string("a\0b", 3), std::string("\0b", 2), ""}},
        {"a token that does not fit inside,b",
         ",",
         {"a token that does not fit inside", "b"},
         {"a token that does not fit inside,b", ",b", ""}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("'" + row.m_Text + "' at '" + row.m_Delimiters + "'");
        VornEx::CStringTokenizer tokenizer(row.m_Text, row.m_Delimiters);
        CStringVar token; // without storage at first
        TString<16> tail;
        Words tokens;
        Words tails;
        for (;;) {
            tokenizer.Tail(tail);
            tails.push_back(Text(tail));
            if (!tokenizer.Next(token))
                break;
            tokens.push_back(Text(token));
        }
        EXPECT_EQ(tokens, row.m_Tokens);
        EXPECT_EQ(tails, row.m_Tails);
        EXPECT_EQ(Text(token), "");
        EXPECT_FALSE(tokenizer.Next(token));
    }
}

TEST(StringTokenizer, DelimitersAccumulateFromThePresentPositionOn)
{
    VornEx::CStringTokenizer tokenizer("a;b,c;d", ",");
    TString<16> token;
    EXPECT_TRUE(tokenizer.Next(token));
    EXPECT_EQ(Text(token), "a;b");
    tokenizer.SetDelimiters(";");
    EXPECT_TRUE(tokenizer.Next(token));
    EXPECT_EQ(Text(token), "c");
    EXPECT_TRUE(tokenizer.Next(token));
    EXPECT_EQ(Text(token), "d");
}

} // namespace
