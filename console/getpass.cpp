// Reads passwords from the keyboard. Replaces the C library's function of the same name: one
// library leaves copies of the input in freed memory, another fails without a controlling terminal
// and truncates long passwords.

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
// and standard input. While this object lives, the terminal has no echo and no signal keys.
class Keyboard {
  public:
    Keyboard() : terminal_(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)) {
        if (tcgetattr(input(), &before_) != 0) {
            return;
        }
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ISIG);
        // The interrupt key ends a line, so it is read at once.
        silent.c_cc[VEOL] = before_.c_cc[VINTR];
        is_silent_ = tcsetattr(input(), TCSAFLUSH, &silent) == 0;
    }
    ~Keyboard() {
        if (is_silent_) {
            // The next reader must not see half a password that nobody has read.
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

    // Returns false with errno set on an error, the interrupt key or a request to end the session.
    // Reads a byte at a time: the rest of the input belongs to later readers.
    bool read_line(Secret& line) {
        bool in_answer = true;
        char byte = '\0';
        ssize_t count = read_byte(byte);
        while (count == 1 && byte != '\n' && !is_interrupt_key(byte)) {
            in_answer = in_answer && byte != '\0';  // nothing after a NUL byte counts
            if (in_answer) {
                line.append({&byte, 1});
            }
            count = read_byte(byte);
        }
        line_ended_ = count == 1;
        if (line_ended_ && is_silent_) {
            print("\n");  // the line's own was not echoed
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

    // Waits for a byte and reads it. Returns 0 at the end of input, -1 on an error or a request to
    // end the session: poll, unlike read, is never restarted after a signal.
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

// Writes the prompt to the controlling terminal and reads a line from it without echo or signal
// keys, discarding what was typed before the prompt. Without such a terminal, uses standard error
// and standard input. Returns the line without its line feed, empty at the end of input, in
// storage that the next call overwrites and the caller should wipe. Returns null with errno set if
// nothing can be read; errno is EINTR after the interrupt key or a request to end the session.
// Always restores the terminal's settings.
extern "C" char* getpass(const char* prompt) {
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
