#pragma once

// What the readers of configuration files hand to their callers.

#include <cstring>
#include <string_view>

/// The marker for an entry that does not exist.
struct ConfigBuffer {
    static constexpr std::string_view ENTRY_NOT_FOUND = "ENTRY_NOT_FOUND";
};

/// Storage for one key or value, always NUL-terminated. A longer text is cut to fit. The storage
/// is wiped before it is released, since passwords pass through it.
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
