#pragma once

// Reads a flat file of entries, such as the firmware version file.

#include <string>

#include "config/config_text.h"

/// A missing or unreadable file has no entries.
class ConfigFile {
  public:
    /// The two options of the device's library; they change nothing for a reader.
    ConfigFile(const char* path, bool /*unused*/, bool /*unused*/);

    /// Sets the characters between key and value, at the end of an entry and at the start of a
    /// comment. The defaults are '=', a line feed and '#'.
    void ChangeSyntax(char assignment, char end, char comment);

    /// The value of the first entry of that key, or ConfigBuffer::ENTRY_NOT_FOUND.
    [[nodiscard]] std::string GetEntry(const char* key) const;

  private:
    std::string text_;
    config_text::EntrySyntax syntax_;
};
