// Kernel module files and the list of them. Internal.
#pragma once

#include <vorn/StringRef.h>
#include <vorn/StringVar.h>

namespace VornEx::Internals {

// A file open for reading while the object lives. Opening never waits for another end.
class CInputFile
{
public:
    // Look at IsOpen; errno tells why not.
    explicit CInputFile(const char* path);
    ~CInputFile();
    CInputFile(const CInputFile&) = delete;
    CInputFile& operator=(const CInputFile&) = delete;

    bool IsOpen() const { return m_Descriptor >= 0; }
    int Descriptor() const { return m_Descriptor; }

private:
    int m_Descriptor;
};

// Appends the version that a module file carries; nothing when there is none. `version` comes
// empty.
void ReadModuleVersion(const CInputFile& file, Vorn::Strings::CStringVar& version);

// Appends the path of the first module of this name in the list of the running kernel. False when
// there is none. `path` comes empty.
bool FindModulePath(const Vorn::Strings::CStringRef& module, Vorn::Strings::CStringVar& path);

} // namespace VornEx::Internals
