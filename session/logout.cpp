#include "session/logout.h"

#include "cgi/cgi_gateway.h"
#include "shell/signals.h"

int admin_logout() {
    ignore_hang_ups();
    return run_cgi_program("logout.cgi", NO_QUERY, close_at_once);
}
