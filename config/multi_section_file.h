#pragma once

// Reads a file of sections, such as the extension database and the access-control database, with a
// cursor over the entries of one section.

#include <string>
#include <string_view>

#include "config/config_text.h"

namespace Configuration {

class MultiSectionFile {
  public:
    /// Accepts the options and the last text of the device's library; they do not affect reading.
    /// Only the first characters of assignment and comment count. Throws std::runtime_error, with
    /// path and reason, if the file cannot be read.
    MultiSectionFile(const char* path, bool /*unused*/, bool /*unused*/, bool /*unused*/,
                     const char* keyword, const char* opening_mark, const char* closing_mark,
                     const char* assignment, const char* comment, const char* /*unused*/);
    ~MultiSectionFile();

    // The cursors point into the text.
    MultiSectionFile(const MultiSectionFile&) = delete;
    MultiSectionFile& operator=(const MultiSectionFile&) = delete;

    /// Leaves the current section.
    void Restart();

    /// Makes the first section of that name current, with the entry cursor before its first entry.
    /// Returns 1, or 0 if there is none; then no section is current.
    int GotoSection(const char* name);

    /// Moves the entry cursor before the first entry of the current section.
    void RestartSection();

    /// Moves the entry cursor to the next entry. Returns 1, or 0 if there is none.
    int GotoSecNextEntry();

    /// Moves the entry cursor to the section's first entry with that key. Returns 1, or 0 if there
    /// is none.
    int GotoSecEntry(const char* key);

    /// Copies key and value of the current entry, NUL-terminated and truncated to the given sizes
    /// in bytes. A buffer of size 0 may be null.
    void GetSecCurrentEntry(char* key, unsigned key_size, char* value, unsigned value_size) const;

  private:
    std::string text_;
    config_text::SectionSyntax sections_;
    config_text::EntrySyntax entries_;
    config_text::Section current_;
    std::string_view rest_;  // the text after the entry cursor
    config_text::Entry entry_;
};

}  // namespace Configuration
