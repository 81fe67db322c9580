#include "tests/unit/outside.h"

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <readline/readline.h>

#include "console/secret.h"
#include "console/state.h"
#include "console/text.h"

Outside outside;

namespace {

constexpr const char* REQUEST_VARIABLES[] = {
    "REQUEST_METHOD", "PATH_INFO",       "QUERY_STRING",   "REMOTE_ADDR",     "CONTENT_TYPE",
    "CONTENT_LENGTH", "SERVER_PROTOCOL", "REQUEST_URI",    "SCRIPT_FILENAME", "SCRIPT_NAME",
    "DOCUMENT_ROOT",  "SERVER_NAME",     "SERVER_SOFTWARE"};

std::string written_so_far() {
    struct stat status = {};
    if (fstat(STDOUT_FILENO, &status) != 0 || !S_ISREG(status.st_mode)) {
        return "";
    }
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    const ssize_t length = pread(STDOUT_FILENO, text.data(), text.size(), 0);
    text.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    return text;
}

std::optional<std::string> take_answer(std::deque<std::optional<std::string>>& answers,
                                       const char* prompt) {
    outside.prompts.emplace_back(prompt);
    if (outside.while_typing) {
        outside.while_typing();
    }
    if (answers.empty()) {
        return std::nullopt;
    }
    std::optional<std::string> answer = std::move(answers.front());
    answers.pop_front();
    return answer;
}

void start_afresh() {
    outside = Outside();
    _gAdminConParts.clear();
    _gExtensionConfParts.clear();
    _gQueryString.clear();
    _gDoExit = false;
    for (const char* name : REQUEST_VARIABLES) {
        unsetenv(name);
    }
}

}  // namespace

OutsideTest::OutsideTest() {
    start_afresh();
}

OutsideTest::~OutsideTest() {
    start_afresh();
}

extern "C" int system(const char* command) {
    outside.command_lines.emplace_back(command);
    outside.printed_before = written_so_far();
    return outside.command_status;
}

extern "C" FILE* popen(const char* command, const char* mode) {
    StartedClient client{command, mode, {}};
    for (const char* name : REQUEST_VARIABLES) {
        if (const char* value = std::getenv(name)) {
            client.request[name] = value;
        }
    }
    outside.clients.push_back(client);
    if (!outside.client_can_start) {
        return nullptr;
    }
    std::FILE* output = std::tmpfile();
    std::fwrite(outside.client_output.data(), 1, outside.client_output.size(), output);
    std::rewind(output);
    return output;
}

extern "C" int pclose(FILE* output) {
    outside.closed_at.push_back(std::ftell(output));
    return std::fclose(output);
}

extern "C" char* readline(const char* prompt) {
    std::optional<std::string> answer = take_answer(outside.lines, prompt);
    if (!answer) {
        return nullptr;
    }
    char* line = strdup(answer->c_str());
    wipe(*answer);  // the test's own copy must not be counted
    return line;
}

// The answer is in a static buffer, as with getpass.
extern "C" char* getpass(const char* prompt) {
    static char buffer[256];
    outside.printed_before = written_so_far();
    std::optional<std::string> answer = take_answer(outside.passwords, prompt);
    if (!answer) {
        return nullptr;
    }
    std::snprintf(buffer, sizeof buffer, "%s", answer->c_str());
    wipe(*answer);
    return buffer;
}

extern "C" int gettimeofday(timeval* time, void* /*zone*/) {
    if (!outside.clock_works) {
        return -1;
    }
    time->tv_sec = outside.now ? *outside.now : std::time(nullptr);
    time->tv_usec = 0;
    return 0;
}
