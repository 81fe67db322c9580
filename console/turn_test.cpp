#include "console/turn.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include <gtest/gtest.h>

namespace {

// If set, the first attempt to take the lock raises this signal and fails, as if another session
// held the lock.
int signal_at_first_try = 0;

}  // namespace

extern "C" int flock(int descriptor, int operation) noexcept {
    if (signal_at_first_try != 0) {
        std::raise(signal_at_first_try);
        signal_at_first_try = 0;
        errno = EWOULDBLOCK;
        return -1;
    }
    return static_cast<int>(syscall(SYS_flock, descriptor, operation));
}

namespace {

void ignore(int /*signal*/) {}

TEST(Turn, SignalThatComesBetweenTwoPausesEndsTheWait) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const auto before = std::signal(signal, ignore);
        signal_at_first_try = signal;
        EXPECT_TRUE(Turn().called_off()) << signal;
        EXPECT_FALSE(Turn().called_off()) << signal << " still counts";
        std::signal(signal, before);
    }
}

}  // namespace
