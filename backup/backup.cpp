#include "backup/backup.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <new>
#include <string>

#include "backup/transfer.h"
#include "console/file.h"
#include "console/process.h"
#include "console/secret.h"
#include "console/signals.h"
#include "console/text.h"

namespace {

constexpr const char* BACKUP_LOG_PATH = "/tmp/auto-backup.log";
constexpr const char* RESTORE_LOG_PATH = "/tmp/restorelog.txt";
constexpr const char* BACKUP_SUCCESS_WORD = "FINISHED";
constexpr std::size_t NAME_BUFFER_SIZE = 64;  // bytes
constexpr std::size_t MAX_LOG_LINE = 1023;    // bytes; reading stops at a longer line

// Reads a line without its line feed. Returns false at the end or if the line is too long.
bool read_log_line(std::FILE* log, std::string& line) {
    line.clear();
    int c = std::getc(log);
    const bool at_end = c == EOF;
    while (c != EOF && c != '\n' && line.size() <= MAX_LOG_LINE) {
        line += static_cast<char>(c);
        c = std::getc(log);
    }
    return !at_end && line.size() <= MAX_LOG_LINE;
}

// Returns the lines of a log, each with a line feed, or nothing if memory runs out. Deletes the
// log: the next transfer writes a new one.
std::string take_log(const char* path) {
    const File log(std::fopen(path, "r"));
    if (!log) {
        return "";
    }
    std::string text;
    try {
        std::string line;
        while (read_log_line(log.get(), line)) {
            text.append(line, 0, line.find('\0')).append("\n");
        }
    } catch (const std::bad_alloc&) {
        text.clear();
    }
    unlink(path);
    return text;
}

// Asks, transfers and returns the status of the command line. Returns -1 without a transfer if the
// dialogue is cancelled, memory runs out or the session is to end.
int transfer(const char* file_name, Direction direction) try {
    std::string command_line;
    if (!build_transfer_command(command_line, file_name, direction)) {
        return -1;
    }
    const int status = end_requested() ? -1 : run_command(command_line);
    wipe(command_line);
    return status;
} catch (const std::bad_alloc&) {
    return -1;
}

}  // namespace

int handle_backup(char* /*argument*/) noexcept {
    std::array<char, NAME_BUFFER_SIZE> file_name{};
    if (make_backup_file_name(file_name.data(), file_name.size()) == 0) {
        return 1;
    }
    print("Starting configuration backup...\n");
    const int status = transfer(file_name.data(), Direction::BACKUP);
    const std::string log = take_log(BACKUP_LOG_PATH);
    const bool finished =
        status == 0 && (log.empty() || log.find(BACKUP_SUCCESS_WORD) != std::string::npos);
    print(finished ? "Configuration backup finished!\n" : "Configuration backup failed!\n");
    return 0;
}

int handle_restore(char* /*argument*/) noexcept {
    print("Starting configuration restore...\n");
    const int status = transfer("", Direction::RESTORE);
    const std::string log = take_log(RESTORE_LOG_PATH);
    if (status == 0) {
        print("Configuration restore finished.!\nRebooting...\n");
        run_command("reboot");
    } else {
        print(log);
        print("Configuration restore failed.!\n");
    }
    return 0;
}
