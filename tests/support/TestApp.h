#pragma once

// Fixtures shared by the unit tests.

#include <fx.h>

#include <iostream>
#include <memory>
#include <sstream>
#include <string>

namespace dv::env::test {

// Captures what is written to std::clog while it lives.
class ClogCapture {
public:
    ClogCapture() : previous(std::clog.rdbuf(captured.rdbuf())) {}
    ~ClogCapture() { std::clog.rdbuf(previous); }
    ClogCapture(const ClogCapture&) = delete;
    ClogCapture& operator=(const ClogCapture&) = delete;

    std::string text() const { return captured.str(); }
    void reset() { captured.str(""); }

private:
    std::ostringstream captured;
    std::streambuf* previous;
};

// A FOX application object that never opens a display, so its registry starts
// empty; one per test, as FOX allows only one at a time.
class WithApp {
protected:
    WithApp() : app(std::make_unique<FXApp>("DravikTest", "DravikTest")) {}
    FXRegistry& registry() { return app->reg(); }

    std::unique_ptr<FXApp> app;
};

}  // namespace dv::env::test
