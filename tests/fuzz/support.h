#pragma once

// What the fuzz targets share. A target is one LLVMFuzzerTestOneInput, which aborts when the code
// under test does anything but what a plain second implementation says. Built with TESSEL_FUZZ a
// target is searched by libFuzzer; otherwise it runs the files of its corpus, as a test.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Aborts with that explanation unless the condition holds.
void require(bool condition, const char* what);

/// Aborts and shows both texts unless they are equal.
void require_equal(std::string_view seen, std::string_view expected, const char* what);

std::string input_text(const std::uint8_t* data, std::size_t size);

/// Cuts the next line off the front of rest, without its line feed.
std::string take_line(std::string& rest);

/// A regular file of that content which has a path but stands in no folder.
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

/// What the action writes to standard output.
std::string printed(const std::function<void()>& action);

/// The world outside. Nothing is ever started: system, popen, readline and getpass are replaced at
/// link time, and so are files at the device's own paths.
struct Outside {
    std::map<std::string, std::string> files;  ///< what can be read, by path
    std::map<std::string, std::string> written;
    std::vector<std::string> command_lines;  ///< handed to system
    std::vector<std::string> requests;       ///< PATH_INFO of each client started
    std::string client_output;
    int command_status = 0;
    std::string typed;  ///< answers to questions, a line each; input is at its end when it is empty
};

extern Outside outside;
