// The layouts that hosts are built with. Order and width of these fields are fixed; whoever changes
// one breaks every host that is not built again, and has to raise the SONAME.
//
// A row of fields is checked to stand as a compiler gives it, one behind the other at the alignment
// of each, nothing between them. On 32-bit x86 a pointer has four bytes and std::uint64_t stands at
// multiples of four, on x86-64 at multiples of eight; nothing else differs. What a class holds
// beyond its row is its own and stands behind it.
#include <cstddef>
#include <initializer_list>

#include <regex/Regexp.h>
#include <vorn/vorn.h>
#include <vornex/vornex.h>

// These classes have bases or virtual destructors; g++ and clang give the offsets all the same.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

namespace Vorn::Internals {

struct CField
{
    std::size_t m_Offset;
    std::size_t m_Size;
    std::size_t m_Alignment;
    std::size_t m_Width; // that it has to have; 0: a class, whose own row says that
};

constexpr std::size_t Pointer = sizeof(void*);

constexpr std::size_t RoundedUp(std::size_t size, std::size_t alignment)
{
    return (size + alignment - 1) / alignment * alignment;
}

template <class Member>
constexpr CField Field(std::size_t offset, std::size_t width)
{
    // NOLINTNEXTLINE(bugprone-sizeof-expression): of pointers too
    return {offset, sizeof(Member), alignof(Member), width};
}

// Whether the fields stand in that order from a place on, each where the one before it ends.
constexpr bool StandInRow(std::size_t place, std::initializer_list<CField> fields)
{
    for (const auto& field : fields) {
        if (field.m_Offset != RoundedUp(place, field.m_Alignment) ||
            (field.m_Width != 0 && field.m_Size != field.m_Width))
            return false;
        place = field.m_Offset + field.m_Size;
    }
    return true;
}

} // namespace Vorn::Internals

#define FIELD(Class, member, width)                                                                \
    Vorn::Internals::Field<decltype(Class::member)>(offsetof(Class, member), width)
#define OBJECT(Class, member) FIELD(Class, member, 0)

namespace Vorn::Internals {

namespace {

using Strings::CStringVar;
using Strings::TString;

// A pointer to the virtual functions; then text, length and capacity; then the inline room.
static_assert(StandInRow(Pointer,
                         {FIELD(CStringVar, m_Text, Pointer), FIELD(CStringVar, m_Length, 4),
                          FIELD(CStringVar, m_Capacity, 4)}));
static_assert(sizeof(CStringVar) == 2 * Pointer + 8);
static_assert(sizeof(Strings::CStringEx) == sizeof(CStringVar));
static_assert(sizeof(TString<16>) == RoundedUp(sizeof(CStringVar) + 17, Pointer));
static_assert(sizeof(TString<64>) == RoundedUp(sizeof(CStringVar) + 65, Pointer));
static_assert(sizeof(Strings::CSubStringRef) == 2 * Pointer);

using Exceptions::SOURCE_INFO;
static_assert(StandInRow(0, {FIELD(SOURCE_INFO, m_Passed, 4), FIELD(SOURCE_INFO, m_Source, Pointer),
                             FIELD(SOURCE_INFO, m_Line, 4)}) &&
              sizeof(SOURCE_INFO) == 3 * Pointer);

using ErrorRow = Language_Support::CLanguageSupport::ERROR_MSG_LIST;
static_assert(StandInRow(0, {FIELD(ErrorRow, m_Code, 4), FIELD(ErrorRow, m_Index, 4)}) &&
              sizeof(ErrorRow) == 8);

// The trace mask is the record's second word.
static_assert(StandInRow(0, {FIELD(Misc::CModuleInfo, m_Module, 4),
                             FIELD(Misc::CModuleInfo, m_TraceMask, 4)}));

} // namespace

} // namespace Vorn::Internals

