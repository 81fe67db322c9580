#include "console/turn.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <initializer_list>

namespace {

// The directory of the exchanged files. It always exists, and everybody may read it.
constexpr const char* SHARED_FOLDER = "/tmp";
constexpr timespec PAUSE = {0, 20'000'000};  // 20 ms
constexpr int MAX_PAUSES = 3000;

}  // namespace

// Polls, because a wait for the lock itself would resume after a signal. Signals are blocked
// between two pauses, so that none is lost. The back end's client inherits the lock: if its session
// is killed, the turn lasts until the client has ended.
Turn::Turn() {
    sigset_t held_back = {};
    sigset_t before = {};
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&held_back, signal);
    }
    sigprocmask(SIG_BLOCK, &held_back, &before);
    folder_ = open(SHARED_FOLDER, O_RDONLY | O_DIRECTORY);
    for (int pauses = 0; pauses < MAX_PAUSES && !called_off_; ++pauses) {
        if (flock(folder_, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) {
            break;
        }
        called_off_ = pselect(0, nullptr, nullptr, nullptr, &PAUSE, &before) != 0;
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
}

Turn::~Turn() {
    if (folder_ >= 0) {
        flock(folder_, LOCK_UN);  // even if a child still has it open
        close(folder_);
    }
}
