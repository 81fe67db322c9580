#pragma once

// How a session meets signals. Ctrl-C and Ctrl-\ never end it; they reach a running child, which
// has the default action. A hang-up and SIGTERM ask the session to end: whatever waits for the
// keyboard returns, a running child is waited for, and then the session ends as it always does.

/// Installs the handlers, once, before anything is read. Explicit handlers also undo signals
/// inherited as ignored, so that children always have the default action.
void install_signal_handlers();

/// True from the first hang-up or SIGTERM on.
bool end_requested();

/// While one lives, a request to end interrupts a blocking read of our own instead of restarting
/// it. Needed around getpass, which knows nothing of signals.
class InterruptibleReads {
  public:
    InterruptibleReads();
    ~InterruptibleReads();
    InterruptibleReads(const InterruptibleReads&) = delete;
    InterruptibleReads& operator=(const InterruptibleReads&) = delete;
};
