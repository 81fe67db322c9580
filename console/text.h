#pragma once

// Helpers for typed and printed text.

#include <string>
#include <string_view>

/// The characters that count as blank on a typed line.
constexpr const char* BLANKS = " \t";

/// Removes trailing blanks in place and returns a pointer past the leading ones.
char* trim_blanks(char* text);

/// "ERROR: " followed by the message.
std::string make_error_message(const std::string& message);

/// Prints the out-of-memory error. Returns -1, the result of a refused command.
int refuse_for_memory();

/// Writes text, NUL bytes included, to standard output. Errors are ignored: the session goes on
/// until its input ends.
void print(std::string_view text);

/// The same, after all earlier output, and flushed.
void print_now(std::string_view text);

/// Writes text to an open file. What cannot be written is lost.
void write_all(int file, std::string_view text);
