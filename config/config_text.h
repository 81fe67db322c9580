#pragma once

// Parses the syntax that all configuration files share. Any bytes are accepted, and time and memory
// grow linearly with the file.
//
//   # a comment                      '#' at the start of a line,
//   section admin {                  or after a blank outside double quotes
//       user_name = admin # comment
//       password  = pa#ss            no comment: no blank before the '#'
//   }
//
// A blank is a space, a tab or a carriage return. Blanks around headers, keys and values are
// dropped; double quotes are kept. An opening mark may also be alone on the next non-empty line. A
// section that is still open at the next one or at the end of the file ends there.

#include <string>
#include <string_view>

namespace config_text {

/// The characters that delimit an entry.
struct EntrySyntax {
    char assignment = '=';
    char end = '\n';
    char comment = '#';
};

/// The words that delimit a section. The marks are kept without a closing line feed, since lines
/// are split at line feeds anyway.
struct SectionSyntax {
    SectionSyntax(const char* keyword, const char* opening_mark, const char* closing_mark);
    std::string keyword;
    std::string opening;
    std::string closing;
};

struct Entry {
    std::string_view key;
    std::string_view value;
};

struct Section {
    std::string_view header;
    std::string_view body;
};

/// Reads a whole regular file. Returns 0, or an errno value and an empty text. Refuses any other
/// kind of file: a pipe or a device might never end.
int read_file(const char* path, std::string& text);

/// Removes the next line from the front of rest and returns it without its end character.
std::string_view take_line(std::string_view& rest, char end);

/// Returns the line without its comment and surrounding blanks.
std::string_view strip(std::string_view line, char comment);

/// Advances rest past the next entry. Returns false if none is left.
bool next_entry(std::string_view& rest, const EntrySyntax& syntax, Entry& entry);

/// Returns the value of the first entry with that key, or ConfigBuffer::ENTRY_NOT_FOUND.
std::string find_value(std::string_view text, std::string_view key, const EntrySyntax& syntax);

/// Advances rest past the next section. Returns false, with an empty section, if none is left.
bool next_section(std::string_view& rest, const SectionSyntax& syntax, char comment,
                  Section& section);

}  // namespace config_text
