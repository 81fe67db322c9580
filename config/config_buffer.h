#pragma once

// What the readers of configuration files return to their callers.

#include <cstring>

/// Returned for an entry that does not exist.
struct ConfigBuffer {
    static constexpr const char* ENTRY_NOT_FOUND = "ENTRY_NOT_FOUND";
};

/// Storage for a key or value, always NUL-terminated; longer text is truncated. Wiped before it is
/// released, since passwords pass through it.
struct SmartBuffer {
    static constexpr unsigned CAPACITY = 4096;  // bytes; bounds stored names and passwords

    SmartBuffer() = default;
    ~SmartBuffer() {
        explicit_bzero(data, size);
        delete[] data;
    }
    SmartBuffer(const SmartBuffer&) = delete;
    SmartBuffer& operator=(const SmartBuffer&) = delete;

    char* const data = new char[CAPACITY]();
    const unsigned size = CAPACITY;  ///< the terminating NUL included
};
