// The reader with a cursor over the entries of a section. Input: the file.

#include "config/multi_section_file.h"

#include <cstring>

#include "config/config_buffer.h"
#include "tests/fuzz/plain_reader.h"
#include "tests/fuzz/support.h"

namespace {

using Configuration::MultiSectionFile;

// The text as cut to a buffer of that size, the NUL included.
std::string cut(const std::string& text, std::size_t size) {
    return text.substr(0, size - 1) + '\0';
}

void check_current(const MultiSectionFile& reader, const std::string& key,
                   const std::string& value) {
    const SmartBuffer key_buffer;
    const SmartBuffer value_buffer;
    reader.GetSecCurrentEntry(key_buffer.data, key_buffer.size, value_buffer.data,
                              value_buffer.size);
    const std::string expected_key = cut(key, key_buffer.size);
    const std::string expected_value = cut(value, value_buffer.size);
    require_equal({key_buffer.data, expected_key.size()}, expected_key, "key");
    require_equal({value_buffer.data, expected_value.size()}, expected_value, "value");
    char small[8];
    reader.GetSecCurrentEntry(nullptr, 0, small, sizeof small);
    const std::string expected = cut(value, sizeof small);
    require_equal({small, expected.size()}, expected, "value in a small buffer");
}

void check_section(MultiSectionFile& reader, const PlainEntries& entries) {
    for (int pass = 0; pass < 2; ++pass) {
        reader.RestartSection();
        for (const auto& [key, value] : entries) {
            require(reader.GotoSecNextEntry() != 0, "there is a further entry");
            check_current(reader, key, value);
        }
        require(reader.GotoSecNextEntry() == 0, "there is no further entry");
    }
    for (const auto& entry : entries) {
        const std::string key = entry.first.c_str();
        const std::string value = plain_value(entries, key);
        if (key == entry.first) {
            require(reader.GotoSecEntry(key.c_str()) != 0, "the key is found");
            check_current(reader, key, value);
        }
    }
    require((reader.GotoSecEntry("password") != 0) == plain_has(entries, "password"),
            "a key is found when it is there");
}

const PlainSection* first_of_that_name(const std::vector<PlainSection>& sections,
                                       const std::string& name) {
    for (const PlainSection& section : sections) {
        if (section.header == name) {
            return &section;
        }
    }
    return nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = input_text(data, size);
    const MemoryFile file(text);
    MultiSectionFile reader(file.path(), false, false, false, "section", "{\n", "}\n", "=", "#",
                            nullptr);
    const std::vector<PlainSection> sections = plain_sections(text, "section");
    std::vector<std::string> names = {"attendant", "extension", "pickup", "callpark",
                                      "paging",    "admin",     ""};
    for (const PlainSection& section : sections) {
        names.emplace_back(section.header.c_str());
    }
    for (const std::string& name : names) {
        reader.Restart();
        const PlainSection* expected = first_of_that_name(sections, name);
        require((reader.GotoSection(name.c_str()) != 0) == (expected != nullptr),
                "a section is found when it is there");
        check_section(reader, expected != nullptr ? expected->entries : PlainEntries());
    }
    return 0;
}
