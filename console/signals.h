#pragma once

// How a session handles signals. Ctrl-C and Ctrl-\ never end it; they reach a running child, which
// has the default action. A hang-up and SIGTERM ask the session to end: whatever waits for the
// keyboard returns, a running child is waited for, and then the session ends as it always does. A
// hang-up is passed on to the child, so that nothing waits for long for a line that is gone.

/// Installs the handlers, once, before anything is read. Explicit handlers also undo signals
/// inherited as ignored, so that children always have the default action.
void install_signal_handlers();

/// True from the first hang-up or SIGTERM on.
bool end_requested();

/// From now on a hang-up reaches neither the shell nor children started later. For the very end of
/// a session, where a late one must not cut off the logout.
void ignore_hang_ups();
