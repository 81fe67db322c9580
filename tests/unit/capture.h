#pragma once

// What the code under test writes to standard output, buffered or not.

#include <functional>
#include <string>
#include <vector>

/// Returns everything that the action and its children write to standard output.
std::string captured_output(const std::function<void()>& action);

/// The same, split where it was flushed: one text for each write to the descriptor. Text that the
/// action leaves unflushed comes last. At most some 100 kB in all.
std::vector<std::string> captured_pieces(const std::function<void()>& action);
