// Preloaded into the program: what would reach the system log goes to standard error instead, as
// the logger would have written it.
#include <cstdarg>
#include <cstdio>

extern "C" __attribute__((visibility("default"))) void syslog(int priority, const char* format, ...)
{
    std::fprintf(stderr, "<%d>", priority);
    va_list fields;
    va_start(fields, format);
    std::vfprintf(stderr, format, fields); // NOLINT(clang-diagnostic-format-nonliteral)
    va_end(fields);
    std::fputc('\n', stderr);
}
