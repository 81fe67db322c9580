#pragma once

/// Tells the back end that the administrator has logged out. Reports nothing, whether it worked or
/// not; returns the result of removing the request's last variable, which nobody needs.
int admin_logout();
