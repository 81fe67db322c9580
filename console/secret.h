#pragma once

// Text that must not outlive its use: passwords, and command lines that contain one.

#include <string>
#include <string_view>

/// Overwrites a text, its spare capacity included, and leaves it empty.
void wipe(std::string& text);

/// A string that leaves no copy in memory when it grows or is destroyed. It can be moved but, like
/// any class with a move constructor alone, neither copied nor assigned.
class Secret {
  public:
    Secret() = default;
    explicit Secret(std::string_view text);
    ~Secret();
    Secret(Secret&&) = default;  // the destructor wipes what is left in the source

    Secret& append(std::string_view more);
    void clear();
    [[nodiscard]] std::string_view view() const { return text_; }
    [[nodiscard]] char* data() { return text_.data(); }  ///< NUL-terminated

  private:
    std::string text_;
};
