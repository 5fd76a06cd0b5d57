// Strings: storage, capacity, aliasing, UTF-8.
#include <vorn/Strings.h>

#include "DataTable.h"

using namespace Vorn::Strings;

namespace {

template <class String>
bool IsInline(const String& text)
{
    const auto* const object = reinterpret_cast<const char*>(&text);
    return text.m_Text >= object && text.m_Text < object + sizeof text;
}

std::string Std(const CSubStringRef& text)
{
    return std::string(std::string_view(text));
}

TEST(Strings, StaysInlineUntilOutgrown)
{
    const std::string sixteen(16, 'x');
    TString<16> text;
    EXPECT_EQ(text.m_Capacity, 16U);
    text = CStringRef(sixteen);
    EXPECT_TRUE(IsInline(text));
    EXPECT_EQ(text.m_Text[16], '\0');
    text.Alloc(text.m_Length); // the length is not below the capacity, and fits all the same
    EXPECT_TRUE(IsInline(text));
    text.AllocCopy("y", 1);
    EXPECT_FALSE(IsInline(text));
    EXPECT_EQ(Std(text), sixteen + "y");
    text.Clear();
    text << "short";
    EXPECT_FALSE(IsInline(text)) << "storage never shrinks";

    CStringVar none;
    EXPECT_EQ(none.m_Capacity, 0U);
    EXPECT_STREQ(none.m_Text, "");
    none.Clear(); // must not write the shared empty text
    none = "";
    none.AllocCopy("", 0);
    EXPECT_EQ(none.m_Capacity, 0U);
}

// What services do: Alloc when the length is not below the capacity, then copy length + 1 bytes.
TEST(Strings, FieldsMayBeWrittenDirectly)
{
    for (const unsigned int length : {0U, 15U, 16U, 17U, 1000U}) {
        SCOPED_TRACE(length);
        const std::string source(length, 'a');
        TString<16> text;
        if (length >= text.m_Capacity)
            text.Alloc(length);
        ASSERT_GE(text.m_Capacity, length);
        std::memcpy(text.m_Text, source.c_str(), length + 1);
        text.m_Length = length;
        EXPECT_TRUE(text == source);
    }
}

TEST(Strings, AllocCopyAppends)
{
    CStringVar text;
    text.AllocCopy("abc", 0);
    text.AllocCopy("defgh", 2);
    text.AllocCopy(nullptr, 0);
    text << CSubStringRef("\0x", 2);
    EXPECT_EQ(Std(text), std::string("abcde\0x", 7));
    EXPECT_THROW(text.AllocCopy("x", CStringVar::MaxLength), std::bad_alloc);
    EXPECT_THROW(text.Alloc(0xFFFFFFFFU), std::bad_alloc);
    EXPECT_EQ(text.m_Length, 7U) << "a failure loses nothing";
}

TEST(Strings, CopyMoveAndSelf)
{
    for (const unsigned int length : {0U, 5U, 16U, 40U}) {
        SCOPED_TRACE(length);
        const std::string content(length, 'q');
        TString<16> original{CSubStringRef(content)};
        TString<16> copy(original);
        CStringVar heap(original);
        TString<64> wide;
        wide = original;
        EXPECT_TRUE(copy == content && heap == content && wide == content);
        EXPECT_EQ(IsInline(copy), length <= 16);

        TString<16> moved(std::move(original));
        EXPECT_TRUE(moved == content);
        EXPECT_EQ(original.m_Length, 0U); // NOLINT(bugprone-use-after-move)
        EXPECT_TRUE(IsInline(original));
        original << "again";
        EXPECT_TRUE(original == "again");

        // From an inline buffer into a string without one: the text must not stay behind.
        CStringVar taken(std::move(static_cast<CStringVar&>(moved)));
        EXPECT_TRUE(taken == content);
        moved = CStringRef("overwritten");
        EXPECT_TRUE(taken == content);

        TString<16>& alias = copy;
        copy = alias;
        copy = std::move(alias);
        EXPECT_TRUE(copy == content);
    }
    std::vector<TString<16>> many(3);
    many[0] = "first";
    many[2] = CStringRef(std::string(30, 'z'));
    for (int more = 0; more < 40; ++more)
        many.emplace_back();
    EXPECT_TRUE(many[0] == "first" && many[2] == std::string(30, 'z'));
}

TEST(Strings, TextMayBeAPartOfTheStringItself)
{
    TString<16> text{CSubStringRef("0123456789abcdef")};
    text = text.m_Text + 4;
    EXPECT_TRUE(text == "456789abcdef");
    text << CSubStringRef(text.m_Text + 2, 10); // has to grow, and reads its old storage
    EXPECT_TRUE(text == "456789abcdef6789abcdef");
    const std::string before = Std(text);
    text.AllocCopy(text.m_Text, 0);
    text = CStringRef(text);
    EXPECT_EQ(Std(text), before + before);
    text = "x\xE9y";
    text.CopyAsUTF8(CSubStringRef(text.m_Text + 1, 2));
    EXPECT_TRUE(text == "\xC3\xA9y");
}

TEST(Strings, Utf8)
{
    EachRow("utf8", "texts", [](const CDataRow& row) {
        EXPECT_EQ(CSubStringRef(row[0]).UTF8Length(), row.Number(1));
        TString<16> text;
        text.CopyAsUTF8(row[0]);
        EXPECT_EQ(Std(text), row[2]);
    });
}

TEST(Strings, ViewsAndParts)
{
    const CSubStringRef path("/opt/app/sbin");
    EXPECT_EQ(path.FindLast('/', 0), 8);
    EXPECT_EQ(path.FindLast('/', 9), -1);
    EXPECT_EQ(path.FindLast('x', 0), -1);
    EXPECT_EQ(CSubStringRef(static_cast<const char*>(nullptr)).Length(), 0U);
    EXPECT_TRUE(_TEmpty == "" && _TEmpty != CSubStringRef("\0", 1));

    CStringEx text{CSubStringRef("/opt/app/sbin")};
    const CStringEx before(text);
    auto part = text.Part(9);
    part.InsertReplace("bin", 0);
    EXPECT_TRUE(text == "/opt/app/bin" && CSubStringRef(part) == "bin" && before == path);
    text.Part(1, 3).InsertReplace(text.m_Text, 8);
    EXPECT_TRUE(text == "//opt/app/app/bin");
    text.Part(99, 5).InsertReplace("!", 0);
    EXPECT_TRUE(text == "//opt/app/app/bin!");
}

} // namespace
