#include "console/secret.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <vector>

namespace {

constexpr std::size_t STACK_SIZE = 16384;  // bytes below the caller that are wiped
// What stdio takes for a stream, and what may have been joined to free memory behind it; bytes.
constexpr std::array<std::size_t, 3> STREAM_BUFFERS = {1024, 4096, 16384};
constexpr std::size_t FIRST_LINE_BUFFER = 120;  // bytes; what getline begins with and doubles

// Blocks of the size that a library call has just freed are the freed blocks.
std::vector<std::unique_ptr<char[]>> take_freed_blocks(std::size_t length) {
    std::vector<std::unique_ptr<char[]>> blocks;
    const auto take = [&blocks](std::size_t size) {
        blocks.emplace_back(new char[size]);
        explicit_bzero(blocks.back().get(), size);
    };
    std::for_each(STREAM_BUFFERS.begin(), STREAM_BUFFERS.end(), take);
    for (std::size_t size = FIRST_LINE_BUFFER; size <= 2 * length; size *= 2) {
        take(size);
    }
    return blocks;
}

}  // namespace

void wipe(std::string& text) {
    text.resize(text.capacity());  // never allocates
    explicit_bzero(text.data(), text.size());
    text.clear();
}

// Not inlined, so that its own frame lies where those of the library calls lay.
[[gnu::noinline]] void wipe_leftovers(std::size_t length) {
    std::array<char, STACK_SIZE> frame;
    explicit_bzero(frame.data(), frame.size());
    const auto blocks = take_freed_blocks(length);
    // Copies of these sizes pass through the vector registers that held the secret.
    for (std::size_t size = 16; size <= 1024; size *= 2) {
        std::memmove(frame.data(), frame.data() + STACK_SIZE / 2, size);
    }
    explicit_bzero(frame.data(), frame.size());
}

Secret::Secret(std::string_view text) : text_(text) {}

Secret::~Secret() {
    const std::size_t length = text_.size();
    wipe(text_);
    if (length > 0) {
        wipe_leftovers(length);
    }
}

Secret& Secret::append(std::string_view more) {
    const std::size_t length = text_.size() + more.size();
    if (length > text_.capacity()) {
        // The string would free its old storage as it is.
        std::string grown;
        grown.reserve(2 * length);
        grown.append(text_);
        wipe(text_);
        text_.swap(grown);
    }
    text_.append(more);
    return *this;
}
