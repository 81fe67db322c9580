#include "config/config_text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "config/config_buffer.h"

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

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

std::string_view trim_start(std::string_view text) {
    while (!text.empty() && is_blank(text.front())) {
        text.remove_prefix(1);
    }
    return text;
}

std::string_view trim_end(std::string_view text) {
    while (!text.empty() && is_blank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

// Most lines differ from what is looked for in their first character, so that one goes first.
bool starts_with(std::string_view text, std::string_view start) {
    return start.empty() || (!text.empty() && text.front() == start.front() &&
                             text.substr(0, start.size()) == start);
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

void grow(FileText& text, std::size_t capacity) {
    std::unique_ptr<char[]> bytes(new char[capacity]);  // not cleared: it is about to be read into
    std::copy_n(text.bytes.get(), text.size, bytes.get());
    text.bytes = std::move(bytes);
}

// Reads to the end rather than to the size the file claims: it may be growing, or have no size.
int read_all(int file, std::size_t capacity, FileText& text) {
    for (;;) {
        grow(text, capacity);
        while (text.size < capacity) {
            const ssize_t count = read(file, &text.bytes[text.size], capacity - text.size);
            if (count == 0) {
                return 0;
            }
            if (count > 0) {
                text.size += static_cast<std::size_t>(count);
            } else if (errno != EINTR) {
                return errno;
            }
        }
        capacity *= 2;
    }
}

// The header, when the line, which begins with the keyword, has it as a whole word.
bool take_keyword(std::string_view line, const SectionSyntax& sections, char comment,
                  std::string_view& header) {
    header = strip(line, comment).substr(sections.keyword.size());
    return header.empty() || is_blank(header.front()) || starts_with(header, sections.opening);
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

// True when the line, which begins with the keyword, opens a section; rest then stands on the
// section's first line.
bool open_section(std::string_view line, std::string_view& rest, const SectionSyntax& sections,
                  char comment, std::string_view& header) {
    if (!take_keyword(line, sections, comment, header)) {
        return false;
    }
    if (ends_with(header, sections.opening)) {
        header.remove_suffix(sections.opening.size());
    } else if (!skip_opening(rest, sections, comment)) {
        return false;
    }
    header = trim_start(trim_end(header));
    return true;
}

// Where, at or behind from, a line begins with that word, blanks aside: the word's position.
std::size_t find_line(std::string_view text, std::string_view word, std::size_t from) {
    for (;;) {
        // Not find_text, whose tables cost more than they save in a short text.
        const std::size_t position = text.find(word, from);
        if (position == std::string_view::npos) {
            return position;
        }
        const std::string_view before = trim_end(text.substr(0, position));
        if (before.empty() || before.back() == '\n') {
            return position;
        }
        from = position + 1;
    }
}

}  // namespace

SectionSyntax::SectionSyntax(const char* keyword_word, const char* opening_mark,
                             const char* closing_mark)
    : keyword(keyword_word),
      opening(without_line_feed(opening_mark)),
      closing(without_line_feed(closing_mark)) {}

int read_file(const char* path, FileText& text) {
    text = FileText();
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
    const auto size = static_cast<std::size_t>(status.st_size);
    const int error = read_all(file.number(), size + SPARE_SIZE, text);
    if (error != 0) {
        text = FileText();
    }
    return error;
}

std::size_t find_text(std::string_view text, std::string_view part, std::size_t from) {
    if (text.size() < from + part.size() || text.empty()) {
        return std::string_view::npos;
    }
    if (part.size() == 1) {
        return text.find(part.front(), from);
    }
    // Several times faster than the string's own search where the first character is frequent.
    const void* found = memmem(text.data() + from, text.size() - from, part.data(), part.size());
    return found == nullptr
               ? std::string_view::npos
               : static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

std::string_view take_line(std::string_view& rest, char end) {
    const std::size_t length = rest.find(end);
    const std::string_view line = rest.substr(0, length);
    rest.remove_prefix(length < rest.size() ? length + 1 : rest.size());
    return line;
}

std::string_view strip(std::string_view line, char comment) {
    line = trim_start(trim_end(line));
    if (line.find(comment) == std::string_view::npos) {
        return line;
    }
    bool quoted = false;
    bool after_blank = true;  // the start of a line counts as one
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == comment && after_blank && !quoted) {
            return trim_end(line.substr(0, i));
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
    entry.key = trim_end(line.substr(0, position));
    entry.value = trim_start(line.substr(position + 1));
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
        const std::string_view line = trim_start(take_line(text, syntax.end));
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

// Leaves what is left when no section is.
void SectionCursor::find_opening() {
    std::size_t position = find_line(rest_, sections_->keyword, 0);
    while (position != std::string_view::npos) {
        behind_opening_ = rest_.substr(position);
        const std::string_view line = take_line(behind_opening_, '\n');
        if (open_section(line, behind_opening_, *sections_, comment_, header_)) {
            before_opening_ = rest_.substr(0, position);
            return;
        }
        position = find_line(rest_, sections_->keyword, position + 1);
    }
    before_opening_ = rest_;
    behind_opening_ = {};
    header_ = {};
    at_end_ = true;
}

bool SectionCursor::next(Section& section) {
    if (!started_) {
        started_ = true;
        find_opening();
    }
    if (at_end_) {
        return false;
    }
    section.header = header_;
    rest_ = behind_opening_;
    // The next section is looked for first, so that the search for the mark stays within this one.
    find_opening();
    section.body = up_to_closing(before_opening_);
    return true;
}

// The text before the line that is the closing mark; all of it when there is none.
std::string_view SectionCursor::up_to_closing(std::string_view text) const {
    std::size_t position = find_line(text, sections_->closing, 0);
    while (position != std::string_view::npos) {
        std::string_view rest = text.substr(position);
        if (strip(take_line(rest, '\n'), comment_) == sections_->closing) {
            return text.substr(0, position);
        }
        position = find_line(text, sections_->closing, position + 1);
    }
    return text;
}

}  // namespace config_text
