#include "tests/fuzz/support.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

// Prints the part around the first difference of two long texts.
void show(const char* title, std::string_view text, std::size_t difference) {
    constexpr std::size_t BEFORE = 40;
    constexpr std::size_t LENGTH = 160;
    const std::size_t start = difference > BEFORE ? difference - BEFORE : 0;
    std::fprintf(stderr, "  %s (%zu bytes, from byte %zu): ", title, text.size(), start);
    for (const char c : text.substr(start, LENGTH)) {
        std::fprintf(stderr, c >= ' ' && c <= '~' ? "%c" : "\\x%02x",
                     static_cast<unsigned char>(c));
    }
    std::fprintf(stderr, "\n");
}

std::string content_of(int descriptor) {
    std::string text(static_cast<std::size_t>(lseek(descriptor, 0, SEEK_END)), '\0');
    const ssize_t length = pread(descriptor, text.data(), text.size(), 0);
    require(length == static_cast<ssize_t>(text.size()), "a memory file is read");
    return text;
}

}  // namespace

void require(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "not so: %s\n", what);
        std::abort();
    }
}

void require_equal(std::string_view seen, std::string_view expected, const char* what) {
    if (seen == expected) {
        return;
    }
    std::size_t difference = 0;
    while (difference < seen.size() && difference < expected.size() &&
           seen[difference] == expected[difference]) {
        ++difference;
    }
    std::fprintf(stderr, "not equal: %s\n", what);
    show("seen", seen, difference);
    show("expected", expected, difference);
    std::abort();
}

std::string input_text(const std::uint8_t* data, std::size_t size) {
    return {data, data + size};
}

std::string take_line(std::string& rest) {
    const std::size_t length = rest.find('\n');
    std::string line = rest.substr(0, length);
    rest.erase(0, length == std::string::npos ? length : length + 1);
    return line;
}

MemoryFile::MemoryFile(std::string_view content)
    : descriptor_(memfd_create("tessel_fuzz", MFD_CLOEXEC)),
      path_("/proc/self/fd/" + std::to_string(descriptor_)) {
    const ssize_t length = write(descriptor_, content.data(), content.size());
    require(length == static_cast<ssize_t>(content.size()), "a memory file is written");
}

MemoryFile::~MemoryFile() {
    close(descriptor_);
}

std::string printed(const std::function<void()>& action) {
    const MemoryFile file("");
    std::fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    require(saved >= 0 && dup2(file.descriptor(), STDOUT_FILENO) >= 0, "output is redirected");
    action();
    std::fflush(stdout);
    require(dup2(saved, STDOUT_FILENO) >= 0, "output is restored");
    close(saved);
    return content_of(file.descriptor());
}
