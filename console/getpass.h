#pragma once

// Passwords from the keyboard. The C libraries' own getpass differ: one leaves copies of what was
// typed in freed memory, another fails without a controlling terminal and cuts long passwords. This
// one replaces them under the same name.

/// Writes the prompt to the controlling terminal and reads a line from it without echo and without
/// signal keys; without such a terminal the prompt goes to standard error and the line comes from
/// standard input. What was typed before the prompt on the terminal is thrown away. Returns the
/// line without its line feed, empty at the end of input, in storage that the next call overwrites
/// and the caller should wipe. Returns null with errno set when nothing can be read: to EINTR when
/// the interrupt key was typed on the terminal or the session is to end. The terminal has its
/// settings back on every return.
extern "C" char* getpass(const char* prompt);  // NOLINT(readability-redundant-declaration)
