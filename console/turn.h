#pragma once

// The back end and the sessions of a device exchange parts and settings through files with fixed
// names. Sessions take turns at them.

/// A session's turn, for as long as this object lives. Waits until no other session has one, but no
/// longer than a minute, since one of them may hang: then the turn begins all the same, as it does
/// where no lock can be had. When a process dies, its turn ends once the client that it has started
/// has ended.
class Turn {
  public:
    Turn();
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    /// True when the wait was ended by Ctrl-C or by a request to end the session: the turn has not
    /// begun.
    [[nodiscard]] bool called_off() const { return called_off_; }

  private:
    int folder_ = -1;
    bool called_off_ = false;
};
