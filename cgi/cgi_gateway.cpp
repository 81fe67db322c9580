#include "cgi/cgi_gateway.h"

#include <array>
#include <cstdlib>
#include <memory>

namespace {

constexpr const char* CLIENT_COMMAND = "/bin/fcgiclient";
constexpr std::size_t BUFFER_SIZE = 256;   // bytes
constexpr int READ_LIMIT = 255;            // what fgets is allowed of it
constexpr std::size_t PIPE_SIZE = 65536;   // bytes: the most that waits in a pipe
constexpr std::size_t BLOCK_SIZE = 65536;  // bytes

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
        std::array<char, PIPE_SIZE> pipe_buffer;  // outlives the stream
        const std::unique_ptr<std::FILE, PipeCloser> client(popen(CLIENT_COMMAND, "r"));
        if (client) {
            std::setvbuf(client.get(), pipe_buffer.data(), _IOFBF, pipe_buffer.size());
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

CgiAnswer collect(std::FILE* output) {
    CgiAnswer answer;
    std::array<char, BUFFER_SIZE> buffer{};
    while (std::fgets(buffer.data(), READ_LIMIT, output) != nullptr) {
        if (answer.empty() || answer.back().size() + BUFFER_SIZE > BLOCK_SIZE) {
            answer.emplace_back().reserve(BLOCK_SIZE);
        }
        answer.back() += buffer.data();
    }
    return answer;
}
