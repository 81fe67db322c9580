#include "console/secret.h"

#include <array>
#include <cstring>

namespace {

// Copying leaves bytes of the secret in vector registers, which the dynamic linker saves on the
// stack when a library first calls a function. Other copies overwrite them.
void overwrite_registers() {
    std::array<char, 2048> zeros{};
    for (std::size_t size = 16; size <= zeros.size() / 2; size *= 2) {
        std::memmove(zeros.data(), zeros.data() + zeros.size() / 2, size);
        explicit_bzero(zeros.data(), size);  // so that the compiler keeps the copy
    }
}

}  // namespace

void wipe(std::string& text) {
    text.resize(text.capacity());  // never allocates
    explicit_bzero(text.data(), text.size());
    text.clear();
    overwrite_registers();
}

Secret::Secret(std::string_view text) : text_(text) {}

Secret::~Secret() {
    wipe(text_);
}

Secret& Secret::append(std::string_view more) {
    const std::size_t length = text_.size() + more.size();
    if (length > text_.capacity()) {
        // A growing string would free its old storage unwiped.
        std::string grown;
        grown.reserve(2 * length);
        grown.append(text_);
        wipe(text_);
        text_.swap(grown);
    }
    text_.append(more);
    return *this;
}

void Secret::clear() {
    wipe(text_);
}
