// The summary without its version line. Input: the file.

#include "cgi/legible_configuration.h"
#include "tests/fuzz/support.h"

namespace {

constexpr std::size_t PIECE_SIZE = 255;

std::string plain_filter(const std::string& file) {
    std::string result;
    bool version_passed = false;
    for (std::size_t start = 0; start < file.size(); start += PIECE_SIZE) {
        std::string piece = file.substr(start, PIECE_SIZE).c_str();
        const std::size_t version = piece.find("VERSION");
        if (!version_passed && version != std::string::npos) {
            version_passed = true;
            const std::size_t line_feed = piece.find('\n', version);
            if (line_feed != std::string::npos) {
                piece.erase(0, line_feed + 1);
            }
        }
        result += piece;
    }
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = input_text(data, size);
    const MemoryFile file(text);
    require_equal(printed([&] { print_without_version(file.path()); }), plain_filter(text),
                  "what is printed");
    return 0;
}
