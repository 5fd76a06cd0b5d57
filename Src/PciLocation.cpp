#include <vornex/ConfigManager.h>

#include <cstdint>
#include <memory>

#include <strings.h>

#include <pciaccess.h>

#include "LateLibrary.h"

namespace VornEx {

namespace {

using Vorn::Strings::CStringRef;
using Vorn::Strings::CSubStringRef;

#define PCI_SYMBOLS(SYMBOL)                                                                        \
    SYMBOL(pci_device_next)                                                                        \
    SYMBOL(pci_iterator_destroy)                                                                   \
    SYMBOL(pci_slot_match_iterator_create)                                                         \
    SYMBOL(pci_system_cleanup)                                                                     \
    SYMBOL(pci_system_init)

struct CPciLibrary
{
    PCI_SYMBOLS(VORNEX_LATE_MEMBER)
};

bool Bind([[maybe_unused]] const Internals::CLateSymbols& late, CPciLibrary& table)
{
    bool isBound = true;
    PCI_SYMBOLS(VORNEX_LATE_BIND)
    return isBound;
}

Internals::CLateLibrary<CPciLibrary> s_Library(VORNEX_LIBPCIACCESS, Bind);

// libpciaccess while it is in use.
class CPciAccess
{
public:
    CPciAccess() : m_Library(s_Library.Get())
    {
        if (m_Library != nullptr && m_Library->pci_system_init() != 0)
            m_Library = nullptr;
    }
    ~CPciAccess()
    {
        if (m_Library != nullptr)
            m_Library->pci_system_cleanup();
    }
    CPciAccess(const CPciAccess&) = delete;
    CPciAccess& operator=(const CPciAccess&) = delete;

    bool IsReady() const { return m_Library != nullptr; }
    const CPciLibrary* operator->() const { return m_Library; }

private:
    const CPciLibrary* m_Library;
};

// An identifier as four lower-case digits.
class CIdentifier
{
public:
    explicit CIdentifier(std::uint16_t value)
    {
        for (unsigned int index = 0; index < Length; ++index)
            m_Digits[index] = "0123456789abcdef"[(value >> (12 - 4 * index)) & 0xFU];
    }

    // Whether the text is these digits, in either case.
    bool Is(const CSubStringRef& text) const
    {
        return text.Length() == Length && strncasecmp(m_Digits, text.Text(), Length) == 0;
    }

    static constexpr unsigned int Length = 4;

private:
    char m_Digits[Length];
};

struct CAddress
{
    int& m_Domain;
    int& m_Bus;
    int& m_Device;
    int& m_Function;
};

// Counts the matches(vendor, device) of each device, and takes the address of the one in which
// number `instance` falls.
template <class Matches>
bool Locate(unsigned int instance, CAddress address, Matches matches)
{
    const CPciAccess access;
    if (!access.IsReady())
        return false;
    const std::unique_ptr<pci_device_iterator, decltype(access->pci_iterator_destroy)> iterator(
        access->pci_slot_match_iterator_create(nullptr), access->pci_iterator_destroy);
    unsigned int left = instance;
    while (const pci_device* const device = access->pci_device_next(iterator.get())) {
        const unsigned int found =
            matches(CIdentifier(device->vendor_id), CIdentifier(device->device_id));
        if (left != 0 && left <= found) {
            address.m_Domain = device->domain_16;
            address.m_Bus = device->bus;
            address.m_Device = device->dev;
            address.m_Function = device->func;
            return true;
        }
        left -= left != 0 ? found : 0;
    }
    return false;
}

} // namespace

bool CConfigManager::GetLocation(const CStringRef& vendor, const CStringRef& device,
                                 unsigned int instance, int& domain, int& bus, int& dev, int& func)
{
    return Locate(instance, {domain, bus, dev, func},
                  [&](const CIdentifier& foundVendor, const CIdentifier& foundDevice) {
                      return foundVendor.Is(vendor) && foundDevice.Is(device) ? 1U : 0U;
                  });
}

bool CConfigManager::GetLocation(std::vector<Vorn::Strings::CStringEx>& ids, unsigned int instance,
                                 int& domain, int& bus, int& dev, int& func)
{
    return Locate(instance, {domain, bus, dev, func},
                  [&](const CIdentifier& foundVendor, const CIdentifier& foundDevice) {
                      constexpr unsigned int Half = CIdentifier::Length;
                      unsigned int count = 0;
                      for (const auto& id : ids)
                          if (id.m_Length == 2 * Half && foundVendor.Is({id.m_Text, Half}) &&
                              foundDevice.Is({id.m_Text + Half, Half}))
                              ++count;
                      return count;
                  });
}

} // namespace VornEx
