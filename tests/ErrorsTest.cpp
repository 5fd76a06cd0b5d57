// Raising, context, declining, and messages in the host's language.
#include <random>
#include <thread>

#include <vorn/vorn.h>
#include <vornex/vornex.h>

#include "DataTable.h"
#include "Raised.h"
#include "ScratchFolder.h"

using Vorn::Exceptions::LastError;
using Vorn::Threading::CThrowDisable;

namespace {

TEST(Errors, RecordSaysWhatWhereAndOnWhat)
{
    const std::string record = "2005000A:127; atoi32 (12a) Src/Str2Num.cpp:130";
    EXPECT_EQ(RaisedRecord([] { VornEx::atoi32("12a", 10); }), record);
    EXPECT_TRUE(LastError().Detail() == "");
    EXPECT_EQ(VornEx::atoi32("12", 10), 12);
    EXPECT_EQ(Record(), record) << "kept until the next raise";
}

TEST(Errors, DetailContextAndRethrow)
{
    static Vorn::Exceptions::SOURCE_INFO inner = {{0}, "Src/Inner.cpp", 7};
    static Vorn::Exceptions::SOURCE_INFO outer = {{0}, "Src/Outer.cpp", 9};
    Vorn::Threading::CThrowState state;
    const auto passing = [&state](Vorn::Exceptions::SOURCE_INFO& source, auto body) {
        try {
            body();
        } catch (unsigned int) {
            auto log = state.ContinueException(source);
            log.Format("at %s") << source.m_Source;
            log.Throw();
        }
    };
    EXPECT_EQ(RaisedRecord([&] {
                  passing(outer, [&] {
                      passing(inner,
                              [&] { state.StartException(3).Throw(0x20050002) << "why %s"; });
                  });
              }),
              "20050002:3; at Src/Inner.cpp Src/Inner.cpp:7; at Src/Outer.cpp Src/Outer.cpp:9")
        << "innermost first";
    EXPECT_TRUE(LastError().Detail() == "why %s");
    EXPECT_EQ(inner.m_Passed, 1U);
}

TEST(Errors, ThrowingCanBeDisabledOnAThread)
{
    {
        const CThrowDisable guard;
        const CThrowDisable nested;
        EXPECT_EQ(VornEx::atoi32("99999999999", 10), 2147483647);
        EXPECT_EQ(LastError().Code(), VornEx::NumberOutOfRange);
        EXPECT_EQ(VornEx::atoi64("x", 10), 0);
        EXPECT_EQ(VornEx::atoui64("7x", 10), 7U);
        EXPECT_EQ(Record(), "2005000A:216") << "nothing passed, so no context";

        unsigned int elsewhere = 0;
        std::thread([&elsewhere] { elsewhere = Raised([] { VornEx::atoi32("", 10); }); }).join();
        EXPECT_EQ(elsewhere, VornEx::NotANumber);
        EXPECT_EQ(Record(), "2005000A:216") << "this thread's own";
    }
    EXPECT_EQ(Raised([] { VornEx::atoi32("", 10); }), VornEx::NotANumber);
    EXPECT_EQ(LastError().Line(), 125U);
}

// A state that was remembered comes back, whatever was done to it meanwhile.
TEST(Errors, ThrowStateIsPutBack)
{
    const CThrowDisable guard;
    Vorn::Threading::CThrowState state;
    state.Enable();
    EXPECT_FALSE(Vorn::Threading::Declines());
    EXPECT_EQ(Raised([] { VornEx::atoi32("", 10); }), VornEx::NotANumber);
    for (int times = 0; times < 2; ++times) {
        state.Restore();
        EXPECT_TRUE(Vorn::Threading::Declines());
    }
}

TEST(Errors, RaiseDuringUnwindingComesBack)
{
    struct CRaisesOnItsWay
    {
        ~CRaisesOnItsWay() { m_Value = VornEx::atoui32("4294967296", 10); }
        std::uint32_t& m_Value;
    };
    std::uint32_t value = 0;
    const auto unwind = [&value] {
        const CRaisesOnItsWay raises{value};
        throw std::runtime_error("unwinding");
    };
    EXPECT_THROW(unwind(), std::runtime_error);
    EXPECT_EQ(value, 4294967295U);
    EXPECT_EQ(LastError().Code(), VornEx::NumberOutOfRange);

    // The same where raising is enabled: only what is contained may leave.
    Vorn::Threading::CThrowState state;
    state.Enable();
    value = 0;
    EXPECT_EQ(Raised([&value] {
                  const CRaisesOnItsWay raises{value};
                  VornEx::atoi32("x", 10);
              }),
              VornEx::NotANumber);
    state.Restore();
    EXPECT_EQ(value, 4294967295U);
}

// Static objects are destroyed after the thread's own.
TEST(Errors, RecordServesUntilTheProcessEnds)
{
    const auto endsWithARaise = [] {
        Raised([] { VornEx::atoi32("first", 10); });
        std::atexit([] {
            _exit(RaisedRecord([] { VornEx::atoi32("second", 10); }) ==
                          "2005000A:125; atoi32 (second) Src/Str2Num.cpp:130"
                      ? 7
                      : 8);
        });
        std::exit(0);
    };
    EXPECT_EXIT(endsWithARaise(), testing::ExitedWithCode(7), "");
}

// A scratch folder with a locale of each language; the system need have none but C.UTF-8.
class Messages : public testing::Test
{
protected:
    void SetUp() override
    {
        for (const char* const language : {"/de_DE.utf8", "/fr_FR.utf8"})
            std::filesystem::create_symlink("/usr/lib/locale/C.utf8", m_Folder.m_Path + language);
        setenv("LOCPATH", m_Folder.m_Path.c_str(), 1);
        setenv("NLSPATH", "/nowhere/%N:" NLS_FOLDER "/%l/%N", 1);
    }
    void TearDown() override
    {
        setlocale(LC_ALL, "C");
        unsetenv("LOCPATH");
        unsetenv("NLSPATH");
    }

