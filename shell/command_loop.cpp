#include "shell/command_loop.h"

#include <cstddef>
#include <cstring>
#include <new>

#include "console/line_editor.h"
#include "console/state.h"
#include "console/text.h"
#include "session/logout.h"
#include "shell/command_table.h"

namespace {

constexpr std::size_t MAX_SETTING_LENGTH = 256;  // bytes
constexpr std::size_t MAX_SETTINGS = 100;

void queue_setting(const char* word) {
    if (std::strlen(word) > MAX_SETTING_LENGTH) {
        return;
    }
    _gQueryString.emplace_back(word);
    if (_gQueryString.size() > MAX_SETTINGS) {
        _gQueryString.pop_front();
    }
}

void handle_line(char* line) {
    char* trimmed = trim_blanks(line);
    if (*trimmed != '\0') {
        remember_line(trimmed);
        dispatch_line(trimmed);
    }
}

}  // namespace

int dispatch_line(char* line) {
    char* word = line + std::strspn(line, " \t");
    char* rest = word + std::strcspn(word, " \t");
    if (*rest != '\0') {
        *rest++ = '\0';
    }
    const CommandEntry* command = lookup_command(word);
    if (command != nullptr) {
        return command->handler(rest + std::strspn(rest, " \t"));
    }
    try {
        queue_setting(word);
        return 0;
    } catch (const std::bad_alloc&) {
        return refuse_for_memory();
    }
}

int run_command_loop() {
    while (!_gDoExit) {
        const LineBuffer line = read_line(PROMPT);
        if (line) {
            handle_line(line.get());
        } else if (!called_off()) {
            break;
        }
    }
    return admin_logout();
}
