#include "config/multi_section_file.h"

#include <cstring>
#include <stdexcept>

namespace Configuration {

namespace {

void copy_text(std::string_view text, char* buffer, unsigned size) {
    if (size > 0) {
        buffer[text.copy(buffer, size - 1)] = '\0';
    }
}

}  // namespace

MultiSectionFile::MultiSectionFile(const char* path, bool /*unused*/, bool /*unused*/,
                                   bool /*unused*/, const char* keyword, const char* opening_mark,
                                   const char* closing_mark, const char* assignment,
                                   const char* comment, const char* /*unused*/)
    : sections_(keyword, opening_mark, closing_mark), entries_{*assignment, '\n', *comment} {
    const int error = config_text::read_file(path, text_);
    if (error != 0) {
        throw std::runtime_error(std::string(path) + ": " + std::strerror(error));
    }
}

// The text may hold a password.
MultiSectionFile::~MultiSectionFile() {
    explicit_bzero(text_.data(), text_.size());
}

void MultiSectionFile::Restart() {
    current_ = {};
    RestartSection();
}

int MultiSectionFile::GotoSection(const char* name) {
    std::string_view rest = text_;
    bool found = false;
    while (!found && config_text::next_section(rest, sections_, entries_.comment, current_)) {
        found = current_.header == name;
    }
    RestartSection();
    return found ? 1 : 0;
}

void MultiSectionFile::RestartSection() {
    rest_ = current_.body;
    entry_ = {};
}

int MultiSectionFile::GotoSecNextEntry() {
    return config_text::next_entry(rest_, entries_, entry_) ? 1 : 0;
}

int MultiSectionFile::GotoSecEntry(const char* key) {
    RestartSection();
    while (GotoSecNextEntry() != 0) {
        if (entry_.key == key) {
            return 1;
        }
    }
    return 0;
}

void MultiSectionFile::GetSecCurrentEntry(char* key, unsigned key_size, char* value,
                                          unsigned value_size) const {
    copy_text(entry_.key, key, key_size);
    copy_text(entry_.value, value, value_size);
}

}  // namespace Configuration