namespace VornEx {

using Vorn::Internals::Pointer;
using Vorn::Internals::StandInRow;
using Vorn::Strings::TString;

// A friend of the classes below.
struct CLayoutCheck
{
    using Date = CSystemDate_Lx;
    static_assert(StandInRow(0, {FIELD(Date, m_Year, 4), FIELD(Date, m_Month, 4),
                                 FIELD(Date, m_Day, 4), FIELD(Date, m_DayOfWeek, 4),
                                 FIELD(Date, m_Week, 4), FIELD(Date, m_Hour, 4),
                                 FIELD(Date, m_Minute, 4), FIELD(Date, m_Second, 4),
                                 FIELD(Date, m_DaylightSaving, 4)}) &&
                  sizeof(Date) == 36);

    static_assert(StandInRow(0, {OBJECT(CSystemLog_Lx, m_Reserved),
                                 OBJECT(CSystemLog_Lx, m_Identity)}) &&
                  sizeof(CSystemLog_Lx) == 2 * sizeof(TString<64>));

    static_assert(StandInRow(0, {OBJECT(CStringTokenizer, m_Text),
                                 FIELD(CStringTokenizer, m_Delimiters, 32),
                                 FIELD(CStringTokenizer, m_Position, 4)}));

    static_assert(StandInRow(0, {OBJECT(COSInfo_Lx, m_Vendor), OBJECT(COSInfo_Lx, m_Product),
                                 OBJECT(COSInfo_Lx, m_Version), OBJECT(COSInfo_Lx, m_ServicePack),
                                 OBJECT(COSInfo_Lx, m_BuildNumber),
                                 OBJECT(COSInfo_Lx, m_ProcessorArchitecture),
                                 FIELD(COSInfo_Lx, m_KernelMajor, 4),
                                 FIELD(COSInfo_Lx, m_KernelMinor, 4)}) &&
                  sizeof(COSInfo_Lx) == 6 * sizeof(Vorn::Strings::CStringVar) + 8);

    static_assert(StandInRow(0, {FIELD(ipart, bootIndicator, 1), FIELD(ipart, startChs, 3),
                                 FIELD(ipart, type, 1), FIELD(ipart, endChs, 3),
                                 FIELD(ipart, startLba, 4), FIELD(ipart, sectorCount, 4)}) &&
                  sizeof(ipart) == 16);
    static_assert(StandInRow(0, {FIELD(gpart, typeGuid, 16), FIELD(gpart, uniqueGuid, 16),
                                 FIELD(gpart, firstLba, 8), FIELD(gpart, lastLba, 8),
                                 FIELD(gpart, attributes, 8), FIELD(gpart, name, 72)}) &&
                  sizeof(gpart) == 128);

    using Partition = CSystemPartition;
    static_assert(StandInRow(0,
                             {OBJECT(Partition, m_FileSystem), FIELD(Partition, m_StartSector, 8),
                              FIELD(Partition, m_SectorCount, 8), OBJECT(Partition, m_Text1),
                              OBJECT(Partition, m_Text2), FIELD(Partition, m_Number, 4),
                              OBJECT(Partition, m_Text3), OBJECT(Partition, m_MountPoint),
                              OBJECT(Partition, m_DeviceName)}));
    static_assert(alignof(Partition) == Pointer);

    static_assert(StandInRow(0, {OBJECT(CSystemPartitionTable, m_Device)}) &&
                  sizeof(CSystemPartitionTable) == sizeof(TString<64>));

    static_assert(StandInRow(0, {OBJECT(CSmtp::Recipient, m_Address),
                                 OBJECT(CSmtp::Recipient, m_Name)}) &&
                  sizeof(CSmtp::Recipient) == 2 * sizeof(Vorn::Strings::CStringEx));
    static_assert(StandInRow(
        Pointer, {FIELD(CSmtp, m_LastError, 4), OBJECT(CSmtp, m_From), OBJECT(CSmtp, m_FromName),
                  OBJECT(CSmtp, m_Subject), OBJECT(CSmtp, m_Body), OBJECT(CSmtp, m_XMailer),
                  OBJECT(CSmtp, m_ReplyTo), OBJECT(CSmtp, m_UserName), OBJECT(CSmtp, m_Password),
                  OBJECT(CSmtp, m_Server), FIELD(CSmtp, m_Port, 2), FIELD(CSmtp, m_Priority, 4),
                  OBJECT(CSmtp, m_To), OBJECT(CSmtp, m_Cc), OBJECT(CSmtp, m_Bcc)}));
    static_assert(sizeof(CSmtp) == offsetof(CSmtp, m_Bcc) + 3 * Pointer);
};

} // namespace VornEx

