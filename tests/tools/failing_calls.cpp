// A library that, preloaded into the program, makes one of its calls into the system fail. These
// environment variables say which; they are removed before the program sees them:
//
//     FAIL=CALL:WHICH:HOW     CALL is a function below, for calls made by the program itself, or
//                             libreadline/read for those of the line editor. WHICH is the number of
//                             the call that fails, counted from 1, or "every". HOW is the name of
//                             an error, or "short" for half of what was asked for, or "nothing".
//     FAIL_RECORD=FILE        gets a line for every call that has failed, so that a test can check
//                             that its call did fail.
//
// The C library's internal calls cannot be replaced this way.

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/auxv.h>
#include <sys/file.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>

namespace {

struct Error {
    const char* name;
    int number;
};

constexpr int SHORT = -1;
constexpr int NOTHING = -2;
constexpr Error ERRORS[] = {
    {"EINTR", EINTR},     {"EIO", EIO},       {"ENOSPC", ENOSPC}, {"EMFILE", EMFILE},
    {"ENOMEM", ENOMEM},   {"EAGAIN", EAGAIN}, {"EACCES", EACCES}, {"ENOLCK", ENOLCK},
    {"EINVAL", EINVAL},   {"ENOTTY", ENOTTY}, {"ECHILD", ECHILD}, {"short", SHORT},
    {"nothing", NOTHING},
};

// The parts of FAIL. Nothing fails while the name is empty.
char failing_call[64];
long failing_number = 0;  // 0: every call
int failing_error = 0;
char record_path[256];

long calls_so_far = 0;

// Calls must not fail when coverage data is written at the very end.
void stop_failing() {
    failing_call[0] = '\0';
}

[[gnu::constructor]] void read_environment() {
    const char* fail = std::getenv("FAIL");
    // Not the programs that start the shell.
    if (fail == nullptr || std::strcmp(program_invocation_short_name, "tessel") != 0) {
        return;
    }
    char number[16] = "";
    char error[16] = "";
    if (std::sscanf(fail, "%63[^:]:%15[^:]:%15s", failing_call, number, error) != 3) {
        std::abort();
    }
    failing_number = std::atol(number);
    for (const Error& candidate : ERRORS) {
        if (std::strcmp(candidate.name, error) == 0) {
            failing_error = candidate.number;
        }
    }
    if (failing_error == 0 || (failing_number == 0 && std::strcmp(number, "every") != 0)) {
        std::abort();
    }
    if (const char* record = std::getenv("FAIL_RECORD")) {
        std::snprintf(record_path, sizeof record_path, "%s", record);
    }
    for (const char* name : {"FAIL", "FAIL_RECORD", "LD_PRELOAD"}) {
        unsetenv(name);
    }
}

bool is_program(const void* object_start) {
    Dl_info program = {};
    dladdr(reinterpret_cast<const void*>(getauxval(AT_ENTRY)), &program);
    return object_start == program.dli_fbase;
}

// A failing call made by a library, not by the program, is named LIBRARY/CALL.
bool is_failing_call(const char* call, const void* caller) {
    const char* slash = std::strchr(failing_call, '/');
    if (std::strcmp(slash == nullptr ? failing_call : slash + 1, call) != 0) {
        return false;
    }
    Dl_info object = {};
    if (dladdr(caller, &object) == 0) {
        return false;
    }
    return slash == nullptr ? is_program(object.dli_fbase)
                            : memmem(object.dli_fname, std::strlen(object.dli_fname), failing_call,
                                     static_cast<std::size_t>(slash - failing_call)) != nullptr;
}

void record() {
    const int file = open(record_path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (file >= 0) {
        if (write(file, "failed\n", 7) != 7) {
            std::abort();
        }
        close(file);
    }
}

bool fails(const char* call, const void* caller) {
    if (!is_failing_call(call, caller)) {
        return false;
    }
    // Handlers registered in the constructor would run after the program's destructors, too late.
    [[maybe_unused]] static const int registered = std::atexit(stop_failing);
    ++calls_so_far;
    if (failing_number != 0 && failing_number != calls_so_far) {
        return false;
    }
    record();
    errno = failing_error < 0 ? ENOSPC : failing_error;
    return true;
}

template <typename Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Leaves the stream in the state in which a failed call leaves it.
void mark_failed(std::FILE* stream) {
    stream->_flags |= 0x20;  // the C library's mark of an error
}

// A password question opens the terminal, a turn opens a folder, everything else opens a file.
const char* name_of_open(const char* path) {
    if (std::strcmp(path, "/dev/tty") == 0) {
        return "open_terminal";
    }
    return std::strcmp(path, "/tmp") == 0 ? "open_folder" : "open";
}

}  // namespace

extern "C" {

// Files

int open(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (fails(name_of_open(path), __builtin_return_address(0))) {
        return -1;
    }
    return real<int(const char*, int, ...)>("open")(path, flags, mode);
}

int open64(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (fails(name_of_open(path), __builtin_return_address(0))) {
        return -1;
    }
    return real<int(const char*, int, ...)>("open64")(path, flags, mode);
}

int fstat64(int file, struct stat64* status) noexcept {
    if (fails("fstat", __builtin_return_address(0))) {
        return -1;
    }
    return real<int(int, struct stat64*)>("fstat64")(file, status);
}

ssize_t read(int file, void* buffer, std::size_t size) {
    // Input is read byte by byte, files are not.
    if (fails(size == 1 ? "read_byte" : "read", __builtin_return_address(0))) {
        if (failing_error != SHORT) {
            return -1;
        }
        size = (size + 1) / 2 < 7 ? (size + 1) / 2 : 7;
    }
    return real<ssize_t(int, void*, std::size_t)>("read")(file, buffer, size);
}

ssize_t write(int file, const void* data, std::size_t size) {
    if (fails("write", __builtin_return_address(0))) {
        if (failing_error != SHORT) {
            return failing_error == NOTHING ? 0 : -1;
        }
        size = (size + 1) / 2;
    }
    return real<ssize_t(int, const void*, std::size_t)>("write")(file, data, size);
}

int close(int file) {
    const int result = real<int(int)>("close")(file);
    return fails("close", __builtin_return_address(0)) ? -1 : result;
}

int unlink(const char* path) noexcept {
    if (fails("unlink", __builtin_return_address(0))) {
        return -1;
    }
    return real<int(const char*)>("unlink")(path);
}

int isatty(int file) noexcept {
    if (fails("isatty", __builtin_return_address(0))) {
        return 0;
    }
    return real<int(int)>("isatty")(file);
}

// Streams

std::FILE* fopen64(const char* path, const char* mode) {
    if (fails("fopen", __builtin_return_address(0))) {
        return nullptr;
    }
    return real<std::FILE*(const char*, const char*)>("fopen64")(path, mode);
}

int setvbuf(std::FILE* stream, char* buffer, int mode, std::size_t size) noexcept {
    if (fails("setvbuf", __builtin_return_address(0))) {
        return -1;
    }
    return real<int(std::FILE*, char*, int, std::size_t)>("setvbuf")(stream, buffer, mode, size);
}

std::size_t fread(void* buffer, std::size_t size, std::size_t count, std::FILE* stream) {
    const auto next = real<std::size_t(void*, std::size_t, std::size_t, std::FILE*)>("fread");
    if (fails("fread", __builtin_return_address(0))) {
        mark_failed(stream);
        return failing_error == SHORT ? next(buffer, size, 7, stream) : 0;
    }
    return next(buffer, size, count, stream);
}

char* fgets(char* buffer, int size, std::FILE* stream) {
    if (fails("fgets", __builtin_return_address(0))) {
        mark_failed(stream);
        return nullptr;
    }
    return real<char*(char*, int, std::FILE*)>("fgets")(buffer, size, stream);
}

int getc(std::FILE* stream) {
    if (fails("getc", __builtin_return_address(0))) {
        mark_failed(stream);
        return EOF;
    }
    return real<int(std::FILE*)>("getc")(stream);
}

std::size_t fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* stream) {
    const auto next =
        real<std::size_t(const void*, std::size_t, std::size_t, std::FILE*)>("fwrite");
    if (fails("fwrite", __builtin_return_address(0))) {
        mark_failed(stream);
        return failing_error == SHORT ? next(data, size, count / 2, stream) : 0;
    }
    return next(data, size, count, stream);
}

int fputc(int c, std::FILE* stream) {
    if (fails("fputc", __builtin_return_address(0))) {
        mark_failed(stream);
        return EOF;
    }
    return real<int(int, std::FILE*)>("fputc")(c, stream);
}

int putchar(int c) {
    if (fails("putchar", __builtin_return_address(0))) {
        mark_failed(stdout);
        return EOF;
    }
    return real<int(int)>("putchar")(c);
}

int puts(const char* text) {
    if (fails("puts", __builtin_return_address(0))) {
        mark_failed(stdout);
        return EOF;
    }
    return real<int(const char*)>("puts")(text);
}

int printf(const char* format, ...) {
    if (fails("printf", __builtin_return_address(0))) {
        mark_failed(stdout);
        return -1;
    }
    std::va_list arguments;
    va_start(arguments, format);
    const int result = std::vprintf(format, arguments);
    va_end(arguments);
    return result;
}

int fflush(std::FILE* stream) {
    if (fails("fflush", __builtin_return_address(0))) {
        return EOF;
    }
    return real<int(std::FILE*)>("fflush")(stream);
}

int fclose(std::FILE* stream) {
    const int result = real<int(std::FILE*)>("fclose")(stream);
    return fails("fclose", __builtin_return_address(0)) ? EOF : result;
}

// Other programs and their environment

std::FILE* popen(const char* command, const char* mode) {
    if (fails("popen", __builtin_return_address(0))) {
        return nullptr;
    }
    return real<std::FILE*(const char*, const char*)>("popen")(command, mode);
}

int pclose(std::FILE* stream) {
    const int result = real<int(std::FILE*)>("pclose")(stream);
    return fails("pclose", __builtin_return_address(0)) ? -1 : result;
}

int system(const char* command) {
    if (fails("system", __builtin_return_address(0))) {
        return -1;
    }
    return real<int(const char*)>("system")(command);
}

int setenv(const char* name, const char* value, int overwrite) noexcept {
    if (fails("setenv", __builtin_return_address(0))) {
        return -1;
    }
    return real<int(const char*, const char*, int)>("setenv")(name, value, overwrite);
}

int unsetenv(const char* name) noexcept {
    if (fails("unsetenv", __builtin_return_address(0))) {
        return -1;
    }
    return real<int(const char*)>("unsetenv")(name);
}

int flock(int file, int operation) noexcept {
    if (fails("flock", __builtin_return_address(0))) {
        return -1;
    }
    return real<int(int, int)>("flock")(file, operation);
}

// The keyboard

char* readline(const char* prompt) {
    if (fails("readline", __builtin_return_address(0))) {
        return nullptr;
    }
    return real<char*(const char*)>("readline")(prompt);
}

int poll(pollfd* files, nfds_t count, int timeout) {
    if (fails("poll", __builtin_return_address(0))) {
        return -1;
    }
    return real<int(pollfd*, nfds_t, int)>("poll")(files, count, timeout);
}

// Signals and the clock

int pselect(int count, fd_set* reading, fd_set* writing, fd_set* other, const timespec* timeout,
            const sigset_t* mask) {
    if (fails("pselect", __builtin_return_address(0))) {
        return failing_error == NOTHING ? 0 : -1;  // nothing: no time passes
    }
    return real<int(int, fd_set*, fd_set*, fd_set*, const timespec*, const sigset_t*)>("pselect")(
        count, reading, writing, other, timeout, mask);
}

sighandler_t signal(int number, sighandler_t handler) noexcept {
    if (fails("signal", __builtin_return_address(0))) {
        return SIG_ERR;
    }
    return real<sighandler_t(int, sighandler_t)>("signal")(number, handler);
}

int timer_create(clockid_t clock, struct sigevent* event, timer_t* timer) noexcept {
    if (fails("timer_create", __builtin_return_address(0))) {
        return -1;
    }
    return real<int(clockid_t, struct sigevent*, timer_t*)>("timer_create")(clock, event, timer);
}

int timer_settime(timer_t timer, int flags, const itimerspec* time, itimerspec* old) noexcept {
    if (fails("timer_settime", __builtin_return_address(0))) {
        return -1;
    }
    return real<int(timer_t, int, const itimerspec*, itimerspec*)>("timer_settime")(timer, flags,
                                                                                    time, old);
}

int kill(pid_t process, int signal) noexcept {
    if (fails("kill", __builtin_return_address(0))) {
        return -1;
    }
    return real<int(pid_t, int)>("kill")(process, signal);
}

int gettimeofday(timeval* time, void* zone) noexcept {
    if (fails("gettimeofday", __builtin_return_address(0))) {
        return -1;
    }
    return real<int(timeval*, void*)>("gettimeofday")(time, zone);
}

std::tm* localtime(const std::time_t* time) noexcept {
    if (fails("localtime", __builtin_return_address(0))) {
        return nullptr;
    }
    return real<std::tm*(const std::time_t*)>("localtime")(time);
}

}  // extern "C"
