#pragma once

// What the code under test writes to standard output, through whatever buffer.

#include <functional>
#include <string>
#include <vector>

/// All that the action writes to standard output, children included.
std::string captured_output(const std::function<void()>& action);

/// The same, split where it was flushed: one text for each write that reached the descriptor. What
/// the action leaves unflushed comes last. At most some 100 kB in all.
std::vector<std::string> captured_pieces(const std::function<void()>& action);
