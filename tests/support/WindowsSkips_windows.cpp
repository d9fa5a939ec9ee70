#include "platform/windows/WindowsHeaders.h"

#include <gtest/gtest.h>

#include <string_view>

// The tests that do not run on Windows. Each test program holds this list and reports those of its tests as skipped,
// with the reason. `./dev windows` shows the list and fails when a test of it doesn't exist.

namespace {

enum class Where {
    Windows, ///< nowhere on Windows
    Wine,    ///< not where Wine stands in for Windows
};

struct Skip {
    std::string_view test;
    Where where;
    const char* reason;
};

constexpr Skip Skips[] = {
    {"SocketPort.InterruptedCallsAreRepeated", Where::Windows,
     "socket calls are not interrupted: there are no signals"},
    {"PollSet.InterruptedWaitIsAWaitWithoutEvents", Where::Windows,
     "socket calls are not interrupted: there are no signals"},
    {"WebSocketPool.InterruptedPollDoesNotEndThePollThread", Where::Windows,
     "socket calls are not interrupted: there are no signals"},
    {"RequestExchange.ClientMayEndItsSendingAndStillReadsTheResponse", Where::Windows,
     "WSAPoll() reports the end of the client's sending as a hang-up, on which the engine closes"},
};

bool isWine() {
    const HMODULE library = GetModuleHandleW(L"ntdll.dll");
    return library != nullptr && GetProcAddress(library, "wine_get_version") != nullptr;
}

class SkipListed : public testing::EmptyTestEventListener {
private:
    void OnTestStart(const testing::TestInfo& info) override {
        const std::string name = std::string(info.test_suite_name()) + "." + info.name();
        for (const Skip& skip : Skips) {
            if (skip.test == name && (skip.where == Where::Windows || isWine())) {
                // Google Test doesn't run a test that is skipped when it would start.
                GTEST_SKIP() << skip.reason;
            }
        }
    }
};

const bool isInstalled = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new SkipListed);
    return true;
}();

} // namespace
