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
constexpr std::size_t NOWHERE = std::string_view::npos;

// Characters that stay special inside double quotes, and their escapes in an address.
constexpr std::string_view ACTIVE_CHARACTERS = "$`\"\\";
constexpr std::string_view ACTIVE_ESCAPES[] = {"%24", "%60", "%22", "%5C"};

// Characters that end an FTP command, or the text that a client puts into one.
constexpr std::string_view LINE_ENDS("\r\n\0", 3);

// Characters that /bin/sh takes as they are without quotes.
constexpr std::string_view SAFE_CHARACTERS =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789@%+=:,./-_~";

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

// Whether anything in the address would make a client send more than one line. wput decodes an
// address once, wget twice if the locale is not UTF-8. Decoding keeps literal line ends.
bool has_line_end(std::string_view address) {
    const Secret decoded_twice = all_decoded(all_decoded(address).view());
    return decoded_twice.view().find_first_of(LINE_ENDS) != NOWHERE;
}

// Defuses line ends and escapes, so that the transfer fails: wput refuses an address with an
// incomplete escape, and wget asks for a file of another name.
Secret without_line_ends(std::string_view address, Direction direction) {
    constexpr std::string_view PERCENT = "%2525";  // still an escape after one decoding
    Secret result;
    for (const char c : address) {
        const bool is_harmful = c == '%' || LINE_ENDS.find(c) != NOWHERE;
        result.append(is_harmful ? PERCENT : std::string_view(&c, 1));
    }
    result.append(direction == Direction::BACKUP ? "%" : PERCENT);
    return result;
}

// For text that wput passes on unchanged: escapes active characters, which reach the FTP server
// decoded.
Secret escaped(std::string_view text) {
    Secret result;
    for (const char c : text) {
        const std::size_t active = ACTIVE_CHARACTERS.find(c);
        result.append(active == NOWHERE ? std::string_view(&c, 1) : ACTIVE_ESCAPES[active]);
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
        const bool is_harmful =
            rest.front() == '%' && ACTIVE_CHARACTERS.find(decoded(rest).value_or('$')) != NOWHERE;
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
    const std::size_t server = authority.rfind('@') + 1;  // 0 without a user: NOWHERE + 1 is 0
    const std::size_t user_end = std::min(authority.find(':'), server);
    result.append(escaped_twice(authority.substr(0, user_end)).view());
    result.append(authority.substr(user_end, server - user_end));
    result.append(escaped_twice(authority.substr(server)).view());
    result.append(escaped(address.substr(authority.size())).view());
    return result;
}

// Quotes a word for /bin/sh if anything in it needs quoting.
Secret quoted(std::string_view word) {
    if (word.find_first_not_of(SAFE_CHARACTERS) == NOWHERE) {
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
    const LineBuffer line = read_line(prompt);
    answer = line ? line.get() : "";
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
    Secret command_line(backup ? BACKUP_HEAD : RESTORE_HEAD);
    command_line.append(" ").append(word.view()).append(backup ? BACKUP_TAIL : RESTORE_TAIL);
    return std::string(command_line.view());
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
