#include "cgi/cgi_gateway.h"

#include <array>
#include <cstdlib>
#include <memory>
#include <new>

namespace {

constexpr const char* CLIENT_COMMAND = "/bin/fcgiclient";
constexpr std::size_t BUFFER_SIZE = 256;  // bytes
constexpr int READ_LIMIT = 255;           // what fgets is allowed of it

struct PipeCloser {
    void operator()(std::FILE* pipe) const { pclose(pipe); }
};

// The request, in the shell's own environment for as long as this object lives.
class CgiRequest {
  public:
    CgiRequest(const std::string& cgi_name, const char* query) : CgiRequest(query != nullptr) {
        set("REQUEST_METHOD", "GET");
        set("PATH_INFO", cgi_name.c_str());
        if (has_query_) {
            set("QUERY_STRING", query);
        }
        set("REMOTE_ADDR", "CGI2FastCGI");
        set("CONTENT_TYPE", "application/x-www-form-urlencoded");
    }

    ~CgiRequest() {
        unsetenv("REQUEST_METHOD");
        unsetenv("PATH_INFO");
        if (has_query_) {
            unsetenv("QUERY_STRING");
        }
        unsetenv("REMOTE_ADDR");
        unsetenv("CONTENT_TYPE");
    }
    CgiRequest(const CgiRequest&) = delete;
    CgiRequest& operator=(const CgiRequest&) = delete;

  private:
    explicit CgiRequest(bool has_query) : has_query_(has_query) {}

    // Nobody knows what the back end makes of half a query; but half a logout may do.
    void set(const char* name, const char* value) const {
        if (setenv(name, value, 1) != 0 && has_query_) {
            throw std::bad_alloc();
        }
    }

    bool has_query_;
};

}  // namespace

int run_cgi_program(const std::string& cgi_name, const char* query, CgiConsumer consumer) {
    const CgiRequest request(cgi_name, query);
    const std::unique_ptr<std::FILE, PipeCloser> client(popen(CLIENT_COMMAND, "r"));
    if (client) {
        consumer(client.get());
    }
    return 0;
}

void close_at_once(std::FILE* /*output*/) {}

void drain(std::FILE* output) {
    std::array<char, BUFFER_SIZE> buffer{};
    while (std::fgets(buffer.data(), READ_LIMIT, output) != nullptr) {
    }
}

std::string collect(std::FILE* output) {
    std::string answer;
    std::array<char, BUFFER_SIZE> buffer{};
    while (std::fgets(buffer.data(), READ_LIMIT, output) != nullptr) {
        answer += buffer.data();
    }
    return answer;
}
