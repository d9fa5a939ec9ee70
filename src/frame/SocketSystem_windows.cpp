#include "frame/SocketSystem.h"

#include <WindowsHeaders.h>

#include <atomic>

namespace ql::impl {
namespace {

/// Starts that succeeded and were not undone. The system counts for the whole process, so a cleanup too many would
/// take the sockets away from the application.
std::atomic<int> starts{0};

} // namespace

bool startSocketSystem() {
    WSADATA data{};
    if (WSAStartup(MAKEWORD(2, 2), &data) != 0) {
        return false;
    }
    starts.fetch_add(1);
    return true;
}

void stopSocketSystem() {
    int seen = starts.load();
    while (seen > 0) {
        if (starts.compare_exchange_weak(seen, seen - 1)) {
            WSACleanup();
            return;
        }
    }
}

} // namespace ql::impl
