// Raising, context, declining, and messages in the host's language.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <random>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vorn/vorn.h>
#include <vornex/vornex.h>

using Vorn::Exceptions::LastError;
using Vorn::Threading::CThrowDisable;

namespace {

// The code that a call raises, 0 for none.
template <class Call>
unsigned int Raised(Call call)
{
    try {
        call();
    } catch (unsigned int code) {
        return code;
    }
    return 0;
}

TEST(Errors, RecordSaysWhatWhereAndOnWhat)
{
    EXPECT_EQ(Raised([] { VornEx::atoi32("12a", 10); }), VornEx::NotANumber);
    EXPECT_EQ(LastError().Code(), VornEx::NotANumber);
    EXPECT_EQ(LastError().Line(), 127U);
    EXPECT_TRUE(LastError().Detail() == "");
    ASSERT_EQ(LastError().Context().size(), 1U);
    EXPECT_TRUE(LastError().Context()[0].m_Text == "atoi32 (12a)");
    EXPECT_STREQ(LastError().Context()[0].m_Source, "Src/Str2Num.cpp");
    EXPECT_EQ(LastError().Context()[0].m_Line, 130U);
    EXPECT_EQ(VornEx::atoi32("12", 10), 12);
    EXPECT_EQ(LastError().Code(), VornEx::NotANumber) << "kept until the next raise";
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
    const unsigned int code = Raised([&] {
        passing(outer, [&] {
            passing(inner, [&] { state.StartException(3).Throw(0x20050002) << "why %s"; });
        });
    });
    EXPECT_EQ(code, 0x20050002U);
    EXPECT_TRUE(LastError().Detail() == "why %s");
    ASSERT_EQ(LastError().Context().size(), 2U);
    EXPECT_TRUE(LastError().Context()[0].m_Text == "at Src/Inner.cpp") << "innermost first";
    EXPECT_TRUE(LastError().Context()[1].m_Text == "at Src/Outer.cpp");
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
        EXPECT_EQ(LastError().Line(), 216U);
        EXPECT_TRUE(LastError().Context().empty()) << "nothing passed, so no context";

        unsigned int elsewhere = 0;
        std::thread([&elsewhere] { elsewhere = Raised([] { VornEx::atoi32("", 10); }); }).join();
        EXPECT_EQ(elsewhere, VornEx::NotANumber);
        EXPECT_EQ(LastError().Code(), VornEx::NotANumber) << "this thread's own";
        EXPECT_EQ(LastError().Line(), 216U);
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
    state.Restore();
    EXPECT_TRUE(Vorn::Threading::Declines());
    state.Restore();
    EXPECT_TRUE(Vorn::Threading::Declines());
}

TEST(Errors, RaiseDuringUnwindingComesBack)
{
    struct CRaisesOnItsWay
    {
        ~CRaisesOnItsWay() { m_Value = VornEx::atoui32("4294967296", 10); }
        std::uint32_t& m_Value;
    };
    std::uint32_t value = 0;
    EXPECT_THROW(
        {
            const CRaisesOnItsWay raises{value};
            throw std::runtime_error("unwinding");
        },
        std::runtime_error);
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
            Raised([] { VornEx::atoi32("second", 10); });
            const auto& context = LastError().Context();
            _exit(context.size() == 1 && context[0].m_Text == "atoi32 (second)" ? 7 : 8);
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
        char name[] = "/tmp/vornex-nls-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        m_Folder = name;
        for (const char* const language : {"de_DE", "fr_FR"})
            ASSERT_EQ(
                symlink("/usr/lib/locale/C.utf8", (m_Folder + "/" + language + ".utf8").c_str()),
                0);
        setenv("LOCPATH", m_Folder.c_str(), 1);
        setenv("NLSPATH", "/nowhere/%N:" NLS_FOLDER "/%l/%N", 1);
    }
    void TearDown() override
    {
        setlocale(LC_ALL, "C");
        unsetenv("LOCPATH");
        unsetenv("NLSPATH");
        for (const char* const file : {"/de_DE.utf8", "/fr_FR.utf8", "/vornex.nls"})
            unlink((m_Folder + file).c_str());
        rmdir(m_Folder.c_str());
    }

    // A catalogue of the test's own.
    void Put(const std::string& content)
    {
        std::ofstream(m_Folder + "/vornex.nls", std::ios::binary) << content;
        setenv("NLSPATH", (m_Folder + "/%N").c_str(), 1);
    }

