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

// A request can arrive just before a read starts to wait, which would then wait for ever. So the
// request repeats itself until the process has gone.
constexpr long REMINDER_NANOSECONDS = 200'000'000;

void ignore_signal(int /*signal*/) {}

void request_end(int /*signal*/) {
    if (end_was_requested != 0) {
        return;
    }
    end_was_requested = 1;
    if (has_reminder) {
        const itimerspec every = {{0, REMINDER_NANOSECONDS}, {0, REMINDER_NANOSECONDS}};
        timer_settime(reminder, 0, &every, nullptr);
    }
}

// The kernel tells only a session's first process of a lost terminal, which at the console is the
// shell. Its children are in its process group, if it leads one; if not, the leader sees to them.
void hang_up(int signal) {
    request_end(signal);
    if (hang_up_was_passed_on == 0 && getpgrp() == getpid()) {
        hang_up_was_passed_on = 1;  // this process is told again, too
        kill(0, SIGHUP);
    }
}

void handle(int signal, void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

}  // namespace

void install_signal_handlers() {
    struct sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGTERM;
    has_reminder = timer_create(CLOCK_MONOTONIC, &event, &reminder) == 0;

    // Handlers, not SIG_IGN: a handler is reset to the default action in children.
    for (const int signal : {SIGINT, SIGQUIT, SIGPIPE, SIGXFSZ}) {
        handle(signal, ignore_signal);
    }
    handle(SIGTERM, request_end);
    handle(SIGHUP, hang_up);
}

void ignore_hang_ups() {
    handle(SIGHUP, SIG_IGN);
}

bool end_requested() {
    return end_was_requested != 0;
}
