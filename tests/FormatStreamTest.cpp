// Format streams, held against the C library's printf.
#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>

#include <vorn/Strings.h>

using namespace Vorn::Strings;

namespace {

TEST(FormatStream, NumbersAgreeWithPrintf)
{
    const char* const flags[] = {"", "-", "0", "+", " ", "#", "-0", "+0", "#0", "-+", " 0", "-#"};
    const char* const sizes[] = {"", "1", "6", "14", ".0", ".4", "9.4", "3.8", "."};
    const unsigned int values[] = {0, 1, 7, 12, 4711, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    for (const char* const flag : flags)
        for (const char* const size : sizes)
            for (const char conversion : {'d', 'i', 'u', 'x', 'X', 'o'})
                for (const unsigned int value : values) {
                    // Flags that have no effect on a conversion are undefined in C.
                    const bool isSigned = conversion == 'd' || conversion == 'i';
                    if (isSigned ? std::strchr(flag, '#') != nullptr
                                 : std::strpbrk(flag, "+ ") != nullptr)
                        continue;
                    if (conversion == 'u' && std::strchr(flag, '#') != nullptr)
                        continue;
                    const std::string format = std::string("<%") + flag + size + conversion + ">";
                    char expected[64];
                    std::snprintf(expected, sizeof expected, format.c_str(), value);
                    TString<16> text;
                    text.Format(format.c_str()).FormatInt(value);
                    ASSERT_STREQ(text.m_Text, expected) << format << " of " << value;
                }
}

TEST(FormatStream, TextAgreesWithPrintf)
{
    for (const char* const format :
         {"%s", "%10s|", "%-10s|", "%.2s", "%8.3s|", "%-8.0s|", "%%%s%%"})
        for (const char* const value : {"", "abc", "a longer text"}) {
            char expected[64];
            std::snprintf(expected, sizeof expected, format, value);
            TString<16> text;
            text.Format(format) << value;
            EXPECT_STREQ(text.m_Text, expected) << format;
        }
}

TEST(FormatStream, UnusualUseIsDefined)
{
    const auto made = [](const char* format, auto supply) {
        TString<16> text{CSubStringRef("=")};
        {
            auto stream = text.Format(format);
            supply(stream);
        }
        return std::string(text.m_Text);
    };
    using Stream = Vorn::Output_Streams::CFormatStream;
    // Appends; what is supplied is never a format.
    EXPECT_EQ(made("[%d] %s", [](Stream& s) { s.FormatInt(7) << "%s%n%d"; }), "=[7] %s%n%d");
    // Too few and too many.
    EXPECT_EQ(made("a%sb%dc", [](Stream& s) { s << "1"; }), "=a1bc");
    EXPECT_EQ(made("a%sb",
                   [](Stream& s) {
                       (s << "1"
                          << "2")
                           .FormatInt(3);
                   }),
              "=a1b");
    EXPECT_EQ(made("plain", [](Stream&) {}), "=plain");
    // The other kind of value.
    EXPECT_EQ(made("%5s|%4d", [](Stream& s) { s.FormatInt(0xFFFFFFFF) << "x"; }), "=   -1|   x");
    EXPECT_EQ(made("%c%c", [](Stream& s) { s.FormatInt('o').FormatInt('k'); }), "=ok");
    // No fields: written as they stand.
    EXPECT_EQ(made("100%, %q %", [](Stream& s) { s << "x"; }), "=100%, %q %");
    EXPECT_EQ(made("%ld %hhu", [](Stream& s) { s.FormatInt(1).FormatInt(2); }), "=1 2");
    EXPECT_EQ(made("%s", [](Stream& s) { s << static_cast<const char*>(nullptr); }), "=");
    EXPECT_EQ(made("%s", [](Stream& s) { s << CSubStringRef("a\0b", 3); }).size(), 2U);
    EXPECT_LE(made("%999999999999d", [](Stream& s) { s.FormatInt(1); }).size(), 5000U);
}

TEST(FormatStream, CompletesWhileAnExceptionPasses)
{
    TString<16> text;
    EXPECT_THROW(
        {
            auto stream = text.Format("%s and %s.");
            stream << "one";
            throw std::runtime_error("on the way");
        },
        std::runtime_error);
    EXPECT_STREQ(text.m_Text, "one and .");
}

} // namespace
