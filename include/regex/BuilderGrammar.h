// The builder's grammar, a method a rule. Included where the builder is instantiated, not by its
// users.
#pragma once

#include <algorithm>
#include <iterator>
#include <new>
#include <tuple>

#include <regex/Builder.h>
#include <regex/FirstElement.h>

namespace Vorn::Regex {

template <class Char>
template <class Element, class... Arguments>
Element* CBuilderT<Char>::Make(Arguments... arguments)
{
    m_Objects.Push(nullptr); // what is made is owned at once
    auto* const element = new (m_Memory.Take(sizeof(Element))) Element(arguments...);
    m_Objects.Top() = element;
    return element;
}

template <class Char>
void CBuilderT<Char>::DeleteElements()
{
    for (auto* const element : m_Objects)
        if (element != nullptr) // else it could not be made
            element->~ElxInterface();
    m_Objects.Restore(0);
    m_Memory.Release();
}

template <class Char>
CBuilderT<Char>::~CBuilderT()
{
    DeleteElements();
}

template <class Char>
void CBuilderT<Char>::Build(const Char* pattern, int length, int flags)
{
    DeleteElements();
    m_Top = nullptr;
    m_GroupTable.Restore(0);
    m_Calls.Restore(0);
    m_NamedGroups.Restore(0);
    m_NamedBackrefs.Restore(0);
    m_NamedConditions.Restore(0);
    std::fill(std::begin(m_Stock), std::end(m_Stock), nullptr);
    m_Pattern = CBufferRefT<Char>(pattern, pattern != nullptr ? length : 0);
    m_Flags = flags;
    m_MaxGroup = 0;
    m_NamedCount = 0;
    m_TableSize = 0;
    m_Nesting = 0;
    m_LeavesStale = false;
    m_LooksAtCaptures = false;
    m_OpenRepetitions.Restore(0);
    if (pattern == nullptr)
        return;
    Rescan(0);
    m_GroupTable.Push(nullptr);
    ElxInterface* const top = BuildAlternative(flags);
    m_GroupTable[0] = top;
    BindGroups();
    if (!m_LooksAtCaptures)
        for (auto* const repetition : m_OpenRepetitions)
            repetition->ExploreOnce();
    m_Top = top;
    m_Pattern = CBufferRefT<Char>();
}

template <class Char>
ElxInterface* CBuilderT<Char>::GetStockElx(int index)
{
    if (index < 0 || index >= StockElements)
        index = Empty;
    if (m_Stock[index] == nullptr)
        m_Stock[index] = MakeStockElx(index);
    return m_Stock[index];
}

template <class Char>
ElxInterface* CBuilderT<Char>::MakeStockElx(int index)
{
    if (index == Empty)
        return Make<CEmptyElxT<0>>();
    const int backwards = index > Backwards ? 1 : 0;
    const int kind = index - (backwards != 0 ? Backwards : 0);
    const bool positive = kind == Word || kind == Space || kind == Digit;
    auto* const range = Make<CRangeElxT<Char>>(backwards, positive ? 1 : 0);
    switch (kind) {
    case Dot:
        range->AddCharacter('\n');
        break;
    case Word:
    case NotWord:
        range->AddRange('A', 'Z');
        range->AddRange('a', 'z');
        range->AddRange('0', '9');
        range->AddCharacter('_');
        break;
    case Space:
    case NotSpace:
        for (const char blank : {' ', '\t', '\r', '\n'})
            range->AddCharacter(blank);
        // Backwards there are two more, which is meant.
        if (backwards != 0) {
            range->AddCharacter('\f');
            range->AddCharacter('\v');
        }
        break;
    case Digit:
    case NotDigit:
        range->AddRange('0', '9');
        break;
    default:
        break;
    }
    range->Seal();
    return range;
}

// The flags are a copy: a change such as "(?i)" holds for what follows in this alternation.
template <class Char>
ElxInterface* CBuilderT<Char>::BuildAlternative(int flags)
{
    if (AtEnd())
        return GetStockElx(Empty);
    ElxInterface* const first = BuildList(flags);
    if (!Is(m_Current, '|'))
        return first;
    auto* const alternative = Make<CAlternativeElxT<0>>();
    const auto add = [alternative](ElxInterface* branch) {
        alternative->AddBranch(branch, Internals::FirstCharacterOf<Char>(branch));
    };
    add(first);
    while (Is(m_Current, '|')) {
        MoveNext();
        add(BuildList(flags));
    }
    return alternative;
}

template <class Char>
ElxInterface* CBuilderT<Char>::BuildList(int& flags)
{
    const auto ends = [this] { return AtEnd() || Is(m_Current, '|') || Is(m_Current, ')'); };
    if (ends())
        return GetStockElx(Empty);
    ElxInterface* const first = BuildRepeat(flags);
    if (ends())
        return first;
    auto* const list = Make<CListElxT<0>>(Backward(flags));
    list->m_Items.Push(first);
    while (!ends())
        list->m_Items.Push(BuildRepeat(flags));
    list->Seal();
    return list;
}

template <class Char>
ElxInterface* CBuilderT<Char>::BuildRepeat(int& flags)
{
    ElxInterface* const element = BuildSimple(flags);
    int least = 0;
    int most = 0;
    if (!ReadQuantifier(least, most))
        return element;
    Char manner = 0;
    if (Is(m_Current, '?') || Is(m_Current, '+')) {
        manner = m_Current.m_Char;
        MoveNext();
    }

    if (most == 0)
        return GetStockElx(Empty);
    if (least == most)
        return Make<CRepeatElxT<0>>(element, least);
    if (manner == '?')
        return Make<CReluctantElxT<0>>(element, least, most - least);
    auto* const greedy = manner == '+' ? Make<CPossessiveElxT<0>>(element, least, most - least)
                                       : Make<CGreedyElxT<0>>(element, least, most - least);
    if (greedy->IsGeneral()) {
        m_LeavesStale = true;
        if (most == INT_MAX)
            m_OpenRepetitions.Push(greedy);
    }
    return greedy;
}

// Reads "*", "+", "?" or braces, if one stands here.
template <class Char>
bool CBuilderT<Char>::ReadQuantifier(int& least, int& most)
{
    if (m_Current.m_Special == 0)
        return false;
    switch (m_Current.m_Char) {
    case '*':
        most = INT_MAX;
        break;
    case '+':
        least = 1;
        most = INT_MAX;
        break;
    case '?':
        most = 1;
        break;
    case '{':
        ReadBraces(least, most);
        break;
    default:
        return false;
    }
    MoveNext();
    return true;
}

// Leaves the closing brace, or the end, current. What is not a number reads as 0.
template <class Char>
void CBuilderT<Char>::ReadBraces(int& least, int& most)
{
    const Char* at = m_Pattern.GetBuffer() + m_Current.m_Index + 1;
    while (!AtEnd() && !Is(m_Current, '}'))
        MoveNext();
    const Char* const end = m_Pattern.GetBuffer() + m_Current.m_Index;
    unsigned int number = 0;
    if (ReadDec(at, number) == 0)
        return;
    least = most = static_cast<int>(number);
    if (at >= end || *at != ',')
        return;
    ++at;
    most = ReadDec(at, number) != 0 ? std::max(static_cast<int>(number), least) : INT_MAX;
}

template <class Char>
ElxInterface* CBuilderT<Char>::BuildSimple(int& flags)
{
    const auto isQuantified = [this] {
        return Is(m_Next, '{') || Is(m_Next, '?') || Is(m_Next, '*') || Is(m_Next, '+');
    };
    m_Literal.Restore(0);
    for (bool isLast = false; !isLast; MoveNext()) {
        if (m_Current.m_Special != 0) {
            if (m_Literal.GetSize() > 0)
                break;
            if (ElxInterface* const element = BuildSpecial(flags))
                return element;
        }
        // A quantifier binds to the one character before it.
        isLast = isQuantified();
        if (isLast && m_Literal.GetSize() > 0)
            break;
        m_Literal.Push(m_Current.m_Char);
    }
    return Make<CStringElxT<Char>>(m_Literal.GetBuffer(), m_Literal.GetSize(), Backward(flags),
                                   CaseOff(flags));
}

// Null, with nothing consumed: the token is taken as its character.
template <class Char>
ElxInterface* CBuilderT<Char>::BuildSpecial(int& flags)
{
    if (AtEnd())
        return GetStockElx(Empty);
    switch (m_Current.m_Char) {
    case '|':
    case ')':
        return GetStockElx(Empty);
    case '(':
        return m_Nesting < MostNesting ? BuildRecursive(flags) : nullptr;
    case '.':
    case '[':
    case 'w':
    case 'W':
    case 's':
    case 'S':
    case 'd':
    case 'D':
        return BuildCharset(flags);
    case '$':
    case '^':
    case 'A':
    case 'Z':
    case 'z':
    case 'b':
    case 'B':
    case 'G':
        return BuildBoundary(flags);
    case '\\':
    case 'k':
    case 'g':
        return BuildBackref(flags);
    default:
        return nullptr;
    }
}

template <class Char>
ElxInterface* CBuilderT<Char>::BuildBoundary(int& flags)
{
    const bool isMultiLine = (flags & MultiLine) != 0;
    const Char character = m_Current.m_Char;
    MoveNext();
    int kind = WordBoundary;
    switch (character) {
    case '^':
        kind = isMultiLine ? LineBegin : TextBegin;
        break;
    case '$':
        kind = isMultiLine ? LineEnd : TextEnd;
        break;
    case 'A':
        kind = TextBegin;
        break;
    case 'Z':
        kind = TextEndOrLastLine;
        break;
    case 'z':
        kind = TextEnd;
        break;
    case 'G':
        if ((flags & Global) == 0)
            return GetStockElx(Empty);
        return Make<CGlobalElxT<0>>();
    default:
        break;
    }
    return Make<CBoundaryElxT<Char>>(kind, character != 'B' ? 1 : 0);
}

template <class Char>
ElxInterface* CBuilderT<Char>::BuildCharset(int& flags)
{
    int stock = Empty;
    switch (m_Current.m_Char) {
    case '[':
        return BuildBracketClass(flags);
    case '.':
        stock = (flags & DotMatchesNewline) != 0 ? AnyCharacter : Dot;
        break;
    case 'w':
        stock = Word;
        break;
    case 'W':
        stock = NotWord;
        break;
    case 's':
        stock = Space;
        break;
    case 'S':
        stock = NotSpace;
        break;
    case 'd':
        stock = Digit;
        break;
    default:
        stock = NotDigit;
        break;
    }
    MoveNext();
    return GetStockElx(stock + (Backward(flags) != 0 ? Backwards : 0));
}

template <class Char>
ElxInterface* CBuilderT<Char>::BuildBracketClass(int& flags)
{
    MoveNext();
    if (Is(m_Current, ':'))
        if (ElxInterface* const posix = BuildPosix(flags))
            return posix;

    int positive = 1;
    if (Is(m_Current, '^')) {
        positive = 0;
        MoveNext();
    }
    auto* const range = Make<CRangeElxT<Char>>(Backward(flags), positive);
    while (!AtEnd() && !Is(m_Current, ']')) {
        const bool isClass = m_Current.m_Special != 0 && m_Current.m_Char != 0 &&
                             std::strchr(m_Nesting < MostNesting ? "dDsSwW[" : "dDsSwW",
                                         m_Current.m_Char) != nullptr;
        if (isClass) {
            ++m_Nesting;
            range->AddElement(BuildCharset(flags));
            --m_Nesting;
            continue;
        }
        const Char character = m_Current.m_Char;
        MoveNext();
        if (Is(m_Current, '-') && m_Next.m_Special == 0) {
            MoveNext();
            range->AddRange(character, m_Current.m_Char);
            MoveNext();
        } else {
            range->AddCharacter(character);
        }
    }
    MoveNext();
    if ((flags & IgnoreCase) != 0)
        AddOtherCase(*range);
    range->Seal();
    return range;
}

// "[:name:]", where the name is known; otherwise null, and the scan stands where it stood.
template <class Char>
ElxInterface* CBuilderT<Char>::BuildPosix(int flags)
{
    // Longer texts are no name: without the limit, many openings and no end would be many walks.
    constexpr int MostTokens = 16;
    const auto scan = [this] {
        return std::tie(m_Previous, m_Current, m_Next, m_Ahead, m_Position, m_BracketDepth,
                        m_Quoting, m_QuoteCase);
    };
    const std::tuple<CToken, CToken, CToken, CToken, int, int, int, int (*)(int)> before = scan();
    const int begin = m_Current.m_Index;
    for (int token = 0; token < MostTokens && !AtEnd() && !Is(m_Current, ']'); ++token)
        MoveNext();
    const Char* const text = m_Pattern.GetBuffer() + begin;
    const int length = m_Current.m_Index - begin;
    if ((AtEnd() || Is(m_Current, ']')) && CPosixElxT<Char>::IsKnown(text, length)) {
        MoveNext();
        return Make<CPosixElxT<Char>>(text, length, Backward(flags));
    }
    scan() = before;
    return nullptr;
}

// What the class matches in one case of the letters A to Z and a to z, it shall match in the other.
template <class Char>
void CBuilderT<Char>::AddOtherCase(CRangeElxT<Char>& range)
{
    const auto addPart = [&range](int low, int high, Char first, Char last, int distance) {
        const int from = std::max<int>(low, first) + distance;
        const int to = std::min<int>(high, last) + distance;
        if (from <= to && (from < low || to > high))
            range.AddRange(static_cast<Char>(from), static_cast<Char>(to));
    };
    const int ranges = range.m_Ranges.GetSize();
    for (int i = 0; i < ranges; i += 2) {
        const auto low = static_cast<signed char>(range.m_Ranges[i]);
        const auto high = static_cast<signed char>(range.m_Ranges[i + 1]);
        addPart(low, high, 'A', 'Z', 'a' - 'A');
        addPart(low, high, 'a', 'z', 'A' - 'a');
    }

    bool listed[UCHAR_MAX + 1];
    for (int byte = 0; byte <= UCHAR_MAX; ++byte)
        listed[byte] = range.IsListed(static_cast<Char>(byte));
    const int characters = range.m_Characters.GetSize();
    for (int i = 0; i < characters; ++i) {
        const int character = static_cast<unsigned char>(range.m_Characters[i]);
        const int other =
            std::isupper(character) != 0 ? std::tolower(character) : std::toupper(character);
        if (listed[other])
            continue;
        listed[other] = true;
        range.AddCharacter(static_cast<Char>(other));
    }
}

// Up to three digits that follow each other, read from the current token on; how many there were.
template <class Char>
int CBuilderT<Char>::ReadDigits(int& number)
{
    constexpr int MostDigits = 3;
    int digits = 0;
    int place = m_Current.m_Index;
    number = 0;
    while (digits < MostDigits && m_Current.m_Index == place && IsDigit(m_Current.m_Char) &&
           IsPlain(m_Current, m_Current.m_Char)) {
        number = number * 10 + (m_Current.m_Char - '0');
        ++digits;
        ++place;
        MoveNext();
    }
    return digits;
}

// The text from an index of the pattern to the terminator, or to the end, is a name; what stands
// behind becomes current.
template <class Char>
CBufferRefT<Char> CBuilderT<Char>::ReadName(int begin, Char terminator)
{
    const Char* const text = m_Pattern.GetBuffer() + begin;
    const int left = m_Pattern.GetSize() - begin;
    const void* const found = std::memchr(text, terminator, static_cast<std::size_t>(left));
    const int length =
        found != nullptr ? static_cast<int>(static_cast<const Char*>(found) - text) : left;
    Rescan(begin + length + (found != nullptr ? 1 : 0));
    return CBufferRefT<Char>(text, length);
}

// A name of up to three digits, blanks around them, is a number; -1: it is not.
template <class Char>
int CBuilderT<Char>::NumberOf(const CBufferRefT<Char>& name) const
{
    const Char* at = name.GetBuffer();
    const Char* const end = at + name.GetSize();
    unsigned int number = 0;
    return ReadDec(at, number) != 0 && at == end ? static_cast<int>(number) : -1;
}

template <class Char>
ElxInterface* CBuilderT<Char>::BuildBackref(int& flags)
{
    const auto make = [this, flags](int number) {
        m_LooksAtCaptures = true;
        return Make<CBackrefElxT<Char>>(number, Backward(flags), CaseOff(flags));
    };
    if (IsDigit(m_Next.m_Char) && IsPlain(m_Next, m_Next.m_Char)) {
        MoveNext();
        int number = 0;
        ReadDigits(number);
        return make(number);
    }
    const bool isAngled = IsPlain(m_Next, '<');
    if (!isAngled && !IsPlain(m_Next, '\''))
        return nullptr;
    const auto name = ReadName(m_Next.m_Index + 1, isAngled ? '>' : '\'');
    auto* const backref = make(NumberOf(name));
    if (backref->m_Number < 0) {
        backref->m_Name = CBufferT<Char>(name.GetBuffer(), name.GetSize());
        m_NamedBackrefs.Push(backref);
    }
    return backref;
}

template <class Char>
void CBuilderT<Char>::TakeClosing()
{
    if (Is(m_Current, ')'))
        MoveNext();
}

template <class Char>
ElxInterface* CBuilderT<Char>::BuildRecursive(int& flags)
{
    ++m_Nesting;
    MoveNext();
    ElxInterface* element = nullptr;
    if (Is(m_Current, '?')) {
        MoveNext();
        element = BuildExtension(flags);
    } else {
        const int number = ++m_MaxGroup;
        m_GroupTable.Push(nullptr);
        element = BuildCapture(flags, number, nullptr);
        m_GroupTable[number] = element;
    }
    TakeClosing();
    --m_Nesting;
    return element;
}

// An opening end, the content and a closing end; backwards the other way round, because the list
// is then walked from its last item. name: null for a group that has none.
template <class Char>
ElxInterface* CBuilderT<Char>::BuildCapture(int flags, int number, const CBufferRefT<Char>* name)
{
    auto* const list = Make<CListElxT<0>>(Backward(flags));
    if (name != nullptr)
        m_NamedGroups.Push(list);
    const auto makeEnd = [&](int closing) {
        auto* const bracket = Make<CBracketElxT<Char>>(number, closing);
        if (name != nullptr)
            bracket->m_Name = CBufferT<Char>(name->GetBuffer(), name->GetSize());
        return bracket;
    };
    list->m_Items.Push(makeEnd(Backward(flags)));
    list->m_Items.Push(BuildAlternative(flags));
    list->m_Items.Push(makeEnd(1 - Backward(flags)));
    list->Seal();
    return list;
}

// What stands behind "(?", up to the closing parenthesis.
template <class Char>
ElxInterface* CBuilderT<Char>::BuildExtension(int& flags)
{
    const bool isPlain =
        m_Current.m_Length == 1 && !AtEnd() && IsPlain(m_Current, m_Current.m_Char);
    switch (isPlain ? m_Current.m_Char : 0) {
    case '=':
    case '!':
        return BuildAssertion(flags & ~RightToLeft);
    case '>':
        MoveNext();
        m_LeavesStale = true;
        return Make<CIndependentElxT<0>>(BuildAlternative(flags));
    case '<':
        if (IsPlain(m_Next, '=') || IsPlain(m_Next, '!')) {
            MoveNext();
            return BuildAssertion(flags | RightToLeft);
        }
        return BuildNamed(flags, m_Current.m_Index + 1, '>');
    case '\'':
        return BuildNamed(flags, m_Current.m_Index + 1, '\'');
    case 'P':
        MoveNext();
        return BuildNamed(flags, m_Current.m_Index + (IsPlain(m_Current, '<') ? 1 : 0), '>');
    case 'R':
    case '0':
    case '1':
    case '2':
    case '3':
    case '4':
    case '5':
    case '6':
    case '7':
    case '8':
    case '9':
        return BuildCall();
    case '(':
        return m_Nesting < MostNesting ? BuildCondition(flags) : BuildFlags(flags);
    default:
        return BuildFlags(flags);
    }
}

template <class Char>
ElxInterface* CBuilderT<Char>::BuildAssertion(int flags)
{
    const int positive = m_Current.m_Char == '=' ? 1 : 0;
    MoveNext();
    m_LeavesStale = true;
    return Make<CAssertElxT<0>>(BuildAlternative(flags), positive);
}

// A named group; the name begins at an index of the pattern. Numbered when all is read.
template <class Char>
ElxInterface* CBuilderT<Char>::BuildNamed(int flags, int begin, Char terminator)
{
    const auto name = ReadName(begin, terminator);
    ++m_NamedCount;
    return BuildCapture(flags, NumberOf(name), &name);
}

// "(?N)", "(?R)", "(?R<name>)", "(?R'name')"; what else stands before the parenthesis is ignored.
template <class Char>
ElxInterface* CBuilderT<Char>::BuildCall()
{
    auto* const call = Make<CDelegateElxT<Char>>(0);
    m_LooksAtCaptures = true; // through groups that are entered while they are open
    m_Calls.Push(call);
    if (!IsPlain(m_Current, 'R')) {
        ReadDigits(call->m_Number);
    } else {
        const bool isAngled = IsPlain(m_Next, '<');
        if (isAngled || IsPlain(m_Next, '\'')) {
            const auto name = ReadName(m_Next.m_Index + 1, isAngled ? '>' : '\'');
            call->m_Number = -1;
            call->m_Name = CBufferT<Char>(name.GetBuffer(), name.GetSize());
        }
    }
    while (!AtEnd() && !Is(m_Current, ')'))
        MoveNext();
    return call;
}

template <class Char>
ElxInterface* CBuilderT<Char>::BuildCondition(int& flags)
{
    auto* const condition = Make<CConditionElxT<Char>>(-1);
    m_LeavesStale = true;
    m_LooksAtCaptures = true;
    int inner = flags;
    if (Is(m_Next, '?')) {
        condition->m_Condition = BuildRecursive(inner);
    } else {
        const int begin = m_Current.m_Index + 1;
        const Char* const text = m_Pattern.GetBuffer() + begin;
        const auto left = static_cast<std::size_t>(m_Pattern.GetSize() - begin);
        const void* const end = std::memchr(text, ')', left);
        if (end != nullptr)
            condition->m_Number = NumberOf(
                CBufferRefT<Char>(text, static_cast<int>(static_cast<const Char*>(end) - text)));
        if (condition->m_Number >= 0) {
            ReadName(begin, ')');
        } else {
            MoveNext();
            ++m_Nesting;
            condition->m_Condition =
                Make<CAssertElxT<0>>(BuildAlternative(inner & ~RightToLeft), 1);
            --m_Nesting;
            condition->m_Name = CBufferT<Char>(text, m_Current.m_Index - begin);
            m_NamedConditions.Push(condition);
            TakeClosing();
        }
    }
    condition->m_Yes = BuildList(inner);
    if (Is(m_Current, '|')) {
        MoveNext();
        condition->m_No = BuildAlternative(inner);
    }
    return condition;
}

// "(?flags)" changes the flags of what follows, "(?flags:...)" those of its content.
template <class Char>
ElxInterface* CBuilderT<Char>::BuildFlags(int& flags)
{
    int changed = flags;
    bool on = true;
    for (; m_Current.m_Special == 0 && !IsPlain(m_Current, ':'); MoveNext()) {
        int flag = NoFlags;
        switch (std::tolower(static_cast<unsigned char>(m_Current.m_Char))) {
        case '-':
            on = false;
            break;
        case 'i':
            flag = IgnoreCase;
            break;
        case 'm':
            flag = MultiLine;
            break;
        case 's':
            flag = DotMatchesNewline;
            break;
        case 'g':
            flag = Global;
            break;
        default:
            break;
        }
        changed = on ? changed | flag : changed & ~flag;
    }
    if (AtEnd() || Is(m_Current, ')')) {
        flags = changed;
        return GetStockElx(Empty);
    }
    if (m_Current.m_Special == 0)
        MoveNext();
    return BuildAlternative(changed);
}

} // namespace Vorn::Regex
