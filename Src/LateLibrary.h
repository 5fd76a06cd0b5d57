// A library underneath that is loaded when it is first needed, because of what it and its own
// dependencies would cost every program at its start.
//
// Calls go through a table whose members are named and typed as the functions:
//
//     #define PCI_SYMBOLS(SYMBOL) SYMBOL(pci_system_init) SYMBOL(pci_device_next)
//     struct CPciTable { PCI_SYMBOLS(VORNEX_LATE_MEMBER) };
//     bool Bind(const CLateSymbols& late, CPciTable& table)
//     {
//         bool isBound = true;
//         PCI_SYMBOLS(VORNEX_LATE_BIND)
//         return isBound;
//     }
//     CLateLibrary<CPciTable> s_Pci(VORNEX_LIBPCIACCESS, Bind);
//
// Each is bound as the dynamic linker would bind it: to the program's own definition, where there
// is one, and to what the program has loaded already. In a static libvornex the table holds what
// the program is linked with, and nothing is loaded.
#pragma once

#include <atomic>
#include <memory>
#include <new>

// NOLINTBEGIN(bugprone-macro-parentheses): declarations and statements
#define VORNEX_LATE_MEMBER(name) decltype(&::name) name;

#ifdef VORNEX_STATIC
#define VORNEX_LATE_BIND(name) table.name = &::name;
#else
#define VORNEX_LATE_BIND(name) isBound = late.Bind(#name, table.name) && isBound;
#endif
// NOLINTEND(bugprone-macro-parentheses)

namespace VornEx::Internals {

class CLateSymbols
{
public:
    // Loads the library, which then stays. Why it cannot be loaded, or has no such symbol, is in
    // the trace.
    explicit CLateSymbols(const char* library);

    bool IsLoaded() const { return m_Library != nullptr; }

    template <class Symbol>
    bool Bind(const char* name, Symbol& symbol) const
    {
        symbol = reinterpret_cast<Symbol>(Find(name));
        return symbol != nullptr;
    }

private:
    void* Find(const char* name) const;

    void* m_Library;
};

// Made before main without a constructor that runs.
template <class Table>
class CLateLibrary
{
public:
    using BindAll = bool (*)(const CLateSymbols& late, Table& table);

    // name is that of the shared object, or null where there is nothing to load.
    constexpr CLateLibrary(const char* name, BindAll bindAll) : m_Name(name), m_BindAll(bindAll) {}

    // The table, which is there for good once it is. Null where the library cannot be loaded: the
    // next call tries again. Any thread.
    const Table* Get()
    {
        const Table* table = m_Table.load(std::memory_order_acquire);
        return table != nullptr ? table : Load();
    }

private:
    const Table* Load()
    {
        std::unique_ptr<Table> table(new (std::nothrow) Table);
        const CLateSymbols symbols(m_Name);
        const bool isLoaded = m_Name == nullptr || symbols.IsLoaded();
        if (table == nullptr || !isLoaded || !m_BindAll(symbols, *table))
            return nullptr;
        // Of several threads that come at once the first one's stays; they are alike.
        const Table* first = nullptr;
        if (!m_Table.compare_exchange_strong(first, table.get(), std::memory_order_acq_rel))
            return first;
        return table.release();
    }

    const char* m_Name;
    BindAll m_BindAll;
    std::atomic<const Table*> m_Table{nullptr};
};

} // namespace VornEx::Internals
