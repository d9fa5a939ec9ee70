#include "support/FreePort.h"

#include "support/RawSocket.h"

#include <atomic>
#include <stdexcept>

namespace vireotest {

std::uint16_t freePort() {
    constexpr unsigned long First = 20000;
    constexpr unsigned long Count = 10000;
    // Process ids of neighbours are close together; their ports are not.
    static std::atomic<unsigned long> next{currentProcessId() * 97};
    for (unsigned long i = 0; i < Count; ++i) {
        const auto port = static_cast<std::uint16_t>(First + next++ % Count);
        if (isPortFree(port)) {
            return port;
        }
    }
    throw std::runtime_error("no free port");
}

} // namespace vireotest
