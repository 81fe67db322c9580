#pragma once

// Prepares a transfer of the device's configuration to or from an FTP server: file name,
// administrator's answers and command line.

#include <cstddef>
#include <string>

enum class Direction { BACKUP, RESTORE };

/// The administrator's answers, each exactly as typed. Wiped on destruction.
struct TransferParameters {
    ~TransferParameters();

    std::string server;    ///< host name or address
    std::string port;      ///< empty for the FTP client's default
    std::string username;  ///< empty for none
    std::string password;  ///< empty for none; dropped without a user name
    std::string path;      ///< of the file for a restore, of its directory for a backup
};

/// Writes a name such as "config_2025-3-7_0905.bin" from the local time, NUL-terminated and
/// truncated to size bytes. Returns 1, or 0 with the buffer untouched if the time cannot be read.
int make_backup_file_name(char* buffer, std::size_t size);

/// Asks for the five answers. The end of input is an empty answer. Returns false, without asking
/// the rest, if Ctrl-C cancels a question.
bool ask_transfer_parameters(TransferParameters& parameters, Direction direction);

/// Returns the command line for those answers. The file name is empty for a restore.
std::string transfer_command(const TransferParameters& parameters, const std::string& file_name,
                             Direction direction);

/// Asks for the answers and builds the command line, which the caller wipes: it may hold a
/// password. Returns false, and no command line, if a question is cancelled.
bool build_transfer_command(std::string& command_line, const std::string& file_name,
                            Direction direction);
