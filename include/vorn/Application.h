// The running program.
#pragma once

#include <vorn/Export.h>
#include <vorn/StringVar.h>

namespace Vorn::Misc {

struct VORN_EXPORT CVornApplication
{
    // The directory of the running executable, without a trailing slash ("/" for the root itself).
    // False, with the string empty, when the system does not tell (no /proc). Any thread.
    static bool GetProcessPath(Strings::CStringVar& path);
};

} // namespace Vorn::Misc
