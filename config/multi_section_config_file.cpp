#include "config/multi_section_config_file.h"

MultiSectionConfigFile::MultiSectionConfigFile(const char* path, bool /*unused*/, bool /*unused*/,
                                               bool /*unused*/)
    : sections_("section", "{\n", "}\n") {
    config_text::read_file(path, text_);
    Restart();
}

void MultiSectionConfigFile::ChangeSectionSyntax(const char* keyword, const char* opening_mark,
                                                 const char* closing_mark) {
    sections_ = config_text::SectionSyntax(keyword, opening_mark, closing_mark);
}

void MultiSectionConfigFile::Restart() {
    rest_ = text_;
    current_ = {};
}

int MultiSectionConfigFile::GotoNextSection() {
    return config_text::next_section(rest_, sections_, entries_.comment, current_) ? 1 : 0;
}

std::string MultiSectionConfigFile::GetHeaderEntry() const {
    return std::string(current_.header);
}

std::string MultiSectionConfigFile::GetSectionEntry(const char* key) const {
    return config_text::find_value(current_.body, key, entries_);
}
