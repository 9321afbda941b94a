// A quit asked while the program starts is held until the clean quit is in place, then taken.

#include <gtest/gtest.h>

#include <csignal>
#include <thread>

#include <pthread.h>
#include <unistd.h>

#include "platform/qt/QuitSignals.h"

namespace ambrel {
namespace {

volatile std::sig_atomic_t g_terminations = 0;

void countTermination(int) {
    g_terminations = g_terminations + 1;
}

bool blocksTermination() {
    sigset_t current;
    sigemptyset(&current);
    ::pthread_sigmask(SIG_BLOCK, nullptr, &current);
    return sigismember(&current, SIGTERM) == 1;
}

class HeldQuitSignalsTest : public ::testing::Test {
protected:
    void SetUp() override {
        g_terminations = 0;
        struct sigaction counting {};
        counting.sa_handler = countTermination;
        sigemptyset(&counting.sa_mask);
        ASSERT_EQ(::sigaction(SIGTERM, &counting, &m_previous), 0);
    }
    void TearDown() override { ::sigaction(SIGTERM, &m_previous, nullptr); }

    struct sigaction m_previous {};
};

TEST_F(HeldQuitSignalsTest, AQuitSentWhileHeldIsTakenOnRelease) {
    HeldQuitSignals held;
    EXPECT_TRUE(blocksTermination());
    ASSERT_EQ(::kill(::getpid(), SIGTERM), 0);
    EXPECT_EQ(g_terminations, 0) << "taken while held";
    held.release();
    EXPECT_EQ(g_terminations, 1) << "not taken on release";
    EXPECT_FALSE(blocksTermination());
}

TEST_F(HeldQuitSignalsTest, ThreadsStartedWhileHeldNeverTakeIt) {
    HeldQuitSignals held;
    bool threadBlocks = false;
    std::thread([&] { threadBlocks = blocksTermination(); }).join();
    EXPECT_TRUE(threadBlocks);
    held.release();
    EXPECT_FALSE(blocksTermination());
}

TEST_F(HeldQuitSignalsTest, GoingReleasesAndReleasingTwiceChangesNothing) {
    {
        HeldQuitSignals held;
        held.release();
        held.release();
        EXPECT_FALSE(blocksTermination());
    }
    {
        const HeldQuitSignals held;
        EXPECT_TRUE(blocksTermination());
    }
    EXPECT_FALSE(blocksTermination());
}

} // namespace
} // namespace ambrel
