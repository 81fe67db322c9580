#include "console/turn.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace {

// The folder of those files: it always exists, and everybody may read it.
constexpr const char* SHARED_FOLDER = "/tmp";
constexpr timespec PAUSE = {0, 20'000'000};  // 20 ms
constexpr int MAX_PAUSES = 3000;

}  // namespace

// In pauses, because a wait for the lock itself would go on after a signal. The back end's client
// inherits the lock: when its session is killed, the turn lasts until the client has ended, too.
Turn::Turn() : folder_(open(SHARED_FOLDER, O_RDONLY | O_DIRECTORY)) {
    for (int pauses = 0; pauses < MAX_PAUSES; ++pauses) {
        if (flock(folder_, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) {
            return;
        }
        if (nanosleep(&PAUSE, nullptr) != 0) {
            called_off_ = true;
            return;
        }
    }
}

Turn::~Turn() {
    if (folder_ >= 0) {
        flock(folder_, LOCK_UN);  // whoever else has it open
        close(folder_);
    }
}
