// Prints the command lines for many answers. Standard input holds records of six NUL-terminated
// texts: backup or restore, server, port, path, user name, password. For each record one
// NUL-terminated command line is printed.

#include <cstdio>
#include <iostream>
#include <string>

#include "backup/transfer.h"

int main() {
    std::string direction;
    while (std::getline(std::cin, direction, '\0')) {
        TransferParameters answers;
        for (std::string* answer : {&answers.server, &answers.port, &answers.path,
                                    &answers.username, &answers.password}) {
            if (!std::getline(std::cin, *answer, '\0')) {
                std::fputs("print_transfer_command: the last record is cut short\n", stderr);
                return 1;
            }
        }
        const bool backup = direction == "backup";
        const std::string line = transfer_command(answers, backup ? "config_2025-3-7_0905.bin" : "",
                                                  backup ? Direction::BACKUP : Direction::RESTORE);
        std::fwrite(line.c_str(), 1, line.size() + 1, stdout);
    }
    return 0;
}
