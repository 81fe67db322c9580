#pragma once

// Reads passwords from the keyboard. Replaces the C library's function of the same name: one
// library leaves copies of the input in freed memory, another fails without a controlling terminal
// and truncates long passwords.

/// Writes the prompt to the controlling terminal and reads a line from it without echo or signal
/// keys, discarding what was typed before the prompt. Without such a terminal, uses standard error
/// and standard input. Returns the line without its line feed, empty at the end of input, in
/// storage that the next call overwrites and the caller should wipe. Returns null with errno set if
/// nothing can be read; errno is EINTR after the interrupt key or a request to end the session.
/// Always restores the terminal's settings.
extern "C" char* getpass(const char* prompt);  // NOLINT(readability-redundant-declaration)
