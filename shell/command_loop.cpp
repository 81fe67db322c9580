#include "shell/command_loop.h"

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

int queue_setting(const char* word) noexcept try {
    if (std::strlen(word) <= MAX_SETTING_LENGTH) {
        _gQueryString.emplace_back(word);
    }
    if (_gQueryString.size() > MAX_SETTINGS) {
        _gQueryString.pop_front();
    }
    return 0;
} catch (const std::bad_alloc&) {
    return refuse_for_memory();
}

}  // namespace

int dispatch_line(char* line) {
    char* word = line + std::strspn(line, BLANKS);
    char* rest = word + std::strcspn(word, BLANKS);
    if (*rest != '\0') {
        *rest++ = '\0';
    }
    const CommandEntry* command = lookup_command(word);
    if (command == nullptr) {
        return queue_setting(word);
    }
    return command->handler(rest + std::strspn(rest, BLANKS));
}

int run_command_loop() {
    while (!_gDoExit) {
        const LineBuffer line = read_line(PROMPT);
        if (!line) {
            if (called_off()) {
                continue;
            }
            break;
        }
        char* text = trim_blanks(line.get());
        if (*text != '\0') {
            remember_line(text);
            dispatch_line(text);
        }
    }
    return admin_logout();
}
