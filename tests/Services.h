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

// The result of a call; what it raises as "raised CODE" in hexadecimal, memory that ends as "no
// memory".
std::string Result(const CService& service);

// Asked before each system or library call that a service makes (FallibleCalls.cpp); null: all go
// through. 0: it goes through; otherwise it fails with this error, but where that is -1, a read or
// write gets one byte, and where it is -2, STARTTLS seems to have been taken.
using FaultHook = int (*)(const char* call);
extern FaultHook g_Fault;

// What stands for files and a server of the system. Lives as long as the process.
struct CEnvironment
{
    std::string m_ClassicDisk, m_GuidDisk, m_Mounts, m_Module, m_ModuleList, m_Release;
    std::string m_Server;
};
const CEnvironment& Environment();
