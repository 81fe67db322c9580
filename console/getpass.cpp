#include "console/getpass.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>

#include "console/secret.h"
#include "console/signals.h"
#include "console/text.h"

namespace {

// Where the question goes and the answer comes from: the controlling terminal, or standard error
// and standard input. A terminal has no echo and no signal keys for as long as this object lives.
class Keyboard {
  public:
    Keyboard() : terminal_(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)) {
        if (tcgetattr(input(), &before_) != 0) {
            return;
        }
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ISIG);
        // The interrupt key ends a line, so that it is read at once.
        silent.c_cc[VEOL] = before_.c_cc[VINTR];
        is_silent_ = tcsetattr(input(), TCSAFLUSH, &silent) == 0;
    }
    ~Keyboard() {
        if (is_silent_) {
            // Half a password that nobody has read must not be seen by the next reader.
            tcsetattr(input(), line_ended_ ? TCSADRAIN : TCSAFLUSH, &before_);
        }
        if (terminal_ >= 0) {
            close(terminal_);
        }
    }
    Keyboard(const Keyboard&) = delete;
    Keyboard& operator=(const Keyboard&) = delete;

    void print(const char* text) const {
        write_all(terminal_ >= 0 ? terminal_ : STDERR_FILENO, text);
    }

    // False, with errno set, when nothing can be read or the wait is called off. A byte at a time,
    // since the rest of the input is somebody else's.
    bool read_line(Secret& line) {
        bool in_answer = true;
        char byte = '\0';
        ssize_t count = read_byte(byte);
        while (count == 1 && byte != '\n' && !is_interrupt_key(byte)) {
            in_answer = in_answer && byte != '\0';  // what follows a NUL byte is no part of it
            if (in_answer) {
                line.append({&byte, 1});
            }
            count = read_byte(byte);
        }
        line_ended_ = count == 1;
        if (line_ended_ && is_silent_) {
            print("\n");  // that of the line was not echoed
        }
        if (line_ended_ && byte != '\n') {
            errno = EINTR;
            return false;
        }
        return count >= 0;
    }

  private:
    [[nodiscard]] int input() const { return terminal_ >= 0 ? terminal_ : STDIN_FILENO; }

    [[nodiscard]] bool is_interrupt_key(char c) const {
        const cc_t key = before_.c_cc[VINTR];
        return is_silent_ && key != _POSIX_VDISABLE && static_cast<cc_t>(c) == key;
    }

    // Waits for a byte and reads it. Returns 0 at the end of input, -1 for an error or when the
    // session is to end: unlike a read, poll never starts again by itself after a signal.
    ssize_t read_byte(char& byte) const {
        while (!end_requested()) {
            pollfd ready = {input(), POLLIN, 0};
            const ssize_t count = poll(&ready, 1, -1) > 0 ? read(input(), &byte, 1) : -1;
            if (count >= 0 || (errno != EINTR && errno != EAGAIN)) {
                return count;
            }
        }
        errno = EINTR;
        return -1;
    }

    int terminal_;
    termios before_ = {};
    bool is_silent_ = false;
    bool line_ended_ = false;
};

}  // namespace

char* getpass(const char* prompt) {
    static Secret line;
    line.clear();
    Keyboard keyboard;
    keyboard.print(prompt);
    if (!keyboard.read_line(line)) {
        line.clear();
        return nullptr;
    }
    return line.data();
}
