#include "console/text.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

char* trim_blanks(char* text) {
    text += std::strspn(text, BLANKS);
    text[std::string_view(text).find_last_not_of(BLANKS) + 1] = '\0';  // npos + 1 is 0
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

// Bypasses the stream: text that is flushed at once needs no buffer.
void print_now(std::string_view text) {
    std::fflush(stdout);
    write_all(STDOUT_FILENO, text);
}

void write_all(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(file, text.data(), text.size());
        if (count > 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            return;
        }
    }
}