namespace Vorn::Regex {

using Vorn::Internals::Pointer;
using Vorn::Internals::StandInRow;

// A friend of the classes below. Those with virtual functions begin with the pointer to them.
struct CLayoutCheck
{
    // The capacity lies where the view ends in padding on x86-64.
    using View = CBufferRefT<int>;
    using Ints = CBufferT<int>;
    using Sorted = CSortedBufferT<int>;
    static_assert(StandInRow(Pointer, {FIELD(View, m_Elements, Pointer), FIELD(View, m_Count, 4)}));
    static_assert(StandInRow(Pointer, {FIELD(Ints, m_Elements, Pointer), FIELD(Ints, m_Count, 4),
                                       FIELD(Ints, m_Capacity, 4)}) &&
                  sizeof(Ints) == 2 * Pointer + 8 && sizeof(CBufferT<char>) == sizeof(Ints));
    static_assert(StandInRow(sizeof(Ints), {FIELD(Sorted, m_Comparison, Pointer),
                                            FIELD(Sorted, m_AppendUnsorted, 4)}));
    static_assert(sizeof(MatchResultT<0>) == sizeof(Ints));

    static_assert(StandInRow(0,
                             {OBJECT(CContext, stack), OBJECT(CContext, captureStack),
                              OBJECT(CContext, captureIndex), FIELD(CContext, currentPos, 4),
                              FIELD(CContext, beginPos, 4), FIELD(CContext, lastBeginPos, 4),
                              FIELD(CContext, closeCounter, 4), FIELD(CContext, recursionBudget, 4),
                              FIELD(CContext, text, Pointer), FIELD(CContext, textLength, 4)}));
    static_assert(StandInRow(0,
                             {FIELD(CContextShot, m_CurrentPos, 4), FIELD(CContextShot, m_Stack, 4),
                              FIELD(CContextShot, m_CaptureStack, 4)}) &&
                  sizeof(CContextShot) == 12);

    // The elements that match one thing at one place.
    static_assert(sizeof(CEmptyElxT<0>) == Pointer && sizeof(CGlobalElxT<0>) == Pointer);
    using String = CStringElxT<char>;
    static_assert(StandInRow(Pointer, {OBJECT(String, m_Text), FIELD(String, m_RightToLeft, 4),
                                       FIELD(String, m_IgnoreCase, 4)}));
    using Range = CRangeElxT<char>;
    static_assert(StandInRow(Pointer, {OBJECT(Range, m_Ranges), OBJECT(Range, m_Characters),
                                       OBJECT(Range, m_Elements), FIELD(Range, m_RightToLeft, 4),
                                       FIELD(Range, m_Positive, 4)}));
    using Posix = CPosixElxT<char>;
    static_assert(StandInRow(Pointer,
                             {FIELD(Posix, m_Function, Pointer), FIELD(Posix, m_RightToLeft, 4),
                              FIELD(Posix, m_Positive, 4)}));
    using Boundary = CBoundaryElxT<char>;
    static_assert(StandInRow(Pointer,
                             {FIELD(Boundary, m_Kind, 4), FIELD(Boundary, m_Positive, 4)}));
    using Backref = CBackrefElxT<char>;
    static_assert(StandInRow(Pointer,
                             {FIELD(Backref, m_Number, 4), FIELD(Backref, m_RightToLeft, 4),
                              FIELD(Backref, m_IgnoreCase, 4), OBJECT(Backref, m_Name)}));
    using Bracket = CBracketElxT<char>;
    static_assert(StandInRow(Pointer, {FIELD(Bracket, m_Number, 4), FIELD(Bracket, m_Closing, 4),
                                       OBJECT(Bracket, m_Name)}));
    using Delegate = CDelegateElxT<char>;
    static_assert(StandInRow(Pointer, {FIELD(Delegate, m_Target, Pointer),
                                       FIELD(Delegate, m_Number, 4), OBJECT(Delegate, m_Name)}));

