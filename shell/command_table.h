#pragma once

// The table of commands, shared by dispatch, help and look-up.

/// A command's function. Gets the rest of the line after the command word (writable,
/// NUL-terminated, possibly empty) and reports its own failures on standard output. Returns 0 when
/// done, another value when refused; the loop ignores both. Must not throw: an exception that
/// escapes ends the process.
using CommandHandler = int (*)(char* argument) noexcept;

struct CommandEntry {
    const char* name;  ///< the command word, matched exactly
    CommandHandler handler;
    const char* doc;  ///< one line for help, which adds the full stop
};

/// All commands in the order of help, ended by a row of nulls.
extern const CommandEntry commands[];

/// Returns the row whose name equals the word, or null.
const CommandEntry* lookup_command(const char* word);
