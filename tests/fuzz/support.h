#pragma once

// What the fuzz targets share. A target is one LLVMFuzzerTestOneInput, which aborts when the result
// of the code under test differs from that of a plain second implementation. With TESSEL_FUZZ
// libFuzzer searches for such inputs; otherwise the target runs the files of its corpus, as a test.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Aborts with a message unless the condition holds.
void require(bool condition, const char* what);

/// Aborts and prints both texts unless they are equal.
void require_equal(std::string_view seen, std::string_view expected, const char* what);

std::string input_text(const std::uint8_t* data, std::size_t size);

/// Removes the first line from rest. Returns it without its line feed.
std::string take_line(std::string& rest);

/// A regular file in memory. It has a path, but is in no folder.
class MemoryFile {
  public:
    explicit MemoryFile(std::string_view content);
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    [[nodiscard]] const char* path() const { return path_.c_str(); }
    [[nodiscard]] int descriptor() const { return descriptor_; }

  private:
    int descriptor_;
    std::string path_;
};

/// Returns what the action writes to standard output.
std::string printed(const std::function<void()>& action);

/// What surrounds the program. Nothing is ever started: system, popen, readline and getpass are
/// replaced, and so are the files at the device's paths.
struct Outside {
    std::map<std::string, std::string> files;  ///< {path: content} of what can be read
    std::map<std::string, std::string> written;
    std::vector<std::string> command_lines;  ///< passed to system
    std::vector<std::string> requests;       ///< PATH_INFO of each client started
    std::string client_output;
    int command_status = 0;
    std::string typed;  ///< answers to questions, a line each; empty: end of input
};

extern Outside outside;
