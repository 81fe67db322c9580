#include "cgi/get.h"

#include <new>
#include <string>

#include "catalogue/extension_database.h"
#include "cgi/legible_configuration.h"
#include "console/state.h"
#include "console/text.h"
#include "console/turn.h"

namespace {

int refuse(const char* reason) {
    print_now(make_error_message(reason));
    return -1;
}

// An unreadable database counts as empty: a broken file must not end the session.
bool is_known_extension(const std::string& name) try {
    return extension_exists(name) == 1;
} catch (const std::bad_alloc&) {
    throw;
} catch (...) {
    return false;
}

int get_part(const std::string& name, const std::string& extension) {
    const Catalogue& catalogue = extension.empty() ? _gAdminConParts : _gExtensionConfParts;
    const auto part = catalogue.find(name);
    if (part == catalogue.end()) {
        return refuse("There is no such configuration part\n");
    }
    if (!extension.empty() && !is_known_extension(extension)) {
        return refuse("There is no such an extension\n");
    }
    const Turn turn;
    if (turn.called_off()) {
        print("\n");
        return -1;
    }
    std::string heading = "\n" + part->second;
    if (!extension.empty()) {
        heading.append(" for extension ").append(extension);
    }
    print_now(heading.append("\n\n"));
    generate_legible_configuration(name, extension);
    return 0;
}

}  // namespace

int handle_get(char* argument) noexcept try {
    std::string name = argument;
    if (*trim_blanks(argument) == '\0') {
        print(make_error_message("the syntax is: get configuration_part [extension_name]") + "\n");
        return -1;
    }
    std::string extension;
    const std::size_t blank = name.find(' ');  // not a tab
    if (blank != std::string::npos) {
        extension = name.substr(blank + 1);
        name.resize(blank);
    }
    return get_part(name, extension);
} catch (const std::bad_alloc&) {
    return refuse_for_memory();
}
