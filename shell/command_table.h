#pragma once

// The shell's vocabulary: one table that dispatch, help and every search share.

/// A command's function. It gets the rest of the typed line after the command word (writable,
/// NUL-terminated, possibly empty) and reports its own failures on standard output. It returns 0
/// when done and -1 for a refused command; the loop ignores both. Nothing may be thrown out of it:
/// an exception that escapes ends the process.
using CommandHandler = int (*)(char* argument) noexcept;

struct CommandEntry {
    const char* name;  ///< the command word, matched exactly
    CommandHandler handler;
    const char* doc;  ///< one line for help, which adds the full stop
};

/// Every command in the order of help, ended by a row of nulls.
extern const CommandEntry commands[];

/// The row whose name equals the word, or null.
const CommandEntry* lookup_command(const char* word);
