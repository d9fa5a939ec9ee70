#include "vireo/support/qlThread.h"

#include "support/TestLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <pthread.h>

namespace {

/// Ends as a thread of the system may, in the midst of its body.
class ExitingThread : public qlThread {
public:
    ~ExitingThread() override { waitThread(NoTimeLimit); }

    bool wasUnwound = false;

protected:
    void run() override {
        struct Guard {
            ExitingThread& thread;

            ~Guard() { thread.wasUnwound = true; }
        };
        const Guard guard{*this};
        pthread_exit(nullptr);
    }
};

TEST(qlThread, BodyMayExitItsThread) {
    const vireotest::TestLog log;
    ExitingThread thread;
    for (int i = 0; i < 2; ++i) {
        thread.wasUnwound = false;
        thread.startThread(nullptr);
        EXPECT_TRUE(thread.waitThread(qlThread::NoTimeLimit));
        EXPECT_TRUE(thread.wasUnwound);
    }
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}

} // namespace
