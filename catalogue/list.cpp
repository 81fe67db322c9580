#include "catalogue/list.h"

#include <string>

#include "console/state.h"
#include "console/text.h"

namespace {

void print_parts(const Catalogue& catalogue) {
    std::string line;
    for (const auto& [name, caption] : catalogue) {
        line = name;
        line += " (";
        line += caption;
        line += ")\n";
        print_now(line);
    }
}

}  // namespace

int handle_list(char* /*argument*/) noexcept {
    print_now("\n*** General configuration parts ***\n\n");
    print_parts(_gAdminConParts);
    print_now("\n*** Extension configuration parts ***\n\n");
    print_parts(_gExtensionConfParts);
    print_now("\n");
    return 0;
}
