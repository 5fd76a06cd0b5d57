// Which operating system this is: vendor, product, version, service pack, build number, processor
// architecture and kernel numbers.
//
//     const VornEx::COSInfo_Lx system;
//     Vorn::Strings::TString<64> product;
//     if (system.GetOSProduct(product))
//         log << product;                          // Debian GNU/Linux
//
// Everything is gathered once, by the constructor: from uname(2), and from the first of these files
// that exists and opens. No later one is looked at, even when nothing is recognised in the first.
//
//     /proc/vmware/version                               VMware ESX
//     /etc/enterprise-release, /etc/oracle-release       Oracle Linux and Oracle VM
//     /etc/redhat-release                                Red Hat Linux, CentOS, XenServer
//     /etc/SuSE-release                                  SUSE Linux Enterprise Server, openSUSE
//     /etc/debian_version                                Debian
//     /etc/turbolinux-release                            Turbolinux
//     /etc/asianux-release                               Asianux
//
// Some answers surprise and are meant so:
//  - An openSUSE system has the vendor "Novell, Inc." and no product, because the file that it
//    shares with the enterprise server is read as the enterprise server's.
//  - CentOS has no vendor. A system that only resembles Red Hat's ("Rocky Linux release 8.4") has
//    the vendor "Red Hat, Inc." and nothing else.
//  - Of a SUSE patch level the first character is taken: 10 is "1".
//  - The kernel numbers are known only where a blank follows the minor number in the kernel's
//    release ("3.10 custom"); of "2.6.32-220.el6.x86_64" neither is.
//  - The architecture is "x86-64" for a kernel that calls its machine "x86_64", else "x86-32",
//    whatever the machine.
//
// Release files are not trusted. Of a line at most 255 characters are looked at, up to a NUL byte;
// a directory reads as an empty file; a file that cannot be opened counts as missing; of
// /proc/vmware/version at most 65,536 lines are read.
//
// What it does not do: it does not read os-release(5) or run lsb_release(1), knows no other
// distributions than those above, and reads nothing again; construct a new object for fresh data.
#pragma once

#include <cstdint>

#include <vorn/Export.h>
#include <vorn/StringVar.h>

namespace VornEx {

// Never changes after construction, and may then be read by several threads. The constructor
// throws std::bad_alloc; whatever else goes wrong leaves the facts concerned empty.
class VORN_EXPORT COSInfo_Lx
{
public:
    COSInfo_Lx();

    // Each replaces the text by the fact and is true when that is not empty.
    bool GetOSVendor(Vorn::Strings::CStringVar& vendor) const;           // Red Hat, Inc.
    bool GetOSProduct(Vorn::Strings::CStringVar& product) const;         // CentOS
    bool GetOSVersion(Vorn::Strings::CStringVar& version) const;         // 5.4
    bool GetOSServicePack(Vorn::Strings::CStringVar& servicePack) const; // 8
    bool GetOSBuildNumber(Vorn::Strings::CStringVar& buildNumber) const; // VMware ESX only
    bool GetProcessorArchitecture(Vorn::Strings::CStringVar& architecture) const;

    // False, with both arguments as they were, when both numbers are 0. A number that does not fit
    // 31 bits is 0.
    bool GetKernelVersion(unsigned int& majorNumber, unsigned int& minorNumber) const;

    // Not known on Linux: always false. The edition is emptied, the features are left as they were;
    // the difference is meant.
    bool GetOSEdition(Vorn::Strings::CStringVar& edition) const;
    bool GetOSFeatures(Vorn::Strings::CStringVar& features) const;

private:
    friend struct CLayoutCheck; // Src/Layout.cpp
    Vorn::Strings::CStringVar m_Vendor;
    Vorn::Strings::CStringVar m_Product;
    Vorn::Strings::CStringVar m_Version;
    Vorn::Strings::CStringVar m_ServicePack;
    Vorn::Strings::CStringVar m_BuildNumber;
    Vorn::Strings::CStringVar m_ProcessorArchitecture;
    std::uint32_t m_KernelMajor = 0;
    std::uint32_t m_KernelMinor = 0;
};

} // namespace VornEx
