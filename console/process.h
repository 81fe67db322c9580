#pragma once

// Runs commands with /bin/sh.

#include <string>

/// Runs a command line and waits for it. Flushes standard output first, so that earlier text comes
/// before the command's output. Returns the result of system: 0 on success.
int run_command(const std::string& command_line);
