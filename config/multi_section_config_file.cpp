#include "config/multi_section_config_file.h"

#include "config/config_buffer.h"

MultiSectionConfigFile::MultiSectionConfigFile(const char* path, bool /*unused*/, bool /*unused*/,
                                               bool /*unused*/)
    : sections_("section", "{\n", "}\n"), cursor_({}, sections_, syntax_.comment) {
    config_text::read_file(path, text_);
    Restart();
}

void MultiSectionConfigFile::ChangeSectionSyntax(const char* keyword, const char* opening_mark,
                                                 const char* closing_mark) {
    sections_ = config_text::SectionSyntax(keyword, opening_mark, closing_mark);
}

void MultiSectionConfigFile::Restart() {
    cursor_ = config_text::SectionCursor(text_.view(), sections_, syntax_.comment);
    leave_section();
}

int MultiSectionConfigFile::GotoNextSection() {
    leave_section();
    if (!cursor_.next(current_)) {
        return 0;
    }
    std::string_view body = current_.body;
    config_text::Entry entry;
    while (config_text::next_entry(body, syntax_, entry)) {
        entries_.push_back(entry);
    }
    return 1;
}

std::string MultiSectionConfigFile::GetHeaderEntry() const {
    return std::string(current_.header);
}

std::string MultiSectionConfigFile::GetSectionEntry(const char* key) const {
    for (const config_text::Entry& entry : entries_) {
        if (entry.key == key) {
            return std::string(entry.value);
        }
    }
    return std::string(ConfigBuffer::ENTRY_NOT_FOUND);
}

void MultiSectionConfigFile::leave_section() {
    current_ = {};
    entries_.clear();
}
