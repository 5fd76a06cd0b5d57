// From the text of a pattern to its tree of elements.
//
// No pattern is refused: what cannot be read as a construct is literal text or the empty element,
// and an unknown group matches never where it is referred to and the empty string where it is
// called. Where the grammar stands: docs/regex.md.
#pragma once

#include <regex/AssertionElements.h>
#include <regex/ClassElements.h>
#include <regex/ElementMemory.h>
#include <regex/GroupElements.h>
#include <regex/PositionElements.h>
#include <regex/RepeatElements.h>
#include <regex/SequenceElements.h>
#include <regex/StringElement.h>

namespace Vorn::Regex {

extern template class CBufferRefT<CDelegateElxT<char>*>;
extern template class CBufferT<CDelegateElxT<char>*>;
extern template class CBufferRefT<CListElxT<0>*>;
extern template class CBufferT<CListElxT<0>*>;
extern template class CBufferRefT<CGreedyElxT<0>*>;
extern template class CBufferT<CGreedyElxT<0>*>;
extern template class CBufferRefT<CBackrefElxT<char>*>;
extern template class CBufferT<CBackrefElxT<char>*>;

// A piece of a pattern.
struct CToken
{
    char m_Char = 0;
    int m_Special = 0; // 1: means something, 0: stands for itself
    int m_Index = 0;   // where in the pattern it begins
    int m_Length = 0;  // in characters of the pattern
};

// Groups, conditions, and classes in classes, nest at most this deep; an opening parenthesis or
// bracket beyond is literal text. Together with the budget of group calls this bounds the native
// stack: the deepest match that a pattern can ask for, 250 levels that call themselves 100 deep,
// takes below 4 MiB on x86-64 (3.8 MiB measured, in the release build with g++); more than that on
// i386.
constexpr int MostNesting = 250;

// Compiles one pattern and owns the tree. Compiling is for one thread; the compiled tree may be
// read by several.
template <class Char>
class VORN_REGEX_EXPORT CBuilderT
{
public:
    CBuilderT() = default;
    CBuilderT(const CBuilderT&) = delete;
    CBuilderT& operator=(const CBuilderT&) = delete;
    ~CBuilderT();

    // Compiles a pattern; whatever was compiled before is deleted first. The text is needed while
    // this runs only. A null pattern leaves no top element. flags: CompileFlags.
    void Build(const Char* pattern, int length, int flags);

    // Null when nothing was compiled.
    const ElxInterface* Top() const { return m_Top; }
    int Flags() const { return m_Flags; }
    int MaxGroup() const { return m_MaxGroup; }
    // Whether a failed attempt can leave captureIndex with more than -1.
    bool LeavesStaleCaptures() const { return m_LeavesStale && m_MaxGroup > 0; }

    // Up to mostDigits hexadecimal digits; used: how many there were.
    static int Hex2Int(const Char* s, int mostDigits, int& used);

private:
    friend struct CLayoutCheck; // Src/Layout.cpp
    enum StockElement
    {
        Empty = 0,
        AnyCharacter, // with line breaks
        Dot,
        Word,
        NotWord,
        Space,
        NotSpace,
        Digit,
        NotDigit,
        Backwards = 8, // added for the right-to-left ones
        StockElements = 17
    };

    int GetNext2();
    int MoveNext();
    int ReadQuoted(Char character);
    int ReadEscape();
    int ReadCode(int mostDigits);
    int Emit(Char character, int special, int length);
    int Skip(int length);
    void Rescan(int index);
    // A decimal number in the pattern, blanks around it. Three digits are read and no more: larger
    // numbers cannot be written. 0: no digit stands there.
    int ReadDec(const Char*& p, unsigned int& value) const;

