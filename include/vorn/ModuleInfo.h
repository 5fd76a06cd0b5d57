// The identity record of a module, and messages by error code.
#pragma once

#include <atomic>

#include <vorn/Export.h>
#include <vorn/Language.h>
#include <vorn/StringVar.h>

namespace Vorn::Misc {

// One a module, with static storage. It makes itself known while it is constructed and withdraws
// in its destructor, so that codes and traces find it by its number.
class VORN_EXPORT CModuleInfo
{
public:
    using CLngFile = Language_Support::CLanguageSupport::CLngFile;
    using ERROR_MSG_LIST = Language_Support::CLanguageSupport::ERROR_MSG_LIST;

    // What is pointed to must outlive the record.
    CModuleInfo(unsigned int module, const char* name, const char* version, CLngFile* language,
                const ERROR_MSG_LIST* errors);
    ~CModuleInfo();
    CModuleInfo(const CModuleInfo&) = delete;
    CModuleInfo& operator=(const CModuleInfo&) = delete;

    // 12 bits: bits 16 to 27 of the module's error codes.
    unsigned int m_Module;
    // Trace levels that are switched on (Trace.h); any thread may change it at any time.
    std::atomic<unsigned int> m_TraceMask{0};
    const char* m_Name;
    const char* m_Version;
    CLngFile* m_Language;
    const ERROR_MSG_LIST* m_Errors;

private:
    friend VORN_EXPORT Strings::CStringVar ErrorMessage(unsigned int code);
    CModuleInfo* m_Next = nullptr;
};

// The message of a code: the text that its module's list gives it, the module's last text for a
// code without a row, and a general text when no such module is loaded. Any thread.
VORN_EXPORT Strings::CStringVar ErrorMessage(unsigned int code);

} // namespace Vorn::Misc
