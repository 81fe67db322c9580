#pragma once

// What a transfer of the device's configuration to or from an FTP server needs before it is run:
// the file's name, the administrator's answers and the command line.

#include <cstddef>
#include <string>

enum class Direction { BACKUP, RESTORE };

/// The administrator's answers, each exactly as typed. Wiped on destruction.
struct TransferParameters {
    TransferParameters() = default;
    ~TransferParameters();
    TransferParameters(const TransferParameters&) = delete;
    TransferParameters& operator=(const TransferParameters&) = delete;

    std::string server;    ///< host name or address
    std::string port;      ///< empty for the FTP client's default
    std::string username;  ///< empty for none
    std::string password;  ///< empty for none; dropped without a user name
    std::string path;      ///< of the file for a restore, of its directory for a backup
};

/// Writes a name such as "config_2025-3-7_0905.bin", from the local time, cut to size bytes
/// and NUL-terminated. Returns 1, or 0 with the buffer untouched when there is no clock.
int make_backup_file_name(char* buffer, std::size_t size);

/// Asks for the five answers. The end of input at a question is an empty answer. False when one was
/// called off; the rest is then not asked.
bool ask_transfer_parameters(TransferParameters& parameters, Direction direction);

/// The command line for those answers. The file name is empty for a restore.
std::string transfer_command(const TransferParameters& parameters, const std::string& file_name,
                             Direction direction);

/// Asks for the answers and puts the command line together. It may hold a password: the caller
/// wipes it. False, and no command line, when a question was called off.
bool build_transfer_command(std::string& command_line, const std::string& file_name,
                            Direction direction);
