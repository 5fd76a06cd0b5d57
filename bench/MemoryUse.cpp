#include "MemoryUse.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <new>

#include <malloc.h>
#include <pthread.h>
#include <sys/mman.h>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);
}

namespace Bench {

namespace {

constexpr std::size_t StackSize = std::size_t{64} << 20;
constexpr unsigned char Paint = 0xA5;

thread_local bool counting = false;
std::size_t allocations = 0;
std::size_t live = 0;
std::size_t peak = 0;

void CountTaken(void* block)
{
    ++allocations;
    live += malloc_usable_size(block);
    peak = std::max(peak, live);
}

void CountGiven(void* block)
{
    // What was allocated before counting began may be freed while it goes on.
    live -= std::min(live, malloc_usable_size(block));
}

struct CRun
{
    const std::function<void()>* m_Work;
    std::exception_ptr m_Error;
};

// The stack that the work reached, in bytes from the stack's upper end.
std::size_t StackReached(CRun& run)
{
    void* const stack = mmap(nullptr, StackSize, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (stack == MAP_FAILED)
        throw std::bad_alloc();
    std::memset(stack, Paint, StackSize);

    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, stack, StackSize);
    const auto start = [](void* argument) -> void* {
        auto& the = *static_cast<CRun*>(argument);
        try {
            (*the.m_Work)();
        } catch (...) {
            the.m_Error = std::current_exception();
        }
        return nullptr;
    };
    pthread_t thread;
    const int error = pthread_create(&thread, &attributes, start, &run);
    pthread_attr_destroy(&attributes);
    if (error == 0)
        pthread_join(thread, nullptr);

    const auto* const bytes = static_cast<const unsigned char*>(stack);
    const auto* const used =
        std::find_if(bytes, bytes + StackSize, [](unsigned char byte) { return byte != Paint; });
    const auto reached = static_cast<std::size_t>(bytes + StackSize - used);
    munmap(stack, StackSize);
    return reached;
}

} // namespace

CMemoryUse MeasureMemory(const std::function<void()>& work)
{
    const std::function<void()> nothing = [] {};
    CRun idle{&nothing, nullptr};
    const std::size_t frame = StackReached(idle);

    allocations = live = peak = 0;
    const std::function<void()> counted = [&work] {
        struct CCounting
        {
            CCounting() { counting = true; }
            ~CCounting() { counting = false; }
        } const guard;
        work();
    };
    CRun run{&counted, nullptr};
    const std::size_t reached = StackReached(run);
    if (run.m_Error)
        std::rethrow_exception(run.m_Error);
    return {reached - std::min(reached, frame), peak, allocations};
}

} // namespace Bench

// The replaced family. These stay outside of the namespace and are seen by the shared libraries.
#define BENCH_SEEN __attribute__((visibility("default")))

extern "C" {

BENCH_SEEN void* malloc(std::size_t size) noexcept
{
    void* const block = __libc_malloc(size);
    if (Bench::counting)
        Bench::CountTaken(block);
    return block;
}

BENCH_SEEN void* calloc(std::size_t count, std::size_t size) noexcept
{
    void* const block = __libc_calloc(count, size);
    if (Bench::counting)
        Bench::CountTaken(block);
    return block;
}

BENCH_SEEN void* realloc(void* old, std::size_t size) noexcept
{
    if (Bench::counting)
        Bench::CountGiven(old);
    void* const block = __libc_realloc(old, size);
    if (Bench::counting)
        Bench::CountTaken(block);
    return block;
}

BENCH_SEEN void free(void* block) noexcept
{
    if (Bench::counting)
        Bench::CountGiven(block);
    __libc_free(block);
}
}
