#include "config/config_text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "config/config_buffer.h"

namespace config_text {

namespace {

constexpr std::size_t SPARE_SIZE = 512;  // bytes
constexpr std::size_t NOWHERE = std::string_view::npos;

struct OpenFile {
    ~OpenFile() { close(descriptor); }
    const int descriptor;
};

// Runs on the first and last characters of every line: without inlining, looking up an extension
// takes a fifth longer.
[[gnu::always_inline]] inline bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && is_blank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && is_blank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

bool starts_with(std::string_view text, std::string_view start) {
    return text.size() >= start.size() && text.compare(0, start.size(), start) == 0;
}

bool ends_with(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

std::string without_line_feed(std::string mark) {
    if (ends_with(mark, "\n")) {
        mark.pop_back();
    }
    return mark;
}

// Reads to the end, not to the size reported: the file may be growing or report none.
int read_all(int file, std::string& text) {
    struct stat status = {};
    if (fstat(file, &status) != 0) {
        return errno;
    }
    if (!S_ISREG(status.st_mode)) {
        return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    }
    // Spare room, so that the read that meets the end needs no more.
    text.resize(static_cast<std::size_t>(status.st_size) + SPARE_SIZE);
    std::size_t length = 0;
    ssize_t count = 0;
    do {
        if (length == text.size()) {
            text.resize(2 * length);
        }
        count = read(file, &text[length], text.size() - length);
        length += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    } while (count > 0 || (count < 0 && errno == EINTR));
    text.resize(count < 0 ? 0 : length);
    return count < 0 ? errno : 0;
}

// Returns where a line next begins with word, after blanks, and the text from there on passes the
// test, or NOWHERE.
template <typename Test>
std::size_t find_line(std::string_view text, std::string_view word, Test passes) {
    for (std::size_t at = text.find(word); at != NOWHERE; at = text.find(word, at + 1)) {
        std::size_t start = at;
        while (start > 0 && is_blank(text[start - 1])) {
            --start;
        }
        if ((start == 0 || text[start - 1] == '\n') && passes(text.substr(at))) {
            return at;
        }
    }
    return NOWHERE;
}

// Returns true if the first line of rest opens a section; rest is then what follows the opening.
bool open_section(std::string_view& rest, const SectionSyntax& syntax, char comment,
                  std::string_view& header) {
    header = strip(take_line(rest, '\n'), comment);
    if (!starts_with(header, syntax.keyword)) {
        return false;
    }
    header.remove_prefix(syntax.keyword.size());
    if (!header.empty() && !is_blank(header.front()) && !starts_with(header, syntax.opening)) {
        return false;  // the keyword begins a longer word
    }
    if (ends_with(header, syntax.opening)) {
        header = trim(header.substr(0, header.size() - syntax.opening.size()));
        return true;
    }
    header = trim(header);
    std::string_view line;  // the next non-empty one
    while (line.empty() && !rest.empty()) {
        line = strip(take_line(rest, '\n'), comment);
    }
    return line == syntax.opening;
}

// Returns where the next section's opening begins, or NOWHERE. Sets the section's header, and its
// body to all that follows the opening.
std::size_t find_opening(std::string_view text, const SectionSyntax& syntax, char comment,
                         Section& section) {
    return find_line(text, syntax.keyword, [&](std::string_view rest) {
        section.body = rest;
        return open_section(section.body, syntax, comment, section.header);
    });
}

// Returns where the first line that is only the closing mark begins, or NOWHERE.
std::size_t find_closing(std::string_view text, const SectionSyntax& syntax, char comment) {
    return find_line(text, syntax.closing, [&](std::string_view rest) {
        return strip(take_line(rest, '\n'), comment) == syntax.closing;
    });
}

// Splits a stripped line at its first assignment character. Returns false if it has none.
bool split_entry(std::string_view line, char assignment, Entry& entry) {
    const std::size_t position = line.find(assignment);
    if (position == std::string_view::npos) {
        return false;
    }
    entry.key = trim(line.substr(0, position));
    line.remove_prefix(position + 1);
    entry.value = trim(line);
    return true;
}

}  // namespace

SectionSyntax::SectionSyntax(const char* keyword_word, const char* opening_mark,
                             const char* closing_mark)
    : keyword(keyword_word),
      opening(without_line_feed(opening_mark)),
      closing(without_line_feed(closing_mark)) {}

int read_file(const char* path, std::string& text) {
    text.clear();
    // Without O_NONBLOCK, opening a pipe without a writer would hang.
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        return errno;
    }
    const OpenFile file = {descriptor};
    return read_all(file.descriptor, text);
}

std::string_view take_line(std::string_view& rest, char end) {
    const std::string_view line = rest.substr(0, rest.find(end));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    return line;
}

std::string_view strip(std::string_view line, char comment) {
    line = trim(line);
    if (line.find(comment) == std::string_view::npos) {
        return line;
    }
    bool quoted = false;
    bool after_blank = true;  // the start of a line counts as one
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == comment && after_blank && !quoted) {
            return trim(line.substr(0, i));
        }
        quoted = quoted != (line[i] == '"');
        after_blank = is_blank(line[i]);
    }
    return line;
}

bool next_entry(std::string_view& rest, const EntrySyntax& syntax, Entry& entry) {
    while (!rest.empty()) {
        const std::string_view line = strip(take_line(rest, syntax.end), syntax.comment);
        if (split_entry(line, syntax.assignment, entry)) {
            return true;
        }
    }
    return false;
}

std::string find_value(std::string_view text, std::string_view key, const EntrySyntax& syntax) {
    Entry entry;
    while (next_entry(text, syntax, entry)) {
        if (entry.key == key) {
            return std::string(entry.value);
        }
    }
    return ConfigBuffer::ENTRY_NOT_FOUND;
}

bool next_section(std::string_view& rest, const SectionSyntax& syntax, char comment,
                  Section& section) {
    if (find_opening(rest, syntax, comment, section) == NOWHERE) {
        section = {};
        return false;
    }
    Section next;
    rest = section.body;
    section.body = rest.substr(0, find_opening(rest, syntax, comment, next));
    rest.remove_prefix(section.body.size());
    section.body = section.body.substr(0, find_closing(section.body, syntax, comment));
    return true;
}

}  // namespace config_text
