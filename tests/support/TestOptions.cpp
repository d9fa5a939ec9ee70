#include "support/TestOptions.h"

#include <cstdlib>
#include <string_view>

namespace vireotest {

bool isEventMode() {
    const char* const waiting = std::getenv("VIREO_TEST_WAITING");
    return waiting != nullptr && std::string_view(waiting) == "event";
}

ql::http::ServerOptions optionsOfTests() {
    ql::http::ServerOptions options;
    if (isEventMode()) {
        options.setWaiting(ql::http::ServerOptions::Waiting::Event);
        // As where the engine polls.
        options.setEndOnClientClose(false);
    }
    return options;
}

} // namespace vireotest
