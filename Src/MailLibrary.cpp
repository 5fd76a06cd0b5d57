#include "MailLibrary.h"

namespace VornEx::Internals {

namespace {

bool Bind([[maybe_unused]] const CLateSymbols& late, CMailLibrary& table)
{
    bool isBound = true;
    VORNEX_MAIL_SYMBOLS(VORNEX_LATE_BIND)
    return isBound;
}

CLateLibrary<CMailLibrary> s_Library(VORNEX_LIBETPAN, Bind);

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
