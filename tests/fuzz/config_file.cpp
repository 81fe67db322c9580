// The reader of flat files. Input: a key, a line feed, the file.

#include "config/config_file.h"

#include "tests/fuzz/plain_reader.h"
#include "tests/fuzz/support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text = input_text(data, size);
    const std::string key = take_line(text).c_str();
    const MemoryFile file(text);
    ConfigFile reader(file.path(), false, false);
    for (const std::string& wanted : {key, std::string("Version")}) {
        require_equal(reader.GetEntry(wanted.c_str()),
                      plain_value(plain_entries(text, '=', '\n', '#'), wanted), "value");
    }
    reader.ChangeSyntax(':', '\n', '#');
    const PlainEntries entries = plain_entries(text, ':', '\n', '#');
    for (const std::string& wanted : {key, std::string("Version")}) {
        require_equal(reader.GetEntry(wanted.c_str()), plain_value(entries, wanted),
                      "value of the version file");
    }
    for (const auto& entry : entries) {
        const char* wanted = entry.first.c_str();
        require_equal(reader.GetEntry(wanted), plain_value(entries, wanted), "value of each key");
    }
    return 0;
}
