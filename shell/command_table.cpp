#include "shell/command_table.h"

#include <cstdio>
#include <cstring>

#include "backup/backup.h"
#include "catalogue/list.h"
#include "cgi/get.h"
#include "console/state.h"
#include "logs/logs.h"
#include "save/save.h"

namespace {

constexpr int NAMES_PER_LINE = 6;

void print_command_names() {
    for (const CommandEntry* row = commands; row->name != nullptr; ++row) {
        const bool starts_line = row != commands && (row - commands) % NAMES_PER_LINE == 0;
        std::printf(starts_line ? "\n%s\t" : "%s\t", row->name);
    }
    std::printf("\n");
}

int handle_help(char* argument) noexcept {
    std::printf("\n");
    bool matched = false;
    for (const CommandEntry* row = commands; row->name != nullptr; ++row) {
        if (*argument == '\0' || std::strcmp(argument, row->name) == 0) {
            std::printf("%s\t\t%s.\n", row->name, row->doc);
            matched = true;
        }
    }
    if (!matched) {
        std::printf("No commands match `%s'.  Possibilties are:\n", argument);
        print_command_names();
    }
    std::printf("\n");
    return 0;
}

int handle_exit(char* /*argument*/) noexcept {
    _gDoExit = true;
    return 0;
}

}  // namespace

constexpr CommandEntry commands[] = {
    {"list", handle_list, "Show configuration parts that can be modified"},
    {"get", handle_get, "Generate configuration part"},
    {"save", handle_save, "Save configuration part"},
    {"exit", handle_exit, "Exit tessel"},
    {"help", handle_help, "Display the help"},
    {"backup", handle_backup, "Backup and download configuration"},
    {"restore", handle_restore, "Upload configuration"},
    {"log_ls", handle_log_ls, "Display log files that can be viewed"},
    {"show", handle_show, "Show logfile"},
    {nullptr, nullptr, nullptr},
};

const CommandEntry* lookup_command(const char* word) {
    for (const CommandEntry* row = commands; row->name != nullptr; ++row) {
        if (std::strcmp(row->name, word) == 0) {
            return row;
        }
    }
    return nullptr;
}
