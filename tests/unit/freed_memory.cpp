#include "tests/unit/freed_memory.h"

#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

const char* watched_secret = nullptr;
int copies = 0;
bool has_memory = true;

}  // namespace

void* operator new(std::size_t size) {
    if (has_memory) {
        if (void* block = std::malloc(size == 0 ? 1 : size)) {
            return block;
        }
    }
    throw std::bad_alloc();
}

void operator delete(void* block) noexcept {
    if (block != nullptr && watched_secret != nullptr &&
        memmem(block, malloc_usable_size(block), watched_secret, std::strlen(watched_secret))) {
        ++copies;
        // So that it is not counted again for the block's next owner.
        std::memset(block, 0, malloc_usable_size(block));
    }
    std::free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
    operator delete(block);
}

FreedMemory::FreedMemory(const char* secret) {
    copies = 0;
    watched_secret = secret;
}

FreedMemory::~FreedMemory() {
    watched_secret = nullptr;
}

int FreedMemory::copies_of_secret() const {
    return copies;
}

NoMemory::NoMemory() {
    has_memory = false;
}

NoMemory::~NoMemory() {
    has_memory = true;
}
