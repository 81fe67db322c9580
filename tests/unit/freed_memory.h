#pragma once

// Secrets must be wiped before their memory is released, and no command may end the session for
// lack of memory. In the test program new and delete are replaced by ones that can inspect released
// blocks and refuse to allocate.

#include <string>

/// During its lifetime, counts the blocks that still contain the secret when they are released. Use
/// a secret of 16 bytes or more: a shorter one may be stored without a block.
class FreedMemory {
  public:
    explicit FreedMemory(const char* secret);
    ~FreedMemory();
    FreedMemory(const FreedMemory&) = delete;
    FreedMemory& operator=(const FreedMemory&) = delete;

    [[nodiscard]] int copies_of_secret() const;
};

/// During its lifetime, new finds no memory.
class NoMemory {
  public:
    NoMemory();
    ~NoMemory();
    NoMemory(const NoMemory&) = delete;
    NoMemory& operator=(const NoMemory&) = delete;
};
