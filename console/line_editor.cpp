#include "console/line_editor.h"

#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <readline/history.h>
#include <readline/readline.h>
#include <readline/tilde.h>

#include "console/signals.h"
#include "console/text.h"

namespace {

constexpr int NO_KEY = -100;  // never returned by rl_getc
constexpr int EMACS_MODE = 1;
constexpr int MIN_SCREEN_WIDTH = 4;
// Sent by some terminals around pasted text, in the editor's key notation.
constexpr const char* PASTE_MARKS[] = {"\\e[200~", "\\e[201~"};

bool input_is_terminal = false;
int interrupt_key = NO_KEY;  // the terminal's; see prepare_terminal
bool line_was_dropped = false;

// The interrupt key is read like any other: the editor's own signal handling would keep the line
// and lose keys typed ahead.
int read_key(std::FILE* stream) {
    if (!line_was_dropped) {
        const int key = rl_getc(stream);
        if (key != interrupt_key) {
            return key;
        }
        line_was_dropped = true;
        rl_point = rl_end;
        rl_redisplay_function();
        rl_echo_signal_char(SIGINT);
    }
    // EOF ends a command that waits for more keys, READERR then ends the line.
    return RL_ISSTATE(RL_STATE_READCMD) != 0 ? READERR : EOF;
}

// Some vi-mode commands never end on a line with invalid characters.
void leave_vi_mode() {
    if (rl_editing_mode != EMACS_MODE) {
        rl_variable_bind("editing-mode", "emacs");
    }
}

// The editor divides by a third of the width.
void widen_screen() {
    int rows = 0;
    int columns = 0;
    rl_get_screen_size(&rows, &columns);
    if (columns < MIN_SCREEN_WIDTH) {
        rl_set_screen_size(rows, MIN_SCREEN_WIDTH);
    }
}

// Called between any two editor commands.
void redisplay() {
    // History lines and the current line share undo lists, and the editor may free one twice. So no
    // list outlives the command that made it.
    rl_free_undo_list();
    leave_vi_mode();
    widen_screen();
    rl_redisplay();
}

// Not earlier: on a terminal without echo, the editor shows the first prompt only with its own
// redisplay function.
int start_editing() {
    rl_redisplay_function = redisplay;
    return 0;
}

// Called each time the editor takes the terminal: it may have read its start-up file since.
void prepare_terminal(int meta_flag) {
    leave_vi_mode();
    rl_variable_bind("enable-bracketed-paste", "off");
    for (const char* mark : PASTE_MARKS) {  // another program may have turned them on
        rl_bind_keyseq(mark, [](int, int) { return 0; });
    }
    rl_prep_terminal(meta_flag);
    termios modes = {};
    if (tcgetattr(STDIN_FILENO, &modes) == 0 && modes.c_cc[VINTR] != _POSIX_VDISABLE) {
        interrupt_key = modes.c_cc[VINTR];
        modes.c_cc[VINTR] = _POSIX_VDISABLE;
        tcsetattr(STDIN_FILENO, TCSADRAIN, &modes);
    }
}

// Keeps ~name as typed: its expansion would tell whether the account exists.
char* keep_tilde(char* name) {
    return strdup(("~" + std::string(name)).c_str());
}

// When a terminal hangs up, the editor returns what was typed so far, and half a command must not
// run. The kernel may not have signalled this process.
bool session_is_over() {
    if (input_is_terminal && isatty(STDIN_FILENO) == 0 && !end_requested()) {
        std::raise(SIGHUP);
    }
    return end_requested();
}

}  // namespace

void protect_line_editor() {
    input_is_terminal = isatty(STDIN_FILENO) != 0;
    rl_getc_function = read_key;
    rl_prep_term_function = prepare_terminal;
    rl_pre_input_hook = start_editing;
    tilde_expansion_preexpansion_hook = keep_tilde;
}

void init_line_editor() {
    // Discards keyboard macros, which may hold what was typed before the login.
    rl_redisplay_function = [] {};
    rl_free_line_state();
    tilde_expansion_preexpansion_hook = nullptr;
    rl_readline_name = PROMPT;
    rl_attempted_completion_function = tessel_completion;
}

LineBuffer read_line(const char* prompt) {
    line_was_dropped = false;
    if (end_requested()) {
        return nullptr;
    }
    rl_redisplay_function = rl_redisplay;
    LineBuffer line(readline(prompt));
    if (session_is_over()) {
        return nullptr;
    }
    if (line_was_dropped) {
        print_now("\n");
        return nullptr;
    }
    return line;
}

bool called_off() {
    return line_was_dropped && !end_requested();
}

std::optional<Secret> read_password(const char* prompt) {
    std::fflush(stdout);
    line_was_dropped = false;
    if (end_requested()) {
        return std::nullopt;
    }
    errno = 0;
    char* typed = getpass(prompt);
    line_was_dropped = typed == nullptr && errno == EINTR;
    std::optional<Secret> password;
    if (typed != nullptr) {
        password.emplace(typed);
        explicit_bzero(typed, std::strlen(typed));
    }
    if (session_is_over()) {
        password.reset();
    }
    return password;
}

void remember_line(const char* line) {
    add_history(line);
}

char** tessel_completion(const char* /*text*/, int /*start*/, int /*end*/) {
    return nullptr;
}
