#pragma once

// How portable code reaches the system. Each service of the platform seam is
// an abstract class in this folder, with one instance per process: the one
// the backend of the platform folder (linux/, ...) defines. Portable code asks
// for the current instance, `service<Files>()` or its short form `files()`;
// tests and fuzzers put their own in its place for a scope with
// `StandIn<Files>`. There is no other way in or out.
//
// The current instance is read with one atomic load, so that the fault
// handler may ask for it too. A service's destructor is protected and not
// virtual: nothing is deleted through a service, and the backend's instances
// are never destroyed, so a fault while the process exits still finds them.

#include <atomic>

namespace dv::env::platform {

// The backend's instance of `Service`. Each backend defines one explicit
// specialisation per service, declared beside the service's class.
template <class Service>
Service& systemService();

template <class Service>
inline std::atomic<Service*> standInFor{nullptr};

template <class Service>
Service& service() {
    Service* const standIn = standInFor<Service>.load(std::memory_order_acquire);
    return standIn ? *standIn : systemService<Service>();
}

// Puts `replacement` in the place of the current instance until it goes out
// of scope; stand-ins nest. Replacing is process-wide: a test that stands in
// must not overlap another thread's use of the service.
template <class Service>
class StandIn {
public:
    explicit StandIn(Service& replacement)
        : previous(standInFor<Service>.exchange(&replacement, std::memory_order_acq_rel)) {}
    ~StandIn() { standInFor<Service>.store(previous, std::memory_order_release); }
    StandIn(const StandIn&) = delete;
    StandIn& operator=(const StandIn&) = delete;

private:
    Service* previous;
};

}  // namespace dv::env::platform
