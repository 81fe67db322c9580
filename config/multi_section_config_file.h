#pragma once

// Reads a file of sections, such as the menu tree, with a cursor over the sections.

#include <string>
#include <string_view>

#include "config/config_text.h"

/// A missing or unreadable file has no sections.
class MultiSectionConfigFile {
  public:
    /// Accepts the three options of the device's library; they do not affect reading.
    MultiSectionConfigFile(const char* path, bool /*unused*/, bool /*unused*/, bool /*unused*/);

    // The cursor points into the text.
    MultiSectionConfigFile(const MultiSectionConfigFile&) = delete;
    MultiSectionConfigFile& operator=(const MultiSectionConfigFile&) = delete;

    void ChangeSectionSyntax(const char* keyword, const char* opening_mark,
                             const char* closing_mark);

    /// Moves the cursor before the first section.
    void Restart();

    /// Moves the cursor to the next section. Returns 1, or 0 if there is none.
    int GotoNextSection();

    /// Returns what follows the keyword on the current section's opening line.
    [[nodiscard]] std::string GetHeaderEntry() const;

    /// Returns the value of the current section's first entry with that key, or
    /// ConfigBuffer::ENTRY_NOT_FOUND.
    [[nodiscard]] std::string GetSectionEntry(const char* key) const;

  private:
    std::string text_;
    config_text::SectionSyntax sections_;
    config_text::EntrySyntax entries_;
    std::string_view rest_;  // the text after the cursor
    config_text::Section current_;
};
