#pragma once

// Reads a file of sections with a cursor over the sections, such as the menu tree.

#include <string>
#include <string_view>

#include "config/config_text.h"

/// A missing or unreadable file has no sections.
class MultiSectionConfigFile {
  public:
    /// The three options of the device's library; they change nothing for a reader.
    MultiSectionConfigFile(const char* path, bool /*unused*/, bool /*unused*/, bool /*unused*/);

    // The cursor points into the text.
    MultiSectionConfigFile(const MultiSectionConfigFile&) = delete;
    MultiSectionConfigFile& operator=(const MultiSectionConfigFile&) = delete;

    void ChangeSectionSyntax(const char* keyword, const char* opening_mark,
                             const char* closing_mark);

    /// Moves the cursor before the first section.
    void Restart();

    /// Moves the cursor to the next section. Returns 0 when there is none, else 1.
    int GotoNextSection();

    /// What follows the keyword on the current section's opening line.
    [[nodiscard]] std::string GetHeaderEntry() const;

    /// The value of the current section's first entry of that key, or
    /// ConfigBuffer::ENTRY_NOT_FOUND.
    [[nodiscard]] std::string GetSectionEntry(const char* key) const;

  private:
    std::string text_;
    config_text::SectionSyntax sections_;
    config_text::EntrySyntax entries_;
    std::string_view rest_;  // what the cursor has not passed
    config_text::Section current_;
};
