#pragma once

// Transfers the configuration to and from an FTP server. Both commands ignore their argument, and
// no failure of a transfer ends the session.

/// The backup command. Returns 1 if the time cannot be read, otherwise 0.
int handle_backup(char* argument) noexcept;

/// The restore command. Reboots the device after a successful restore. Returns 0.
int handle_restore(char* argument) noexcept;
