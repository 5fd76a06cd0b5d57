// Small services of the system. None of them raises.
#pragma once

#include <vorn/Export.h>
#include <vorn/StringVar.h>

namespace VornEx {

// Bounded copy and append, exactly as in BSD (strlcpy(3)): `size` is the whole size of the
// destination in bytes, the result is always terminated when there is room for a terminator, and
// the text that would have been made is longer than size - 1 exactly when the value returned is
// not below size. Neither text may be null; they must not overlap.
//
// strlcpy returns the length of the source. strlcat returns the length of the destination's text
// plus that of the source; a destination without a terminator within size bytes is left untouched
// and counts as size long.
VORN_EXPORT unsigned int strlcpy(char* destination, const char* source, unsigned int size);
VORN_EXPORT unsigned int strlcat(char* destination, const char* source, unsigned int size);

// The host name as gethostname(2) gives it. False, with the name empty, when the call fails.
VORN_EXPORT bool hostname(Vorn::Strings::CStringVar& name);

// Sleeps for so many milliseconds, through signals whose handlers return. Any other failure of
// nanosleep(2) ends the sleep.
VORN_EXPORT void msleep(unsigned int milliseconds);

// One query of the x86 CPUID instruction: EAX, EBX, ECX and EDX of the leaf are stored into
// registers[0] to [3]. The sub-leaf (ECX) is 0. Runs on whatever processor the thread is on.
VORN_EXPORT void cpuID(unsigned int leaf, unsigned int* registers);

// Cores and logical processors of one processor package, as CPUID tells them: Intel by leaf 4,
// AMD by leaf 0x80000008, others report as many cores as logical processors. Hyper-threading is on
// when the processor has it and shows more logical processors than cores. Always true. Writes one
// detail trace line. A hypervisor may answer what it likes, and several packages are not counted.
VORN_EXPORT bool processorInfo(unsigned int& cores, unsigned int& logical, bool& hyperThreading);

// Writes file systems back (sync(2)) and runs the command "reboot" found through PATH. Returns the
// status of system(3), which is 0 when the command has accepted the request: the machine goes down
// some time after.
VORN_EXPORT int reboot();

// Gates the PC speaker on and off, bits 0 and 1 of I/O port 0x61. The process needs permission for
// the port (ioperm(2)); without it the processor faults (SIGSEGV).
VORN_EXPORT void enableSpeaker();
VORN_EXPORT void disableSpeaker();

// Plays a tone on the PC speaker: frequency in Hz, at least 19 (the divisor has 16 bits) and not 0,
// which is not guarded; duration in milliseconds. Blocks for that long. Needs the right to program
// I/O ports; without it nothing sounds and the call returns at once.
//
// While the tone sounds SIGINT, SIGQUIT, SIGABRT, SIGTSTP, SIGTERM and SIGHUP are ignored by the
// whole process, and afterwards they have their default disposition, not the one they had before;
// when permission is missing they stay ignored. That is how it is meant. One thread at a time.
VORN_EXPORT void beep(unsigned int frequency, unsigned int duration);

} // namespace VornEx
