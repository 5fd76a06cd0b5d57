// Where a PCI device sits.
//
//     int domain, bus, device, function;
//     VornEx::CConfigManager manager;
//     if (manager.GetLocation("8086", "100E", 1, domain, bus, device, function))
//         ...
//
// Identifiers are texts of exactly four hexadecimal digits, of either case, without a prefix;
// others match nothing. Devices are counted in the order in which the system lists them, from 1.
//
// Every call makes a list of the devices of its own and keeps nothing. It does so with
// libpciaccess, whose state belongs to the process: calls must not overlap with each other or with
// other users of that library. Raised is nothing; std::bad_alloc may be thrown, and then too the
// list is released.
//
// What it does not do: it tells nothing else of a device, and knows no names, classes or drivers.
#pragma once

#include <vector>

#include <vorn/Export.h>
#include <vorn/StringRef.h>
#include <vorn/StringVar.h>

namespace VornEx {

class VORN_EXPORT CConfigManager
{
public:
    // The address of the device that is number `instance` of those with these identifiers. False,
    // with the outputs untouched, when there is none, and when the bus cannot be accessed or
    // libpciaccess, which the first call loads, is not there.
    bool GetLocation(const Vorn::Strings::CStringRef& vendor,
                     const Vorn::Strings::CStringRef& device, unsigned int instance, int& domain,
                     int& bus, int& dev, int& func);

    // The same for any of several pairs of identifiers, each one text of eight digits, the vendor's
    // before the device's. Elements of another length are passed over. A device counts once for
    // every element that names it, so twice where an element is there twice. That is meant.
    bool GetLocation(std::vector<Vorn::Strings::CStringEx>& ids, unsigned int instance, int& domain,
                     int& bus, int& dev, int& func);
};

} // namespace VornEx
