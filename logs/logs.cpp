#include "logs/logs.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "console/process.h"
#include "console/text.h"

namespace {

struct LogFileEntry {
    const char* name;
    const char* path;
};

constexpr LogFileEntry log_files[] = {
    {"cm", "/var/log/cm.log"},
    {"sip", "/tmp/logs/sip_ua.log"},
    {"sip_reg", "/tmp/logs/sip_reg.log"},
    {"Q.931", "/tmp/logs/isdnagent.log"},
    {nullptr, nullptr},
};

int refuse(const char* reason) {
    print(make_error_message(reason) + "\n");
    return -1;
}

}  // namespace

int handle_log_ls(char* /*argument*/) noexcept {
    for (const LogFileEntry* row = log_files; row->name != nullptr; ++row) {
        std::printf("\n%s", row->name);
    }
    std::puts("\n");
    return 0;
}

int handle_show(char* argument) noexcept try {
    if (*trim_blanks(argument) == '\0') {
        return refuse("the syntax is: show log_type");
    }
    for (const LogFileEntry* row = log_files; row->name != nullptr; ++row) {
        if (std::strcmp(row->name, argument) == 0) {
            // Only a path from the table reaches /bin/sh, never what was typed.
            run_command(std::string("cat ") + row->path);
            return 0;
        }
    }
    return refuse("There is no such log file");
} catch (const std::bad_alloc&) {
    return refuse_for_memory();
}
