#pragma once

// Commands for the system's command interpreter.

#include <string>

/// Runs a command line and waits for its end. What was printed before is flushed first, so that it
/// comes before the command's own output. Returns what system returned: 0 for success.
int run_command(const std::string& command_line);
