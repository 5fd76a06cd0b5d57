// Work in a thread whose native stack is exactly as large as asked: deeper work ends the program.
#pragma once

#include <cstddef>
#include <functional>

#include <pthread.h>
#include <sys/mman.h>

// False: the thread could not be made. A stack of the thread library's own may be a larger one that
// was left over, so this maps one, with a page below it that cannot be touched.
inline bool RunOnStack(std::size_t size, const std::function<void()>& work)
{
    constexpr std::size_t Guard = 65536;
    void* const memory = mmap(nullptr, size + Guard, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED)
        return false;
    const auto run = [](void* argument) -> void* {
        (*static_cast<const std::function<void()>*>(argument))();
        return nullptr;
    };
    auto copy = work;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_t thread;
    const bool ran =
        mprotect(memory, Guard, PROT_NONE) == 0 &&
        pthread_attr_setstack(&attributes, static_cast<char*>(memory) + Guard, size) == 0 &&
        pthread_create(&thread, &attributes, run, &copy) == 0 && pthread_join(thread, nullptr) == 0;
    pthread_attr_destroy(&attributes);
    munmap(memory, size + Guard);
    return ran;
}
