#include "console/process.h"

#include <cstdio>
#include <cstdlib>

int run_command(const std::string& command_line) {
    std::fflush(stdout);
    return std::system(command_line.c_str());  // NOLINT(cert-env33-c): pipelines need /bin/sh
}
