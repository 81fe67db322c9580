// Replaces the functions that reach outside the program. Files other than the device's are opened
// as usual, since the fuzzer and its runtime need theirs.

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/fuzz/support.h"

Outside outside;

namespace {

constexpr const char* DEVICE_FILES[] = {
    "/etc/menutree.conf",   "/etc/version.txt",           "/etc/tarn-conf/telephony/extensiondb",
    "/tmp/acldb",           "/tmp/script_legconftmp.txt", "/tmp/consoleLCFile",
    "/tmp/auto-backup.log", "/tmp/restorelog.txt"};

bool is_device_file(const char* path) {
    for (const char* file : DEVICE_FILES) {
        if (std::strcmp(file, path) == 0) {
            return true;
        }
    }
    return false;
}

int open_content(std::string_view content) {
    const MemoryFile file(content);
    return open(file.path(), O_RDWR | O_CLOEXEC);
}

int open_device_file(const char* path) {
    const auto file = outside.files.find(path);
    if (file == outside.files.end()) {
        errno = ENOENT;
        return -1;
    }
    return open_content(file->second);
}

struct Collector {
    std::string path;
};

ssize_t collect_bytes(void* cookie, const char* bytes, std::size_t size) {
    outside.written[static_cast<Collector*>(cookie)->path].append(bytes, size);
    return static_cast<ssize_t>(size);
}

int close_collector(void* cookie) {
    delete static_cast<Collector*>(cookie);
    return 0;
}

std::FILE* create_device_file(const char* path) {
    outside.written[path].clear();
    return fopencookie(new Collector{path}, "w",
                       {nullptr, collect_bytes, nullptr, close_collector});
}

char* take_answer() {
    return outside.typed.empty() ? nullptr : strdup(take_line(outside.typed).c_str());
}

template <typename Function>
Function* original(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" int open64(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const int mode = va_arg(arguments, int);
    va_end(arguments);
    if (is_device_file(path)) {
        return open_device_file(path);
    }
    return original<int(const char*, int, ...)>("open64")(path, flags, mode);
}

extern "C" std::FILE* fopen64(const char* path, const char* mode) {
    if (!is_device_file(path)) {
        return original<std::FILE*(const char*, const char*)>("fopen64")(path, mode);
    }
    if (*mode == 'w') {
        return create_device_file(path);
    }
    const int descriptor = open_device_file(path);
    return descriptor < 0 ? nullptr : fdopen(descriptor, mode);
}

extern "C" int unlink(const char* path) noexcept {
    if (is_device_file(path)) {
        outside.files.erase(path);
        return 0;
    }
    return original<int(const char*)>("unlink")(path);
}

extern "C" int system(const char* command) {
    outside.command_lines.emplace_back(command);
    return outside.command_status;
}

extern "C" std::FILE* popen(const char* command, const char* /*mode*/) {
    require_equal(command, "/bin/fcgiclient", "the client that is started");
    const char* program = std::getenv("PATH_INFO");
    outside.requests.emplace_back(program != nullptr ? program : "");
    return fdopen(open_content(outside.client_output), "r");
}

extern "C" int pclose(std::FILE* output) {
    return std::fclose(output);
}

extern "C" char* readline(const char* /*prompt*/) {
    return take_answer();
}

extern "C" char* getpass(const char* /*prompt*/) {
    static char buffer[256];
    char* answer = take_answer();
    std::snprintf(buffer, sizeof buffer, "%s", answer == nullptr ? "" : answer);
    std::free(answer);
    return buffer;
}
