#pragma once

// The administrator's login.

#include <string>

/// Asks for the credentials, at most three times, and returns if they are accepted. If not, or on a
/// request to end the session, logs out and exits with status 1.
void admin_login();

/// Returns 1 if both match the administrator's entry in the access-control database byte for byte,
/// otherwise 0, even if the database cannot be read. Re-reads the database on every call.
int check_admin_credentials(std::string user, std::string password);
