#include "tests/unit/capture.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

void require(bool success, const char* what) {
    if (!success) {
        std::perror(what);
        std::abort();
    }
}

// Replaces standard output with another descriptor during the object's lifetime.
class RedirectedOutput {
  public:
    explicit RedirectedOutput(int target) {
        std::fflush(stdout);
        saved_ = dup(STDOUT_FILENO);
        require(saved_ >= 0, "dup");
        require(dup2(target, STDOUT_FILENO) >= 0, "dup2");
    }
    ~RedirectedOutput() {
        std::fflush(stdout);
        require(dup2(saved_, STDOUT_FILENO) >= 0, "dup2");
        close(saved_);
    }
    RedirectedOutput(const RedirectedOutput&) = delete;
    RedirectedOutput& operator=(const RedirectedOutput&) = delete;

  private:
    int saved_;
};

}  // namespace

std::string captured_output(const std::function<void()>& action) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), std::fclose);
    require(file != nullptr, "tmpfile");
    {
        const RedirectedOutput redirected(fileno(file.get()));
        action();
    }
    std::string text;
    std::rewind(file.get());
    for (int c = std::fgetc(file.get()); c != EOF; c = std::fgetc(file.get())) {
        text += static_cast<char>(c);
    }
    return text;
}

std::vector<std::string> captured_pieces(const std::function<void()>& action) {
    // A socket of this type keeps writes separate.
    std::array<int, 2> ends{};
    require(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends.data()) == 0, "socketpair");
    {
        const RedirectedOutput redirected(ends[1]);
        action();
    }
    close(ends[1]);
    std::vector<std::string> pieces;
    std::string piece(BUFSIZ, '\0');
    for (ssize_t length = read(ends[0], piece.data(), piece.size()); length > 0;
         length = read(ends[0], piece.data(), piece.size())) {
        pieces.emplace_back(piece, 0, static_cast<std::size_t>(length));
    }
    close(ends[0]);
    return pieces;
}
