// Fuzz target of the regex engine: pattern, flags and text from the input, in one of three ways.
//
//   'r' flags pattern NUL text   the bytes as they are
//   's' flags bytes              a made pattern that PCRE2 reads alike: match and captures must
//                                agree
//   't' flags bytes              a made pattern without limits: its spelling that keeps the
//                                engine from its tight loops must give the same
//
// In each: what a result says lies inside the text, a second match says the same, and a repeated
// search moves on and ends.
//
// Backtracking takes exponential time for some patterns, here as in every engine of the kind. Sizes
// are kept small therefore, PCRE2's match limit sorts the made patterns out, and a timer ends
// a match by taking its budget of calls and its text away.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <sys/time.h>

#include <csignal>

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <regex/Regexp.h>

#include "Fuzz.h"
#include "RegexGenerator.h"

namespace {

using Fuzz::CGenerator;
using Fuzz::CPattern;
using Fuzz::Readable;
using Vorn::Regex::CContext;
using Result = Vorn::Regex::MatchResultT<0>;
using Matches = std::vector<std::vector<int>>; // for each match, the begin and end of each group

constexpr int AllFlags = 63;
constexpr std::size_t MostMatches = 8; // compared of one text
constexpr uint32_t PeerMatchLimit = 20'000;
constexpr int NestedCalls = 5;      // a hundred, each in a choice, would never come to an end
constexpr long SlowAfter = 400'000; // microseconds

struct CInput
{
    const char* m_Mode;
    std::string m_Pattern;
    int m_Flags;
    std::string m_Text;
};

const CInput* current = nullptr;
CContext* matching = nullptr;
volatile std::sig_atomic_t gaveUp = 0;

std::string Readable(const Matches& matches)
{
    std::string shown;
    for (const auto& match : matches) {
        shown += "{";
        for (std::size_t i = 0; i + 1 < match.size(); i += 2)
            shown += "[" + std::to_string(match[i]) + "," + std::to_string(match[i + 1]) + ")";
        shown += "} ";
    }
    return shown.empty() ? "no match" : shown;
}

[[noreturn]] void Report(const std::string& what)
{
    std::fprintf(stderr, "mode %s, flags %d\npattern %s\ntext    %s\n%s\n", current->m_Mode,
                 current->m_Flags, Readable(current->m_Pattern).c_str(),
                 Readable(current->m_Text).c_str(), what.c_str());
    std::abort();
}

void Expect(bool holds, const char* what)
{
    if (!holds)
        Report(what);
}

void GiveUp(int /*signal*/)
{
    gaveUp = 1;
    if (matching == nullptr)
        return;
    // Calls fail from here on, and nothing more is found in the text.
    matching->recursionBudget = -1'000'000'000;
    matching->textLength = 0;
}

// Lets the timer run while it lives.
class CTimeLimit
{
public:
    CTimeLimit()
    {
        gaveUp = 0;
        Set(SlowAfter);
    }
    ~CTimeLimit() { Set(0); }

private:
    static void Set(long microseconds)
    {
        itimerval timer = {};
        timer.it_value.tv_usec = microseconds;
        // Again and again: the budget may just be on its way from and to memory.
        timer.it_interval.tv_usec = microseconds / 10;
        setitimer(ITIMER_VIRTUAL, &timer, nullptr);
    }
};

// The groups of a match; none when it did not match.
std::vector<int> Groups(const Result& result, int length)
{
    if (!result.Matched())
        return {};
    Expect(result.MaxGroup() >= 0, "a match without group 0");
    Expect(result.GroupBegin(result.MaxGroup() + 1) == -1 &&
               result.GroupEnd(result.MaxGroup() + 1) == -1,
           "a group behind the last");
    std::vector<int> groups;
    for (int n = 0; n <= result.MaxGroup(); ++n) {
        const int begin = result.GroupBegin(n);
        const int end = result.GroupEnd(n);
        Expect((n != 0 && begin == -1 && end == -1) ||
                   (0 <= begin && begin <= end && end <= length),
               "a group outside of the text");
        groups.push_back(begin);
        groups.push_back(end);
    }
    return groups;
}

// Text and pattern stand in blocks of exactly their size, so that a read outside is seen.
class CSubject
{
public:
    CSubject(const std::string& pattern, int flags, const std::string& text)
        : m_Pattern(new char[pattern.size() + 1]), m_Text(new char[text.size()]),
          m_Length(static_cast<int>(text.size()))
    {
        std::memcpy(m_Pattern.get(), pattern.c_str(), pattern.size() + 1);
        std::copy(text.begin(), text.end(), m_Text.get());
        m_Regexp = std::make_unique<Vorn::Regex::CRegexpT<char>>(m_Pattern.get(), flags);
        m_Pattern.reset(); // compiled, the pattern is not needed
        m_RightToLeft = (flags & CGenerator::RightToLeft) != 0;
    }

