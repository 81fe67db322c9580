#pragma once

// Small helpers for text that is typed or printed.

#include <string>
#include <string_view>

/// Cuts trailing spaces and tabs in place and returns a pointer past the leading ones, into the
/// same string. No other character counts as blank.
char* trim_blanks(char* text);

/// "ERROR: " followed by the message.
std::string make_error_message(const std::string& message);

/// Says that there is no memory for a command. Returns -1, the result of a refused command.
int refuse_for_memory();

/// Puts text on standard output, NUL bytes included. A terminal that fails is ignored: the session
/// goes on until its input ends.
void print(std::string_view text);

/// The same, after all that was printed before, and flushed.
void print_now(std::string_view text);

/// Writes text to an open file. What cannot be written is lost.
void write_all(int file, std::string_view text);