    std::string m_Folder;
};

TEST_F(Messages, ByCodeInTheHostsLanguage)
{
    struct
    {
        unsigned int m_Code;
        const char* m_English;
        const char* m_German;
        const char* m_French;
    } const rows[] = {
        {0x20050001, "System log already opened", "Systemprotokoll ist bereits geöffnet",
         "Le journal système est déjà ouvert"},
        {0x20050006, "Cannot close system log", "Systemprotokoll kann nicht geschlossen werden",
         "Impossible de fermer le journal système"},
        {0x20050002, "Invalid parameter", "Ungültiger Parameter", "Paramètre non valide"},
        {0x20050008, "Time system call failed", "Systemaufruf zur Zeitabfrage fehlgeschlagen",
         "Échec de l'appel système de lecture de l'heure"},
        // No row of their own.
        {0x20050009, "No information available for this error",
         "Zu diesem Fehler liegen keine Informationen vor",
         "Aucune information disponible pour cette erreur"},
        {0x2005FFFF, "No information available for this error",
         "Zu diesem Fehler liegen keine Informationen vor",
         "Aucune information disponible pour cette erreur"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.m_Code);
        ASSERT_NE(setlocale(LC_ALL, "C"), nullptr);
        EXPECT_TRUE(Vorn::Misc::ErrorMessage(row.m_Code) == row.m_English);
        ASSERT_NE(setlocale(LC_ALL, "de_DE.UTF-8"), nullptr);
        EXPECT_TRUE(Vorn::Misc::ErrorMessage(row.m_Code) == row.m_German);
        ASSERT_NE(setlocale(LC_ALL, "fr_FR.UTF-8"), nullptr);
        EXPECT_TRUE(Vorn::Misc::ErrorMessage(row.m_Code) == row.m_French);
    }
    EXPECT_TRUE(Vorn::Misc::ErrorMessage(0x2FFF0001) == "No information available for this error")
        << "a module that is not loaded";
}

TEST_F(Messages, DamagedCataloguesCountAsNone)
{
    std::ifstream file(NLS_FOLDER "/de/vornex.nls", std::ios::binary);
    const std::string sound((std::istreambuf_iterator<char>(file)), {});
    ASSERT_GT(sound.size(), 100U);
    const auto message = [] { return Vorn::Misc::ErrorMessage(VornEx::InvalidParameter); };

    Put(sound);
    ASSERT_TRUE(message() == "Ungültiger Parameter") << "the catalogue is really read";
    // Cut anywhere, the last text is not whole, and then the file is not believed at all.
    for (std::size_t length = 0; length < sound.size(); ++length) {
        Put(sound.substr(0, length));
        ASSERT_TRUE(message() == "Invalid parameter") << length;
    }
    // Table sizes that lead far outside, and overflow when multiplied.
    for (const char* const sizes : {"\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", "\0\0\0\x80\x02\0\0\0",
                                    "\0\0\0\0\0\0\0\0", "\x56\x55\x55\x55\x01\0\0\0"}) {
        std::string garbage = sound;
        garbage.replace(4, 8, sizes, 8);
        Put(garbage);
        EXPECT_TRUE(message() == "Invalid parameter");
    }
    std::mt19937 random(4711);
    for (int round = 0; round < 300; ++round) {
        std::string garbage = sound;
        for (int hits = 0; hits < 4; ++hits)
            garbage[random() % garbage.size()] = static_cast<char>(random());
        Put(garbage);
        EXPECT_LT(message().m_Length, 4096U); // some text; must not crash or read outside
    }
}

TEST(Module, RecordsAreAsOtherModulesExpect)
{
    EXPECT_EQ(VornEx::VORN_MODULE_INFO_VornEx.m_Module, 5U);
    EXPECT_EQ(VornEx::VORN_MODULE_INFO_VornEx.m_Language, &VornEx::NLS::m_LngFile);
    std::string order;
    for (const auto* row = VornEx::ErrorMsgList; row->m_Code != 0; ++row)
        order +=
            std::to_string(row->m_Code - 0x20050000) + ">" + std::to_string(row->m_Index) + " ";
    EXPECT_EQ(order, "1>0 6>1 5>2 2>3 7>4 3>5 4>6 8>7 ");
}

} // namespace
