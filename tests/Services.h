// Every service called once, in an environment made for it, with the result as text: for tests that
// look at what goes on around the services.
#pragma once

#include <string>
#include <vector>

struct CService
{
    const char* m_Name;
    std::string (*m_Call)();
    bool m_AnyThread; // whether calls may overlap with each other
};

// All but those that make noise: beep and reboot.
const std::vector<CService>& Services();

// The result of a call; what it raises as "raised CODE", memory that ends as "no memory".
std::string Result(const CService& service);

// Descriptors that are open now.
int OpenDescriptors();

// Asked before each system call that a service makes; null: all go through. 0: it goes through, -1:
// a read or write gets one byte, otherwise the call fails with this errno.
using FaultHook = int (*)(const char* call);
extern FaultHook g_Fault;
