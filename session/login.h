#pragma once

// Nobody administers the device without the administrator's name and password.

#include <string>

/// Asks for the credentials, at most three times. Returns only when they were accepted; otherwise
/// logs out and ends the process with status 1. So does a request to end the session.
void admin_login();

/// 1 when both equal the administrator's entry of the access-control database, byte for byte. 0 in
/// every other case, an unreadable database included. The database is read anew at every call.
int check_admin_credentials(std::string user, std::string password);
