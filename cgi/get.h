#pragma once

/// The get command: prints a configuration part below a heading. The argument is "part" or "part
/// extension". Returns 0 once the back end has been asked, otherwise -1.
int handle_get(char* argument) noexcept;
