#include "console/signals.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "console/line_editor.h"
#include "tests/unit/outside.h"

namespace {

// Signals are raised in a child of the test, which reports by its exit status and has a time limit.
void expect_in_child(bool (*holds)()) {
    EXPECT_EXIT(
        {
            alarm(20);
            std::_Exit(holds() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

class SignalsTest : public OutsideTest {};

TEST_F(SignalsTest, HangUpAndTerminationEndTheSession) {
    expect_in_child([] {
        install_signal_handlers();
        return !end_requested() && raise(SIGTERM) == 0 && end_requested();
    });
    expect_in_child([] {
        install_signal_handlers();
        return raise(SIGHUP) == 0 && end_requested();
    });
}

TEST_F(SignalsTest, KeysAndFailedWritesDoNotEndTheSession) {
    expect_in_child([] {
        install_signal_handlers();
        raise(SIGINT);
        raise(SIGQUIT);
        raise(SIGPIPE);
        raise(SIGXFSZ);
        return !end_requested();
    });
}

TEST_F(SignalsTest, ChildrenHaveTheDefaultActionEvenOfSignalsInheritedAsIgnored) {
    expect_in_child([] {
        for (const int signal : {SIGINT, SIGQUIT, SIGPIPE, SIGXFSZ, SIGHUP, SIGTERM}) {
            std::signal(signal, SIG_IGN);
        }
        install_signal_handlers();
        // exec resets a handler to the default action.
        for (const int signal : {SIGINT, SIGQUIT, SIGPIPE, SIGXFSZ, SIGHUP, SIGTERM}) {
            struct sigaction action = {};
            sigaction(signal, nullptr, &action);
            if (action.sa_handler == SIG_IGN || action.sa_handler == SIG_DFL) {
                return false;
            }
        }
        return true;
    });
}

TEST_F(SignalsTest, NothingIsAskedAfterARequestToEnd) {
    expect_in_child([] {
        install_signal_handlers();
        raise(SIGTERM);
        outside.lines = {"typed"};
        outside.passwords = {"typed"};
        return !read_line("") && !read_password("") && outside.prompts.empty();
    });
}

TEST_F(SignalsTest, HalfTypedAnswerIsDroppedAtARequestToEnd) {
    for (const auto& asks : {+[] { return read_line("") != nullptr; },
                             +[] { return read_password("").has_value(); }}) {
        outside.lines = {"half a line"};
        outside.passwords = {"half a password"};
        outside.while_typing = [] { raise(SIGTERM); };
        EXPECT_EXIT(
            {
                install_signal_handlers();
                std::_Exit(asks() ? 1 : 0);
            },
            testing::ExitedWithCode(0), "");
    }
}

// Even a request that comes before a wait interrupts it, and the next one, since it is repeated.
TEST_F(SignalsTest, RequestToEndInterruptsEveryWait) {
    expect_in_child([] {
        install_signal_handlers();
        raise(SIGTERM);
        const auto is_interrupted = [] { return poll(nullptr, 0, -1) == -1 && errno == EINTR; };
        return is_interrupted() && is_interrupted();
    });
}

TEST_F(SignalsTest, ReadsAreRestarted) {
    expect_in_child([] {
        install_signal_handlers();
        for (const int signal : {SIGINT, SIGQUIT, SIGHUP, SIGTERM}) {
            struct sigaction action = {};
            sigaction(signal, nullptr, &action);
            if ((action.sa_flags & SA_RESTART) == 0) {
                return false;
            }
        }
        return true;
    });
}

}  // namespace
