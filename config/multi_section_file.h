#pragma once

// Reads a file of sections with a cursor over the entries of one section, such as the extension
// database and the access-control database.

#include <string>
#include <string_view>

#include "config/config_text.h"

namespace Configuration {

class MultiSectionFile {
  public:
    /// The options and the last text belong to the device's library; they change nothing for a
    /// reader. Of assignment and comment the first character counts. Throws a runtime error that
    /// names path and reason when the file cannot be opened or read.
    MultiSectionFile(const char* path, bool /*unused*/, bool /*unused*/, bool /*unused*/,
                     const char* keyword, const char* opening_mark, const char* closing_mark,
                     const char* assignment, const char* comment, const char* /*unused*/);
    ~MultiSectionFile();

    // The cursors point into the text.
    MultiSectionFile(const MultiSectionFile&) = delete;
    MultiSectionFile& operator=(const MultiSectionFile&) = delete;

    /// Leaves the current section.
    void Restart();

    /// Makes the first section of that name current, with the entry cursor before its first
    /// entry. Returns 0 when there is none, and then no section is current.
    int GotoSection(const char* name);

    /// Moves the entry cursor before the first entry of the current section.
    void RestartSection();

    /// Moves the entry cursor to the next entry. Returns 0 when there is none, else 1.
    int GotoSecNextEntry();

    /// Moves the entry cursor to the section's first entry of that key. Returns 0 when there is
    /// none, else 1.
    int GotoSecEntry(const char* key);

    /// Copies key and value of the entry under the cursor as NUL-terminated texts, cut to the
    /// given sizes in bytes. A buffer of size 0 may be null and gets nothing.
    void GetSecCurrentEntry(char* key, unsigned key_size, char* value, unsigned value_size) const;

  private:
    std::string text_;
    config_text::SectionSyntax sections_;
    config_text::EntrySyntax entries_;
    config_text::Section current_;
    std::string_view rest_;  // what the entry cursor has not passed
    config_text::Entry entry_;
};

}  // namespace Configuration
