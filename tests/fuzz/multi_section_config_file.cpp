// The reader with a cursor over the sections. Input: the file.

#include "config/multi_section_config_file.h"

#include "tests/fuzz/plain_reader.h"
#include "tests/fuzz/support.h"

namespace {

void check_walk(MultiSectionConfigFile& reader, const std::vector<PlainSection>& expected) {
    reader.Restart();
    for (const PlainSection& section : expected) {
        require(reader.GotoNextSection() != 0, "there is a further section");
        require_equal(reader.GetHeaderEntry(), section.header, "header");
        for (const std::string key : {"ACL", "CAP", ""}) {
            require_equal(reader.GetSectionEntry(key.c_str()), plain_value(section.entries, key),
                          "value");
        }
        for (const auto& entry : section.entries) {
            const char* key = entry.first.c_str();
            require_equal(reader.GetSectionEntry(key), plain_value(section.entries, key),
                          "value of each key");
        }
    }
    for (int i = 0; i < 2; ++i) {
        require(reader.GotoNextSection() == 0, "there is no further section");
        require_equal(reader.GetHeaderEntry(), "", "header after the end");
        require_equal(reader.GetSectionEntry("ACL"), "ENTRY_NOT_FOUND", "value after the end");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = input_text(data, size);
    const MemoryFile file(text);
    MultiSectionConfigFile reader(file.path(), false, false, true);
    reader.ChangeSectionSyntax("ITEM", "{\n", "}\n");
    const std::vector<PlainSection> sections = plain_sections(text, "ITEM");
    check_walk(reader, sections);
    check_walk(reader, sections);
    reader.ChangeSectionSyntax("section", "{\n", "}\n");
    check_walk(reader, plain_sections(text, "section"));
    return 0;
}
