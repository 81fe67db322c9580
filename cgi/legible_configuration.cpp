#include "cgi/legible_configuration.h"

#include <array>
#include <cstdio>
#include <string_view>

#include "cgi/cgi_gateway.h"
#include "console/file.h"
#include "console/state.h"
#include "console/text.h"

namespace {

constexpr const char* SUMMARY_PROGRAM = "getconfsummary.cgi";
constexpr const char* SUMMARY_ACTION = "cgiaction=Start generating a legible configuration file";
constexpr const char* SUMMARY_PATH = "/tmp/script_legconftmp.txt";
constexpr std::string_view VERSION_WORD = "VERSION";
constexpr std::size_t NOWHERE = std::string_view::npos;
constexpr std::size_t PIECE_SIZE = 255;  // bytes held in memory at a time

std::string summary_query(const std::string& name, const std::string& extension) {
    std::string query = SUMMARY_ACTION;
    if (extension.empty()) {
        return query.append("&parampattern=").append(name);
    }
    query.append("&cgiDescription=").append(_gExtensionConfParts.at(name));
    return query.append("&extensionName=").append(extension);
}

}  // namespace

void print_without_version(const char* path) {
    const File summary(std::fopen(path, "r"));
    if (!summary) {
        return;
    }
    bool version_passed = false;
    std::size_t length = PIECE_SIZE;
    while (length == PIECE_SIZE) {  // a shorter read means the end or an error
        std::array<char, PIECE_SIZE + 1> buffer{};
        length = std::fread(buffer.data(), 1, PIECE_SIZE, summary.get());
        std::string_view piece = buffer.data();  // up to the first NUL
        const std::size_t version = version_passed ? NOWHERE : piece.find(VERSION_WORD);
        if (version != NOWHERE) {
            // The whole piece stays if the line does not end in it: NOWHERE + 1 is 0.
            piece.remove_prefix(piece.find('\n', version) + 1);
            version_passed = true;
        }
        print_now(piece);
    }
}

void generate_legible_configuration(const std::string& name, const std::string& extension) {
    const std::string query = summary_query(name, extension);
    run_cgi_program(SUMMARY_PROGRAM, query.c_str(), [](std::FILE* output) {
        drain(output);
        print_without_version(SUMMARY_PATH);
        print_now("\n\n");
    });
}
