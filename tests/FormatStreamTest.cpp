// Format streams, held against the C library's printf.
#include <cstring>
#include <stdexcept>

#include <vorn/Strings.h>

#include "DataTable.h"

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
                    const char* const without = isSigned ? "#" : conversion == 'u' ? "+ #" : "+ ";
                    if (std::strpbrk(flag, without) != nullptr)
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
    EachRow("formats", "unusual", [](const CDataRow& row) {
        TString<16> text{CSubStringRef("=")};
        {
            auto stream = text.Format(row[0].c_str());
            for (std::size_t at = 2; at < row.Size(); at += 2)
                if (row[at] == "INT")
                    stream.FormatInt(row.Number<unsigned int>(at + 1));
                else
                    stream << row[at + 1];
        }
        EXPECT_EQ(std::string(text), row[1]);
    });
    TString<16> text;
    text.Format("%s") << static_cast<const char*>(nullptr);
    EXPECT_STREQ(text.m_Text, "");
    text.Format("%999999999999d").FormatInt(1);
    EXPECT_LE(text.m_Length, 5000U);
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
