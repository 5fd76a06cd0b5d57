// The version of a kernel module, and the order of two versions.
//
//     Vorn::Strings::TString<32> version;
//     VornEx::GetModuleVersion("megaraid_sas", version);
//     if (VornEx::VersionCompare(version, "07.719.03.00", 0) < 0)
//         complain("the driver is too old");
//
// Neither function raises an error code or writes a trace line. Both throw std::bad_alloc. Any
// thread.
#pragma once

#include <vorn/Export.h>
#include <vorn/StringRef.h>
#include <vorn/StringVar.h>

namespace VornEx {

// Replaces the content of `version` by the version of a kernel module: what its file's ".modinfo"
// section has behind "version=", up to the first white space. Empty when that cannot be found, for
// whatever reason; many modules of the kernel's own tree have none.
//
// `module` is tried as the path of a module file first. When there is no such file it is a name,
// such as e1000e or snd-hda-intel, looked up in /lib/modules/RELEASE/modules.dep of the running
// kernel (uname(2)); the first line wins whose file name goes on with a "." behind the name. "-"
// and "_" are the same in a name, and a ":" in it stands for any character.
//
// On a VMware service console a line of /proc/vmware/version that holds `module` and ": v" comes
// before all that. The six characters behind the ": v" are the version then, whatever they are,
// fewer only where the line ends.
//
// Files are not trusted: what lies outside of them, or is not ended where it should be, is not
// there. They are read, not mapped, so a file that is cut meanwhile does no harm. Ordinary modules
// and lists cost no memory of the heap; a list with lines for which there is none ends there.
//
// What it does not do: it reads no compressed modules, knows nothing of drivers built into the
// kernel, does not ask the running kernel which module is loaded, and resolves no aliases.
VORN_EXPORT void GetModuleVersion(const Vorn::Strings::CStringRef& module,
                                  Vorn::Strings::CStringVar& version);

// The order of two versions: -1 when `a` comes before `b`, 0 when they are equal, 1 when `a` comes
// after `b`. `n` is how many leading components count; 0 means all of them.
//
// Components are split at dots and hyphens as CStringTokenizer does it, end at an empty one, and
// are compared as numbers of 32 bits with sign, hexadecimal ones when either text holds a letter
// from A to F of either case: "1.0a" comes before "1.10", which is 1, 16 there. The texts
// themselves are compared, byte by byte, when
//     n is 0 and one has more components than the other,
//     n is 0 and a component of either is no number (see Numbers.h), or
//     n is not 0 and either has fewer than n components before one that is no number.
// So with n = 0 "1.10" comes before "1.9.1", and "1.2" before "1.2.0". That is meant.
//
// A component that is no number raises nothing here. The thread's error record
// (Vorn::Exceptions::LastError) may show it afterwards.
//
// What it does not do: it knows no epochs, release suffixes or tildes of package managers.
VORN_EXPORT int VersionCompare(const Vorn::Strings::CStringRef& a,
                               const Vorn::Strings::CStringRef& b, unsigned int n);

} // namespace VornEx
