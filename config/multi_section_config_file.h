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

    /// 1 when the cursor now stands on a further section, 0 at the end.
    int GotoNextSection();

    /// What follows the keyword on the current section's opening line.
    [[nodiscard]] std::string GetHeaderEntry() const;

    /// The value of the current section's first entry of that key, or
    /// ConfigBuffer::ENTRY_NOT_FOUND.
    [[nodiscard]] std::string GetSectionEntry(const char* key) const;

  private:
    std::string text_;
    config_text::EntrySyntax syntax_;
    config_text::SectionSyntax sections_;
    config_text::SectionCursor cursor_;
    config_text::Section current_;
};
