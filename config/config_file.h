#pragma once

// Reads a flat file of entries, such as the firmware version file.

#include <string>

#include "config/config_text.h"

/// A missing or unreadable file has no entries.
class ConfigFile {
  public:
    /// Accepts the two options of the device's library; they do not affect reading.
    ConfigFile(const char* path, bool /*unused*/, bool /*unused*/);

    /// Sets the characters that separate key and value, end an entry and start a comment. The
    /// defaults are '=', a line feed and '#'.
    void ChangeSyntax(char assignment, char end, char comment);

    /// Returns the value of the first entry with that key, or ConfigBuffer::ENTRY_NOT_FOUND.
    [[nodiscard]] std::string GetEntry(const char* key) const;

  private:
    std::string text_;
    config_text::EntrySyntax syntax_;
};
