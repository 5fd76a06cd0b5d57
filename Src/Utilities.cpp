// Small services of the system, and the only port I/O of the library.
#include <vornex/Utilities.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <cpuid.h>
#include <sys/io.h>
#include <unistd.h>

namespace VornEx {

namespace {

constexpr std::size_t HostNameSize = 512;

constexpr unsigned short SpeakerPort = 0x61;
constexpr unsigned short SpeakerPortCount = 0x20;
constexpr unsigned char SpeakerBits = 0x03;
constexpr unsigned short TimerDataPort = 0x42;
constexpr unsigned short TimerModePort = 0x43;
constexpr unsigned short TimerPortCount = 2;
// Channel 2, low byte then high byte, square wave.
constexpr unsigned char TimerMode = 0xB6;
// Input clock of the programmable interval timer in Hz.
constexpr unsigned int TimerClock = 1193180;

// The kernel refuses to change SIGSTOP; it is listed all the same.
constexpr int QuietSignals[] = {SIGINT, SIGQUIT, SIGABRT, SIGSTOP, SIGTSTP, SIGTERM, SIGHUP};

void SetQuietSignals(sighandler_t disposition)
{
    for (const int number : QuietSignals)
        std::signal(number, disposition);
}

} // namespace

unsigned int strlcpy(char* destination, const char* source, unsigned int size)
{
    const auto length = static_cast<unsigned int>(std::strlen(source));
    if (size != 0) {
        const unsigned int copied = length < size ? length : size - 1;
        std::memcpy(destination, source, copied);
        destination[copied] = '\0';
    }
    return length;
}

unsigned int strlcat(char* destination, const char* source, unsigned int size)
{
    const auto used = static_cast<unsigned int>(strnlen(destination, size));
    if (used == size)
        return size + static_cast<unsigned int>(std::strlen(source));
    return used + strlcpy(destination + used, source, size - used);
}

bool hostname(Vorn::Strings::CStringVar& name)
{
    name.Clear();
    char buffer[HostNameSize] = "";
    if (gethostname(buffer, sizeof buffer) != 0)
        return false;
    // The system need not terminate a name that it had to cut.
    buffer[sizeof buffer - 1] = '\0';
    name.AllocCopy(buffer, 0);
    return true;
}

void msleep(unsigned int milliseconds)
{
    timespec remaining{};
    remaining.tv_sec = static_cast<std::time_t>(milliseconds / 1000);
    remaining.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000;
    while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
    }
}

void cpuID(unsigned int leaf, unsigned int* registers)
{
    __cpuid_count(leaf, 0, registers[0], registers[1], registers[2], registers[3]);
}

int reboot()
{
    sync();
    return std::system("reboot"); // NOLINT(cert-env33-c): this is what it is for
}

void enableSpeaker()
{
    outb(static_cast<unsigned char>(inb(SpeakerPort) | SpeakerBits), SpeakerPort);
}

void disableSpeaker()
{
    outb(static_cast<unsigned char>(inb(SpeakerPort) & ~SpeakerBits), SpeakerPort);
}

void beep(unsigned int frequency, unsigned int duration)
{
    SetQuietSignals(SIG_IGN);
    if (ioperm(SpeakerPort, SpeakerPortCount, 1) != 0)
        return;
    const unsigned int divisor = TimerClock / frequency;
    ioperm(TimerDataPort, TimerPortCount, 1);
    ioperm(TimerModePort, TimerPortCount, 1);

    enableSpeaker();
    outb(TimerMode, TimerModePort);
    outb(static_cast<unsigned char>(divisor & 0xFFU), TimerDataPort);
    outb(static_cast<unsigned char>((divisor >> 8U) & 0xFFU), TimerDataPort);
    msleep(duration);
    disableSpeaker();

    if (ioperm(SpeakerPort, SpeakerPortCount, 0) != 0)
        return;
    ioperm(TimerDataPort, TimerPortCount, 0);
    ioperm(TimerModePort, TimerPortCount, 0);
    SetQuietSignals(SIG_DFL);
}

} // namespace VornEx
