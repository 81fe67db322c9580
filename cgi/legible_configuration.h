#pragma once

// The readable text of one configuration part, made by the back end and shown without its version
// line.

#include <string>

/// Has the text of that part generated and prints it, each piece as soon as it is read. The part
/// must be in the catalogue: the general one when extension is empty, else that of the extension
/// parts. No failure is reported; a failure shows as missing text.
void generate_legible_configuration(const std::string& name, const std::string& extension);

/// Prints the text of the file at that path as described above, without the closing line feeds.
void print_without_version(const char* path);