    // The first matches of a repeated search.
    Matches Search() const
    {
        Matches found;
        CContext context(m_Text.get(), m_Length);
        if (m_RightToLeft)
            context.currentPos = context.beginPos = m_Length;
        context.recursionBudget = NestedCalls;
        matching = &context;
        int last = context.currentPos;
        while (found.size() < MostMatches && gaveUp == 0) {
            const auto groups = Groups(m_Regexp->Match(&context), m_Length);
            if (groups.empty())
                break;
            found.push_back(groups);
            const bool moved =
                m_RightToLeft ? context.currentPos < last : context.currentPos > last;
            // A match that ends where the one before it ended, without being empty, is a fault too.
            Expect(moved || gaveUp != 0, "a repeated search stands still");
            last = context.currentPos;
        }
        matching = nullptr;
        return found;
    }

    std::vector<int> First() const
    {
        return Groups(m_Regexp->Match(m_Text.get(), m_Length), m_Length);
    }

private:
    std::unique_ptr<char[]> m_Pattern;
    std::unique_ptr<char[]> m_Text;
    int m_Length;
    bool m_RightToLeft = false;
    std::unique_ptr<Vorn::Regex::CRegexpT<char>> m_Regexp;
};

// Nothing when a match took too long to be compared.
Matches SearchTwice(const std::string& pattern, int flags, const std::string& text)
{
    const CTimeLimit limit;
    const CSubject subject(pattern, flags, text);
    const Matches once = subject.Search();
    if (gaveUp != 0)
        return {};
    const Matches again = subject.Search();
    if (gaveUp != 0)
        return {};
    if (once != again)
        Report("first:  " + Readable(once) + "\nagain:  " + Readable(again));
    return once;
}

// The same search by PCRE2. False when it refuses or gives up.
bool PeerSearch(const std::string& pattern, int flags, const std::string& text,
                const std::vector<std::pair<int, int>>& groups, Matches& found)
{
    uint32_t options = PCRE2_DOLLAR_ENDONLY | PCRE2_ALT_CIRCUMFLEX | PCRE2_NO_START_OPTIMIZE |
                       PCRE2_NO_AUTO_POSSESS;
    options |= (flags & CGenerator::DotMatchesNewline) != 0 ? PCRE2_DOTALL : 0;
    options |= (flags & CGenerator::MultiLine) != 0 ? PCRE2_MULTILINE : 0;
    options |= (flags & CGenerator::IgnoreCase) != 0 ? PCRE2_CASELESS : 0;
    options |= (flags & CGenerator::Extended) != 0 ? PCRE2_EXTENDED : 0;
    static pcre2_compile_context* const compiling = [] {
        auto* const context = pcre2_compile_context_create(nullptr);
        pcre2_set_newline(context, PCRE2_NEWLINE_LF);
        return context;
    }();
    static pcre2_match_context* const limits = [] {
        auto* const context = pcre2_match_context_create(nullptr);
        pcre2_set_match_limit(context, PeerMatchLimit);
        return context;
    }();

    int error = 0;
    PCRE2_SIZE place = 0;
    const std::unique_ptr<pcre2_code, decltype(&pcre2_code_free)> code(
        pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(), options, &error,
                      &place, compiling),
        pcre2_code_free);
    if (!code) {
        if (std::getenv("REGEX_FUZZ_STRICT") != nullptr) {
            PCRE2_UCHAR message[120];
            pcre2_get_error_message(error, message, sizeof message);
            Report("PCRE2 refuses " + Readable(pattern) + " at " + std::to_string(place) + ": " +
                   reinterpret_cast<const char*>(message));
        }
        return false;
    }
    const std::unique_ptr<pcre2_match_data, decltype(&pcre2_match_data_free)> data(
        pcre2_match_data_create_from_pattern(code.get(), nullptr), pcre2_match_data_free);

    for (std::size_t from = 0; from <= text.size() && found.size() < MostMatches;) {
        const int count = pcre2_match(code.get(), reinterpret_cast<PCRE2_SPTR>(text.data()),
                                      text.size(), from, 0, data.get(), limits);
        if (count == PCRE2_ERROR_NOMATCH)
            return true;
        if (count < 0)
            return false;
        const PCRE2_SIZE* const ends = pcre2_get_ovector_pointer(data.get());
        std::vector<int> match(2 * groups.size() + 2, -1);
        const auto take = [&match, ends, count](int own, int peer) {
            if (peer >= count || ends[2 * peer] == PCRE2_UNSET)
                return;
            match[2 * static_cast<std::size_t>(own)] = static_cast<int>(ends[2 * peer]);
            match[2 * static_cast<std::size_t>(own) + 1] = static_cast<int>(ends[2 * peer + 1]);
        };
        take(0, 0);
        for (const auto& group : groups)
            take(group.first, group.second);
        found.push_back(match);
        from = ends[1] + (ends[0] == ends[1] ? 1 : 0);
    }
    return true;
}

