// Threads started after the fault handler is installed get their alternate
// signal stack as they start, with no call of the host's: the library defines
// pthread_create, which the dynamic linker finds before the C library's (the
// library is loaded ahead of it), wraps the start routine and hands over to
// the next definition, the C library's or a sanitizer runtime's that was
// found first. Sanitizer runtimes interpose the same function the same way
// (one linked into the same program is called by its own name, below).
// Threads that existed before still need prepareThreadForFaults.

#include "platform/linux/Signals.h"

#include <dv/env/Export.h>

#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>

#include <atomic>
#include <cstdlib>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define DV_ENV_SANITIZED_BUILD 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define DV_ENV_SANITIZED_BUILD 1
#endif

#ifdef DV_ENV_SANITIZED_BUILD
// The sanitizer runtimes' own name for their pthread_create.
extern "C" int __interceptor_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)
    __attribute__((weak));
#endif

namespace dv::env::platform {

namespace {

using CreateThread = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

#if defined(__SANITIZE_THREAD__)
// ThreadSanitizer's pthread_create comes first and hands over to this one
// before the new thread is known to it: whatever runs on that thread ahead of
// its own start (heap, mmap) breaks its bookkeeping. Under it, threads are
// started as they are.
constexpr bool wrapThreadStart = false;
#else
constexpr bool wrapThreadStart = true;
#endif

std::atomic<bool> preparingNewThreads{false};

#ifdef DV_ENV_SANITIZED_BUILD
// A sanitizer runtime linked statically into the program that holds this
// file (as clang links them, for the fuzz targets) defines pthread_create as a
// weak alias of its interceptor, so this definition takes the name and the
// next one is the C library's: the runtime would never learn of the thread.
// There the interceptor is called by its own name; it hands over to the C
// library. Where the runtime is a module of its own, it is the next definition.
CreateThread interceptorBesideThisFile() {
    if (!__interceptor_pthread_create)
        return nullptr;
    Dl_info self{}, interceptor{};
    const bool sameModule =
        ::dladdr(reinterpret_cast<void*>(&interceptorBesideThisFile), &self) != 0 &&
        ::dladdr(reinterpret_cast<void*>(&__interceptor_pthread_create), &interceptor) != 0 &&
        self.dli_fbase == interceptor.dli_fbase;
    return sameModule ? &__interceptor_pthread_create : nullptr;
}
#else
CreateThread interceptorBesideThisFile() { return nullptr; }
#endif

CreateThread nextCreateThread() {
    // Found once; two threads that look it up at once find the same.
    static std::atomic<CreateThread> next{nullptr};
    CreateThread found = next.load(std::memory_order_acquire);
    if (!found) {
        found = interceptorBesideThisFile();
        if (!found)
            found = reinterpret_cast<CreateThread>(::dlsym(RTLD_NEXT, "pthread_create"));
        next.store(found, std::memory_order_release);
    }
    return found;
}

struct ThreadStart {
    void* (*routine)(void*);
    void* argument;
};

// The new thread's first frame. Not noexcept: cancellation unwinds through it.
void* startPrepared(void* raw) {
    const ThreadStart start = *static_cast<ThreadStart*>(raw);
    std::free(raw);
    prepareThreadForFaults();
    return start.routine(start.argument);
}

}  // namespace

void prepareThreadsAsTheyStart() { preparingNewThreads.store(wrapThreadStart, std::memory_order_release); }

}  // namespace dv::env::platform

extern "C" DV_ENV_EXPORT int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                            void* (*routine)(void*), void* argument) noexcept {
    using namespace dv::env::platform;
    const CreateThread create = nextCreateThread();
    if (!create)
        return EAGAIN;
    if (!preparingNewThreads.load(std::memory_order_acquire))
        return create(thread, attributes, routine, argument);
    // Without the memory for the hand-over the thread still starts, unprepared.
    auto* start = static_cast<ThreadStart*>(std::malloc(sizeof(ThreadStart)));
    if (!start)
        return create(thread, attributes, routine, argument);
    *start = ThreadStart{routine, argument};
    const int result = create(thread, attributes, startPrepared, start);
    if (result != 0)
        std::free(start);
    return result;
}