    // The elements that combine others.
    using List = CListElxT<0>;
    static_assert(StandInRow(Pointer, {OBJECT(List, m_Items), FIELD(List, m_RightToLeft, 4)}));
    static_assert(StandInRow(Pointer, {OBJECT(CAlternativeElxT<0>, m_Branches)}));
    using Repeat = CRepeatElxT<0>;
    static_assert(StandInRow(Pointer,
                             {FIELD(Repeat, m_Element, Pointer), FIELD(Repeat, m_Fixed, 4)}));
    // Behind what a repetition of its own keeps there.
    using Greedy = CGreedyElxT<0>;
    using Reluctant = CReluctantElxT<0>;
    static_assert(offsetof(Greedy, m_Variable) > offsetof(Greedy, m_Fixed) &&
                  sizeof(Greedy::m_Variable) == 4);
    static_assert(offsetof(Reluctant, m_Variable) > offsetof(Reluctant, m_Fixed) &&
                  sizeof(Reluctant::m_Variable) == 4);
    static_assert(sizeof(CPossessiveElxT<0>) == sizeof(Greedy));
    static_assert(StandInRow(Pointer, {FIELD(CIndependentElxT<0>, m_Element, Pointer)}));
    using Assert = CAssertElxT<0>;
    static_assert(StandInRow(Pointer,
                             {FIELD(Assert, m_Element, Pointer), FIELD(Assert, m_Positive, 4)}));
    using Condition = CConditionElxT<char>;
    static_assert(StandInRow(Pointer,
                             {FIELD(Condition, m_Number, 4), OBJECT(Condition, m_Name),
                              FIELD(Condition, m_Condition, Pointer),
                              FIELD(Condition, m_Yes, Pointer), FIELD(Condition, m_No, Pointer)}));

    static_assert(StandInRow(0, {FIELD(CToken, m_Char, 1), FIELD(CToken, m_Special, 4),
                                 FIELD(CToken, m_Index, 4), FIELD(CToken, m_Length, 4)}) &&
                  sizeof(CToken) == 16);
    using Builder = CBuilderT<char>;
    static_assert(StandInRow(0, {FIELD(Builder, m_Top, Pointer),
                                 FIELD(Builder, m_Flags, 4),
                                 FIELD(Builder, m_MaxGroup, 4),
                                 FIELD(Builder, m_NamedCount, 4),
                                 FIELD(Builder, m_TableSize, 4),
                                 OBJECT(Builder, m_Objects),
                                 OBJECT(Builder, m_GroupTable),
                                 OBJECT(Builder, m_Calls),
                                 OBJECT(Builder, m_NamedGroups),
                                 OBJECT(Builder, m_NamedBackrefs),
                                 OBJECT(Builder, m_NamedConditions),
                                 OBJECT(Builder, m_Pattern),
                                 OBJECT(Builder, m_Previous),
                                 OBJECT(Builder, m_Current),
                                 OBJECT(Builder, m_Next),
                                 OBJECT(Builder, m_Ahead),
                                 FIELD(Builder, m_Position, 4),
                                 FIELD(Builder, m_BracketDepth, 4),
                                 FIELD(Builder, m_Quoting, 4),
                                 FIELD(Builder, m_QuoteCase, Pointer),
                                 FIELD(Builder, m_Stock, 17 * Pointer)}));
};

} // namespace Vorn::Regex
