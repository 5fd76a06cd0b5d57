// The three objects that make up the module's identity. Built in this order while the library
// loads, destroyed in the reverse order.
#include <vornex/Module.h>

namespace VornEx {

namespace {

using CLanguageSupport = Vorn::Language_Support::CLanguageSupport;

const char* g_DefaultMessages[] = {
    "System log already opened",
    "Cannot close system log",
    "System log deregistration failed",
    "Invalid parameter",
    "System log not opened for writing",
    "Cannot open system log",
    "System log registration failed",
    "Time system call failed",
    "No information available for this error",
};

constexpr unsigned int MessageCount = sizeof g_DefaultMessages / sizeof g_DefaultMessages[0];
constexpr unsigned int LanguageEnglish = 0x656E;
constexpr unsigned int CatalogueSet = 1;
constexpr unsigned int ModuleNumber = 5;

} // namespace

CLanguageSupport::CLngFile NLS::m_LngFile("vornex.nls", LanguageEnglish, "utf-8", CatalogueSet,
                                          g_DefaultMessages, MessageCount);

Vorn::Misc::CModuleInfo VORN_MODULE_INFO_VornEx(ModuleNumber, "vornex", "P:5.8.3 F:5.8.3",
                                                &NLS::m_LngFile, ErrorMsgList);

const CLanguageSupport::ERROR_MSG_LIST ErrorMsgList[] = {
    {LogAlreadyOpened, 0},      {LogCloseFailed, 1}, {LogDeregistrationFailed, 2},
    {InvalidParameter, 3},      {LogNotOpened, 4},   {LogOpenFailed, 5},
    {LogRegistrationFailed, 6}, {TimeCallFailed, 7}, {0, 0},
};

} // namespace VornEx
