#include "vireo/app.h"

#include <cstdint>

namespace vireotest {

void startWithOtherLayout(vireo::App& app, std::uint16_t port);

void startWithOtherLayout(vireo::App& app, std::uint16_t port) {
    const vireo::RunOptions options{.added = {}, .port = port, .quiet = true};
    app.start(options);
}

} // namespace vireotest
