#include "backup/transfer.h"

#include <sys/time.h>

#include <cstdio>
#include <ctime>

#include "shell/line_editor.h"
#include "shell/text.h"

namespace {

constexpr const char* RESTORE_HEAD = "/bin/wget -nv -t 3 --passive-ftp";
constexpr const char* RESTORE_TAIL = " -O - | /bin/backupconfig -r -s stdin -l /tmp/restorelog.txt";
constexpr const char* BACKUP_HEAD = "wput -B -t 3 -I \"backupconfig -b -d stdout\"";
constexpr const char* BACKUP_TAIL = " > /tmp/auto-backup.log 2>&1";

std::string ftp_address(const TransferParameters& parameters, const std::string& file_name,
                        Direction direction) {
    std::string address = "ftp://";
    if (!parameters.username.empty()) {
        address += parameters.username;
        if (!parameters.password.empty()) {
            address += ":" + parameters.password;
        }
        address += "@";
    }
    address += parameters.server;
    if (!parameters.port.empty()) {
        address += ":" + parameters.port;
    }
    if (!parameters.path.empty()) {
        const char first = parameters.path.front();
        if (first != '/' && first != '.') {
            address += "/";
        }
        address += parameters.path;
    }
    if (direction == Direction::BACKUP && address.back() != '/') {
        address += "/";
    }
    return address + file_name;
}

}  // namespace

TransferParameters::~TransferParameters() {
    for (std::string* answer : {&server, &port, &username, &password, &path}) {
        wipe(*answer);
    }
}

int make_backup_file_name(char* buffer, std::size_t size) {
    timeval now = {};
    if (gettimeofday(&now, nullptr) != 0) {
        return 0;
    }
    const std::time_t seconds = now.tv_sec;
    const std::tm* broken_down = std::localtime(&seconds);
    if (broken_down == nullptr) {
        return 0;
    }
    const std::tm local = *broken_down;
    std::snprintf(buffer, size, "config_%d-%d-%d_%02d%02d.bin", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min);
    return 1;
}

void ask_transfer_parameters(TransferParameters& parameters, Direction direction) {
    parameters.server = read_answer("tessel:> Server: ").value_or("");
    parameters.port = read_answer("tessel:> Port: ").value_or("");
    parameters.path = read_answer(direction == Direction::RESTORE ? "tessel:> File path: "
                                                                  : "tessel:> Server path: ")
                          .value_or("");
    parameters.username = read_answer("tessel:> Username: ").value_or("");
    parameters.password = read_password("tessel:> Password: ").value_or("");
}

std::string transfer_command(const TransferParameters& parameters, const std::string& file_name,
                             Direction direction) {
    const std::string address = ftp_address(parameters, file_name, direction);
    if (direction == Direction::RESTORE) {
        return std::string(RESTORE_HEAD) + " " + address + RESTORE_TAIL;
    }
    return std::string(BACKUP_HEAD) + " " + address + BACKUP_TAIL;
}

void build_transfer_command(std::string& command_line, const std::string& file_name,
                            Direction direction) {
    TransferParameters parameters;
    ask_transfer_parameters(parameters, direction);
    command_line += transfer_command(parameters, file_name, direction);
}
