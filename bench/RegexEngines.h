// One face for the engine and its peers, so that a workload is written once. Each class compiles
// in its constructor, matches without further preparation, and frees everything in its destructor:
//
//   bool Search(text)        the first match; Groups() and Group(n) then tell what was captured
//   ForEach(text, visit)     visit(begin, end) for each match of the text, left to right
//
// The peers keep their result objects between calls, which spares them allocations; the engine is
// called as its users call it.
#pragma once

#include <memory>
#include <regex>
#include <stdexcept>
#include <string>
#include <string_view>

#include <boost/regex.hpp>
#include <oniguruma.h>
#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <regex/Regexp.h>

namespace Bench {

// Character indexes into the text, end exclusive; -1 and -1 when a group took no part.
struct CSpan
{
    long m_Begin;
    long m_End;
};

class CVornexEngine
{
public:
    static constexpr const char* Name = "vornex";

    explicit CVornexEngine(const char* pattern) : m_Regexp(pattern) {}

    bool Search(std::string_view text)
    {
        m_Result = m_Regexp.Match(text.data(), static_cast<int>(text.size()));
        return m_Result.Matched();
    }

    int Groups() const { return m_Result.MaxGroup(); }
    CSpan Group(int n) const { return {m_Result.GroupBegin(n), m_Result.GroupEnd(n)}; }

    template <class Visit>
    void ForEach(std::string_view text, Visit visit)
    {
        Vorn::Regex::CContext context(text.data(), static_cast<int>(text.size()));
        for (;;) {
            const auto result = m_Regexp.Match(&context);
            if (!result.Matched())
                return;
            visit(result.GroupBegin(0), result.GroupEnd(0));
        }
    }

private:
    Vorn::Regex::CRegexpT<char> m_Regexp;
    Vorn::Regex::MatchResultT<0> m_Result{nullptr, 0};
};

// std::regex and Boost.Regex share one interface.
template <class Traits>
class CStdLikeEngine
{
public:
    static constexpr const char* Name = Traits::Name;

    explicit CStdLikeEngine(const char* pattern) : m_Regex(pattern) {}

    bool Search(std::string_view text)
    {
        return Traits::Search(text.data(), text.data() + text.size(), m_Result, m_Regex);
    }

    int Groups() const { return static_cast<int>(m_Result.size()) - 1; }

    CSpan Group(int n) const
    {
        const auto group = static_cast<std::size_t>(n);
        if (!m_Result[Traits::Index(group)].matched)
            return {-1, -1};
        const auto begin = static_cast<long>(m_Result.position(Traits::Index(group)));
        return {begin, begin + static_cast<long>(m_Result.length(Traits::Index(group)))};
    }

    template <class Visit>
    void ForEach(std::string_view text, Visit visit)
    {
        typename Traits::Iterator match(text.data(), text.data() + text.size(), m_Regex);
        for (const typename Traits::Iterator end; match != end; ++match) {
            const auto begin = static_cast<long>(match->position());
            visit(begin, begin + static_cast<long>(match->length()));
        }
    }

private:
    typename Traits::Regex m_Regex;
    typename Traits::Result m_Result;
};

struct CStdTraits
{
    static constexpr const char* Name = "std";
    using Regex = std::regex;
    using Result = std::cmatch;
    using Iterator = std::cregex_iterator;
    static std::size_t Index(std::size_t n) { return n; }
    static bool Search(const char* begin, const char* end, Result& result, const Regex& regex)
    {
        return std::regex_search(begin, end, result, regex);
    }
};

struct CBoostTraits
{
    static constexpr const char* Name = "boost";
    using Regex = boost::regex;
    using Result = boost::cmatch;
    using Iterator = boost::cregex_iterator;
    static int Index(std::size_t n) { return static_cast<int>(n); }
    static bool Search(const char* begin, const char* end, Result& result, const Regex& regex)
    {
        return boost::regex_search(begin, end, result, regex);
    }
};

using CStdEngine = CStdLikeEngine<CStdTraits>;
using CBoostEngine = CStdLikeEngine<CBoostTraits>;

// Repeats a search from where the last match ended, one further after an empty match.
template <class Engine, class Visit>
void ForEachFrom(Engine& engine, std::string_view text, Visit visit)
{
    std::size_t from = 0;
    while (from <= text.size() && engine.SearchFrom(text, from)) {
        const CSpan match = engine.Group(0);
        visit(match.m_Begin, match.m_End);
        from = static_cast<std::size_t>(match.m_End) + (match.m_Begin == match.m_End ? 1 : 0);
    }
}

class COnigurumaEngine
{
public:
    static constexpr const char* Name = "oniguruma";

    explicit COnigurumaEngine(const char* pattern) : m_Region(onig_region_new())
    {
        const auto* const text = reinterpret_cast<const OnigUChar*>(pattern);
        OnigErrorInfo error;
        if (onig_new(&m_Regex, text, text + std::string_view(pattern).size(), ONIG_OPTION_DEFAULT,
                     ONIG_ENCODING_ASCII, ONIG_SYNTAX_PERL, &error) != ONIG_NORMAL)
            throw std::invalid_argument(std::string("oniguruma does not take ") + pattern);
    }

