#pragma once

// The shell's vocabulary: one table that dispatch, help and every search share.

#include "shell/handler.h"

struct CommandEntry {
    const char* name;  ///< the command word, matched exactly
    CommandHandler handler;
    const char* doc;  ///< one line for help, which adds the full stop
};

/// Every command in the order of help, ended by a row of nulls.
extern const CommandEntry commands[];

/// The row whose name equals the word, or null.
const CommandEntry* lookup_command(const char* word);
