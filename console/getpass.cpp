#include "console/getpass.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "console/secret.h"
#include "console/signals.h"

namespace {

// Where the question goes and the answer comes from.
class Keyboard {
  public:
    Keyboard() : terminal_(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)) {}
    ~Keyboard() {
        if (terminal_ >= 0) {
            close(terminal_);
        }
    }
    Keyboard(const Keyboard&) = delete;
    Keyboard& operator=(const Keyboard&) = delete;

    [[nodiscard]] int input() const { return terminal_ >= 0 ? terminal_ : STDIN_FILENO; }
    void print(const char* text) const {
        const int output = terminal_ >= 0 ? terminal_ : STDERR_FILENO;
        while (*text != '\0') {
            const ssize_t count = write(output, text, std::strlen(text));
            if (count > 0) {
                text += count;
            } else if (count == 0 || errno != EINTR) {
                return;
            }
        }
    }

  private:
    int terminal_;
};

// A terminal without echo and signal keys, for as long as this object lives. Does nothing to
// input that is no terminal.
class SilentTerminal {
  public:
    explicit SilentTerminal(int terminal) : terminal_(terminal) {
        if (tcgetattr(terminal, &before_) != 0) {
            return;
        }
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ISIG);
        // The interrupt key ends a line, so that it is read at once.
        silent.c_cc[VEOL] = before_.c_cc[VINTR];
        changed_ = tcsetattr(terminal, TCSAFLUSH, &silent) == 0;
    }
    ~SilentTerminal() {
        if (changed_) {
            // Half a password that nobody has read must not be seen by the next reader.
            tcsetattr(terminal_, line_ended_ ? TCSADRAIN : TCSAFLUSH, &before_);
        }
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

    void note_line_end() { line_ended_ = changed_; }
    [[nodiscard]] bool line_ended() const { return line_ended_; }
    [[nodiscard]] bool is_interrupt_key(char c) const {
        const cc_t key = before_.c_cc[VINTR];
        return changed_ && key != _POSIX_VDISABLE && static_cast<cc_t>(c) == key;
    }

  private:
    int terminal_;
    termios before_ = {};
    bool changed_ = false;
    bool line_ended_ = false;
};

// Waits for a byte and reads it. Returns 0 at the end of input, -1 for an error or when the session
// is to end: unlike a read, poll never starts again by itself after a signal.
ssize_t read_byte(int input, char& byte) {
    for (;;) {
        pollfd ready = {input, POLLIN, 0};
        if (end_requested()) {
            errno = EINTR;
            return -1;
        }
        if (poll(&ready, 1, -1) > 0) {
            const ssize_t count = read(input, &byte, 1);
            if (count >= 0 || (errno != EINTR && errno != EAGAIN)) {
                return count;
            }
        } else if (errno != EINTR) {
            return -1;
        }
    }
}

// False when the wait was called off. A byte at a time, since the rest of the input is somebody
// else's. What follows a NUL byte is no part of the answer.
bool read_line_into(Secret& line, int input, SilentTerminal& terminal) {
    bool complete = false;
    char byte = '\0';
    ssize_t count = read_byte(input, byte);
    while (count == 1 && byte != '\n' && !terminal.is_interrupt_key(byte)) {
        complete = complete || byte == '\0';
        if (!complete) {
            line.append({&byte, 1});
        }
        count = read_byte(input, byte);
    }
    if (count == 1) {
        terminal.note_line_end();
    }
    const bool interrupted = count == 1 && byte != '\n';
    explicit_bzero(&byte, 1);
    if (interrupted) {
        errno = EINTR;
    }
    return !interrupted && (count >= 0 || errno != EINTR);
}

}  // namespace

char* getpass(const char* prompt) {
    static Secret line;
    line.clear();
    const Keyboard keyboard;
    SilentTerminal terminal(keyboard.input());
    keyboard.print(prompt);
    const bool answered = read_line_into(line, keyboard.input(), terminal);
    const int error = errno;
    if (terminal.line_ended()) {  // its line feed was not echoed
        keyboard.print("\n");
    }
    if (!answered) {
        line.clear();
    }
    errno = error;
    return answered ? line.data() : nullptr;
}
