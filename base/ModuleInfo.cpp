#include <vorn/ModuleInfo.h>

#include <mutex>

namespace Vorn::Misc {

namespace {

// The loaded modules, newest first. Constant-initialised: records are made by other libraries'
// static initialisers.
std::mutex g_ModulesLock;
CModuleInfo* g_Modules = nullptr;

constexpr unsigned int ModuleShift = 16;
constexpr unsigned int ModuleMask = 0xFFF;
constexpr const char* GeneralText = "No information available for this error";

} // namespace

CModuleInfo::CModuleInfo(unsigned int module, const char* name, const char* version,
                         CLngFile* language, const ERROR_MSG_LIST* errors)
    : m_Module(module), m_Name(name), m_Version(version), m_Language(language), m_Errors(errors)
{
    const std::lock_guard<std::mutex> lock(g_ModulesLock);
    m_Next = g_Modules;
    g_Modules = this;
}

CModuleInfo::~CModuleInfo()
{
    const std::lock_guard<std::mutex> lock(g_ModulesLock);
    for (CModuleInfo** link = &g_Modules; *link != nullptr; link = &(*link)->m_Next) {
        if (*link == this) {
            *link = m_Next;
            break;
        }
    }
}

Strings::CStringVar ErrorMessage(unsigned int code)
{
    const std::lock_guard<std::mutex> lock(g_ModulesLock);
    for (const CModuleInfo* module = g_Modules; module != nullptr; module = module->m_Next) {
        if (module->m_Module != ((code >> ModuleShift) & ModuleMask))
            continue;
        for (const auto* row = module->m_Errors; row->m_Code != 0; ++row)
            if (row->m_Code == code)
                return module->m_Language->Text(row->m_Index);
        return module->m_Language->Text(module->m_Language->Count() - 1);
    }
    return Strings::CStringVar(GeneralText);
}

} // namespace Vorn::Misc
