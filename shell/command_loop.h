#pragma once

// From a typed line to a command or a pending setting.

/// Reads and dispatches lines until exit or the end of input, then logs out and returns what the
/// logout returned.
int run_command_loop();

/// Handles one trimmed, non-empty line, writing into it: runs the command that its first word
/// names and returns the handler's result, or keeps the first word alone as a pending setting and
/// returns 0. A word of more than 256 bytes is dropped; of more than 100 settings the oldest goes.
int dispatch_line(char* line);
