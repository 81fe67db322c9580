#pragma once

// How a session handles signals. Ctrl-C and Ctrl-\ never end it; a running child gets them with the
// default action. A hang-up or SIGTERM asks the session to end: whatever waits for the keyboard
// returns, a running child is waited for, and the session ends as usual. A hang-up is passed on to
// the child, which keeps that wait short.

/// Installs the handlers. Call once, before reading any input. They also replace an inherited
/// SIG_IGN, so that children always have the default action.
void install_signal_handlers();

/// True from the first hang-up or SIGTERM on.
bool end_requested();

/// Makes the shell and children started later ignore hang-ups. For the end of a session, where one
/// must not cut off the logout.
void ignore_hang_ups();
