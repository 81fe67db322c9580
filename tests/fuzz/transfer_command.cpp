// The command lines of backup and restore, split into words by a real command interpreter that
// finds no programs. Input: server, port, path, user name and password, a line each; the password
// may have several lines. The file's name is fixed.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>

#include "backup/transfer.h"
#include "tests/fuzz/support.h"

namespace {

constexpr const char* FILE_NAME = "config_2025-3-7_0905.bin";
constexpr const char* SAFE =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789@%+=:,./-_~";
constexpr const char* ACTIVE = "$`\"\\";

std::string plain_address(const TransferParameters& answers, const std::string& file_name) {
    std::string address = "ftp://";
    if (!answers.username.empty()) {
        address += answers.username;
        address += answers.password.empty() ? "" : ":" + answers.password;
        address += "@";
    }
    address += answers.server;
    address += answers.port.empty() ? "" : ":" + answers.port;
    const char first = (answers.path + "/")[0];
    address += first == '/' || first == '.' ? "" : "/";
    address += answers.path;
    if (!file_name.empty()) {
        address += address.back() == '/' ? "" : "/";
        address += file_name;
    }
    return address;
}

std::string without(const std::string& line, const std::string& start, const std::string& end) {
    require(line.size() >= start.size() + end.size(), "the command line has its fixed parts");
    require_equal(line.substr(0, start.size()), start, "the beginning of the command line");
    require_equal(line.substr(line.size() - end.size()), end, "the end of the command line");
    return line.substr(start.size(), line.size() - start.size() - end.size());
}

std::string content_of(int descriptor) {
    std::string text(static_cast<std::size_t>(lseek(descriptor, 0, SEEK_END)), '\0');
    const ssize_t length = pread(descriptor, text.data(), text.size(), 0);
    require(length == static_cast<ssize_t>(text.size()), "output is read");
    return text;
}

// Returns the words into which the interpreter splits a piece of a command line. Anything else that
// it did would be noticed: it finds no programs, and its output must consist of the words alone.
std::string words_of(const std::string& piece) {
    std::string script = "printf '%s\\0' " + piece;
    std::array<char*, 4> arguments = {const_cast<char*>("sh"), const_cast<char*>("-c"),
                                      script.data(), nullptr};
    std::array<char*, 2> environment = {const_cast<char*>("PATH=/nonexistent"), nullptr};
    const MemoryFile output("");
    const MemoryFile errors("");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output.descriptor(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errors.descriptor(), STDERR_FILENO);
    pid_t child = 0;
    require(posix_spawn(&child, "/bin/sh", &actions, nullptr, arguments.data(),
                        environment.data()) == 0,
            "the command interpreter starts");
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    while (waitpid(child, &status, 0) != child) {  // the fuzzer's clock interrupts it
        require(errno == EINTR, "the command interpreter ends");
    }
    require_equal(content_of(errors.descriptor()), "", "the command interpreter's errors");
    require(status == 0, "the command interpreter succeeds");
    return content_of(output.descriptor());
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += word + '\0';
    }
    return text;
}

std::string percent_decoded(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::string digits = text.substr(i + 1, 2);
        if (text[i] == '%' && digits.size() == 2 &&
            digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos) {
            result += static_cast<char>(std::strtol(digits.c_str(), nullptr, 16));
            i += 2;
        } else {
            result += text[i];
        }
    }
    return result;
}

// Whether there is a line end, which FTP cannot send within a line: literally, or encoded once or
// twice.
bool has_line_end(const std::string& address) {
    const std::string once = percent_decoded(address);
    return (address + once + percent_decoded(once)).find_first_of(std::string("\r\n\0", 3)) !=
           std::string::npos;
}

// wput passes parts of the address, in double quotes, to another interpreter: the part before the
// first slash without the password and decoded, the rest unchanged.
void require_harmless_to_wput(const std::string& word) {
    const std::string address = word.substr(6);
    const std::size_t slash = std::min(address.find('/'), address.size());
    std::string authority = address.substr(0, slash);
    const std::size_t at = authority.rfind('@');
    const std::size_t colon = authority.find(':');
    if (at != std::string::npos && colon < at) {
        authority.erase(colon, at - colon);
    }
    require(percent_decoded(authority).find_first_of(ACTIVE) == std::string::npos,
            "within double quotes, everything before the slash is plain text");
    require(address.substr(slash).find_first_of(ACTIVE) == std::string::npos,
            "within double quotes, everything after the slash is plain text");
}

void check_restore(const TransferParameters& answers) {
    const std::string line = transfer_command(answers, "", Direction::RESTORE);
    const std::string address = plain_address(answers, "");
    const std::string piece =
        without(line, "/bin/wget", " | /bin/backupconfig -r -s stdin -l /tmp/restorelog.txt");
    const std::string words = words_of(piece);
    if (has_line_end(address)) {
        const std::string start = joined({"-nv", "-t", "3", "--passive-ftp"});
        const std::string end = joined({"-O", "-"});
        const std::string word = without(words, start, end);
        require(word.find('\0') == word.size() - 1, "the address is one word");
        require(!has_line_end(word.substr(0, word.size() - 1)), "wget sends no extra line");
        return;
    }
    require_equal(words, joined({"-nv", "-t", "3", "--passive-ftp", address, "-O", "-"}),
                  "the words for wget");
    if (address.find_first_not_of(SAFE) == std::string::npos) {
        require_equal(piece, " -nv -t 3 --passive-ftp " + address + " -O -", "an ordinary line");
    }
}

void check_backup(const TransferParameters& answers) {
    const std::string line = transfer_command(answers, FILE_NAME, Direction::BACKUP);
    const std::string address = plain_address(answers, FILE_NAME);
    const std::string piece = without(line, "wput", " > /tmp/auto-backup.log 2>&1");
    const std::string words = words_of(piece);
    const std::string start = joined({"-B", "-t", "3", "-I", "backupconfig -b -d stdout"});
    require_equal(words.substr(0, start.size()), start, "the options for wput");
    const std::string word = words.substr(start.size());
    require(word.find('\0') == word.size() - 1, "the address is one word");
    require_harmless_to_wput(word.substr(0, word.size() - 1));
    require(!has_line_end(word.substr(0, word.size() - 1)), "wput sends no extra line");
    if (has_line_end(address)) {
        require(word[word.size() - 2] == '%', "half an escape makes wput refuse the address");
        return;
    }
    if (address.find_first_of(std::string(ACTIVE) + "%") == std::string::npos) {
        require_equal(word, joined({address}), "the address for wput");
    }
    if (address.find_first_not_of(SAFE) == std::string::npos &&
        address.find('%') == std::string::npos) {
        require_equal(piece, " -B -t 3 -I \"backupconfig -b -d stdout\" " + address,
                      "an ordinary line");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text = input_text(data, size);
    TransferParameters answers;
    for (std::string* answer : {&answers.server, &answers.port, &answers.path, &answers.username}) {
        *answer = take_line(text).c_str();
    }
    answers.password = text.c_str();
    check_restore(answers);
    check_backup(answers);
    return 0;
}