    COnigurumaEngine(const COnigurumaEngine&) = delete;
    COnigurumaEngine& operator=(const COnigurumaEngine&) = delete;

    ~COnigurumaEngine()
    {
        onig_region_free(m_Region, 1);
        onig_free(m_Regex);
    }

    bool Search(std::string_view text) { return SearchFrom(text, 0); }

    bool SearchFrom(std::string_view text, std::size_t from)
    {
        const auto* const begin = reinterpret_cast<const OnigUChar*>(text.data());
        const auto* const end = begin + text.size();
        const int found =
            onig_search(m_Regex, begin, end, begin + from, end, m_Region, ONIG_OPTION_NONE);
        if (found < ONIG_MISMATCH)
            throw std::runtime_error("oniguruma gave up");
        return found >= 0;
    }

    int Groups() const { return m_Region->num_regs - 1; }
    CSpan Group(int n) const { return {m_Region->beg[n], m_Region->end[n]}; }

    template <class Visit>
    void ForEach(std::string_view text, Visit visit)
    {
        ForEachFrom(*this, text, visit);
    }

private:
    OnigRegex m_Regex = nullptr;
    OnigRegion* m_Region;
};

// The traits say the name, the compile options and whether the pattern is turned into machine code.
template <class Traits>
class CPcre2Engine
{
public:
    static constexpr const char* Name = Traits::Name;

    explicit CPcre2Engine(const char* pattern)
    {
        int error = 0;
        PCRE2_SIZE place = 0;
        m_Code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern), PCRE2_ZERO_TERMINATED,
                               Traits::Options, &error, &place, nullptr);
        if (m_Code == nullptr)
            throw std::invalid_argument(std::string("PCRE2 does not take ") + pattern);
        if (Traits::Jit && pcre2_jit_compile(m_Code, PCRE2_JIT_COMPLETE) != 0)
            throw std::runtime_error("PCRE2 has no JIT here");
        m_Result = pcre2_match_data_create_from_pattern(m_Code, nullptr);
    }

    CPcre2Engine(const CPcre2Engine&) = delete;
    CPcre2Engine& operator=(const CPcre2Engine&) = delete;

    ~CPcre2Engine()
    {
        pcre2_match_data_free(m_Result);
        pcre2_code_free(m_Code);
    }

    bool Search(std::string_view text) { return SearchFrom(text, 0); }

    bool SearchFrom(std::string_view text, std::size_t from)
    {
        const auto* const subject = reinterpret_cast<PCRE2_SPTR>(text.data());
        const int found =
            Traits::Jit ? pcre2_jit_match(m_Code, subject, text.size(), from, 0, m_Result, Limits())
                        : pcre2_match(m_Code, subject, text.size(), from, 0, m_Result, Limits());
        if (found < PCRE2_ERROR_NOMATCH)
            throw std::runtime_error("PCRE2 gave up");
        m_Found = found;
        return found > 0;
    }

    int Groups() const { return static_cast<int>(pcre2_get_ovector_count(m_Result)) - 1; }

    CSpan Group(int n) const
    {
        const PCRE2_SIZE* const ends = pcre2_get_ovector_pointer(m_Result);
        if (n >= m_Found || ends[2 * n] == PCRE2_UNSET)
            return {-1, -1};
        return {static_cast<long>(ends[2 * n]), static_cast<long>(ends[2 * n + 1])};
    }

    template <class Visit>
    void ForEach(std::string_view text, Visit visit)
    {
        ForEachFrom(*this, text, visit);
    }

private:
    // None of its limits, but for the memory: half a gigabyte.
    static pcre2_match_context* Limits()
    {
        static pcre2_match_context* const limits = [] {
            auto* const context = pcre2_match_context_create(nullptr);
            pcre2_set_match_limit(context, UINT32_MAX);
            pcre2_set_depth_limit(context, UINT32_MAX);
            pcre2_set_heap_limit(context, 512 * 1024);
            return context;
        }();
        return limits;
    }

    pcre2_code* m_Code = nullptr;
    pcre2_match_data* m_Result = nullptr;
    int m_Found = 0;
};

struct CPcre2InterpreterTraits
{
    static constexpr const char* Name = "pcre2";
    static constexpr uint32_t Options = 0;
    static constexpr bool Jit = false;
};

// A plain scan of start positions, as the engine does it.
struct CPcre2PlainTraits
{
    static constexpr const char* Name = "pcre2_plain";
    static constexpr uint32_t Options = PCRE2_NO_START_OPTIMIZE | PCRE2_NO_AUTO_POSSESS;
    static constexpr bool Jit = false;
};

struct CPcre2JitTraits
{
    static constexpr const char* Name = "pcre2_jit";
    static constexpr uint32_t Options = 0;
    static constexpr bool Jit = true;
};

using CPcre2Interpreter = CPcre2Engine<CPcre2InterpreterTraits>;
using CPcre2Plain = CPcre2Engine<CPcre2PlainTraits>;
using CPcre2Jit = CPcre2Engine<CPcre2JitTraits>;

} // namespace Bench
