#include "session/logout.h"

#include "cgi/cgi_gateway.h"
#include "console/signals.h"

int admin_logout() {
    ignore_hang_ups();
    return run_cgi_program("logout.cgi", NO_QUERY, close_at_once);
}
