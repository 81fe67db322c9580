// A library that, preloaded into the program, makes one memory allocation after the login fail,
// whether by the program, the C library or the line editor. These environment variables say which;
// they are removed before the program sees them:
//
//     FAIL_ALLOCATION=NUMBER  the one that fails, counted from 1 at the first prompt; 0 for none
//     FAIL_RECORD=FILE        gets a line for the failed allocation, with the function below that
//                             the program was calling, or "other"; and one with the total number

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
}

namespace {

constexpr const char* PROMPT = "tessel:> ";

long failing_number = 0;
long allocations = 0;
bool counting = false;
const char* called = "other";
std::array<char, 256> record_path{};

[[gnu::constructor]] void read_environment() {
    const char* number = std::getenv("FAIL_ALLOCATION");
    const char* record = std::getenv("FAIL_RECORD");
    // Not the programs that start the shell.
    if (number == nullptr || record == nullptr ||
        std::strcmp(program_invocation_short_name, "tessel") != 0) {
        return;
    }
    failing_number = std::atol(number);
    std::snprintf(record_path.data(), record_path.size(), "%s", record);
    for (const char* name : {"FAIL_ALLOCATION", "FAIL_RECORD", "LD_PRELOAD"}) {
        unsetenv(name);
    }
}

void record(const char* text, long number) {
    std::array<char, 128> line{};
    const int length = std::snprintf(line.data(), line.size(), "%s %ld\n", text, number);
    const int file = open(record_path.data(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (file < 0 || write(file, line.data(), static_cast<std::size_t>(length)) != length) {
        std::abort();
    }
    close(file);
}

// Sets the function that the program is calling, during the object's lifetime.
class Call {
  public:
    explicit Call(const char* name) : before_(called) { called = name; }
    ~Call() { called = before_; }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

  private:
    const char* before_;
};

template <typename Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool fails() {
    if (!counting || ++allocations != failing_number) {
        return false;
    }
    record(called, allocations);
    errno = ENOMEM;
    return true;
}

void record_number() {
    counting = false;
    record("allocations", allocations);
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
    return fails() ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    return fails() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
    return fails() ? nullptr : __libc_realloc(block, size);
}

char* readline(const char* prompt) {
    const Call call("readline");
    if (!counting && std::strcmp(prompt, PROMPT) == 0) {
        std::atexit(record_number);  // runs before the program's own exit handlers
        counting = true;
    }
    return real<char*(const char*)>("readline")(prompt);
}

void add_history(const char* line) {
    const Call call("add_history");
    real<void(const char*)>("add_history")(line);
}

std::FILE* popen(const char* command, const char* mode) {
    const Call call("popen");
    return real<std::FILE*(const char*, const char*)>("popen")(command, mode);
}

std::FILE* fopen64(const char* path, const char* mode) {
    const Call call("fopen");
    return real<std::FILE*(const char*, const char*)>("fopen64")(path, mode);
}

int setenv(const char* name, const char* value, int overwrite) noexcept {
    const Call call("setenv");
    return real<int(const char*, const char*, int)>("setenv")(name, value, overwrite);
}

}  // extern "C"
