#pragma once

// The registers of the process's other threads, for the dump: each is
// signalled, stores its context into space kept for it, and then stays where
// it is until the process ends, as the threads of a process are suspended
// while a dump of it is taken elsewhere. No ptrace: a process may not trace
// itself, and a helper process may be refused by the system.

#include <signal.h>
#include <sys/types.h>
#include <ucontext.h>

#include <cstddef>

namespace dv::env::platform {

struct HeldThread {
    pid_t thread;
    const ucontext_t* context;  // its registers where the signal, or its own fault, met it
};

struct HeldThreads {
    const HeldThread* threads;
    std::size_t count;
};

// The real-time signal that holds a thread, taken over only once a fault has
// occurred. The fault handler blocks it, so that a thread inside the handler
// is never held by it.
int captureSignal();

// Holds every other thread of the process but `self` for good. A thread that
// faulted after `self` gives its registers itself (`waitAsHeld`); one that
// has not answered within 100 ms, for instance one that blocks the signal, is
// left out. The first call holds; later ones give the same threads again.
// Safe inside the fault handler: no heap, no lock.
HeldThreads holdOtherThreads(pid_t self);

// Never returns: the calling thread `self` waits until the process ends. With
// `context` (the registers of a fault that came after another thread's), a
// dump written meanwhile shows the thread with them. Safe inside the fault
// handler.
[[noreturn]] void waitAsHeld(pid_t self, const ucontext_t* context);

}  // namespace dv::env::platform
