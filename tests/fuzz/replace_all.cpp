// Replacing texts, and the markers in the save program's answers. Input: the text to search for, a
// line feed, its replacement, a line feed, the start position (decimal), a line feed, the text.

#include "save/save.h"

#include <cstdlib>

#include "tests/fuzz/support.h"

namespace {

std::string plain_replacement(const std::string& text, const std::string& from,
                              const std::string& to, std::size_t start) {
    std::string result;
    std::size_t i = 0;
    while (i < text.size()) {
        if (i >= start && text.compare(i, from.size(), from) == 0) {
            result += to;
            i += from.size();
        } else {
            result += text[i++];
        }
    }
    return result;
}

std::string plain_rewriting(std::string text) {
    // A global error is shown as an error: the beginning of its marker has already been replaced.
    text = plain_replacement(text, "\\n", "\n", 0);
    text = plain_replacement(text, "#ERROR", "Error in ", 0);
    text = plain_replacement(text, "#VAL", "=", 0);
    text = plain_replacement(text, "#MSG", ". ", 0);
    return plain_replacement(text, "#END", "", 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text = input_text(data, size);
    const std::string from = take_line(text).c_str();
    const std::string to = take_line(text).c_str();
    const std::size_t start = std::strtoul(take_line(text).c_str(), nullptr, 10);

    std::string rewritten = text;
    rewrite_markers(rewritten);
    require_equal(rewritten, plain_rewriting(text), "the answer in words");

    if (!from.empty()) {
        std::string replaced = text;
        replace_all(replaced, from.c_str(), to.c_str(), start);
        require_equal(replaced, plain_replacement(text, from, to, start),
                      "the text with replacements");
    }
    return 0;
}
