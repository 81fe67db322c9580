#pragma once

// The logs that can be read from the console.

/// The log_ls command: prints the names of the logs. The argument is ignored; returns 0.
int handle_log_ls(char* argument) noexcept;

/// The show command: prints the log of that name. Returns 0 after running cat, -1 after an error
/// message.
int handle_show(char* argument) noexcept;
