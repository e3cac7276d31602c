#pragma once

// Linux side of the fault hook: a fault is a signal.

#include "platform/Faults.h"

#include <signal.h>
#include <sys/types.h>
#include <ucontext.h>

#include <cstdint>

namespace dv::env::platform {

struct FaultContext {
    int signal;
    const siginfo_t* info;
    const ucontext_t* context;  // the faulting thread's registers
    pid_t thread;               // kernel thread id of the faulting thread
};

// The exception code that a signal is logged with. The codes are the 32-bit
// exception codes that support staff know from the other platform:
//   SIGSEGV  c0000005 access violation; c00000fd stack overflow, when the
//            address lies within 64 KiB of the stack pointer
//   SIGBUS   80000002 misaligned data (BUS_ADRALN); c0000006 page error
//            (a mapped file that shrank, no physical memory)
//   SIGILL   c0000096 privileged instruction (ILL_PRVOPC, ILL_PRVREG);
//            c000001d illegal instruction
//   SIGFPE   c0000094 integer divide by zero, c0000095 integer overflow,
//            c000008e float divide by zero, c0000091 float overflow,
//            c0000093 float underflow, c000008f inexact float result,
//            c000008c subscript out of range, c0000090 any other float fault
//   SIGABRT  40000015 fatal application exit (abort, uncaught C++ exception)
// `code` is the signal's si_code; one sent by a process (kill, raise) has a
// code of 0 or less and gets the signal's general code.
std::uint32_t faultCode(int signal, int code, bool nearStackPointer);

// Gives the calling thread an alternate signal stack for the fault handler,
// unless it has one as large; freed when the thread ends. Every thread the
// library starts calls it first.
void prepareThreadForFaults();

// From now on every thread that pthread_create starts is prepared as it
// starts (ThreadStart.cpp).
void prepareThreadsAsTheyStart();

}  // namespace dv::env::platform
