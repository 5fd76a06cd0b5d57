#include "MailLibrary.h"

#ifdef VORNEX_LIBETPAN

#include <atomic>
#include <memory>

#include <dlfcn.h>

#include "Tracing.h"

namespace VornEx::Internals {

namespace {

constexpr const char* Source = "Src/MailLibrary.cpp";

// Null until everything is bound; then it stays, like the libraries.
std::atomic<const CMailLibrary*> s_Table{nullptr};

template <class Symbol>
bool Bind(void* library, const char* name, Symbol& symbol)
{
    void* found = dlsym(RTLD_DEFAULT, name);
    if (found == nullptr)
        found = dlsym(library, name);
    symbol = reinterpret_cast<Symbol>(found);
    return found != nullptr;
}

bool BindAll(void* library, CMailLibrary& table)
{
#define VORNEX_MAIL_BIND(name) Bind(library, #name, table.name)&&
    return VORNEX_MAIL_SYMBOLS(VORNEX_MAIL_BIND) true;
#undef VORNEX_MAIL_BIND
}

} // namespace

bool LoadMailLibrary()
{
    if (s_Table.load(std::memory_order_acquire) != nullptr)
        return true;
    auto table = std::make_unique<CMailLibrary>();
    void* const library = dlopen(VORNEX_LIBETPAN, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr || !BindAll(library, *table)) {
        TraceDetail(Source, __LINE__, "LoadMailLibrary () -> %s", dlerror());
        return false;
    }
    // Of several threads that come at once one's table stays; they are alike.
    const CMailLibrary* none = nullptr;
    if (s_Table.compare_exchange_strong(none, table.get(), std::memory_order_acq_rel))
        static_cast<void>(table.release());
    return true;
}

const CMailLibrary& Mail()
{
    return *s_Table.load(std::memory_order_acquire);
}

} // namespace VornEx::Internals

#else

namespace VornEx::Internals {

bool LoadMailLibrary()
{
    return true;
}

const CMailLibrary& Mail()
{
#define VORNEX_MAIL_ADDRESS(name) &::name,
    static constexpr CMailLibrary table = {VORNEX_MAIL_SYMBOLS(VORNEX_MAIL_ADDRESS)};
#undef VORNEX_MAIL_ADDRESS
    return table;
}

} // namespace VornEx::Internals

#endif
