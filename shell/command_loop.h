#pragma once

// Turns a typed line into a command or a pending setting.

/// Reads and dispatches lines until exit or the end of input, then logs out and returns the
/// logout's result.
int run_command_loop();

/// Handles a trimmed, non-empty line, which it modifies. If the first word names a command, runs it
/// and returns its result; otherwise queues that word alone as a setting and returns 0, or -1 if
/// memory runs out. Drops a word of more than 256 bytes, and the oldest of more than 100 settings.
int dispatch_line(char* line);
