#include <vorn/Application.h>

#include <climits>

#include <unistd.h>

namespace Vorn::Misc {

bool CVornApplication::GetProcessPath(Strings::CStringVar& path)
{
    path.Clear();
    char executable[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", executable, sizeof executable);
    if (length <= 0)
        return false;
    const Strings::CSubStringRef whole(executable, static_cast<unsigned int>(length));
    const int slash = whole.FindLast('/', 0);
    if (slash < 0)
        return false;
    path << Strings::CSubStringRef(executable, slash == 0 ? 1 : static_cast<unsigned int>(slash));
    return true;
}

} // namespace Vorn::Misc
