#include "console/text.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

}  // namespace

char* trim_blanks(char* text) {
    while (is_blank(*text)) {
        ++text;
    }
    if (*text == '\0') {
        return text;
    }
    char* last = text + std::strlen(text) - 1;
    while (last > text && is_blank(*last)) {
        --last;
    }
    last[1] = '\0';
    return text;
}

std::string make_error_message(const std::string& message) {
    return "ERROR: " + message;
}

int refuse_for_memory() {
    print_now("ERROR: Out of memory\n");
    return -1;
}

void print(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

// Past the stream, whose buffer would only be filled to be emptied: a long listing is thousands of
// these.
void print_now(std::string_view text) {
    std::fflush(stdout);
    while (!text.empty()) {
        const ssize_t count = write(STDOUT_FILENO, text.data(), text.size());
        if (count > 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            return;
        }
    }
}
