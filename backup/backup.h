#pragma once

// The configuration to an FTP server and back. Both commands ignore their argument, and neither
// ends the session, whatever happens to the transfer.

/// The backup command. Returns 1 when the clock cannot be read, else 0.
int handle_backup(char* argument) noexcept;

/// The restore command; restarts the device when it succeeded. Returns 0.
int handle_restore(char* argument) noexcept;
