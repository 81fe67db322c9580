#pragma once

// Secrets are to be gone from memory when they are done with, and no command may end the session
// for want of memory. In the test program new and delete are replaced by ones that can look at what
// is given back, and refuse what is asked for.

#include <string>

/// While one lives, counts the blocks that still hold the secret when they are released. Secrets
/// under 16 bytes may live without a block of their own, so take a longer one.
class FreedMemory {
  public:
    explicit FreedMemory(const char* secret);
    ~FreedMemory();
    FreedMemory(const FreedMemory&) = delete;
    FreedMemory& operator=(const FreedMemory&) = delete;

    [[nodiscard]] int copies_of_secret() const;
};

/// While one lives, new finds no memory.
class NoMemory {
  public:
    NoMemory();
    ~NoMemory();
    NoMemory(const NoMemory&) = delete;
    NoMemory& operator=(const NoMemory&) = delete;
};
