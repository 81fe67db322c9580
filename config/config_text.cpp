#include "config/config_text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace config_text {

namespace {

constexpr std::size_t SPARE_SIZE = 512;  // bytes

class FileDescriptor {
  public:
    explicit FileDescriptor(int number) : number_(number) {}
    ~FileDescriptor() {
        if (number_ >= 0) {
            close(number_);
        }
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    [[nodiscard]] int number() const { return number_; }

  private:
    int number_;
};

// Called several times for every line of a file: inlined it saves a tenth of the instructions of a
// look-up among 10,000 extensions.
[[gnu::always_inline]] inline bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

std::string_view trim(std::string_view text) {
    const char* first = text.data();
    std::size_t size = text.size();
    while (size > 0 && is_blank(*first)) {
        ++first;
        --size;
    }
    while (size > 0 && is_blank(first[size - 1])) {
        --size;
    }
    return {first, size};
}

// Most lines differ from what is looked for in their first character, so that one goes first.
bool starts_with(std::string_view text, std::string_view start) {
    return text.size() >= start.size() && (start.empty() || text.front() == start.front()) &&
           text.compare(0, start.size(), start) == 0;
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

// Reads to the end rather than to the size the file claims: it may be growing, or have no size.
int read_all(int file, std::string& text) {
    std::size_t length = 0;
    for (;;) {
        if (length == text.size()) {
            text.resize(2 * length);
        }
        const ssize_t count = read(file, &text[length], text.size() - length);
        if (count == 0) {
            text.resize(length);
            return 0;
        }
        if (count > 0) {
            length += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            return errno;
        }
    }
}

// Steps over empty lines and then over a line that is the opening mark and nothing else.
bool skip_opening(std::string_view& rest, const SectionSyntax& sections, char comment) {
    std::string_view ahead = rest;
    while (!ahead.empty()) {
        const std::string_view line = strip(take_line(ahead, '\n'), comment);
        if (line == sections.opening) {
            rest = ahead;
            return true;
        }
        if (!line.empty()) {
            return false;
        }
    }
    return false;
}

// True when the trimmed line opens a section; rest, which follows the line, then stands on the
// section's first line.
bool open_section(std::string_view line, std::string_view& rest, const SectionSyntax& sections,
                  char comment, std::string_view& header) {
    if (!starts_with(line, sections.keyword)) {
        return false;
    }
    header = strip(line, comment).substr(sections.keyword.size());
    if (!header.empty() && !is_blank(header.front()) && !starts_with(header, sections.opening)) {
        return false;  // a longer word
    }
    if (ends_with(header, sections.opening)) {
        header.remove_suffix(sections.opening.size());
    } else if (!skip_opening(rest, sections, comment)) {
        return false;
    }
    header = trim(header);
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
    // Without O_NONBLOCK the opening of a pipe without a writer would hang.
    const FileDescriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status = {};
    if (file.number() < 0 || fstat(file.number(), &status) != 0) {
        return errno;
    }
    if (!S_ISREG(status.st_mode)) {
        return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    }
    // More than the size, so that the read that meets the end needs no more room.
    text.resize(static_cast<std::size_t>(status.st_size) + SPARE_SIZE);
    const int error = read_all(file.number(), text);
    if (error != 0) {
        text.clear();
    }
    return error;
}

std::string_view take_line(std::string_view& rest, char end) {
    const std::size_t length = std::min(rest.find(end), rest.size());
    const std::string_view line = rest.substr(0, length);
    rest.remove_prefix(std::min(length + 1, rest.size()));
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

bool next_entry(std::string_view& rest, const EntrySyntax& syntax, Entry& entry) {
    while (!rest.empty()) {
        const std::string_view line = strip(take_line(rest, syntax.end), syntax.comment);
        if (split_entry(line, syntax.assignment, entry)) {
            return true;
        }
    }
    return false;
}

bool find_entry(std::string_view text, std::string_view key, const EntrySyntax& syntax,
                Entry& entry) {
    while (!text.empty()) {
        const std::string_view line = trim(take_line(text, syntax.end));
        if (starts_with(line, key) &&
            split_entry(strip(line, syntax.comment), syntax.assignment, entry) &&
            entry.key == key) {
            return true;
        }
    }
    return false;
}

SectionCursor::SectionCursor(std::string_view text, const SectionSyntax& sections, char comment)
    : rest_(text), sections_(&sections), comment_(comment) {}

bool SectionCursor::next(Section& section) {
    while (!rest_.empty()) {
        const std::string_view line = trim(take_line(rest_, '\n'));
        std::string_view header;
        if (open_section(line, rest_, *sections_, comment_, header)) {
            section = {header, take_body()};
            return true;
        }
    }
    return false;
}

// The text up to the closing mark, to the next section's opening or to the end.
std::string_view SectionCursor::take_body() {
    const std::string_view body = rest_;
    while (!rest_.empty()) {
        const std::string_view before = rest_;
        const std::string_view line = trim(take_line(rest_, '\n'));
        std::string_view header;
        std::string_view ahead = rest_;
        if (open_section(line, ahead, *sections_, comment_, header)) {
            rest_ = before;
            return body.substr(0, body.size() - before.size());
        }
        if (starts_with(line, sections_->closing) && strip(line, comment_) == sections_->closing) {
            return body.substr(0, body.size() - before.size());
        }
    }
    return body;
}

}  // namespace config_text
