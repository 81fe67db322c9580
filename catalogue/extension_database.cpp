#include "catalogue/extension_database.h"

#include <cstdlib>

#include "config/config_buffer.h"
#include "config/multi_section_file.h"

namespace {

constexpr const char* EXTENSION_KINDS[] = {"attendant", "extension", "pickup", "callpark",
                                           "paging"};
constexpr const char* DIRECTORY_VARIABLE = "TARN_PATH";  // must end in a slash
constexpr const char* DEFAULT_DIRECTORY = "/etc/tarn-conf/";

std::string database_path() {
    const char* directory = std::getenv(DIRECTORY_VARIABLE);
    return std::string(directory != nullptr ? directory : DEFAULT_DIRECTORY) +
           "telephony/extensiondb";
}

bool lists_extension(Configuration::MultiSectionFile& database, const char* kind,
                     const std::string& name) {
    database.Restart();
    if (database.GotoSection(kind) == 0) {
        return false;
    }
    const SmartBuffer value;
    database.RestartSection();
    while (database.GotoSecNextEntry() != 0) {
        database.GetSecCurrentEntry(nullptr, 0, value.data, value.size);
        if (name == value.data) {
            return true;
        }
    }
    return false;
}

}  // namespace

int extension_exists(const std::string& name) {
    Configuration::MultiSectionFile database(database_path().c_str(), false, false, false,
                                             "section", "{\n", "}\n", "=", "#", nullptr);
    for (const char* kind : EXTENSION_KINDS) {
        if (lists_extension(database, kind, name)) {
            return 1;
        }
    }
    return 0;
}
