#pragma once

/// A command's function. It gets the rest of the typed line behind the command word (writable,
/// NUL-terminated, possibly empty) and reports its own failures on standard output. It returns 0
/// when done and -1 for a refused command; the loop ignores both. Nothing may be thrown out of it:
/// an exception that escapes ends the process.
using CommandHandler = int (*)(char* argument) noexcept;
