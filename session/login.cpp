#include "session/login.h"

#include <cstdlib>
#include <optional>

#include "config/config_buffer.h"
#include "config/multi_section_file.h"
#include "console/line_editor.h"
#include "console/secret.h"
#include "console/signals.h"
#include "console/text.h"
#include "session/logout.h"

namespace {

constexpr const char* ACCESS_DATABASE_PATH = "/tmp/acldb";
constexpr int MAX_ATTEMPTS = 3;

bool entry_equals(Configuration::MultiSectionFile& database, const char* key,
                  const std::string& expected) {
    if (database.GotoSecEntry(key) == 0) {
        return false;
    }
    const SmartBuffer value;
    database.GetSecCurrentEntry(nullptr, 0, value.data, value.size);
    return expected == value.data;
}

// Nobody can log in if the database cannot be read.
bool credentials_match(const std::string& user, const std::string& password) try {
    Configuration::MultiSectionFile database(ACCESS_DATABASE_PATH, false, false, false, "section",
                                             "{\n", "}\n", "=", "#", nullptr);
    database.Restart();
    return database.GotoSection("admin") != 0 && entry_equals(database, "user_name", user) &&
           entry_equals(database, "password", password);
} catch (...) {
    return false;
}

// An answer that cannot be read counts as wrong. Both questions are always asked, to hide which
// answer was wrong. Ctrl-C starts again from the first.
bool attempt_login() {
    while (true) {
        const LineBuffer user = read_line("Username: ");
        if (called_off()) {
            continue;
        }
        const std::optional<Secret> password = read_password("Password: ");
        if (!called_off()) {
            return user && password &&
                   check_admin_credentials(user.get(), std::string(password->view())) == 1;
        }
    }
}

}  // namespace

int check_admin_credentials(std::string user, std::string password) {
    const bool match = credentials_match(user, password);
    wipe(user);
    wipe(password);
    return match ? 1 : 0;
}

void admin_login() {
    print_now("Please, login as an Administrator\n\n");
    for (int attempt = 0; attempt < MAX_ATTEMPTS; ++attempt) {
        if (attempt_login()) {
            print("\n");
            return;
        }
        if (end_requested()) {
            break;
        }
        print_now("Wrong username or password\n\n");
    }
    admin_logout();
    std::exit(1);
}
