#pragma once

// The registers of the process's other threads, for the dump: each is
// signalled, stores its context into space kept for it, and waits (at most
// 100 ms) until the dump is written, as the threads of a process are
// suspended while a dump of it is taken elsewhere. No ptrace: a process may
// not trace itself, and a helper process may be refused by the system.

#include <signal.h>
#include <sys/types.h>
#include <ucontext.h>

#include <cstddef>

namespace dv::env::platform {

struct HeldThread {
    pid_t thread;
    const ucontext_t* context;  // its registers where the signal met it
};

// Holds every other thread of the process but `self` and those `skip` names
// (threads that are themselves in the fault handler must never wait for it).
// A thread that has not answered within 100 ms, for instance one that blocks
// the signal, is left out. Writes up to `capacity` of them into `held` and
// returns how many. Safe inside the fault handler: no heap, no lock.
std::size_t holdOtherThreads(pid_t self, bool (*skip)(pid_t), HeldThread* held, std::size_t capacity);

// Lets the held threads go on.
void releaseHeldThreads();

}  // namespace dv::env::platform
