#include <cstdio>

#include "catalogue/menu_tree.h"
#include "console/line_editor.h"
#include "console/signals.h"
#include "session/login.h"
#include "shell/command_loop.h"

// Arguments are ignored: a login shell may be started with any.
int main() {
    // Fully buffered, so that a flush is a single write even on a terminal.
    std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
    protect_line_editor();
    install_signal_handlers();
    load_menu_tree();
    admin_login();
    init_line_editor();
    run_command_loop();
    return 0;
}
