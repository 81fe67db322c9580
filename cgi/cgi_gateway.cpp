#include "cgi/cgi_gateway.h"

#include <array>
#include <cstdlib>
#include <memory>
#include <new>

namespace {

constexpr const char* CLIENT_COMMAND = "/bin/fcgiclient";
constexpr int READ_LIMIT = 255;  // bytes, the terminating NUL included

struct PipeCloser {
    void operator()(std::FILE* pipe) const { pclose(pipe); }
};

// Keeps the request's variables in the shell's own environment while this object lives.
struct CgiRequest {
    ~CgiRequest() {
        unsetenv("REQUEST_METHOD");
        unsetenv("PATH_INFO");
        if (has_query) {
            unsetenv("QUERY_STRING");
        }
        unsetenv("REMOTE_ADDR");
        unsetenv("CONTENT_TYPE");
    }

    // An incomplete query must not reach the back end; an incomplete logout may still work.
    void set(const char* variable, const char* value) const {
        if (setenv(variable, value, 1) != 0 && has_query) {
            throw std::bad_alloc();
        }
    }

    const bool has_query;
};

}  // namespace

int run_cgi_program(const std::string& cgi_name, const char* query, CgiConsumer consumer) {
    const CgiRequest request = {query != NO_QUERY};
    request.set("REQUEST_METHOD", "GET");
    request.set("PATH_INFO", cgi_name.c_str());
    if (query != NO_QUERY) {
        request.set("QUERY_STRING", query);
    }
    request.set("REMOTE_ADDR", "CGI2FastCGI");
    request.set("CONTENT_TYPE", "application/x-www-form-urlencoded");
    const std::unique_ptr<std::FILE, PipeCloser> client(popen(CLIENT_COMMAND, "r"));
    if (client) {
        consumer(client.get());
    }
    return 0;
}

void close_at_once(std::FILE* /*output*/) {}

void drain(std::FILE* output) {
    std::array<char, READ_LIMIT> buffer{};
    while (std::fgets(buffer.data(), READ_LIMIT, output) != nullptr) {
    }
}

std::string collect(std::FILE* output) {
    std::string answer;
    std::array<char, READ_LIMIT> buffer{};
    while (std::fgets(buffer.data(), READ_LIMIT, output) != nullptr) {
        answer += buffer.data();
    }
    return answer;
}
