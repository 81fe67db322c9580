#pragma once

// The back end and the sessions of a device exchange parts and settings through files with fixed
// names. Sessions take turns using them.

/// A session's turn, which lasts as long as this object. Waits until no other session has one, but
/// at most a minute, since that session may hang: the turn then begins anyway, as it does if there
/// is no lock to be had. If a process dies, its turn ends when the client that it started has
/// ended.
class Turn {
  public:
    Turn();
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    /// True if Ctrl-C or a request to end the session interrupted the wait: the turn has not begun.
    [[nodiscard]] bool called_off() const { return called_off_; }

  private:
    int folder_ = -1;
    bool called_off_ = false;
};
