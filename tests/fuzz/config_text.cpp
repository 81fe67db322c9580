// The functions for the file syntax, which all readers share. Input: assignment, end and comment
// character, a line feed, the keyword, a line feed, the file.

#include "config/config_text.h"

#include "tests/fuzz/plain_reader.h"
#include "tests/fuzz/support.h"

namespace {

// Every text that is returned must lie within the file.
void require_inside(std::string_view part, std::string_view whole) {
    require(part.empty() || (part.data() >= whole.data() &&
                             part.data() + part.size() <= whole.data() + whole.size()),
            "a part lies within the file");
}

void check_entries(std::string_view file, const config_text::EntrySyntax& syntax,
                   const PlainEntries& expected) {
    std::string_view rest = file;
    config_text::Entry entry;
    for (const auto& [key, value] : expected) {
        require(config_text::next_entry(rest, syntax, entry), "there is a further entry");
        require_inside(entry.key, file);
        require_inside(entry.value, file);
        require_equal(entry.key, key, "key");
        require_equal(entry.value, value, "value");
        require_equal(config_text::find_value(file, key, syntax), plain_value(expected, key),
                      "value by key");
    }
    require(!config_text::next_entry(rest, syntax, entry), "there is no further entry");
    require_equal(config_text::find_value(file, "Version", syntax),
                  plain_value(expected, "Version"), "value of a key that may be absent");
}

void check_sections(const std::string& file, const std::string& keyword) {
    const config_text::SectionSyntax syntax(keyword.c_str(), "{\n", "}\n");
    std::string_view rest = file;
    config_text::Section section;
    for (const PlainSection& expected : plain_sections(file, keyword)) {
        require(config_text::next_section(rest, syntax, '#', section),
                "there is a further section");
        require_inside(section.header, file);
        require_inside(section.body, file);
        require_equal(section.header, expected.header, "header");
        check_entries(section.body, {}, expected.entries);
    }
    require(!config_text::next_section(rest, syntax, '#', section), "there is no further section");
}

// Whether the three characters are distinct and have no other meaning.
bool makes_sense(const config_text::EntrySyntax& syntax) {
    const std::string characters = {syntax.assignment, syntax.end, syntax.comment};
    return characters.find_first_of(" \t\r\"") == std::string::npos &&
           syntax.assignment != syntax.end && syntax.assignment != syntax.comment &&
           syntax.end != syntax.comment;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string file = input_text(data, size);
    const std::string characters = take_line(file) + "=\n#";
    const std::string keyword = take_line(file).c_str();
    const config_text::EntrySyntax syntax = {characters[0], characters[1], characters[2]};
    if (makes_sense(syntax)) {
        check_entries(file, syntax,
                      plain_entries(file, syntax.assignment, syntax.end, syntax.comment));
    }
    if (!keyword.empty() && keyword.find_first_of(" \t\r#{}\"") == std::string::npos) {
        check_sections(file, keyword);
    }
    const MemoryFile memory(file);
    std::string text;
    require(config_text::read_file(memory.path(), text) == 0, "the file is read");
    require_equal(text, file, "the file's bytes");
    return 0;
}
