#pragma once

/// Tells the back end that the administrator has logged out. Reports no failure. Returns 0.
int admin_logout();