    ElxInterface* GetStockElx(int index);
    ElxInterface* MakeStockElx(int index);
    ElxInterface* BuildAlternative(int flags);
    ElxInterface* BuildList(int& flags);
    ElxInterface* BuildRepeat(int& flags);
    ElxInterface* BuildSimple(int& flags);
    ElxInterface* BuildSpecial(int& flags);
    ElxInterface* BuildRecursive(int& flags);
    ElxInterface* BuildCharset(int& flags);
    ElxInterface* BuildBracketClass(int& flags);
    ElxInterface* BuildPosix(int flags);
    ElxInterface* BuildBoundary(int& flags);
    ElxInterface* BuildBackref(int& flags);
    ElxInterface* BuildExtension(int& flags);
    ElxInterface* BuildCapture(int flags, int number, const CBufferRefT<Char>* name);
    ElxInterface* BuildNamed(int flags, int begin, Char terminator);
    ElxInterface* BuildAssertion(int flags);
    ElxInterface* BuildCall();
    ElxInterface* BuildCondition(int& flags);
    ElxInterface* BuildFlags(int& flags);
    bool ReadQuantifier(int& least, int& most);
    void ReadBraces(int& least, int& most);
    void AddOtherCase(CRangeElxT<Char>& range);
    int ReadDigits(int& number);
    CBufferRefT<Char> ReadName(int begin, Char terminator);
    void TakeClosing();

    int NumberOf(const CBufferRefT<Char>& name) const;

    void BindGroups();
    void NumberNamedGroups();
    int FindName(const CBufferT<Char>& name) const;
    static bool ComesBefore(const CBufferT<Char>& left, const CBufferT<Char>& right);
    static CBracketElxT<Char>* Bracket(const CListElxT<0>* group, int which);

    bool AtEnd() const { return m_Current.m_Special != 0 && m_Current.m_Length == 0; }
    static bool Is(const CToken& token, Char character)
    {
        return token.m_Special != 0 && token.m_Char == character;
    }
    // A character of the syntax behind "(?", as it stands in the pattern.
    bool IsPlain(const CToken& token, Char character) const
    {
        return token.m_Char == character && token.m_Length == 1 &&
               m_Pattern[token.m_Index] == character;
    }
    static int Backward(int flags) { return (flags & RightToLeft) != 0 ? 1 : 0; }
    static int CaseOff(int flags) { return (flags & IgnoreCase) != 0 ? 1 : 0; }
    static bool IsDigit(Char character) { return character >= '0' && character <= '9'; }

    template <class Element, class... Arguments>
    Element* Make(Arguments... arguments);
    void DeleteElements();

    ElxInterface* m_Top = nullptr;
    int m_Flags = NoFlags;
    int m_MaxGroup = 0;
    int m_NamedCount = 0;
    int m_TableSize = 0;
    CBufferT<ElxInterface*> m_Objects;    // every element; null for one that could not be made
    CBufferT<ElxInterface*> m_GroupTable; // by group number, what a call enters
    CBufferT<CDelegateElxT<Char>*> m_Calls;
    CBufferT<CListElxT<0>*> m_NamedGroups; // in order of appearance; once bound, of their names
    CBufferT<CBackrefElxT<Char>*> m_NamedBackrefs;
    CBufferT<CConditionElxT<Char>*> m_NamedConditions;
    CBufferRefT<Char> m_Pattern;
    CToken m_Previous;
    CToken m_Current;
    CToken m_Next;
    CToken m_Ahead; // the one that is being read
    int m_Position = 0;
    int m_BracketDepth = 0;
    int m_Quoting = 0;
    int (*m_QuoteCase)(int) = nullptr;
    ElxInterface* m_Stock[StockElements] = {};
    // The row of fields that Src/Layout.cpp fixes ends here.
    CElementMemory m_Memory;  // where the elements are
    CBufferT<Char> m_Literal; // the text of the string element that is being made
    int m_Nesting = 0;        // of groups and classes, while compiling
    bool m_LeavesStale = false;
    bool m_LooksAtCaptures = false;
    CBufferT<CGreedyElxT<0>*> m_OpenRepetitions; // general ones without a maximum
};

extern template class CBuilderT<char>;

} // namespace Vorn::Regex