std::string MadeText(FuzzedDataProvider& data, std::size_t most)
{
    static constexpr char Alphabet[] = {'a', 'b', 'a', 'b', 'a',  'A',    'B', '1',
                                        '_', ' ', '.', 'b', '\n', '\xe9', '7', 'z'};
    std::string text;
    for (std::size_t length = data.ConsumeIntegralInRange<std::size_t>(0, most); length > 0;
         --length)
        text += Alphabet[data.ConsumeIntegralInRange<std::size_t>(0, sizeof Alphabet - 1)];
    return text;
}

void TryShared(int flags, FuzzedDataProvider& data)
{
    flags &= ~CGenerator::RightToLeft;
    const std::string text = MadeText(data, 20);
    CGenerator generator(data, flags, false);
    const CPattern pattern = generator.Pattern();
    const CInput input = {"shared", pattern.m_Own, flags, text};
    current = &input;

    Matches peer;
    if (!PeerSearch(pattern.m_Peer, flags, text, generator.SharedGroups(), peer))
        return;
    const Matches own = SearchTwice(pattern.m_Own, flags, text);
    if (gaveUp == 0 && own != peer)
        Report("engine: " + Readable(own) + "\nPCRE2:  " + Readable(peer) + " with " +
               Readable(pattern.m_Peer));
}

void TryWild(int flags, FuzzedDataProvider& data)
{
    const std::string text = MadeText(data, 9);
    CGenerator generator(data, flags, true);
    const CPattern pattern = generator.Pattern();
    const CInput input = {"wild", pattern.m_Own, flags, text};
    current = &input;

    const Matches own = SearchTwice(pattern.m_Own, flags, text);
    if (gaveUp != 0)
        return;
    const Matches slow = SearchTwice(pattern.m_Slow, flags, text);
    if (gaveUp == 0 && own != slow)
        Report("engine: " + Readable(own) + "\nslowly: " + Readable(slow) + " with " +
               Readable(pattern.m_Slow));
}

// Group calls in a pattern of raw bytes.
std::size_t Calls(const std::string& pattern)
{
    std::size_t calls = 0;
    for (std::size_t i = pattern.find("(?"); i != std::string::npos;
         i = pattern.find("(?", i + 1)) {
        const char next = i + 2 < pattern.size() ? pattern[i + 2] : '\0';
        calls += next == 'R' || std::isdigit(static_cast<unsigned char>(next)) != 0 ? 1 : 0;
    }
    return calls;
}

// Whether a pattern of raw bytes asks for more than a fuzz run has time for, by a rough count of
// its repetitions and calls. Cuts the text to what the pattern leaves time for.
bool AsksTooMuch(const std::string& pattern, std::string& text)
{
    std::size_t repetitions = 0;
    double product = 1;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const char character = pattern[i];
        if (std::strchr("*+?{", character) != nullptr)
            ++repetitions;
        if (character == '{' || character == ',')
            product *= std::max(1, std::atoi(pattern.c_str() + i + 1));
    }
    if (repetitions > 10 || Calls(pattern) > 2 || product > 5000)
        return true;
    text.resize(std::min<std::size_t>(text.size(), repetitions <= 2   ? 40
                                                   : repetitions <= 4 ? 12
                                                                      : 6));
    return false;
}

void TryRaw(int flags, const std::string& bytes)
{
    const std::size_t end = std::min(bytes.find('\0'), bytes.size());
    const std::string pattern = bytes.substr(0, end);
    std::string text = bytes.substr(std::min(end + 1, bytes.size()));
    const CInput input = {"raw", pattern, flags, text};
    current = &input;
    if (AsksTooMuch(pattern, text))
        return;

    const Matches found = SearchTwice(pattern, flags, text);
    if (gaveUp != 0)
        return;
    if (Calls(pattern) != 0)
        return;
    const std::vector<int> first = CSubject(pattern, flags, text).First();
    if (first != (found.empty() ? std::vector<int>() : found.front()))
        Report("by context: " + Readable(found) + "\nby text:    " + Readable(Matches{first}));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    static const bool ready = [] {
        std::signal(SIGVTALRM, GiveUp);
        return true;
    }();
    if (size < 2 || !ready)
        return 0;
    const int flags = bytes[1] & AllFlags;
    FuzzedDataProvider data(bytes + 2, size - 2);
    switch (bytes[0] % 3) {
    case 's' % 3:
        TryShared(flags, data);
        break;
    case 't' % 3:
        TryWild(flags, data);
        break;
    default:
        TryRaw(flags, data.ConsumeRemainingBytesAsString());
        break;
    }
    return 0;
}
