// vornex match as its users meet it.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "RunProgram.h"

namespace {

struct CUse
{
    std::vector<std::string> m_Arguments;
    std::string m_Input;
    int m_Status;
    std::string m_Out; // the whole output
    std::string m_Err; // a part of standard error; empty: nothing may be there
};

TEST(MatchTool, LinesAndStatus)
{
    const CUse uses[] = {
        {{"^(\\w+) release (\\d+(\\.\\d+)*)(x)?"},
         "Debian\nCentOS release 5.11 (Final)\n",
         0,
         "2: CentOS release 5.11 (Final)\n"
         "  0  0-19  CentOS release 5.11\n  1  0-6  CentOS\n  2  15-19  5.11\n  3  16-19  .11\n"
         "  4  -\n",
         ""},
        {{"\\d"}, "a\nb", 1, "", ""},
        {{"a.c"}, "xABC", 1, "", ""},
        {{"-i", "a.c"}, "xABC", 0, "1: xABC\n  0  1-4  ABC\n", ""},
        {{"-x", "a b # c"}, "ab", 0, "1: ab\n  0  0-2  ab\n", ""},
        {{"--rtl", "\\d"}, "1 2", 0, "1: 1 2\n  0  2-3  2\n", ""},
        {{"--all", "\\d"}, "1 2", 0, "1: 1 2\n  0  0-1  1\n  0  2-3  2\n", ""},
        {{"--all", "--rtl", "\\d"}, "1 2", 0, "1: 1 2\n  0  2-3  2\n  0  0-1  1\n", ""},
        {{"-g", "--all", "\\Ga"}, "aab a", 0, "1: aab a\n  0  0-1  a\n  0  1-2  a\n", ""},
        // Without the step over an empty match this would not end.
        {{"--all", "x*"}, "ax", 0, "1: ax\n  0  0-0  \n  0  1-2  x\n  0  2-2  \n", ""},
        // What a terminal would act on is not passed through.
        {{"a"}, "\033[2Ja\n", 0, "1: ?[2Ja\n  0  4-5  a\n", ""},
        {{"a", "-", "/nonexistent"}, "a", 2, "-:1: a\n  0  0-1  a\n", "cannot read /nonexistent"},
        {{"a", "/"}, "", 2, "", "cannot read /"},
        {{}, "", 2, "", "PATTERN"},
    };
    for (const auto& use : uses) {
        std::vector<std::string> arguments = {"match"};
        arguments.insert(arguments.end(), use.m_Arguments.begin(), use.m_Arguments.end());
        std::string shown;
        for (const auto& argument : arguments)
            shown += argument + " ";
        SCOPED_TRACE(shown);
        const CRun run = RunProgram(arguments, use.m_Input);
        EXPECT_EQ(run.m_Status, use.m_Status);
        EXPECT_EQ(run.m_Out, use.m_Out);
        if (use.m_Err.empty())
            EXPECT_EQ(run.m_Err, "");
        else
            EXPECT_NE(run.m_Err.find(use.m_Err), std::string::npos) << run.m_Err;
    }
}

TEST(MatchTool, Json)
{
    const CRun run = RunProgram({"match", "--json", "--all", "(a)(b)?"}, "x\nab a\n");
    const auto json = nlohmann::json::parse(run.m_Out, nullptr, false);
    ASSERT_TRUE(json.is_object()) << run.m_Out << run.m_Err;
    EXPECT_EQ(json, nlohmann::json::parse(R"({"matched": true, "lines": [{
        "line": 2, "text": "ab a", "matches": [
            {"groups": [{"begin": 0, "end": 2, "text": "ab"}, {"begin": 0, "end": 1, "text": "a"},
                        {"begin": 1, "end": 2, "text": "b"}]},
            {"groups": [{"begin": 3, "end": 4, "text": "a"}, {"begin": 3, "end": 4, "text": "a"},
                        null]}]}]})"));
    EXPECT_EQ(RunProgram({"match", "--json", "q"}, "x\n").m_Status, 1);
}

} // namespace
