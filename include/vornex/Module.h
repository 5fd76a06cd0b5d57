// The library's identity, its error codes and their messages.
#pragma once

#include <vorn/Export.h>
#include <vorn/Language.h>
#include <vorn/ModuleInfo.h>

namespace VornEx {

// Codes that the library raises, as `unsigned int` (see vorn/Exceptions.h). The two number codes
// have no text of their own: they carry the text for a code that the list does not hold.
enum ErrorCode : unsigned int
{
    LogAlreadyOpened = 0x20050001,
    InvalidParameter = 0x20050002,
    LogOpenFailed = 0x20050003,           // never raised on Linux
    LogRegistrationFailed = 0x20050004,   // never raised on Linux
    LogDeregistrationFailed = 0x20050005, // never raised on Linux
    LogCloseFailed = 0x20050006,          // never raised on Linux
    LogNotOpened = 0x20050007,            // never raised on Linux
    TimeCallFailed = 0x20050008,
    NumberOutOfRange = 0x20050009,
    NotANumber = 0x2005000A,
};

namespace NLS {
// The module's texts: catalogue "vornex.nls", set 1, English defaults.
extern VORN_EXPORT Vorn::Language_Support::CLanguageSupport::CLngFile m_LngFile;
} // namespace NLS

// Module number 5, name, version and trace mask. The mask is the one thing a host may change:
//     VornEx::VORN_MODULE_INFO_VornEx.m_TraceMask = Vorn::Internals::TraceDetail;
extern VORN_EXPORT Vorn::Misc::CModuleInfo VORN_MODULE_INFO_VornEx;

// Codes with their message indexes, ended by {0, 0}; deliberately not in the order of the codes.
extern VORN_EXPORT const Vorn::Language_Support::CLanguageSupport::ERROR_MSG_LIST ErrorMsgList[];

} // namespace VornEx
