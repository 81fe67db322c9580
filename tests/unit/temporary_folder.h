#pragma once

// A folder of a test's own, removed with all that is in it when the test ends.

#include <string>

class TemporaryFolder {
  public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// The path of that name in the folder; without a name the folder itself.
    [[nodiscard]] std::string path(const std::string& name = "") const;

    /// Writes a file, and the folders it needs, and returns its path.
    [[nodiscard]] std::string write(const std::string& name, const std::string& text) const;

  private:
    std::string path_;
};

/// The bytes of a file; empty when it cannot be read.
std::string file_text(const std::string& path);
