#include "console/signals.h"

#include <unistd.h>

#include <csignal>
#include <ctime>
#include <initializer_list>

namespace {

volatile std::sig_atomic_t end_was_requested = 0;
volatile std::sig_atomic_t hang_up_was_passed_on = 0;
timer_t reminder;
bool has_reminder = false;

// A request that arrives just before a read would leave the read waiting for ever. So the request
// is repeated until the process ends.
constexpr long REMINDER_NANOSECONDS = 200'000'000;

void ignore_signal(int /*signal*/) {}

void request_end(int /*signal*/) {
    end_was_requested = 1;
    if (has_reminder) {
        const itimerspec every = {{0, REMINDER_NANOSECONDS}, {0, REMINDER_NANOSECONDS}};
        timer_settime(reminder, 0, &every, nullptr);
    }
}

// The kernel signals a lost terminal only to the session leader, which at the console is the shell.
// If the shell also leads its process group, it must tell its children; if not, the group's leader
// does.
void hang_up(int signal) {
    request_end(signal);
    if (hang_up_was_passed_on == 0 && getpgrp() == getpid()) {
        hang_up_was_passed_on = 1;  // kill signals this process, too
        kill(0, SIGHUP);
    }
}

}  // namespace

void install_signal_handlers() {
    struct sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGTERM;
    has_reminder = timer_create(CLOCK_MONOTONIC, &event, &reminder) == 0;

    // Handlers, not SIG_IGN: exec resets them to the default action. On Linux, signal lets
    // interrupted calls continue.
    for (const int signal : {SIGINT, SIGQUIT, SIGPIPE, SIGXFSZ}) {
        std::signal(signal, ignore_signal);
    }
    std::signal(SIGTERM, request_end);
    std::signal(SIGHUP, hang_up);
}

void ignore_hang_ups() {
    std::signal(SIGHUP, SIG_IGN);
}

bool end_requested() {
    return end_was_requested != 0;
}
