#include "config/config_file.h"

#include "config/config_buffer.h"

ConfigFile::ConfigFile(const char* path, bool /*unused*/, bool /*unused*/) {
    config_text::read_file(path, text_);
}

void ConfigFile::ChangeSyntax(char assignment, char end, char comment) {
    syntax_ = {assignment, end, comment};
}

std::string ConfigFile::GetEntry(const char* key) const {
    config_text::Entry entry;
    if (!config_text::find_entry(text_, key, syntax_, entry)) {
        return ConfigBuffer::ENTRY_NOT_FOUND;
    }
    return std::string(entry.value);
}
