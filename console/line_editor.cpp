#include "console/line_editor.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>

#include <readline/history.h>
#include <readline/readline.h>

#include "console/signals.h"

namespace {

bool input_is_terminal = false;

// True when the session is to end. A terminal that hangs up makes the editor return what was typed
// so far, and half a command must not run; the kernel need not have told this process of it.
bool session_is_over() {
    if (input_is_terminal && isatty(STDIN_FILENO) == 0 && !end_requested()) {
        std::raise(SIGHUP);
    }
    return end_requested();
}

}  // namespace

void prepare_streams() {
    input_is_terminal = isatty(STDIN_FILENO) != 0;
    std::setvbuf(stdin, nullptr, _IONBF, 0);
    std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
}

void init_line_editor() {
    rl_readline_name = PROMPT;
    rl_attempted_completion_function = tessel_completion;
}

LineBuffer read_line(const char* prompt) {
    if (end_requested()) {
        return nullptr;
    }
    LineBuffer line(readline(prompt));
    if (session_is_over()) {
        return nullptr;
    }
    return line;
}

std::optional<std::string> read_answer(const char* prompt) {
    const LineBuffer line = read_line(prompt);
    if (!line) {
        return std::nullopt;
    }
    return line.get();
}

std::optional<Secret> read_password(const char* prompt) {
    std::fflush(stdout);
    const InterruptibleReads interruptible;
    if (end_requested()) {
        return std::nullopt;
    }
    char* typed = getpass(prompt);
    if (typed == nullptr) {
        return std::nullopt;
    }
    Secret password(typed);
    explicit_bzero(typed, std::strlen(typed));
    if (session_is_over()) {
        return std::nullopt;
    }
    return password;
}

void remember_line(const char* line) {
    add_history(line);
}

char** tessel_completion(const char* /*text*/, int /*start*/, int /*end*/) {
    return nullptr;
}
