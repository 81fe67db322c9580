#include "backup/transfer.h"

#include <sys/time.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <optional>
#include <string_view>

#include "console/line_editor.h"
#include "console/secret.h"

namespace {

constexpr std::string_view RESTORE_HEAD = "/bin/wget -nv -t 3 --passive-ftp";
constexpr std::string_view RESTORE_TAIL =
    " -O - | /bin/backupconfig -r -s stdin -l /tmp/restorelog.txt";
constexpr std::string_view BACKUP_HEAD = "wput -B -t 3 -I \"backupconfig -b -d stdout\"";
constexpr std::string_view BACKUP_TAIL = " > /tmp/auto-backup.log 2>&1";

constexpr std::string_view SCHEME = "ftp://";

// Characters that stay special inside double quotes.
constexpr std::string_view ACTIVE_CHARACTERS = "$`\"\\";

// Characters, besides letters and digits, that /bin/sh takes as they are without quotes.
constexpr std::string_view SAFE_CHARACTERS = "@%+=:,./-_~";

Secret ftp_address(const TransferParameters& parameters, const std::string& file_name,
                   Direction direction) {
    Secret address(SCHEME);
    if (!parameters.username.empty()) {
        address.append(parameters.username);
        if (!parameters.password.empty()) {
            address.append(":").append(parameters.password);
        }
        address.append("@");
    }
    address.append(parameters.server);
    if (!parameters.port.empty()) {
        address.append(":").append(parameters.port);
    }
    if (!parameters.path.empty()) {
        const char first = parameters.path.front();
        address.append(first != '/' && first != '.' ? "/" : "").append(parameters.path);
    }
    if (direction == Direction::BACKUP && address.view().back() != '/') {
        address.append("/");
    }
    address.append(file_name);
    return address;
}

// Decodes the escape at the front of text. Returns nothing if there is none.
std::optional<char> decoded(std::string_view text) {
    if (text.size() < 3 || text.front() != '%') {
        return std::nullopt;
    }
    unsigned char value = 0;
    const char* const end = text.data() + 3;
    if (std::from_chars(text.data() + 1, end, value, 16).ptr != end) {
        return std::nullopt;
    }
    return static_cast<char>(value);
}

Secret all_decoded(std::string_view text) {
    Secret result;
    while (!text.empty()) {
        const std::optional<char> c = decoded(text);
        const char next = c.value_or(text.front());
        result.append({&next, 1});
        text.remove_prefix(c ? 3 : 1);
    }
    return result;
}

// Characters that end an FTP command, or the text that a client puts into one.
bool is_line_end(char c) {
    return c == '\r' || c == '\n' || c == '\0';
}

// Whether anything in the address would make a client send more than one line. wput decodes an
// address once, wget twice if the locale is not UTF-8.
bool has_line_end(std::string_view address) {
    const Secret decoded_twice = all_decoded(all_decoded(address).view());
    const std::string_view text = decoded_twice.view();  // decoding keeps literal line ends
    return std::any_of(text.begin(), text.end(), is_line_end);
}

// Defuses line ends and escapes, so that the transfer fails: wput refuses an address with an
// incomplete escape, and wget asks for a file of another name.
Secret without_line_ends(std::string_view address, Direction direction) {
    constexpr std::string_view PERCENT = "%2525";  // still an escape after one decoding
    Secret result;
    for (const char c : address) {
        result.append(c == '%' || is_line_end(c) ? PERCENT : std::string_view(&c, 1));
    }
    result.append(direction == Direction::BACKUP ? "%" : PERCENT);
    return result;
}

bool is_active(char c) {
    return ACTIVE_CHARACTERS.find(c) != std::string_view::npos;
}

// For text that wput passes on unchanged: escapes active characters, which reach the FTP server
// decoded.
Secret escaped(std::string_view text) {
    constexpr std::string_view DIGITS = "0123456789ABCDEF";
    Secret result;
    for (const char c : text) {
        if (is_active(c)) {
            const auto value = static_cast<unsigned char>(c);
            result.append("%").append(DIGITS.substr(value / 16, 1));
            result.append(DIGITS.substr(value % 16, 1));
        } else {
            result.append({&c, 1});
        }
    }
    return result;
}

// For text that wput decodes before passing it on: also escapes the escapes of active characters.
// The login or server name is then wrong, but nothing runs. A percent sign without two digits is
// escaped too, since decoders differ on it.
Secret escaped_twice(std::string_view text) {
    const Secret once = escaped(text);
    Secret result;
    for (std::string_view rest = once.view(); !rest.empty(); rest.remove_prefix(1)) {
        const bool is_harmful = rest.front() == '%' && is_active(decoded(rest).value_or('$'));
        result.append(is_harmful ? "%25" : rest.substr(0, 1));
    }
    return result;
}

// wput runs its input command through /bin/sh, followed by parts of the address in double quotes:
// user, server and port decoded, the directory unchanged, but no password. It splits the address at
// the first slash, whichever answer that is in.
Secret disarmed(std::string_view address) {
    Secret result(SCHEME);
    address.remove_prefix(SCHEME.size());
    const std::string_view authority = address.substr(0, address.find('/'));
    const std::size_t at = authority.rfind('@');
    const std::size_t colon = authority.find(':');
    if (at != std::string_view::npos && colon < at) {
        result.append(escaped_twice(authority.substr(0, colon)).view());
        result.append(authority.substr(colon, at - colon));
        result.append(escaped_twice(authority.substr(at)).view());
    } else {
        result.append(escaped_twice(authority).view());
    }
    result.append(escaped(address.substr(authority.size())).view());
    return result;
}

bool is_safe(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           SAFE_CHARACTERS.find(c) != std::string_view::npos;
}

// Quotes a word for /bin/sh if anything in it needs quoting.
Secret quoted(std::string_view word) {
    if (std::all_of(word.begin(), word.end(), is_safe)) {
        return Secret(word);
    }
    Secret result("'");
    for (const char c : word) {
        result.append(c == '\'' ? std::string_view("'\\''") : std::string_view(&c, 1));
    }
    result.append("'");
    return result;
}

// Returns false if Ctrl-C cancels the question.
bool ask(const char* prompt, std::string& answer) {
    answer = read_answer(prompt).value_or("");
    return !called_off();
}

bool ask_password(const char* prompt, std::string& answer) {
    const std::optional<Secret> password = read_password(prompt);
    answer = password ? password->view() : "";
    return !called_off();
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
    const std::tm* local = std::localtime(&now.tv_sec);
    if (local == nullptr) {
        return 0;
    }
    std::snprintf(buffer, size, "config_%d-%d-%d_%02d%02d.bin", local->tm_year + 1900,
                  local->tm_mon + 1, local->tm_mday, local->tm_hour, local->tm_min);
    return 1;
}

bool ask_transfer_parameters(TransferParameters& parameters, Direction direction) {
    const char* path_prompt =
        direction == Direction::RESTORE ? "tessel:> File path: " : "tessel:> Server path: ";
    return ask("tessel:> Server: ", parameters.server) && ask("tessel:> Port: ", parameters.port) &&
           ask(path_prompt, parameters.path) && ask("tessel:> Username: ", parameters.username) &&
           ask_password("tessel:> Password: ", parameters.password);
}

std::string transfer_command(const TransferParameters& parameters, const std::string& file_name,
                             Direction direction) {
    const bool backup = direction == Direction::BACKUP;
    const Secret typed = ftp_address(parameters, file_name, direction);
    const Secret address = has_line_end(typed.view()) ? without_line_ends(typed.view(), direction)
                                                      : Secret(typed.view());
    const Secret word = quoted(backup ? disarmed(address.view()).view() : address.view());
    const std::string_view head = backup ? BACKUP_HEAD : RESTORE_HEAD;
    const std::string_view tail = backup ? BACKUP_TAIL : RESTORE_TAIL;
    std::string command_line;
    // Reserved at once: growing would leave pieces of the password in memory.
    command_line.reserve(head.size() + 1 + word.view().size() + tail.size());
    command_line.append(head).append(" ").append(word.view()).append(tail);
    return command_line;
}

bool build_transfer_command(std::string& command_line, const std::string& file_name,
                            Direction direction) {
    TransferParameters parameters;
    if (!ask_transfer_parameters(parameters, direction)) {
        return false;
    }
    command_line = transfer_command(parameters, file_name, direction);
    return true;
}
