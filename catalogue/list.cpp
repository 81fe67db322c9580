#include "catalogue/list.h"

#include <string>

#include "shell/state.h"
#include "shell/text.h"

namespace {

void print_parts(const Catalogue& catalogue) {
    std::string line;
    for (const auto& [name, caption] : catalogue) {
        line.assign(name).append(" (").append(caption).append(")\n");
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
