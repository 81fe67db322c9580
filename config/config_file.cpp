#include "config/config_file.h"

ConfigFile::ConfigFile(const char* path, bool /*unused*/, bool /*unused*/) {
    config_text::read_file(path, text_);
}

void ConfigFile::ChangeSyntax(char assignment, char end, char comment) {
    syntax_ = {assignment, end, comment};
}

std::string ConfigFile::GetEntry(const char* key) const {
    return config_text::find_value(text_, key, syntax_);
}
