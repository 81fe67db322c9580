#pragma once

// A folder for one test, removed with its content when the test ends.

#include <string>

class TemporaryFolder {
  public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// Returns the path of that name in the folder, or of the folder itself.
    [[nodiscard]] std::string path(const std::string& name = "") const;

    /// Writes a file, creating its folders. Returns its path.
    [[nodiscard]] std::string write(const std::string& name, const std::string& text) const;

  private:
    std::string path_;
};

/// Returns the content of a file, or nothing if it cannot be read.
std::string file_text(const std::string& path);
