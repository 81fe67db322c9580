#include "session/logout.h"

#include "cgi/cgi_gateway.h"

int admin_logout() {
    return run_cgi_program("logout.cgi", NO_QUERY, close_at_once);
}
