#include "MailLibrary.h"

namespace VornEx::Internals {

namespace {

CLateLibrary<CMailLibrary> s_Library(VORNEX_LIBETPAN, []([[maybe_unused]] const CLateSymbols& late,
                                                         CMailLibrary& table) {
    return VORNEX_MAIL_SYMBOLS(VORNEX_LATE_BIND) true;
});

} // namespace

bool LoadMailLibrary()
{
    return s_Library.Get() != nullptr;
}

const CMailLibrary& Mail()
{
    return *s_Library.Get();
}

} // namespace VornEx::Internals
