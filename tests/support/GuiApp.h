#pragma once

// A FOX application on a real display, for tests that drive real widgets.

#include <fx.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <thread>

namespace dv::env::test {

// Opens the display of DISPLAY (xvfb-run's) with an empty registry, so options
// start at their defaults, and a main window for widgets. Skips without a display.
class GuiApp : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::getenv("DISPLAY") == nullptr)
            GTEST_SKIP() << "no X display: run under xvfb-run";
        app = std::make_unique<FXApp>("DravikTest", "DravikTest");
        int argc = 1;
        char name[] = "dvenv2-test";
        char* argv[] = {name, nullptr};
        app->init(argc, argv);
        app->reg().clear();
        window = new FXMainWindow(app.get(), "dvenv2 test", nullptr, nullptr, DECOR_ALL, 0, 0, 480, 360);
        box = new FXVerticalFrame(window, LAYOUT_FILL_X | LAYOUT_FILL_Y);
    }

    // Runs the event loop, with GUI updates, until `done` holds; false if it
    // did not within ten seconds.
    bool runUntil(const std::function<bool()>& done) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        for (; !done(); std::this_thread::sleep_for(std::chrono::milliseconds(10))) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            app->runWhileEvents();
            app->refresh();
        }
        return true;
    }

    std::unique_ptr<FXApp> app;
    FXMainWindow* window = nullptr;
    FXVerticalFrame* box = nullptr;
};

}  // namespace dv::env::test
