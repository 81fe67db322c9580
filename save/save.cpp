#include "save/save.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "cgi/cgi_gateway.h"
#include "config/config_file.h"
#include "console/file.h"
#include "console/state.h"
#include "console/text.h"
#include "console/turn.h"

namespace {

constexpr const char* SAVE_PROGRAM = "putconf.cgi";
constexpr const char* SAVE_FILE_PATH = "/tmp/consoleLCFile";
constexpr const char* VERSION_FILE_PATH = "/etc/version.txt";
constexpr const char* VERSION_ASSIGNMENT = "VERSION=";

// Applied in order. #ERROR_GLOBAL begins with #ERROR, so its own words are never used; users of the
// back end expect that result.
constexpr const char* MARKERS[][2] = {
    {"\\n", "\n"}, {"#ERROR", "Error in "}, {"#ERROR_GLOBAL", "Error: "},
    {"#VAL", "="}, {"#MSG", ". "},          {"#END", ""},
};

std::string firmware_version() {
    ConfigFile version_file(VERSION_FILE_PATH, false, false);
    version_file.ChangeSyntax(':', '\n', '#');
    return version_file.GetEntry("Version");
}

void write_line(std::FILE* file, const std::string& line) {
    std::fwrite(line.data(), 1, line.size(), file);
    std::fputc('\n', file);
}

}  // namespace

// Builds a new string: in place, each replacement would move all that follows.
void replace_all(std::string& text, const char* from, const char* to, std::size_t start) {
    std::string result;
    result.reserve(text.size());
    std::size_t copied = 0;
    std::size_t found = text.find(from, start);
    while (found != std::string::npos) {
        result.append(text, copied, found - copied).append(to);
        copied = found + std::strlen(from);
        found = text.find(from, copied);
    }
    result.append(text, copied);
    text.swap(result);
}

void rewrite_markers(std::string& text) {
    for (const auto& [marker, words] : MARKERS) {
        replace_all(text, marker, words, 0);
    }
}

void write_query_file(const std::string& path, const std::list<std::string>& settings) {
    const File file(std::fopen(path.c_str(), "w"));
    if (!file) {
        return;
    }
    if (!settings.empty() && settings.front().find(VERSION_ASSIGNMENT) == std::string::npos) {
        write_line(file.get(), VERSION_ASSIGNMENT + firmware_version());
    }
    for (const std::string& setting : settings) {
        write_line(file.get(), setting);
    }
}

void run_putconf(const std::string& path) {
    const std::string query = "cgiaction=do_save&localHiddenFilename=" + path;
    run_cgi_program(SAVE_PROGRAM, query.c_str(), [](std::FILE* output) {
        std::string answer = collect(output);
        rewrite_markers(answer);
        print(answer);
    });
}

int handle_save(char* /*argument*/) noexcept try {
    if (_gQueryString.empty()) {
        print_now(make_error_message("Nothing to save\n"));
        return -1;
    }
    const Turn turn;
    if (turn.called_off()) {
        print("\n");  // the settings are kept
        return -1;
    }
    write_query_file(SAVE_FILE_PATH, _gQueryString);
    run_putconf(SAVE_FILE_PATH);
    _gQueryString.clear();
    return 0;
} catch (const std::bad_alloc&) {
    return refuse_for_memory();  // the settings are kept
}