    // The message of an invalid parameter by a catalogue of the test's own.
    std::string MessageBy(const std::string& catalogue) const
    {
        WriteFile(m_Folder.m_Path + "/vornex.nls", catalogue);
        setenv("NLSPATH", (m_Folder.m_Path + "/%N").c_str(), 1);
        return std::string(Vorn::Misc::ErrorMessage(VornEx::InvalidParameter));
    }

    const CScratchFolder m_Folder;
};

TEST_F(Messages, ByCodeInTheHostsLanguage)
{
    EachRow("messages", "messages", [](const CDataRow& row) {
        std::size_t column = 1;
        for (const char* const locale : {"C", "de_DE.UTF-8", "fr_FR.UTF-8"}) {
            ASSERT_NE(setlocale(LC_ALL, locale), nullptr);
            EXPECT_EQ(std::string(Vorn::Misc::ErrorMessage(row.Number<unsigned int>(0))),
                      row[column++]);
        }
    });
    EXPECT_TRUE(Vorn::Misc::ErrorMessage(0x2FFF0001) == "No information available for this error")
        << "a module that is not loaded";
}

TEST_F(Messages, DamagedCataloguesCountAsNone)
{
    const std::string sound = FileContent(NLS_FOLDER "/de/vornex.nls");
    ASSERT_GT(sound.size(), 100U);
    ASSERT_EQ(MessageBy(sound), "Ungültiger Parameter") << "the catalogue is really read";
    // Cut anywhere, the last text is not whole, and then the file is not believed at all.
    for (std::size_t length = 0; length < sound.size(); ++length)
        ASSERT_EQ(MessageBy(sound.substr(0, length)), "Invalid parameter") << length;
    // Table sizes that lead far outside, and overflow when multiplied.
    for (const char* const sizes : {"\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", "\0\0\0\x80\x02\0\0\0",
                                    "\0\0\0\0\0\0\0\0", "\x56\x55\x55\x55\x01\0\0\0"})
        EXPECT_EQ(MessageBy(std::string(sound).replace(4, 8, sizes, 8)), "Invalid parameter");
    std::mt19937 random(4711);
    for (int round = 0; round < 300; ++round) {
        std::string garbage = sound;
        for (int hits = 0; hits < 4; ++hits)
            garbage[random() % garbage.size()] = static_cast<char>(random());
        EXPECT_LT(MessageBy(garbage).size(), 4096U); // some text; must not crash or read outside
    }
}

} // namespace
