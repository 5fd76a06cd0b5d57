// The layouts that hosts are built with. Order and width of these fields are fixed; whoever changes
// one breaks every host that is not built again, and has to raise the SONAME.
//
// On 32-bit x86 a pointer has four bytes and std::uint64_t stands at multiples of four, on x86-64
// at multiples of eight; nothing else differs.
#include <cstddef>

#include <regex/Context.h>
#include <regex/MatchResult.h>
#include <vorn/vorn.h>
#include <vornex/vornex.h>

// These classes have bases or virtual destructors; g++ and clang give the offsets all the same.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

namespace VornEx {

namespace {

using Vorn::Strings::CStringVar;
using Vorn::Strings::TString;

constexpr std::size_t Pointer = sizeof(void*);

constexpr std::size_t RoundedUp(std::size_t size, std::size_t alignment)
{
    return (size + alignment - 1) / alignment * alignment;
}

// Pointer to the virtual functions, text, length and capacity; then the inline room.
static_assert(offsetof(CStringVar, m_Text) == Pointer);
static_assert(offsetof(CStringVar, m_Length) == 2 * Pointer);
static_assert(offsetof(CStringVar, m_Capacity) == 2 * Pointer + 4);
static_assert(sizeof(CStringVar) == 2 * Pointer + 8);
static_assert(sizeof(TString<16>) == RoundedUp(sizeof(CStringVar) + 17, Pointer));
static_assert(sizeof(TString<64>) == RoundedUp(sizeof(CStringVar) + 65, Pointer));
static_assert(sizeof(Vorn::Strings::CSubStringRef) == 2 * Pointer);

using Vorn::Exceptions::SOURCE_INFO;
static_assert(offsetof(SOURCE_INFO, m_Passed) == 0 && sizeof(SOURCE_INFO::m_Passed) == 4);
static_assert(offsetof(SOURCE_INFO, m_Source) == Pointer);
static_assert(offsetof(SOURCE_INFO, m_Line) == 2 * Pointer && sizeof(SOURCE_INFO) == 3 * Pointer);

using ErrorRow = Vorn::Language_Support::CLanguageSupport::ERROR_MSG_LIST;
static_assert(offsetof(ErrorRow, m_Code) == 0 && offsetof(ErrorRow, m_Index) == 4 &&
              sizeof(ErrorRow) == 8);

using Date = CSystemDate_Lx;
static_assert(offsetof(Date, m_Year) == 0 && offsetof(Date, m_Month) == 4 &&
              offsetof(Date, m_Day) == 8 && offsetof(Date, m_DayOfWeek) == 12 &&
              offsetof(Date, m_Week) == 16 && offsetof(Date, m_Hour) == 20 &&
              offsetof(Date, m_Minute) == 24 && offsetof(Date, m_Second) == 28 &&
              offsetof(Date, m_DaylightSaving) == 32 && sizeof(Date) == 36);

static_assert(sizeof(CSystemLog_Lx) == 2 * sizeof(TString<64>));
static_assert(sizeof(CStringTokenizer) == RoundedUp(sizeof(TString<16>) + 8 * 4 + 4, Pointer));
static_assert(sizeof(COSInfo_Lx) == 6 * sizeof(CStringVar) + 2 * 4);

static_assert(offsetof(ipart, bootIndicator) == 0 && offsetof(ipart, startChs) == 1 &&
              offsetof(ipart, endChs) == 5 && offsetof(ipart, sectorCount) == 12);
static_assert(offsetof(gpart, typeGuid) == 0 && offsetof(gpart, uniqueGuid) == 16 &&
              offsetof(gpart, lastLba) == 40);

using Partition = CSystemPartition;
constexpr std::size_t Text = sizeof(TString<16>);
constexpr std::size_t Start = RoundedUp(Text, alignof(Partition));
constexpr std::size_t Number = Start + 2 * 8 + 2 * Text;
static_assert(offsetof(Partition, m_FileSystem) == 0 &&
              offsetof(Partition, m_StartSector) == Start &&
              offsetof(Partition, m_SectorCount) == Start + 8 &&
              offsetof(Partition, m_Text1) == Start + 16 &&
              offsetof(Partition, m_Text2) == Start + 16 + Text &&
              offsetof(Partition, m_Number) == Number && sizeof(Partition::m_Number) == 4 &&
              offsetof(Partition, m_Text3) == Number + Pointer &&
              offsetof(Partition, m_MountPoint) == Number + Pointer + Text &&
              offsetof(Partition, m_DeviceName) == Number + Pointer + 2 * Text);
static_assert(offsetof(CSystemPartitionTable, m_Device) == 0 &&
              sizeof(CSystemPartitionTable) == sizeof(TString<64>));

// Virtual functions and error code; texts; port and priority; three lists.
static_assert(sizeof(CSmtp::Recipient) == 2 * sizeof(CStringVar));
static_assert(sizeof(CSmtpXPriority) == 4);
static_assert(sizeof(CSmtp) ==
              2 * Pointer + 2 * sizeof(CStringVar) + 7 * Text + 2 * 4 + 3 * 3 * Pointer);

} // namespace

} // namespace VornEx

namespace Vorn::Regex {

namespace {

// Pointer to the virtual functions, elements and count; then the capacity, which on x86-64 lies
// where the view ends in padding.
constexpr std::size_t Buffer = sizeof(void*) == 4 ? 16 : 24;
static_assert(sizeof(CBufferRefT<int>) == (sizeof(void*) == 4 ? 12 : 24));
static_assert(sizeof(CBufferT<int>) == Buffer && sizeof(CBufferT<char>) == Buffer);
static_assert(sizeof(CSortedBufferT<int>) == Buffer + sizeof(void*) + (sizeof(void*) == 4 ? 4 : 8));
static_assert(sizeof(MatchResultT<0>) == Buffer);

static_assert(offsetof(CContext, stack) == 0 && offsetof(CContext, captureStack) == Buffer &&
              offsetof(CContext, captureIndex) == 2 * Buffer);
constexpr std::size_t Positions = 3 * Buffer;
constexpr std::size_t Subject =
    (Positions + 5 * 4 + sizeof(void*) - 1) / sizeof(void*) * sizeof(void*);
static_assert(offsetof(CContext, currentPos) == Positions &&
              offsetof(CContext, beginPos) == Positions + 4 &&
              offsetof(CContext, lastBeginPos) == Positions + 8 &&
              offsetof(CContext, closeCounter) == Positions + 12 &&
              offsetof(CContext, recursionBudget) == Positions + 16 &&
              offsetof(CContext, text) == Subject &&
              offsetof(CContext, textLength) == Subject + sizeof(void*));
static_assert(offsetof(CContextShot, m_CurrentPos) == 0 && offsetof(CContextShot, m_Stack) == 4 &&
              offsetof(CContextShot, m_CaptureStack) == 8 && sizeof(CContextShot) == 12);

} // namespace

} // namespace Vorn::Regex
