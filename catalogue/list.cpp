#include "catalogue/list.h"

#include <cstdio>

#include "console/state.h"
#include "console/text.h"

namespace {

void print_parts(const Catalogue& catalogue) {
    for (const auto& [name, caption] : catalogue) {
        print(name);
        print(" (");
        print(caption);
        print(")\n");
        std::fflush(stdout);
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
