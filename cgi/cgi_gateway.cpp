#include "cgi/cgi_gateway.h"

#include <array>
#include <cstdlib>
#include <memory>

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
    CgiRequest(const std::string& cgi_name, const char* query) : has_query_(query != nullptr) {
        set("REQUEST_METHOD", "GET");
        set("PATH_INFO", cgi_name.c_str());
        if (has_query_) {
            set("QUERY_STRING", query);
        }
        set("REMOTE_ADDR", "CGI2FastCGI");
        set("CONTENT_TYPE", "application/x-www-form-urlencoded");
    }

    int remove() const {
        unsetenv("REQUEST_METHOD");
        unsetenv("PATH_INFO");
        if (has_query_) {
            unsetenv("QUERY_STRING");
        }
        unsetenv("REMOTE_ADDR");
        return unsetenv("CONTENT_TYPE");
    }

  private:
    static void set(const char* name, const char* value) { setenv(name, value, 1); }
    bool has_query_;
};

}  // namespace

int run_cgi_program(const std::string& cgi_name, const char* query, CgiConsumer consumer) {
    const CgiRequest request(cgi_name, query);
    {
        const std::unique_ptr<std::FILE, PipeCloser> client(popen(CLIENT_COMMAND, "r"));
        if (client) {
            consumer(client.get());
        }
    }
    return request.remove();
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
