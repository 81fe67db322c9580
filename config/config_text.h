#pragma once

// The syntax that all configuration files share, in small pieces. Any bytes are accepted, and time
// and memory grow linearly with the file.
//
//   # a comment                      '#' at the start of a line,
//   section admin {                  or after a blank outside double quotes
//       user_name = admin # comment
//       password  = pa#ss            no comment: no blank before the '#'
//   }
//
// A blank is a space, a tab or a carriage return. Blanks around headers, keys and values are
// dropped; double quotes stay. An opening mark may also stand alone on the next non-empty line. A
// section that is still open when the next one starts, or at the end of the file, ends there.

#include <string>
#include <string_view>

namespace config_text {

/// The characters that give an entry its shape.
struct EntrySyntax {
    char assignment = '=';
    char end = '\n';
    char comment = '#';
};

/// The words that give a section its shape. The marks are kept without a closing line feed: the
/// line that they end or fill is cut at line feeds anyway.
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

/// Reads a regular file whole. Returns 0, or the errno that tells why it could not be read (then
/// text is empty). Anything but a regular file is refused: a pipe or a device might never end.
int read_file(const char* path, std::string& text);

/// Cuts the next line off the front of rest, without its end character.
std::string_view take_line(std::string_view& rest, char end);

/// The line without its comment and without the blanks around the rest.
std::string_view strip(std::string_view line, char comment);

/// Advances rest past the next entry. False when there is none left.
bool next_entry(std::string_view& rest, const EntrySyntax& syntax, Entry& entry);

/// The first entry of that key; false when there is none.
bool find_entry(std::string_view text, std::string_view key, const EntrySyntax& syntax,
                Entry& entry);

/// Advances rest past the next section. False, and an empty section, when there is none left.
bool next_section(std::string_view& rest, const SectionSyntax& syntax, char comment,
                  Section& section);

}  // namespace config_text
