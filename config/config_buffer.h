#pragma once

// What the readers of configuration files hand to their callers.

#include <stdexcept>
#include <string>
#include <string_view>

/// The marker that stands for an entry that is not there.
struct ConfigBuffer {
    static constexpr std::string_view ENTRY_NOT_FOUND = "ENTRY_NOT_FOUND";
};

/// Storage for one key or value, always NUL-terminated. A longer text is cut to fit. The storage
/// is wiped before it is released, since passwords pass through it.
struct SmartBuffer {
    SmartBuffer();
    ~SmartBuffer();
    SmartBuffer(const SmartBuffer&) = delete;
    SmartBuffer& operator=(const SmartBuffer&) = delete;

    char* const data;
    const unsigned size;  ///< bytes, the terminating NUL included
};

/// Thrown for a configuration file that cannot be opened or read; what() names path and reason.
class UnreadableFile : public std::runtime_error {
  public:
    UnreadableFile(const std::string& path, int error_number);
};
